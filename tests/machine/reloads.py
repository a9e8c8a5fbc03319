"""Runs reloads on machines side by side, and keeps what they told."""

import contextlib
import json
import os
import queue
import random
import shutil
import sys
import threading
import time

import told
import vm
from prepared import Prepared
from ways import ASKED, ASKED_BY_CONTROLLER, BY_NAME, PANIC, WAYS


class Results:
    """A line of JSON for each reload, kept as soon as it is there; a row for the reader."""

    def __init__(self, folder, name, goesOn):
        self.path = os.path.join(folder, f"{name}.jsonl")
        self.lock = threading.Lock()
        self.rows = []
        if not goesOn:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(self.path)
        elif os.path.exists(self.path):
            with open(self.path, encoding="utf-8") as file:
                self.rows = [json.loads(line) for line in file]

    def numbers(self):
        return {row["number"] for row in self.rows}

    def add(self, row):
        with self.lock:
            self.rows.append(row)
            with open(self.path, "a", encoding="utf-8") as file:
                file.write(json.dumps(row) + "\n")
            show(row)


def show(row):
    """A row of the table: way, expected, seen by SNMP, by kavra show, time error, seconds."""
    error = row.get("error")
    columns = [row["way"], row["expected"], row.get("snmp", "-"), row.get("show", "-"),
               "in the window" if error is None else f"{error:+.2f} s", f"{row['seconds']:.0f} s"]
    print(" | ".join(columns), flush=True)
    for wrong in row["wrong"]:
        print(f"    WRONG: {wrong}", flush=True)


def text(causes):
    return causes[0][0] if causes else "nothing"


class Reloader:
    """Takes one machine down, as often as there is something to do."""

    def __init__(self, name, prepared, folder, results):
        self.name, self.results = name, results
        self.machine = prepared.copy(os.path.join(folder, name))
        self.reader = told.manager(self.machine.port, prepared.phrases)

    def run(self, tasks):
        with contextlib.closing(self.machine):
            self.machine.awaitBoot()
            told.ask(self.machine, self.reader)
            while True:
                try:
                    number, way = tasks.get_nowait()
                except queue.Empty:
                    break
                self.results.add(self.reload(number, way))
            if self.machine.isOn():
                self.machine.powerOff()

    def reload(self, number, way):
        begin = time.monotonic()
        tag = str(number)
        row = {"number": number, "way": way.name, "machine": self.name,
               "expected": way.text.replace("{tag}", tag), "wrong": []}
        try:
            row |= self.look(way, tag)
        except vm.Trouble as trouble:
            row["wrong"] = [str(trouble)]
            self.startAnew()
        return row | {"seconds": round(time.monotonic() - begin, 1)}

    def look(self, way, tag):
        machine = self.machine
        before = machine.boot
        machine.compareClocks()
        machine.resetMoment()
        moment = way.deed(machine, tag)
        machine.awaitBoot()
        took = max(0.0, (machine.done or moment) - moment)
        if way.moment == ASKED_BY_CONTROLLER:
            moment -= machine.ahead
        elif way.moment != ASKED:
            moment, took = self.seen(way.moment) or moment, 0.0
        moment += way.later
        answer = told.ask(machine, self.reader)
        cause = answer["find"]["causes"][0]
        return {"snmp": text(answer["snmp"]), "show": text(answer["show"]),
                "confidence": cause["confidence"], "moment": moment, "took": took,
                "error": told.timeError(way, moment, cause, answer["find"]["boots"]["start"]),
                "wrong": told.wrongs(way, tag, moment, took, answer, (before, machine.boot)),
                "up": machine.upSeconds, "told": answer}

    def seen(self, moment):
        """When that was, as it was seen from outside; null where nothing was seen."""
        if moment == PANIC:
            return self.machine.panicMoment()
        reset = self.machine.resetMoment()
        return reset and reset + self.machine.ahead

    def startAnew(self):
        """After trouble: the disk is kept."""
        self.machine.cut()
        self.machine.awaitBoot()


def tasksOf(arguments):
    """What is to be done, and the name of its results."""
    if arguments.random:
        choice = random.Random(arguments.seed)
        ways = [BY_NAME[name] for name in arguments.only] if arguments.only else WAYS
        return f"random-{arguments.seed}", [choice.choice(ways) for _ in range(arguments.random)]
    if arguments.smoke:
        return "smoke", [BY_NAME["sysrq-c"]]
    if arguments.only:
        return "only", [BY_NAME[name] for name in arguments.only]
    return "each", WAYS


def run(arguments):
    begin = time.monotonic()
    name, ways = tasksOf(arguments)
    folder = arguments.results
    os.makedirs(folder, exist_ok=True)
    prepared = Prepared(folder, arguments.packages)
    print(f"apt install took {prepared.install['installed']} s, until the first answer "
          f"{prepared.install['answered']} s: {prepared.install['first']}", flush=True)
    results = Results(folder, name, arguments.goesOn)
    tasks = queue.Queue()
    for number, way in enumerate(ways, 1):
        if number not in results.numbers():
            tasks.put((number, way))
    troubles = runSideBySide(arguments, name, prepared, results, tasks)
    wrong = sum(1 for row in results.rows if row["wrong"])
    print(f"{len(results.rows)} of {len(ways)} reloads, {wrong} told wrongly, "
          f"{time.monotonic() - begin:.0f} s")
    return 1 if wrong or troubles or len(results.rows) < len(ways) else 0


def runSideBySide(arguments, name, prepared, results, tasks):
    """As many machines as there is work for; returns what went wrong with them."""
    troubles = []

    def work(reloader):
        try:
            reloader.run(tasks)
        except Exception as trouble:  # of any kind: it ends this machine, and is told
            troubles.append(trouble)
            print(f"{reloader.name}: {trouble!r}", file=sys.stderr, flush=True)

    threads = []
    for number in range(1, min(arguments.machines, tasks.qsize()) + 1):
        folder = os.path.join(arguments.results, name)
        if not arguments.goesOn:
            shutil.rmtree(os.path.join(folder, f"machine{number}"), ignore_errors=True)
        reloader = Reloader(f"machine{number}", prepared, folder, results)
        threads.append(threading.Thread(target=work, args=(reloader,), daemon=True))
        threads[-1].start()
    for thread in threads:
        thread.join()
    return troubles
