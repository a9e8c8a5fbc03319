#!/usr/bin/python3
"""SIGHUP: the agent reads again what may change while it runs, keeps what stands where that does
not hold, and never ends."""

import os
import signal
import unittest

import redis_pair
import support
from support import ENTRY, SYSTEM, Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9)]
SECRET = "rocommunity secret 127.0.0.1\n"
OTHER = "rocommunity other 127.0.0.1\n"
USER = 'createUser reader SHA-256 "authentication phrase"\nrouser reader auth -V all\n' \
       "view all included .1\n"
AS_USER = ("-v3", "-l", "authNoPriv", "-u", "reader", "-a", "SHA-256")


class Reload(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.rows = {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)}

    def reload(self, agent):
        """What the agent says of it."""
        before = len(agent.said())
        agent.child.send_signal(signal.SIGHUP)
        last = "takes a restart\n"
        support.waitFor(lambda: agent.hasEnded() or last in agent.said()[before:],
                        "the agent has read all again")
        self.assertFalse(agent.hasEnded(), agent.said())
        return agent.said()[before:]

    def asks(self, agent, *access):
        """Whether the agent tells somebody its rows."""
        result = Manager(agent.address, *access).run("snmpwalk", ENTRY, patience=0.5)
        return "Power loss".encode().hex(" ").upper() in result.stdout

    def community(self, agent, name):
        return self.asks(agent, "-v2c", "-c", name, "-r", "0")

    def user(self, agent, password):
        return self.asks(agent, *AS_USER, "-A", password)

    def testWithoutAnythingToReadItGoesOn(self):
        agent = self.start()
        for _ in range(3):
            self.assertIn("nothing to read again", self.reload(agent))
        self.assertRows(agent, self.rows)
        self.assertEqual(agent.stopped(), 0)

    def testItGoesOnHoweverOftenItIsAsked(self):
        agent = self.start("--config", self.write("access.conf", SECRET + USER))
        for _ in range(200):
            agent.child.send_signal(signal.SIGHUP)
        self.write("access.conf", OTHER)
        self.reload(agent)
        support.waitFor(lambda: self.community(agent, "other"), "the last file counts")
        self.assertEqual(agent.stopped(), 0, agent.said())

    def testItDoesNotEndTheStart(self):
        early = 0
        for _ in range(20):
            agent = support.Agent(self.directory)
            self.addCleanup(agent.close)
            # Before main() the kernel decides.
            support.waitFor(lambda: agent.hasEnded() or self.holdsBack(agent), "it is in main()")
            early += agent.said() == ""
            agent.child.send_signal(signal.SIGHUP)
            support.waitFor(lambda: agent.isReady() or agent.hasEnded(), "the agent serves")
            self.assertTrue(agent.isReady(), agent.said())
            agent.close()
        self.assertGreater(early, 0, "some did not serve yet")

    @staticmethod
    def holdsBack(agent):
        with open(f"/proc/{agent.child.pid}/status") as status:
            blocked = next(line for line in status if line.startswith("SigBlk:"))
        return int(blocked.split()[1], 16) & 1 << (signal.SIGHUP - 1)

    def testItDoesNotChangeHowTheProcessEnds(self):
        agent = self.start("--config", self.write("access.conf", SECRET))
        agent.child.send_signal(signal.SIGHUP)
        agent.child.send_signal(signal.SIGTERM)
        for _ in range(50):
            if not agent.hasEnded():
                agent.child.send_signal(signal.SIGHUP)
        self.assertEqual(agent.ended(), 0, agent.said())

    def testAccessIsThatOfTheNewFile(self):
        agent = self.start("--config", self.write("access.conf", SECRET + "sysLocation rack 3\n"))
        self.assertTrue(self.community(agent, "secret"))
        self.write("access.conf", OTHER + USER)
        self.assertIn("access.conf: taken in", self.reload(agent))
        self.assertFalse(self.community(agent, "secret"))
        self.assertTrue(self.community(agent, "other"))
        self.assertTrue(self.user(agent, "authentication phrase"))
        self.assertEqual(Manager(agent.address, "-v2c", "-c", "other").get(f"{SYSTEM}.6.0"),
                         [(f"{SYSTEM}.6.0", b"")])

    def testUsersAreThoseOfTheNewFile(self):
        agent = self.start("--config", self.write("access.conf", USER))
        self.assertTrue(self.user(agent, "authentication phrase"))
        self.write("access.conf", USER.replace("authentication", "another"))
        self.reload(agent)
        self.assertTrue(self.user(agent, "another phrase"))
        self.assertFalse(self.user(agent, "authentication phrase"))
        self.write("access.conf", SECRET + "\n".join(USER.split("\n")[1:]))
        self.reload(agent)
        self.assertFalse(self.user(agent, "another phrase"), "its user line is gone")

    def testManagersKeepTheEngineThatTheyKnow(self):
        agent = self.start("--config", self.write("access.conf", USER))
        before = self.engine(agent)
        self.reload(agent)
        after = self.engine(agent)
        self.assertEqual(before[:2], after[:2])
        self.assertGreaterEqual(after[2], before[2])

    def engine(self, agent):
        """Its id, boots and time, as it reports them to whoever does not know them."""
        result = Manager(agent.address, *AS_USER, "-A", "authentication phrase").run(
            "snmpget", f"{SYSTEM}.1.0", "-Dlcd_set_enginetime")
        found = [line for line in result.stderr.splitlines() if "boots=" in line][-1]
        identity = result.stderr.split("engineID ")[-1].split(":")[0].split()
        boots, seconds = (int(found.split(f"{name}=")[1].split(",")[0].split()[0])
                          for name in ("boots", "time"))
        return identity, boots, seconds

    def testAFileThatDoesNotHoldLeavesTheOldAccess(self):
        agent = self.start("--config", self.write("access.conf", SECRET + USER))
        for text, problem in [(OTHER + "rocomunity x\n", "line 2: .*Unknown token: rocomunity"),
                              (OTHER + "view all\n", "line 2: Error"),
                              (OTHER + "createUser u SHA short\n", "passphrase"),
                              ("sysLocation rack 3\n", "lets nobody in"), ("", "lets nobody in"),
                              (OTHER + "agentaddress udp:161\n", "agentaddress"),
                              (OTHER + "master agentx\n", "line 2: Error: master: ")]:
            self.write("access.conf", text)
            said = self.reload(agent)
            self.assertRegex(said, rf"access.conf: .*{problem}[^\n]*; the access that stands goes on\n")
            self.assertTrue(self.community(agent, "secret"), said)
            self.assertFalse(self.community(agent, "other"), said)
        os.remove(self.path("access.conf"))
        self.assertIn("No such file", self.reload(agent))
        self.assertTrue(self.user(agent, "authentication phrase"))
        self.assertTrue(self.community(agent, "secret"))
        self.write("access.conf", OTHER)
        self.assertIn("taken in", self.reload(agent))
        self.assertTrue(self.community(agent, "other"))

    def testManagersAreAnsweredWhileAFileIsChecked(self):
        """Reading it takes for ever, as on a file system that hangs."""
        agent = self.start("--config", self.write("access.conf", SECRET))
        os.mkfifo(self.path("pipe"))
        self.write("access.conf", OTHER + f"includeFile {self.path('pipe')}\n")
        agent.child.send_signal(signal.SIGHUP)
        support.waitFor(lambda: "reading again" in agent.said(), "the agent begins")
        self.assertTrue(self.community(agent, "secret"))
        self.assertEqual(agent.said().count("takes a restart"), 0, "it is still at it")
        # Asked again meanwhile, it reads again when that is over.
        self.write("access.conf", OTHER)
        agent.child.send_signal(signal.SIGHUP)
        support.waitFor(lambda: "taken in" in agent.said(), "it takes the next one in")
        self.assertIn("it took more than 5 s; the access that stands goes on", agent.said())
        self.assertTrue(self.community(agent, "other"))
        self.assertEqual(agent.stopped(), 0)

    def testItEndsWhileAFileIsChecked(self):
        agent = self.start("--config", self.write("access.conf", SECRET))
        os.mkfifo(self.path("pipe"))
        self.write("access.conf", OTHER + f"includeFile {self.path('pipe')}\n")
        agent.child.send_signal(signal.SIGHUP)
        support.waitFor(lambda: "reading again" in agent.said(), "the agent begins")
        self.assertEqual(agent.stopped(), 0)
        self.start("--config", self.write("access.conf", SECRET), address=agent.address)

    def testTraceLevelsAreThoseOfTheFile(self):
        agent = self.start("--trace", "Snmp=1", "--trace-file",
                           self.write("trace", "# for support\n\nMiscSnmp=8\n"))
        self.addCause(1, "Fan failure", 1700000001)
        support.waitFor(lambda: "MiscSnmp 8: " in agent.said(), "its facility is traced")
        self.write("trace", "Snmp=8\n")
        said = self.reload(agent)
        self.assertIn("trace: taken in", said)
        before = len(agent.said())
        self.assertTrue(self.community(agent, "public"))
        self.addCause(1, "Fan failure", 1700000002)
        support.waitFor(lambda: len(agent.manager.rows()) == 6, "the cause is shown")
        self.assertIn("Snmp 2: ", agent.said()[before:])
        self.assertNotRegex(agent.said()[before:], "(?m)^MiscSnmp")
        self.write("trace", "Snmp=0\nMiscSnmp=much\n")
        self.assertRegex(self.reload(agent), "trace: line 2: .*FACILITY=LEVEL.*; the levels stay")
        before = len(agent.said())
        agent.manager.rows()
        self.assertIn("Snmp 2: ", agent.said()[before:])

    def testATraceFileThatCannotBeReadEndsTheStart(self):
        for name, text in (("trace", "Snmp"), ("trace", "Snmp=10"), ("nothing", None)):
            if text is not None:
                self.write(name, text)
            agent = support.Agent(self.directory, "--trace-file", self.path(name))
            self.addCleanup(agent.close)
            self.assertEqual(agent.ended(), 1, agent.said())
            self.assertRegex(agent.said(), rf"^norvek-snmpd: {self.path(name)}: [^\n]+\n$")

    def testCredentialsAreThoseOfTheFile(self):
        server = redis_pair.Redis(self.directory, 1)
        self.addCleanup(server.kill)
        with open(server.auth("agent")) as file:
            user, _ = file.read().split()
        file = self.write("agent.auth", f"{user}\nwrong\n")
        os.chmod(file, 0o600)
        agent = self.start("--db-auth", file, db=server.url)
        self.assertIn("missing", agent.said())
        with open(server.auth("agent")) as good:
            self.write("agent.auth", good.read())
        os.chmod(file, 0o600)
        self.assertRegex(self.reload(agent), "agent.auth: taken in")
        support.waitFor(lambda: " back after " in agent.said(), "the server lets it in")
        self.assertRegex(self.reload(agent), "agent.auth: as before")
        self.write("agent.auth", "one line\n")
        self.assertRegex(self.reload(agent),
                         "agent.auth: expected two lines[^\n]*; what was read last goes on")
        self.assertEqual(agent.said().count(" lost: "), 0, agent.said())


if __name__ == "__main__":
    unittest.main()
