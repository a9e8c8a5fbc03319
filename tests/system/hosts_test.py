#!/usr/bin/python3
"""The one table at each of its hosts: norvek-snmpd as master, norvek-snmpd as subagent of Debian's
snmpd, and the module inside Debian's snmpd. SNMPD, SNMPD_MODULE and PROGRAMS name what is tested."""

import contextlib
import itertools
import json
import os
import re
import shutil
import signal
import time
import unittest

import redis_pair
import support
from support import ENTRY, Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9), ("Watchdog", 1700000001)]
LATER = ("later", 1700000009)
HISTORY = "cell/1/sys/reset/history"
NOBODY = 65534
DLMOD_STATUS, DLMOD_UNLOAD = "1.3.6.1.4.1.2021.13.14.2.1.5.1", "5"
RETURN = 5  # seconds until the rows are back after what kept them away has returned
STALL = 1  # second that a host may stand still


class HostTest(support.SystemTest):
    """Starts self.host, which tells at self.statusSocket what it serves, and what it needs."""

    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.follows = [f"file:{self.database}"]  # a database, and the credentials for it
        self.address = f"udp:127.0.0.1:{support.freePort()}"
        self.manager = Manager(self.address)
        self.statusSocket = self.path("status")
        os.mkdir(self.path("snmpd"))

    def begin(self, *command):
        process = support.Process(self.directory, *command)
        self.addCleanup(process.close)
        return process

    def waitForLine(self, process, line, count=1):
        support.waitFor(lambda: process.said().count(line) >= count or process.hasEnded(), line)
        self.assertFalse(process.hasEnded(), process.said())

    def startAgent(self, *options):
        host = self.begin(support.AGENT, "--status-socket", self.statusSocket, *options,
                          *itertools.chain(*zip(("--db", "--db-auth"), self.follows)))
        self.waitForLine(host, "cell 1 serves ")
        return host

    def startSnmpd(self, *lines, options=(), community="rocommunity"):
        # snmpd keeps a snmpd.conf of its own.
        configuration = self.write("access.conf", "\n".join(
            [f"{community} public 127.0.0.1", *lines, ""]))
        snmpd = self.begin("env", f"SNMP_PERSISTENT_DIR={self.path('snmpd')}", "MIBS=",
                           support.SNMPD, "-f", "-LEi", "-C", "-c", configuration, "-I", "-smux",
                           "-p", self.path("pid"), *options, self.address)
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

    def assertNoStall(self, watch):
        print(f"{self.id()}: longest standstill {watch.longest:.3f} s", flush=True)
        self.assertLess(watch.longest, STALL)

    @staticmethod
    def holdings(process):
        """What a process has open but its log, and how many threads it has."""
        opened = []
        for name in os.listdir(f"/proc/{process.child.pid}/fd"):
            with contextlib.suppress(FileNotFoundError):  # closed meanwhile
                opened.append(os.readlink(f"/proc/{process.child.pid}/fd/{name}"))
        return (sorted(file.split("[")[0] for file in opened if not file.endswith(".log")),
                len(os.listdir(f"/proc/{process.child.pid}/task")))


class TheOneTable:
    """What every host does."""

    def testItIsWalkedAndFollowsChanges(self):
        self.host = self.startHost()
        self.assertShown(CAUSES)
        self.addCause(1, *LATER)
        self.assertShown(CAUSES + [LATER])
        self.assertNotEqual(self.manager.set(f"{ENTRY}.4.0.0.1", "s", "mine").returncode, 0)

    def testItIsThereAfterARestart(self):
        self.host = self.startHost()
        self.assertShown(CAUSES)
        self.assertEqual(self.host.stopped(), 0, self.host.said())
        self.assertFalse(os.path.exists(self.statusSocket))
        self.addCause(1, *LATER)
        self.startHost()
        self.assertShown(CAUSES + [LATER])

    def testAHostThatWasKilledLeavesNothingInTheWay(self):
        self.host = self.startHost()
        self.assertShown(CAUSES)
        self.assertEqual(self.host.stopped(signal.SIGKILL), -signal.SIGKILL)
        self.assertTrue(os.path.exists(self.statusSocket))
        self.startHost()
        self.assertShown(CAUSES)
        watch = self.watch()
        support.waitFor(lambda: watch.rows, "it tells what it serves")

    def testADatabaseThatIsKilledTakesNoRowsAway(self):
        redis = redis_pair.Redis(self.directory, 1)
        self.addCleanup(redis.kill)
        self.begin(support.KAVRA, "--db", redis.url, "--db-auth", redis.auth("publisher"), "serve",
                   "--cell", "1", "kavra.json")
        self.follows = [redis.url, redis.auth("agent")]
        self.host = self.startHost()
        self.assertShown(CAUSES)
        watch = self.watch()
        redis.kill()
        support.waitFor(lambda: " lost: " in self.host.said(), "the server is missed")
        self.assertTrue(self.rowsAre(CAUSES))
        redis.start()
        self.addCause(1, *LATER)
        self.assertShown(CAUSES + [LATER])
        self.assertNoStall(watch)

    def testItIsReadAgainAHundredTimes(self):
        self.host = self.startHost()
        self.assertShown(CAUSES)
        self.reload(1)
        before = self.holdings(self.host)
        for count in range(2, 102):
            causes = [(f"reload {count}", 1700000000 + count)]
            self.write("kavra.json", json.dumps({HISTORY: {
                "type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": [
                    {"description": text, "time": at} for text, at in causes]}}}}))
            self.reload(count)
        self.assertShown(causes)

        def holdsNoMore():
            (opened, threads), (openedBefore, threadsBefore) = self.holdings(self.host), before
            # One that was let go just before may have been there still.
            return len(opened) <= len(openedBefore) and threads <= threadsBefore

        support.waitFor(holdsNoMore, f"it holds no more than before: {before}")


