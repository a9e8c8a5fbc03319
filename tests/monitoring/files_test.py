"""The files for Prometheus and its kind: as its programs check them, and as they fit together."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
MONITORING = os.path.join(ROOT, "monitoring")


def text(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def linesOf(text):
    return [line for line in text.splitlines() if line.strip() and not line.strip().startswith("#")]


class FilesTest(unittest.TestCase):
    maxDiff = None

    def assertTaken(self, *command):
        if not shutil.which(command[0]):
            self.skipTest(f"{command[0]} is not installed (script/packages monitoring)")
        result = subprocess.run(command, cwd=MONITORING, text=True, capture_output=True,
                                check=False)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def testPrometheusTakesItsConfigurationAndTheRules(self):
        self.assertTaken("promtool", "check", "config", "prometheus.yml")

    def testAlertmanagerTakesItsConfiguration(self):
        self.assertTaken("amtool", "check-config", "alertmanager.yml")

    def testTheExporterTakesTheModules(self):
        self.assertTaken("prometheus-snmp-exporter", "--config.file=snmp.yml", "--dry-run")

    def testTheSetUpThatTheDocumentShowsIsTaken(self):
        if not os.path.isdir("/etc/prometheus"):
            self.skipTest("Prometheus is not installed (script/packages monitoring)")
        block = text("docs/monitoring.md").split("## Prometheus")[1].split("```")[1].strip().splitlines()
        self.assertEqual([line.split()[0] for line in block],
                         ["apt", "cd", "cat", "cp", "systemctl"])
        with tempfile.TemporaryDirectory() as place:
            shutil.copytree("/etc/prometheus", f"{place}/prometheus")
            # As Debian leaves it, where somebody has set this machine up already.
            with open(f"{place}/prometheus/snmp.yml", "w") as file:
                file.write("# nothing but a comment\n")
            commands = "\n".join(block[1:4]).replace("/etc/prometheus", f"{place}/prometheus")
            commands = commands.replace("/usr/share/doc/norvek-snmpd/examples", ROOT)
            subprocess.run(["bash", "-ec", commands], check=True)
            self.assertTaken("promtool", "check", "config", f"{place}/prometheus/prometheus.yml")
            self.assertTaken("amtool", "check-config", f"{place}/prometheus/alertmanager.yml")
            self.assertTaken("prometheus-snmp-exporter", "--dry-run",
                             f"--config.file={place}/prometheus/snmp.yml")
            self.assertTrue(os.path.exists(f"{place}/prometheus/consoles/norvek.html"))

    def testBothFormsOfTheModulesAskForTheSame(self):
        modules = text("monitoring/snmp-split.yml").partition("\nmodules:\n")[2]
        whoAsks = ("  version: 2", "  auth:", "    community: public")
        self.assertEqual([line[2:] for line in linesOf(modules)],
                         [line for line in linesOf(text("monitoring/snmp.yml"))
                          if line not in whoAsks])

    def testRulesAndPageKnowARequestByTheSameBeginnings(self):
        for path in ("monitoring/norvek-rules.yml", "monitoring/consoles/norvek.html"):
            words, = re.findall(r"\(\?s\)\(([^?)]+)\)", text(path))
            octets, = re.findall(r"0x\(([0-9A-F|]+)\)", text(path))
            self.assertEqual(words, "Reload requested|Powered off by request|Power button pressed")
            self.assertEqual([bytes.fromhex(part).decode() for part in octets.split("|")],
                             words.split("|"))

    def testEachAlertLeadsToItsRunbook(self):
        rules = text("monitoring/norvek-rules.yml")
        alerts = re.findall(r"- alert: (\w+)", rules)
        self.assertEqual(re.findall(r"runbook: docs/monitoring\.md#(\w+)", rules),
                         [alert.lower() for alert in alerts])
        headings = re.findall(r"^### (\w+)$", text("docs/monitoring.md"), re.MULTILINE)
        self.assertEqual(set(alerts) - set(headings), set())


if __name__ == "__main__":
    unittest.main()
