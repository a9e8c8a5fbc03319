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
                                              "kavra-tunnel.service", "norvek-snmpd.service"])

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
        found = {unit: settings(text) for unit, text in self.units.items()}
        users = [found[unit].get("User") for unit in sorted(found)]
        self.assertEqual(users, [["kavra"], ["kavra-redis"], None, ["norvek-snmpd"]])
        self.assertEqual(found["kavra-tunnel.service"]["DynamicUser"], ["yes"])

    def testAreGivenTheirOwnSecretsAlone(self):
        secrets = {unit: settings(text)["LoadCredential"] for unit, text in self.units.items()}
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
        for unit, text in self.units.items():
            with self.subTest(unit):
                self.assertEqual(settings(text)["StartLimitIntervalSec"], ["0"])
                self.assertIn(settings(text)["Restart"], [["always"], ["on-failure"]])

    def testTellWhenTheyAreReady(self):
        for unit, text in self.units.items():
            if unit == "kavra-tunnel.service":
                continue  # stunnel does not tell
            with self.subTest(unit):
                self.assertEqual(settings(text)["Type"], ["notify"])


if __name__ == "__main__":
    unittest.main()
