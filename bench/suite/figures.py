"""Medians with their intervals, ratios within a round, and what a bar makes of them."""

import itertools
import random
import statistics
from dataclasses import dataclass

RESAMPLES = 2000
CONFIDENCE = 0.95
SIGNIFICANT = 5  # digits


@dataclass(frozen=True)
class Figure:
    """A median of rounds, between the bounds of its interval."""
    value: float
    low: float
    high: float

    @classmethod
    def exact(cls, value):
        return cls(value, value, value)


def median(values, starts=None):
    """Of the rounds; the interval holds 95 of 100 medians of as many rounds drawn from them. Rounds
    of one start of an agent, which resemble each other, are drawn together."""
    groups = {}
    for start, value in zip(starts or itertools.count(), values):
        groups.setdefault(start, []).append(value)
    groups = list(groups.values())
    dice = random.Random(1)
    drawn = sorted(statistics.median(itertools.chain(*dice.choices(groups, k=len(groups))))
                   for _ in range(RESAMPLES))
    beyond = int(RESAMPLES * (1 - CONFIDENCE) / 2)
    return Figure(statistics.median(values), drawn[beyond], drawn[-1 - beyond])


def startsOf(rounds):
    return [found.get("start", -number) for number, found in enumerate(rounds, 1)]


def ofRounds(rounds, measure, subject):
    return median([found[measure][subject] for found in rounds], startsOf(rounds))


def ratio(rounds, measure, subject, other):
    """Round by round, so that what slows a whole round down cancels out."""
    return median([found[measure][subject] / found[measure][other] for found in rounds],
                  startsOf(rounds))


@dataclass(frozen=True)
class Bar:
    limit: float
    atMost: bool
    wanted: bool = False  # rather than asked for

    def admits(self, value):
        return value <= self.limit if self.atMost else value >= self.limit

    def verdict(self, figure):
        """Of the median; with a question mark when the interval lies on both sides of the bar."""
        said = "met" if self.admits(figure.value) else "missed"
        return said if self.admits(figure.low) == self.admits(figure.high) else said + "?"

    def text(self, unit=""):
        sign = "≤" if self.atMost else "≥"
        return f"{sign} {number(self.limit)}{unit}" + (" (wanted)" if self.wanted else "")


def atMost(limit, **more):
    return Bar(limit, True, **more)


def atLeast(limit, **more):
    return Bar(limit, False, **more)


def number(value):
    """As many digits as mean something."""
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    if value == int(value) or abs(value) >= 100:
        return f"{value:.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def duration(nanoseconds):
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{number(nanoseconds / size)} {unit}"
    return f"{number(nanoseconds)} ns"


def text(figure, unit=""):
    if figure.low == figure.high:
        return number(figure.value) + unit
    return f"{number(figure.value)}{unit} [{number(figure.low)}, {number(figure.high)}]"


def rounded(value):
    if isinstance(value, float):
        return float(f"{value:.{SIGNIFICANT}g}")
    if isinstance(value, dict):
        return {key: rounded(inner) for key, inner in value.items()}
    return [rounded(inner) for inner in value] if isinstance(value, list) else value
