#!/usr/bin/python3
"""The one table at each of its hosts: norvek-snmpd as master, norvek-snmpd as subagent of Debian's
snmpd, and the module inside Debian's snmpd. SNMPD, SNMPD_MODULE and PROGRAMS name what is tested."""

import os
import signal
import time
import unittest

import support
from support import Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9), ("Watchdog", 1700000001)]
LATER = ("later", 1700000009)
RETURN = 5  # seconds until the rows are back after what kept them away has returned
STALL = 1  # second that a host may stand still


class HostTest(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.address = f"udp:127.0.0.1:{support.freePort()}"
        self.manager = Manager(self.address)
        self.statusSocket = self.path("status")

    def run_(self, *command):
        process = support.Process(self.directory, *command)
        self.addCleanup(process.close)
        return process

    def waitForLine(self, process, line):
        support.waitFor(lambda: line in process.said() or process.hasEnded(), line)
        self.assertFalse(process.hasEnded(), process.said())

    def startSnmpd(self, *lines):
        configuration = self.write("snmpd.conf", "\n".join(
            ["rocommunity public 127.0.0.1", *lines, ""]))
        snmpd = self.run_("env", f"SNMP_PERSISTENT_DIR={self.directory}", "MIBS=", support.SNMPD,
                          "-f", "-LEi", "-C", "-c", configuration, "-I", "-smux", "-p",
                          self.path("pid"), self.address)
        self.waitForLine(snmpd, "NET-SNMP version")
        return snmpd

    def watch(self):
        watch = support.StatusWatch(self.statusSocket)
        self.addCleanup(watch.end)
        return watch

    def rowsAre(self, causes):
        return self.manager.rows() == {**rowsOf(0, causes), **rowsOf(1, causes)}

    def assertShown(self, causes, patience=support.PATIENCE):
        begun = time.monotonic()
        support.waitFor(lambda: self.rowsAre(causes), "the table shows what is published")
        self.assertLess(time.monotonic() - begun, patience)

    def tellStall(self, watch):
        print(f"{self.id()}: longest standstill {watch.longest:.3f} s", flush=True)
        self.assertLess(watch.longest, STALL)


class SubagentHost(HostTest):
    """norvek-snmpd beside Debian's snmpd."""

    def setUp(self):
        super().setUp()
        self.socket = self.path("agentx")
        self.master = self.startMaster()
        self.host = self.startHost()
        self.assertShown(CAUSES)

    def startMaster(self):
        return self.startSnmpd("master agentx", f"agentXSocket unix:{self.socket}")

    def startHost(self):
        host = self.run_(support.AGENT, "--agentx", f"unix:{self.socket}", "--status-socket",
                         self.statusSocket)
        self.waitForLine(host, "cell 1 serves the master")
        return host

    def assertFollows(self, watch):
        """It takes in what is published, whether or not its master is there to show it."""
        self.addCause(1, *LATER)
        support.waitFor(lambda: watch.rows.get("1") == len(CAUSES) + 1, "the host follows")

    def testAMasterThatWasKilledHasTheRowsBack(self):
        watch = self.watch()
        self.assertEqual(self.master.stopped(signal.SIGKILL), -signal.SIGKILL)
        self.assertFollows(watch)
        self.startMaster()
        self.assertShown(CAUSES + [LATER], patience=RETURN)
        self.tellStall(watch)

    def testAMasterThatWasStoppedForTenSecondsHasTheRowsBack(self):
        watch = self.watch()
        self.master.child.send_signal(signal.SIGSTOP)
        stopped = time.monotonic()
        support.waitFor(lambda: "failed to respond" in self.host.said(), "the master is missed")
        self.assertFollows(watch)
        support.waitFor(lambda: time.monotonic() - stopped >= 10, "ten seconds")
        self.master.child.send_signal(signal.SIGCONT)
        self.assertShown(CAUSES + [LATER], patience=RETURN)
        self.tellStall(watch)

    def testAMasterWhoseSocketWentAwayHasTheRowsBack(self):
        watch = self.watch()
        os.remove(self.socket)
        self.addCause(1, *LATER)
        self.assertShown(CAUSES + [LATER])
        self.master.stopped()
        support.waitFor(lambda: "disconnected" in self.host.said(), "the master is missed")
        self.startMaster()
        self.assertShown(CAUSES + [LATER], patience=RETURN)
        self.tellStall(watch)


if __name__ == "__main__":
    unittest.main()
