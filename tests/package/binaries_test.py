#!/usr/bin/env python3
"""What the loader is told by everything that a build leaves behind, and how what users run is hardened.

The build tree is named by the environment: BUILD, and HARDENED=1 where the build is to be hardened.
"""

import glob
import os
import re
import subprocess
import unittest

BUILD = os.environ["BUILD"]
HARDENED = os.environ.get("HARDENED") == "1"
PROGRAMS = ["bin/norvek-snmpd", "bin/kavra", "bin/norvek-reset-cause"]
LIBRARIES = ["lib/libqelplatform.so", "lib/libMiscSnmp.so", "lib/norvek.so"]


def readelf(*arguments):
    return subprocess.run(["readelf", "--wide", *arguments], text=True, capture_output=True,
                          check=True, env={**os.environ, "LC_ALL": "C"}).stdout


def isElf(file):
    if os.path.islink(file) or not os.path.isfile(file):
        return False
    with open(file, "rb") as content:
        return content.read(4) == b"\x7fELF"


def built():
    """Every program and library of the build tree, tests and benchmarks included."""
    return [file for folder in ("bin", "lib") for file in glob.glob(f"{BUILD}/{folder}/*")
            if isElf(file)]


def flags(file, tag):
    """What a tag of the dynamic section says, "" without it."""
    found = re.search(rf"\({tag}\)(.*)", readelf("--dynamic", file))
    return found.group(1) if found else ""


def checksOf(file):
    """The checking functions of the C library that a file calls."""
    return re.findall(r"UND (__\w+_chk\w*)", readelf("--dyn-syms", file))


def searchPath(file):
    """The folders in which the loader looks for libraries, or None where the file names none."""
    found = re.search(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", readelf("--dynamic", file))
    return found.group(1).split(":") if found else None


class Binaries(unittest.TestCase):
    def testLibrariesAreLookedForBesideTheProgramAlone(self):
        """No empty element, which is the current folder, and no folder of the machine that built."""
        files = built()
        for product in PROGRAMS + LIBRARIES:
            self.assertIn(os.path.realpath(f"{BUILD}/{product}"), map(os.path.realpath, files))
        for file in files:
            for folder in searchPath(file) or []:
                self.assertRegex(folder, r"^\$ORIGIN(/|$)", f"{file}: {searchPath(file)}")


@unittest.skipUnless(HARDENED, "this build is not hardened")
class Hardening(unittest.TestCase):
    def forEach(self, products, check):
        for product in products:
            with self.subTest(product):
                check(os.path.realpath(f"{BUILD}/{product}"))

    def testProgramsAreLoadedAnywhere(self):
        def check(file):
            self.assertIn("PIE", flags(file, "FLAGS_1"))
        self.forEach(PROGRAMS, check)

    def testWhatTheLoaderBoundIsReadOnlyAfterIt(self):
        def check(file):
            self.assertIn("GNU_RELRO", readelf("--program-headers", file))
            self.assertIn("BIND_NOW", flags(file, "FLAGS"))
        self.forEach(PROGRAMS + LIBRARIES, check)

    def testNoStackCanBeExecuted(self):
        def check(file):
            self.assertRegex(readelf("--program-headers", file), r"GNU_STACK.* RW +0x")
        self.forEach(PROGRAMS + LIBRARIES, check)

    def testStacksAndBuffersAreChecked(self):
        def check(file):
            self.assertIn("__stack_chk_fail", checksOf(file))
            self.assertIn("__memcpy_chk", checksOf(file))
        self.forEach(PROGRAMS + LIBRARIES, check)


if __name__ == "__main__":
    unittest.main()
