"""Fixtures of the system tests: a state database written by kavra, agents, SNMP managers."""

import contextlib
import datetime
import json
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
PROGRAMS = os.environ.get("PROGRAMS", os.path.join(ROOT, "build/release/bin"))
AGENT = os.environ.get("NORVEK_SNMPD", os.path.join(PROGRAMS, "norvek-snmpd"))
KAVRA = os.environ.get("KAVRA", os.path.join(PROGRAMS, "kavra"))
SNMPD = os.environ.get("SNMPD", shutil.which("snmpd", path="/usr/sbin:/usr/bin:/sbin:/bin"))
SNMPD_MODULE = os.environ.get("SNMPD_MODULE", os.path.join(os.path.dirname(PROGRAMS),
                                                           "lib/norvek.so"))

ENTRY = "1.3.6.1.4.1.32473.3.24.1.1.1"
SYSTEM = "1.3.6.1.2.1.1"
DESCRIPTION = 4
TIME = 5
PATIENCE = 20  # seconds that anything may take on a busy machine

LINE = re.compile(r"^\.([0-9.]+) = (.*)$")
EXCEPTIONS = {"No Such Object available on this agent at this OID": "noSuchObject",
              "No Such Instance currently exists at this OID": "noSuchInstance",
              "No more variables left in this MIB View (It is past the end of the MIB tree)":
                  "endOfMibView"}


def freePort():
    with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def isSanitized():
    """Whether the agent is of a build with sanitizers, which bring an allocator of their own."""
    with open(AGENT, "rb") as program:
        return b"__asan_init" in program.read()


def waitFor(condition, what):
    """The first true answer of the condition, which paces itself or is looked at often."""
    deadline = time.monotonic() + PATIENCE
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {PATIENCE} s: {what}")
        time.sleep(0.005)


def dateAndTime(seconds):
    """The eleven octets of a reload's time: UTC, whole seconds."""
    moment = datetime.datetime.fromtimestamp(int(seconds), datetime.timezone.utc)
    return moment.year.to_bytes(2, "big") + bytes(
        [moment.month, moment.day, moment.hour, moment.minute, moment.second, 0, ord("+"), 0, 0])


def octets(text):
    return text if isinstance(text, bytes) else text.encode()


def rowsOf(unit, causes):
    """The rows of one unit, {(unit, reload, cause): (description, time)}."""
    return {(unit, 0, number): (octets(text), dateAndTime(at))
            for number, (text, at) in enumerate(causes, 1)}


def expectations(rows):
    """Every instance in the order of a walk: (object identifier, octets)."""
    return [(f"{ENTRY}.{column}." + ".".join(map(str, key)), rows[key][column - DESCRIPTION])
            for column in (DESCRIPTION, TIME) for key in sorted(rows)]


class Manager:
    """net-snmp's commands, read-only by name: every answer is (object identifier, value) with the
    octets of a string, the name of an exception, or the text of anything else."""

    def __init__(self, address, *access):
        self.address = address
        self.access = access or ("-v2c", "-c", "public")

    def run(self, command, *arguments, patience=2):
        return subprocess.run(
            [command, *self.access, "-m", "", "-On", "-Ox", "-r", "3", "-t", str(patience),
             *self.options(arguments), self.address, *self.operands(arguments)],
            text=True, capture_output=True, timeout=4 * PATIENCE, check=False)

    @staticmethod
    def options(arguments):
        return [argument for argument in arguments if argument.startswith("-")]

    @staticmethod
    def operands(arguments):
        return [argument for argument in arguments if not argument.startswith("-")]

    @staticmethod
    def parse(output):
        answers = []
        # Long values go on in the next line; version 1 has no value that says where the table ends.
        output = output.replace("\nEnd of MIB\n", "\n")
        for line in re.sub(r"\n(?!\.)", "", output).splitlines():
            name, text = LINE.match(line).groups()
            if text in EXCEPTIONS:
                value = EXCEPTIONS[text]
            elif text.startswith("Hex-STRING: "):
                value = bytes.fromhex(text[len("Hex-STRING: "):])
            elif text == '""':
                value = b""
            else:
                value = text
            answers.append((name, value))
        return answers

    def get(self, *names):
        return self.parse(self.run("snmpget", *names).stdout)

    def next(self, *names):
        return self.parse(self.run("snmpgetnext", *names).stdout)

    def bulk(self, name, repetitions):
        return self.parse(self.run("snmpbulkget", f"-Cr{repetitions}", name).stdout)

    def walk(self, name=ENTRY, command="snmpbulkwalk"):
        """A walk; nothing when the subtree is empty, AssertionError when the agent is silent."""
        result = self.run(command, name)
        if result.returncode != 0:
            raise AssertionError(result.stderr + result.stdout)
        return [answer for answer in self.parse(result.stdout)
                if answer[1] not in EXCEPTIONS.values()]

    def rows(self):
        found = {}
        for name, value in self.walk():
            column, *key = (int(part) for part in name[len(ENTRY) + 1:].split("."))
            found.setdefault(tuple(key), {})[column] = value
        return {key: (columns.get(DESCRIPTION), columns.get(TIME))
                for key, columns in found.items()}

    def set(self, name, kind, value):
        return self.run("snmpset", name, kind, value)


