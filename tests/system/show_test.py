#!/usr/bin/python3
"""Why the supervisors reloaded, as a person sees it: kavra show, of a database and of an agent."""

import fcntl
import json
import os
import pty
import re
import socket
import struct
import subprocess
import termios
import threading
import unittest

import snmp_client
import support
from support import DESCRIPTION, ENTRY, TIME, dateAndTime

HOSTILE = "\x1b[2J\x1b]0;owned\x07Power\u009b31m loss\nSupervisor 9"
ONE = [("Power loss", 1700000000), ("Fan failure", 1700000001)]
TWO = [(HOSTILE, 1650000000), ("电源故障 " * 20, 1650000000)]
USER = """
createUser reader SHA-256 "authentication phrase" AES "privacy phrase"
rouser     reader priv -V everything
view       everything included .1
"""
CLIENT = """
defSecurityName   reader
defSecurityLevel  authPriv
defAuthType       SHA-256
defAuthPassphrase authentication phrase
defPrivType       AES
defPrivPassphrase privacy phrase
"""
SHOWN = r"""Supervisor 1

    3 years ago  Power loss
                 2023-11-14T22:13:20Z

           also  Fan failure
                 2023-11-14T22:13:21Z

Supervisor 2

    4 years ago  \x1b[2J\x1b]0;owned\x07Power\xc2\x9b31m loss\nSupervisor 9
                 2022-04-15T05:20:00Z

           also  电源故障 电源故障 电源故障 电源故障 电源故障 电源故障 电源故障
                 电源故障 电源故障 电源故障 电源故障 电源故障 电源故障 电源故障
                 电源故障 电源故障 电源故障 电源故障 电源故障 电源故障
"""


def ages(text):
    """The text with how long ago each cause was, which the calendar decides."""
    return re.sub(r"^ +(\d+ (s|min|h|d|years) ago|just now)  ", "{age}  ", text, flags=re.M)


class ShowTest(support.SystemTest):
    def setUp(self):
        super().setUp()
        # Nobody's own settings.
        self.environment = {"PATH": os.environ["PATH"], "SNMPCONFPATH": self.directory,
                            "HOME": self.directory}

    def show(self, *options, **environment):
        database = [] if "--snmp" in options else ["--db", "file:kavra.json"]
        return subprocess.run([support.KAVRA, *database, "show", *options],
                              capture_output=True, cwd=self.directory, check=False, text=True,
                              env={**self.environment, **environment}, timeout=support.PATIENCE)

    def shown(self, *options, **environment):
        result = self.show(*options, **environment)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def refused(self, *options, **environment):
        result = self.show(*options, **environment)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        return result.stderr

    def onTerminal(self, columns, *options, **environment):
        """What a terminal gets."""
        ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        subprocess.run([support.KAVRA, "show", *options], stdout=theirs, cwd=self.directory,
                       check=True, env={**self.environment, "TERM": "xterm", **environment},
                       timeout=support.PATIENCE)
        os.close(theirs)
        pieces = []
        try:
            while piece := os.read(ours, 65536):
                pieces.append(piece)
        except OSError:  # the end of a terminal
            pass
        os.close(ours)
        return b"".join(pieces).decode().replace("\r\n", "\n")



