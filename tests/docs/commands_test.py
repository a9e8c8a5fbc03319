#!/usr/bin/env python3
"""Every command that a document shows is run as it stands, or by the test that is named for it.

A document's blocks of shell commands are one session each: its commands run in order, in a folder
and a network of its own, with the programs of the build in the PATH. A command that stays, an agent
say, goes on beside the rest until it is started anew, and has to be there until then. Paths below /etc
and /var are taken from the session's folder, /run is empty at first.
"""

import glob
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))
PROGRAMS = os.environ["PROGRAMS"]
PATIENCE = 30  # seconds

# Commands that stay, and what they say when they are ready.
STAY = [
    (re.compile(r"^norvek-snmpd (?!--help)"), re.compile(r"cell \d serves ")),
    (re.compile(r"^kavra .*\bwatch\b"), None),
    (re.compile(r"^kavra .*\bserve\b"), None),
]

# Commands that another test runs, since they build, install or take long: a pattern, and a text
# that stands in the file named.
ELSEWHERE = [
    (r"\./script/run( --once)?", "tests/script/run_test.py", "script/run"),
    (r"\./script/test", ".ci/run", "script/test"),
    (r"cmake --preset release && cmake --build --preset release", "script/run", "cmake --build"),
    (r"cmake --install build/release --prefix \S+", "tests/package/check", "cmake --install"),
    (r"cmake -S examples/agent .*|cmake --build build/example-agent", "tests/package/check",
     '"$examples/agent"'),
    (r"printf 'agentaddress .*' >example-agent.conf", "tests/package/check", "agentaddress"),
    (r"SNMPCONFPATH=\. build/example-agent/example-agent .*", "tests/package/check",
     "agent/example-agent"),
    (r"g\+\+ .*examples/table/table.cpp .*", "tests/package/check", "table/table.cpp"),
    (r"snmptable .*script/base-mibs.*", "script/run", "snmptable"),
    (r"MISCSNMP_RANDOM_SEED=\d+ ctest .*", "script/test", "ctest --test-dir"),
    (r"MISCSNMP_RANDOM_SEED=\d+ .*RandomLives\*'", "tests/resetcause/RandomLivesTest.cpp",
     "RandomLivesTest"),
    (r"script/mutate .*", "tests/script/mutate_test.py", "mutate"),
    # These would write below /var/lib of the machine, and have it reload.
    (r"norvek-reset-cause record .*", "tests/resetcause/CommandLineTest.cpp", '{"record", "--db"'),
    (r"norvek-reset-cause request .*", "tests/resetcause/CommandLineTest.cpp",
     '{"request", "--reason"'),
]

# What a session has before its first command.
BEFORE = {
    "README.md": """
        kavra --db file:STATE record-reset --cell 1 --cause "Power loss"
    """,
    "docs/operations.md": """
        mkdir -p /run/kavra /run/norvek/redis/1 etc/norvek/agent
        kavra --db file:/run/kavra/kavra.json record-reset --cell 1 --cause "Power loss"
        kavra --db file:/run/kavra/kavra.json set-redundancy --cell 1 --protocol 1
        packaging/redis/new-users etc/norvek/redis-1
        cp etc/norvek/redis-1/agent.auth etc/norvek/agent/peer.auth
        ip address add 169.254.1.2/32 dev lo
        for place in "--port 0 --unixsocket /run/norvek/redis/1/redis.sock" "--bind 169.254.1.2"; do
          redis-server $place --aclfile $PWD/etc/norvek/redis-1/users.acl --save '' >redis.log 2>&1 &
        done
        until [ -S /run/norvek/redis/1/redis.sock ]; do sleep 0.05; done
        cp /run/kavra/kavra.json cell1.json
    """,
    "docs/troubleshooting.md": """
        mkdir -p /run/norvek
        kavra --db file:kavra.json record-reset --cell 1 --cause "Power loss"
        kavra --db file:kavra.json set-redundancy --cell 1 --protocol 1
        norvek-snmpd --db file:kavra.json 2>agent.log &
        until grep -q serves agent.log; do sleep 0.05; done
    """,
}

# Places of the system, and what stands for them in a session's folder.
PLACES = {"/etc/norvek": "etc/norvek", "/var/lib/kavra": "var/kavra"}


def documents():
    patterns = ["README.md", "docs/*.md", "packaging/**/README.md"]
    paths = [path for pattern in patterns
             for path in glob.glob(os.path.join(ROOT, pattern), recursive=True)]
    return sorted(os.path.relpath(path, ROOT) for path in paths)


def commandsOf(text):
    """The commands of the blocks of shell code, each with the number of its line."""
    commands, block, number = [], False, 0
    pending, begin = "", 0
    for number, line in enumerate(text.splitlines(), 1):
        stripped = line.strip()
        if stripped.startswith("```"):
            block = stripped == "```sh" and not block
            continue
        if not block or not stripped or stripped.startswith("#"):
            continue
        if not pending:
            begin = number
        if stripped.endswith("\\"):
            pending += stripped[:-1]
            continue
        commands.append((begin, (pending + re.sub(r"\s+# .*$", "", stripped)).strip()))
        pending = ""
    return commands


