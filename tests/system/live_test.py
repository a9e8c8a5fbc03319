#!/usr/bin/python3
"""An agent follows its state database: what changes is shown, what goes bad is not."""

import json
import os
import unittest

import support
from support import rowsOf

CAUSES = [("Power loss", 1700000000.9)]
HISTORY = "cell/1/sys/reset/history"
STATUS = "cell/1/redundancy/status"


def twice(causes):
    return {**rowsOf(0, causes), **rowsOf(1, causes)}


class Live(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)
        self.agent = self.start()
        self.assertRows(self.agent, twice(CAUSES))

    def assertSays(self, *texts):
        support.waitFor(lambda: all(text in self.agent.said() for text in texts),
                        f"the agent says {texts}: {self.agent.said()}")

    def assertKeepsServing(self, rows):
        """The rows stand, and a good document is shown again afterwards."""
        self.assertEqual(self.agent.manager.rows(), rows)
        self.assertFollows()

    def assertFollows(self):
        self.recordReset(1, [("afterwards", 7)])
        self.assertRows(self.agent, twice([("afterwards", 7)]))

    def assertRefused(self, documents, *texts):
        """A file with these documents is spoken of, and what is served does not change by it."""
        rows = self.agent.manager.rows()
        before = len(self.agent.said())
        self.write("kavra.json", documents if isinstance(documents, str) else json.dumps(documents))
        support.waitFor(lambda: all(text in self.agent.said()[before:] for text in texts) and
                        self.agent.said().endswith("\n"), f"the agent says {texts} of {documents}")
        said = [line for line in self.agent.said()[before:].splitlines()
                if ": no longer refused" not in line]
        self.assertEqual(len(said), 1, said)
        self.assertEqual(self.agent.manager.rows(), rows, documents)

    def assertFollowsAfresh(self):
        """Only a file that is taken back by hand is good again: kavra edits no misfit."""
        os.remove(self.database)
        self.assertFollows()

    def testACauseIsAdded(self):
        self.addCause(1, "Fan failure", 1700000005)
        self.assertRows(self.agent, twice(CAUSES + [("Fan failure", 1700000005)]))

    def testAReloadIsRecorded(self):
        self.recordReset(1, [("Upgrade", 1700000010), ("Requested", 1700000011)])
        self.assertRows(self.agent, twice([("Upgrade", 1700000010), ("Requested", 1700000011)]))

    def testCausesAreReplacedAndEmptied(self):
        self.putHistory(1, {0: [("other", 1)], 3: CAUSES})
        self.assertRows(self.agent, twice([("other", 1)]))
        self.putHistory(1, {0: []})
        self.assertRows(self.agent, {})

    def testRowsStayWhenTheLatestReloadGoes(self):
        self.recordReset(2, CAUSES)
        self.setRedundancy(1, protocol=3, capable=True)
        self.assertRows(self.agent, {**twice(CAUSES), **rowsOf(2, CAUSES)})
        self.putHistory(1, {1: [("older", 1)]})
        # A change elsewhere that is seen tells that the one before it was seen, too.
        self.recordReset(2, [("later", 2)])
        self.assertRows(self.agent, {**twice(CAUSES), **rowsOf(2, [("later", 2)])})

    def testRowsStayWhenTheDocumentIsUnpublished(self):
        self.kavra("del", HISTORY)
        self.assertKeepsServing(twice(CAUSES))

    def testRowsStayWhenTheFileVanishesAndComesBack(self):
        kept = self.path("kept.json")
        os.rename(self.database, kept)
        self.assertEqual(self.agent.manager.rows(), twice(CAUSES))
        os.rename(kept, self.database)
        self.assertKeepsServing(twice(CAUSES))

    def testAnEmptyFileChangesNothing(self):
        self.write("kavra.json", "")
        self.assertSays("kavra.json")
        self.assertEqual(self.agent.manager.rows(), twice(CAUSES))

    def testAFileThatDoesNotParseChangesNothingAndIsReportedOnce(self):
        with open(self.database) as file:
            good = file.read()
        self.write("kavra.json", '{"' + HISTORY + '": {')
        self.assertSays("kavra.json", "line 1")
        self.assertEqual(self.agent.manager.rows(), twice(CAUSES))
        self.assertEqual(self.agent.said().count("line 1"), 1)
        self.write("kavra.json", good)
        self.assertKeepsServing(twice(CAUSES))

    def testADocumentThatDoesNotFitItsTypeChangesNothing(self):
        for history, place in [({"0": {"causeQ": [{"description": 7, "time": 1}]}}, "description"),
                               ({"0": {"causeQ": [{"description": "x", "time": "soon"}]}}, "time"),
                               ({"0": {"causeQ": {}}}, "causeQ"), ({"minus": {}}, "minus"),
                               ({"4294967296": {"causeQ": []}}, "4294967296"), (7, "rebootHistory")]:
            document = {HISTORY: {"type": "System::ResetCauseHistory", "rebootHistory": history}}
            before = len(self.agent.said())
            self.write("kavra.json", json.dumps(document))
            support.waitFor(lambda: place in self.agent.said()[before:], (place, document))
            self.assertIn(HISTORY, self.agent.said()[before:])
            self.assertEqual(self.agent.manager.rows(), twice(CAUSES), document)

    def testADocumentOfNoKnownTypeChangesNothing(self):
        for document, problem in [({}, "'type'"), ({"type": 7}, "/type"), (None, "expected a map"),
                                  ([], "expected a map"), ({"type": "Nonsense"}, "'Nonsense'"),
                                  ({"type": "Redundancy::RedundancyStatus", "protocol": 1,
                                    "switchoverCapable": True}, "Redundancy::RedundancyStatus")]:
            self.assertRefused({HISTORY: document}, HISTORY, problem)
        self.assertFollowsAfresh()

    def testARedundancyStatusThatDoesNotFitChangesNothing(self):
        self.recordReset(2, CAUSES)
        self.setRedundancy(1, protocol=3, capable=True)
        self.assertRows(self.agent, {**twice(CAUSES), **rowsOf(2, CAUSES)})
        with open(self.database) as file:
            good = json.load(file)
        for status, place in [({"protocol": -1, "switchoverCapable": True}, "/protocol"),
                              ({"protocol": 2**32, "switchoverCapable": True}, "/protocol"),
                              ({"protocol": 1.5, "switchoverCapable": True}, "/protocol"),
                              ({"protocol": 1, "switchoverCapable": 0}, "/switchoverCapable"),
                              ({"protocol": 1}, "'switchoverCapable'"),
                              ({"switchoverCapable": True}, "'protocol'"),
                              ({"protocol": 1, "switchoverCapable": True, "x": 1}, "'x'")]:
            document = {"type": "Redundancy::RedundancyStatus", **status}
            self.assertRefused({**good, STATUS: document}, STATUS, place)
        single = {"type": "Redundancy::RedundancyStatus", "protocol": 1, "switchoverCapable": True}
        self.write("kavra.json", json.dumps({**good, STATUS: single}))
        self.assertRows(self.agent, twice(CAUSES))

    def testADocumentUnderWhatIsNoPathIsNamed(self):
        with open(self.database) as file:
            good = json.load(file)
        for path in ("/cell/1", "cell//1", "cell/1/", "", "cell/\u0001", "p" * 1025):
            self.assertRefused({**good, path: good[HISTORY]}, "is not a path")
        # The documents beside a refused one are followed all the same.
        later = json.loads(json.dumps(good))
        later[HISTORY]["rebootHistory"]["0"]["causeQ"][0]["description"] = "beside"
        self.write("kavra.json", json.dumps({**later, "/": good[HISTORY]}))
        self.assertRows(self.agent, twice([("beside", CAUSES[0][1])]))

    def testTimesThatAreNoneChangeNothing(self):
        place = "/rebootHistory/0/causeQ/0/time: "
        for time, problem in [("null", place), ('"soon"', place), ("1e16", place), ("-1e16", place),
                              ("1e999", place), ("-1e999", place), ("NaN", "line 1"),
                              ("Infinity", "line 1"), ("01", "line 1")]:
            self.assertRefused('{"' + HISTORY + '": {"type": "System::ResetCauseHistory", '
                               '"rebootHistory": {"0": {"causeQ": [{"description": "x", "time": '
                               + time + '}]}}}}', problem)
        self.assertFollowsAfresh()

    def testTimesAreShownInWholeSecondsModuloTwoToThe32(self):
        times = [-1, -0.75, -1.75, -2**32, 0.999, 1700000000.9, 2**31, 2**32 - 0.5, 2**32 + 0.5,
                 4294967297.0, 8.9e15, -8.9e15]
        self.putHistory(1, {0: [(f"at {time}", time) for time in times]})
        self.assertRows(self.agent, twice([(f"at {time}", int(time) % 2**32) for time in times]))

    def testDescriptionsHoldAnyOctets(self):
        causes = [(b"\xff\xfe\x80", 1), (bytes(range(1, 256)), 2), (b"\xc3", 3), (b"", 4)]
        self.recordReset(1, causes)
        self.assertRows(self.agent, twice(causes))

    def testTenThousandCausesOfOneReloadComeAndGo(self):
        causes = [(f"cause {number}", 1700000000 + number) for number in range(10000)]
        self.recordReset(1, causes)
        self.assertRows(self.agent, twice(causes))
        self.recordReset(1, CAUSES)
        self.assertRows(self.agent, twice(CAUSES))

    def testDescriptionsHoldAnyText(self):
        causes = [("", 0), ("\u0000nul and \u001b escape", 1), ("\U0001f525", 2),
                  ("y" * 1024, 4294967295)]
        self.putHistory(1, {0: causes})
        self.assertRows(self.agent, twice(causes))

    def testADescriptionThatTheTableCannotAnswerIsRefusedWithItsPlace(self):
        history = {"0": {"causeQ": [{"description": "short", "time": 1},
                                    {"description": "y" * 1025, "time": 1}]}}
        self.assertRefused({HISTORY: {"type": "System::ResetCauseHistory",
                                      "rebootHistory": history}}, HISTORY,
                           "/rebootHistory/0/causeQ/1/description: ", "1025", "1024")
        # Whoever publishes another in its place ends that, and the log tells.
        self.putHistory(1, {0: [("short", 1)]})
        self.assertRows(self.agent, twice([("short", 1)]))
        self.assertSays(f"{HISTORY}: no longer refused\n")

    def testAFileThatHoldsTooMuchIsRefusedAsAWhole(self):
        numbers = "[1" + ",1" * 1000000 + "]"
        self.assertRefused('{"' + HISTORY + '": ' + numbers + "}", HISTORY,
                           "more than 1000000 values")
        self.kavra("del", HISTORY)
        self.assertFollows()


if __name__ == "__main__":
    unittest.main()
