#!/usr/bin/python3
"""What the users of the shipped server configuration may do, and what nobody may."""

import contextlib
import json
import os
import re
import socket
import stat
import subprocess
import unittest

import redis_pair
import support

KEY = "kavra:e:cell/1/redundancy/status"
READING = [("PING",), ("GET", "kavra:epoch"), ("HGETALL", KEY), ("XINFO", "STREAM", "kavra:log"),
           ("XREAD", "COUNT", "1", "STREAMS", "kavra:log", "0"), ("MULTI",)]
WRITING = [("SET", "kavra:epoch", "x"), ("DEL", "kavra:x"), ("HSET", KEY, "_v", "1"),
           ("HDEL", "kavra:index", "x"), ("XADD", "kavra:log", "*", "k", KEY),
           ("EXISTS", KEY), ("WATCH", "kavra:epoch"), ("UNWATCH",), ("HGET", "kavra:index", "x"),
           ("HMGET", KEY, "_v", "_c"), ("GETEX", "kavra:epoch", "PX", "5000")]
FORBIDDEN = [("FLUSHALL",), ("FLUSHDB",), ("EVAL", "return 1", "0"), ("KEYS", "*"), ("SCAN", "0"),
             ("CONFIG", "GET", "*"), ("ACL", "LIST"), ("SHUTDOWN",),
             ("RENAME", "kavra:epoch", "kavra:x"), ("GET", "other"), ("XADD", "other", "*", "k", "v"),
             ("REPLICAOF", "127.0.0.1", "1"), ("SAVE",), ("CLIENT", "KILL", "TYPE", "normal")]


class Rights(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.redis = redis_pair.Redis(self.directory, 1)
        self.addCleanup(self.redis.kill)
        self.redis.command("SET", "kavra:epoch", "x")
        self.redis.command("XADD", "kavra:log", "*", "k", KEY)

    def ask(self, user, command):
        """The first line of the reply to one command."""
        with open(self.redis.auth(user)) as file:
            name, password = file.read().split()
        with contextlib.closing(socket.socket(socket.AF_UNIX)) as connection:
            connection.settimeout(support.PATIENCE)
            connection.connect(self.redis.socket)
            connection.sendall(redis_pair.encoded("AUTH", name, password))
            self.assertEqual(connection.recv(100), b"+OK\r\n")
            connection.sendall(redis_pair.encoded(*command))
            return connection.recv(65536).split(b"\r\n")[0].decode()

    def assertGranted(self, user, command):
        self.assertFalse(self.ask(user, command).startswith("-"), (user, command))

    def assertRefused(self, user, command):
        self.assertTrue(self.ask(user, command).startswith("-NOPERM"), (user, command))

    def startedByItsUnit(self, cell):
        """The server of a cell, with the packaged configuration and the unit's command line."""
        with open(os.path.join(redis_pair.PACKAGING, "../systemd/kavra-redis@.service")) as unit:
            line = re.search(r"^ExecStart=/usr/bin/(.*)$", unit.read(), re.MULTILINE)[1]
        os.mkdir(os.path.join(self.directory, f"run{cell}"))
        for place, here in (("/etc/norvek", redis_pair.PACKAGING),
                            ("${CREDENTIALS_DIRECTORY}", self.redis.directory),
                            ("/run/norvek/redis/%i", os.path.join(self.directory, f"run{cell}"))):
            line = line.replace(place, here)
        process = subprocess.Popen([*line.split(), "--supervised", "no"],
                                   stdout=subprocess.PIPE, text=True, stdin=subprocess.DEVNULL)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def testTheConfigurationFitsTheServerOfEitherCell(self):
        for cell in (1, 2):
            server = self.startedByItsUnit(cell)
            said = iter(server.stdout.readline, "")
            self.assertTrue(any(f"run{cell}/redis.sock" in line for line in said), cell)

    def testLetBothRead(self):
        for command in READING:
            for user in ("agent", "publisher"):
                self.assertGranted(user, command)

    def testLetThePublisherAloneWrite(self):
        for command in WRITING:
            self.assertGranted("publisher", command)
            self.assertRefused("agent", command)

    def testLetNobodyDoHarm(self):
        for command in FORBIDDEN:
            for user in ("agent", "publisher"):
                self.assertRefused(user, command)

    def testLetNobodyInWithoutAName(self):
        with contextlib.closing(socket.socket(socket.AF_UNIX)) as connection:
            connection.connect(self.redis.socket)
            connection.sendall(redis_pair.encoded("GET", "kavra:epoch"))
            self.assertTrue(connection.recv(100).startswith(b"-NOAUTH"))

    def testKeepPasswordsFromOthersAndOutOfTheServersFile(self):
        with open(os.path.join(self.redis.directory, "users.acl")) as file:
            rights = file.read()
        for user in ("agent", "publisher"):
            path = self.redis.auth(user)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            with open(path) as file:
                self.assertNotIn(file.read().split()[1], rights)

    def testSufficeForAPublisherThatLooksOverOneConnection(self):
        with open(os.path.join(self.directory, "cell.json"), "w") as file:
            file.write('{"cell/1/redundancy/status": {"type": "Redundancy::RedundancyStatus", '
                       '"protocol": 3, "switchoverCapable": true}}')
        publisher = support.Process(
            self.directory, support.KAVRA, "--db", self.redis.url, "--db-auth",
            self.redis.auth("publisher"), "serve", "--cell", "1", file.name)
        self.addCleanup(publisher.close)
        support.waitFor(lambda: self.redis.command("HGET", KEY, "protocol") == b"3",
                        "the document is published")
        support.waitFor(lambda: self.calls("getex") > 1, "the publisher looks")
        whole = self.calls("hgetall")
        looks = self.calls("getex")
        support.waitFor(lambda: self.calls("getex") > looks + 2, "it looks again")
        self.assertEqual(self.calls("hgetall"), whole)
        self.assertEqual(self.redis.command("ACL", "LOG"), [])

    def calls(self, command):
        """How often the server was asked for it."""
        told = self.redis.command("INFO", "commandstats").decode()
        found = re.search(f"cmdstat_{command}:calls=([0-9]+)", told)
        return int(found.group(1)) if found else 0

    def testLeaveRoomToReplaceTheLargestDocuments(self):
        """A history of 126,000 causes has nearly as many values as a document may, and with these
        descriptions nearly as many octets."""
        for letter in "ab":
            causes = [{"description": letter * 51, "time": 1700000000.123456}] * 63000
            document = json.dumps({"type": "System::ResetCauseHistory",
                                   "rebootHistory": {"0": {"causeQ": causes},
                                                     "1": {"causeQ": causes}}})
            for cell in (1, 2):
                path = f"cell/{cell}/sys/reset/history"
                put = subprocess.run(
                    [support.KAVRA, "--db", self.redis.url, "--db-auth",
                     self.redis.auth("publisher"), "put", path],
                    input=document, text=True, capture_output=True)
                self.assertEqual((put.returncode, put.stderr), (0, ""))
                self.assertEqual(self.redis.command("HGET", f"kavra:e:{path}", "0:62999:d"),
                                 letter.encode() * 51)

    def testKeepNothingOverARestart(self):
        self.redis.kill()
        self.redis.start()
        self.assertEqual(self.redis.command("DBSIZE"), b":0")
        self.assertEqual(sorted(name for name in os.listdir(self.redis.directory)
                                if name.endswith((".rdb", ".aof"))), [])


if __name__ == "__main__":
    unittest.main()
