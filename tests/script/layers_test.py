#!/usr/bin/env python3
"""The layer check finds each kind of violation, where it is, and no other."""

import os
import subprocess
import sys
import tempfile
import unittest

LAYERS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../script/layers")

CLEAN = {
    "platform/Qel/Ptr.h": "#pragma once\n#include <memory>\n",
    "platform/System/ResetCause.h": '#pragma once\n#include "Qel/Ptr.h"\n',
    "platform/Kavra/EntityManager.h": '#pragma once\n#include "Qel/Ptr.h"\n',
    "platform/Kavra/Store.h": '#pragma once\n#include "Qel/Ptr.h"\n',
    "platform/Kavra/Json/Text.h": "#pragma once\n#include <nlohmann/json.hpp>\n",
    "platform/Kavra/File/Store.h": '#pragma once\n#include "Kavra/Store.h"\n',
    "platform/Kavra/File/Store.cpp": '#include "Kavra/File/Store.h"\n\n#include "Kavra/Json/Text.h"\n',
    "platform/Kavra/Redis/Reply.h": "#pragma once\n#include <hiredis/hiredis.h>\n",
    "platform/Kavra/Redis/Store.h": '#pragma once\n#include "Kavra/Redis/Reply.h"\n'
    '#include "Kavra/Store.h"\n',
    "platform/Kavra/StoreUrl.h": '#pragma once\n#include "Kavra/Store.h"\n',
    "platform/Kavra/StoreUrl.cpp": '#include "Kavra/StoreUrl.h"\n\n#include "Kavra/File/Store.h"\n'
    '#include "Kavra/Redis/Store.h"\n',
    "platform/Snmp/NetSnmp.h": "#pragma once\n#include <net-snmp/net-snmp-config.h>\n",
    "platform/Snmp/Contexts.h": '#pragma once\n#include "Snmp/NetSnmp.h"\n',
    "MiscSnmp/GeneralMib.h": '#pragma once\n#include "System/ResetCause.h"\n',
    "MiscSnmpAgent/Agent.cpp": '#include "Kavra/EntityManager.h"\n#include "MiscSnmp/GeneralMib.h"\n',
    "NorvekGeneralMIB/NetSnmp.h": "#pragma once\n#include <net-snmp/net-snmp-config.h>\n",
    "NorvekGeneralMIB/Table.cpp": '#include "MiscSnmp/GeneralMib.h"\n#include "Snmp/Contexts.h"\n',
    "host/NetSnmp.h": "#pragma once\n#include <net-snmp/net-snmp-config.h>\n",
    "host/main.cpp": '#include "host/NetSnmp.h"\n#include "Kavra/StoreUrl.h"\n',
    "tools/NetSnmp.h": "#pragma once\n#include <net-snmp/net-snmp-config.h>\n",
    "tools/SnmpAgent.cpp": '#include "tools/NetSnmp.h"\n',
    "tools/kavra.cpp": '#include "Kavra/Json/Text.h"\n#include "Kavra/StoreUrl.h"\n',
    "tests/MiscSnmp/GeneralMibTest.cpp": '#include "MiscSnmp/GeneralMib.h"\n'
    '#include "support/Recorder.h"\n',
    "tests/support/Recorder.h": "#pragma once\n",
}


def layers(changes):
    """Runs the check over the clean tree with the changes; returns its status and complaints."""
    with tempfile.TemporaryDirectory() as root:
        for path, text in {**CLEAN, **changes}.items():
            os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as file:
                file.write(text)
        run = subprocess.run([sys.executable, LAYERS, "--root", root], capture_output=True,
                             text=True, check=False)
        return run.returncode, run.stderr.splitlines()