class MasterHost(TheOneTable, HostTest):
    """norvek-snmpd alone."""

    def startHost(self):
        return self.startAgent("--listen", self.address, "--config", self.write(
            "access.conf", "rocommunity public 127.0.0.1\n"))

    def reload(self, count):
        self.host.child.send_signal(signal.SIGHUP)
        self.waitForLine(self.host, "everything else takes a restart", count)


@unittest.skipIf(support.SNMPD is None, "snmpd is not there")
class SubagentHost(TheOneTable, HostTest):
    """norvek-snmpd beside Debian's snmpd."""

    def setUp(self):
        super().setUp()
        self.socket = self.path("agentx")
        self.master = self.startMaster()

    def startMaster(self):
        return self.startSnmpd("master agentx", f"agentXSocket unix:{self.socket}")

    def startHost(self):
        return self.startAgent("--agentx", f"unix:{self.socket}")

    def reload(self, count):
        for process, line in ((self.host, "everything else takes a restart"),
                              (self.master, " restarted\n")):
            process.child.send_signal(signal.SIGHUP)
            self.waitForLine(process, line, count)

    def startWatched(self):
        self.host = self.startHost()
        self.assertShown(CAUSES)
        return self.watch()

    def assertFollows(self, watch):
        """It takes in what is published, whether or not its master is there to show it."""
        self.addCause(1, *LATER)
        support.waitFor(lambda: watch.rows.get("1") == len(CAUSES) + 1, "the host follows")

    def testAMasterThatWasKilledHasTheRowsBack(self):
        watch = self.startWatched()
        self.assertEqual(self.master.stopped(signal.SIGKILL), -signal.SIGKILL)
        self.assertFollows(watch)
        self.startMaster()
        self.assertShown(CAUSES + [LATER], patience=RETURN)
        self.assertNoStall(watch)

    def testAMasterThatWasStoppedForTenSecondsHasTheRowsBack(self):
        watch = self.startWatched()
        self.master.child.send_signal(signal.SIGSTOP)
        stopped = time.monotonic()
        support.waitFor(lambda: "failed to respond" in self.host.said(), "the master is missed")
        self.assertFollows(watch)
        support.waitFor(lambda: time.monotonic() - stopped >= 10, "ten seconds")
        self.master.child.send_signal(signal.SIGCONT)
        self.assertShown(CAUSES + [LATER], patience=RETURN)
        self.assertNoStall(watch)

    def testAMasterWhoseSocketWentAwayHasTheRowsBack(self):
        watch = self.startWatched()
        os.remove(self.socket)
        self.addCause(1, *LATER)
        self.assertShown(CAUSES + [LATER])
        self.master.stopped()
        support.waitFor(lambda: "disconnected" in self.host.said(), "the master is missed")
        self.startMaster()
        self.assertShown(CAUSES + [LATER], patience=RETURN)
        self.assertNoStall(watch)


