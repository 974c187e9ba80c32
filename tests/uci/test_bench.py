"""The bench: a fixed search whose node count is the search's signature."""

import os
import re
import subprocess

import uci_driver
from uci_driver import EngineTest

LAST_LINE = re.compile(r"(\d+) nodes (\d+) nps")
# The node count the bench must give, recorded beside the test data. A change that alters the
# search on purpose updates it in the same commit; any other change must leave it alone.
SIGNATURE_FILE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "bench_signature.txt")


def recorded_signature():
    with open(SIGNATURE_FILE) as f:
        return int(f.read().strip())


class Bench(EngineTest):
    def setUp(self):
        super().setUp()
        self.timeout = 300 * self.scale

    def bench_nodes(self, lines):
        self.assertTrue(lines, "no output")
        match = LAST_LINE.fullmatch(lines[-1])
        self.assertIsNotNone(match, "last line %r" % lines[-1])
        self.assertGreater(int(match.group(1)), 100000)
        self.assertGreater(int(match.group(2)), 0)
        return int(match.group(1))

    def cli_nodes(self):
        run = subprocess.run([uci_driver.engine_path(), "bench"], stdin=subprocess.DEVNULL, capture_output=True,
                             timeout=self.timeout)
        self.assertEqual(run.returncode, 0)
        return self.bench_nodes(run.stdout.decode().splitlines())

    def uci_nodes(self, options):
        for name, value in options.items():
            self.engine.command("setoption name %s value %s" % (name, value))
        self.engine.command("position fen 8/8/8/4k3/8/8/8/R3K3 w Q - 0 1")
        nodes = self.bench_nodes(self.engine.command("bench", self.timeout))
        # The engine is usable afterwards, with a single answer per search.
        self.assert_search_result(self.engine.search("go depth 3"))
        self.assertEqual(self.engine.quit(), 0)
        return nodes

    def test_node_count_is_the_recorded_signature_and_independent_of_the_options(self):
        first = self.cli_nodes()
        self.assertEqual(first, recorded_signature(), "the bench signature moved; if the search was changed on "
                         "purpose, record the new count in tests/data/bench_signature.txt")
        if not uci_driver.is_instrumented():  # a sanitizer build takes minutes per run
            self.assertEqual(self.cli_nodes(), first)
        # The bench always uses one thread and its own table size, whatever the options say.
        self.assertEqual(self.uci_nodes({"Threads": "2", "Hash": "1"}), first)

    def test_bench_is_refused_during_a_search(self):
        self.engine.send("go infinite")
        self.engine.lines_for(0.1)
        replies = self.engine.command("bench")
        self.assertEqual(len(replies), 1, replies)
        self.assertTrue(replies[0].startswith("info string "), replies)
        self.engine.send("stop")
        self.engine.expect("bestmove.*")
        self.assertEqual(self.engine.sync(), [])


if __name__ == "__main__":
    uci_driver.main()
