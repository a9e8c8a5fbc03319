#!/usr/bin/python3
"""Commands of kavra act on a running pair at once, where a manager looks."""

import statistics
import unittest

import latencies

ROUNDS = 25
MOST = 0.05  # seconds, in the middle of all: a busy machine may delay some


class Latency(latencies.Latencies):
    def testEachCommandIsSeenWithinFiftyMilliseconds(self):
        for number in range(ROUNDS):
            self.round(number)
        for command, runs in (("record-reset", 1), ("add-cause", 1), ("set-redundancy", 2),
                              ("watch", 4)):
            self.assertEqual(len(self.found[command]), runs * ROUNDS, command)
            self.assertLess(statistics.median(self.found[command]), MOST, command)


if __name__ == "__main__":
    unittest.main()
