#!/usr/bin/python3
"""What the test of real machines calls wrong: it must not be blind."""

import unittest

import told
from ways import BY_NAME

BOOTS = ("b", "c")
ASKED = 1700001000.0
START = 1700001020.0


def causes(text, **more):
    return [{"cause": text, "confidence": "certain", **more}]


def answer(found, previous="b"):
    """All ask alike, and are told the same."""
    shown = [(each["cause"], each.get("time", each.get("since"))) for each in found]
    bySnmp = [(text, float(int(at))) for text, at in shown]
    return {"find": {"causes": found,
                     "boots": {"id": "c", "previousId": previous, "start": START}},
            "show": shown, "snmp": bySnmp, "first": bySnmp}


def wrongs(way, answered, took=0.0):
    return told.wrongs(BY_NAME[way], "7", ASKED, took, answered, BOOTS)


class Told(unittest.TestCase):
    def testWhatIsExpectedIsRight(self):
        found = causes("Reload requested: new rack 7", time=ASKED + 1.9)
        self.assertEqual(wrongs("reboot-message", answer(found)), [])

    def testATimeIsWrongByMoreThanTwoSecondsOnEitherSide(self):
        for time in (ASKED - 2.1, ASKED + 2.1):
            found = causes("Reload requested: new rack 7", time=time)
            self.assertEqual(len(wrongs("reboot-message", answer(found))), 1)

    def testACommandThatTookLongMayBeObeyedLater(self):
        found = causes("Reload requested: new rack 7", time=ASKED + 5)
        self.assertEqual(wrongs("reboot-message", answer(found), took=4.0), [])
        self.assertEqual(len(wrongs("reboot-message", answer(found), took=2.0)), 1)

    def testAWindowHoldsTheMoment(self):
        told = {"confidence": "possible", "cause": "Power lost, hard reset or forced restart"}
        self.assertEqual(wrongs("power-cut", answer([told | {"since": ASKED - 20}])), [])
        for at in ({"since": ASKED + 4}, {"time": ASKED}, {}):
            found = [told | at]
            with self.subTest(at):
                answered = answer([told | {"since": ASKED - 20}])
                answered["find"]["causes"] = found
                self.assertIn("time: wrong", " ".join(wrongs("power-cut", answered)))

    def testTheCauseOfAnEarlierReloadIsWrong(self):
        found = causes("Reload requested: new rack 6", time=ASKED)
        self.assertEqual(wrongs("reboot-message", answer(found)),
                         ["find: 'Reload requested: new rack 6' instead of "
                          "'Reload requested: new rack 7'"])

    def testAnEarlierBootIsWrong(self):
        found = causes("Reload requested: new rack 7", time=ASKED)
        self.assertIn("boots", wrongs("reboot-message", answer(found, previous="a"))[0])

    def testTooSureIsWrong(self):
        found = causes("Power lost, hard reset or forced restart", since=ASKED - 1)
        self.assertEqual(wrongs("power-cut", answer(found)),
                         ["how sure: 'certain' instead of 'possible'"])

    def testOnlyWhatBelongsThereMayStandBesideIt(self):
        found = causes("Reload requested by alice: new kernel 7", time=ASKED)
        logged = causes("Reload requested", time=ASKED + 1)
        self.assertEqual(wrongs("request", answer(found + logged)), [])
        stale = causes("Watchdog expired", time=ASKED - 500)
        self.assertEqual(wrongs("request", answer(found + stale)),
                         ["beside it: 'Watchdog expired'"])

    def testWhoeverTellsAnotherCauseOrTimeIsWrong(self):
        found = causes("Reload requested: new rack 7", time=ASKED)
        for teller in ("show", "snmp", "first"):
            for other in ([], [("Power loss", ASKED)],
                          [("Reload requested: new rack 7", ASKED - 60)]):
                with self.subTest(teller=teller, other=other):
                    self.assertTrue(wrongs("reboot-message", answer(found) | {teller: other}))

    def testOctetsOfATimeAreRead(self):
        for seconds in (0, 951782399, 1700000000, 4102444799):
            self.assertEqual(told.dateAndTimeOf(told.support.dateAndTime(seconds)), seconds)


if __name__ == "__main__":
    unittest.main()
