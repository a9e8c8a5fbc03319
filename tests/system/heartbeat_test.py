#!/usr/bin/python3
"""The sign of life of a boot, as a process that stays."""

import json
import os
import re
import signal
import unittest

import support
from support import waitFor

PROGRAM = os.path.join(support.PROGRAMS, "norvek-reset-cause")
BOOT = "00112233-4455-6677-8899-aabbccddeeff"


class Heartbeat(support.SystemTest):
    def setUp(self):
        super().setUp()
        os.makedirs(self.path("disk/proc/sys/kernel/random"))
        self.write("disk/proc/sys/kernel/random/boot_id", BOOT + "\n")
        os.makedirs(self.path("disk/var/lib"))
        self.folder = self.path("disk/var/lib/norvek-reset-cause")

    def begin(self):
        process = support.Process(self.directory, PROGRAM, "--root", "disk", "heartbeat", "--every", "1")
        self.addCleanup(process.close)
        return process

    def beat(self):
        try:
            with open(os.path.join(self.folder, "heartbeat.json"), encoding="utf-8") as file:
                return json.load(file)
        except (FileNotFoundError, NotADirectoryError, json.JSONDecodeError):
            return None

    @staticmethod
    def pauses(process):
        """How often the process has waited so far."""
        with open(f"/proc/{process.child.pid}/status", encoding="ascii") as status:
            return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status.read(), re.M).group(1))

    def testIsNotedAgainAndAgain(self):
        process = self.begin()
        first = waitFor(self.beat, "a first beat")
        self.assertEqual(first["boot"], BOOT.replace("-", ""))
        waitFor(lambda: (self.beat() or first)["time"] > first["time"], "another beat")
        self.assertEqual(process.stopped(), -signal.SIGTERM)
        self.assertEqual(process.said(), "")

    def testGoesOnAfterAFolderThatCouldNotBeWrittenAndToldOnce(self):
        self.write("disk/var/lib/norvek-reset-cause", "in the way")
        process = self.begin()
        waitFor(process.said, "what is in the way")
        told = process.said()
        before = self.pauses(process)
        waitFor(lambda: self.pauses(process) >= before + 2 or process.hasEnded(), "two more attempts")
        self.assertRegex(told, r"^norvek-reset-cause: .*norvek-reset-cause.*; trying again\n$")
        self.assertEqual(process.said(), told)
        os.unlink(self.folder)
        waitFor(self.beat, "a beat after all")
        self.assertEqual(process.said(), told)


if __name__ == "__main__":
    unittest.main()
