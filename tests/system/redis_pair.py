"""A pair of supervisors, each with a Redis server, a publisher and an agent of its own, and the
link between them. The servers run with the shipped configuration and rights."""

import contextlib
import fcntl
import functools
import heapq
import json
import os
import re
import select
import socket
import struct
import subprocess
import threading
import time

import support

PACKAGING = os.path.join(support.ROOT, "packaging/redis")
STANDBY = {"type": "Redundancy::RedundancyStatus", "protocol": 3, "switchoverCapable": True}


def encoded(*arguments):
    parts = [argument.encode() if isinstance(argument, str) else argument for argument in arguments]
    return b"*%d\r\n" % len(parts) + b"".join(b"$%d\r\n%s\r\n" % (len(part), part)
                                              for part in parts)


def replyIn(received):
    """The next reply: a text or a list as such, anything else as the line that it is."""
    line = received.readline()
    if not line.endswith(b"\r\n"):
        raise OSError("the server closed the connection")
    kind, rest = line[:1], line[1:-2]
    if kind == b"*":
        return [replyIn(received) for _ in range(int(rest))]
    if kind == b"$" and int(rest) >= 0:
        return received.read(int(rest) + 2)[:-2]
    return line[:-2]


class Redis:
    """The server of one supervisor."""

    def __init__(self, directory, cell, prefix=(), listen=None):
        self.directory = os.path.join(directory, f"redis{cell}")
        self.socket = os.path.join(self.directory, "redis.sock")
        self.url = f"redis+unix:{self.socket}"
        self.prefix = list(prefix)
        os.mkdir(self.directory)
        subprocess.run([os.path.join(PACKAGING, "new-users"), self.directory], check=True)
        with open(os.path.join(self.directory, "users.acl"), "a") as users:
            users.write("user admin on >admin ~* &* +@all\n")
        self.writeConfiguration(listen)
        self.process = None
        self.start()

    def writeConfiguration(self, listen):
        with open(os.path.join(PACKAGING, "redis.conf")) as file:
            text = file.read()
        for place in ("/run/norvek/redis/1", "/etc/norvek/redis-1"):
            text = text.replace(place, self.directory)
        text = text.replace("supervised systemd", "supervised no")
        if listen:
            text = text.replace("\nport 0\n", f"\nbind {listen}\nport 6379\n")
        with open(os.path.join(self.directory, "redis.conf"), "w") as file:
            file.write(text)

    def auth(self, user):
        return os.path.join(self.directory, f"{user}.auth")

    def rights(self, user):
        """The arguments of ACL SETUSER that give a user what the configuration gives it."""
        with open(os.path.join(self.directory, "users.acl")) as users:
            return next(line.split()[1:] for line in users if line.split()[1] == user)

    def start(self):
        log = open(os.path.join(self.directory, "log"), "ab")
        self.process = subprocess.Popen(
            [*self.prefix, "redis-server", os.path.join(self.directory, "redis.conf")],
            stdout=log, stderr=log, stdin=subprocess.DEVNULL)
        log.close()
        support.waitFor(self.answers, "the server answers")

    def answers(self):
        with contextlib.suppress(OSError):
            return self.command("PING") == b"+PONG"
        return False

    def command(self, *arguments):
        """The reply, asked as the administrator."""
        return self.replies([arguments])[0]

    def transaction(self, *commands):
        """Does them together, between whatever else the server is asked, and each in earnest."""
        outcome = self.replies([["MULTI"], *commands, ["EXEC"]])[-1]
        if not isinstance(outcome, list) or any(isinstance(reply, bytes) and reply.startswith(b"-")
                                                for reply in outcome):
            raise AssertionError(f"{commands}: {outcome}")

    def replies(self, commands):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(support.PATIENCE)
            connection.connect(self.socket)
            connection.sendall(b"".join(encoded(*command)
                                        for command in [["AUTH", "admin", "admin"], *commands]))
            with connection.makefile("rb") as received:
                return [replyIn(received) for _ in range(1 + len(commands))][1:]

    def lastRing(self):
        """The id of the last entry that the log was ever given."""
        told = self.command("XINFO", "STREAM", "kavra:log")
        return dict(zip(told[::2], told[1::2]))[b"last-generated-id"].decode()

    def kill(self):
        self.process.kill()
        self.process.wait()


