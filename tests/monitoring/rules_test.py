"""The rules for Prometheus, played to promtool: what agents tell, hour by hour, and the alerts."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
RULES = os.path.join(ROOT, "monitoring/norvek-rules.yml")
PROMTOOL = shutil.which("promtool")
STEP = 30  # seconds between two scrapes
LONG_AGO = 1700000000  # a reload that is no news, by any clock: time begins at 0 here
UNREQUESTED = "NorvekReloadUnrequested"
UNEXPLAINED = "NorvekReloadUnexplained"
LOOP = "NorvekReloadLoop"
DIFFERS = "NorvekCopyDiffers"
SILENT = "NorvekAgentSilent"
EXPORTER_DOWN = "NorvekExporterDown"
IN_HEXADECIMAL = 'last_over_time(agent:norvek_reload_cause_time_seconds:told{octets!=""}[1h])'


def named(metric, labels):
    return metric + "{" + ",".join(f"{name}={json.dumps(text)}"
                                   for name, text in sorted(labels.items())) + "}"


def inHexadecimal(text):
    return "0x" + text.encode("latin-1").hex().upper() if text else ""


class Agent:
    """What is scraped of an agent: from a minute on it tells {unit: [(cause, time)]}, or None where
    it is silent. Where the text cannot be had the answer is in hexadecimal."""

    def __init__(self, device, cell):
        self.labels = {"device": device, "cell": str(cell), "instance": f"{device}-{cell}"}
        self.told = []
        self.begin = 0
        self.end = None

    def jobBegins(self, minute):
        """The job that asks for text does so from then on."""
        self.begin = minute * 60 // STEP

    def tells(self, minute, units, octets=False):
        self.told.append((minute * 60 // STEP, units, octets))

    def isSilent(self, minute):
        self.told.append((minute * 60 // STEP, None, False))

    def isRemoved(self, minute):
        """It is no target from then on."""
        self.end = minute * 60 // STEP

    def at(self, step):
        for begin, units, octets in reversed(self.told):
            if begin <= step:
                return units, octets
        return None, False

    def samples(self, step):
        """{series: value} of one moment."""
        if self.end is not None and step >= self.end:
            return {}
        units, octets = self.at(step)
        job = "norvek-octets" if octets else "norvek"
        found = {named("up", {**self.labels, "job": "norvek-octets"}): int(units is not None)}
        if step >= self.begin:
            found[named("up", {**self.labels, "job": "norvek"})] = int(
                units is not None and not octets)
        for unit, causes in (units or {}).items():
            for position, (text, time) in enumerate(causes, 1):
                row = {**self.labels, "job": job, "unit": str(unit), "reload": "0",
                       "position": str(position)}
                found[named("norvek_reload_time_seconds", row)] = time
                text = {"octets": inHexadecimal(text)} if octets else {"description": text}
                found[named("norvek_reload_cause_info", {**row, **text})] = 1
        return found


class Exporter:
    def __init__(self):
        self.downFrom = None

    def samples(self, step):
        up = self.downFrom is None or step < self.downFrom * 60 // STEP
        return {named("up", {"job": "snmp-exporter", "instance": "here"}): int(up)}


def inputSeries(sources, steps):
    """Every series with a value for each step, or that it went stale."""
    moments = [{series: value for source in sources
                for series, value in source.samples(step).items()} for step in range(steps)]
    names = sorted({series for moment in moments for series in moment})
    lines = []
    for name in names:
        values, before = [], False
        for moment in moments:
            here = name in moment
            values.append(str(moment[name]) if here else "stale" if before else "_")
            before = here
        lines.append({"series": name, "values": " ".join(values)})
    return lines


@unittest.skipUnless(PROMTOOL, "promtool is not installed (script/packages monitoring)")
class RulesTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.exporter = Exporter()
        self.sources = [self.exporter]
        self.expectations = []
        self.annotations = []
        self.last = 0

    def agent(self, cell=1, device="edge-1"):
        self.sources.append(Agent(device, cell))
        return self.sources[-1]

    def pair(self, device="edge-1"):
        return self.agent(1, device), self.agent(2, device)

    def expect(self, minute, expression, values):
        self.last = max(self.last, minute)
        self.expectations.append({
            "eval_time": f"{int(minute * 60)}s", "expr": expression,
            "exp_samples": [{"labels": named("", labels) if labels else "{}", "value": value}
                            for labels, value in values]})

    def alerted(self, minute, *alerts):
        """Exactly these alerts fire: (name, cell, the reload where it is named)."""
        self.expect(minute, 'max by (alertname, cell, reloaded) (ALERTS{alertstate="firing"})', [
            ({"alertname": name, **dict(zip(("cell", "reloaded"), map(str, about)))}, 1)
            for name, *about in alerts])

    def says(self, minute, name, labels, annotations):
        """What the one alert of that name is about, and says."""
        self.last = max(self.last, minute)
        self.annotations.append({"eval_time": f"{minute}m", "alertname": name, "exp_alerts": [{
            "exp_labels": {**labels, "device": "edge-1", "cell": "1"},
            "exp_annotations": annotations}]})

    def count(self, minute, record, number, cell=1):
        about = {} if cell is None else {"cell": str(cell)}
        labels = {"__name__": record, **about, **({"device": "edge-1"} if about else {})}
        self.expect(minute, named(record, about), [(labels, number)])

    def tearDown(self):
        """Plays what was told, and compares."""
        if not self.expectations and not self.annotations:
            return
        steps = int(self.last * 60 // STEP) + 2
        with tempfile.TemporaryDirectory() as directory:
            played = os.path.join(directory, "test.yml")
            with open(played, "w") as file:
                json.dump({"rule_files": [RULES], "evaluation_interval": f"{STEP}s", "tests": [{
                    "interval": f"{STEP}s", "input_series": inputSeries(self.sources, steps),
                    "promql_expr_test": self.expectations,
                    "alert_rule_test": self.annotations}]}, file)
            result = subprocess.run([PROMTOOL, "test", "rules", played], text=True,
                                    capture_output=True, check=False)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def testAlertsAnUnrequestedReloadForAnHour(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Watchdog expired", LONG_AGO + 5)]})
        self.alerted(9)
        self.alerted(10, (UNREQUESTED, 1, LONG_AGO + 5))
        self.alerted(69, (UNREQUESTED, 1, LONG_AGO + 5))
        self.alerted(71)

    def testSaysInTheAlertWhyAndWhen(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Watchdog expired", 1700003600), ('Fan "3" failed', 1700003601)]})
        agent.isSilent(11)
        for minute in (10, 13):
            self.says(minute, UNREQUESTED, {"severity": "critical", "reloaded": "1700003600"}, {
                "summary": "Supervisor 1 of edge-1 reloaded, and nobody requested it",
                "description": 'Watchdog expired; Fan "3" failed; at 2023-11-14 23:13:20 +0000 UTC',
                "runbook": "docs/monitoring.md#norvekreloadunrequested"})

    def testSaysThatNothingIsKnown(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("", 0)]})
        self.says(10, UNEXPLAINED, {"severity": "warning", "reloaded": "0"}, {
            "summary": "Supervisor 1 of edge-1 reloaded, and the cause is unknown",
            "description": "no text; at an unknown time",
            "runbook": "docs/monitoring.md#norvekreloadunexplained"})

    def testIsSilentAboutARequestedReload(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        for minute, text in ((10, "Reload requested by root: kernel"), (20, "Reload requested"),
                             (90, "Powered off by request"), (180, "Power button pressed"),
                             (270, "Reload requested: two\nlines")):
            agent.tells(minute, {0: [(text, LONG_AGO + minute)]})
            self.alerted(minute + 1)
        agent.tells(360, {0: [("Not a Reload requested", LONG_AGO + 360)]})
        self.alerted(361, (UNREQUESTED, 1, LONG_AGO + 360))

    def testJudgesByTheFirstCause(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Reload requested", LONG_AGO + 5), ("Power loss", LONG_AGO + 9)]})
        self.alerted(11)
        agent.tells(90, {0: [("Power loss", LONG_AGO + 10), ("Reload requested", LONG_AGO + 9)]})
        self.alerted(91, (UNREQUESTED, 1, LONG_AGO + 10))

    def testTakesAChangedTextOrAnotherCauseForNoReload(self):
        agent = self.agent()
        agent.tells(0, {0: [("Watchdog expired", LONG_AGO)]})
        agent.tells(10, {0: [("Watchdog expired (BMC)", LONG_AGO)]})
        self.alerted(11)
        agent.tells(20, {0: [("Watchdog expired (BMC)", LONG_AGO), ("Heat", LONG_AGO + 30)]})
        self.alerted(21)
        agent.tells(30, {0: [("", LONG_AGO)]})
        self.alerted(31)
        self.count(31, "cell:norvek_reloads:count1d", 0)

    def testKeepsTheAlertWhenTheTextOfItsReloadChanges(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Watchdog expired", LONG_AGO + 5)]})
        agent.tells(20, {0: [("Watchdog expired (BMC)", LONG_AGO + 5)]})
        for minute in range(10, 25):
            self.alerted(minute, (UNREQUESTED, 1, LONG_AGO + 5))

    def testAlertsEachOfTwoReloadsOfOneCauseByItself(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Watchdog expired", LONG_AGO + 5)]})
        agent.tells(11, {0: [("Watchdog expired", LONG_AGO + 65)]})
        self.alerted(10.5, (UNREQUESTED, 1, LONG_AGO + 5))
        self.alerted(11, (UNREQUESTED, 1, LONG_AGO + 65))
        self.count(20, "cell:norvek_reloads:count1d", 2)

    def testTellsAnUnknownCauseFromAKnownOne(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        for minute, text in ((10, "Unknown: no record of an earlier boot"), (20, ""),
                             (30, "Orderly reload, requester unknown")):
            agent.tells(minute, {0: [(text, LONG_AGO + minute)]})
            self.alerted(minute + 1, (UNEXPLAINED, 1, LONG_AGO + minute),
                         *([(LOOP, 1)] if minute == 30 else []))
        agent.tells(100, {0: [("Knownunknowns", LONG_AGO + 100)]})
        self.alerted(101, (UNREQUESTED, 1, LONG_AGO + 100))
        self.count(105, "cell:norvek_reloads:count1d", 4)
        self.count(105, "cell:norvek_reloads_unexplained:count1d", 3)

    def testCountsTheFleet(self):
        for device in range(5):
            agent = self.agent(device=f"edge-{device}")
            agent.tells(0, {0: [("Power loss", LONG_AGO)]})
            text = "Unknown" if device < 2 else "Power loss"
            agent.tells(5 + device, {0: [(text, LONG_AGO + 9)]})
        self.count(4, "norvek_reloads:count1d", 0, cell=None)
        self.count(20, "norvek_reloads:count1d", 5, cell=None)
        self.count(20, "norvek_reloads_unexplained:count1d", 2, cell=None)

    def testCountsAnUnexplainedReloadWithoutATime(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(5, {0: [("Unknown", 0)]})
        agent.tells(15, {0: [("Power loss", LONG_AGO + 9)]})
        self.alerted(10, (UNEXPLAINED, 1, 0))
        self.count(10, "cell:norvek_reloads_unexplained:count1d", 1)
        self.count(20, "cell:norvek_reloads_unexplained:count1d", 1)

    def testFindsAReloadBehindAGapOfAnyLength(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.isSilent(10)
        agent.tells(10 + 300, {0: [("Watchdog expired", LONG_AGO + 5)]})
        self.alerted(300, (SILENT, 1))
        self.alerted(310, (UNREQUESTED, 1, LONG_AGO + 5))
        self.count(315, "cell:norvek_reloads:count1d", 1)

    def testTakesAGapForNoReload(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.isSilent(10)
        agent.tells(10.5, {0: [("Power loss", LONG_AGO)]})
        agent.tells(20, {})
        agent.tells(100, {0: [("Power loss", LONG_AGO)]})
        for minute in (10, 11, 20, 21, 99, 100, 101):
            self.alerted(minute)
        self.count(105, "cell:norvek_reloads:count1d", 0)

    def testKeepsOneAlertWhileTheAgentComesAndGoes(self):
        for cell, text in ((1, "Watchdog expired"), (2, "Unknown")):
            agent = self.agent(cell)
            agent.tells(0, {0: [("Power loss", LONG_AGO)]})
            for minute in range(10, 30, 2):
                agent.tells(minute, {0: [(text, LONG_AGO + 5)]})
                agent.isSilent(minute + 1)
        for minute in range(10, 30):
            self.alerted(minute, (UNREQUESTED, 1, LONG_AGO + 5), (UNEXPLAINED, 2, LONG_AGO + 5))

    def testKeepsARequestInMindWhileTheAgentIsSilent(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Reload requested", LONG_AGO + 5)]})
        agent.isSilent(11)
        self.alerted(15, (SILENT, 1))

    def testForgetsADeviceThatIsNoTargetAnyLonger(self):
        agent, _ = self.agent(), self.agent(device="edge-2").tells(0, {})
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.isRemoved(10)
        self.expect(20, "cell:norvek_reload_time_seconds:last", [])

    def testTakesARecentReloadOfANewDeviceForNews(self):
        agent, older = self.agent(), self.agent(device="edge-2")
        agent.tells(10, {0: [("Watchdog expired", 300)]})
        older.tells(10, {0: [("Watchdog expired", LONG_AGO)]})
        self.alerted(11, (UNREQUESTED, 1, 300))
        self.alerted(66)

    def testTakesAnAddressThatIsNamedForTwoDevicesForBoth(self):
        for device in ("edge-1", "edge-2"):
            agent = self.agent(device=device)
            agent.labels["instance"] = "both"
            agent.tells(0, {0: [("Power loss", LONG_AGO)]})
            agent.tells(10, {0: [("Fan failure", LONG_AGO + 1)]})
        self.alerted(12, (UNREQUESTED, 1, LONG_AGO + 1))
        self.count(12, "norvek_reloads:count1d", 2, cell=None)

    def testTakesAClockThatIsWrongForNoHindrance(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Watchdog expired", 0)]})
        self.alerted(11, (UNREQUESTED, 1, 0))
        agent.tells(30, {0: [("Power loss", 4000000000)]})
        self.alerted(31, (UNREQUESTED, 1, 4000000000))

    def testAlertsALoopAtTheThirdReloadInAnHour(self):
        agent = self.agent()
        for number in range(4):
            agent.tells(number * 20, {0: [("Reload requested", LONG_AGO + number)]})
        self.alerted(59)
        self.alerted(60, (LOOP, 1))
        self.alerted(79, (LOOP, 1))
        self.alerted(81)

    def testIsNotToldOfAReloadTwiceByAPair(self):
        one, two = self.pair()
        before, after = [("Power loss", LONG_AGO)], [("Watchdog expired", LONG_AGO + 5)]
        one.tells(0, {0: before, 1: before, 2: before})
        two.tells(0, {0: before, 1: before, 2: before})
        two.isSilent(10)
        two.tells(12, {0: after, 1: before, 2: after})
        one.tells(12.5, {0: before, 1: before, 2: after})
        self.alerted(12, (UNREQUESTED, 2, LONG_AGO + 5))
        self.alerted(13, (UNREQUESTED, 2, LONG_AGO + 5))
        self.count(15, "cell:norvek_reloads:count1d", 1, cell=2)

    def testBelievesThePeerOfASupervisorThatIsSilent(self):
        one, two = self.pair()
        before, after = [("Power loss", LONG_AGO)], [("Watchdog expired", LONG_AGO + 5)]
        one.tells(0, {0: before, 1: before, 2: before})
        two.tells(0, {0: before, 1: before, 2: before})
        two.isSilent(10)
        one.tells(15, {0: before, 1: before, 2: after})
        self.alerted(16, (SILENT, 2), (UNREQUESTED, 2, LONG_AGO + 5))

    def testBelievesNoOlderWordOfThePeer(self):
        one, two = self.pair()
        before, after = [("Power loss", LONG_AGO)], [("Reload requested", LONG_AGO + 5)]
        one.tells(0, {0: before, 1: before, 2: before})
        two.tells(0, {0: before, 1: before, 2: before})
        two.tells(10, {0: after, 1: before, 2: after})
        two.isSilent(20)
        self.alerted(15, (DIFFERS, 2))
        self.alerted(25, (SILENT, 2))
        self.count(25, "cell:norvek_reload_time_seconds:last", LONG_AGO + 5, cell=2)

    def testAlertsACopyThatDiffersForLongerThanAMinute(self):
        one, two = self.pair()
        before, after = [("Power loss", LONG_AGO)], [("Reload requested", LONG_AGO + 5)]
        one.tells(0, {0: before, 1: before, 2: before})
        two.tells(0, {0: before, 1: before, 2: before})
        two.tells(10, {0: after, 1: before, 2: after})
        one.tells(11, {0: before, 1: before, 2: after})
        one.tells(20, {0: before, 1: before, 2: after + [("Heat", LONG_AGO + 6)]})
        one.tells(30, {0: before, 1: before, 2: [("Reload requested", LONG_AGO + 6)]})
        one.tells(40, {0: before, 1: before, 2: after})
        one.tells(50, {0: before, 1: before})
        self.alerted(10.5)
        self.alerted(11)
        self.alerted(12)
        self.alerted(22, (DIFFERS, 2))
        self.alerted(32, (DIFFERS, 2))
        self.alerted(42)
        self.alerted(52)

    def testAlertsAnAgentThatIsSilentForAMinute(self):
        agent = self.agent()
        agent.tells(0, {})
        agent.isSilent(10)
        self.alerted(10.5)
        self.alerted(11, (SILENT, 1))
        agent.tells(12, {})
        self.alerted(12)

    def testBlamesTheExporterAlone(self):
        agent = self.agent()
        agent.tells(0, {})
        agent.isSilent(10)
        self.exporter.downFrom = 10
        self.alerted(12, (EXPORTER_DOWN,))

    def testSeesAReloadWhoseCauseIsNoText(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("\xff\xfe", LONG_AGO + 5)]}, octets=True)
        self.alerted(12)
        self.alerted(13, (UNREQUESTED, 1, LONG_AGO + 5))
        agent.tells(90, {0: [("Power loss", LONG_AGO + 90)]})
        self.alerted(91, (UNREQUESTED, 1, LONG_AGO + 90))

    def testSticksToTheTextWhenTheJobsMissTheAgentOneAfterTheOther(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Power loss", LONG_AGO)]}, octets=True)
        agent.isSilent(12)
        self.expect(15, IN_HEXADECIMAL, [])

    def testPrefersTheTextThatComesAfterTheOctets(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]}, octets=True)
        agent.jobBegins(5)
        agent.tells(5, {0: [("Power loss", LONG_AGO)]})
        self.expect(6, IN_HEXADECIMAL, [])

    def testKnowsARequestInHexadecimal(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        for minute, text in ((10, "Reload requested by \xff"), (90, "Powered off by request\xff"),
                             (180, "Power button pressed \xff")):
            agent.tells(minute, {0: [(text, LONG_AGO + minute)]}, octets=True)
            self.alerted(minute + 3)
        self.count(185, "cell:norvek_reloads:count1d", 3)

    def testKeepsTheTimeWhileTwoTextsAreToldOfAReload(self):
        agent, again = self.agent(), self.agent()
        again.labels["instance"] = "edge-1 at another address"
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        again.tells(0, {0: [("Power lost", LONG_AGO)]})
        record = "cell:norvek_reload_cause_time_seconds:history"
        self.expect(5, f"max by (reloaded) ({record})", [({"reloaded": str(LONG_AGO)}, LONG_AGO)])

    def testKeepsEachReloadForWhoeverLooksBack(self):
        agent = self.agent()
        agent.tells(0, {0: [("Power loss", LONG_AGO)]})
        agent.tells(10, {0: [("Power loss", LONG_AGO + 5), ("Heat", LONG_AGO + 7)]})
        record = "cell:norvek_reload_cause_time_seconds:history"
        about = {"device": "edge-1", "cell": "1"}
        self.expect(20, f"last_over_time({record}[1h])", [
            ({"__name__": record, **about, "position": str(position), "description": text,
              "reloaded": str(reloaded)}, value)
            for position, text, reloaded, value in (
                (1, "Power loss", LONG_AGO, LONG_AGO),
                (1, "Power loss", LONG_AGO + 5, LONG_AGO + 5),
                (2, "Heat", LONG_AGO + 5, LONG_AGO + 7))])


if __name__ == "__main__":
    unittest.main()
