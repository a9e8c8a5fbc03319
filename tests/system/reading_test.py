#!/usr/bin/python3
"""What managers read from an agent over a state database that kavra wrote: one table of
expectations, asked for in every way that SNMP knows, by two independent managers."""

import contextlib
import os
import re
import socket
import subprocess
import unittest

from pysnmp.hlapi import (CommunityData, ContextData, ObjectIdentity, ObjectType, SnmpEngine,
                          UdpTransportTarget, bulkCmd, getCmd, nextCmd, setCmd)
from pysnmp.proto.rfc1902 import Gauge32, OctetString

import snmp_client
import support
from support import DESCRIPTION, ENTRY, SYSTEM, TIME, expectations, rowsOf

CAUSES = [("Power loss", 1700000000.9), ("", 0), ("Größe — ünïcode", 951782400),
          ("x" * 1024, 4294967295), ("tab\tand\nline", 1709164799.5)]
PEER = [("Watchdog", 1700000100.25), ("Kernel panic", 1700000101)]


class PySnmp:
    """The second manager: pysnmp, one answer as (object identifier, octets or exception)."""

    def __init__(self, port, version=1):
        self.parameters = (SnmpEngine(), CommunityData("public", mpModel=version),
                           UdpTransportTarget(("127.0.0.1", port), timeout=2, retries=3),
                           ContextData())

    @staticmethod
    def plain(bindings):
        return [(str(name), value.asOctets() if isinstance(value, OctetString)
                 else type(value).__name__) for name, value in bindings]

    @staticmethod
    def objects(names):
        return [ObjectType(ObjectIdentity(name)) for name in names]

    def get(self, *names):
        error, status, _, bindings = next(getCmd(*self.parameters, *self.objects(names)))
        assert not error and not status, (error, status)
        return self.plain(bindings)

    def walk(self, root, command=nextCmd, *repetitions):
        answers = []
        for error, status, _, bindings in command(*self.parameters, *repetitions,
                                                  *self.objects([root]), lexicographicMode=False):
            assert not error and not status, (error, status)
            answers += self.plain(bindings)
        return [answer for answer in answers if answer[1] != "EndOfMibView"]

    def set(self, name, value):
        error, status, _, _ = next(setCmd(*self.parameters,
                                          ObjectType(ObjectIdentity(name), value)))
        assert not error, error
        return str(status.prettyPrint())