def agentForAnyone(directory):
    """A copy of the agent that any user may run, wherever the tree is."""
    libraries = os.path.join(os.path.dirname(PROGRAMS), "lib")
    for source, name in ((PROGRAMS, "bin"), (libraries, "lib")):
        copy = os.path.join(directory, name)
        os.mkdir(copy, 0o755)
        for file in os.listdir(source):
            if file == "norvek-snmpd" or ".so" in file:
                shutil.copy(os.path.join(source, file), copy)
    return os.path.join(directory, "bin/norvek-snmpd")


class Process:
    """A child whose standard output and error are kept in a file."""

    def __init__(self, directory, *command):
        self.log = tempfile.NamedTemporaryFile(dir=directory, suffix=".log")
        self.child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.log,
                                      stderr=subprocess.STDOUT, cwd=directory)

    def said(self):
        with open(self.log.name, errors="replace") as log:
            return log.read()

    def hasEnded(self):
        return self.child.poll() is not None

    def ended(self):
        """The exit status of a process that ends by itself."""
        return self.child.wait(PATIENCE)

    def stopped(self, how=signal.SIGTERM):
        """The exit status after a signal, or of a process that had ended."""
        if not self.hasEnded():
            self.child.send_signal(how)
        return self.ended()

    def close(self):
        if not self.hasEnded():
            self.child.kill()
        self.child.wait()
        self.log.close()


class Agent(Process):
    def __init__(self, directory, *options, cell=1, db="file:kavra.json", address=None):
        self.port = freePort()
        self.address = address or f"udp:127.0.0.1:{self.port}"
        super().__init__(directory, AGENT, "--cell-id", str(cell), "--db", db, "--listen",
                         self.address, *options)
        self.manager = Manager(self.address)

    def isReady(self):
        return " serves " in self.said()


class StatusWatch(threading.Thread):
    """Asks a host all the time what it serves: the longest answer is the longest standstill."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path = path
        self.longest = 0.0
        self.rows = {}
        self.ended = threading.Event()
        self.start()

    def run(self):
        while not self.ended.wait(0.01):
            begun = time.monotonic()
            with socket.socket(socket.AF_UNIX) as reader:
                reader.connect(self.path)
                with reader.makefile("rb") as answer:
                    self.rows = json.loads(answer.read())["rows"]
            self.longest = max(self.longest, time.monotonic() - begun)

    def end(self):
        self.ended.set()
        self.join(PATIENCE)


class SystemTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.directory = self.temporary.name
        self.database = os.path.join(self.directory, "kavra.json")

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text):
        """Replaces a file as a whole, as every writer of a state database does."""
        fresh = self.path(name + ".fresh")
        with open(fresh, "wb") as file:
            file.write(octets(text))
        os.replace(fresh, self.path(name))
        return self.path(name)

    def kavra(self, *arguments, text=None):
        result = subprocess.run([KAVRA, "--db", "file:kavra.json", *arguments], text=True,
                                input=text, capture_output=True, cwd=self.directory, check=False,
                                timeout=PATIENCE)
        said = re.sub(r"^kavra: created \S+\n", "", result.stderr)
        self.assertEqual((result.returncode, said), (0, ""), arguments)
        return result.stdout

    def recordReset(self, cell, causes):
        arguments = [part for text, at in causes for part in ("--cause", text, "--time", str(at))]
        self.kavra("record-reset", "--cell", str(cell), *arguments)

    def addCause(self, cell, text, at):
        self.kavra("add-cause", "--cell", str(cell), "--cause", text, "--time", str(at))

    def setRedundancy(self, cell, protocol=None, capable=None):
        arguments = [] if protocol is None else ["--protocol", str(protocol)]
        if capable is not None:
            arguments += ["--switchover-capable", "true" if capable else "false"]
        self.kavra("set-redundancy", "--cell", str(cell), *arguments)

    def putHistory(self, cell, reloads):
        """Publishes {index: [(description, time)]} as the history of a cell."""
        document = {"type": "System::ResetCauseHistory", "rebootHistory": {
            str(index): {"causeQ": [{"description": text, "time": at} for text, at in causes]}
            for index, causes in reloads.items()}}
        self.kavra("put", f"cell/{cell}/sys/reset/history", text=json.dumps(document))

    def start(self, *options, **parameters):
        """An agent that serves already."""
        agent = Agent(self.directory, *options, **parameters)
        self.addCleanup(agent.close)
        waitFor(lambda: agent.isReady() or agent.hasEnded(), "the agent serves")
        self.assertFalse(agent.hasEnded(), agent.said())
        return agent

    def assertRows(self, agent, rows, when=""):
        """The agent shows exactly these rows, at the latest after a while."""
        found = agent.manager.rows()
        deadline = time.monotonic() + PATIENCE
        while found != rows and time.monotonic() < deadline:
            found = agent.manager.rows()
        self.assertEqual(found, rows, when)


def seeded():
    """Random numbers that a failure tells how to repeat: MISCSNMP_RANDOM_SEED."""
    seed = int(os.environ.get("MISCSNMP_RANDOM_SEED", random.randrange(2**32)))
    print(f"MISCSNMP_RANDOM_SEED={seed}", flush=True)
    return random.Random(seed)
