#!/usr/bin/python3
"""The log of the agent: what a reader that stalls, and the journal, make of it."""

import fcntl
import os
import re
import signal
import socket
import struct
import subprocess
import termios
import unittest

import support
from support import DESCRIPTION, ENTRY, Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9)]


class ReadAgent:
    """An agent whose standard error is an end of something that the test reads when it likes."""

    def __init__(self, test, end, reader, *options, program=(support.AGENT,), **environment):
        self.address = f"udp:127.0.0.1:{support.freePort()}"
        self.reader = reader
        self.said = ""
        self.child = subprocess.Popen(
            [*program, "--listen", self.address, *options], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=end, cwd=test.directory,
            env={**os.environ, **environment})
        test.addCleanup(self.close)
        self.manager = Manager(self.address)
        os.set_blocking(reader.fileno(), False)
        support.waitFor(lambda: " serves " in self.read(), "the agent serves")

    def read(self):
        """All that was said up to now."""
        while piece := self.reader.read(65536):
            self.said += piece.decode()
        return self.said

    def close(self):
        if self.child.poll() is None:
            self.child.kill()
        self.child.wait()


class Stalled(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        read, self.end = os.pipe()
        self.reader = os.fdopen(read, "rb", buffering=0)
        self.addCleanup(self.reader.close)
        self.addCleanup(os.close, self.end)

    def waiting(self):
        """The octets in the pipe."""
        return struct.unpack("i", fcntl.ioctl(self.reader, termios.FIONREAD, b"\0" * 4))[0]

    def fill(self, agent):
        """Requests, each with its lines of trace, until the pipe takes none any more."""
        name = f"{ENTRY}.{DESCRIPTION}.0.0.1"
        before = -1
        while before != self.waiting():
            before = self.waiting()
            for _ in range(5):
                self.assertEqual(agent.manager.get(name), [(name, b"Power loss")])
        self.assertGreater(before, 50000)

    def assertGoesOn(self, agent):
        flags = fcntl.fcntl(self.end, fcntl.F_GETFL)
        self.fill(agent)
        self.assertEqual(agent.manager.rows(), {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)})
        self.assertEqual(fcntl.fcntl(self.end, fcntl.F_GETFL), flags)
        leftOut = r"^norvek-snmpd: lines left out because nobody read them: \d+$"
        support.waitFor(lambda: re.search(leftOut, agent.read(), re.M), "the reader is told")
        self.fill(agent)
        agent.child.send_signal(signal.SIGTERM)
        self.assertEqual(agent.child.wait(support.PATIENCE), 0)

    def testAnAgentWhoseReaderStallsAnswersAndEnds(self):
        agent = ReadAgent(self, self.end, self.reader, "--trace", "Snmp=8")
        self.assertGoesOn(agent)

    def testSoDoesOneWhoseConfigurationDebugsNetSnmp(self):
        access = self.write("access.conf", "rocommunity public 127.0.0.1\n[snmp]\ndoDebugging 1\n")
        agent = ReadAgent(self, self.end, self.reader, "--config", access)
        self.fill(agent)
        agent.child.send_signal(signal.SIGTERM)
        self.assertEqual(agent.child.wait(support.PATIENCE), 0)

    def testSoDoesOneThatMayNotOpenThePipeItself(self):
        if os.geteuid() != 0:
            self.skipTest("only root may become another user")
        os.chmod(self.directory, 0o755)
        program = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                   support.agentForAnyone(self.directory))
        agent = ReadAgent(self, self.end, self.reader, "--trace", "Snmp=8", program=program)
        self.assertGoesOn(agent)


class Journal(support.SystemTest):
    def lines(self, **environment):
        end, ours = socket.socketpair()
        reader = ours.makefile("rb", buffering=0)
        self.addCleanup(reader.close)
        self.addCleanup(ours.close)
        status = os.fstat(end.fileno())
        stream = {"JOURNAL_STREAM": f"{status.st_dev}:{status.st_ino}", **environment}
        agent = ReadAgent(self, end, reader, "--trace", "Snmp=2", **stream)
        end.close()
        agent.manager.get(f"{ENTRY}.{DESCRIPTION}.0.0.1")
        agent.child.send_signal(signal.SIGTERM)
        self.assertEqual(agent.child.wait(support.PATIENCE), 0)
        return agent.read().splitlines()

    def testEachLineCarriesALevelWhereTheJournalReads(self):
        lines = self.lines()
        self.assertGreater(len(lines), 5)
        for line in lines:
            self.assertRegex(line, r"^<[3-7]>norvek-snmpd: \w", line)

    def testNoLineDoesElsewhere(self):
        for line in self.lines(JOURNAL_STREAM="1:2"):
            self.assertRegex(line, r"^norvek-snmpd: \w", line)


if __name__ == "__main__":
    unittest.main()
