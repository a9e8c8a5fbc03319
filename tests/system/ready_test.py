#!/usr/bin/python3
"""When an agent says that it serves: its databases' first snapshots are in the table by then, or the
line says which are missing. While it waits, it answers managers and hears signals."""

import json
import os
import re
import select
import signal
import socket
import subprocess
import time
import unittest
import unittest.mock

import redis_pair
import support
from support import SYSTEM, rowsOf

OWN = [("Power loss", 1700000000.9)]
PEER = [("Watchdog expired", 1700000100.0)]


class Ready(support.SystemTest):
    def newServer(self, cell, causes):
        server = redis_pair.Redis(self.directory, cell)
        self.addCleanup(server.kill)
        self.addCleanup(server.process.send_signal, signal.SIGCONT)
        self.publish(server, f"cell/{cell}/sys/reset/history", {
            "type": "System::ResetCauseHistory", "rebootHistory":
                {"0": {"causeQ": [{"description": text, "time": at} for text, at in causes]}}})
        self.publish(server, f"cell/{cell}/redundancy/status", redis_pair.STANDBY)
        return server

    @staticmethod
    def publish(server, path, document):
        subprocess.run([support.KAVRA, "--db", server.url, "--db-auth", server.auth("publisher"),
                        "put", path], text=True, input=json.dumps(document), check=True)

    def newAgent(self, *options, **parameters):
        agent = support.Agent(self.directory, *options, **parameters)
        self.addCleanup(agent.close)
        return agent

    def follow(self, own, peer=None):
        options = ["--db-auth", own.auth("agent")]
        if peer:
            options += ["--peer-db", peer.url, "--peer-db-auth", peer.auth("agent")]
        return self.newAgent(*options, db=own.url)

    def assertAnswersAndWaits(self, agent):
        """It is in its loop, whatever of its databases is missing."""
        support.waitFor(lambda: agent.manager.get(f"{SYSTEM}.1.0"), "the agent answers")
        self.assertFalse(agent.isReady(), agent.said())

    def assertReady(self, agent):
        support.waitFor(lambda: agent.isReady() or agent.hasEnded(), "the agent serves")
        self.assertIn(f"cell 1 serves {agent.address}\n", agent.said())

    def testAFileThatIsNotThereIsMissedButNotWaitedFor(self):
        agent = self.newAgent(db="file:" + os.path.join(self.directory, "mistyped.json"))
        support.waitFor(lambda: agent.isReady() or agent.hasEnded(), "the agent serves")
        self.assertIn("mistyped.json: is not there yet\n", agent.said())

    def testWhatAServerHoldsIsInTheTableFirst(self):
        own = self.newServer(1, OWN)
        own.process.send_signal(signal.SIGSTOP)
        agent = self.follow(own)
        self.assertAnswersAndWaits(agent)
        own.process.send_signal(signal.SIGCONT)
        self.assertReady(agent)
        self.assertEqual(agent.manager.rows(), {**rowsOf(0, OWN), **rowsOf(1, OWN)}, agent.said())

    def testWhatThePeersServerHoldsIsInTheTableFirst(self):
        own, peer = self.newServer(1, OWN), self.newServer(2, PEER)
        peer.process.send_signal(signal.SIGSTOP)
        agent = self.follow(own, peer)
        self.assertAnswersAndWaits(agent)
        support.waitFor(agent.manager.rows, "its own rows are there already")
        self.assertFalse(agent.isReady(), agent.said())
        peer.process.send_signal(signal.SIGCONT)
        self.assertReady(agent)
        self.assertEqual(agent.manager.rows(),
                         {**rowsOf(0, OWN), **rowsOf(1, OWN), **rowsOf(2, PEER)}, agent.said())

    def testWhatIsWaitedForInVainIsNamed(self):
        own = self.newServer(1, OWN)
        url = "redis+unix:" + self.path("nobody.sock")
        began = time.monotonic()
        agent = self.newAgent("--db-auth", own.auth("agent"), "--peer-db", url, db=own.url)
        support.waitFor(lambda: agent.isReady() or agent.hasEnded(), "the agent serves")
        self.assertRegex(agent.said(), rf"cell 1 serves {agent.address}; missing: {re.escape(url)}: .+")
        self.assertLess(time.monotonic() - began, 10)
        self.assertRows(agent, {**rowsOf(0, OWN), **rowsOf(1, OWN)})

    def testAPeerThatDoesNotMatterIsNotWaitedFor(self):
        own = self.newServer(1, OWN)
        self.publish(own, "cell/1/redundancy/status", {**redis_pair.STANDBY, "protocol": 0})
        agent = self.newAgent("--db-auth", own.auth("agent"), "--peer-db",
                              "redis+unix:" + self.path("nobody.sock"), db=own.url)
        self.assertReady(agent)

    def testAFileThatCannotBeReadIsNamed(self):
        file = self.write("kavra.json", "{")
        agent = self.newAgent()
        self.assertAnswersAndWaits(agent)
        support.waitFor(agent.isReady, "the agent serves")
        self.assertRegex(agent.said(),
                         rf"serves {agent.address}; missing: file:{os.path.basename(file)}: ")

    def serviceManager(self):
        """A service manager's end of what those that start from now on tell it."""
        ours = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(ours.close)
        ours.bind(self.path("notify"))
        ours.settimeout(support.PATIENCE)
        environment = unittest.mock.patch.dict(os.environ, NOTIFY_SOCKET=self.path("notify"))
        environment.start()
        self.addCleanup(environment.stop)
        return ours

    def testTheServiceManagerHearsItWhenTheFirstSnapshotIsThere(self):
        own = self.newServer(1, OWN)
        own.process.send_signal(signal.SIGSTOP)
        manager = self.serviceManager()
        agent = self.follow(own)
        self.assertAnswersAndWaits(agent)
        self.assertEqual(select.select([manager], [], [], 0)[0], [])
        own.process.send_signal(signal.SIGCONT)
        self.assertEqual(manager.recv(4096).decode(),
                         f"READY=1\nSTATUS=cell 1 serves {agent.address}")
        self.assertEqual(agent.stopped(), 0, agent.said())
        self.assertEqual(manager.recv(4096), b"STOPPING=1")

    def testTheServiceManagerHearsOfAPublisher(self):
        manager = self.serviceManager()
        publisher = support.Process(self.directory, support.KAVRA, "--db", "file:target.json",
                                    "serve", "source.json")
        self.addCleanup(publisher.close)
        self.assertEqual(manager.recv(4096),
                         b"READY=1\nSTATUS=publishes source.json in file:target.json")
        self.assertEqual(publisher.stopped(), 0, publisher.said())
        self.assertEqual(manager.recv(4096), b"STOPPING=1")

    def testASignalWhileItWaitsEndsItWell(self):
        agent = self.newAgent(db="redis+unix:" + self.path("nobody.sock"))
        self.assertAnswersAndWaits(agent)
        self.assertEqual(agent.stopped(), 0, agent.said())
        self.assertNotIn(" serves ", agent.said())


if __name__ == "__main__":
    unittest.main()