class Link:
    """The way to the peer's server, which runs in a network namespace of its own: a cable that this
    process carries the packets of, or does not, or late."""

    PACKET = 65536

    def __init__(self, dice):
        self.dice = dice
        self.name = f"kavra{os.getpid()}"
        self.prefix = ["ip", "netns", "exec", self.name]
        # Runs beside each other have addresses of their own.
        net = f"10.231.{os.getpid() // 64 % 256}"
        host = os.getpid() % 64 * 4
        self.nearAddress, self.address = f"{net}.{host + 1}", f"{net}.{host + 2}"
        self.loss = self.delay = 0.0
        self.carried = self.dropped = 0
        self.near, self.far = f"kn{os.getpid()}", f"kf{os.getpid()}"
        self.ends = [self.newEnd(self.near), self.newEnd(self.far)]
        for command in (f"ip netns add {self.name}", f"ip link set {self.far} netns {self.name}",
                        f"ip addr add {self.nearAddress}/30 dev {self.near}",
                        f"ip link set {self.near} up",
                        f"ip -n {self.name} addr add {self.address}/30 dev {self.far}",
                        f"ip -n {self.name} link set {self.far} up",
                        f"ip -n {self.name} link set lo up"):
            self.run(command)
        threading.Thread(target=self.carry, daemon=True).start()

    @staticmethod
    def newEnd(name):
        setInterface, packetsAlone = 0x400454CA, 0x0001 | 0x1000
        end = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
        fcntl.ioctl(end, setInterface, struct.pack("16sH", name.encode(), packetsAlone))
        return end

    @staticmethod
    def run(command):
        subprocess.run(command.split(), check=True, stderr=subprocess.PIPE)

    @classmethod
    def isPossible(cls):
        """Whether this machine lets the test have a link of its own."""
        probe = f"kavraprobe{os.getpid()}"
        try:
            os.close(cls.newEnd("kp0"))
            cls.run(f"ip netns add {probe}")
            try:
                # Where / is no mount, as in a chroot, a namespace can be made but not entered.
                cls.run(f"ip netns exec {probe} ip link set lo up")
            finally:
                cls.run(f"ip netns del {probe}")
        except (OSError, subprocess.CalledProcessError):
            return False
        return True

    def carry(self):
        waiting = []  # (due, order, end, packet)
        order = 0
        while self.ends:
            late = waiting[0][0] - time.monotonic() if waiting else 0.1
            ready, _, _ = select.select(self.ends, [], [], max(0.0, min(late, 0.1)))
            for end in ready:
                with contextlib.suppress(OSError):
                    packet = os.read(end, self.PACKET)
                    order += 1
                    other = self.ends[1 - self.ends.index(end)]
                    heapq.heappush(waiting, (time.monotonic() + self.delay, order, other, packet))
            while waiting and waiting[0][0] <= time.monotonic():
                _, _, end, packet = heapq.heappop(waiting)
                self.deliver(end, packet)

    def deliver(self, end, packet):
        if self.dice.random() < self.loss:
            self.dropped += 1
            return
        # An end that is down takes nothing.
        with contextlib.suppress(OSError):
            os.write(end, packet)
            self.carried += 1

    def setUp(self, up):
        self.run(f"ip link set {self.near} {'up' if up else 'down'}")

    def degrade(self, loss=0.0, delay=0.0):
        """The part of the packets that get lost, and the seconds that each takes."""
        self.loss, self.delay = loss, delay

    def remove(self):
        ends, self.ends = self.ends, []
        subprocess.run(["ip", "netns", "del", self.name], check=False)
        time.sleep(0.2)  # the carrier looks up at least that often
        for end in ends:
            os.close(end)


class Proxy:
    """Stands before a server, and passes on what it says: as it is, split, cut off or mangled."""

    def __init__(self, target, dice):
        self.target = target
        self.dice = dice
        self.mode = "pass"
        self.mangled = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"redis://127.0.0.1:{self.listener.getsockname()[1]}"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            server = socket.socket(socket.AF_UNIX)
            try:
                server.connect(self.target)
            except OSError:
                client.close()
                server.close()
                continue
            threading.Thread(target=self.connect, args=(client, server), daemon=True).start()

    def connect(self, client, server):
        back = threading.Thread(target=self.passOn, args=(server, client, True), daemon=True)
        back.start()
        self.passOn(client, server, False)
        back.join()
        client.close()
        server.close()

    def passOn(self, source, sink, change):
        with contextlib.suppress(OSError):
            while octets := source.recv(65536):
                if not change or self.mode == "pass":
                    sink.sendall(octets)
                else:
                    self.distort(octets, sink)
        for end in (source, sink):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)

    def distort(self, octets, sink):
        self.mangled += 1
        if self.mode == "split":
            sink.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for octet in octets:
                sink.sendall(bytes([octet]))
        elif self.mode == "truncate":
            sink.sendall(octets[:self.dice.randrange(len(octets))])
            raise OSError("cut off")
        else:
            changed = bytearray(octets)
            for _ in range(self.dice.randrange(1, 4)):
                changed[self.dice.randrange(len(changed))] = self.dice.randrange(256)
            sink.sendall(bytes(changed))

    def close(self):
        self.listener.close()


