#!/usr/bin/python3
"""A small fleet under a real Prometheus, and what script/fleet makes of what it sees."""

import glob
import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))
sys.path.insert(0, os.path.join(ROOT, "bench/fleet"))
from boxes import UNEXPLAINED, UNREQUESTED, Reload  # noqa: E402  (needs the path above)
from verdict import isRight, latencies, percentile, verdictOf  # noqa: E402

FLEET = os.path.join(ROOT, "script/fleet")
PROGRAMS = os.environ.get("PROGRAMS", os.path.join(ROOT, "build/release/bin"))
INSTANCES = "/proc/sys/fs/inotify/max_user_instances"
# Runs a command as a user who may watch so many directories.
WITH_FEW_WATCHED = 'echo "$1" >/proc/sys/user/max_inotify_instances && shift && exec "$@"'
PATIENCE = 120  # seconds


def mayLimitWatches():
    return subprocess.run(["unshare", "--user", "--map-root-user", "sh", "-c", WITH_FEW_WATCHED,
                           "sh", "1", "true"], capture_output=True, check=False).returncode == 0


def instances():
    with open(INSTANCES, encoding="ascii") as file:
        return int(file.read())


def limited(count, *command):
    return ["unshare", "--user", "--map-root-user", "sh", "-c", WITH_FEW_WATCHED, "sh", str(count),
            *command]


