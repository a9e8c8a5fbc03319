#!/usr/bin/env python3
"""What a newcomer sees of script/run: both tables, a clean end, a clear word when it cannot."""

import contextlib
import glob
import os
import re
import signal
import socket
import subprocess
import tempfile
import unittest

RUN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/run")
PATIENCE = 240  # seconds; the programs may have to be built first

ROW = re.compile(r'^\s*(\d+\.\d+\.\d+)\s+"([^"]*)"\s+(\d+-\d+-\d+,\d+:\d+:\d+\.\d+,\+0:0)\s*$')
OWN_1 = ["Supervisor lost power"]
OWN_2 = ["Watchdog expired", "Reload requested by the active supervisor"]


def freePorts():
    """A port that is free and whose successor is free too."""
    while True:
        with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as first, \
             contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as second:
            first.bind(("127.0.0.1", 0))
            port = first.getsockname()[1]
            with contextlib.suppress(OSError, OverflowError):
                second.bind(("127.0.0.1", port + 1))
                return port


def tables(output):
    """The rows of each table printed: index and description, in order."""
    found = []
    for line in output.splitlines():
        if line.startswith("SNMP table:"):
            found.append([])
        match = ROW.match(line)
        if match:
            found[-1].append((match.group(1), match.group(2)))
    return found


def rows(unit, causes):
    return [(f"{unit}.0.{index}", cause) for index, cause in enumerate(causes, 1)]


class Run(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.environment = {**os.environ, "TMPDIR": self.temporary.name}

    def start(self, *arguments):
        return subprocess.Popen([RUN, *arguments], env=self.environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, start_new_session=True)

    def finish(self, process):
        output, _ = process.communicate(timeout=PATIENCE)
        return process.returncode, output

    def assertNothingLeft(self, port):
        self.assertEqual(glob.glob(os.path.join(self.temporary.name, "norvek-run.*")), [])
        for taken in (port, port + 1):
            with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as probe:
                probe.bind(("127.0.0.1", taken))

    def testShowsBothTablesAndEnds(self):
        port = freePorts()
        status, output = self.finish(self.start("--once", "--port", str(port)))
        self.assertEqual(status, 0, output)
        pair = rows(1, OWN_1) + rows(2, OWN_2)
        self.assertEqual(tables(output), [rows(0, OWN_1) + pair, rows(0, OWN_2) + pair], output)
        self.assertNothingLeft(port)

    def testShowsTheSameTablesOfAPairOnRedis(self):
        port = freePorts()
        status, output = self.finish(self.start("--once", "--redis", "--port", str(port)))
        self.assertEqual(status, 0, output)
        pair = rows(1, OWN_1) + rows(2, OWN_2)
        self.assertEqual(tables(output), [rows(0, OWN_1) + pair, rows(0, OWN_2) + pair], output)
        self.assertNothingLeft(port)

    def testStaysUntilInterruptedAndLeavesNothing(self):
        port = freePorts()
        process = self.start("--port", str(port))
        seen = []
        for line in process.stdout:
            seen.append(line)
            if line.startswith("Ctrl-C"):
                break
        self.assertIsNone(process.poll(), "".join(seen))
        self.assertEqual(len(tables("".join(seen))), 2, "".join(seen))
        os.killpg(process.pid, signal.SIGINT)
        status, rest = self.finish(process)
        self.assertEqual((status, rest), (0, ""))
        self.assertNothingLeft(port)

    def testSaysWhichPortIsTaken(self):
        port = freePorts()
        with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as other:
            other.bind(("127.0.0.1", port + 1))
            status, output = self.finish(self.start("--once", "--port", str(port)))
        self.assertEqual(status, 1, output)
        self.assertIn(f"UDP port {port + 1} is taken", output)

    def testRefusesWrongOptions(self):
        for arguments in (["--port"], ["--port", "0"], ["--port", "65535"], ["--port", "1161x"],
                          ["--twice"]):
            status, output = self.finish(self.start(*arguments))
            self.assertEqual(status, 2, arguments)
            self.assertIn("usage: script/run", output)


if __name__ == "__main__":
    unittest.main()
