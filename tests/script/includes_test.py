#!/usr/bin/env python3
"""The include check finds what is unused and what is missing, and lets the rest pass."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

INCLUDES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/includes")

CLEAN = {
    "platform/Qel/Text.h": "#pragma once\n\n#include <string>\n\n"
    "namespace Qel {\nusing Text = std::string;\nText greeting();\n}  // namespace Qel\n",
    "platform/Qel/Text.cpp": '#include "Qel/Text.h"\n\n'
    'namespace Qel {\nText greeting() { return "hello"; }\n}  // namespace Qel\n',
    "platform/Qel/Pair.h": "#pragma once\n\nnamespace Qel {\n"
    "template <class T>\nstruct Pair {\n  T first;\n  T second;\n};\n}  // namespace Qel\n",
    "tools/main.cpp": '#include "Qel/Text.h"\n\n'
    "int main() { return Qel::greeting().empty() ? 1 : 0; }\n",
}


def includes(changes, *paths):
    """Runs the check over the clean tree with the changes; returns its status and complaints."""
    with tempfile.TemporaryDirectory() as root:
        files = {**CLEAN, **changes}
        for path, text in files.items():
            os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as file:
                file.write(text)
        database = os.path.join(root, "compile_commands.json")
        with open(database, "w", encoding="utf-8") as file:
            json.dump([{"directory": root, "file": os.path.join(root, path),
                        "command": f"ccache clang++ -std=c++20 -Iplatform -I. -o x.o -c "
                                   f"{os.path.join(root, path)}"}
                       for path in files if path.endswith(".cpp")], file)
        run = subprocess.run([sys.executable, INCLUDES, "--root", root, "--database", database,
                              *(os.path.join(root, path) for path in paths)],
                             capture_output=True, text=True, check=False)
        return run.returncode, run.stderr.splitlines()


class Includes(unittest.TestCase):
    def assertFound(self, path, text, *complaints):
        self.assertEqual(includes({path: text}), (1, [f"{path}: {each}" for each in complaints]))

    def testPassesACleanTree(self):
        self.assertEqual(includes({}), (0, []))

    def testNamesAnUnusedHeader(self):
        self.assertFound("tools/main.cpp", "#include <vector>\n\nint main() { return 0; }\n",
                         "unused <vector>")

    def testNamesAnUnusedHeaderOfTheTree(self):
        self.assertFound("tools/main.cpp",
                         '#include "Qel/Text.h"\n\nint main() { return 0; }\n',
                         'unused "Qel/Text.h"')

    def testNamesAMissingHeaderAndWhatItIsFor(self):
        self.assertFound("tools/main.cpp", '#include "Qel/Text.h"\n\nint main() {\n'
                         "  const std::string text = Qel::greeting();\n"
                         "  return text.empty() ? 1 : 0;\n}\n",
                         "missing <string> for string")

    def testLooksIntoAHeaderThroughItsSource(self):
        self.assertFound("platform/Qel/Text.h", "#pragma once\n\n#include <string>\n"
                         "#include <vector>\n\nnamespace Qel {\nusing Text = std::string;\n"
                         "Text greeting();\n}  // namespace Qel\n",
                         "unused <vector>")

    def testLooksIntoAHeaderThatStandsAlone(self):
        self.assertFound("platform/Qel/Pair.h", "#pragma once\n\n#include <vector>\n\n"
                         "namespace Qel {\ntemplate <class T>\nstruct Pair {\n  T first;\n};\n"
                         "}  // namespace Qel\n",
                         "unused <vector>")

    def testDoesNotAskForWhatAFileNeverNames(self):
        text = ('#include "Qel/Text.h"\n\n// a basic_string\nint main() {\n'
                '  const auto text = Qel::greeting();\n  const char* type = "basic_string";\n'
                "  return text.empty() && *type ? 1 : 0;\n}\n")
        self.assertEqual(includes({"tools/main.cpp": text}), (0, []))

    def testLeavesAnIncludeThatIsMarked(self):
        text = "#include <vector>  // IWYU pragma: keep\n\nint main() { return 0; }\n"
        self.assertEqual(includes({"tools/main.cpp": text}), (0, []))

    def testChecksOnlyWhatItIsGiven(self):
        bad = {"tools/main.cpp": "#include <vector>\n\nint main() { return 0; }\n"}
        self.assertEqual(includes(bad, "platform/Qel")[0], 0)
        self.assertEqual(includes(bad, "tools")[0], 1)
        self.assertEqual(includes(bad, "tools/main.cpp")[0], 1)

    def testRefusesToCheckNothing(self):
        self.assertEqual(includes({}, "host")[0], 2)

    def testAFileThatDoesNotCompileIsNoCleanOne(self):
        status, complaints = includes({"tools/main.cpp": "int main() { return nothing; }\n"})
        self.assertEqual(status, 2)
        self.assertEqual(complaints[-1], "script/includes: not understood: tools/main.cpp")


if __name__ == "__main__":
    unittest.main()