class Fleet(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.environment = {**os.environ, "PROGRAMS": PROGRAMS, "TMPDIR": self.temporary.name}

    def testEachReloadIsSeenAndAlertedOnceAlsoWhereInotifyIsUsedUp(self):
        watched = 5  # of the eight files that six agents follow, some of them two
        output = os.path.join(self.temporary.name, "found.json")
        command = [FLEET, "6", "--seconds", "10", "--interval", "2", "--idle", "3", "--seed", "1",
                   "--output", output]
        isLimited = mayLimitWatches()
        result = subprocess.run(limited(watched, *command) if isLimited else command,
                                env=self.environment, text=True, capture_output=True,
                                timeout=PATIENCE, check=False)
        said = result.stderr + result.stdout
        self.assertEqual(result.returncode, 0, said)
        with open(output, encoding="utf-8") as file:
            found = json.load(file)
        self.assertEqual(found["fleet"]["agents"], 6)
        if isLimited:
            self.assertEqual(found["fleet"]["files looked at each second"], 8 - watched, said)
        reloads = found["reloads"]
        self.assertGreaterEqual(reloads["made"], 6 + 1, said)  # all at once, and some before
        self.assertEqual(reloads["seen with their causes"], reloads["made"], said)
        self.assertEqual(reloads["alerted"], reloads["to be alerted"], said)
        self.assertEqual(os.listdir(self.temporary.name), ["found.json"])

    def testAnInterruptLeavesNothing(self):
        before = instances()
        with subprocess.Popen([FLEET, "4", "--interval", "1", "--idle", "0"], text=True,
                              env=self.environment, stderr=subprocess.PIPE) as fleet:
            try:
                said = ""
                while "reloads at random" not in said:
                    line = fleet.stderr.readline()
                    self.assertTrue(line, said)
                    said += line
                children = self.children(fleet.pid)
                self.assertEqual(len(children), 4 + 3)
                fleet.send_signal(signal.SIGINT)
                fleet.communicate(timeout=PATIENCE)
            finally:
                fleet.kill()
        self.assertEqual(fleet.returncode, 130)
        self.assertEqual([child for child in children if os.path.exists(f"/proc/{child}")], [])
        self.assertEqual(os.listdir(self.temporary.name), [])
        self.assertEqual(instances(), before)

    @staticmethod
    def children(parent):
        found = []
        for name in glob.glob(f"/proc/{parent}/task/*/children"):
            with open(name, encoding="ascii") as file:
                found += file.read().split()
        return found


def reloaded(cell, at, *causes, alert=UNREQUESTED):
    return Reload("box", cell, at, causes, alert, at + 0.5)


def told(reload, after=10.0, causes=None, name=None, at=None):
    labels = {"alertname": name or reload.alert, "device": reload.device, "cell": reload.cell,
              "reloaded": str(at or reload.time)}
    causes = reload.causes if causes is None else causes
    return reload.made + after, labels, {"description": "; ".join(causes) + "; at some time"}


def seenOf(*reloads):
    return {reload.key(): {str(place): {cause} for place, cause in enumerate(reload.causes, 1)}
            for reload in reloads}


class Verdict(unittest.TestCase):
    one = reloaded("1", 100, "Power loss")
    two = reloaded("2", 200, "Watchdog expired", "Fan failure")
    quiet = reloaded("1", 300, "Reload requested", alert=None)

    def assertFound(self, made, seen, alerts, **expected):
        verdict = verdictOf(made, seen, alerts)
        faults = {name: value for name, value in verdict.items()
                  if name in ("missed", "twice", "with another cause", "though requested",
                              "other alerts") and value}
        self.assertEqual(faults, {name.replace("_", " "): value
                                  for name, value in expected.items()})
        self.assertEqual(isRight(verdict), not expected
                         and verdict["seen with their causes"] == len(made))

    def testAllIsRightWhereEachIsSeenAndToldOnce(self):
        made = [self.one, self.two, self.quiet]
        self.assertFound(made, seenOf(*made), [told(self.two), told(self.one)])

    def testAReloadThatWasNotAlertedIsMissed(self):
        self.assertFound([self.one], seenOf(self.one), [], missed=1)

    def testAReloadThatWasNotSeenWithAllItsCausesAndNoOtherIsNotRight(self):
        for seen in ({}, {self.two.key(): {"1": {"Watchdog expired"}}},
                     {self.two.key(): {"1": {"Watchdog expired"}, "2": {"Fan failure", "x"}}}):
            self.assertFound([self.two], seen, [told(self.two)])

    def testAnAlertThatComesAgainIsTwice(self):
        self.assertFound([self.one], seenOf(self.one), [told(self.one), told(self.one, 70)],
                         twice=1)

    def testAnAlertOfAnotherKindOrWithOtherCausesIsWrong(self):
        for wrong in (told(self.two, causes=["Watchdog expired"]),
                      told(self.two, name=UNEXPLAINED)):
            self.assertFound([self.two], seenOf(self.two), [wrong], with_another_cause=1)

    def testAReloadThatWasRequestedIsNotToBeAlerted(self):
        self.assertFound([self.quiet], seenOf(self.quiet), [told(self.quiet, name=UNREQUESTED)],
                         though_requested=1)

    def testAnAlertOfNoReloadIsAnother(self):
        self.assertFound([self.one], seenOf(self.one), [told(self.one), told(self.one, at=99)],
                         other_alerts={f"{UNREQUESTED} of box": 1})

    def testALoopOfThreeReloadsIsNone(self):
        loop = (0.0, {"alertname": "NorvekReloadLoop", "device": "box", "cell": "1"}, {})
        made = [reloaded("1", at, "Power loss") for at in (100, 200, 300)]
        alerts = [told(reload) for reload in made]
        self.assertFound(made, seenOf(*made), [*alerts, loop])
        self.assertFound(made[:2], seenOf(*made[:2]), [*alerts[:2], loop],
                         other_alerts={"NorvekReloadLoop of box": 1})

    def testTheLatencyIsThatOfTheFirstAlertOfEach(self):
        alerts = [told(self.one, 7), told(self.one, 70), told(self.two, 3)]
        self.assertEqual(latencies([self.one, self.two, self.quiet], alerts), [7, 3])
        self.assertEqual(percentile([5, 1, 3, 2, 4], 0.5), 3)
        self.assertEqual(percentile(range(1000), 0.99), 990)


if __name__ == "__main__":
    unittest.main()