class Reading(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, [("an older reload", 5)])
        self.recordReset(1, CAUSES)
        self.recordReset(2, PEER)
        self.setRedundancy(1, protocol=3, capable=True)
        self.agent = self.start("--context", "blue")
        self.rows = {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES), **rowsOf(2, PEER)}
        self.expected = expectations(self.rows)
        self.assertRows(self.agent, self.rows)
        self.manager = self.agent.manager
        self.second = PySnmp(self.agent.port)

    def testGetReadsEachInstance(self):
        for expectation in self.expected:
            self.assertEqual(self.manager.get(expectation[0]), [expectation])
            self.assertEqual(self.second.get(expectation[0]), [expectation])

    def testGetReadsManyInstancesAtOnce(self):
        names = [name for name, _ in reversed(self.expected) if not name.endswith(".4")]
        wanted = [(name, dict(self.expected)[name]) for name in names]
        self.assertEqual(self.manager.get(*names), wanted)
        self.assertEqual(self.second.get(*names), wanted)

    def testGetNextReadsTheChain(self):
        name = ENTRY
        for expectation in self.expected:
            self.assertEqual(self.manager.next(name), [expectation])
            name = expectation[0]
        self.assertEqual(self.manager.next(name), [(name, "endOfMibView")])

    def testGetNextTakesPartialAndMissingIndexes(self):
        first = {name: value for name, value in self.expected}
        for asked, answered in [(f"{DESCRIPTION}", f"{DESCRIPTION}.0.0.1"),
                                (f"{DESCRIPTION}.1", f"{DESCRIPTION}.1.0.1"),
                                (f"{DESCRIPTION}.1.0", f"{DESCRIPTION}.1.0.1"),
                                (f"{DESCRIPTION}.0.0.9", f"{DESCRIPTION}.1.0.1"),
                                (f"{DESCRIPTION}.0.7", f"{DESCRIPTION}.1.0.1"),
                                (f"{DESCRIPTION}.1.0.2.0", f"{DESCRIPTION}.1.0.3"),
                                (f"{DESCRIPTION}.2.0.2", f"{TIME}.0.0.1"),
                                (f"{DESCRIPTION}.4294967295.0.1", f"{TIME}.0.0.1"),
                                ("1", f"{DESCRIPTION}.0.0.1")]:
            name = f"{ENTRY}.{answered}"
            self.assertEqual(self.manager.next(f"{ENTRY}.{asked}"), [(name, first[name])], asked)

    def testBulkReadsTheWholeTable(self):
        for repetitions in (1, 3, 7, 40):
            found = self.manager.bulk(ENTRY, repetitions)
            wanted = self.expected[:repetitions]
            self.assertEqual(found[:len(wanted)], wanted[:len(found)])
            self.assertGreaterEqual(len(found), 1)

    def testAnAnswerHasWhatFitsIntoADatagram(self):
        causes = [("x" * 1024, 1)] * 70
        self.recordReset(1, causes)
        descriptions = [(name, value) for name, value in expectations(rowsOf(0, causes))
                        if name.startswith(f"{ENTRY}.{DESCRIPTION}.")]
        client = snmp_client.Client(self.agent.port, support.PATIENCE)
        self.addCleanup(client.close)
        support.waitFor(lambda: client.bulk(ENTRY, 20) == descriptions[:20], "the new causes")
        found = client.bulk(ENTRY, len(causes))
        self.assertEqual(found, descriptions[:len(found)])
        self.assertGreater(len(found), 60)
        objects = self.second.objects([name for name, _ in descriptions])
        error, status, _, _ = next(getCmd(*self.second.parameters, *objects))
        self.assertEqual((error, str(status.prettyPrint())), (None, "tooBig"))

    def testAConnectionThatReadsNothingKeepsNobodyWaiting(self):
        port = support.freePort()
        agent = self.start("--listen", f"tcp:127.0.0.1:{port}")
        silent = snmp_client.Client(port, 1, kind=socket.SOCK_STREAM)
        self.addCleanup(silent.close)
        with contextlib.suppress(OSError):  # full, or ended by the agent
            while True:
                silent.ask(ENTRY, 100)
        other = snmp_client.Client(port, support.PATIENCE, kind=socket.SOCK_STREAM)
        self.addCleanup(other.close)
        self.assertNotEqual(other.bulk(ENTRY, 3), [])
        self.assertEqual(agent.stopped(), 0)

    def testWalksSeeTheWholeTable(self):
        self.assertEqual(self.manager.walk(), self.expected)
        self.assertEqual(self.manager.walk(command="snmpwalk"), self.expected)
        self.assertEqual(self.second.walk(ENTRY), self.expected)
        self.assertEqual(self.second.walk(ENTRY, bulkCmd, 0, 25), self.expected)

    def testVersionOneWalksTheSame(self):
        old = support.Manager(self.agent.address, "-v1", "-c", "public")
        self.assertEqual(old.walk(command="snmpwalk"), self.expected)

    def testMissingInstancesAndObjectsAreTold(self):
        for name, exception in [(f"{DESCRIPTION}.0.0.6", "noSuchInstance"),
                                (f"{DESCRIPTION}.3.0.1", "noSuchInstance"),
                                (f"{DESCRIPTION}.1.1.1", "noSuchInstance"),
                                (f"{DESCRIPTION}.1.0", "noSuchInstance"),
                                (f"{TIME}.1.0.1.1", "noSuchInstance"),
                                ("1.0.0.1", "noSuchObject"), ("6.0.0.1", "noSuchObject")]:
            self.assertEqual(self.manager.get(f"{ENTRY}.{name}"),
                             [(f"{ENTRY}.{name}", exception)], name)
        self.assertEqual(self.second.get(f"{ENTRY}.{DESCRIPTION}.9.0.1"),
                         [(f"{ENTRY}.{DESCRIPTION}.9.0.1", "NoSuchInstance")])

    def testAMissingInstanceSpoilsNoOther(self):
        good = self.expected[0]
        bad = f"{ENTRY}.{DESCRIPTION}.7.0.1"
        last = self.expected[-1]
        self.assertEqual(self.manager.get(good[0], bad, last[0]),
                         [good, (bad, "noSuchInstance"), last])

    def testSetsAreRefused(self):
        for name, kind, value in [(f"{ENTRY}.{DESCRIPTION}.0.0.1", "s", "mine"),
                                  (f"{ENTRY}.{DESCRIPTION}.9.0.1", "s", "mine"),
                                  (f"{ENTRY}.{TIME}.0.0.1", "x", "07E70B0E160D1400"),
                                  (f"{SYSTEM}.5.0", "s", "mine"), (f"{SYSTEM}.1.0", "s", "mine")]:
            result = self.manager.set(name, kind, value)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn("noAccess", result.stderr)
            old = support.Manager(self.agent.address, "-v1", "-c", "public").set(name, kind, value)
            self.assertIn("noSuchName", old.stderr)
        self.assertEqual(self.second.set(f"{ENTRY}.{DESCRIPTION}.0.0.1", OctetString("mine")),
                         "noAccess")
        self.assertEqual(self.second.set(f"{ENTRY}.{DESCRIPTION}.0.0.1", Gauge32(1)), "noAccess")
        self.assertEqual(self.manager.walk(), self.expected)

    def testTheTableIsReadableByName(self):
        base = subprocess.run([f"{support.ROOT}/script/base-mibs"], text=True, capture_output=True,
                              check=True).stdout.strip()
        shown = subprocess.run(
            ["snmptable", "-v2c", "-c", "public", "-Ci", "-CB", "-Cf", "|", "-M",
             f"{base}:{support.ROOT}/mibs", "-m", "NorvekGeneralMIB", self.agent.address,
             "norvekReloadCauseTable"], text=True, capture_output=True, check=True).stdout
        self.assertIn("norvekReloadCauseDescription|norvekReloadTime", shown)
        self.assertTrue(re.search(r'^2\.0\.1\|"?Watchdog"?\|2023-11-14,22:15:0\.0,\+0:0$', shown,
                                  re.MULTILINE), shown)

    def testTheSystemGroupTellsWhoAnswers(self):
        answers = dict(self.manager.walk(SYSTEM))
        self.assertEqual(answers[f"{SYSTEM}.1.0"], b"norvek-snmpd, cell 1, supervisor")
        self.assertEqual(answers[f"{SYSTEM}.2.0"], "OID: .1.3.6.1.4.1.32473")
        self.assertRegex(answers[f"{SYSTEM}.3.0"], r"^Timeticks: \(\d+\)")
        self.assertEqual(sorted(answers), [f"{SYSTEM}.{scalar}.0" for scalar in range(1, 8)])


