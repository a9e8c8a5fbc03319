"""How long a publication takes to reach a manager, and what another one waits for meanwhile.

One supervisor follows a file that `kavra put` replaces, or a Redis server that `kavra serve` keeps
equal to a file. The manager asks for the second and the last cause of both units in one question: its
 answer is right when all four are new, and must never hold some that are and some that are not.
"""

import json
import multiprocessing
import os
import socket
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tests/system"))
import redis_pair  # noqa: E402  (needs the path above)
import snmp_client  # noqa: E402
import support  # noqa: E402

PATH = "cell/1/sys/reset/history"
PAUSE = 0.00005  # between two questions of the manager that waits for the change
OTHERS_PAUSE = 0.001  # between two of the other one
UP_TIME = "1.3.6.1.2.1.1.3"


def nameOf(number):
    return f"reload {number:07d}"


def databaseText(number, causes):
    """The whole database, with one reload of so many causes."""
    queue = [{"description": f"{nameOf(number)} cause {cause}", "time": 1700000000.9 + number}
             for cause in range(1, causes + 1)]
    return json.dumps({PATH: {"type": "System::ResetCauseHistory",
                              "rebootHistory": {"0": {"causeQ": queue}}}})


def bulkQuestion(names):
    """The octets of a GETBULK for what follows each of the names."""
    bindings = b"".join(snmp_client.tagged(snmp_client.SEQUENCE, snmp_client.identifier(name) +
                                           snmp_client.tagged(snmp_client.NULL, b""))
                        for name in names)
    pdu = snmp_client.tagged(snmp_client.PDU_GETBULK, b"".join(
        snmp_client.integer(value) for value in (1, 0, 1)) +
        snmp_client.tagged(snmp_client.SEQUENCE, bindings))
    return snmp_client.tagged(snmp_client.SEQUENCE, snmp_client.integer(1) + snmp_client.tagged(
        snmp_client.OCTETS, b"public") + pdu)


class Manager:
    """Sends one question again and again."""

    def __init__(self, port, names):
        self.question = bulkQuestion(names)
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(support.PATIENCE)
        self.socket.connect(("127.0.0.1", port))

    def answer(self):
        self.socket.send(self.question)
        return self.socket.recv(65536)


def keepAsking(port, longest, end):
    """Asks for something else, and notes the longest wait for an answer, until told to end."""
    manager = Manager(port, [UP_TIME])
    while not end.is_set():
        begin = time.perf_counter()
        manager.answer()
        waited = time.perf_counter() - begin
        with longest.get_lock():
            longest.value = max(longest.value, waited)
        time.sleep(OTHERS_PAUSE)


class Publications(support.SystemTest):
    """Of a size, in a store; `figures` is what became of it."""

    def __init__(self, store, causes, rounds):
        super().__init__()
        self.store, self.causes, self.rounds = store, causes, rounds
        self.publish, self.source = getattr(self, f"publishIn{store.capitalize()}"), None
        self.figures = None

    # What publishes, and returns the moment from which the change is under way to managers.

    def publishInFile(self, text):
        with open(self.source, "w") as file:
            json.dump(json.loads(text)[PATH], file)
        child = os.posix_spawn(support.KAVRA, [support.KAVRA, "--db", f"file:{self.database}",
                                               "put", PATH, self.source], os.environ)
        _, status = os.waitpid(child, 0)
        end = time.perf_counter()
        self.assertEqual(status, 0)
        return end

    def publishInRedis(self, text):
        fresh = self.source + ".fresh"
        with open(fresh, "w") as file:
            file.write(text)
        begin = time.perf_counter()
        os.rename(fresh, self.source)
        return begin

    def startProcess(self, _name, *command):
        process = support.Process(self.directory, *command)
        self.addCleanup(process.stopped)
        return process

    def startStore(self):
        self.source = self.path("source.json")
        with open(self.database if self.store == "file" else self.source, "w") as file:
            file.write(databaseText(0, self.causes))
        if self.store == "file":
            return {"db": f"file:{self.database}"}, []
        redis = redis_pair.Redis(self.directory, 1)
        self.addCleanup(redis.kill)
        self.startProcess("serve", support.KAVRA, "--db", redis.url, "--db-auth",
                          redis.auth("publisher"), "serve", self.source)
        return {"db": redis.url}, ["--db-auth", redis.auth("agent")]

    def startAgent(self):
        parameters, options = self.startStore()
        port = support.freePort()
        agent = self.startProcess("agent", support.AGENT, "--listen", f"udp:127.0.0.1:{port}",
                                  "--db", parameters["db"], *options)
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "the agent serves")
        self.assertFalse(agent.hasEnded(), agent.said())
        return port

    def startManagers(self, port):
        # What follows a row that is there is found without a walk.
        column = f"{support.ENTRY}.{support.DESCRIPTION}"
        self.manager = Manager(port, [f"{column}.{unit}.0.{cause}" for unit in (0, 1)
                                      for cause in (1, self.causes - 1)])
        self.longest, self.end = multiprocessing.Value("d", 0), multiprocessing.Event()
        other = multiprocessing.Process(target=keepAsking, args=(port, self.longest, self.end))
        other.start()
        self.addCleanup(other.join)
        self.addCleanup(self.end.set)

    def shows(self, number):
        """The moment of an answer that shows the reload; nothing for one that shows another."""
        answer = self.manager.answer()
        moment = time.perf_counter()
        count = answer.count(nameOf(number).encode())
        self.assertIn(count, (0, 4), "some rows are new and some are old")
        return moment if count == 4 else None

    def publication(self, number):
        text = databaseText(number, self.causes)
        with self.longest.get_lock():
            self.longest.value = 0
        begin = self.publish(text)
        deadline = begin + support.PATIENCE
        while not (seen := self.shows(number)):
            self.assertLess(time.perf_counter(), deadline)
            time.sleep(PAUSE)
        # The other one may be waiting for an answer still.
        time.sleep(2 * OTHERS_PAUSE)
        return seen - begin, self.longest.value

    def runTest(self):
        self.startManagers(self.startAgent())
        support.waitFor(lambda: self.shows(0), "the agent shows what stands already")
        found = [self.publication(number) for number in range(1, self.rounds + 1)]
        self.figures = {
            "store": self.store, "causes": self.causes,
            "firstRightAnswer": quantilesOf([seconds for seconds, _ in found]),
            "longestWaitOfAnother": quantilesOf([seconds for _, seconds in found])}


def quantilesOf(seconds):
    """In milliseconds."""
    ordered = sorted(seconds)

    def at(part):
        return round(ordered[min(len(ordered) - 1, int(part * len(ordered)))] * 1000, 3)
    return {"of": len(ordered), "p50": at(0.5), "p99": at(0.99), "worst": at(1)}
