#!/usr/bin/python3
"""The agent as a subagent of Debian's snmpd."""

import shutil
import unittest

import support
from support import ENTRY, Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9), ("Watchdog", 1700000001)]
SNMPD = shutil.which("snmpd", path="/usr/sbin:/usr/bin:/sbin:/bin")


@unittest.skipIf(SNMPD is None, "snmpd is not there")
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
                                 "MIBS=", SNMPD, "-f", "-Le", "-C", "-c", configuration, "-I",
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
        self.assertIn("Failed to connect to the agentx master", agent.said())
        self.assertEqual(agent.stopped(), 0, agent.said())


if __name__ == "__main__":
    unittest.main()
