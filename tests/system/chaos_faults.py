"""The faults that a pair of supervisors is put through. Each does its harm, waits while the pair
goes on publishing, and undoes it."""

import re
import signal
import time

import support

# Each key and what it is.
KEYS = {"kavra:epoch": "string", "kavra:log": "stream", "kavra:index": "hash", "history": "hash",
        "status": "hash", "kavra:owners": "hash", "mark": "string"}
WRONG_TYPES = {"string": ("SET", "x"), "list": ("LPUSH", "x"), "set": ("SADD", "x"),
               "zset": ("ZADD", "1", "x"), "hash": ("HSET", "x", "y"),
               "stream": ("XADD", "*", "x", "y")}
# Fields of a history and what is written there instead; None takes the field away.
BAD_VALUES = {
    "truncated": [("0:0:d", "cell"), ("0:0:t", "1700"), ("0:0:t", ""), ("0:0:b", None)],
    "oversized": [("0:0:d", b"x" * 70000), ("0:0:a", b"y" * 500000)],
    "not UTF-8": [("0:0:d", b"\xff\xfe\x00"), ("0:0:t", b"\xff")],
    "NaN": [("0:0:t", "nan"), ("0:0:t", "inf")],
    "lying count": [("n", "7"), ("0:n", "99"), ("0:n", "4294967295"), ("0:n", "-1")],
}
# The same where the check goes, too: only what is no history by itself, since any that is would
# rightly be shown.
BAD_VALUES_ALONE = {
    "truncated": [("0:0:t", ""), ("0:0:b", None), ("0:n", None)],
    "oversized": BAD_VALUES["oversized"],
    "not UTF-8": [("0:0:t", b"\xff"), ("0:n", b"\xff\xfe\x00"), (b"0:0:\xff", "x")],
    "NaN": BAD_VALUES["NaN"],
    "lying count": [*BAD_VALUES["lying count"], ("n", "0"), ("0:n", "0")],
}
PROTOCOL = b"3"  # of each cell's redundancy status
MOST_ATTEMPTS = 5
COMPARED_WITHIN = 30 + 5  # seconds: as the publisher does, and what a fault in between may take


def within(seconds, condition):
    until = time.monotonic() + seconds
    while not (answer := condition()) and time.monotonic() < until:
        time.sleep(0.005)
    return answer


def keyOf(cell, name):
    paths = {"history": cell.historyKey(),
             "status": f"kavra:e:cell/{cell.number}/redundancy/status"}
    return markKey(cell) if name == "mark" else paths.get(name, name)


def markKey(cell):
    """The mark of the cell's publisher, which has one unless it was just taken away."""
    def find():
        return next((key for key in cell.redis.command("KEYS", "kavra:owner:*")), None)
    key = within(support.PATIENCE, find)
    if not key:
        raise AssertionError("the publisher has no mark")
    return key.decode()


