"""Agents over each kind of store, with a table of any size."""

import contextlib
import json
import os
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.join(ROOT, "build/bench")
PROGRAMS = os.path.join(BUILD, "bin")
os.environ["PROGRAMS"] = PROGRAMS
sys.path.insert(0, os.path.join(ROOT, "tests/system"))
import redis_pair  # noqa: E402  (needs the path and PROGRAMS above)
import support  # noqa: E402

TABLE = os.path.join(BUILD, "lib/libMiscSnmp.so")
ANCHORS = os.path.join(BUILD, "lib/libBenchAnchors.so")
CLIENT = os.path.join(PROGRAMS, "bench_client")
HISTORY = "cell/1/sys/reset/history"
FIRST_TIME = 1700000000

CORES = sorted(os.sched_getaffinity(0))
# Client and agent share a core where the agent's share of a request is to be seen; what only waits
# for the agent has the other one.
CORE = CORES[-1]
OTHER_CORE = CORES[0]


def causesOf(rows):
    """A supervisor shows each cause under two units."""
    return rows // 2


def history(rows):
    queue = [{"description": f"Power supply {cause:05} failed", "time": FIRST_TIME + cause}
             for cause in range(1, causesOf(rows) + 1)]
    return {"type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": queue}}}


def pinnedTo(core, command):
    return ["taskset", "--cpu-list", str(core), *command]


@contextlib.contextmanager
def fileStore(directory, rows):
    path = os.path.join(directory, "kavra.json")
    with open(path, "w", encoding="utf-8") as file:
        json.dump({HISTORY: history(rows)}, file)
    yield ["--db", f"file:{path}"]


@contextlib.contextmanager
def redisStore(directory, rows):
    redis = redis_pair.Redis(directory, 1)
    try:
        subprocess.run([support.KAVRA, "--db", redis.url, "--db-auth", redis.auth("publisher"),
                        "put", HISTORY], input=json.dumps(history(rows)), text=True, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        yield ["--db", redis.url, "--db-auth", redis.auth("agent")]
    finally:
        redis.kill()


STORES = {"file": fileStore, "redis": redisStore}


@contextlib.contextmanager
def store(kind, rows):
    """The options of an agent that follows a store of this kind, which holds so many rows."""
    with tempfile.TemporaryDirectory() as directory, STORES[kind](directory, rows) as options:
        yield options


class Agent:
    """On a core of its own choice; ended by its context."""

    def __init__(self, options, rows, plugins=(TABLE,), under=(), program=support.AGENT):
        """Under: the words in front of the command, of what looks at it."""
        self.port = support.freePort()
        self.rows = rows
        command = [*under, program, *options, "--listen", f"udp:127.0.0.1:{self.port}"]
        for plugin in plugins:
            command += ["--plugin", plugin]
        self.log = tempfile.TemporaryFile(mode="w+")
        environment = {**os.environ, "BENCH_CAUSES": str(causesOf(rows))}
        self.process = subprocess.Popen(pinnedTo(CORE, command), stdin=subprocess.DEVNULL,
                                        stdout=self.log, stderr=self.log, env=environment)

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.process.terminate()
        try:
            self.process.wait(support.PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()

    def client(self, *arguments):
        return [CLIENT, "--port", str(self.port), "--rows", str(self.rows), *arguments]

    def ask(self, core, *arguments):
        """What the client prints, or an error with what client and agent said."""
        run = subprocess.run(pinnedTo(core, self.client(*arguments)), capture_output=True,
                             text=True, check=False)
        if run.returncode != 0:
            self.log.seek(0)
            raise RuntimeError(f"{run.stderr.strip()}; the agent: {self.log.read().strip()}")
        return json.loads(run.stdout)

    def awaited(self):
        """The moment of its first answer, in nanoseconds of CLOCK_MONOTONIC."""
        return self.ask(OTHER_CORE, "--await")
