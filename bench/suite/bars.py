"""What was found beside what was asked for."""

import statistics
from dataclasses import dataclass
from typing import Optional

import flame
from figures import Bar, Figure, atLeast, atMost, median, ratio, startsOf

OURS, SCALAR, TDATA, SORTED, MAP = "ours", "scalar", "tdata", "sorted", "map"
STORES = {"file": "requests-file", "redis": "requests-redis"}

# What is compared, the measure of a round, with whom, and the bar.
REQUESTS = (
    ("GET, latency ÷ lean iterator", "get_us", SORTED, atMost(1.03)),
    ("GETNEXT, latency ÷ lean iterator", "getnext_us", SORTED, atMost(1.03)),
    ("GETNEXT walk, values a second ÷ lean iterator", "walk_values", SORTED, atLeast(0.97)),
    ("GETNEXT walk, values a second ÷ scalar", "walk_values", SCALAR, atLeast(0.98)),
    ("GETBULK 10, values a second ÷ lean iterator", "bulk10_values", SORTED, atLeast(1)),
    ("GETBULK 10, values a second ÷ tdata", "bulk10_values", TDATA, atLeast(0.95, wanted=True)),
    ("GETBULK 50, values a second ÷ lean iterator", "bulk50_values", SORTED, atLeast(1)),
    ("GETBULK 50, values a second ÷ tdata", "bulk50_values", TDATA, atLeast(0.9, wanted=True)),
    ("GETNEXT, agent's processor time ÷ scalar", "getnext_cpu_us", SCALAR, atMost(1.08)),
)


@dataclass(frozen=True)
class Row:
    what: str
    figure: Figure
    bar: Optional[Bar] = None
    unit: str = ""
    rows: Optional[int] = None  # of the table

    def verdict(self):
        return self.bar.verdict(self.figure) if self.bar else ""


# What the anchors make of the bars that are set by the scalar.
ANCHORS = (
    ("GETNEXT walk, values a second: lean iterator ÷ scalar", "walk_values", SORTED, SCALAR),
    ("GETNEXT, agent's processor time: lean iterator ÷ scalar", "getnext_cpu_us", SORTED, SCALAR),
)


def requestRows(found):
    """Of one store; `found` holds the rounds of each size."""
    for what, measure, other, bar in REQUESTS:
        yield from ratioRows(found, what, measure, OURS, other, bar)
    for what, measure, subject, other in ANCHORS:
        yield from ratioRows(found, what, measure, subject, other, None)


def ratioRows(found, what, measure, subject, other, bar):
    for size, rounds in found.items():
        if measure in rounds[0]:
            yield Row(what, ratio(rounds, measure, subject, other), bar, rows=int(size))


def stepRows(found):
    """What each row costs that a GET of a missing one walks over, in the whole agent."""
    for subject, title, bar in ((OURS, "the table", atMost(70)), (MAP, "a map", None)):
        for size, rounds in found.items():
            if "miss_us" in rounds[0]:
                steps = [(each["miss_us"][subject] - each["get_us"][OURS]) * 1000 / int(size)
                         for each in rounds]
                yield Row(f"a step of the walk of a GET that misses, in the agent: {title}",
                          median(steps, startsOf(rounds)), bar, " ns", int(size))


def benchmarkRows(found):
    walk = found["ReachLastRow/FromFirst/65536"]
    yield Row("a step of the walk, in the table's callbacks",
              median([ns / walk["steps"] for ns in walk["ns"]]), atMost(70), " ns", 65536)
    for size in (100, 10000):
        for what in ("Insert", "Delete"):
            pairs = zip(found[f"{what}<QelMap>/{size}"]["ns"], found[f"{what}<StdMap>/{size}"]["ns"])
            yield Row(f"{what} a row ÷ std::map of shared pointers",
                      median([ours / theirs for ours, theirs in pairs]), atMost(1), rows=size)
    row = found["RowMemory/10000"]
    yield Row("memory a row, from the allocator", Figure.exact(row["octets"]), atMost(128),
              " octets", 10000)


def instructionRows(found):
    for subject, title, bar in ((OURS, "the table", atMost(1000)),
                                (SORTED, "lean iterator", None)):
        yield Row(f"instructions in the callbacks a GETNEXT varbind: {title}",
                  Figure.exact(found[subject]), bar, rows=100)


def flameRows(found):
    yield Row("instructions of the agent a GETNEXT, without the system's", Figure.exact(
        found["instructions"]), rows=flame.ROWS)
    for owner, instructions in flame.byOwner(found["frames"]).most_common():
        yield Row(f"of them in {owner}", Figure.exact(instructions), rows=flame.ROWS)


def saturatedRows(found):
    for subject, title, bar in (("table", "the table", atLeast(2.2)), ("scalar", "a scalar", None)):
        for key, what in (("ratio", "answers a second"),
                          ("ratioOfProcessorTime", "answers a second of processor time")):
            yield Row(f"{what}, saturated: {title} ÷ a scalar of Debian's snmpd",
                      median(found[subject][key]["rounds"]), bar if key == "ratio" else None)


# (store, causes): the bars of the first right answer (p50, p99), and of the longest wait of another
# manager meanwhile.
PUBLICATIONS = {("file", 10): (atMost(0.4), atMost(1.5), None),
                ("redis", 10): (atMost(1), atMost(3), None),
                ("file", 10000): (atMost(150), None, atMost(50)),
                ("redis", 10000): (atMost(150), None, atMost(50))}


def publicationRows(found):
    for entry in found["publications"]:
        p50, p99, other = PUBLICATIONS[entry["store"], entry["causes"]]
        where = f"{entry['store']}, {entry['causes']} causes"
        first, longest = entry["firstRightAnswer"], entry["longestWaitOfAnother"]
        yield Row(f"from publication to answer, {where}: p50", Figure.exact(first["p50"]), p50,
                  " ms")
        yield Row(f"from publication to answer, {where}: p99", Figure.exact(first["p99"]), p99,
                  " ms")
        yield Row(f"longest wait of another manager, {where}", Figure.exact(longest["worst"]),
                  other, " ms")


def idleRows(found):
    for kind, bar in (("file", atMost(1)), ("redis", atMost(6))):
        yield Row(f"system calls a second of an idle agent, {kind}", Figure.exact(found[kind]), bar)


def startRows(found):
    """Time to the first answer, and what a row adds to the memory of the process."""
    for kind, sizes in found.items():
        for size, runs in sizes.items():
            yield Row(f"start to first answer, {kind}", median([run["ms"] for run in runs]),
                      unit=" ms", rows=int(size))
        small, large = min(sizes, key=int), max(sizes, key=int)
        octets = [statistics.median(run["octets"] for run in sizes[size])
                  for size in (small, large)]
        yield Row(f"memory of the process a row, causes and documents included, {kind}",
                  Figure.exact((octets[1] - octets[0]) / (int(large) - int(small))),
                  unit=" octets", rows=int(large))


# The parts in the order of the document, each with the rows made of it.
SECTIONS = {"requests-file": lambda found: [*requestRows(found), *stepRows(found)],
            "requests-redis": lambda found: [*requestRows(found), *stepRows(found)],
            "saturated": saturatedRows,
            "instructions": instructionRows,
            "flame": flameRows,
            "benchmarks": benchmarkRows,
            "publications": publicationRows,
            "idle": idleRows,
            "start": startRows}
