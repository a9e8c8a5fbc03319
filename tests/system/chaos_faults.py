"""The faults that a pair of supervisors is put through. Each does its harm, waits while the pair
goes on publishing, and undoes it."""

import signal
import time

import support

KEYS = ("kavra:epoch", "kavra:log", "kavra:index", "history", "status")
WRONG_TYPES = {"string": ("SET", "x"), "list": ("LPUSH", "x"), "set": ("SADD", "x"),
               "zset": ("ZADD", "1", "x"), "hash": ("HSET", "x", "y"),
               "stream": ("XADD", "*", "x", "y")}
# Fields of a history and what is written there instead.
BAD_VALUES = {
    "truncated": [("0:0:d", "cell"), ("0:0:t", "1700"), ("0:0:t", "")],
    "oversized": [("0:0:d", b"x" * 70000), ("0:0:a", b"y" * 500000)],
    "not UTF-8": [("0:0:d", b"\xff\xfe\x00"), ("0:0:t", b"\xff")],
    "NaN": [("0:0:t", "nan"), ("0:0:t", "inf")],
    "lying count": [("n", "5"), ("0:n", "99"), ("0:n", "4294967295"), ("0:n", "-1")],
}


def keyOf(cell, name):
    paths = {"history": f"kavra:e:cell/{cell.number}/sys/reset/history",
             "status": f"kavra:e:cell/{cell.number}/redundancy/status"}
    return paths.get(name, name)


class Faults:
    def __init__(self, test):
        self.dice = test.dice
        self.cells = test.cells
        self.link = test.link
        self.proxy = test.proxy
        self.goOn = test.goOn

    def anyCell(self):
        return self.dice.choice(list(self.cells.values()))

    def classes(self):
        """Every class of faults by its name."""
        faults = {
            "server killed, empty after": self.serverKilled,
            "server stopped for 4 s": self.serverStopped,
            "FLUSHALL": lambda: self.anyCell().redis.command("FLUSHALL"),
            "XTRIM 0": lambda: self.trim(0), "MAXLEN 1": lambda: self.trim(1),
            "memory limit": self.memoryLimit, "user deleted": self.userDeleted,
            "connections killed": self.connectionsKilled,
            "publisher killed": self.publisherKilled, "agent killed": self.agentKilled,
            "31 foreign descriptors": self.foreignDescriptors}
        for name in KEYS:
            faults[f"{name} deleted"] = lambda name=name: self.keyDeleted(name)
            faults[f"{name} of a wrong type"] = lambda name=name: self.keyReplaced(name)
        for name in BAD_VALUES:
            faults[f"value {name}"] = lambda name=name: self.valueReplaced(name)
        for mode in ("split", "truncate", "mangle"):
            faults[f"answers: {mode}"] = lambda mode=mode: self.answersDistorted(mode)
        if self.link:
            faults["link down"] = self.linkDown
            faults["half open"] = self.linkHalfOpen
            faults["30 % loss"] = lambda: self.linkDegraded(loss=0.3)
            faults["500 ms delay"] = lambda: self.linkDegraded(delay=0.5)
        return faults

    def serverKilled(self):
        redis = self.anyCell().redis
        redis.kill()
        self.goOn(self.dice.uniform(0, 3))
        redis.start()

    def serverStopped(self):
        process = self.anyCell().redis.process
        process.send_signal(signal.SIGSTOP)
        self.goOn(4)
        process.send_signal(signal.SIGCONT)

    def trim(self, most):
        redis = self.anyCell().redis
        until = time.monotonic() + self.dice.uniform(0, 1)
        while time.monotonic() < until:
            redis.command("XTRIM", "kavra:log", "MAXLEN", str(most))
            self.goOn(0.02)

    def memoryLimit(self):
        redis = self.anyCell().redis
        redis.command("CONFIG", "SET", "maxmemory", "1")
        self.goOn(self.dice.uniform(0, 2))
        redis.command("CONFIG", "SET", "maxmemory", "64mb")

    def userDeleted(self):
        redis = self.anyCell().redis
        user = self.dice.choice(["agent", "publisher"])
        redis.command("ACL", "DELUSER", user)
        self.goOn(self.dice.uniform(0, 2))
        redis.command("ACL", "SETUSER", *redis.rights(user))

    def connectionsKilled(self):
        redis = self.anyCell().redis
        for _ in range(self.dice.randrange(1, 10)):
            redis.command("CLIENT", "KILL", "TYPE", "normal")
            self.goOn(self.dice.uniform(0, 0.1))

    def keyDeleted(self, name):
        cell = self.anyCell()
        cell.redis.command("DEL", keyOf(cell, name))
        self.ringSometimes(cell, name)

    def keyReplaced(self, name):
        cell = self.anyCell()
        usual = {"kavra:epoch": "string", "kavra:log": "stream"}.get(name, "hash")
        wrong = self.dice.choice([kind for kind in WRONG_TYPES if kind != usual])
        command, *arguments = WRONG_TYPES[wrong]
        key = keyOf(cell, name)
        cell.redis.command("DEL", key)
        cell.redis.command(command, key, *arguments)
        self.ringSometimes(cell, name)

    def valueReplaced(self, kind):
        cell = self.anyCell()
        field, value = self.dice.choice(BAD_VALUES[kind])
        cell.redis.command("HSET", keyOf(cell, "history"), field, value)
        self.ringSometimes(cell, "history")

    def ringSometimes(self, cell, name):
        if name != "kavra:log" and self.dice.randrange(4):
            cell.redis.command("XADD", "kavra:log", "*", "k", keyOf(cell, name))
        # The publisher may or may not write it anew before anybody looks.
        self.goOn(self.dice.choice([0, self.dice.uniform(0, 1.5)]))

    def publisherKilled(self):
        cell = self.anyCell()
        cell.publisher.close()
        self.goOn(self.dice.uniform(0, 2))
        cell.startPublisher()

    def agentKilled(self):
        cell = self.anyCell()
        agent, cell.agent = cell.agent, None
        agent.close()
        self.goOn(self.dice.uniform(0, 2))
        cell.startAgent()

    def foreignDescriptors(self):
        cell = self.anyCell()
        before = cell.agentIs()[0]
        cell.agent.child.send_signal(signal.SIGUSR1)
        self.goOn(0.3)
        for each in self.cells.values():
            each.redis.command("CLIENT", "KILL", "TYPE", "normal")
        self.goOn(self.dice.uniform(0.5, 2))
        cell.agent.child.send_signal(signal.SIGUSR2)
        # It takes them back when it looks next; what is open meanwhile is no leak.
        support.waitFor(lambda: cell.agentIs()[0] <= before + 3, "the foreign descriptors go")

    def linkDown(self):
        self.link.setUp(False)
        self.goOn(self.dice.uniform(0.1, 4))
        self.link.setUp(True)

    def linkDegraded(self, **how):
        self.link.degrade(**how)
        self.goOn(self.dice.uniform(1, 4))
        self.link.degrade()

    def linkHalfOpen(self):
        self.link.degrade(loss=1.0)
        self.goOn(self.dice.uniform(0, 2))
        # The far end forgets the connections while nobody can tell the near one.
        self.cells[2].redis.command("CLIENT", "KILL", "TYPE", "normal")
        self.goOn(self.dice.uniform(0, 2))
        self.link.degrade()

    def answersDistorted(self, mode):
        self.proxy.mode = mode
        # A standing connection waits for a ring, which the next publication gives.
        self.goOn(self.dice.uniform(1, 3))
        self.proxy.mode = "pass"