class OtherCells(support.SystemTest):
    def testACellThatIsNoSupervisorShowsItsCausesOnce(self):
        self.recordReset(5, PEER)
        agent = self.start("--cell-type", "linecard", cell=5)
        self.assertRows(agent, rowsOf(0, PEER))

    def testALongCellTypeIsCutInTheDescriptionOfTheAgent(self):
        agent = self.start("--cell-type", "t" * 300)
        self.assertEqual(agent.manager.get(f"{SYSTEM}.1.0"),
                         [(f"{SYSTEM}.1.0", (b"norvek-snmpd, cell 1, " + b"t" * 300)[:255])])

    def testTheSecondSupervisorShowsItsOwnAndTheFirst(self):
        self.recordReset(1, CAUSES[:1])
        self.recordReset(2, PEER)
        self.setRedundancy(2, protocol=3, capable=True)
        agent = self.start(cell=2)
        self.assertRows(agent, {**rowsOf(0, PEER), **rowsOf(2, PEER), **rowsOf(1, CAUSES[:1])})

    def testThePeersPathsAreReadFromItsOwnDatabase(self):
        self.recordReset(2, PEER)
        self.recordReset(1, [("cell 1 as the peer's database has it", 1)])
        os.rename(self.database, self.path("peer.json"))
        self.recordReset(1, CAUSES[:1])
        self.recordReset(2, [("cell 2 as the own database has it", 2)])
        self.setRedundancy(1, protocol=3, capable=True)
        rows = {**rowsOf(0, CAUSES[:1]), **rowsOf(1, CAUSES[:1]), **rowsOf(2, PEER)}
        agent = self.start("--peer-db", "file:peer.json")
        self.assertRows(agent, rows)
        os.remove(self.path("peer.json"))
        self.recordReset(1, CAUSES[2:3])
        self.assertRows(agent, {**rowsOf(0, CAUSES[2:3]), **rowsOf(1, CAUSES[2:3]),
                                **rowsOf(2, PEER)})

    def testAnEmptyDatabaseIsAnEmptyTable(self):
        agent = self.start()
        self.assertRows(agent, {})
        self.assertEqual(agent.manager.next(ENTRY), [(ENTRY, "endOfMibView")])

    def testTenThousandCausesAreAllThere(self):
        causes = [(f"cause {number}", number) for number in range(10000)]
        self.putHistory(1, {0: causes})
        agent = self.start("--cell-type", "linecard")
        self.assertRows(agent, rowsOf(0, causes))
        self.assertEqual(PySnmp(agent.port).walk(f"{ENTRY}.{TIME}", bulkCmd, 0, 100),
                         expectations(rowsOf(0, causes))[len(causes):])


