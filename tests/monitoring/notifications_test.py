#!/usr/bin/python3
"""Notifications as Debian's snmptrapd takes them, with all that goes wrong on the way to it: lost
informs, sinks that are down, names that nobody answers for, engines that are silent, a storm. Prints
what snmptrapd had to say of one reload of each supervisor, and the longest standstill of an agent."""

import itertools
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../system"))

import support  # noqa: E402  (the fixtures of the system tests)
from support import rowsOf  # noqa: E402
from trap_receiver import CAUSES_CHANGED, COLD_START, TrapReceiver  # noqa: E402

SNMPTRAPD = shutil.which("snmptrapd", path="/usr/sbin:/usr/bin:/sbin:/bin")
ENGINE = "80007ed98001020304"
KEYS = 'SHA-256 "authentication phrase" AES "privacy phrase"'
AS_USER = '-l authPriv -a SHA-256 -A "authentication phrase" -x AES -X "privacy phrase"'
TRAP_OID = ".1.3.6.1.6.3.1.1.4.1.0 = OID: ."
CAUSES = [("Power loss", 1700000000.9)]
LATER = [("Fan failure", 1700000100), ("Too hot", 1700000101)]
STALL = 0.9  # seconds; whatever an agent could wait for takes one at least
STORM = 10000


def mayMount():
    command = ["unshare", "--mount", "true"]
    return subprocess.run(command, capture_output=True, check=False).returncode == 0


class Relay(threading.Thread):
    """Passes datagrams on to a port and back, but for as many of the first as it is to lose."""

    def __init__(self, target, lose=0):
        super().__init__(daemon=True)
        self.front = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.front.bind(("127.0.0.1", 0))
        self.front.settimeout(0.05)
        self.address = "127.0.0.1:%d" % self.front.getsockname()[1]
        self.target = target
        self.lose = lose
        self.seen = 0
        self.longest = 0
        self.ended = threading.Event()
        self.start()

    def run(self):
        back = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        back.settimeout(0.2)
        while not self.ended.is_set():
            try:
                octets, source = self.front.recvfrom(65535)
            except TimeoutError:
                continue
            self.seen += 1
            self.longest = max(self.longest, len(octets))
            if self.seen <= self.lose:
                continue
            back.sendto(octets, self.target)
            try:
                self.front.sendto(back.recvfrom(65535)[0], source)
            except TimeoutError:
                continue
        back.close()
        self.front.close()

    def end(self):
        self.ended.set()
        self.join(support.PATIENCE)


class SecondManager(threading.Thread):
    """Asks an agent for its up-time all the time: the longest answer is the longest standstill."""

    GET = bytes.fromhex("302902010104067075626c6963a01c020412345678020100020100300e300c06082b060102"
                        "010103000500")

    def __init__(self, port):
        super().__init__(daemon=True)
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(support.PATIENCE)
        self.socket.connect(("127.0.0.1", port))
        self.longest = 0.0
        self.answers = 0
        self.ended = threading.Event()
        self.start()

    def run(self):
        while not self.ended.wait(0.002):
            begun = time.monotonic()
            self.socket.send(self.GET)
            self.socket.recv(65535)
            self.longest = max(self.longest, time.monotonic() - begun)
            self.answers += 1
        self.socket.close()

    def end(self):
        self.ended.set()
        self.join(2 * support.PATIENCE)
        return self.longest


