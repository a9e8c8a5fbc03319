"""The plots of the page, each from one part. Needs Debian's python3-matplotlib."""

import json
import os

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402  (after the choice above)

import figures  # noqa: E402
from bars import OURS, SCALAR, SORTED, STORES, TDATA  # noqa: E402

COLOURS = {OURS: "#d62728", SCALAR: "#7f7f7f", TDATA: "#1f77b4", SORTED: "#2ca02c"}
NAMES = {OURS: "the table", SCALAR: "scalar", TDATA: "tdata", SORTED: "lean iterator"}
DPI = 110
OWNERS = {"the table": "#d62728", "the agent": "#ff7f0e", "net-snmp": "#aec7e8",
          "C and C++": "#c7c7c7"}
BEFORE = "flame-before.json"  # written by bench/suite/flame.py


def curve(axes, found, colour, name, figureOf):
    """A figure of each size with its interval."""
    sizes = [int(size) for size in found]
    points = [figureOf(rounds) for rounds in found.values()]
    values = [point.value for point in points]
    reach = [[point.value - point.low for point in points],
             [point.high - point.value for point in points]]
    axes.errorbar(sizes, values, yerr=reach, color=colour, label=name, marker="o", markersize=4,
                  capsize=3)


def withSizes(axes, title, unit):
    axes.set_xscale("log")
    axes.set_xlabel("rows")
    axes.set_ylabel(unit)
    axes.set_title(title)
    axes.grid(True, alpha=0.3)


def barAt(axes, value, name):
    axes.axhline(value, color="black", linestyle="--", linewidth=1, label=name)


def save(figure, directory, name):
    """With one legend for all panels, below them."""
    figure.tight_layout()
    named = dict(reversed(pair) for axes in figure.axes
                 for pair in zip(*axes.get_legend_handles_labels()))
    figure.legend(named.values(), named.keys(), loc="upper center", bbox_to_anchor=(0.5, 0),
                  ncol=len(named))
    figure.savefig(os.path.join(directory, name), dpi=DPI, bbox_inches="tight")
    plt.close(figure)
    return name


def latencies(found, directory, part):
    figure, panels = plt.subplots(1, 3, figsize=(13, 4))
    for axes, (measure, title) in zip(panels, (("get_us", "GET"), ("getnext_us", "GETNEXT"), (
            "getnext_cpu_us", "GETNEXT: the agent's share"))):
        for subject, name in NAMES.items():
            curve(axes, found, COLOURS[subject], name,
                  lambda rounds, m=measure, s=subject: figures.ofRounds(rounds, m, s))
        withSizes(axes, title, "µs")
        axes.set_ylim(bottom=0)
    return save(figure, directory, f"{part}-latency.png")


def rates(found, directory, part):
    figure, panels = plt.subplots(1, 3, figsize=(13, 4))
    for axes, (measure, title, limit) in zip(panels, (
            ("walk_values", "GETNEXT walk", 0.97), ("bulk10_values", "GETBULK 10", 1),
            ("bulk50_values", "GETBULK 50", 1))):
        measured = {size: rounds for size, rounds in found.items() if measure in rounds[0]}
        for subject in (OURS, SCALAR, TDATA):
            curve(axes, measured, COLOURS[subject], NAMES[subject],
                  lambda rounds, m=measure, s=subject: figures.ratio(rounds, m, s, SORTED))
        barAt(axes, limit, "bar for the table")
        withSizes(axes, title, "values a second ÷ lean iterator")
    return save(figure, directory, f"{part}-rates.png")


def start(found, directory):
    figure, panels = plt.subplots(1, 2, figsize=(10, 4))
    for kind, colour in (("file", "#1f77b4"), ("redis", "#d62728")):
        for axes, key, scale in ((panels[0], "ms", 1), (panels[1], "octets", 2**20)):
            curve(axes, found[kind], colour, kind, lambda runs, k=key, s=scale: figures.median(
                [run[k] / s for run in runs]))
    withSizes(panels[0], "start to first answer", "ms")
    withSizes(panels[1], "memory of the process by then", "MiB")
    for axes in panels:
        axes.set_yscale("log")
    return save(figure, directory, "start.png")


def publications(found, directory):
    entries = found["publications"]
    figure, axes = plt.subplots(figsize=(8, 4))
    places = range(len(entries))
    for offset, key, colour in ((-0.2, "p50", "#2ca02c"), (0.2, "p99", "#d62728")):
        bars = axes.bar([place + offset for place in places],
                        [entry["firstRightAnswer"][key] for entry in entries], 0.4, color=colour,
                        label=key)
        axes.bar_label(bars, fmt="%.2f")
    axes.set_xticks(list(places), [f"{entry['store']}\n{entry['causes']:,} causes"
                                   for entry in entries])
    axes.set_yscale("log")
    axes.set_ylabel("ms")
    axes.set_title("from publication to the first right answer")
    return save(figure, directory, "publications.png")


def frame(axes, left, depth, widest, what):
    """One frame, and below it what it calls."""
    name, owner, instructions, called = what
    axes.barh(depth, instructions, left=left, height=0.95, color=OWNERS[owner], edgecolor="white",
              linewidth=0.4, label=owner)
    letters = int(250 * instructions / widest)
    if letters > 3:
        axes.text(left + 0.002 * widest, depth, name[:letters], fontsize=6, va="center",
                  clip_on=True)
    for inner in called:
        frame(axes, left, depth + 1, widest, inner)
        left += inner[2]


def depthOf(frames):
    return 1 + max((depthOf(called) for *_, called in frames), default=-1)


def flame(found, directory):
    """All on one scale, so that what was saved is seen."""
    flames = [("now", found)]
    before = os.path.join(directory, BEFORE)
    if os.path.exists(before):
        with open(before, encoding="utf-8") as file:
            earlier = json.load(file)
        flames.insert(0, (f"at {earlier['source']}", earlier))
    widest = max(each["instructions"] for _, each in flames)
    depths = [depthOf(each["frames"]) for _, each in flames]
    figure, panels = plt.subplots(len(flames), 1, figsize=(14, 0.16 * sum(depths) + len(flames)),
                                  squeeze=False, height_ratios=depths)
    for axes, (when, each) in zip(panels[:, 0], flames):
        left = 0
        for outermost in each["frames"]:
            frame(axes, left, 0, widest, outermost)
            left += outermost[2]
        axes.set_xlim(0, widest)
        axes.invert_yaxis()
        axes.set_yticks([])
        axes.set_title(f"{when}: {each['instructions']:,.0f} instructions")
    return save(figure, directory, "flame.png")


def draw(results, directory):
    """The names of the files drawn for each part that was measured."""
    os.makedirs(directory, exist_ok=True)
    drawn = {}
    for part in STORES.values():
        if part in results:
            found = results[part]["found"]
            drawn[part] = [plot(found, directory, part) for plot in (latencies, rates)]
    for part, plot in (("start", start), ("publications", publications), ("flame", flame)):
        if part in results:
            drawn[part] = [plot(results[part]["found"], directory)]
    return drawn