class Traces(support.SystemTest):
    def testALevelShowsARequestFromItsHintToItsRow(self):
        self.recordReset(1, PEER)
        agent = self.start("--trace", "Snmp=2", "--trace", "MiscSnmp=1")
        before = len(agent.said())
        self.assertEqual(agent.manager.get(f"{ENTRY}.{DESCRIPTION}.1.0.2"),
                         [(f"{ENTRY}.{DESCRIPTION}.1.0.2", b"Kernel panic")])
        support.waitFor(lambda: re.search(r"free_data_context \w+\n$", agent.said()), "all is freed")
        key = ("Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': 1, 'instanceIndex': 0, "
               "'causeIndex': 2})")
        lines = re.sub("0x[0-9a-f]+", "POINTER", agent.said()[before:]).splitlines()
        self.assertEqual(lines, ["norvek-snmpd: Snmp 2: " + line for line in [
            "norvekReloadCauseTable_get_first_data_point - *hint = POINTER, number_indexes = 3",
            "hint component norvekReloadUnitIndex is '1'",
            "hint component norvekReloadIndex is '0'",
            "hint component norvekReloadCauseIndex is '2'",
            "norvekReloadCauseTable_get_first_data_point - allocated new loop context POINTER, "
            "hintMatched=1",
            "norvekReloadCauseTableIterationHelper - iterator has another value: unitIndex=1",
            "norvekReloadCauseTableIterationHelper - iterator has another value: reloadIndex=0",
            "norvekReloadCauseTableIterationHelper - iterator has another value: causeIndex=2",
            "norvekReloadCauseTable_make_data_context - allocated data context POINTER for loop "
            "context POINTER",
            "norvekReloadCauseTable_free_loop_context_at_end POINTER",
            "norvekReloadCauseTable_handler",
            "norvekReloadCauseTable_handler: request mode 160",
            "norvekReloadCauseTable_handler: request GET for column norvekReloadCauseDescription, "
            "key " + key,
            "norvekReloadCauseTable_free_data_context POINTER"]])

    def testAnotherContextIsOfferedAndRefused(self):
        agent = self.start("--context", "blue", "--trace", "Snmp=2")
        self.assertIn("norvek-snmpd: Snmp 2: initialize_table_norvekReloadCauseTable in context "
                      '"blue" kavraPathWithContext not specified \n', agent.said())
        self.assertEqual(agent.stopped(), 0)
        for context in ("", "blue"):
            self.assertIn("norvek-snmpd: Snmp 2: Unregistering NorvekGeneralMIB in context "
                          f'"{context}"\n', agent.said())

    def testNothingButErrorsIsTracedWithoutAWord(self):
        self.recordReset(1, PEER)
        agent = self.start("--context", "blue")
        agent.manager.walk()
        self.assertEqual(agent.stopped(), 0)
        self.assertEqual(agent.said(), f"norvek-snmpd: cell 1 serves {agent.address}\n")


if __name__ == "__main__":
    unittest.main()
