#!/usr/bin/env python3
"""Files that are checked together are one text that compiles, and says what each of them says."""

import importlib.machinery
import importlib.util
import os
import subprocess
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/tidy")


def load():
    loader = importlib.machinery.SourceFileLoader("tidy", SCRIPT)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("tidy", loader))
    loader.exec_module(module)
    return module


TIDY = load()
UNNAMED = "#include <string>\nnamespace {\n\n%s\n\n}  // namespace\n\nstd::string %s() { return %s; }\n"


class Together(unittest.TestCase):
    def textOf(self, *sources):
        with tempfile.TemporaryDirectory() as directory:
            paths = [os.path.join(directory, f"{number}.cpp") for number in range(len(sources))]
            for path, source in zip(paths, sources):
                with open(path, "w", encoding="utf-8") as file:
                    file.write(source)
            return TIDY.textOf(paths)

    def assertCompiles(self, text):
        run = subprocess.run(["g++", "-std=c++20", "-fsyntax-only", "-x", "c++", "-"], input=text,
                             capture_output=True, text=True, check=False)
        self.assertEqual(run.returncode, 0, run.stderr)

    def testWhatTwoFilesKeepToThemselvesUnderOneNameHasTwoNames(self):
        text = self.textOf(UNNAMED % ('constexpr char kType[] = "a";', "first", "kType"),
                           UNNAMED % ('constexpr char kType[] = "b";', "second", "kType"),
                           UNNAMED % ('std::string kType(int n) {\n  return {n};\n}', "third", "kType(1)"))
        self.assertCompiles(text)
        self.assertEqual(text.count("kType"), 6)

    def testAHeaderIsIncludedOnceUnlessAFileIncludesItTwice(self):
        text = self.textOf("#include <string>\nint a;\n",
                           "#include <string>\n#include <vector>\n#include <vector>\nint b;\n")
        self.assertEqual(text.count("<string>"), 1)
        self.assertEqual(text.count("<vector>"), 2)

    def testEachFileIsCheckedOnce(self):
        for count in (0, 1, TIDY.MOST_TOGETHER, TIDY.MOST_TOGETHER + 1, 100):
            paths = [str(number) for number in range(count)]
            bundles = TIDY.bundlesOf(paths)
            self.assertEqual([path for bundle in bundles for path in bundle], paths)
            self.assertTrue(all(len(bundle) <= TIDY.MOST_TOGETHER for bundle in bundles))


if __name__ == "__main__":
    unittest.main()
