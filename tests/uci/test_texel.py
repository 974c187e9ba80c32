"""The "texel" command end to end: the progress lines of a run over the labelled positions in the
working directory, the message for a missing file, and the count of skipped lines. The whole
data set is read from VORIX_SHARED_DIR/texel when it is there.
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

import uci_driver

RUN_TIMEOUT = 300.0  # the whole data set on a small machine, or a sanitizer build
BANNER_END = "enter 'help' to see the commands"
MISSING = "There seems to be a problem with the tuning file. tuning not executed"
NUMBER = r"(\S+)"


def run_texel(directory):
    """The engine's lines after the banner for "texel" then "quit", run in directory."""
    done = subprocess.run([uci_driver.engine_path()], input="texel\nquit\n", capture_output=True, text=True,
                          cwd=directory, timeout=RUN_TIMEOUT)
    if done.returncode != 0:
        raise AssertionError("engine ended with %d: %s" % (done.returncode, done.stderr[-2000:]))
    lines = done.stdout.split("\n")
    if lines and lines[-1] == "":
        lines.pop()
    if BANNER_END not in lines:
        raise AssertionError("no banner in %r" % lines[:10])
    return lines[lines.index(BANNER_END) + 1:]


class TexelRun(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="vorix_texel_")

    def tearDown(self):
        shutil.rmtree(self.directory, ignore_errors=True)

    def check_run_lines(self, lines):
        """Checks the lines of a run with nothing registered; returns the starting error."""
        self.assertGreaterEqual(len(lines), 5, lines)
        self.assertEqual(lines[0], "Starting texel tuning....")
        start = re.fullmatch("Starting error " + NUMBER, lines[1])
        self.assertIsNotNone(start, lines[1])
        self.assertEqual(lines[2], "")
        self.assertEqual(lines[3], " Improving: 1")
        ending = re.fullmatch("Ending error " + NUMBER + " Minimum error " + NUMBER, lines[4])
        self.assertIsNotNone(ending, lines[4])
        self.assertEqual(ending.group(1), start.group(1))
        self.assertEqual(ending.group(2), start.group(1))
        error = float(start.group(1))
        self.assertTrue(0.0 < error < 0.25, error)
        return error

    def test_whole_data_set(self):
        shared = os.environ.get("VORIX_SHARED_DIR", "")
        source = os.path.join(shared, "texel", "lichess-good.epd")
        if not os.path.isfile(source):
            self.skipTest("no labelled positions at %s" % source)
        shutil.copy(source, os.path.join(self.directory, "lichess-good.epd"))
        lines = run_texel(self.directory)
        self.check_run_lines(lines)
        self.assertEqual(len(lines), 5, lines)

    def test_missing_file_prints_only_the_message(self):
        self.assertEqual(run_texel(self.directory), [MISSING])

    def test_malformed_lines_are_counted_after_the_run(self):
        kings = "4k3/8/8/8/8/8/8/4K3"
        text = "\n".join([
            kings + ' w - - c9 "1-0";',
            kings + ' b - - c9 "0-1";',
            kings + ' w - - c9 "1/2-1/2";',
            kings + ' w - - "1-0";',
            kings + " w - - c9",
            "",
        ]) + "\n"
        with open(os.path.join(self.directory, "lichess-good.epd"), "w") as f:
            f.write(text)
        lines = run_texel(self.directory)
        # Kings alone score the end-game tempo: two misses of a 17-point score and one draw.
        self.assertAlmostEqual(self.check_run_lines(lines), 0.138893, places=6)
        self.assertEqual(lines[5:], ["info string skipped 2 malformed lines"])


if __name__ == "__main__":
    uci_driver.main()
