#!/usr/bin/python3
"""The shipped example of access for production, at norvek-snmpd and at Debian's snmpd: one user, who
authenticates and encrypts, sees the table; nobody else sees anything."""

import os
import re
import stat
import subprocess
import unittest

import support
from support import ENTRY, SYSTEM, Manager, expectations, rowsOf

CAUSES = [("Power loss", 1700000000.9), ("Watchdog", 1700000001)]
NEW_ACCESS = os.path.join(support.ROOT, "packaging/access/new-access")
CELL = f"{ENTRY}.4.0.0.1"


class ProductionAccess(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.configuration = self.path("access.conf")
        subprocess.run([NEW_ACCESS, self.configuration], check=True)
        with open(self.configuration) as file:
            found = re.search(r"createUser reader SHA-256 (\S+) AES (\S+)", file.read())
        self.authentication, self.privacy = found.groups()
        self.address = f"udp:127.0.0.1:{support.freePort()}"
        self.host = self.startHost()
        # All that follows is refused by an agent that answers the one whom it knows.
        self.reader = Manager(self.address, *self.user())
        support.waitFor(lambda: self.reader.rows() == self.rows(), "the reader sees the table")

    def startHost(self):
        host = support.Process(self.directory, support.AGENT, "--db", "file:kavra.json", "--config",
                               self.configuration, "--state-dir", self.directory, "--listen",
                               self.address)
        self.addCleanup(host.close)
        support.waitFor(lambda: " serves " in host.said() or host.hasEnded(), "the agent serves")
        self.assertFalse(host.hasEnded(), host.said())
        return host

    @staticmethod
    def rows():
        return {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)}

    def user(self, name="reader", level="authPriv", hashed="SHA-256", cipher="AES",
             authentication=None, privacy=None):
        access = ["-v3", "-u", name, "-l", level]
        if level != "noAuthNoPriv":
            access += ["-a", hashed, "-A", authentication or self.authentication]
        if level == "authPriv":
            access += ["-x", cipher, "-X", privacy or self.privacy]
        return access

    def assertRefused(self, access, why):
        """Neither the table nor anything else is told, by any kind of request."""
        for command, name in (("snmpget", CELL), ("snmpget", f"{SYSTEM}.1.0"),
                              ("snmpgetnext", ENTRY), ("snmpbulkget", "1.3")):
            if "-v1" in access and command == "snmpbulkget":
                continue
            result = subprocess.run([command, *access, "-m", "", "-On", "-r", "0", "-t", "0.25",
                                     self.address, name], text=True, capture_output=True,
                                    timeout=support.PATIENCE, check=False)
            # To who may see nothing, a walk is at its end.
            end = command != "snmpget" and "No more variables left" in result.stdout
            self.assertRegex(result.stderr + result.stdout, "No more variables" if end else why)
            self.assertNotRegex(result.stdout, "STRING|INTEGER|Timeticks|OID:", (command, name))

    def testTheFileIsForItsOwnerAlone(self):
        self.assertEqual(stat.S_IMODE(os.stat(self.configuration).st_mode), 0o600)

    def testNobodyReadsWithoutAuthentication(self):
        self.assertRefused(self.user(level="noAuthNoPriv"), "authorizationError")

    def testNobodyReadsWithoutEncryption(self):
        self.assertRefused(self.user(level="authNoPriv"), "authorizationError")

    def testNoOtherUserIsKnown(self):
        for level in ("noAuthNoPriv", "authNoPriv", "authPriv"):
            self.assertRefused(self.user(name="writer", level=level), "Unknown user name")

    def testNoOtherPassphraseIsTaken(self):
        self.assertRefused(self.user(authentication="another phrase"), "Authentication failure")
        self.assertRefused(self.user(privacy="another phrase"), "Decryption error|Timeout")

    def testNoWeakerAlgorithmIsTaken(self):
        self.assertRefused(self.user(hashed="SHA"), "Authentication failure")
        self.assertRefused(self.user(hashed="MD5"), "Authentication failure")

    def testNoCommunityIsTaken(self):
        for version in ("-v1", "-v2c"):
            for community in ("public", "reader"):
                self.assertRefused([version, "-c", community], "Timeout")

    def testTheReaderSeesTheTableAlone(self):
        self.assertEqual(self.reader.walk("1", command="snmpwalk"), expectations(self.rows()))
        for hidden in (f"{SYSTEM}.1.0", f"{SYSTEM}.5.0", "1.3.6.1.6.3.15.1.1.1.0",
                       "1.3.6.1.4.1.32473.1.0", "1.3.6.1.4.1.8072.1.1.0"):
            self.assertRegex(self.reader.get(hidden)[0][1], "noSuchObject|noSuchInstance")

    def testTheReaderSetsNothing(self):
        for name in (CELL, f"{ENTRY}.4.9.0.1", f"{SYSTEM}.5.0"):
            result = self.reader.set(name, "s", "mine")
            self.assertNotEqual(result.returncode, 0)
            self.assertRegex(result.stderr, "noAccess|notWritable|authorizationError")
        self.assertEqual(self.reader.rows(), self.rows())


@unittest.skipIf(support.SNMPD is None, "snmpd is not there")
class ProductionAccessToSnmpd(ProductionAccess):
    def startHost(self):
        with open(self.configuration, "a") as file:
            file.write(f"dlmod norvek {support.SNMPD_MODULE}\nnorvekDb file:{self.database}\n")
        os.mkdir(self.path("snmpd"))
        host = support.Process(self.directory, "env", f"SNMP_PERSISTENT_DIR={self.path('snmpd')}",
                               "MIBS=", support.SNMPD, "-f", "-LEi", "-C", "-c",
                               self.configuration, "-I", "-smux", "-p", self.path("pid"),
                               self.address)
        self.addCleanup(host.close)
        support.waitFor(lambda: "follows" in host.said() or host.hasEnded(), "snmpd serves")
        self.assertFalse(host.hasEnded(), host.said())
        return host


if __name__ == "__main__":
    unittest.main()
