#!/usr/bin/env python3
"""The systemd units as they are shipped: how much of the machine they leave open, and that they keep
their promises about rights and restarts.

`systemd-analyze security` rates a unit from 0 (safe) to 10. Nothing here needs a running systemd.
"""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
UNITS = os.path.join(ROOT, "packaging/systemd")
TUNNEL = os.path.join(ROOT, "packaging/tunnel/kavra-tunnel.service")
BAR = 1.5
RECORD = "norvek-reset-cause.service"
HEARTBEAT = "norvek-reset-cause-heartbeat.service"


def settings(text):
    """What each directive of a unit is set to, in order."""
    found = {}
    for name, value in re.findall(r"^(\w+)=(.*)$", text, re.MULTILINE):
        found.setdefault(name, []).append(value)
    return found


class Units(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = temporary.name
        self.units = {}
        for file in [TUNNEL, *glob.glob(f"{UNITS}/*.service")]:
            instance = os.path.basename(file).replace("@.", "@1.")
            shutil.copy(file, os.path.join(self.directory, instance))
            with open(file) as text:
                self.units[instance] = text.read()
        self.assertEqual(sorted(self.units), ["kavra-publisher@1.service", "kavra-redis@1.service",
                                              "kavra-tunnel.service", HEARTBEAT, RECORD,
                                              "norvek-snmpd.service"])
        self.settings = {unit: settings(text) for unit, text in self.units.items()}

    def rating(self, unit):
        said = subprocess.run(
            ["systemd-analyze", "security", "--offline=true", os.path.join(self.directory, unit)],
            text=True, capture_output=True, check=True, env={**os.environ, "LC_ALL": "C"})
        found = re.search(r"Overall exposure level for \S+: ([0-9.]+)", said.stdout)
        print(f"{unit}: {found.group(1)}")
        return float(found.group(1))

    def testLeaveLittleOfTheMachineOpen(self):
        for unit in self.units:
            with self.subTest(unit):
                self.assertLessEqual(self.rating(unit), BAR)

    def testPort161TakesOneCapabilityMore(self):
        unit = "norvek-snmpd.service"
        with open(os.path.join(UNITS, "port-161.conf")) as dropIn, \
             open(os.path.join(self.directory, unit), "a") as text:
            text.write(dropIn.read())
        self.assertLessEqual(self.rating(unit), BAR)

    def testRunAsAUserOfTheirOwn(self):
        users = {unit: found["User"] for unit, found in self.settings.items() if "User" in found}
        self.assertEqual(users, {"kavra-publisher@1.service": ["kavra"],
                                 "kavra-redis@1.service": ["kavra-redis"],
                                 "norvek-snmpd.service": ["norvek-snmpd"]})
        self.assertEqual(self.settings["kavra-tunnel.service"]["DynamicUser"], ["yes"])

    def testAsRootHaveNoRightThatTheyCanDoWithout(self):
        """To read what is root's, write where others own, and leave to these what it wrote."""
        self.assertEqual(self.settings[RECORD]["CapabilityBoundingSet"],
                         ["CAP_CHOWN CAP_DAC_OVERRIDE CAP_FOWNER"])
        self.assertEqual(self.settings[HEARTBEAT]["CapabilityBoundingSet"], [""])
        for unit in (RECORD, HEARTBEAT):
            with self.subTest(unit):
                self.assertEqual(self.settings[unit]["PrivateNetwork"], ["yes"])
                self.assertEqual(self.settings[unit]["UMask"], ["0022"], "others read what it leaves")

    def testAreGivenTheirOwnSecretsAlone(self):
        secrets = {unit: found["LoadCredential"] for unit, found in self.settings.items()
                   if "LoadCredential" in found}
        self.assertEqual(secrets, {
            "norvek-snmpd.service": ["agent:/etc/norvek/agent"],
            "kavra-publisher@1.service":
                ["publisher.auth:/etc/norvek/redis-%i/publisher.auth"],
            "kavra-redis@1.service": ["users.acl:/etc/norvek/redis-%i/users.acl"],
            "kavra-tunnel.service": ["own.key:/etc/norvek/tunnel/own.key"]})

    def testAreNotKilledForACallThatTheyCanDoWithout(self):
        for unit, text in self.units.items():
            with self.subTest(unit):
                self.assertEqual(settings(text)["SystemCallErrorNumber"], ["EPERM"])

    def testComeBackHoweverOftenTheyFail(self):
        for unit in self.units.keys() - {RECORD}:
            with self.subTest(unit):
                self.assertEqual(self.settings[unit]["StartLimitIntervalSec"], ["0"])
                self.assertIn(self.settings[unit]["Restart"], [["always"], ["on-failure"]])

    def testTryARecordAgainForAWhile(self):
        """Nothing is lost by giving up: the judgement is kept, and is recorded when asked again."""
        found = self.settings[RECORD]
        self.assertEqual((found["Restart"], found["RestartPreventExitStatus"]), (["on-failure"], ["2"]))
        attempt = int(found["TimeoutStartSec"][0].removesuffix("s"))
        pause = int(found["RestartSec"][0].removesuffix("s"))
        within = 60 * int(found["StartLimitIntervalSec"][0].removesuffix("min"))
        self.assertEqual(attempt, 60, "the agent waits no longer for the first")
        # Also when each attempt takes as long as all that a judgement waits for, there is an end.
        self.assertLess(int(found["StartLimitBurst"][0]) * (pause + 45), within)

    def testJudgeBeforeAnybodyAsks(self):
        found = self.settings[RECORD]
        self.assertLessEqual({"systemd-pstore.service", "systemd-journal-flush.service"},
                             set(" ".join(found["After"]).split()))
        self.assertEqual(found["Before"], ["norvek-snmpd.service snmpd.service"])
        self.assertIn(RECORD, self.settings["kavra-publisher@1.service"]["After"])

    def testTellWhenTheyAreReady(self):
        types = {unit: found.get("Type") for unit, found in self.settings.items()}
        self.assertEqual(types.pop("kavra-tunnel.service"), None, "stunnel does not tell")
        self.assertEqual(types.pop(RECORD), ["oneshot"], "it is ready when it is done")
        self.assertEqual(types.pop(HEARTBEAT), None, "nobody waits for it")
        for unit, kind in types.items():
            with self.subTest(unit):
                self.assertEqual(kind, ["notify"])


if __name__ == "__main__":
    unittest.main()