class Faults:
    def __init__(self, test):
        self.dice = test.dice
        self.cells = test.cells
        self.link = test.link
        self.proxy = test.proxy
        self.goOn = test.goOn
        self.damaged = {}  # when a cell's status was, last

    def anyCell(self):
        return self.dice.choice(list(self.cells.values()))

    def classes(self):
        """Every class of faults by its name."""
        faults = {
            "server killed, empty after": self.serverKilled,
            "server stopped for 4 s": self.serverStopped,
            "FLUSHALL": lambda: self.anyCell().redis.command("FLUSHALL"),
            "XTRIM 0": lambda: self.trim(0), "MAXLEN 1": lambda: self.trim(1),
            "memory limit": self.memoryLimit,
            "connections killed": self.connectionsKilled,
            "publisher killed": self.publisherKilled, "agent killed": self.agentKilled,
            "31 foreign descriptors": self.foreignDescriptors}
        for user in ("agent", "publisher"):
            faults[f"user {user} deleted"] = lambda user=user: self.userDeleted(user)
        for name, usual in KEYS.items():
            faults[f"{name} deleted"] = lambda name=name: self.keyDeleted(name)
            for wrong in WRONG_TYPES:
                if wrong != usual:
                    faults[f"{name} of type {wrong}"] = (
                        lambda name=name, wrong=wrong: self.keyReplaced(name, wrong))
        for kind in BAD_VALUES:
            faults[f"value {kind}"] = lambda kind=kind: self.valueReplaced(kind, False)
            faults[f"value {kind}, no check"] = lambda kind=kind: self.valueReplaced(kind, True)
        faults["value damaged in silence"] = self.damagedInSilence
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
        _, before = redis.command("CONFIG", "GET", "maxmemory")
        redis.command("CONFIG", "SET", "maxmemory", "1")
        self.goOn(self.dice.uniform(0, 2))
        redis.command("CONFIG", "SET", "maxmemory", before)

    def userDeleted(self, user):
        redis = self.anyCell().redis
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

    def keyReplaced(self, name, wrong):
        cell = self.anyCell()
        command, *arguments = WRONG_TYPES[wrong]
        key = keyOf(cell, name)
        cell.redis.transaction(("DEL", key), (command, key, *arguments))
        self.ringSometimes(cell, name)

    def ringSometimes(self, cell, name):
        if name != "kavra:log" and self.dice.randrange(4):
            self.ring(cell, keyOf(cell, name))
        # The publisher may or may not write it anew before anybody looks.
        time.sleep(self.dice.choice([0, 0.05]))
        self.goOn(self.dice.choice([0, self.dice.uniform(0, 0.6)]))

    @staticmethod
    def ring(cell, key):
        cell.redis.command("XADD", "kavra:log", "*", "k", key)

    def valueReplaced(self, kind, alone):
        cell = self.anyCell()
        field, value = self.dice.choice((BAD_VALUES_ALONE if alone else BAD_VALUES)[kind])
        key = cell.historyKey()
        damage = [("HDEL", key, field) if value is None else ("HSET", key, field, value)]
        if alone:
            damage.append(("HDEL", key, "_c"))
        # Who refuses it: the check, or what reads the fields.
        before = len(self.refusals(cell, not alone))
        for _ in range(MOST_ATTEMPTS):
            cell.redis.transaction(*damage)
            self.ring(cell, key)
            # The publisher looks once a second, and may have mended it just then.
            if within(0.5, lambda: len(self.refusals(cell, not alone)) > before):
                break
        else:
            raise AssertionError(f"nobody refused {damage}:\n{cell.agent.said()[-2000:]}")
        self.goOn(self.dice.choice([0, self.dice.uniform(0, 0.6)]))

    def damagedInSilence(self):
        """Beside its check, and nobody rings for it: found by whoever reads it next, or when the
        publisher compares the whole. That may be after further faults; see checkMended."""
        cell = self.anyCell()
        key = keyOf(cell, "status")
        cell.redis.transaction(("HSET", key, "protocol", "1"))
        self.damaged[cell.number] = time.monotonic()
        self.goOn(self.dice.choice([0, self.dice.uniform(0, 2)]))

    def checkMended(self):
        """What was damaged in silence is as it was published when the whole was compared again."""
        for number, since in self.damaged.items():
            redis, key = self.cells[number].redis, keyOf(self.cells[number], "status")
            left = max(since + COMPARED_WITHIN - time.monotonic(), 2)
            if not within(left, lambda: redis.command("HGET", key, "protocol") == PROTOCOL):
                raise AssertionError(f"{key} stays damaged")

    @staticmethod
    def refusals(cell, byCheck):
        """What the cell's own agent said of its history."""
        path = f"cell/{cell.number}/sys/reset/history"
        said = re.findall(f"{path}: refused: (.*)", cell.agent.said())
        return [why for why in said if ("field _c:" in why) == byCheck]

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
        # The one that was killed showed what it had read before; the next one has nothing else.
        self.mendSilently()
        cell.startAgent()

    def mendSilently(self):
        for number in list(self.damaged):
            cell = self.cells[number]
            cell.redis.command("HSET", keyOf(cell, "status"), "protocol", PROTOCOL)
            del self.damaged[number]

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
