#!/usr/bin/env python3
"""The mutants of a source are its statements and conditions, and nothing else."""

import os
import subprocess
import sys
import tempfile
import unittest

MUTATE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/mutate")


def mutants(source):
    """What would be left out or turned round in the source, line by line."""
    with tempfile.NamedTemporaryFile("w", suffix=".cpp", encoding="utf-8") as file:
        file.write(source)
        file.flush()
        listing = subprocess.run([sys.executable, MUTATE, "--list", file.name], check=True,
                                 capture_output=True, text=True).stdout
        return [line.split(f"{file.name}:")[1] for line in listing.splitlines()]


class MutateTest(unittest.TestCase):
    def testLeavesOutStatementsAndTurnsConditionsRound(self):
        self.assertEqual(
            mutants("namespace a {\n"
                    "void Sm::handle(int key) {\n"
                    "  if (key != 0) return;\n"
                    "  for (int i = 0; i < 3; ++i) {\n"
                    "    owner_->act(i);\n"
                    "  }\n"
                    "  state_ = key;\n"
                    "}\n"
                    "}  // namespace a\n"),
            ["3: turned round: key != 0", "3: left out: return;", "5: left out: owner_->act(i);",
             "7: left out: state_ = key;"])

    def testLeavesDeclarationsValuesCommentsAndTextsAlone(self):
        self.assertEqual(
            mutants('#include "a.h"\n'
                    "const int limit = 3;\n"
                    "int f() {\n"
                    "  // act();\n"
                    "  const Ptr<A> a = make();\n"
                    "  Ptr<A> b;\n"
                    "  return a->number();\n"
                    "}\n"
                    "void g() {\n"
                    '  say("if (a) { b(); }");\n'
                    "}\n"),
            ['10: left out: say("if (a) { b(); }");'])

    def testTurnsTernariesAndPredicatesRound(self):
        self.assertEqual(
            mutants("int f() { return ptr_ ? ptr_->a() : 0; }\n"
                    "void g() {\n"
                    "  each([](int i) { return i == 2; });\n"
                    "}\n"),
            ["1: turned round: ptr_", "3: turned round: i == 2",
             "3: left out: each([](int i) { return i == 2; });"])

    def testDoesNotTurnAConditionRoundThatDeclares(self):
        self.assertEqual(
            mutants("void f() {\n  if (const auto owner = live()) owner->act();\n}\n"),
            ["2: left out: owner->act();"])


if __name__ == "__main__":
    unittest.main()
