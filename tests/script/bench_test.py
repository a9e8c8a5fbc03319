#!/usr/bin/env python3
"""The page of the measurements says what was measured, beside what was asked for, and no more."""

import os
import sys
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
sys.path.insert(0, os.path.join(ROOT, "bench/suite"))
import bars  # noqa: E402  (needs the path above)
import document  # noqa: E402
import figures  # noqa: E402
import flame  # noqa: E402
import parts  # noqa: E402
from figures import Figure, atLeast, atMost  # noqa: E402


COUNTED = {"ours": 1.0, "sorted": 1.0}


def roundOf(ours, lean, measure="get_us"):
    return {measure: {"ours": ours, "sorted": lean, "scalar": lean, "tdata": lean}}


def result(found, **more):
    return {"machine": "a machine", "source": "abc", "when": "noon", "load": "0.0",
            "effort": "whole", "seconds": 1, "found": found, **more}


class Medians(unittest.TestCase):
    def testTheMedianOfTheRoundsLiesInItsInterval(self):
        found = figures.median([5, 1, 9, 4, 6, 7])
        self.assertEqual(found.value, 5.5)
        self.assertLess(found.low, 5.5)
        self.assertGreater(found.high, 5.5)
        self.assertGreaterEqual(found.low, 1)
        self.assertLessEqual(found.high, 9)

    def testOneOutlierMovesNeitherMedianNorIntervalFar(self):
        found = figures.median([1.0] * 11 + [50.0])
        self.assertEqual((found.value, found.high), (1.0, 1.0))

    def testRoundsOfOneStartAreDrawnTogether(self):
        rounds = [{"start": start, **roundOf(value, 1.0)}
                  for start, value in enumerate((1.0, 2.0, 3.0, 4.0)) for _ in range(10)]
        for found in (figures.ofRounds(rounds, "get_us", "ours"),
                      figures.ratio(rounds, "get_us", "ours", "sorted")):
            self.assertEqual((found.low, found.value, found.high), (1.0, 2.5, 4.0))

    def testARatioIsMadeWithinARound(self):
        # Every round is twice as slow as the one before, for both.
        rounds = [roundOf(1.1 * pace, 1.0 * pace) for pace in (1, 2, 4, 8)]
        found = figures.ratio(rounds, "get_us", "ours", "sorted")
        self.assertAlmostEqual(found.value, 1.1)
        self.assertAlmostEqual(found.high - found.low, 0)


class Bars(unittest.TestCase):
    def testTheVerdictIsThatOfTheMedian(self):
        self.assertEqual(atMost(1.03).verdict(Figure(1.02, 1.01, 1.03)), "met")
        self.assertEqual(atMost(1.03).verdict(Figure(1.05, 1.04, 1.06)), "missed")
        self.assertEqual(atLeast(0.97).verdict(Figure(0.98, 0.97, 0.99)), "met")
        self.assertEqual(atLeast(0.97).verdict(Figure(0.9, 0.8, 0.96)), "missed")

    def testAnIntervalOnBothSidesOfTheBarIsSaid(self):
        self.assertEqual(atMost(1.03).verdict(Figure(1.02, 1.01, 1.04)), "met?")
        self.assertEqual(atLeast(1).verdict(Figure(0.99, 0.98, 1.01)), "missed?")

    def testEveryPartHasItsRowsAndEveryRowItsPart(self):
        self.assertEqual(set(bars.SECTIONS), set(parts.PARTS))
        self.assertEqual(set(bars.SECTIONS), set(document.TITLES))

    def testAStepIsWhatAMissTakesBeyondAHitForEachRow(self):
        found = {"1000": [{"miss_us": {"ours": 80.0, "map": 70.0}, "get_us": {"ours": 10.0}}]}
        self.assertEqual([(row.figure.value, row.verdict()) for row in bars.stepRows(found)],
                         [(70.0, "met"), (60.0, "")])

    def testMemoryARowIsWhatALargerTableTakesMore(self):
        run = lambda octets: [{"ms": 1.0, "octets": octets}]
        rows = bars.startRows({"file": {"4": run(1000), "104": run(21000)}})
        self.assertEqual([row.figure.value for row in rows if row.unit == " octets"], [200.0])


