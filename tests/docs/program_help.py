"""What the programs' own help says."""

import os
import re
import subprocess

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
PROGRAMS = os.environ.get("PROGRAMS", os.path.join(ROOT, "build/release/bin"))
OPTION = re.compile(r"^  (-[^ ]+)")


def helpOf(program, *command):
    return subprocess.run([os.path.join(PROGRAMS, program), *command, "--help"], text=True,
                          capture_output=True, check=True).stdout


def optionsIn(text):
    """The options of a help, each under all its names: {"-h", "--help", "--db"}."""
    found = set()
    for line in text.splitlines():
        match = OPTION.match(line)
        if match:
            found.update(match.group(1).split(","))
    return found


def commandsIn(text):
    _, _, listed = text.partition("Subcommands:\n")
    return re.findall(r"^  ([a-z-]+) ", listed, flags=re.M)


def optionsOfCommands(program):
    """The options of each command of a program, those of all under ""; -h is everybody's."""
    whole = helpOf(program)
    options = {"": optionsIn(whole)}
    for command in commandsIn(whole):
        options[command] = optionsIn(helpOf(program, command)) - {"-h", "--help"}
    return options
