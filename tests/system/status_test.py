#!/usr/bin/python3
"""What a running agent tells of what it serves, at its status socket: kavra status --agent."""

import json
import os
import signal
import socket
import stat
import subprocess
import unittest

import redis_pair
import support
from support import SYSTEM

CAUSES = [("Power loss", 1700000000.9), ("Fan failure", 1700000001.0)]
HISTORY = "cell/1/sys/reset/history"


class Status(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.socket = self.path("status.sock")

    def newAgent(self, *options, **parameters):
        return self.start("--status-socket", self.socket, *options, **parameters)

    def status(self, *options):
        result = subprocess.run([support.KAVRA, "status", "--agent", self.socket, *options],
                                text=True, capture_output=True, timeout=support.PATIENCE,
                                check=False)
        return result.returncode, result.stdout, result.stderr

    def told(self):
        """The exit status and the document."""
        status, out, _ = self.status("--format", "json")
        return status, json.loads(out)

    def raw(self):
        with socket.socket(socket.AF_UNIX) as reader:
            reader.connect(self.socket)
            return b"".join(iter(lambda: reader.recv(65536), b""))

    def waitUntil(self, fresh):
        support.waitFor(lambda: self.told()[1]["fresh"] == fresh, f"fresh is {fresh}")

    def testTellsWhatIsServedOfAFile(self):
        self.recordReset(1, CAUSES)
        self.recordReset(2, CAUSES[:1])
        self.setRedundancy(1, 3, True)
        self.newAgent()
        status, told = self.told()
        self.assertEqual(status, 0)
        database = told["databases"].pop()
        self.assertEqual(told, {
            "cell": 1, "fresh": True, "stale": [], "peerMount": "mounted", "databases": [],
            "redundancy": {"protocol": 3, "switchoverCapable": True},
            "rows": {"0": 2, "1": 2, "2": 1}, "notifications": []})
        self.assertGreaterEqual(database.pop("age"), 0)
        self.assertEqual(database, {
            "url": "file:kavra.json", "reachable": True, "problem": None, "epoch": None,
            "lastId": None, "quarantined": [], "quarantinedCount": 0, "withdrawn": [],
            "withdrawnCount": 0, "followed": True, "complete": True})

    def testTellsAMountThatWaitsAndOneThatIsNotWanted(self):
        self.setRedundancy(1, 3, True)
        self.newAgent()
        self.assertEqual(self.told()[1]["peerMount"], "waiting")
        self.assertEqual(self.told()[0], 0)
        self.setRedundancy(1, 1)
        support.waitFor(lambda: self.told()[1]["peerMount"] == "idle", "the mount idles")

    def testTellsTheStateOfTheServersAndTheirLoss(self):
        own, peer = redis_pair.Redis(self.directory, 1), redis_pair.Redis(self.directory, 2)
        self.addCleanup(peer.kill)
        self.addCleanup(own.kill)
        self.publish(own, "cell/1/redundancy/status", redis_pair.STANDBY)
        self.newAgent("--db-auth", own.auth("agent"), "--peer-db", peer.url, "--peer-db-auth",
                      peer.auth("agent"), db=own.url)
        status, told = self.told()
        self.assertEqual((status, told["fresh"]), (0, True), told)
        first, second = told["databases"]
        self.assertEqual(first["epoch"], own.command("GET", "kavra:epoch").decode())
        self.assertEqual(first["lastId"], own.lastRing())
        self.assertLess(first["age"], 5)
        self.assertEqual((second["url"], second["followed"], second["epoch"]),
                         (peer.url, True, None))
        peer.kill()
        self.waitUntil(False)
        status, told = self.told()
        self.assertEqual(status, 1)
        self.assertEqual([reason.split(": ")[0] for reason in told["stale"]], [peer.url])
        peer.start()
        self.waitUntil(True)

    def testADatabaseThatNobodyAsksForDoesNotMatter(self):
        nobody = "redis+unix:" + self.path("nobody.sock")
        self.recordReset(1, CAUSES)
        self.newAgent("--peer-db", nobody)
        status, told = self.told()
        self.assertEqual((status, told["databases"][1]["followed"]), (0, False))

    def testWhatIsRefusedOrTakenBackIsNotFresh(self):
        self.recordReset(1, CAUSES)
        self.newAgent()
        with open(self.database) as file:
            good = file.read()
        self.write("kavra.json", json.dumps({HISTORY: {"type": "System::ResetCauseHistory",
                                                       "rebootHistory": 7}}))
        self.waitUntil(False)
        database = self.told()[1]["databases"][0]
        self.assertEqual([refused["path"] for refused in database["quarantined"]], [HISTORY])
        self.assertIn("rebootHistory", database["quarantined"][0]["why"])
        status, table, problem = self.status()
        self.assertEqual(status, 1)
        self.assertRegex(table, rf"(?m)^  refused +{HISTORY}: /rebootHistory")
        self.assertRegex(problem, rf"^kavra: not all is fresh: file:kavra.json: {HISTORY}: refused\n$")
        self.write("kavra.json", good)
        self.waitUntil(True)
        self.write("kavra.json", "{}")
        self.waitUntil(False)
        status, told = self.told()
        self.assertEqual((status, told["databases"][0]["withdrawn"]), (1, [HISTORY]))
        self.assertEqual(told["rows"]["0"], 2)

    def testAThousandRefusedDocumentsAreCountedAndSomeListed(self):
        self.recordReset(1, CAUSES)
        self.newAgent()
        self.write("kavra.json", json.dumps({f"p{i}/" + "x" * 200: 7 for i in range(1000)}))
        self.waitUntil(False)
        database = self.told()[1]["databases"][0]
        self.assertEqual(database["quarantinedCount"], 1000)
        self.assertTrue(0 < len(database["quarantined"]) < 1000, len(database["quarantined"]))
        self.assertLessEqual(len(self.raw()), 65536)

    def testReadersThatHangHoldNobodyUp(self):
        self.recordReset(1, CAUSES)
        agent = self.newAgent()
        for _ in range(100):
            reader = socket.socket(socket.AF_UNIX)
            self.addCleanup(reader.close)
            reader.connect(self.socket)
        self.assertEqual(self.told()[0], 0)
        self.assertTrue(agent.manager.get(f"{SYSTEM}.1.0"))
        descriptors = os.listdir(f"/proc/{agent.child.pid}/fd")
        self.assertLess(len(descriptors), 50, "none is kept for a reader")

    def testItsTableIsForPeople(self):
        self.recordReset(1, CAUSES)
        self.newAgent()
        status, out, problem = self.status()
        self.assertEqual((status, problem), (0, ""))
        self.assertRegex(out, r"(?m)^cell +1$")
        self.assertRegex(out, r"(?m)^rows of unit 0 +2$")
        self.assertRegex(out, r"(?m)^database +file:kavra.json$")
        shown = json.loads(self.status("--json")[1])
        self.assertEqual(shown["rows"], self.told()[1]["rows"])

    def testOwnerAndGroupMayAskAndNobodyElse(self):
        self.newAgent()
        self.assertEqual(stat.S_IMODE(os.stat(self.socket).st_mode), 0o660)

    def testTheSocketGoesWithTheAgent(self):
        agent = self.newAgent()
        agent.stopped()
        self.assertFalse(os.path.exists(self.socket))
        self.assertRegex(self.status()[2], r"^kavra: .*status.sock: .*: no agent has its status")

    def testALeftOverIsReplacedAndNeverLies(self):
        self.recordReset(1, CAUSES)
        agent = self.newAgent()
        agent.stopped(signal.SIGKILL)
        status, out, problem = self.status()
        self.assertEqual((status, out), (1, ""))
        self.assertRegex(problem, "^kavra: .*: the agent has ended\n$")
        self.newAgent()
        self.assertEqual(self.told()[0], 0)

    def testAnotherAgentsSocketIsNotTaken(self):
        self.recordReset(1, CAUSES)
        first = self.newAgent()
        second = support.Agent(self.directory, "--status-socket", self.socket)
        self.addCleanup(second.close)
        self.assertEqual(second.ended(), 1)
        self.assertEqual(second.said(), f"norvek-snmpd: status socket {self.socket}: "
                                        "another process listens there\n")
        self.assertEqual(self.told()[0], 0)
        self.assertFalse(first.hasEnded())

    def testAFileThatIsNoSocketStays(self):
        file = self.write("status.sock", "precious")
        agent = support.Agent(self.directory, "--status-socket", file)
        self.addCleanup(agent.close)
        self.assertEqual(agent.ended(), 1)
        self.assertIn("something else stands there", agent.said())
        with open(file) as content:
            self.assertEqual(content.read(), "precious")

    def testWhatIsNoStatusIsNoSuccess(self):
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(self.socket)
            server.listen()
            asking = subprocess.Popen([support.KAVRA, "status", "--agent", self.socket],
                                      stderr=subprocess.PIPE, text=True)
            reader, _ = server.accept()
            reader.sendall(b'{"cell": 1, "fre')
            reader.close()
            self.assertIn("tells no agent's status", asking.communicate()[1])
            self.assertEqual(asking.returncode, 1)

    def publish(self, server, path, document):
        subprocess.run([support.KAVRA, "--db", server.url, "--db-auth", server.auth("publisher"),
                        "put", path], text=True, input=json.dumps(document), check=True)


if __name__ == "__main__":
    unittest.main()
