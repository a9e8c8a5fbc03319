"""docs/performance.md, from what the parts found and from nothing else."""

import figures
from bars import MAP, OURS, SCALAR, SECTIONS, SORTED, STORES, TDATA

TITLES = {
    "requests-file": "Requests, state in a file",
    "requests-redis": "Requests, state on a Redis server",
    "saturated": "A busy agent",
    "instructions": "Instructions",
    "flame": "The flame of a GETNEXT",
    "benchmarks": "The model",
    "publications": "From publication to answer",
    "idle": "An agent that nobody asks",
    "start": "Start, and memory",
}

SUBJECTS = {OURS: "the table", SCALAR: "scalar", TDATA: "tdata", SORTED: "lean iterator"}
MEASURES = (("get_us", "GET, µs"), ("getnext_us", "GETNEXT, µs"),
            ("getnext_cpu_us", "GETNEXT, µs of the agent's processor"),
            ("walk_values", "GETNEXT walk, values/s"), ("bulk10_values", "GETBULK 10, values/s"),
            ("bulk50_values", "GETBULK 50, values/s"))

INTRODUCTION = """# Performance

Made by `script/bench`, which measures and then writes this page; nobody writes figures into it by
hand. A part that was not measured is said to be missing. The raw rounds are beside the plots, in
[performance/](performance/).
"""

METHOD = """## How it is measured

- **The subjects** of a request stand in one process, `norvek-snmpd` with the plug-in and, beside it,
  `bench/anchors`: what can be written on the same net-snmp for the same rows. *scalar*: a read-only
  scalar with a text as long. *tdata*: net-snmp's own store of rows. *lean iterator*: net-snmp's table
  iterator over a sorted vector of answers that stand ready, begun at the lower bound, with no
  allocation. *map*: the same over `std::map`, which begins a miss at the first row, as the table must.
  Before anything is timed, the client sees that all of them give the same values.
- **Client and agent share one core.** The client (`bench/client`) is C++, has one request under way
  and looks at every answer. GET and GETNEXT ask for random rows, walks go through the table, each
  where it stopped before. The scalar's GETNEXT asks for its object, its walk goes through a hundred.
- **Rounds.** Within a round the subjects take turns, some hundredths of a second each, so that what
  else the machine does meets them alike; a ratio is made within a round. A latency is the median of
  the round's requests, a rate what the median request amounts to, a processor time the mean. The
  agent is started anew several times a size. Told are the median of the rounds and, in brackets, where
  95 of 100 medians of as many rounds drawn from them lie; the rounds of a start, which resemble each
  other more than those of another, are drawn together.
- **Rows.** A supervisor shows each cause of its last reload under two units; N rows are N / 2 causes.
- **A publication** over a file counts from the end of `kavra put`, not from the moment at which it replaced
  the file; one over Redis from the replacement of the file that `kavra serve` follows.
- **A verdict**, met or missed, is that of the median. With a question mark the interval lies on both
  sides of the bar. What has no bar is told for comparison.
"""


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def judged(row):
    return f"{figures.text(row.figure, row.unit)} {row.verdict()}".strip()


def barText(row):
    return row.bar.text(row.unit) if row.bar else "–"


def byWhat(rows):
    """The rows of each subject in the order of their first."""
    groups = {}
    for row in rows:
        groups.setdefault(row.what, []).append(row)
    return groups


def barTables(rows):
    """What depends on the size of the table has a column for each size."""
    groups = byWhat(rows)
    sized = {what: group for what, group in groups.items() if len(group) > 1}
    single = [group[0] for group in groups.values() if len(group) == 1]
    tables = []
    if sized:
        sizes = sorted({row.rows for group in sized.values() for row in group})
        lines = []
        for what, group in sized.items():
            cells = {row.rows: judged(row) for row in group}
            lines.append((what, barText(group[0]), *(cells.get(size, "") for size in sizes)))
        tables.append(table(("", "bar", *(f"{size:,} rows" for size in sizes)), lines))
    if single:
        tables.append(table(("", "bar", "figure"), [
            (row.what + (f" ({row.rows:,} rows)" if row.rows else ""), barText(row), judged(row))
            for row in single]))
    return "\n".join(tables)


def requestTable(found):
    """Absolute figures, which hold for this machine alone."""
    rows = []
    for measure, title in MEASURES:
        for size, rounds in found.items():
            if measure in rounds[0]:
                rows.append((title, f"{int(size):,}", *(
                    figures.number(figures.ofRounds(rounds, measure, subject).value)
                    for subject in SUBJECTS)))
    return table(("medians", "rows", *SUBJECTS.values()), rows)


def benchmarkTable(found):
    rows = [(f"`{name}`", figures.duration(figures.median(entry["ns"]).value))
            for name, entry in sorted(found.items())]
    return table(("benchmark", "processor time of an iteration"), rows)


def flameText(_):
    return """A walk through the table, counted by callgrind in all that the agent does for a request but the
system itself. A frame is as wide as what it takes with what it calls, which stands below it; what
takes less than 0.4 % is left out, as is what only passes a call on. The upper picture is of the
agent before any of this was looked at, on the same scale.
"""


# What stands under a part's bars.
DETAILS = {**{part: requestTable for part in STORES.values()}, "benchmarks": benchmarkTable,
           "flame": flameText}


def origins(results):
    """The machines and sources that the parts were measured on: one, unless a part is older."""
    return sorted({f"{result['machine']}; source {result['source']}"
                   for result in results.values()})


def section(part, results, plots):
    if part not in results:
        return f"## {TITLES[part]}\n\nNot measured: `script/bench --only {part}` does.\n"
    result = results[part]
    place = "" if len(origins(results)) == 1 else \
        f" on {result['machine']}; source {result['source']}"
    lines = [f"## {TITLES[part]}\n",
             f"Measured{place} at {result['when']}, in {result['seconds']} s; load before it "
             f"{result['load']}.\n"]
    if result["effort"] != "whole":
        lines.append("**A quick look: too short for its figures to mean anything.**\n")
    lines.append(barTables(SECTIONS[part](result["found"])))
    lines += [f"![{TITLES[part]}](performance/{plot})\n" for plot in plots]
    if part in DETAILS:
        lines.append(DETAILS[part](result["found"]))
    return "\n".join(lines)


def summary(results):
    """How many bars are met, part by part, and which are not."""
    rows = []
    for part in SECTIONS:
        if part not in results:
            rows.append((TITLES[part], "not measured", ""))
            continue
        barred = [row for row in SECTIONS[part](results[part]["found"]) if row.bar]
        missed = [row for row in barred if row.verdict().startswith("missed")]
        rows.append((TITLES[part], f"{len(barred) - len(missed)} of {len(barred)}",
                     "; ".join(missedText(group) for group in byWhat(missed).values())))
    return "## In short\n\n" + table(("", "bars met", "missed"), rows)


def missedText(rows):
    sizes = ", ".join(f"{row.rows:,}" for row in rows if row.rows)
    return rows[0].what + (f" ({sizes})" if len(rows) > 1 or sizes else "")


def document(results, plots):
    """The page. `results` are by part, `plots` the files drawn of each part; either may lack any."""
    machines = "\n".join(f"- {origin}" for origin in origins(results)) or "- nowhere"
    return "\n".join([INTRODUCTION, f"Measured on\n\n{machines}\n", summary(results),
                      *(section(part, results, plots.get(part, ())) for part in SECTIONS), METHOD])
