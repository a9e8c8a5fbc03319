"""Devices with a supervisor or two: their databases, their agents, and how they reload."""

import json
import os
import time
from dataclasses import dataclass, field

from processes import Process

PORT = 1161
KEPT = 10  # reloads in a history

UNREQUESTED, UNEXPLAINED = "NorvekReloadUnrequested", "NorvekReloadUnexplained"
# What a reload is for, by the alert that it calls for: of most, somebody should hear.
FIRST_CAUSES = (
    ("Supervisor lost power", UNREQUESTED), ("Watchdog expired", UNREQUESTED),
    ("Kernel panic: \"not syncing\", {0} | 50%", UNREQUESTED), ("Überhitzung", UNREQUESTED),
    ("The cause is unknown", UNEXPLAINED), ("Reload requested by the user", None))
FURTHER_CAUSES = ("Fan failure", "Temperature above limit")
POWER_CUT = "Supervisor lost power"


@dataclass(frozen=True)
class Reload:
    device: str
    cell: str
    time: int
    causes: tuple
    alert: str | None
    made: float  # when the database told of it; its time is in whole seconds

    def key(self):
        return self.device, self.cell, self.time


@dataclass
class Cell:
    """A supervisor with its database in a file. Nobody else writes there."""
    device: str
    number: int
    address: str
    folder: str
    hasPeer: bool
    history: list = field(default_factory=list)

    def file(self, name, number=None):
        """In a folder of the cell's own: a change in a folder wakes all who watch that."""
        folder = os.path.join(self.folder, f"{self.device}-{number or self.number}")
        return os.path.join(folder, name)

    def database(self):
        return self.file("kavra.json")

    def reload(self, causes, at):
        self.history = [(causes, at)] + self.history[:KEPT - 1]
        prefix = f"cell/{self.number}"
        documents = {f"{prefix}/sys/reset/history": {
            "type": "System::ResetCauseHistory",
            "rebootHistory": {str(index): {"causeQ": [
                {"description": text, "time": when} for text in texts]}
                for index, (texts, when) in enumerate(self.history)}}}
        if self.hasPeer:
            documents[f"{prefix}/redundancy/status"] = {
                "type": "Redundancy::RedundancyStatus", "protocol": 3, "switchoverCapable": True}
        fresh = self.database() + ".fresh"
        with open(fresh, "w", encoding="utf-8") as file:
            json.dump(documents, file, ensure_ascii=False)
        os.replace(fresh, self.database())

    def files(self):
        """How many files its agent follows, each with an inotify instance."""
        return 2 if self.hasPeer else 1

    def start(self, program):
        peer = (["--peer-db", "file:" + self.file("kavra.json", 3 - self.number)]
                if self.hasPeer else [])
        return Process(self.file("agent.log"), program, "--cell-id", str(self.number), "--db",
                       "file:" + self.database(), *peer, "--listen",
                       f"udp:{self.address}:{PORT}", "--status-socket", self.file("status.sock"))


def cellsOf(count, folder):
    """So many cells: half of them in pairs."""
    paired = count // 2 // 2 * 2
    cells = []
    for index in range(count):
        hasPeer = index < paired
        device, number = (index // 2, index % 2 + 1) if hasPeer else (index - paired // 2, 1)
        address = f"127.77.{index // 250}.{index % 250 + 1}"
        cells.append(Cell(f"box-{device:04}", number, address, folder, hasPeer))
    return cells


class Reloads:
    """Has the cells reload, and remembers what was made."""

    def __init__(self, cells, interval, dice):
        self.cells = cells
        self.interval = interval
        self.dice = dice
        self.made = []
        for cell in cells:
            os.makedirs(os.path.dirname(cell.database()))
        for cell in cells:  # once, long ago: no news for anybody
            cell.reload(["Supervisor lost power"], int(time.time()) - dice.randrange(7200, 10**7))

    def pause(self):
        """Two scrapes at least, so that one of them sees each reload."""
        return self.interval * (2.2 + self.dice.expovariate(1 / 6))

    def drive(self, seconds, check):
        """At random for so long. Asks `check` about each second whether to go on."""
        begin = time.monotonic()
        due = {index: begin + self.dice.uniform(0, self.pause()) for index in
               range(len(self.cells))}
        while time.monotonic() < begin + seconds:
            now = time.monotonic()
            for index, when in due.items():
                if when <= now:
                    self.make(self.cells[index], *self.dice.choice(FIRST_CAUSES))
                    due[index] = time.monotonic() + self.pause()
            check()
            time.sleep(max(0.0, min(1.0, min(due.values()) - time.monotonic())))

    def cutPower(self):
        """All cells at once, as a site whose power was cut."""
        return [self.make(cell, POWER_CUT, UNREQUESTED) for cell in self.cells]

    def make(self, cell, cause, alert):
        causes = (cause,)
        if self.dice.random() < 0.2:
            causes += (self.dice.choice(FURTHER_CAUSES),)
        at = int(time.time())
        cell.reload(causes, at)
        self.made.append(Reload(cell.device, str(cell.number), at, causes, alert, time.time()))
        return self.made[-1]