@unittest.skipIf(SNMPTRAPD is None, "snmptrapd is not there")
class Notifications(support.SystemTest):
    def setUp(self):
        super().setUp()
        for folder in ("state", "trapd", "snmpd"):
            os.mkdir(self.path(folder))
        self.recordReset(1, CAUSES)
        self.sinkPort = support.freePort()
        self.sink = f"127.0.0.1:{self.sinkPort}"

    def startTrapd(self):
        """snmptrapd, which logs a line for each notification, in numbers."""
        configuration = self.write("snmptrapd.conf", "\n".join([
            "authCommunity log public", f"createUser receiver {KEYS}", "authUser log receiver",
            f"createUser -e 0x{ENGINE} sender {KEYS}", "authUser log sender", ""]))
        trapd = support.Process(
            self.directory, "env", f"SNMP_PERSISTENT_DIR={self.path('trapd')}", "MIBS=", SNMPTRAPD,
            "-f", "-C", "-c", configuration, "-m", "", "-On", "-t", "-Lo", f"udp:{self.sink}")
        self.addCleanup(trapd.close)
        support.waitFor(lambda: "NET-SNMP version" in trapd.said() or trapd.hasEnded(), "it is up")
        self.assertFalse(trapd.hasEnded(), trapd.said())
        return trapd

    def startTelling(self, *lines, cell=1, **parameters):
        configuration = self.write(f"access{cell}.conf", "\n".join(
            ["rocommunity public 127.0.0.1", *lines, ""]))
        return self.start("--state-dir", self.path("state"), "--config", configuration,
                          "--engine-id", ENGINE, cell=cell, **parameters)

    @staticmethod
    def told(trapd):
        """The kinds of notifications that snmptrapd logged, in order."""
        return re.findall(re.escape(TRAP_OID) + r"([0-9.]+)", trapd.said())

    def waitForTold(self, trapd, *kinds):
        support.waitFor(lambda: len(self.told(trapd)) >= len(kinds), f"{kinds} are told")
        self.assertEqual(self.told(trapd), list(kinds), trapd.said())

    def testEachSinkIsToldOnce(self):
        trapd = self.startTrapd()
        self.startTelling(f"trap2sink {self.sink}", f"informsink {self.sink}",
                          f"trapsess -v 3 -u sender {AS_USER} {self.sink}",
                          f"trapsess -Ci -v 3 -u receiver {AS_USER} {self.sink}")
        self.waitForTold(trapd, *[COLD_START] * 4)
        self.recordReset(1, LATER)
        # Of units 0 and 1.
        self.waitForTold(trapd, *[COLD_START] * 4, *[CAUSES_CHANGED] * 8)

    def testTrapsOfVersion1(self):
        trapd = self.startTrapd()
        self.startTelling("v1trapaddress 192.0.2.77", f"trapsink {self.sink}")
        support.waitFor(lambda: "Cold Start Trap (0)" in trapd.said(), "coldStart")
        self.recordReset(1, LATER)
        support.waitFor(lambda: trapd.said().count("Enterprise Specific Trap (1)") == 2, "both")
        self.assertIn("192.0.2.77", trapd.said())
        self.assertIn("\t.1.3.6.1.4.1.32473.3.25 Enterprise Specific Trap (1)", trapd.said())

    def testOneReloadOfEachSupervisor(self):
        self.recordReset(2, CAUSES)
        for cell in (1, 2):
            self.setRedundancy(cell, protocol=3, capable=True)
        trapd = self.startTrapd()
        for cell in (1, 2):
            self.startTelling(f"trapsess -Ci -v 3 -u receiver {AS_USER} {self.sink}", cell=cell)
        support.waitFor(lambda: len(self.told(trapd)) == 2, "both agents started")
        before = len(trapd.said())
        self.recordReset(1, LATER)
        self.recordReset(2, [("Requested", 1700000200)])
        # By each agent: its own twice, the other's once.
        support.waitFor(lambda: self.told(trapd).count(CAUSES_CHANGED) == 6, "six are told")
        print(trapd.said()[before:], flush=True)
        for unit, count in ((0, 2), (1, 2), (2, 2)):
            self.assertEqual(trapd.said().count(f".3.25.1.1.0 = Gauge32: {unit}\t"), count)

    def testLostInformsAreRepeatedAndToldOnce(self):
        trapd = self.startTrapd()
        for options in ("-v 2c -c public", f"-v 3 -u receiver {AS_USER}"):
            with self.subTest(options):
                before = len(self.told(trapd))
                relay = Relay(("127.0.0.1", self.sinkPort), lose=3)
                agent = self.startTelling(f"trapsess -Ci {options} -t 0.3 -r 9 {relay.address}")
                support.waitFor(lambda: len(self.told(trapd)) > before, "it is told")
                time.sleep(1)
                self.assertEqual(len(self.told(trapd)), before + 1, trapd.said())
                self.assertGreater(relay.seen, 3)
                relay.end()
                self.assertEqual(agent.stopped(), 0, agent.said())

    def testASinkThatIsDownAtTheStartIsToldOnceItIsUp(self):
        for options in ("-v 2c -c public", f"-v 3 -u receiver {AS_USER}"):
            with self.subTest(options):
                agent = self.startTelling(f"trapsess -Ci {options} -t 0.2 -r 1 {self.sink}")
                support.waitFor(lambda: f"do not reach {self.sink}" in agent.said(), "it is down")
                self.recordReset(1, LATER)
                trapd = self.startTrapd()
                self.waitForTold(trapd, COLD_START, CAUSES_CHANGED, CAUSES_CHANGED)
                self.assertIn(f"notifications reach {self.sink} again", agent.said())
                self.assertEqual((agent.stopped(), trapd.stopped()), (0, 0), agent.said())
                self.recordReset(1, CAUSES)
                shutil.rmtree(self.path("state"))
                os.mkdir(self.path("state"))

    def testNothingIsToldAgainAfterARestart(self):
        trapd = self.startTrapd()
        sink = f"trapsess -Ci -v 3 -u receiver {AS_USER} {self.sink}"
        agent = self.startTelling(sink)
        self.recordReset(1, LATER)
        told = [COLD_START, CAUSES_CHANGED, CAUSES_CHANGED]
        self.waitForTold(trapd, *told)
        for how in (signal.SIGTERM, signal.SIGKILL):
            agent.stopped(how)
            agent = self.startTelling(sink)
            told.append(COLD_START)
            self.waitForTold(trapd, *told)  # it asks for the engine first

    def testAStormIsOneNotificationOfAUnitInTenSeconds(self):
        trapd = self.startTrapd()
        self.startTelling(f"informsink {self.sink}")
        self.waitForTold(trapd, COLD_START)
        begun = time.monotonic()
        self.storm()
        lasted = time.monotonic() - begun
        last = f"cause {STORM - 1}\""
        support.waitFor(lambda: trapd.said().count(last) == 2, "the last state is told")
        told = self.told(trapd).count(CAUSES_CHANGED)
        print(f"{STORM} changes in {lasted:.1f} s: {told} notifications of two units", flush=True)
        self.assertLessEqual(told, 2 * (lasted / 10 + 2))
        time.sleep(1)
        self.assertEqual(self.told(trapd).count(CAUSES_CHANGED), told)

    def storm(self):
        """Publishes as fast as a file can be replaced."""
        with open(self.database) as file:
            text = file.read()
        for number in range(STORM):
            self.write("kavra.json", text.replace("Power loss", f"cause {number}"))

    def testTheLongestMessageFitsIntoOnePacket(self):
        trapd = self.startTrapd()
        relay = Relay(("127.0.0.1", self.sinkPort))
        user = 32 * "u"
        self.startTelling(f"createUser {user} SHA-512 \"authentication phrase\" AES \"privacy phrase\"",
                          f"trapsess -v 3 -u {user} -l authPriv -n {32 * 'c'} {relay.address}")
        self.recordReset(1, [(1024 * "x", 1700000000), ("Power loss", 1700000000)])
        support.waitFor(lambda: relay.seen == 3, "all are sent")
        relay.end()
        self.assertGreater(relay.longest, 1024)
        self.assertLessEqual(relay.longest, 1472)
        self.assertFalse(trapd.hasEnded())

    def assertNeverStalls(self, agent, until):
        """What a second manager notices while `until` comes true is told; that it is less than what
        a look-up or a probe would take is asserted, since a busy machine holds up both."""
        manager = SecondManager(agent.port)
        until()
        longest = manager.end()
        self.assertGreater(manager.answers, 100)
        print(f"longest standstill of {1000 * longest:.1f} ms", flush=True)
        self.assertLess(longest, STALL, agent.said())

    def testNoSinkHoldsTheAgentUp(self):
        silent = TrapReceiver()
        self.addCleanup(silent.close)
        lines = [f"trapsess -Ci -v 3 -u receiver {AS_USER} -t 1 -r 2 {silent.address}",
                 f"trapsess -Ci -v 2c -c public -t 1 -r 2 {silent.address}",
                 "trap2sink no-such-name.invalid", f"informsink {self.sink}"]
        agent = self.startTelling(*lines)
        numbers = itertools.count()

        def changes():
            for _ in range(5):
                self.recordReset(1, [(f"cause {next(numbers)}", 1700000000)])
                agent.child.send_signal(signal.SIGHUP)
                time.sleep(1)

        self.assertNeverStalls(agent, changes)

    @unittest.skipUnless(mayMount(), "the resolver of a process cannot be replaced here")
    def testANameThatNobodyAnswersForHoldsNobodyUp(self):
        questions = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(questions.close)
        questions.bind(("127.0.0.153", 53))
        resolver = self.write("resolv.conf", "nameserver 127.0.0.153\noptions timeout:9 attempts:9\n")
        names = self.write("nsswitch.conf", "hosts: dns\n")
        configuration = self.write("access.conf", "rocommunity public 127.0.0.1\n"
                                                  "informsink manager.example\n"
                                                  "trapsess -v 2c -c public -Ci other.example\n")
        port = support.freePort()
        agent = support.Process(
            self.directory, "unshare", "--mount", "sh", "-c",
            f"mount --bind {resolver} /etc/resolv.conf && "
            f"mount --bind {names} /etc/nsswitch.conf && exec \"$@\"", "sh", support.AGENT, "--db",
            "file:kavra.json", "--listen", f"udp:127.0.0.1:{port}", "--config", configuration)
        self.addCleanup(agent.close)
        agent.port = port
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "it serves")
        self.assertFalse(agent.hasEnded(), agent.said())
        questions.settimeout(support.PATIENCE)
        questions.recv(1000)  # somebody waits for an answer

        def waits():
            support.waitFor(lambda: "no address for 'manager.example' within 5 s" in agent.said(),
                            "the agent gives it up")
            self.recordReset(1, LATER)
            time.sleep(1)

        self.assertNeverStalls(agent, waits)
        self.assertEqual(agent.stopped(), 0, agent.said())

    def startSnmpd(self, *lines):
        address = f"udp:127.0.0.1:{support.freePort()}"
        configuration = self.write("snmpd.conf", "\n".join(
            ["rocommunity public 127.0.0.1", f"trap2sink {self.sink}", *lines, ""]))
        snmpd = support.Process(
            self.directory, "env", f"SNMP_PERSISTENT_DIR={self.path('snmpd')}", "MIBS=",
            support.SNMPD, "-f", "-Le", "-C", "-c", configuration, "-I", "-smux", address)
        self.addCleanup(snmpd.close)
        support.waitFor(lambda: "NET-SNMP version" in snmpd.said() or snmpd.hasEnded(), "it is up")
        self.assertFalse(snmpd.hasEnded(), snmpd.said())
        return snmpd

    @unittest.skipIf(support.SNMPD is None, "snmpd is not there")
    def testASubagentTellsThroughItsMaster(self):
        trapd = self.startTrapd()
        master = "unix:" + self.path("agentx")
        agent = support.Process(self.directory, support.AGENT, "--agentx", master, "--db",
                                "file:kavra.json", "--state-dir", self.path("state"))
        self.addCleanup(agent.close)
        support.waitFor(lambda: "serves the master" in agent.said(), "the subagent is up")
        self.recordReset(1, LATER)  # while the master is not there
        snmpd = self.startSnmpd("master agentx", f"agentXSocket {master}")
        # snmpd's own start, and no other's.
        self.waitForTold(trapd, COLD_START, CAUSES_CHANGED, CAUSES_CHANGED)
        self.assertFalse(snmpd.hasEnded(), snmpd.said())
        self.assertEqual(agent.stopped(), 0, agent.said())

    @unittest.skipIf(support.SNMPD is None, "snmpd is not there")
    def testTheModuleTellsThroughSnmpd(self):
        trapd = self.startTrapd()
        lines = (f"dlmod norvek {support.SNMPD_MODULE}", f"norvekDb file:{self.database}",
                 f"norvekStatusSocket {self.path('status')}")
        snmpd = self.startSnmpd(*lines)
        support.waitFor(lambda: "cell 1 follows" in snmpd.said(), snmpd.said)
        self.recordReset(1, LATER)
        self.waitForTold(trapd, COLD_START, CAUSES_CHANGED, CAUSES_CHANGED)
        self.assertEqual(snmpd.stopped(), 0, snmpd.said())
        self.startSnmpd(*lines)
        time.sleep(1)
        self.assertNotIn(CAUSES_CHANGED, self.told(trapd)[3:])


if __name__ == "__main__":
    unittest.main()
