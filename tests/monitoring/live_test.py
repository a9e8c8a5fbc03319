"""From a reload to an operator, with Debian's exporter, Prometheus and Alertmanager."""

import os
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from monitor import INTERVAL, MonitoredTest  # noqa: E402
from support import waitFor  # noqa: E402

NOW = int(time.time())


class LiveTest(MonitoredTest):
    def testAReloadIsAnAlertAtAlertmanager(self):
        self.recordReset(1, [("Power loss", NOW - 86400)])
        agent = self.start()
        self.monitor(("edge-1", 1, agent.address))
        waitFor(lambda: self.query("cell:norvek_reload_time_seconds:last"), "the reload is known")
        self.assertEqual(self.firing(), {})

        self.recordReset(1, [("Watchdog expired", NOW)])
        seconds = self.secondsUntil(self.firing, "the alert is at Alertmanager")

        print(f"\nfrom reload to Alertmanager: {seconds:.1f} s, asked every {INTERVAL:g} s",
              flush=True)
        (about, annotations), = self.firing().items()
        self.assertEqual(about, ("NorvekReloadUnrequested", "edge-1", "1"))
        self.assertRegex(annotations["description"], "^Watchdog expired; at ")
        waitFor(lambda: self.operator.told, "the operator is told")
        self.assertEqual(self.operator.told, [("NorvekReloadUnrequested", "1", "firing")])

    def testARequestedReloadAlertsNobodyAndASilentAgentDoes(self):
        self.recordReset(1, [("Power loss", NOW - 86400)])
        agent = self.start()
        self.monitor(("edge-1", 1, agent.address))
        self.recordReset(1, [("Reload requested by root: new kernel", NOW)])
        waitFor(lambda: self.query(f"cell:norvek_reload_time_seconds:recent == {NOW}"),
                "the reload is seen")
        agent.stopped()
        waitFor(lambda: self.query('ALERTS{alertname="NorvekAgentSilent",alertstate="pending"}'),
                "the agent is missed")
        self.assertEqual(self.firing(), {})

    def testEachSupervisorOfAPairIsToldOnce(self):
        for cell in (1, 2):
            self.setRedundancy(cell, protocol=3, capable=True)
            self.recordReset(cell, [("Power loss", NOW - 86400)])
        one, two = self.start(cell=1), self.start(cell=2)
        self.monitor(("edge-1", 1, one.address), ("edge-1", 2, two.address))
        waitFor(lambda: len(self.query("cell:norvek_reload_cause_time_seconds:peer")) == 2,
                "each tells of the other")
        self.recordReset(2, [("", NOW)])
        waitFor(self.firing, "the alert is at Alertmanager")
        self.recordReset(1, [("Over temperature: CPU", NOW)])
        waitFor(lambda: len(self.firing()) == 2, "the other one, too")
        self.assertEqual(set(self.firing()), {("NorvekReloadUnexplained", "edge-1", "2"),
                                              ("NorvekReloadUnrequested", "edge-1", "1")})

    def testAnyOctetsSurvive(self):
        texts = ['say "why" \\ and how', "two\nlines\tand\r", "nul \x00", "für Straße ☃ 😀", "x" * 1024,
                 "", "<script>alert(1)</script> {{ . }} $1 %s", '"} 1', "\x1b[31mred\x7f", "\u202eleft"]
        self.putHistory(1, {0: [(text, NOW) for text in texts]})
        agent = self.start()
        self.monitor(("edge-1", 1, agent.address))
        waitFor(lambda: self.query('norvek_reload_cause_info{job="norvek"}'), "the texts are there")
        found = {labels["position"]: labels.get("description", "") for labels, _ in self.query(
            'norvek_reload_cause_info{job="norvek",unit="0"}')}
        self.assertEqual(found, {str(position): text for position, text in enumerate(texts, 1)})

    def testWhatIsNoTextIsKnownByItsOctets(self):
        self.recordReset(1, [("Power loss", NOW - 86400)])
        agent = self.start()
        self.monitor(("edge-1", 1, agent.address))
        waitFor(lambda: self.query("cell:norvek_reload_time_seconds:last"), "the reload is known")
        self.recordReset(1, [(b"Fan \xff\xfe\xc3( failed".decode(errors="surrogateescape"), NOW)])
        waitFor(self.firing, "the alert is at Alertmanager")
        (about, annotations), = self.firing().items()
        self.assertEqual(about, ("NorvekReloadUnrequested", "edge-1", "1"))
        self.assertRegex(annotations["description"], "^0x46616E20FFFEC328206661696C6564; at ")
        self.assertEqual(self.scraped(agent)[0], 500)
        self.assertEqual(self.scraped(agent, "norvek_octets")[0], 200)

    def testTheExporterTellsWhatItIsToldOnly(self):
        self.putHistory(1, {0: [("Power loss", 1700000000.9), ("Fan failure", 0)]})
        agent = self.start()
        self.startExporter()
        _, text = self.scraped(agent)
        told = [line for line in text.splitlines()
                if line.startswith("norvek_") and 'unit="0"' in line]
        row = 'reload="0",unit="0"}'
        self.assertEqual(told, [
            f'norvek_reload_cause_info{{description="Fan failure",position="2",{row} 1',
            f'norvek_reload_cause_info{{description="Power loss",position="1",{row} 1',
            f'norvek_reload_time_seconds{{position="1",{row} 1.7e+09',
            f'norvek_reload_time_seconds{{position="2",{row} 0'])


if __name__ == "__main__":
    unittest.main()
