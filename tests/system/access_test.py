#!/usr/bin/python3
"""Who may read: the access that is built in, and what a configuration file makes of it."""

import hashlib
import hmac
import os
import re
import subprocess
import time
import unittest

import support
from support import DESCRIPTION, ENTRY, SYSTEM, Manager, expectations, rowsOf

CAUSES = [("Power loss", 1700000000.9)]
CONFIGURATION = """
# Users, views and communities as operators write them.
sysLocation  rack 3
sysContact   ops@example.com
createUser   reader SHA-256 "authentication phrase" AES "privacy phrase"
rouser       reader priv -V everything
createUser   writer SHA-256 "authentication phrase"
rwuser       writer auth -V everything
view         everything included .1
rwcommunity  secret 127.0.0.1
"""
PRIVATE = ("-v3", "-l", "authPriv", "-u", "reader", "-a", "SHA-256", "-A", "authentication phrase",
           "-x", "AES", "-X", "privacy phrase")


class Access(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.rows = {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)}

    def silence(self, agent, *access):
        """Whether the agent leaves such a request unanswered."""
        result = subprocess.run(["snmpget", *access, "-m", "", "-t", "0.5", "-r", "0",
                                 agent.address, f"{SYSTEM}.1.0"], text=True, capture_output=True,
                                check=False)
        return result.returncode != 0 and "Timeout" in result.stderr

    def testBuiltInAccessAnswersTheCommunityPublicAlone(self):
        agent = self.start()
        self.assertRows(agent, self.rows)
        self.assertTrue(self.silence(agent, "-v2c", "-c", "private"))
        self.assertTrue(self.silence(agent, "-v1", "-c", "Public"))

    def testBuiltInAccessTakesNoUser(self):
        agent = self.start()
        result = Manager(agent.address, *PRIVATE).run("snmpget", f"{SYSTEM}.1.0")
        self.assertIn("Unknown user name", result.stderr + result.stdout)

    def testBuiltInAccessShowsTheEnterpriseAndTheSystemGroupAlone(self):
        agent = self.start()
        names = [name for name, _ in agent.manager.walk("1", command="snmpwalk")]
        table = [name for name, _ in expectations(self.rows)]
        self.assertEqual(names, [f"{SYSTEM}.{scalar}.0" for scalar in range(1, 8)] + table)
        for hidden in ("1.3.6.1.2.1.2.1.0", "1.3.6.1.6.3.10.2.1.1.0", "1.3.6.1.4.1.8072.1.1.0"):
            self.assertEqual(agent.manager.get(hidden), [(hidden, "noSuchObject")])

    def testEveryLoopbackAddressIsServed(self):
        port = support.freePort()
        agent = self.start("--listen", f"udp6:[::1]:{port}", "--listen", f"tcp:127.0.0.1:{port}",
                           "--listen", f"udp:127.9.9.9:{port}")
        for address in (agent.address, f"udp6:[::1]:{port}", f"tcp:127.0.0.1:{port}",
                        f"udp:127.9.9.9:{port}"):
            self.assertEqual(Manager(address).rows(), self.rows, address)

    def testAFileTakesThePlaceOfTheBuiltInAccess(self):
        agent = self.start("--config", self.write("access.conf", CONFIGURATION))
        self.assertTrue(self.silence(agent, "-v2c", "-c", "public"))
        for access in (PRIVATE, ("-v2c", "-c", "secret"), ("-v1", "-c", "secret")):
            manager = Manager(agent.address, *access)
            self.assertEqual(manager.walk(command="snmpwalk"), expectations(self.rows), access)
        answers = dict(Manager(agent.address, *PRIVATE).walk(SYSTEM))
        self.assertEqual(answers[f"{SYSTEM}.4.0"], b"ops@example.com")
        self.assertEqual(answers[f"{SYSTEM}.6.0"], b"rack 3")

    def testAFileOpensAddressesBeyondLoopback(self):
        port = support.freePort()
        agent = self.start("--config", self.write("access.conf", CONFIGURATION),
                           address=f"udp:0.0.0.0:{port}")
        manager = Manager(f"udp:127.0.0.1:{port}", "-v2c", "-c", "secret")
        self.assertEqual(manager.rows(), self.rows, agent.said())

    def testSetsAreRefusedEvenToThoseWhoMayWrite(self):
        agent = self.start("--config", self.write("access.conf", CONFIGURATION))
        for access in (("-v2c", "-c", "secret"),
                       ("-v3", "-l", "authNoPriv", "-u", "writer", "-a", "SHA-256", "-A",
                        "authentication phrase")):
            manager = Manager(agent.address, *access)
            for name in (f"{SYSTEM}.4.0", f"{SYSTEM}.5.0", f"{SYSTEM}.6.0",
                         f"{ENTRY}.{DESCRIPTION}.0.0.1", f"{ENTRY}.{DESCRIPTION}.5.0.1",
                         "1.3.6.1.4.1.32473.99.0"):
                result = manager.set(name, "s", "mine")
                self.assertNotEqual(result.returncode, 0, name)
                self.assertRegex(result.stderr, "notWritable|noAccess|noCreation", name)
            self.assertEqual(manager.walk(), expectations(self.rows))

    def testAWrongPasswordIsRefused(self):
        agent = self.start("--config", self.write("access.conf", CONFIGURATION))
        wrong = [part.replace("authentication", "another") for part in PRIVATE]
        result = Manager(agent.address, *wrong).run("snmpget", f"{SYSTEM}.1.0")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("Authentication failure", result.stderr + result.stdout)


