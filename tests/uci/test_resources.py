"""Resources held by the engine process across many option changes (Linux /proc only)."""

import os
import unittest

import uci_driver
from uci_driver import EngineTest


def mapped_kb(pid):
    with open("/proc/%d/status" % pid) as status:
        for line in status:
            if line.startswith("VmSize:"):
                return int(line.split()[1])
    raise AssertionError("no VmSize in /proc/%d/status" % pid)


@unittest.skipUnless(os.path.exists("/proc/self/status"), "needs /proc")
class Resources(EngineTest):
    def steady_growth_mb(self, commands, window):
        """Mapped-size growth over `window` repetitions of `commands`, measured after a warm-up (a
        sanitizer's allocator grows its caches once; a leak grows in every window)."""
        def repeat(n):
            for _ in range(n):
                for command in commands:
                    self.engine.send(command)
            self.engine.sync(120 * self.scale)

        repeat(300 if uci_driver.is_instrumented() else 30)
        before = mapped_kb(self.engine.proc.pid)
        repeat(window)
        return (mapped_kb(self.engine.proc.pid) - before) / 1024

    def test_hash_resizes_release_their_address_space(self):
        # Each resize maps a new table and must unmap all of the old one. Address space is scarce
        # on the 32-bit target: a few hundred leaked megabytes there end every later allocation.
        growth = self.steady_growth_mb(["setoption name Hash value 2", "setoption name Hash value 1"], 200)
        self.assertLess(growth, 64, "mapped size grew by %.0f MB over 400 resizes" % growth)
        self.assertEqual(self.engine.quit(), 0)

    def test_thread_pool_rebuilds_release_their_threads(self):
        tasks = "/proc/%d/task" % self.engine.proc.pid
        threads_before = len(os.listdir(tasks))
        growth = self.steady_growth_mb(["setoption name Threads value 4", "setoption name Threads value 1"], 100)
        self.assertLess(growth, 64, "mapped size grew by %.0f MB over 200 rebuilds" % growth)
        self.assertEqual(len(os.listdir(tasks)), threads_before)
        self.assertEqual(self.engine.quit(), 0)


if __name__ == "__main__":
    uci_driver.main()
