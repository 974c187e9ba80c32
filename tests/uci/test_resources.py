"""Resources held by the engine process across many option changes (Linux /proc only)."""

import os
import unittest

import uci_driver
from uci_driver import Engine


def mapped_kb(pid):
    with open("/proc/%d/status" % pid) as status:
        for line in status:
            if line.startswith("VmSize:"):
                return int(line.split()[1])
    raise AssertionError("no VmSize in /proc/%d/status" % pid)


@unittest.skipUnless(os.path.exists("/proc/self/status"), "needs /proc")
class Resources(unittest.TestCase):
    def test_hash_resizes_release_their_address_space(self):
        # Each resize maps a new table and must unmap all of the old one. Address space is scarce
        # on the 32-bit target: a few hundred leaked megabytes there end every later allocation.
        with Engine() as engine:
            def cycles(n):
                for _ in range(n):
                    engine.send("setoption name Hash value 2")
                    engine.send("setoption name Hash value 1")
                engine.sync(60 * uci_driver.time_scale())

            cycles(30)  # thread stacks and allocator arenas of the clearing threads settle
            before = mapped_kb(engine.proc.pid)
            cycles(200)
            growth_mb = (mapped_kb(engine.proc.pid) - before) / 1024
            self.assertLess(growth_mb, 64, "mapped size grew by %.0f MB over 400 resizes" % growth_mb)
            self.assertEqual(engine.quit(), 0)

    def test_thread_pool_rebuilds_release_their_threads(self):
        with Engine() as engine:
            def cycles(n):
                for _ in range(n):
                    engine.send("setoption name Threads value 4")
                    engine.send("setoption name Threads value 1")
                engine.sync(60 * uci_driver.time_scale())

            cycles(10)
            before = mapped_kb(engine.proc.pid)
            threads_before = len(os.listdir("/proc/%d/task" % engine.proc.pid))
            cycles(100)
            growth_mb = (mapped_kb(engine.proc.pid) - before) / 1024
            self.assertLess(growth_mb, 64, "mapped size grew by %.0f MB over 200 rebuilds" % growth_mb)
            self.assertEqual(len(os.listdir("/proc/%d/task" % engine.proc.pid)), threads_before)
            self.assertEqual(engine.quit(), 0)


if __name__ == "__main__":
    uci_driver.main()
