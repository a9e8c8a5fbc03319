#!/usr/bin/python3
"""The agent as a subagent: of Debian's snmpd, and of masters that do not answer."""

import contextlib
import signal
import socket
import struct
import subprocess
import time
import unittest

import support
from support import ENTRY, Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9), ("Watchdog", 1700000001)]


@unittest.skipIf(support.SNMPD is None, "snmpd is not there")
class Subagent(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.socket = "unix:" + self.path("agentx")
        self.address = f"udp:127.0.0.1:{support.freePort()}"
        self.manager = Manager(self.address)
        self.rows = {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)}

    def startMaster(self):
        configuration = self.write("snmpd.conf", "master agentx\n"
                                                 f"agentXSocket {self.socket}\n"
                                                 "rocommunity public 127.0.0.1\n")
        master = support.Process(self.directory, "env", f"SNMP_PERSISTENT_DIR={self.directory}",
                                 "MIBS=", support.SNMPD, "-f", "-Le", "-C", "-c", configuration, "-I",
                                 "-smux", "-p", self.path("pid"), self.address)
        self.addCleanup(master.close)
        support.waitFor(lambda: "NET-SNMP version" in master.said() or master.hasEnded(),
                        "snmpd is up")
        self.assertFalse(master.hasEnded(), master.said())
        return master

    def startSubagent(self):
        agent = support.Process(self.directory, support.AGENT, "--agentx", self.socket)
        self.addCleanup(agent.close)
        support.waitFor(lambda: "cell 1 serves the master" in agent.said() or agent.hasEnded(),
                        "the subagent is up")
        self.assertFalse(agent.hasEnded(), agent.said())
        return agent

    def testTheMasterShowsTheTableWhileTheSubagentLives(self):
        self.startMaster()
        agent = self.startSubagent()
        support.waitFor(lambda: self.manager.rows() == self.rows, "the table is shown")
        self.addCause(1, "later", 1700000009)
        later = CAUSES + [("later", 1700000009)]
        support.waitFor(lambda: self.manager.rows() == {**rowsOf(0, later), **rowsOf(1, later)},
                        "the change is shown")
        self.assertEqual(agent.stopped(), 0, agent.said())
        self.assertEqual(self.manager.walk(), [])

    def testSetsAreRefused(self):
        self.startMaster()
        self.startSubagent()
        support.waitFor(lambda: self.manager.rows() == self.rows, "the table is shown")
        result = self.manager.set(f"{ENTRY}.4.0.0.1", "s", "mine")
        self.assertNotEqual(result.returncode, 0)

    def testItOutlivesItsMasterAndEndsWell(self):
        master = self.startMaster()
        agent = self.startSubagent()
        support.waitFor(lambda: self.manager.rows() == self.rows, "the table is shown")
        master.stopped()
        support.waitFor(lambda: "disconnected" in agent.said(), "the subagent notices")
        self.assertEqual(agent.stopped(), 0, agent.said())

    def testItWaitsForAMasterThatIsNotThere(self):
        agent = self.startSubagent()
        self.assertIn(f"no AgentX master answers at {self.socket}; ", agent.said())
        self.assertEqual(agent.stopped(), 0, agent.said())

    def testAMasterThatFallsSilentLaterHoldsUpNoEnd(self):
        master = self.startMaster()
        agent = self.startSubagent()
        support.waitFor(lambda: self.manager.rows(), "the table is shown")
        master.child.send_signal(signal.SIGSTOP)
        start = time.monotonic()
        self.assertEqual(agent.stopped(), 0, agent.said())
        self.assertLess(time.monotonic() - start, 10)
        master.child.send_signal(signal.SIGCONT)