class Cell:
    """One supervisor: its server, the file that its publisher follows, and the processes."""

    def __init__(self, test, number, redis, peerUrl, peerAuth, plugin=None):
        self.test, self.number, self.redis = test, number, redis
        self.file = os.path.join(test.directory, f"cell{number}.json")
        self.options = ["--peer-db", peerUrl, "--peer-db-auth", peerAuth, "--db-auth",
                        redis.auth("agent")]
        if plugin:
            library = os.path.join(os.path.dirname(support.PROGRAMS), "lib/libMiscSnmp.so")
            self.options += ["--plugin", library, "--plugin", plugin]
        self.sequence = 0
        self.publisher = self.agent = None
        self.agentsStarted = 0

    def publish(self):
        """Writes the next history: what it says tells which it is. Returns when it was not there
        yet."""
        self.sequence += 1
        documents = {
            f"cell/{self.number}/redundancy/status": STANDBY,
            f"cell/{self.number}/sys/reset/history": {
                "type": "System::ResetCauseHistory",
                "rebootHistory": {
                    str(index): {"causeQ": documentsOf(self.number, self.sequence - index)}
                    for index in range(reloadsOf(self.sequence))}}}
        with open(self.file + ".new", "w") as file:
            json.dump(documents, file)
        begun = time.monotonic()
        os.replace(self.file + ".new", self.file)
        return begun

    def historyKey(self):
        return f"kavra:e:cell/{self.number}/sys/reset/history"

    def encoding(self):
        """How the server keeps the history: "listpack" where it is small, or "hashtable"."""
        return self.redis.command("OBJECT", "ENCODING", self.historyKey()).decode()

    def startPublisher(self):
        self.publisher = support.Process(
            self.test.directory, support.KAVRA, "--db", self.redis.url, "--db-auth",
            self.redis.auth("publisher"), "serve", "--cell", str(self.number), self.file)

    def startAgent(self):
        self.agent = self.test.start(*self.options, cell=self.number, db=self.redis.url)
        self.agentsStarted += 1

    def agentIs(self):
        """Open descriptors and resident kilobytes of the agent."""
        process = f"/proc/{self.agent.child.pid}"
        with open(f"{process}/status") as status:
            resident = int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1))
        return len(os.listdir(f"{process}/fd")), resident


def reloadsOf(sequence):
    """How many reloads a history tells of: the last one as reload 0, and some before it."""
    return min(sequence, 1 + sequence % 6)


def isWordy(sequence):
    """Long texts come and go, for a while each, so that some histories are small as a whole."""
    return sequence // 10 % 2 == 1


def textOf(cell, sequence, number, count):
    text = f"cell {cell} reload {sequence} cause {number} of {count}"
    more = 37 * (sequence + number) % 160 if isWordy(sequence) else 0
    return text + " " * (more > 0) + "abcdefghijklmnopqrstuvwxyz"[sequence % 26] * more


@functools.lru_cache(4096)
def causesOf(cell, sequence):
    count = 1 + sequence % 5
    return tuple((textOf(cell, sequence, number, count), 1700000000 + sequence)
                 for number in range(1, count + 1))


def documentsOf(cell, sequence):
    """The causes of one reload as they are published, some with what to do and what else is
    known."""
    documents = []
    for number, (text, at) in enumerate(causesOf(cell, sequence), 1):
        cause = {"description": text, "time": at}
        if (sequence + number) % 3 == 0:
            cause["recommendedAction"] = f"look at fan {number}; no more than 40 \u00b0C"
        if (sequence + number) % 4 == 0:
            cause["detail"] = f"detail {sequence} " * (20 if isWordy(sequence) else 2)
        documents.append(cause)
    return documents
