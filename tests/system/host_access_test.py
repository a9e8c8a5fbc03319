#!/usr/bin/python3
"""Whom hosts.allow and hosts.deny let in, as an agent with an /etc of its own sees them."""

import contextlib
import os
import re
import shutil
import socket
import subprocess
import time
import unittest

import snmp_client
import support
from support import ENTRY

LOOK_INTERVAL = 1  # seconds after which a changed file is honoured
# Puts a folder in the place of /etc, for this process alone, and becomes what it is told.
WITH_ETC = 'mount --bind "$1" /etc && shift && exec "$@"'


def mayMount():
    return subprocess.run(["unshare", "--mount", "mount", "--bind", "/etc", "/etc"],
                          capture_output=True, check=False).returncode == 0


class Source(snmp_client.Client):
    """A manager that may wait in vain."""

    def isAnswered(self, patience=0.2):
        self.socket.settimeout(patience)
        try:
            return self.bulk(ENTRY, 2) != []
        except OSError:
            return False


@unittest.skipUnless(mayMount(), "needs the right to mount")
class HostAccess(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, [("Power loss", 1)])
        self.etc = self.path("etc")
        os.mkdir(self.etc)
        for name in ("group", "hosts", "ld.so.cache", "machine-id", "nsswitch.conf", "passwd"):
            with contextlib.suppress(FileNotFoundError):
                shutil.copy(os.path.join("/etc", name), self.etc)

    def rules(self, name, text):
        self.write(os.path.join("etc", name), text)
        return time.monotonic()

    def startWithEtc(self, *options):
        port = support.freePort()
        agent = support.Process(
            self.directory, "unshare", "--mount", "sh", "-c", WITH_ETC, "sh", self.etc,
            support.AGENT, "--cell-id", "1", "--db", "file:kavra.json", "--listen",
            f"udp:127.0.0.1:{port}", "--listen", f"udp6:[::1]:{port}", "--listen",
            f"tcp:127.0.0.1:{port}", *options)
        self.addCleanup(agent.close)
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "the agent serves")
        self.assertFalse(agent.hasEnded(), agent.said())
        agent.port = port
        return agent

    def source(self, agent, **parameters):
        source = Source(agent.port, support.PATIENCE, **parameters)
        self.addCleanup(source.close)
        return source

    def assertHonoured(self, source, changed, answered):
        """Whatever is asked from a second after the change on is answered as the files say now."""
        while time.monotonic() < changed + LOOK_INTERVAL:
            source.isAnswered()
        self.assertEqual(source.isAnswered(), answered)

    def testARefusedSourceIsToldEachTimeAsByNetSnmp(self):
        self.rules("hosts.deny", "norvek-snmpd: 127.0.0.1\n")
        agent = self.startWithEtc()
        source = self.source(agent)
        for _ in range(3):
            self.assertFalse(source.isAnswered())
        # Of the same event one line a second: the second one is of an answer that was remembered.
        support.waitFor(lambda: agent.said().count("REFUSED") >= 2, "two lines")
        lines = re.findall(".*REFUSED.*", agent.said())
        port = source.socket.getsockname()[1]
        line = (f"norvek-snmpd: Connection from UDP: [127.0.0.1]:{port}->"
                f"[127.0.0.1]:{agent.port} REFUSED")
        self.assertEqual(lines[0], line)
        self.assertRegex(lines[1], re.escape(line) + r"( \(\d more\))?$")

    def testEachSourceGetsItsOwnAnswer(self):
        self.rules("hosts.allow", "norvek-snmpd: 127.0.0.1 : allow\n")
        self.rules("hosts.deny", "ALL: ALL\n")
        agent = self.startWithEtc()
        for _ in range(2):
            self.assertTrue(self.source(agent).isAnswered(support.PATIENCE))
            self.assertFalse(self.source(agent, host="::1", family=socket.AF_INET6).isAnswered())
        connection = self.source(agent, kind=socket.SOCK_STREAM)
        for _ in range(2):
            self.assertTrue(connection.isAnswered(support.PATIENCE))

    def testAFileThatComesChangesOrGoesIsHonouredAfterASecond(self):
        agent = self.startWithEtc()
        source = self.source(agent)
        self.assertTrue(source.isAnswered(support.PATIENCE))
        self.assertHonoured(source, self.rules("hosts.deny", "ALL: ALL\n"), answered=False)
        self.assertHonoured(source, self.rules("hosts.allow", "ALL: 127.0.0.1\n"), answered=True)
        self.assertHonoured(source, self.rules("hosts.allow", "ALL: 127.0.0.2\n"), answered=False)
        os.remove(self.path("etc/hosts.deny"))
        self.assertHonoured(source, time.monotonic(), answered=True)

    def testARuleWithACommandRunsItForEachPacket(self):
        told = self.path("told")
        self.rules("hosts.allow", f"norvek-snmpd: ALL: spawn (/bin/echo %a >>{told})\n")
        agent = self.startWithEtc()
        source = self.source(agent)
        for _ in range(3):
            self.assertTrue(source.isAnswered(support.PATIENCE))

        def lines():
            with contextlib.suppress(FileNotFoundError), open(told) as file:
                return file.read().splitlines()
            return []
        support.waitFor(lambda: len(lines()) >= 3, "the command ran three times")
        self.assertEqual(lines(), ["127.0.0.1"] * 3)


if __name__ == "__main__":
    unittest.main()
