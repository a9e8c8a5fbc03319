#!/usr/bin/python3
"""What a request costs in system calls, counted: the same on any machine."""

import collections
import re
import signal
import unittest

import snmp_client
import support
from support import ENTRY

REQUESTS = 200
# A request from a source that asked before, each waited for by whoever asks.
CALLS = ("pselect6", "recvmmsg", "sendmsg")
# Rounds in which something else is due: a first answer, a look at the files once a second, a timer.
OTHERS = 20


class Trace:
    """The system calls of a process's first thread, from now on until it is read."""

    def __init__(self, test, agent):
        self.process = agent.child.pid
        self.file = test.path("calls")
        self.strace = support.Process(test.directory, "strace", "-f", "-qq", "-o", self.file, "-p",
                                      str(self.process))
        test.addCleanup(self.strace.close)
        support.waitFor(lambda: self.isTraced() or self.strace.hasEnded(), "strace is attached")
        test.assertFalse(self.strace.hasEnded(), self.strace.said())

    def isTraced(self):
        with open(f"/proc/{self.process}/status") as status:
            return not re.search(r"^TracerPid:\s+0$", status.read(), re.MULTILINE)

    def names(self):
        self.strace.stopped(signal.SIGINT)
        with open(self.file) as lines:
            return re.findall(rf"^{self.process} +(\w+)\(", lines.read(), re.MULTILINE)


def rounds(names):
    """The calls from each wait for events to the next one."""
    found = []
    for name in names:
        if name == CALLS[0]:
            found.append([])
        if found:
            found[-1].append(name)
    return [tuple(calls) for calls in found if "sendmsg" in calls]


class Calls(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, [("Power loss", 1)])
        self.agent = self.start()
        self.client = snmp_client.Client(self.agent.port, support.PATIENCE)
        self.addCleanup(self.client.close)

    def ask(self):
        self.assertNotEqual(self.client.bulk(ENTRY, 1), [])

    @unittest.skipIf(support.isSanitized(), "the sanitizer's allocator calls the system as well")
    def testARequestTakesThreeSystemCalls(self):
        self.ask()
        trace = Trace(self, self.agent)
        # The wait that the trace began in may not be seen, nor what it was for.
        for _ in range(1 + REQUESTS):
            self.ask()
        found = collections.Counter(rounds(trace.names()))
        self.assertIn(sum(found.values()), (REQUESTS, 1 + REQUESTS), found)
        self.assertGreaterEqual(found[CALLS], REQUESTS - OTHERS, found)

    def testRequestsThatCameTogetherAreAllAnswered(self):
        """More than are taken at once, and none after them that would wake the agent."""
        together = 50
        self.agent.child.send_signal(signal.SIGSTOP)
        clients = [snmp_client.Client(self.agent.port, support.PATIENCE) for _ in range(together)]
        for client in clients:
            self.addCleanup(client.close)
            client.ask(ENTRY, 1)
        self.agent.child.send_signal(signal.SIGCONT)
        for client in clients:
            self.assertEqual(client.answer(client.socket.recv(65536))[0], 1)


if __name__ == "__main__":
    unittest.main()
