#!/usr/bin/env python3
"""What bash offers behind a line that somebody has begun to type: options, commands and values."""

import json
import os
import subprocess
import tempfile
import unittest

import program_help

COMPLETIONS = os.path.join(program_help.ROOT, "packaging/bash-completion")
# What bash does when the tab key is pressed: it breaks the line at COMP_WORDBREAKS, calls the
# function, and puts what was offered in the place of the last piece.
ASK = r"""
source "$1/$2"
COMP_LINE=$3 COMP_POINT=${#3}
[[ -v BREAKS ]] && COMP_WORDBREAKS=$BREAKS
function=$(complete -p "$2" | sed 's/.*-F \([^ ]*\).*/\1/')
$function
printf '%s\n' "${COMPREPLY[@]}"
"""


class Completion(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = temporary.name

    def write(self, name, text=""):
        with open(os.path.join(self.directory, name), "w", encoding="utf-8") as file:
            file.write(text)

    def offered(self, line, **environment):
        """What is offered behind the line, sorted; nothing may be said meanwhile."""
        path = program_help.PROGRAMS + ":" + os.environ["PATH"]
        result = subprocess.run(["bash", "--norc", "-c", ASK, "ask", COMPLETIONS, line.split()[0], line],
                                text=True, capture_output=True, check=True, cwd=self.directory,
                                env={"PATH": path, "HOME": self.directory, **environment})
        self.assertEqual(result.stderr, "")
        return sorted(filter(None, result.stdout.splitlines()))

    def publish(self):
        document = {"type": "Redundancy::RedundancyStatus", "protocol": 3, "switchoverCapable": True}
        self.write("db.json", json.dumps({f"cell/{n}/redundancy/status": document for n in (1, 2)}))

    def testOffersTheCommands(self):
        for program, option in (("kavra", "--db file:db.json"), ("norvek-reset-cause", "--root disk")):
            with self.subTest(program=program):
                commands = sorted(program_help.commandsIn(program_help.helpOf(program)))
                self.assertEqual(self.offered(f"{program} "), commands)
                self.assertEqual(self.offered(f"{program} {option} "), commands)
        self.assertEqual(self.offered("kavra ch"), ["check"])
        self.assertEqual(self.offered("kavra s"), ["serve", "set-redundancy", "show", "status"])

    def testOffersTheOptionsOfEachCommand(self):
        for program, everywhere in (("kavra", {"--db", "--db-auth"}), ("norvek-reset-cause", {"--root"})):
            for command, own in program_help.optionsOfCommands(program).items():
                with self.subTest(program=program, command=command):
                    expected = own if command == "" else own | everywhere | {"-h", "--help"}
                    self.assertEqual(self.offered(f"{program} {command} -"), sorted(expected))
        self.assertEqual(self.offered("kavra show --c"), ["--cell", "--color"])

    def testOffersTheProgramThatARequestIsToRun(self):
        self.assertIn("systemctl", self.offered("norvek-reset-cause request --reason x -- system"))
        self.assertEqual(self.offered("norvek-reset-cause request --reason x -- systemctl --"), [])

    def testOffersTheOptionsOfTheAgent(self):
        options = program_help.optionsIn(program_help.helpOf("norvek-snmpd"))
        self.assertEqual(self.offered("norvek-snmpd "), sorted(options))
        self.assertEqual(self.offered("norvek-snmpd --cell-id 1 --tr"), ["--trace", "--trace-file"])

    def testOffersValues(self):
        for line, values in {"kavra status --agent x --format ": ["json", "table"],
                             "kavra status --agent x --format t": ["table"],
                             "kavra show --color=a": ["always", "auto"],
                             "kavra show --snmp h -l a": ["authNoPriv", "authPriv"],
                             "kavra show --snmp h -a SHA-2": ["SHA-224", "SHA-256"],
                             "kavra set-redundancy --switchover-capable ": ["false", "true"],
                             "kavra show --cell ": ["1", "2"],
                             "kavra check --since ": ["1d", "1h"],
                             "norvek-snmpd --trace M": ["MiscSnmp="],
                             "norvek-reset-cause record --cell ": ["1", "2"]}.items():
            with self.subTest(line=line):
                self.assertEqual(self.offered(line), values)

    def testOffersNothingWhereAnythingMayStand(self):
        for line in ("kavra add-cause --cause ", "kavra show --snmp h -u ", "norvek-snmpd --context ",
                     "kavra get cell/1 ", "norvek-reset-cause request --reason ",
                     "norvek-reset-cause find "):
            with self.subTest(line=line):
                self.assertEqual(self.offered(line), [])

    def testOffersFilesAndDatabases(self):
        for name in ("db.json", "db.auth", "other"):
            self.write(name)
        self.assertEqual(self.offered("kavra --db "), ["file:", "redis+unix:", "redis://"])
        # bash puts it behind the colon, at which it has broken the word.
        self.assertEqual(self.offered("kavra --db file:db"), ["db.auth", "db.json"])
        self.assertEqual(self.offered("kavra --db file:db", BREAKS=" "),
                         ["file:db.auth", "file:db.json"])
        self.assertEqual(self.offered("norvek-snmpd --peer-db redis"), ["redis+unix:", "redis://"])
        self.assertEqual(self.offered("kavra --db redis://h --db-auth db.a"), ["db.auth"])
        self.assertEqual(self.offered("norvek-reset-cause record --db file:db.j"), ["db.json"])
        self.assertEqual(self.offered("norvek-reset-cause --root o"), ["other"])
        self.assertEqual(self.offered("kavra serve o"), ["other"])
        self.assertEqual(self.offered("kavra put some/path o"), ["other"])

    def testOffersThePathsOfTheDatabase(self):
        self.publish()
        paths = ["cell/1/redundancy/status", "cell/2/redundancy/status"]
        for line in ("kavra --db file:db.json get ", "kavra --db=file:db.json get ",
                     "kavra get --db file:db.json cell/"):
            with self.subTest(line=line):
                self.assertEqual(self.offered(line), paths)
        self.assertEqual(self.offered("kavra del cell/2", KAVRA_DB="file:db.json"), paths[1:])
        self.assertEqual(self.offered("kavra --db file:none.json get "), [])
        self.assertEqual(os.listdir(self.directory), ["db.json"], "nothing is made by looking")


if __name__ == "__main__":
    unittest.main()
