#!/usr/bin/python3
"""Whether a supervisor reloaded, as systems like Nagios ask: kavra check, and their own check_snmp."""

import os
import re
import shlex
import subprocess
import time
import unittest

import support

DOCUMENT = os.path.join(support.ROOT, "docs/monitoring.md")
CHECK_SNMP = "/usr/lib/nagios/plugins/check_snmp"
OK, WARNING, CRITICAL, UNKNOWN = range(4)
STATES = ["OK", "WARNING", "CRITICAL", "UNKNOWN"]
# The plug-ins' guidelines: text, a bar, 'label'=value[unit];[warn];[crit];[min];[max] ...
FIRST = re.compile(r"RELOAD (OK|WARNING|CRITICAL|UNKNOWN) - [^|]+"
                   r"( \|( [a-z_0-9]+=(U|\d+s?)(;[^; ]*){0,4})+)?")
REQUESTED = ["Reload requested", "Reload requested by admin: fans", "Reload requested (kexec): x",
             "Powered off by request", "Power button pressed",
             "Reload requested, but reset or power lost before it finished"]
OTHERS = ["Kernel panic: x", "Watchdog expired; the reload that was requested hung",
          "Immediate restart without shutdown", "Over temperature: x", "Ctrl-Alt-Del on the console",
          "Service x.service failed (inferred)", "Orderly reload, requester unknown",
          "Power lost, hard reset or forced restart", "Unknown: no record of an earlier boot", ""]
USER = """
createUser watcher SHA-256 "authentication phrase" AES "privacy phrase"
rouser     watcher priv -V everything
view       everything included .1
"""
CLIENT = """
defSecurityName   watcher
defSecurityLevel  authPriv
defAuthType       SHA-256
defAuthPassphrase authentication phrase
defPrivType       AES
defPrivPassphrase privacy phrase
"""


def blocks():
    """The plain blocks of the document."""
    with open(DOCUMENT, encoding="utf-8") as file:
        return re.findall(r"^```\n(.*?)^```$", file.read(), flags=re.M | re.S)


def documented(begin):
    """The lines of these blocks that begin so."""
    lines = [line for block in blocks() for line in block.splitlines() if line.startswith(begin)]
    if not lines:
        raise AssertionError(f"{DOCUMENT} shows no {begin}")
    return lines


