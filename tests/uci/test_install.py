"""cmake --install into a temporary prefix: the installed program answers "uci" and its manual
page renders without warnings."""

import os
import subprocess
import sys
import tempfile
import unittest

import uci_driver


class Install(unittest.TestCase):
    def test_installed_program_and_manual_page(self):
        build = os.path.dirname(uci_driver.engine_path())
        cmake = os.environ.get("CMAKE_COMMAND", "cmake")
        with tempfile.TemporaryDirectory() as prefix:
            subprocess.run([cmake, "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
            program = os.path.join(prefix, "bin", "vorix")
            reply = subprocess.run([program], input=b"uci\nquit\n", capture_output=True, timeout=60)
            self.assertEqual(reply.returncode, 0)
            self.assertIn("uciok", reply.stdout.decode().splitlines())

            page = os.path.join(prefix, "share", "man", "man6", "vorix.6")
            env = dict(os.environ, MANWIDTH="80", MANPAGER="cat", PAGER="cat", LC_ALL="C.UTF-8")
            shown = subprocess.run(["man", "--warnings", "-l", page], capture_output=True, env=env, timeout=60)
            self.assertEqual(shown.returncode, 0, shown.stderr)
            self.assertEqual(shown.stderr.decode().strip(), "")
            text = shown.stdout.decode()
            for heading in ["NAME", "OPTIONS", "COMMANDS", "NOTES"]:
                self.assertRegex(text, r"(?m)^%s$" % heading)
            for word in ["SyzygyPath", "MoveOverhead", "searchmoves", "rtest", "ucinewgame"]:
                self.assertIn(word, text)


if __name__ == "__main__":
    uci_driver.main()
