#!/usr/bin/python3
"""What the agent tells unasked: that it started, and which causes have become others."""

import os
import signal
import socket
import unittest

import support
from support import rowsOf
from trap_receiver import CAUSES_CHANGED, COLD_START, TrapReceiver

CAUSES = [("Power loss", 1700000000.9)]
LATER = [("Fan failure", 1700000100), ("Too hot", 1700000101)]
QUIET = 0.5  # seconds in which nothing more is told


class Notify(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.receiver = TrapReceiver()
        self.addCleanup(self.receiver.close)
        self.recordReset(1, CAUSES)
        os.mkdir(self.path("state"))

    def configuration(self, *lines):
        return self.write("access.conf", "\n".join(["rocommunity public 127.0.0.1", *lines, ""]))

    def startTelling(self, *lines):
        return self.start("--state-dir", self.path("state"), "--config", self.configuration(*lines))

    def assertToldOf(self, message, unit, causes):
        self.assertEqual((message.kind, message.unit, message.count),
                         (CAUSES_CHANGED, unit, len(causes)))
        self.assertEqual(message.rows(), rowsOf(unit, causes))

    def assertQuiet(self):
        self.assertEqual([message.kind for message in self.receiver.during(QUIET)], [])

    def testAChangeIsToldOnceOfEachUnitAndNotAgainAfterARestart(self):
        sink = f"trap2sink {self.receiver.address}"
        agent = self.startTelling(sink)
        self.assertEqual(self.receiver.next().kind, COLD_START)
        self.recordReset(1, LATER)
        self.assertToldOf(self.receiver.next(), 0, LATER)
        self.assertToldOf(self.receiver.next(), 1, LATER)
        self.assertQuiet()
        self.assertEqual(agent.stopped(), 0, agent.said())
        agent = self.startTelling(sink)
        self.assertEqual(self.receiver.next().kind, COLD_START)
        self.assertQuiet()
        self.assertEqual(agent.stopped(signal.SIGKILL), -signal.SIGKILL)
        self.recordReset(1, CAUSES)
        self.startTelling(sink)
        told = [self.receiver.next() for _ in range(3)]
        self.assertEqual(sorted(str(message.unit) for message in told), ["0", "1", "None"])
        self.assertQuiet()

    def testAnInformIsRepeatedUntilItIsAcknowledged(self):
        self.receiver.acknowledges = False
        self.startTelling(f"trapsess -v 2c -c public -Ci -t 0.2 -r 9 {self.receiver.address}")
        told = [self.receiver.next() for _ in range(4)]
        self.assertEqual({message.request for message in told}, {told[0].request})
        self.receiver.acknowledge(told[-1])
        self.assertQuiet()

    def testSinksAreReadAgain(self):
        agent = self.startTelling()
        self.assertQuiet()
        self.configuration(f"informsink {self.receiver.address}")
        agent.child.send_signal(signal.SIGHUP)
        support.waitFor(lambda: "access.conf: taken in" in agent.said(), "the sinks are taken in")
        self.recordReset(1, LATER)
        self.assertToldOf(self.receiver.next(), 0, LATER)
        self.assertToldOf(self.receiver.next(), 1, LATER)

    def testTheAddressInTrapsOfVersion1IsReadAgain(self):
        traps = self.receiver.socket
        traps.settimeout(support.PATIENCE)
        sink = f"trapsink {self.receiver.address}"
        agent = self.startTelling(sink, "v1trapaddress 192.0.2.1")
        self.assertIn(socket.inet_aton("192.0.2.1"), traps.recv(65535))
        self.configuration(sink, "v1trapaddress 192.0.2.2")
        agent.child.send_signal(signal.SIGHUP)
        support.waitFor(lambda: "access.conf: taken in" in agent.said(), "the address is taken in")
        self.recordReset(1, LATER)
        self.assertIn(socket.inet_aton("192.0.2.2"), traps.recv(65535))

    def testASinkThatCannotBeEndsTheStart(self):
        for line, why in ((f"trapsess -v 3 -u x -A short {self.receiver.address}", "passphrase"),
                          ("informsink tcp:127.0.0.1", "notifications go by UDP alone"),
                          ("authtrapenable 1", "no manager is notified of a request")):
            agent = support.Agent(self.directory, "--config", self.configuration(line))
            self.addCleanup(agent.close)
            self.assertEqual(agent.ended(), 1, agent.said())
            self.assertIn(why, agent.said())


if __name__ == "__main__":
    unittest.main()