def derivedEngine(cell):
    """The engine id that a cell's agent has on this machine."""
    try:
        with open("/etc/machine-id") as file:
            machine = file.read().strip().encode()
    except FileNotFoundError:
        raise unittest.SkipTest("this machine has no id") from None
    message = f"norvek-snmpd engine of cell {cell}".encode()
    return bytes.fromhex("80007ed980") + hmac.digest(machine, message, "sha256")[:16]


def localized(passphrase, engine):
    """The key that a manager keeps of a passphrase for one engine (RFC 3414, 2.6), SHA-256."""
    repeated = (passphrase.encode() * (2**20 // len(passphrase) + 1))[:2**20]
    key = hashlib.sha256(repeated).digest()
    return "0x" + hashlib.sha256(key + engine + key).hexdigest()


def keysOf(engine):
    return ("-v3", "-l", "authPriv", "-u", "reader", "-a", "SHA-256", "-x", "AES", "-3k",
            localized("authentication phrase", engine), "-3K",
            localized("privacy phrase", engine)[:34])


class Engine(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.configuration = self.write("access.conf", CONFIGURATION)
        self.state = self.path("state")
        os.mkdir(self.state)

    def startEngine(self, *options, **parameters):
        return self.start("--config", self.configuration, "--state-dir", self.state, *options,
                          **parameters)

    def answers(self, agent, access):
        result = Manager(agent.address, *access).run("snmpget", f"{SYSTEM}.1.0")
        return result.returncode == 0

    def boots(self, agent):
        dump = Manager(agent.address, *PRIVATE).run("snmpget", f"{SYSTEM}.1.0", "-Dlcd_set")
        self.assertEqual(dump.returncode, 0, dump.stderr)
        return max(map(int, re.findall(r"boots=(\d+)", dump.stderr)))

    def testLocalizedKeysStayValidWhenTheAgentStartsAgain(self):
        keys = keysOf(derivedEngine(1))
        for _ in range(2):
            agent = self.startEngine()
            self.assertTrue(self.answers(agent, keys))
            self.assertEqual(agent.stopped(), 0)

    def testEachCellIsAnEngineOfItsOwn(self):
        agent = self.startEngine(cell=2)
        self.assertTrue(self.answers(agent, keysOf(derivedEngine(2))))
        self.assertFalse(self.answers(agent, keysOf(derivedEngine(1))))

    def testAnEngineIdThatIsGivenTakesThePlaceOfTheDerivedOne(self):
        agent = self.startEngine("--engine-id", "80007ed904" + b"device-17".hex())
        self.assertTrue(self.answers(agent, keysOf(b"\x80\0\x7e\xd9\4device-17")))
        self.assertFalse(self.answers(agent, keysOf(derivedEngine(1))))

    def testTheConfigurationMayNameTheEngine(self):
        self.write("access.conf", CONFIGURATION + "exactEngineID 0x8000000005010203\n")
        agent = self.startEngine()
        self.assertTrue(self.answers(agent, keysOf(bytes.fromhex("8000000005010203"))))

    def testBootsGrowWhateverTheClockSays(self):
        """The file remembers starts of years to come, as after a clock that was set back."""
        future = int(time.time())
        with open(os.path.join(self.state, "engine-boots-1"), "w") as file:
            file.write(f"{future}\n")
        for boots in (future + 1, future + 2):
            # Not every machine has an id that the engine's could be derived from.
            agent = self.startEngine("--engine-id", "80007ed904" + b"device-17".hex())
            self.assertEqual(self.boots(agent), boots)
            self.assertEqual(agent.stopped(), 0)
            self.assertEqual(len(agent.said().splitlines()), 1, agent.said())

    def testBootsGrowWithTheClockWhereNothingIsKept(self):
        boots = []
        for _ in range(2):
            agent = self.start("--config", self.configuration)
            second = int(time.time())
            self.assertIn("no --state-dir: SNMPv3 managers refuse", agent.said())
            boots.append(self.boots(agent))
            agent.stopped()
            support.waitFor(lambda: int(time.time()) > second, "another second")
        self.assertGreater(boots[1], boots[0])


if __name__ == "__main__":
    unittest.main()
