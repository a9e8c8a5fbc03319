"""What is measured, part by part: each gives what it found as JSON, and none knows another one."""

import contextlib
import json
import os
import re
import subprocess
import tempfile
import time
from dataclasses import dataclass

import agents
import flame
from figures import rounded  # noqa: F401  (for who writes what was found)

SIZES = (4, 100, 1000, 10000, 100000)


@dataclass(frozen=True)
class Effort:
    """How much is measured: the whole, or just enough to see that everything works."""
    starts: int  # of an agent for each size and store
    rounds: int  # for each of them
    blocks: int  # in a round
    firstAnswers: int
    repetitions: int  # of a benchmark
    publications: int
    settling: float  # seconds before an idle agent is watched
    seconds: float  # in which it is


WHOLE = Effort(starts=4, rounds=3, blocks=3, firstAnswers=7, repetitions=6, publications=500,
               settling=10, seconds=36)
QUICK = Effort(starts=1, rounds=2, blocks=1, firstAnswers=1, repetitions=1, publications=10,
               settling=1, seconds=2)


def requests(kind, effort):
    """The table beside its anchors: rounds for each size."""
    found = {}
    for rows in SIZES:
        with agents.store(kind, rows) as options:
            rounds = []
            for start in range(effort.starts):
                with agents.Agent(options, rows, (agents.TABLE, agents.ANCHORS)) as agent:
                    agent.awaited()
                    rounds += [{"start": start, **found} for found in agent.ask(
                        agents.CORE, "--pid", str(agent.process.pid), "--rounds",
                        str(effort.rounds), "--blocks", str(effort.blocks))]
        found[str(rows)] = rounds
    return found


def anonymousOctets(pid):
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        return int(re.search(r"^Anonymous:\s+(\d+) kB$", file.read(), re.MULTILINE).group(1)) * 1024


def firstAnswer(options, rows):
    begin = time.monotonic_ns()
    with agents.Agent(options, rows) as agent:
        return {"ms": (agent.awaited() - begin) / 1e6,
                "octets": anonymousOctets(agent.process.pid)}


def start(effort):
    """From the start of an agent to its first answer, and the memory that it has taken by then."""
    found = {}
    for kind in agents.STORES:
        found[kind] = {}
        for rows in SIZES:
            with agents.store(kind, rows) as options:
                found[kind][str(rows)] = [firstAnswer(options, rows)
                                          for _ in range(effort.firstAnswers)]
    return found


def benchmarks(effort):
    """The repetitions of each benchmark, in nanoseconds, and its counters."""
    found = {}
    for program in ("RbTreeMapBench", "ReloadCauseTableBench", "RebuildBench"):
        told = subprocess.run(
            agents.pinnedTo(agents.CORE, [
                os.path.join(agents.PROGRAMS, program), "--benchmark_format=json",
                "--benchmark_min_time=0.05", f"--benchmark_repetitions={effort.repetitions}",
                "--benchmark_enable_random_interleaving=true"]),
            check=True, capture_output=True, text=True).stdout
        for run in json.loads(told)["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            entry = found.setdefault(run["run_name"], {"ns": []})
            entry["ns"].append(run["cpu_time"])
            entry.update({name: run[name] for name in ("steps", "octets") if name in run})
    return found


# The functions of ours that net-snmp calls, of each table.
CALLBACKS = {"ours": ("norvekReloadCauseTable_*",),
             "sorted": ("Bench::(anonymous namespace)::first*", "Bench::(anonymous namespace)::next*",
                        "Bench::(anonymous namespace)::handleRows*")}
COUNTED_ROWS = 100
FEW, MANY = 200, 600  # values: the table once, and three times


def collected(subject, values):
    """The instructions in the callbacks of an agent that answers for so many values."""
    with agents.store("file", COUNTED_ROWS) as options, \
            tempfile.TemporaryDirectory() as directory:
        under = ["valgrind", "--tool=callgrind", f"--log-file={directory}/log",
                 f"--callgrind-out-file={directory}/profile",
                 *(f"--toggle-collect={name}" for name in CALLBACKS[subject])]
        with agents.Agent(options, COUNTED_ROWS, (agents.TABLE, agents.ANCHORS), under) as agent:
            agent.awaited()
            agent.ask(agents.CORE, "--walk", subject, "--values", str(values))
        with open(f"{directory}/log", encoding="utf-8") as log:
            return int(re.search(r"Collected : (\d+)", log.read()).group(1))


def instructions(_):
    """What the callbacks take for a GETNEXT of one varbind in a walk, counted by callgrind."""
    return {subject: (collected(subject, MANY) - collected(subject, FEW)) / (MANY - FEW)
            for subject in CALLBACKS}


def saturated(effort):
    """Answers a second of a busy agent beside those of Debian's snmpd."""
    rounds = max(6, effort.repetitions) if effort is WHOLE else 1
    told = subprocess.run([os.path.join(agents.PROGRAMS, "Saturated"), "--programs",
                           agents.PROGRAMS, "--rounds", str(rounds)],
                          check=True, capture_output=True, text=True).stdout
    return json.loads(told)


def publications(effort):
    """From a publication to the first answer that shows it."""
    with tempfile.NamedTemporaryFile("r", suffix=".json") as file:
        run = subprocess.run([os.path.join(agents.ROOT, "bench/latency"), str(effort.publications),
                              "--json", file.name], check=False, capture_output=True, text=True)
        if run.returncode != 0:
            raise RuntimeError(run.stderr)
        return json.load(file)


@contextlib.contextmanager
def watched(pid):
    """A file in which each system call of a process has a line, its threads' included."""
    with tempfile.NamedTemporaryFile("r") as told:
        watcher = subprocess.Popen(["strace", "-f", "-o", told.name, "-p", str(pid)],
                                   stderr=subprocess.PIPE, text=True)
        try:
            if "attached" not in watcher.stderr.readline():
                raise RuntimeError("strace cannot attach")
            yield told
        finally:
            watcher.terminate()
            watcher.wait()
            watcher.stderr.close()


def callsIn(trace):
    """How many calls returned, of those that strace wrote down."""
    return len(re.findall(r" = (?:-?\d+|0x[0-9a-f]+|\?)(?: .*)?$", trace, re.MULTILINE))


def idle(effort):
    """System calls a second of agents that nobody asks anything, one on each kind of store."""
    with contextlib.ExitStack() as stack:
        processes = {}
        for kind in agents.STORES:
            options = stack.enter_context(agents.store(kind, 20))
            agent = stack.enter_context(agents.Agent(options, 20))
            agent.awaited()
            processes[kind] = agent.process.pid
        # A file that was written just now is read once more before its time can be trusted.
        time.sleep(effort.settling)
        traces = {kind: stack.enter_context(watched(pid)) for kind, pid in processes.items()}
        time.sleep(effort.seconds)
        return {kind: callsIn(trace.read()) / effort.seconds for kind, trace in traces.items()}


PARTS = {
    "requests-file": lambda effort: requests("file", effort),
    "requests-redis": lambda effort: requests("redis", effort),
    "start": start,
    "benchmarks": benchmarks,
    "instructions": instructions,
    "flame": lambda _: flame.measured(),
    "saturated": saturated,
    "publications": publications,
    "idle": idle,
}