class Show(ShowTest):
    def pair(self):
        self.recordReset(1, ONE)
        self.recordReset(2, TWO)
        self.setRedundancy(1, 3, True)

    def testADatabaseAndAnAgentAreShownAlike(self):
        self.pair()
        agent = self.start()
        ofDatabase = self.shown("--utc")
        self.assertEqual(ages(ofDatabase), ages(SHOWN))
        ofAgent = self.shown("--utc", "--snmp", agent.address)
        self.assertEqual(ofAgent, ofDatabase.replace("Supervisor 1\n", "Supervisor 1, which answered\n"))
        self.assertEqual(self.shown("--utc", "--snmp", agent.address, "-v1"), ofAgent)
        for cell in ("1", "0"):
            self.assertTrue(ofAgent.startswith(self.shown("--utc", "--cell", cell, "--snmp",
                                                          agent.address)))

    def testATerminalOf80ColumnsGetsColourAndAPipeNone(self):
        self.pair()
        coloured = self.onTerminal(80, "--utc")
        self.assertIn("\x1b[1mSupervisor 1\x1b[0m\n", coloured)
        plain = re.sub(r"\x1b\[[0-9]+m", "", coloured)
        self.assertEqual(plain, self.shown("--utc"))
        self.assertNotIn("\x1b", plain, "nothing but attributes")
        self.assertNotIn("\u009b", plain)
        self.assertEqual(self.onTerminal(80, "--utc", NO_COLOR="1"), plain)
        self.assertEqual(self.onTerminal(80, "--utc", TERM="dumb"), plain)
        widths = [sum(1 + (ord(c) > 0x2e80) for c in line)
                  for line in self.onTerminal(50, "--utc", "--color", "never").splitlines()]
        self.assertLessEqual(max(widths), 50)
        self.assertGreater(max(widths), 40)

    def testJsonTellsTheSameOfBoth(self):
        self.pair()
        agent = self.start()
        ofDatabase = json.loads(self.shown("--json"))
        text = self.shown("--json", "--snmp", agent.address)
        self.assertNotRegex(text, "[\x00-\x09\x0b-\x1f\x7f-\x9f]")
        ofAgent = json.loads(text)
        self.assertEqual((ofDatabase.pop("source"), ofAgent.pop("source")),
                         ("file:kavra.json", agent.address))
        self.assertLess(abs(ofAgent.pop("now") - ofDatabase.pop("now")), support.PATIENCE)
        self.assertTrue(ofAgent["cells"][0].pop("answered"))
        self.assertEqual(ofAgent, ofDatabase)
        self.assertEqual(ofAgent["cells"][1]["reloads"][0]["causes"][0],
                         {"description": HOSTILE, "time": 1650000000})

    def testAUserIsTakenFromTheConfigurationOfClients(self):
        self.pair()
        agent = self.start("--config", self.write("access.conf", USER))
        self.write("snmp.conf", CLIENT)
        shown = self.shown("--utc", "--snmp", agent.address)
        self.assertIn("Supervisor 1, which answered\n", shown)
        address = agent.address
        self.assertEqual(self.refused("--snmp", address, "-u", "nobody"),
                         f"kavra: {address}: Unknown user name\n")
        self.assertIn("authorizationError", self.refused("--snmp", address, "-l", "noAuthNoPriv"))
        self.write("snmp.conf", CLIENT.replace("authentication phrase", "another phrase"))
        self.assertEqual(self.refused("--snmp", address),
                         f"kavra: {address}: Authentication failure (incorrect password, "
                         "community or key)\n")
        self.write("snmp.conf", "defSecurityName reader\ndefSecurityLevel authPriv\n")
        self.assertIn("the keys of the user cannot be made", self.refused("--snmp", address))
        self.write("snmp.conf", "defVersion 3\n")
        self.assertEqual(self.refused("--snmp", address),
                         f"kavra: {address}: version 3 needs a user: -u, or defSecurityName in "
                         "snmp.conf(5)\n")
        self.assertEqual(os.listdir(self.directory).count(".snmp"), 0, "nothing is kept")

    def testWhatIsNotThereIsSaidInOneLine(self):
        self.assertEqual(self.refused("--snmp", "nobody.invalid"),
                         "kavra: nobody.invalid: unknown host\n")
        silent = f"127.0.0.1:{support.freePort()}"
        self.assertEqual(self.refused("--snmp", silent, "-t", "0.1", "-r", "1"),
                         f"kavra: {silent}: no answer within 0.2 s; one that does not know the "
                         "community keeps silent, too\n")
        closed = f"tcp:127.0.0.1:{support.freePort()}"
        self.assertEqual(self.refused("--snmp", closed), f"kavra: {closed}: Connection refused\n")
        agent = self.start()
        self.assertEqual(self.shown("--snmp", agent.address),
                         f"No reload is recorded in {agent.address}\n")
        self.assertEqual(self.refused("--snmp", agent.address, "--cell", "2"),
                         f"kavra: {agent.address}: the agent shows no cause of cell 2\n")
        config = self.write("access.conf", "rocommunity public 127.0.0.1 .1.3.6.1.2.1\n")
        blind = self.start("--config", config)
        self.assertIn("the agent has no such table, or does not show it",
                      self.refused("--snmp", blind.address))


RESET_CAUSE = os.path.join(support.PROGRAMS, "norvek-reset-cause")
WINDOW = """Supervisor 1

{age}  Power lost, hard reset or forced restart
                 between 2023-11-17T18:13:20Z and 2023-11-17T20:13:20Z
                 Sure    possible: loss of power, the reset line and a forced
                         restart leave the same traces

  The last reloads

{age}  2023-11-17 18:13Z  up 2 d      Power lost, hard reset or forced
                                                restart, by 2023-11-17 20:13Z
{age}  2023-11-15 01:00Z  up 2 h      Reload requested by admin: new
                                                fans
{age}  2023-11-14 22:13Z              Unknown: no record of an earlier
                                                boot
"""


