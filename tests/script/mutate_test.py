#!/usr/bin/env python3
"""The mutants of a source are its statements, conditions and neighbours, and nothing else."""

import os
import subprocess
import sys
import tempfile
import unittest

MUTATE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/mutate")


def mutate(source, option):
    with tempfile.NamedTemporaryFile("w", suffix=".cpp", encoding="utf-8") as file:
        file.write(source)
        file.flush()
        output = subprocess.run([sys.executable, MUTATE, option, file.name], check=True,
                                capture_output=True, text=True).stdout
        return output.replace(f"{file.name}:", "")


def mutants(source):
    """What would be left out, turned round or swapped in the source, line by line."""
    return [line.split(": ", 1)[1] for line in mutate(source, "--list").splitlines()]


def inFunction(body):
    """The mutants of a function's body, without the lines' numbers."""
    return [line.split(": ", 1)[1] for line in mutants(f"void f() {{\n{body}\n}}\n")]


def outputOf(source):
    """What the mutated source prints: without a mutant, then with each of them."""
    count = len(mutants(source))
    with tempfile.TemporaryDirectory() as directory:
        program = os.path.join(directory, "mutated")
        subprocess.run(["g++", "-std=c++20", "-w", "-x", "c++", "-", "-o", program], check=True,
                       input=mutate(source, "--print"), text=True)
        return [subprocess.run([program], env={**os.environ, "MUTANT": str(number)}, text=True,
                               capture_output=True, check=False).stdout
                for number in range(count + 1)]


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

    def testSwapsNeighboursThatAreExpressions(self):
        self.assertEqual(
            inFunction("a();\nb = 1;  // why\nconst int c = 2;\nd();\ne();\nreturn;"),
            ["left out: a();", "left out: b = 1;", "swapped: a(); b = 1;", "left out: d();",
             "left out: e();", "left out: return;", "swapped: d(); e();"])

    def testDoesNotSwapAcrossBlocksNorWhatIsAlike(self):
        self.assertEqual(inFunction("a();\nif (c) {\n  b();\n}\nb();\nb();"),
                         ["left out: a();", "turned round: c", "left out: b();", "left out: b();",
                          "left out: b();"])

    def testActsAsTheVariableSays(self):
        source = ("extern \"C\" int puts(const char*);\n"
                  "constexpr int size(int a) {\n  a += 1;\n  return a;\n}\n"
                  "int array[size(1)];\n"
                  "int main() {\n"
                  "  puts(\"1\");\n  puts(\"2\");  // in between\n  puts(\"3\");\n"
                  "  const auto say = [](bool is) {\n    puts(is ? \"yes\" : \"no\");\n  };\n"
                  "  if (const int two = 2; size(two) == 3) say(true);\n"
                  "}\n")
        spoken = ["".join(output.split("\n")) for output in outputOf(source)]
        self.assertEqual(spoken, ["123yes", "123", "23yes", "13yes", "12yes", "123no", "123",
                                  "213yes", "132yes", "123", "123"])

    def testReadsLoopsAndSwitches(self):
        self.assertEqual(inFunction("do {\n  a();\n} while (more());"), ["left out: a();"])
        self.assertEqual(inFunction("do a(); while (more());\nb();"),
                         ["left out: a();", "left out: b();"])
        self.assertEqual(inFunction("for (auto list = all(); const auto& [a, b] : list) use(a, b);"),
                         ["left out: use(a, b);"])
        self.assertEqual(inFunction("for (;;) {\n}\nwhile (next());"), [])
        self.assertEqual(
            inFunction("switch (kind) {\n  case Kind::a: return;\n  case 'b':\n    [[fallthrough]];\n"
                       "  default:\n    c();\n    break;\n}"),
            ["left out: return;", "left out: c();", "left out: break;"])

    def testReadsConditionsOfEveryKind(self):
        self.assertEqual(inFunction("if constexpr (isSmall) a();\nelse b();"),
                         ["left out: a();", "left out: b();"])
        self.assertEqual(inFunction("if (const auto it = find(); it != end()) a();\nelse if (c) b();"),
                         ["turned round: it != end()", "left out: a();", "turned round: c",
                          "left out: b();"])
        self.assertEqual(inFunction("a = b == '?' ? c : d && e ? f : g;"),
                         ["turned round: b == '?'", "turned round: d && e",
                          "left out: a = b == '?' ? c : d && e ? f : g;"])

    def testReadsTheBodiesOfLambdas(self):
        self.assertEqual(
            inFunction("each(list, [this, &n = count_](int a) mutable -> void {\n  use(a);\n});\n"
                       "const auto later = [=] { done(); };\n"
                       "return sorted([](const A& a, const A& b) { return a.key < b.key; },\n"
                       "              [](const A& a) { return a.key; });"),
            ["left out: use(a);",
             "left out: each(list, [this, &n = count_](int a) mutable -> void { use(a); });",
             "left out: done();", "turned round: a.key < b.key"])

    def testReadsBlocksThatAreTried(self):
        self.assertEqual(
            mutants("A::A(int a) try : B(a), c_{a} {\n  d();\n} catch (const E& e) {\n  f();\n"
                    "} catch (...) {\n  throw;\n}\nvoid g() {\n  try {\n    h();\n"
                    "  } catch (...) {\n    i();\n  }\n}\n"),
            ["2: left out: d();", "4: left out: f();", "6: left out: throw;", "10: left out: h();",
             "12: left out: i();"])

    def testReadsOperatorsConstructorsAndRawTexts(self):
        self.assertEqual(
            mutants("A::A() : a_{1}, b_(2), C<D>{3} { e(); }\n"
                    "A& operator=(const A&) = default;\n"
                    "bool operator()(int a) const noexcept { act(); return a == 1; }\n"
                    "bool operator<(const A& a, const A& b) { less(); return a.b < b.b; }\n"
                    'const char* text() { say(R"x({ "b"; ) })x"); return "}"; }\n'
                    "bool A::operator==(const A&) const = default;\n"),
            ["1: left out: e();", "3: left out: act();", "4: left out: less();",
             '5: left out: say(R"x({ "b"; ) })x");'])

    def testReadsClassesAndTemplates(self):
        self.assertEqual(
            mutants("template <class T = std::vector<int>>\n"
                    "  requires std::is_class_v<T>\n"
                    "class A : public B<void(T)> {\n"
                    " public:\n"
                    "  struct Inner { int a{1}; std::string b = make([] { return 2; }); };\n"
                    "  enum class Kind { one, two };\n"
                    "  explicit A(int a) : a_(a) { b(); }\n"
                    "  template <class U> requires requires(U u) { u.go(); }\n"
                    "  void go(U u) const { u.go(); }\n"
                    "  auto end() -> Inner { c(); return {}; }\n"
                    " private:\n  int a_ = 0;\n};\n"
                    "void f() {\n  struct Local {\n    void g() { d(); }\n  };\n  Local{}.g();\n}\n"),
            ["7: left out: b();", "9: left out: u.go();", "10: left out: c();", "16: left out: d();",
             "18: left out: Local{}.g();"])

    def testLeavesEveryKindOfDeclarationAlone(self):
        self.assertEqual(
            inFunction("const auto [a, b] = pair();\nT* const c = make();\nalignas(8) char d[8];\n"
                       "std::map<int, std::function<void()>> e;\nunsigned long f = 1;\n"
                       "static_assert(sizeof(a) == 1);\nusing G = int;\nint h, i;"), [])


if __name__ == "__main__":
    unittest.main()