class Page(unittest.TestCase):
    def testSaysOfEachPartThatWasNotMeasuredThatItWasNot(self):
        page = document.document({}, {})
        for part in bars.SECTIONS:
            self.assertIn(f"Not measured: `script/bench --only {part}` does.", page)
        self.assertNotRegex(page.split("## How it is measured")[0], r"[0-9] (met|missed)")

    def testTellsFigureBarAndVerdictSideBySide(self):
        page = document.document({"instructions": result({"ours": 1809.4, "sorted": 860.0})}, {})
        self.assertIn("| instructions in the callbacks a GETNEXT varbind: the table (100 rows) | "
                      "≤ 1,000 | "
                      "1,809 missed |", page)
        self.assertIn("| Instructions | 0 of 1 | instructions in the callbacks", page)

    def testGivesEachSizeAColumnAndLeavesOutWhatWasNotMeasuredThere(self):
        small = roundOf(10.0, 10.0)
        large = {**roundOf(12.0, 10.0), **roundOf(90.0, 100.0, "bulk10_values")}
        text = document.barTables(list(bars.requestRows({"4": [small], "100": [large]})))
        self.assertIn("| GET, latency ÷ lean iterator | ≤ 1.03 | 1 met | 1.20 missed |", text)
        self.assertIn("| GETBULK 10, values a second ÷ lean iterator (100 rows) | ≥ 1 | "
                      "0.90 missed |", text)

    def testMarksAQuickLookAndAPartFromElsewhere(self):
        quick = result(COUNTED, effort="quick")
        self.assertIn("too short for its figures", document.document({"instructions": quick}, {}))
        other = result({"file": 0.5, "redis": 6.0}, source="def")
        page = document.document({"instructions": result(COUNTED), "idle": other}, {})
        self.assertIn("Measured on a machine; source def", page)

    def testShowsThePlotsThatWereDrawn(self):
        page = document.document({"instructions": result(COUNTED)},
                                 {"instructions": ["one.png"]})
        self.assertIn("![Instructions](performance/one.png)", page)


class Flames(unittest.TestCase):
    PROFILE = """events: Ir
ob=(1) /usr/bin/norvek-snmpd
fn=(1) main
10 5
cob=(2) /usr/lib/libMiscSnmp.so
cfn=(2) handler(int)'main
calls=3 20
11 900
ob=(2)
fn=(2)
20 40
+1 60
fn=(3) first<A<B> >(void**)'main
* 50
""".splitlines(keepends=True)

    def testAStackTookWhatItsLinesSayAndNotWhatItCalled(self):
        took, whose = flame.stacksIn(self.PROFILE)
        self.assertEqual(took, {("main",): 5, ("main", "handler(int)"): 100,
                                ("main", "first<A<B> >(void**)"): 50})
        self.assertEqual(whose, {"main": "the agent", "handler(int)": "the table",
                                 "first<A<B> >(void**)": "the table"})

    def testFramesStandInTheirCallersTheDearestFirst(self):
        frames = flame.framesOf(*flame.stacksIn(self.PROFILE), least=1)
        self.assertEqual(frames, [["main", "the agent", 155, [
            ["handler", "the table", 100, []], ["first", "the table", 50, []]]]])
        self.assertEqual(flame.byOwner(frames), {"the agent": 5, "the table": 150})

    def testWhatTakesLittleAndWhatPassesACallOnIsLeftOut(self):
        frames = flame.framesOf(*flame.stacksIn(self.PROFILE), least=60)
        self.assertEqual(frames[0][3], [["handler", "the table", 100, []]])
        self.assertEqual(flame.simplified(["a", "x", 100, [["b", "y", 99, []]]]),
                         ["b", "y", 100, []])
        self.assertEqual(flame.simplified(["a", "x", 100, [[flame.UNKNOWN, "y", 99, []]]]),
                         ["a", "x", 100, []])


class Traces(unittest.TestCase):
    def testACallIsCountedWhenItReturns(self):
        self.assertEqual(parts.callsIn('7 read(9, "a = 1", 4096) = 32\n'
                                       "7 read(9, 0x7f, 4096) = -1 EAGAIN (Resource)\n"
                                       "7 poll([{fd=8}], 1, 4500 <unfinished ...>\n"
                                       "8 futex(0x1, FUTEX_WAKE) = 0\n"
                                       "7 <... poll resumed>) = 0 (Timeout)\n"
                                       "7 mmap(NULL, 8) = 0x7f00\n"
                                       "--- SIGCHLD {si_signo=17} ---\n"), 5)

    def testFiguresAreKeptWithTheDigitsThatMeanSomething(self):
        self.assertEqual(parts.rounded({"a": [1.23456789, 7], "b": "x"}),
                         {"a": [1.2346, 7], "b": "x"})


if __name__ == "__main__":
    unittest.main()
