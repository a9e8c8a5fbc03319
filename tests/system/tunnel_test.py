#!/usr/bin/python3
"""The shipped tunnel between supervisors: the peer's database through a pair of stunnels that know
each other, and nobody else."""

import contextlib
import json
import os
import shutil
import signal
import socket
import ssl
import subprocess
import unittest

import redis_pair
import support
from support import rowsOf

OWN = [("Power loss", 1700000000)]
PEERS = [("Watchdog", 1700000001)]
LATER = [("Fan failure", 1700000002)]
PACKAGING = os.path.join(support.ROOT, "packaging/tunnel")
STUNNEL = shutil.which("stunnel4")


def freeTcpPort():
    with contextlib.closing(socket.create_server(("127.0.0.1", 0))) as probe:
        return probe.getsockname()[1]


@unittest.skipIf(STUNNEL is None, "stunnel4 is not there")
class Tunnel(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, OWN)
        self.setRedundancy(1, protocol=3, capable=True)
        self.redis = redis_pair.Redis(self.directory, 2)
        self.addCleanup(self.redis.kill)
        self.peerPublishes(PEERS)
        self.begin(support.KAVRA, "--db", self.redis.url, "--db-auth", self.redis.auth("publisher"),
                   "serve", "--cell", "2", "cell2.json")
        for name in ("one", "two", "stranger"):
            subprocess.run([os.path.join(PACKAGING, "new-certificate"), self.path(name)], check=True)
        self.between, self.near = freeTcpPort(), freeTcpPort()

    def begin(self, *command):
        process = support.Process(self.directory, *command)
        self.addCleanup(process.close)
        return process

    def peerPublishes(self, causes):
        self.write("cell2.json", json.dumps({"cell/2/sys/reset/history": {
            "type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": [
                {"description": text, "time": at} for text, at in causes]}}}}))

    def startTunnel(self, name, knows, accept, near, connect):
        """The shipped file, with the addresses and folders of this test."""
        with open(os.path.join(PACKAGING, "tunnel.conf")) as file:
            text = file.read()
        shutil.copy(self.path(f"{knows}/own.pem"), self.path(f"{name}/peer.pem"))
        for shipped, here in (("/etc/norvek/tunnel", self.path(name)),
                              ("/run/credentials/kavra-tunnel.service", self.path(name)),
                              ("/run/norvek/redis/1/redis.sock", self.redis.socket),
                              ("169.254.1.1:6380", f"127.0.0.1:{accept}"),
                              ("127.0.0.1:6380", f"127.0.0.1:{near}"),
                              ("169.254.1.2:6380", f"127.0.0.1:{connect}")):
            self.assertIn(shipped, text)
            text = text.replace(shipped, here)
        tunnel = self.begin(STUNNEL, self.write(f"{name}.conf", text))
        support.waitFor(lambda: "Configuration successful" in tunnel.said() or tunnel.hasEnded(),
                        "the tunnel is up")
        self.assertFalse(tunnel.hasEnded(), tunnel.said())
        return tunnel

    def startFar(self, name="two"):
        return self.startTunnel(name, "one", self.between, freeTcpPort(), freeTcpPort())

    def startNear(self):
        return self.startTunnel("one", "two", freeTcpPort(), self.near, self.between)

    def startAgent(self):
        return self.start("--peer-db", f"redis://127.0.0.1:{self.near}", "--peer-db-auth",
                          self.redis.auth("agent"))

    @staticmethod
    def rows(peers):
        return {**rowsOf(0, OWN), **rowsOf(1, OWN), **rowsOf(2, peers)}

    def answerTo(self, certificate=None):
        """What the server says to PING through the far end, as whoever has a certificate."""
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        if certificate:
            context.load_cert_chain(self.path(f"{certificate}/own.pem"),
                                    self.path(f"{certificate}/own.key"))
        with socket.create_connection(("127.0.0.1", self.between), support.PATIENCE) as plain:
            with context.wrap_socket(plain) as connection:
                connection.sendall(redis_pair.encoded("PING"))
                return connection.recv(100)

    def testTheAgentSeesThePeer(self):
        self.startFar()
        self.startNear()
        agent = self.startAgent()
        self.assertRows(agent, self.rows(PEERS))
        self.peerPublishes(LATER)
        self.assertRows(agent, self.rows(LATER))

    def testAStrangerIsRefused(self):
        far = self.startFar()
        self.assertIn(b"NOAUTH", self.answerTo("one"), "whom it knows reaches the server")
        for stranger in ("stranger", None):
            with self.assertRaises((ssl.SSLError, ConnectionError)):
                self.answerTo(stranger)
        self.assertFalse(far.hasEnded(), far.said())

    def testAPlainClientIsRefused(self):
        self.startFar()
        self.assertIn(b"NOAUTH", self.answerTo("one"), "whom it knows reaches the server")
        with socket.create_connection(("127.0.0.1", self.between), support.PATIENCE) as plain:
            plain.sendall(redis_pair.encoded("PING"))
            answer = b""
            with contextlib.suppress(ConnectionError):
                while more := plain.recv(100):
                    answer += more
            self.assertNotRegex(answer, rb"[+-][A-Z]{4}")

    def testAStrangerInThePlaceOfThePeerIsRefused(self):
        near = self.startNear()
        self.startFar("stranger")
        agent = self.startAgent()
        support.waitFor(lambda: "CERT: " in near.said(), "it looks at the certificate")
        self.assertRows(agent, {**rowsOf(0, OWN), **rowsOf(1, OWN)})
        self.assertIn("redis://", agent.said().split("; missing: ")[1])

    def testOneThatIsCutIsALinkThatIsCut(self):
        for how, back in ((signal.SIGKILL, None), (signal.SIGSTOP, signal.SIGCONT)):
            with self.subTest(how=how.name):
                self.peerPublishes(PEERS)
                far, near = self.startFar(), self.startNear()
                agent = self.startAgent()
                self.assertRows(agent, self.rows(PEERS))
                far.child.send_signal(how)
                support.waitFor(lambda: " lost: " in agent.said(), "the peer is missed")
                self.peerPublishes(LATER)
                self.assertEqual(agent.manager.rows(), self.rows(PEERS))
                if back:
                    far.child.send_signal(back)
                else:
                    far = self.startFar()
                self.assertRows(agent, self.rows(LATER))
                for process in (agent, near, far):
                    process.stopped(signal.SIGKILL)


if __name__ == "__main__":
    unittest.main()
