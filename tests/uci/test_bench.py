"""The bench: a fixed search whose node count is the search's signature."""

import os
import re
import subprocess
import unittest

import uci_driver
from uci_driver import Engine

LAST_LINE = re.compile(r"(\d+) nodes (\d+) nps")
# The node count the bench must give, recorded beside the test data. A change that alters the
# search on purpose updates it in the same commit; any other change must leave it alone.
SIGNATURE_FILE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "bench_signature.txt")


def recorded_signature():
    with open(SIGNATURE_FILE) as f:
        return int(f.read().strip())


def command_line_bench(timeout):
    run = subprocess.run([uci_driver.engine_path(), "bench"], stdin=subprocess.DEVNULL, capture_output=True,
                         timeout=timeout)
    return run.returncode, run.stdout.decode().splitlines()


class Bench(unittest.TestCase):
    def setUp(self):
        self.scale = uci_driver.time_scale()
        self.timeout = 300 * self.scale

    def cli_nodes(self):
        code, lines = command_line_bench(self.timeout)
        self.assertEqual(code, 0)
        self.assertTrue(lines, "no output")
        match = LAST_LINE.fullmatch(lines[-1])
        self.assertIsNotNone(match, "last line %r" % lines[-1])
        self.assertGreater(int(match.group(1)), 100000)
        self.assertGreater(int(match.group(2)), 0)
        return int(match.group(1))

    def uci_nodes(self, options):
        with Engine() as engine:
            for name, value in options.items():
                engine.set_option(name, value)
            engine.command("position fen 8/8/8/4k3/8/8/8/R3K3 w Q - 0 1")
            lines = engine.command("bench", self.timeout)
            match = LAST_LINE.fullmatch(lines[-1])
            self.assertIsNotNone(match, "last line %r" % lines[-1])
            # The engine is usable afterwards, with a single answer per search.
            after = engine.search("go depth 3")
            self.assertEqual(len([l for l in after if l.startswith("bestmove")]), 1)
            self.assertEqual(engine.quit(), 0)
            return int(match.group(1))

    def test_node_count_is_the_recorded_signature_and_independent_of_the_options(self):
        first = self.cli_nodes()
        self.assertEqual(first, recorded_signature(), "the bench signature moved; if the search was changed on "
                         "purpose, record the new count in tests/data/bench_signature.txt")
        if not uci_driver.is_instrumented():  # a sanitizer build takes minutes per run
            self.assertEqual(self.cli_nodes(), first)
        # The bench always uses one thread and its own table size, whatever the options say.
        self.assertEqual(self.uci_nodes({"Threads": "2", "Hash": "1"}), first)

    def test_bench_is_refused_during_a_search(self):
        with Engine() as engine:
            engine.send("go infinite")
            engine.lines_for(0.1)
            replies = engine.command("bench")
            self.assertEqual(len(replies), 1, replies)
            self.assertTrue(replies[0].startswith("info string "), replies)
            engine.send("stop")
            engine.expect("bestmove.*")
            self.assertEqual(engine.sync(), [])


if __name__ == "__main__":
    uci_driver.main()