def elsewhere(command):
    """Whether another test runs it; what it names has to be there."""
    for pattern, path, text in ELSEWHERE:
        if re.fullmatch(pattern, command):
            with open(os.path.join(ROOT, path), encoding="utf-8") as other:
                if text not in other.read():
                    raise AssertionError(f"{path} does not run {command}")
            return True
    return False


class Session:
    """A shell of its own, in a folder of its own."""

    def __init__(self, folder, before):
        self.folder = folder
        os.makedirs(os.path.join(folder, "build/release"))
        os.symlink(PROGRAMS, os.path.join(folder, "build/release/bin"))
        for name in ("packaging", "examples", "mibs"):
            os.symlink(os.path.join(ROOT, name), os.path.join(folder, name))
        self.environment = {**os.environ, "PATH": PROGRAMS + ":" + os.environ["PATH"],
                            "SNMPCONFPATH": folder, "SNMP_PERSISTENT_DIR": folder, "MIBS": "",
                            "HOME": folder}
        self.environment.pop("KAVRA_DB", None)
        self.staying = []
        self.exports = ""
        script = "set -e\nip link set lo up\nmount -t tmpfs tmpfs /run\n" + before
        self.started = subprocess.Popen(["bash", "-c", script + "\necho ready\nwait"], cwd=folder,
                                        env=self.environment, stdout=subprocess.PIPE, text=True,
                                        stderr=subprocess.STDOUT)
        said = []
        for line in self.started.stdout:
            if line == "ready\n":
                return
            said.append(line)
        raise AssertionError("what the session needs: " + "".join(said))

    def run(self, command):
        """What is wrong with it; empty when nothing is."""
        for place, path in PLACES.items():
            command = command.replace(place, os.path.join(self.folder, path))
        if re.match(r"(export )?\w+=\S*$", command):
            self.exports += command + "\n"
            return ""
        for pattern, ready in STAY:
            if pattern.match(command):
                return self.stay(command, ready)
        done = subprocess.run(["bash", "-c", self.exports + command], cwd=self.folder,
                              env=self.environment, stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                              timeout=PATIENCE)
        return "" if done.returncode == 0 else f"ended with {done.returncode}: {done.stdout}"

    def stay(self, command, ready):
        program = command.split()[0]
        again = [one for one in self.staying if one[0].split()[0] == program != "kavra"]
        self.staying = [one for one in self.staying if one not in again]
        problems = self.endAll(again)
        if problems:
            return problems[0]
        log = open(os.path.join(self.folder, f"staying{len(self.staying)}.log"), "w+",
                   encoding="utf-8")
        process = subprocess.Popen(["bash", "-c", self.exports + "exec " + command],
                                   cwd=self.folder, env=self.environment, stdout=log,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        self.staying.append((command, process, log))
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline and process.poll() is None:
            log.seek(0)
            if ready is None or ready.search(log.read()):
                return ""
            time.sleep(0.02)
        log.seek(0)
        return "did not stay, or was not ready: " + log.read()

    @staticmethod
    def endAll(staying):
        """Ends them; tells which have ended by themselves."""
        ended = []
        for command, process, log in staying:
            if process.poll() is not None:
                log.seek(0)
                ended.append(f"{command} ended with {process.returncode}: {log.read()}")
            else:
                process.send_signal(signal.SIGTERM)
                process.wait(PATIENCE)
            log.close()
        return ended

    def end(self):
        ended = self.endAll(self.staying)
        self.started.kill()
        self.started.wait()
        self.started.stdout.close()
        return ended


@unittest.skipUnless("COMMANDS_TEST_ALONE" in os.environ, "needs the right to mount")
class Commands(unittest.TestCase):
    def test_each_command_of_each_document_does_what_it_is_shown_for(self):
        shown = 0
        for document in documents():
            with open(os.path.join(ROOT, document), encoding="utf-8") as file:
                commands = commandsOf(file.read())
            shown += len(commands)
            here = [(line, command) for line, command in commands if not elsewhere(command)]
            if not here:
                continue
            with tempfile.TemporaryDirectory() as folder:
                session = Session(folder, BEFORE.get(document, ""))
                for line, command in here:
                    with self.subTest(place=f"{document}:{line}", command=command):
                        print(f"{document}:{line}: {command}", flush=True)
                        self.assertEqual(session.run(command), "")
                with self.subTest(place=document):
                    self.assertEqual(session.end(), [])
        self.assertGreater(shown, 0)


class Blocks(unittest.TestCase):
    def test_a_command_goes_over_lines_and_a_remark_is_none(self):
        text = "```sh\none   # a remark\n# another\ntwo \\\n  three\n```\n```\nnone\n```\n"
        self.assertEqual(commandsOf(text), [(2, "one"), (4, "two three")])


def alone():
    """The command before one that is to have a network, mounts and processes of its own, which end
    with it; nothing where that cannot be had."""
    command = ["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if os.geteuid() != 0:
        command.append("--map-root-user")
    tried = subprocess.run([*command, "mount", "-t", "tmpfs", "tmpfs", "/run"], check=False,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return command if tried.returncode == 0 else []


if __name__ == "__main__":
    if os.environ.get("COMMANDS_TEST_ALONE") is None and (before := alone()):
        os.environ["COMMANDS_TEST_ALONE"] = "1"
        os.execvp(before[0], [*before, sys.executable, *sys.argv])
    unittest.main()