@unittest.skipUnless(os.path.exists(RESET_CAUSE), "norvek-reset-cause is not built")
class FoundByTheMachine(ShowTest):
    """What norvek-reset-cause records on a machine made of a few files."""

    def boots(self, number, start):
        boot = str(number) * 32
        for name, text in (("proc/sys/kernel/random/boot_id", boot + "\n"),
                           ("proc/stat", f"cpu 1 2\nbtime {start}\n")):
            os.makedirs(os.path.dirname(self.path("machine/" + name)), exist_ok=True)
            self.write("machine/" + name, text)
        subprocess.run([RESET_CAUSE, "--root", "machine", "record", "--db", "file:kavra.json",
                        "--cell", "1"], cwd=self.directory, check=True, capture_output=True,
                       timeout=support.PATIENCE)
        return boot

    def leaves(self, boot, name, **members):
        path = "machine/var/lib/norvek-reset-cause/" + name
        os.makedirs(os.path.dirname(self.path(path)), exist_ok=True)
        self.write(path, json.dumps({"boot": boot, **members}))

    def threeBoots(self):
        first = self.boots(1, 1700000000)
        self.leaves(first, f"requests/{first}.json", user="admin", reason="new fans",
                    time=1700010000)
        self.leaves(first, "heartbeat.json", time=1700010030)
        second = self.boots(2, 1700010060)
        self.leaves(second, "heartbeat.json", time=1700244800)
        self.boots(3, 1700252000)

    def testThreeBootsAreShownAsAVerdictAndATimeline(self):
        self.threeBoots()
        self.assertEqual(ages(self.shown("--utc")), WINDOW)

    def testTheEvidenceIsShownWhereItIsAskedForAndInJsonAlways(self):
        first = self.boots(1, 1700000000)
        self.leaves(first, f"requests/{first}.json", user="admin", reason="fans\x1b[2J|",
                    time=1700010000)
        self.leaves(first, "heartbeat.json", time=1700010030)
        self.boots(2, 1700010060)
        self.assertNotIn("Found", self.shown())
        shown = self.shown("--evidence")
        self.assertIn("Sure    likely: nothing tells that", shown)
        # Lines are broken between words, and within long ones.
        self.assertIn(f"Foundrequest:machine/var/lib/norvek-reset-cause/requests/{first}.json:"
                      "fans\\x1b[2J|,byadmin(2023-11-15T01:00:00Z)", "".join(shown.split()))
        verdict, = [cause["verdict"] for cell in json.loads(self.shown("--json"))["cells"]
                    for cause in cell["reloads"][0]["causes"]]
        self.assertEqual((verdict["boot"], verdict["confidence"], verdict["rule"]),
                         ("2" * 32, "likely", "4"))
        self.assertIn("by admin", verdict["evidence"][0])


class HostileAgent:
    """Answers every request with the same bindings, [(object identifier, encoded value)]."""

    def __init__(self, bindings):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.socket.getsockname()[1]
        self.bindings = snmp_client.tagged(snmp_client.SEQUENCE, b"".join(
            snmp_client.tagged(snmp_client.SEQUENCE, snmp_client.identifier(name) + value)
            for name, value in bindings))
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        while True:
            request, peer = self.socket.recvfrom(65536)
            if not request:
                return
            message = snmp_client.elements(snmp_client.split(request)[1])
            number = int.from_bytes(snmp_client.elements(message[2][1])[0][1], "big", signed=True)
            pdu = snmp_client.tagged(0xA2, snmp_client.integer(number) + 2 * snmp_client.integer(0)
                                     + self.bindings)
            self.socket.sendto(snmp_client.tagged(
                snmp_client.SEQUENCE, snmp_client.integer(1)
                + snmp_client.tagged(snmp_client.OCTETS, b"public") + pdu), peer)

    def close(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as last:
            last.sendto(b"", self.socket.getsockname())
        self.thread.join()
        self.socket.close()


class Hostile(ShowTest):
    def problemWith(self, *bindings):
        agent = HostileAgent(bindings)
        self.addCleanup(agent.close)
        return self.refused("--snmp", agent.address)

    @staticmethod
    def text(column, row, octets):
        return f"{ENTRY}.{column}.{row}", snmp_client.tagged(snmp_client.OCTETS, octets)

    def testAnAgentThatGoesRoundInCirclesIsLeft(self):
        name = f"{ENTRY}.{DESCRIPTION}.1.0.1"
        self.assertEqual(self.problemWith(self.text(DESCRIPTION, "1.0.1", b"a"),
                                          self.text(TIME, "1.0.1", dateAndTime(1700000000))),
                         f"kavra: the agent's objects do not increase: {name} comes behind {name}\n")

    def testANumberInThePlaceOfATextIsRefused(self):
        number = f"{ENTRY}.{DESCRIPTION}.1.0.1", snmp_client.integer(7)
        self.assertEqual(self.problemWith(number),
                         f"kavra: the agent serves something else than the table: {number[0]}\n")

    def testAnAnswerWithoutObjectsIsRefused(self):
        self.assertEqual(self.problemWith(), "kavra: the agent answers with nothing\n")


if __name__ == "__main__":
    unittest.main()