class CheckTest(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.environment = {"PATH": os.environ["PATH"], "SNMPCONFPATH": self.directory,
                            "HOME": self.directory, "MIBS": ""}

    def run_(self, command):
        return subprocess.run(command, capture_output=True, cwd=self.directory, check=False,
                              env=self.environment, timeout=support.PATIENCE, text=True)

    def checked(self, *options):
        """State and output of a check, which has the form that its callers take."""
        database = [] if "--snmp" in options or "--db" in options else ["--db", "file:kavra.json"]
        result = self.run_([support.KAVRA, "check", *database, *options])
        first = result.stdout.split("\n")[0]
        self.assertEqual(result.stderr, "")
        self.assertRegex(first, re.compile(f"^{FIRST.pattern}$"))
        self.assertEqual(first.split()[1], STATES[result.returncode])
        self.assertNotIn("|", result.stdout[len(first):])
        self.assertNotRegex(result.stdout, "[\x00-\x09\x0b-\x1f\x7f-\x9f]")
        return result.returncode, result.stdout

    def state(self, *options):
        return self.checked(*options)[0]

    def reloaded(self, cell, text, ago):
        self.recordReset(cell, [(text, int(time.time()) - ago)])


class Check(CheckTest):
    def testADatabaseAndAnAgentAreCheckedAlike(self):
        self.reloaded(1, "Watchdog expired", 300)
        self.reloaded(2, "Reload requested: a|b\nc", 90)
        self.setRedundancy(1, 3, True)
        agent = self.start()
        for options, expected in (([], CRITICAL), (["--since", "4min"], WARNING),
                                  (["--since", "4min", "--requested-ok"], OK),
                                  (["--since", "30s"], OK), (["--cell", "2"], WARNING)):
            with self.subTest(options=options):
                ofDatabase = self.checked(*options)
                self.assertEqual(ofDatabase[0], expected)
                ofAgent = self.checked("--snmp", agent.address, *options)
                self.assertEqual(re.sub(r"\d+ ?s\b", "{age}", ofAgent[1]),
                                 re.sub(r"\d+ ?s\b", "{age}", ofDatabase[1]))
                self.assertEqual(ofAgent[0], expected)
        self.assertEqual(self.state("--snmp", agent.address, "--cell", "0"), CRITICAL)
        self.assertIn("Supervisor 2 reloaded 9", self.checked("--cell", "2")[1])
        self.assertIn(r"a\x7cb\nc | last_reload_2=9", self.checked("--cell", "2")[1])

    def testAUserIsTakenFromTheConfigurationOfClients(self):
        self.reloaded(1, "Watchdog expired", 300)
        agent = self.start("--config", self.write("access.conf", USER))
        self.assertEqual(self.state("--snmp", agent.address, "-t", "0.2", "-r", "0"), UNKNOWN)
        self.write("snmp.conf", CLIENT)
        self.assertEqual(self.state("--snmp", agent.address), CRITICAL)
        self.write("snmp.conf", CLIENT.replace("authentication phrase", "another phrase"))
        state, text = self.checked("--snmp", agent.address)
        self.assertEqual(state, UNKNOWN)
        self.assertIn("Authentication failure", text)

    def testWhatCannotBeLookedAtIsUnknown(self):
        silent = f"127.0.0.1:{support.freePort()}"
        blind = self.start("--config", self.write("access.conf",
                                                  "rocommunity public 127.0.0.1 .1.3.6.1.2.1\n"))
        empty = self.start()
        self.write("broken.json", "{")
        for options, reason in (
                (["--snmp", silent, "-t", "0.1", "-r", "0"], "no answer within 0.1 s"),
                (["--snmp", "nobody.invalid"], "unknown host"),
                (["--snmp", blind.address], "the agent has no such table"),
                (["--snmp", empty.address], "no reload is recorded in " + empty.address),
                (["--snmp", empty.address, "--cell", "2"], "the agent shows no cause of cell 2"),
                (["--db", "file:none.json"], "no reload is recorded in file:none.json"),
                (["--db", "file:broken.json"], "parse error"),
                (["--db", f"redis://127.0.0.1:{support.freePort()}"], "Connection refused"),
                (["--db", "nonsense"], "is not the address of a state database"),
                (["--since", "soon"], "--since: 'soon' is not a length of time"),
                (["--since"], "--since"), (["--nonsense"], "--nonsense"),
                (["--snmp", silent, "-A", "x"], "a secret is not for the command line")):
            with self.subTest(options=options):
                state, text = self.checked(*options)
                self.assertEqual(state, UNKNOWN)
                self.assertIn(reason, text)
                self.assertEqual(text.count("\n"), 1)

    def testTheDocumentsExpressionIsWhatCountsAsByRequest(self):
        expression = re.compile(next(block.strip() for block in blocks() if block.startswith("^(")))
        for text in REQUESTED + OTHERS:
            with self.subTest(text=text):
                self.putHistory(1, {0: [(text, int(time.time()) - 60)]})
                byDocument = bool(expression.search(text))
                self.assertEqual(byDocument, text in REQUESTED)
                self.assertEqual(self.state(), WARNING if byDocument else CRITICAL)


class Documented(CheckTest):
    """What the document shows is run as it stands, at an agent of the test's own."""

    def setUp(self):
        super().setUp()
        self.reloaded(1, "Watchdog expired", 300)
        self.agent = self.start()

    def command(self, line):
        line = line.replace("-p 1161", f"-p {self.agent.port}")
        words = shlex.split(line.replace("udp:127.0.0.1:1161", self.agent.address))
        return [word.replace("/var/lib/kavra/kavra.json", self.database) for word in words]

    def testTheShownChecksFindACrash(self):
        for line in documented("kavra check "):
            with self.subTest(line=line):
                words = self.command(line)
                self.assertEqual(self.state(*words[2:]), CRITICAL)

    def testTheConfigurationsCallWhatThereIs(self):
        nagios, = [line for block in blocks() for line in block.splitlines()
                   if "command_line" in line]
        words = shlex.split(nagios.replace("$HOSTADDRESS$", self.agent.address)
                            .replace("$ARG1$", "1h"))[1:]
        self.assertEqual(words[:2], ["/usr/bin/kavra", "check"])
        self.assertEqual(self.state(*words[2:]), CRITICAL)

    def checkedBySnmp(self, command):
        result = self.run_([CHECK_SNMP, *command[1:]])
        return result.returncode, result.stdout + result.stderr

    @unittest.skipUnless(os.path.exists(CHECK_SNMP), "monitoring-plugins-standard is not installed")
    def testCheckSnmpTellsALastReloadByRequestFromOthers(self):
        command = self.command(documented("check_snmp ")[0])
        state, text = self.checkedBySnmp(command)
        self.assertEqual(state, CRITICAL, text)
        self.assertIn("Watchdog expired", text)
        self.reloaded(1, 'no = STRING: "Reload requested', 60)
        self.shows(b"STRING")
        state, text = self.checkedBySnmp(command)
        self.assertEqual(state, CRITICAL, text)
        self.reloaded(1, "Reload requested by admin: a fan", 60)
        self.shows(b"by admin")
        state, text = self.checkedBySnmp(command)
        self.assertEqual(state, OK, text)
        self.assertIn("Reload requested by admin: a fan", text)

    def shows(self, text):
        support.waitFor(lambda: any(text in description
                                    for description, _ in self.agent.manager.rows().values()),
                        "the new reload is in the table")

    @unittest.skipUnless(os.path.exists(CHECK_SNMP), "monitoring-plugins-standard is not installed")
    def testCheckSnmpTakesItsUserFromAFile(self):
        agent = self.start("--config", self.write("access.conf", USER))
        self.reloaded(1, "Reload requested", 60)
        ini = next(block for block in blocks() if block.startswith("[reload]"))
        ini = ini.replace("secname=reader", "secname=watcher")
        ini = ini.replace("authpasswd=PASSPHRASE", "authpasswd=authentication phrase")
        self.write("reload.ini", ini.replace("PASSPHRASE", "privacy phrase"))
        words = self.command(documented("check_snmp ")[0].replace(
            "-P 2c -C public", f"--extra-opts=reload@{self.path('reload.ini')}"))
        words[words.index("-p") + 1] = str(agent.port)
        support.waitFor(lambda: self.checkedBySnmp(words)[0] == OK, "the new reload is shown")


if __name__ == "__main__":
    unittest.main()