class SilentMaster(support.SystemTest):
    """A master that is reached, and says nothing: the subagent starts, obeys and asks again."""

    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        # Asked again each second rather than every other.
        self.configuration = self.write("agentx.conf", "agentXPingInterval 1\n")

    def listen(self, family, address, backlog=5):
        listener = socket.socket(family, socket.SOCK_STREAM)
        self.addCleanup(listener.close)
        listener.bind(address)
        listener.listen(backlog)
        listener.settimeout(support.PATIENCE)
        return listener

    def startSubagent(self, address, *options):
        agent = support.Process(self.directory, support.AGENT, "--agentx", address, "--config",
                                self.configuration, *options)
        self.addCleanup(agent.close)
        return agent

    def assertStartsAndObeys(self, address):
        start = time.monotonic()
        agent = self.startSubagent(address)
        support.waitFor(lambda: "serves the master" in agent.said() or agent.hasEnded(), "it runs")
        self.assertEqual(agent.said().count(f"no AgentX master answers at {address}; "), 1)
        self.assertLess(time.monotonic() - start, 5)
        start = time.monotonic()
        self.assertEqual(agent.stopped(), 0, agent.said())
        self.assertLess(time.monotonic() - start, 5)
        self.assertEqual(agent.said().count("\n"), 2, agent.said())

    def testOneThatTakesTheConnection(self):
        listener = self.listen(socket.AF_INET, ("127.0.0.1", 0))
        self.assertStartsAndObeys(f"tcp:127.0.0.1:{listener.getsockname()[1]}")

    def testOneThatTakesNoConnectionEither(self):
        """Whose queue is full: the kernel lets another one wait, for minutes."""
        listener = self.listen(socket.AF_INET, ("127.0.0.1", 0), backlog=0)
        self.crowd(socket.AF_INET, listener.getsockname())
        self.assertStartsAndObeys(f"tcp:127.0.0.1:{listener.getsockname()[1]}")

    def testOneBehindAUnixSocketWhoseQueueIsFull(self):
        path = self.path("master")
        self.listen(socket.AF_UNIX, path, backlog=0)
        self.crowd(socket.AF_UNIX, path)
        self.assertStartsAndObeys(f"unix:{path}")

    def crowd(self, family, address):
        """Connects until nobody gets in any more."""
        for _ in range(20):
            visitor = socket.socket(family, socket.SOCK_STREAM)
            self.addCleanup(visitor.close)
            visitor.settimeout(0.2)
            try:
                visitor.connect(address)
            except OSError:
                return
        self.fail("the queue is not full")

    def testASignalIsObeyedWhileTheFirstAttemptLasts(self):
        listener = self.listen(socket.AF_INET, ("127.0.0.1", 0))
        agent = self.startSubagent(f"tcp:127.0.0.1:{listener.getsockname()[1]}")
        connection, _ = listener.accept()
        with contextlib.closing(connection):
            start = time.monotonic()
            self.assertEqual(agent.stopped(signal.SIGTERM), 0, agent.said())
            self.assertLess(time.monotonic() - start, 5)

    def testOneThatAnswersTheFirstQuestionAlone(self):
        """What follows it, each registration and each ping, is waited for as well."""
        listener = self.listen(socket.AF_UNIX, self.path("master"))
        agent = self.startSubagent(f"unix:{self.path('master')}", "--context", "blue",
                                   "--status-socket", self.path("status"))
        self.grantSession(listener)
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "it runs")
        watch = support.StatusWatch(self.path("status"))
        self.addCleanup(watch.end)
        for _ in range(2):
            # It gives the session up when a ping is not answered, and registers all in a new one.
            self.grantSession(listener)
        self.addCause(1, "later", 1700000009)
        support.waitFor(lambda: watch.rows["1"] == len(CAUSES) + 1, "it follows")
        print(f"longest standstill {watch.longest:.3f} s", flush=True)
        self.assertLess(watch.longest, 1)

    def grantSession(self, listener):
        """Answers the Open of one who still waits for it, and nothing else."""
        while True:
            connection, _ = listener.accept()
            self.addCleanup(connection.close)
            connection.settimeout(support.PATIENCE)
            version, kind, flags, transaction, packet = struct.unpack("=BBBx4xII",
                                                                      connection.recv(16))
            self.assertEqual((version, kind), (1, 1))
            time.sleep(0.5)  # late, and nearly too late: what comes next has to wait for less
            with contextlib.suppress(BrokenPipeError):
                connection.sendall(struct.pack("=BBBxIIII", version, 18, flags & 0x10, 7,
                                               transaction, packet, 8) + bytes(8))
                return

    def testItIsMissed(self):
        agent = self.startSubagent("unix:" + self.path("nobody"), "--status-socket",
                                   self.path("status"))
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "it runs")
        self.assertIn(f"; missing: no AgentX master answers at unix:{self.path('nobody')}\n",
                      agent.said())
        result = subprocess.run([support.KAVRA, "status", "--agent", self.path("status")], text=True,
                                capture_output=True, timeout=support.PATIENCE, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertIn("no AgentX master answers", result.stderr)

    def testItIsAskedAgain(self):
        listener = self.listen(socket.AF_INET, ("127.0.0.1", 0))
        self.startSubagent(f"tcp:127.0.0.1:{listener.getsockname()[1]}")
        for _ in range(3):
            connection, _ = listener.accept()
            connection.settimeout(support.PATIENCE)
            self.assertEqual(connection.recv(2), b"\x01\x01")  # AgentX version 1, Open
            connection.close()


if __name__ == "__main__":
    unittest.main()