class Layers(unittest.TestCase):
    def assertRefused(self, path, text, *where):
        status, complaints = layers({path: text})
        self.assertEqual(status, 1)
        self.assertEqual([":".join(line.split(":")[:2]) for line in complaints],
                         list(where) or [f"{path}:1"], complaints)

    def testPassesACleanTree(self):
        self.assertEqual(layers({}), (0, []))

    def testRefusesToCheckNothing(self):
        with tempfile.TemporaryDirectory() as root:
            run = subprocess.run([sys.executable, LAYERS, "--root", root], capture_output=True,
                                 check=False)
        self.assertEqual(run.returncode, 2)

    def testNamesTheLine(self):
        self.assertRefused("MiscSnmp/Row.cpp", '#include "Qel/Ptr.h"\n\n#include "Snmp/Contexts.h"\n',
                           "MiscSnmp/Row.cpp:3", "platform/Snmp/NetSnmp.h:2")

    def testTheFrameworkIncludesNoOtherRoomOfThePlatform(self):
        self.assertRefused("platform/Qel/Dir.h", '#include "System/ResetCause.h"\n')

    def testRoomsOfThePlatformIncludeTheFrameworkAlone(self):
        for room in ("System", "Redundancy", "Cell"):
            self.assertRefused(f"platform/{room}/X.h", '#include "Kavra/EntityManager.h"\n')
        self.assertRefused("platform/Kavra/X.h", '#include "System/ResetCause.h"\n')
        self.assertRefused("platform/Snmp/X.h", '#include "Kavra/EntityManager.h"\n')

    def testThePlatformDoesNotKnowTheProduct(self):
        self.assertRefused("platform/Qel/Dir.h", "// for MiscSnmp\n")
        self.assertRefused("platform/Snmp/X.cpp", 'const char* name = "NorvekGeneralMIB";\n')

    def testThePlatformDoesNotIncludeThePlugIn(self):
        self.assertRefused("platform/System/X.cpp", '#include "MiscSnmp/GeneralMib.h"\n',
                           "platform/System/X.cpp:1", "platform/System/X.cpp:1")

    def testTheModelKnowsNeitherAgentNorTable(self):
        self.assertRefused("MiscSnmp/Row.cpp", '#include "MiscSnmpAgent/Agent.h"\n')
        self.assertRefused("MiscSnmp/Row.cpp", '#include "Kavra/EntityManager.h"\n')

    def testAgentAndTableDoNotKnowEachOther(self):
        self.assertRefused("MiscSnmpAgent/Root.cpp", '#include "NorvekGeneralMIB/Table.h"\n')
        self.assertRefused("NorvekGeneralMIB/Walk.cpp", '#include "MiscSnmpAgent/Agent.h"\n')

    def testTheTableReadsTheModelAlone(self):
        self.assertRefused("NorvekGeneralMIB/Walk.cpp", '#include "System/ResetCause.h"\n')

    def testProgramsDoNotIncludeThePlugIn(self):
        for program in ("host", "tools"):
            for room in ("MiscSnmp", "MiscSnmpAgent", "NorvekGeneralMIB"):
                self.assertRefused(f"{program}/X.cpp", f'#include "{room}/X.h"\n')

    def testProgramsDoNotIncludeEachOther(self):
        self.assertRefused("tools/X.cpp", '#include "host/Options.h"\n')

    def testProductFilesDoNotIncludeTests(self):
        self.assertRefused("host/X.cpp", '#include "support/Recorder.h"\n')

    def testNetSnmpComesThroughTheWrapperAlone(self):
        text = "#include <net-snmp/net-snmp-includes.h>\n"
        for path in ("host/X.cpp", "NorvekGeneralMIB/X.cpp", "platform/Snmp/X.h", "tests/host/X.cpp",
                     "MiscSnmp/X.cpp", "tools/X.cpp", "host/sub/NetSnmp.h"):
            self.assertRefused(path, text)

    def testRoomsWithoutNetSnmpDoNotSeeItThroughOthers(self):
        self.assertRefused("MiscSnmpAgent/X.cpp", '#include "Snmp/Contexts.h"\n',
                           "MiscSnmpAgent/X.cpp:1", "platform/Snmp/NetSnmp.h:2")

    def testStorageStaysInTheStateDatabase(self):
        for library in ("hiredis/hiredis.h", "nlohmann/json.hpp"):
            for path in ("host/X.cpp", "platform/System/X.cpp", "MiscSnmpAgent/X.cpp",
                         "platform/Kavra/X.cpp", "platform/Kavra/File/X.cpp"):
                self.assertRefused(path, f"#include <{library}>\n")

    def testThePlugInDoesNotSeeStorageThroughHeaders(self):
        self.assertRefused("platform/Kavra/EntityManager.h", '#include "Kavra/Json/Text.h"\n',
                           "platform/Kavra/EntityManager.h:1", "platform/Kavra/Json/Text.h:2")

    def testTheTwoDatabasesDoNotKnowEachOther(self):
        self.assertRefused("platform/Kavra/File/X.h", '#include "Kavra/Redis/Reply.h"\n')
        self.assertRefused("platform/Kavra/Redis/X.cpp", '#include "Kavra/File/Store.h"\n')

    def testDocumentsAsTextKnowNoDatabase(self):
        for database in ("File", "Redis"):
            self.assertRefused("platform/Kavra/Json/X.cpp", f'#include "Kavra/{database}/Store.h"\n')

    def testTheStateDatabaseKnowsNeitherOfItsRooms(self):
        for header in ("File/Store.h", "Redis/Store.h", "Json/Text.h"):
            self.assertRefused("platform/Kavra/X.cpp", f'#include "Kavra/{header}"\n')

    def testOnlyProgramsChooseADatabaseByItsUrl(self):
        for path in ("platform/Kavra/X.cpp", "platform/Kavra/File/X.cpp", "platform/Kavra/Json/X.cpp",
                     "platform/Kavra/Redis/X.cpp", "MiscSnmpAgent/X.cpp"):
            self.assertRefused(path, '#include "Kavra/StoreUrl.h"\n')

    def testNobodyElseSeesTheRoomsOfTheStateDatabase(self):
        for path in ("MiscSnmpAgent/X.cpp", "platform/System/X.cpp", "host/X.cpp"):
            self.assertRefused(path, '#include "Kavra/File/Store.h"\n')
        self.assertRefused("tools/X.cpp", '#include "Kavra/Redis/Store.h"\n')

    def testIncludesStartAtTheRoot(self):
        self.assertRefused("host/X.cpp", '#include "../host/Options.h"\n')
        self.assertRefused("host/X.cpp", '#include "Options.h"\n')


if __name__ == "__main__":
    unittest.main()
