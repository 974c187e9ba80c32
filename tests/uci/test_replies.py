"""Exact replies of the command loop: handshake, options, developer commands."""

import os
import unittest

import uci_driver
from uci_driver import AFTER_E4_GRID, START_GRID, EngineTest

UCI_REPLY = [
    "id name Vorix 2.211",
    "id author Merrowind",
    "option name Hash type spin default 256 min 1 max 262144",
    "option name Threads type spin default 1 min 1 max 256",
    "option name Ponder type check default false",
    "option name MoveOverhead type spin default 100 min 1 max 60000",
    "option name SyzygyPath type string default <empty>",
    "option name SyzygyProbeDepth type spin default 0 min 0 max 127",
    "uciok",
]

HELP_REPLY = [
    "supported UCI commands 'uci' 'ucinewgame' 'position' 'go' 'ponderhit' 'stop 'quit' 'setoption' 'isready'",
    "other commands 'perft depth', default depth=6, change board with 'position'; 'showboard' shows the current board",
]

# Lines and their exact replies; "stop" and "ponderhit" without a search have nothing to answer.
FIXED_REPLIES = [("help", HELP_REPLY)] + [
    (line, ["Unknown command"]) for line in ["foo", "UCI", "go2", "positionx startpos", "  bar  baz"]] + [
    (line, []) for line in ["evil", "evil with words", "", "   ", "\t", "stop", "ponderhit", "stop", "ponderhit"]]

# (option, value sent, exact reply): clamping at both ends of every numeric option.
OPTION_REPLIES = [
    ("Hash", "0", "info string Size of Hashtable set to : 1"),
    ("Hash", "-7", "info string Size of Hashtable set to : 1"),
    ("Hash", "16", "info string Size of Hashtable set to : 16"),
    ("Threads", "0", "info string Number of threads set to : 1"),
    ("Threads", "300", "info string Number of threads set to : 256"),
    ("Threads", "3", "info string Number of threads set to : 3"),
    ("Threads", "1", "info string Number of threads set to : 1"),
    ("MoveOverhead", "0", "info string MoveOverhead set to : 1"),
    ("MoveOverhead", "70000", "info string MoveOverhead set to : 60000"),
    ("MoveOverhead", "60000", "info string MoveOverhead set to : 60000"),
    ("MoveOverhead", "250", "info string MoveOverhead set to : 250"),
    ("SyzygyProbeDepth", "-1", "info string SyzygyProbeDepth set to: 0"),
    ("SyzygyProbeDepth", "200", "info string SyzygyProbeDepth set to: 127"),
    ("SyzygyProbeDepth", "5", "info string SyzygyProbeDepth set to: 5"),
    ("Ponder", "true", "info string Ponder set to : 1"),
    ("Ponder", "false", "info string Ponder set to : 0"),
    ("SyzygyPath", "<empty>", "info string Syzygy tablebases used from directory : <empty>"),
    # UCI option names are not case sensitive.
    ("hash", "2", "info string Size of Hashtable set to : 2"),
    ("THREADS", "2", "info string Number of threads set to : 2"),
]

# setoption lines whose value is missing or not a number, and the value the option holds (set by
# the test): one "info string" line that names the value kept.
BAD_VALUES = [
    ("setoption name Hash", "3"),
    ("setoption name Hash value", "3"),
    ("setoption name Hash value abc", "3"),
    ("setoption name Hash value 1.5", "3"),
    ("setoption name Hash 64", "3"),
    ("setoption name Threads value", "2"),
    ("setoption name Threads value two", "2"),
    ("setoption name MoveOverhead value 5ms", "77"),
    ("setoption name SyzygyProbeDepth value -", "9"),
    ("setoption name Ponder value maybe", "1"),
    ("setoption name Ponder", "1"),
    ("setoption name NoSuchOption value 1", ""),
]


class Replies(EngineTest):
    def test_uci_lists_identity_and_six_options(self):
        self.engine.send("uci")
        self.assertEqual([l.text for l in self.engine.read_until("uciok")], UCI_REPLY)
        self.assertEqual(self.engine.sync(), [])

    def test_isready_and_ucinewgame_answer_readyok(self):
        for line in ("isready", "ucinewgame"):
            self.engine.send(line)
            self.engine.expect_next("readyok")
        self.assertEqual(self.engine.sync(), [])

    def test_fixed_replies(self):
        for line, reply in FIXED_REPLIES:
            with self.subTest(line=line):
                self.assertEqual(self.engine.command(line), reply)

    def test_setoption_replies_with_the_clamped_value(self):
        for option, value, reply in OPTION_REPLIES:
            with self.subTest(option=option, value=value):
                self.assertEqual(self.engine.command("setoption name %s value %s" % (option, value)), [reply])

    def test_setoption_without_a_usable_value_keeps_the_old_one(self):
        for option, value in [("Hash", 3), ("Threads", 2), ("MoveOverhead", 77), ("SyzygyProbeDepth", 9),
                              ("Ponder", "true")]:
            self.engine.command("setoption name %s value %s" % (option, value))
        for line, kept in BAD_VALUES:
            with self.subTest(line=line):
                replies = self.engine.command(line)
                self.assertEqual(len(replies), 1, replies)
                self.assertTrue(replies[0].startswith("info string "), replies)
                self.assertNotIn("set to", replies[0])
                self.assertRegex(replies[0], r"\b%s\b" % kept)

    def test_carriage_returns_and_tabs_separate_words(self):
        # Lines from a Windows GUI end in "\r\n"; tabs and runs of blanks separate words.
        self.engine.send("isready\r")
        self.engine.expect_next("readyok")
        for line, reply in [
                ("setoption name Hash value 2\r", ["info string Size of Hashtable set to : 2"]),
                ("setoption name SyzygyPath value <empty>\r",
                 ["info string Syzygy tablebases used from directory : <empty>"]),
                ("position\tstartpos  moves\te2e4 \r", []), ("showboard\r", AFTER_E4_GRID),
                ("position fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR\tw KQkq -  0 1\r", []),
                ("showboard", START_GRID), ("\r", []), ("evil\r", [])]:
            self.assertEqual(self.engine.command(line), reply)

    @unittest.skipUnless(
        os.path.exists("/proc/sys/vm/overcommit_memory")
        and open("/proc/sys/vm/overcommit_memory").read().strip() in ("0", "2")
        and os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") < (200 << 30),
        "only where a 256 GB table cannot be mapped (it would otherwise be cleared page by page)",
    )
    def test_hash_above_the_maximum_is_clamped_and_the_engine_keeps_working(self):
        replies = self.engine.command("setoption name Hash value 262145")
        self.assertEqual(len(replies), 1, replies)
        # Either the clamped table was allocated, or the refusal names the clamped size.
        self.assertRegex(replies[0], r"^info string .*\b262144\b")
        self.assertNotIn("262145", replies[0])
        self.assert_search_result(self.engine.search("go depth 4"))
        self.assertEqual(self.engine.quit(), 0)


if __name__ == "__main__":
    uci_driver.main()
