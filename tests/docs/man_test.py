#!/usr/bin/env python3
"""The man pages format without a warning and name exactly the options that the programs have."""

import glob
import json
import os
import re
import subprocess
import tempfile
import unittest

import program_help

PAGES = os.path.join(program_help.ROOT, "docs/man")


def source(page):
    with open(os.path.join(PAGES, page), encoding="utf-8") as file:
        return file.read()


def formatted(page):
    return subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", page], text=True,
                          capture_output=True, check=False,
                          env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8"})


def optionsOf(text):
    """The options that items of a page name: ".It Fl l , Fl -long" has -l and --long."""
    return {"-" + name for line in re.findall(r"^\.It (Fl .*)$", text, flags=re.M)
            for name in re.findall(r"Fl (\S+)", line)}


def sections(text):
    """The parts of a page: {command: its part}, with the options of the program under ""."""
    parts = re.split(r"^\.S[sh] ", text, flags=re.M)
    found = {"": "".join(part for part in parts if part.startswith("OPTIONS"))}
    for part in parts:
        name = re.match(r"[a-z-]+(?=\s)", part)
        if name:
            found[name.group()] = part
    return found


class Man(unittest.TestCase):
    maxDiff = None

    def testEachPageFormatsWithoutAWarningIn80Columns(self):
        pages = sorted(glob.glob(os.path.join(PAGES, "*.[1-8]")))
        self.assertLessEqual({"kavra.1", "kavra.json.5", "norvek-reset-cause.8", "norvek-snmpd.8"},
                             set(map(os.path.basename, pages)))
        for page in pages:
            with self.subTest(page=os.path.basename(page)):
                result = formatted(page)
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertIn("NAME\n", result.stdout)
                self.assertLessEqual(max(map(len, result.stdout.splitlines())), 80)

    def testAWarningIsSeen(self):
        with tempfile.NamedTemporaryFile("w", suffix=".1") as page:
            page.write(source("kavra.1").replace(".Sh OPTIONS", ".Sh OPTIONS\n.nosuchmacro\n"))
            page.flush()
            self.assertIn("nosuchmacro", formatted(page.name).stderr)

    def testTheAgentsPageNamesTheOptionsOfTheAgent(self):
        self.assertEqual(optionsOf(source("norvek-snmpd.8")),
                         program_help.optionsIn(program_help.helpOf("norvek-snmpd")))

    def testPagesNameTheOptionsOfEachCommand(self):
        for program, page in (("kavra", "kavra.1"), ("norvek-reset-cause", "norvek-reset-cause.8")):
            with self.subTest(program=program):
                written = {command: optionsOf(text)
                           for command, text in sections(source(page)).items()}
                self.assertEqual(written, program_help.optionsOfCommands(program))

    def testTheExampleOfADatabaseIsOne(self):
        example = re.search(r"^\.Sh EXAMPLES\n\.Bd.*?\n(.*?)^\.Ed", source("kavra.json.5"),
                            flags=re.M | re.S).group(1)
        with tempfile.TemporaryDirectory() as directory:
            for path, document in json.loads(example).items():
                subprocess.run([os.path.join(program_help.PROGRAMS, "kavra"), "--db",
                                f"file:{directory}/kavra.json", "put", path], text=True, check=True,
                               input=json.dumps(document), capture_output=True)


if __name__ == "__main__":
    unittest.main()