@unittest.skipIf(support.SNMPD is None, "snmpd is not there")
class ModuleHost(TheOneTable, HostTest):
    """The module inside Debian's snmpd."""

    def startHost(self, *lines, **parameters):
        directives = zip(("norvekDb", "norvekDbAuth"), self.follows)
        snmpd = self.startSnmpd(
            f"dlmod norvek {support.SNMPD_MODULE}", f"norvekStatusSocket {self.statusSocket}",
            *(f"{name} {value}" for name, value in directives), *lines, **parameters)
        self.waitForLine(snmpd, "norvek: ")
        return snmpd

    def reload(self, count):
        self.host.child.send_signal(signal.SIGHUP)
        self.waitForLine(self.host, "norvek: cell 1 follows ", count + 1)

    def testTheFirstRequestAfterAReloadSeesTheRows(self):
        """It is answered in the same pass of the loop in which the table comes back."""
        self.host = self.startHost()
        self.assertShown(CAUSES)
        for _ in range(20):
            self.host.child.send_signal(signal.SIGHUP)
            self.assertTrue(self.rowsAre(CAUSES))

    def testItsCodeStaysThatWhichWasLoadedFirst(self):
        """The plug-in of another version would not fit the libraries that stay loaded."""
        self.host = self.startHost()
        installed = re.search(r"/\S*/libMiscSnmp\.so", self.loaded(self.host)).group()
        self.assertEqual(self.host.stopped(), 0, self.host.said())
        plugin = shutil.copy(installed, self.path("plugin.so"))
        self.host = self.startHost(f"norvekPlugin {plugin}")
        os.replace(shutil.copy(installed, self.path("later.so")), plugin)
        self.reload(1)
        self.assertShown(CAUSES)
        self.assertIn(f"{plugin} (deleted)", self.loaded(self.host))

    @staticmethod
    def loaded(process):
        with open(f"/proc/{process.child.pid}/maps") as maps:
            return maps.read()

    def testItLeavesSnmpdInPeaceAtItsEnd(self):
        self.host = self.startHost()
        self.assertShown(CAUSES)
        self.assertEqual(self.host.stopped(), 0)
        ending = self.host.said().split("norvek: cell 1 follows ")[1]
        self.assertNotRegex(ending, "lock|assert")

    def testUnloadedItHoldsNothing(self):
        bare = self.startSnmpd(community="rwcommunity")
        held = self.holdings(bare)
        self.assertEqual(bare.stopped(), 0)
        self.host = self.startHost(community="rwcommunity")
        self.assertShown(CAUSES)
        self.assertNotEqual(self.holdings(self.host), held)
        self.assertEqual(self.manager.set(DLMOD_STATUS, "i", DLMOD_UNLOAD).returncode, 0)
        support.waitFor(lambda: self.holdings(self.host) == held, "all is let go")
        self.assertEqual(self.manager.walk(), [])
        self.assertFalse(os.path.exists(self.statusSocket))
        self.assertNotIn("norvek", self.host.said().split("norvek: cell 1 follows ")[1])
        self.assertEqual(self.host.stopped(), 0, self.host.said())

    def testNothingOfItIsEverRoots(self):
        """snmpd reads its configuration as root, and goes on as somebody else."""
        if os.geteuid() != 0:
            self.skipTest("only root may become another user")
        os.chmod(self.directory, 0o777)
        self.host = self.startHost(options=("-u", "nobody", "-g", "nogroup"))
        self.assertShown(CAUSES)
        self.assertEqual(os.stat(self.statusSocket).st_uid, NOBODY)
        found = {os.path.join(folder, name) for folder, _, names in os.walk(self.directory)
                 for name in names}
        self.assertEqual({os.path.basename(path) for path in found if os.stat(path).st_uid == 0
                          and not path.startswith(self.path("snmpd"))},
                         {"kavra.json", "kavra.json.lock", "access.conf", "pid",
                          os.path.basename(self.host.log.name)})

    def testItReadsNothingThatItsUserMayNotRead(self):
        if os.geteuid() != 0:
            self.skipTest("only root may become another user")
        os.chmod(self.directory, 0o777)
        secret = self.write("agent.auth", "agent\nsecret\n")
        os.chmod(secret, 0o600)
        self.follows = ["redis://127.0.0.1:1", secret]
        self.host = self.startHost(options=("-u", "nobody", "-g", "nogroup"))
        self.assertIn(f"norvek: {secret}: Permission denied", self.host.said())
        self.assertEqual(self.manager.walk(), [])

    def testItSaysWhatIsWrongWithItsLines(self):
        for lines, said in (
                ((), "norvek: no line norvekDb after the line dlmod: nothing is served"),
                (("norvekDb sqlite:x",), "norvek: norvekDb: "),
                (("norvekDb file:/x", "norvekCellId none"), "norvek: norvekCellId: "),
                (("norvekDb file:/x", "norvekPeerDbAuth /x"),
                 "norvek: norvekPeerDbAuth requires norvekPeerDb"),
                (("norvekDb file:/x", "norvekPlugin /x"), "norvek: cannot load the plug-in: /x")):
            snmpd = self.startSnmpd(f"dlmod norvek {support.SNMPD_MODULE}", *lines)
            self.waitForLine(snmpd, said)
            self.assertNotEqual(self.manager.get("1.3.6.1.2.1.1.3.0"), [], "snmpd goes on")
            self.assertEqual(snmpd.stopped(), 0, snmpd.said())


if __name__ == "__main__":
    unittest.main()
