"""The console page as a browser shows it: with data, without, and with an agent gone."""

import json
import os
import re
import shutil
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from browser import Browser  # noqa: E402
from monitor import MonitoredTest, fetched, freeTcpPort  # noqa: E402
from support import waitFor  # noqa: E402

NOW = int(time.time())
HOUR, DAY = 3600, 86400
POWER_LOST = "Power lost, hard reset or forced restart"
PICTURES = os.environ.get("MONITORING_PICTURES")  # a folder to leave pictures in

# What a reader must be able to tell from its ground: the least contrast of any text (WCAG 2.1 asks
# for 4.5), and the text.
LEAST_CONTRAST = """
  const luminance = colour => {
    const [r, g, b] = colour.map(part => part / 255).map(
        part => part <= 0.03928 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const parts = text => text.match(/[\\d.]+/g).map(Number);
  const ground = element => {
    for (; element; element = element.parentElement) {
      const colour = parts(getComputedStyle(element).backgroundColor);
      if (colour.length === 3 || colour[3] === 1) return colour;
    }
    return [255, 255, 255];
  };
  let least = [21, ''];
  const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  while (walk.nextNode()) {
    const element = walk.currentNode.parentElement, text = walk.currentNode.data.trim();
    if (!text || !element.getClientRects().length) continue;
    const lights = [parts(getComputedStyle(element).color), ground(element)].map(
        colour => luminance(colour.slice(0, 3))).sort((a, b) => b - a);
    const contrast = (lights[0] + 0.05) / (lights[1] + 0.05);
    if (contrast < least[0]) least = [contrast, text];
  }
  return least;
"""


def history(*reloads):
    return {"type": "System::ResetCauseHistory", "rebootHistory": {
        str(index): {"causeQ": [{"description": text, "time": at} for text, at in causes]}
        for index, causes in enumerate(reloads)}}


class ConsoleTest(MonitoredTest):
    def setUp(self):
        super().setUp()
        for program in ("chromium", "chromedriver"):
            if not shutil.which(program):
                self.skipTest(f"{program} is not installed (script/packages monitoring)")
        self.browser = Browser(self.directory, freeTcpPort())
        self.addCleanup(self.browser.close)
        self.agents = []

    def device(self, name, *supervisors, past=()):
        """A device whose supervisors tell these causes, [(text, time)] each; `past` is what
        Prometheus knows of before, (cell, text, time) each."""
        database = {}
        for cell, causes in enumerate(supervisors, 1):
            database[f"cell/{cell}/sys/reset/history"] = history(causes)
            if len(supervisors) == 2:
                database[f"cell/{cell}/redundancy/status"] = {
                    "type": "Redundancy::RedundancyStatus", "protocol": 3,
                    "switchoverCapable": True}
        self.write(f"{name}.json", json.dumps(database))
        agents = [self.start(cell=cell, db=f"file:{name}.json")
                  for cell, _ in enumerate(supervisors, 1)]
        self.agents += [(name, cell, agent.address) for cell, agent in enumerate(agents, 1)]
        self.remember(name, past)
        return agents

    def remember(self, device, past):
        with open(self.path("past.txt"), "a") as file:
            for cell, text, at in past:
                labels = ",".join(f"{name}={json.dumps(str(value), ensure_ascii=False)}"
                                  for name, value in (("device", device), ("cell", cell),
                                                      ("position", 1), ("description", text),
                                                      ("reloaded", int(at))))
                file.write("cell:norvek_reload_cause_time_seconds:history{%s} %d %d\n" %
                           (labels, at, at + 60))

    def look(self, cells):
        """Everything runs, and the supervisors are known."""
        with open(self.path("past.txt"), "a") as file:
            file.write("# EOF\n")
        if os.path.getsize(self.path("past.txt")) > len("# EOF\n"):
            subprocess.run(["promtool", "tsdb", "create-blocks-from", "openmetrics", "past.txt",
                            "tsdb"], cwd=self.directory, check=True, capture_output=True)
        self.monitor(*self.agents)
        waitFor(lambda: len(self.query("cell:norvek_reload_cause_time_seconds:history")) >= cells,
                "the reloads are known")

    def waitForCopies(self, number):
        waitFor(lambda: len(self.query("cell:norvek_reload_cause_time_seconds:peer")) >= number,
                "each tells of the other")

    def show(self, picture=None, width=1280, scheme="light", **parameters):
        self.browser.looks(width, scheme)
        self.browser.open(self.consolePage(**parameters))
        if PICTURES and picture:
            self.browser.picture(os.path.join(PICTURES, picture + ".png"))

    def groups(self):
        """{state: [row]} of the fleet."""
        return {title.split(" the ")[0]: rows for title, rows in self.browser.script("""
          return Array.from(document.querySelectorAll('section.group'), group => [
            group.querySelector('.badge').innerText.trim(),
            Array.from(group.querySelectorAll('tbody tr'), row => Array.from(row.children,
              cell => cell.innerText.replace(/\\s+/g, ' ').trim()))])""")}

    def figures(self):
        return dict(zip(self.browser.texts(".figures dt"), self.browser.texts(".figures dd")))

    def assertReadable(self):
        """Nothing sticks out, each text stands out, and nothing came from anywhere else."""
        self.assertLessEqual(*self.browser.script(
            "return [document.documentElement.scrollWidth, window.innerWidth]"))
        contrast, text = self.browser.script(LEAST_CONTRAST)
        self.assertGreaterEqual(contrast, 4.5, text)
        self.assertEqual(self.browser.script("return performance.getEntriesByType('resource')"
                                             ".map(entry => entry.name)"), [])
        self.assertEqual(self.browser.script("return document.scripts.length"), 0)

    def fleet(self):
        self.device("edge-1", [("Watchdog expired", NOW - HOUR / 2),
                               ("Reload requested by the active supervisor", NOW - HOUR / 2 + 9)],
                    [("Reload requested by anna: new kernel", NOW - 3 * DAY)],
                    past=[(2, POWER_LOST, NOW - 6 * DAY),
                          (1, "Reload requested by anna: new kernel", NOW - 3 * DAY - HOUR)])
        self.device("edge-2", [("Orderly reload, requester unknown", NOW - 5 * HOUR)],
                    [("Power button pressed", NOW - 40 * DAY)],
                    past=[(1, "Kernel panic: Out of memory", NOW - 2 * DAY)])
        self.device("core-1", [("Reload requested by root: firmware 4.2", NOW - 9 * HOUR)],
                    [("Reload requested by root: firmware 4.2", NOW - 8 * HOUR)],
                    past=[(1, "Over temperature: CPU 1", NOW - 5 * DAY),
                          (2, "Over temperature: CPU 1", NOW - 5 * DAY + 4000)])
        self.device("lab-7", [("<script>document.title = 'taken'</script> “{{ 1 }}” & "
                               "\u202egnp.exe", NOW - 4 * DAY)])
        gone, = self.device("spare-3", [(POWER_LOST, NOW - 30 * DAY)])
        self.look(cells=9)
        gone.stopped()
        waitFor(lambda: self.query('max by (device) (up{device="spare-3"}) == 0'), "one is missed")
        self.waitForCopies(7)

    def testShowsTheFleetByState(self):
        self.fleet()
        self.show("fleet-light")
        groups = self.groups()
        self.assertEqual(list(groups), ["Silent", "Not by request", "Cause unknown", "By request"])
        self.assertEqual([row[:2] for row in groups["By request"]],
                         [["core-1", "1"], ["core-1", "2"]])
        (silent,), (failed,) = groups["Silent"], groups["Not by request"]
        self.assertEqual((silent[0], silent[3]), ("spare-3", POWER_LOST))
        self.assertRegex(silent[2], r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d 30d \dh ago$")
        self.assertEqual((failed[0], failed[3]), (
            "edge-1", "Watchdog expired Reload requested by the active supervisor"))
        self.assertEqual(self.browser.texts(".legend li"), [
            "Quiet 3", "By request 2", "Silent 1", "Cause unknown 1", "Not by request 1"])
        figures = self.figures()
        self.assertEqual(figures, {"Devices": "5", "Supervisors asked": "8", "Silent": "1",
                                   "Reloads in a day": "4", "Of them unexplained": "1",
                                   "Alerts firing": figures["Alerts firing"]})
        rows = self.browser.script("""return Array.from(document.querySelectorAll(
          'main > section:last-child > table tbody tr'), row => [row.children[1].innerText,
          row.children[3].innerText.trim(), row.children[4].innerText.trim()])""")
        self.assertEqual([row[0] for row in rows],
                         ["edge-1", "edge-2", "core-1", "core-1", "edge-2", "edge-1", "edge-1",
                          "lab-7", "core-1", "core-1", "edge-1"])
        self.assertEqual(rows[4][1:], ["Not by request", "Kernel panic: Out of memory"])
        self.assertEqual(rows[7][2],
                         "<script>document.title = 'taken'</script> “{{ 1 }}” & \ufffdgnp.exe")
        self.assertEqual(self.browser.script("return document.title"), "Reloads")
        self.assertEqual(self.browser.script(
            "return document.querySelectorAll('.track i.unrequested').length"), 6)
        self.assertReadable()

        self.show(window="1d")
        self.assertEqual(self.browser.texts("nav [aria-current]"), ["1 day"])
        self.assertEqual(len(self.browser.texts(".lane:not(.axis)")), 4)

        for width, scheme, picture in ((1280, "dark", "fleet-dark"), (360, "light", "fleet-narrow"),
                                       (360, "dark", None)):
            self.show(picture, width, scheme)
            self.assertReadable()

        self.show("device-light", device="edge-1")
        self.assertBothBesideEachOther()
        self.assertReadable()
        self.show(scheme="dark", device="edge-1")
        self.assertReadable()
        self.show(width=360, device="edge-1")
        self.assertReadable()

    def assertBothBesideEachOther(self):
        one, two = self.browser.script("""
          return Array.from(document.querySelectorAll('.supervisor'), box => {
            const { top, left, right } = box.getBoundingClientRect();
            return [top, left, right];
          })""")
        self.assertEqual(one[0], two[0])
        self.assertLess(one[2], two[1])
        self.assertEqual(self.browser.texts(".supervisor h2"),
                         ["Supervisor 1 Not by request", "Supervisor 2 Quiet"])
        self.assertEqual(self.browser.texts(".supervisor:first-child ol .cause"),
                         ["Watchdog expired", "Reload requested by the active supervisor"] * 2)
        self.assertEqual(self.browser.texts(".supervisor:first-child .alert"),
                         ["NorvekReloadUnrequested"])

    def testSaysSoWhereThereIsNothing(self):
        self.write("past.txt", "# EOF\n")
        self.monitor()
        self.show("empty")
        self.assertEqual(self.browser.texts("[role=status]"), [
            "There is nothing to show: no target of the job norvek was asked yet."])
        self.assertEqual(self.browser.texts(".nothing"), ["No reload in this time."])
        self.assertReadable()
        self.show(device='"} or vector(1) #<b>')
        self.assertEqual(self.browser.texts("h1"), ['"} or vector(1) #<b>'])
        self.assertEqual(self.browser.texts("[role=status]"), [
            "No agent of a device of this name is among the targets."])
        self.assertReadable()

    def testShowsADeviceOneOfWhoseAgentsIsGone(self):
        one, two = self.device("edge-1", [("Power loss", NOW - 3 * DAY)], [("Heat", NOW - 2 * DAY)])
        self.look(cells=2)
        self.waitForCopies(2)
        two.stopped()
        waitFor(lambda: self.query('max by (cell) (up{cell="2"}) == 0') and
                len(self.query("cell:norvek_reload_cause_time_seconds:own")) == 1, "it is missed")
        self.show("gone", device="edge-1")
        self.assertEqual(self.browser.texts(".supervisor h2"),
                         ["Supervisor 1 Quiet", "Supervisor 2 Silent"])
        agents = self.browser.texts(".supervisor dt:first-child + dd")
        self.assertEqual(agents[0], "answers")
        self.assertRegex(agents[1], r"^does not answer, and did \d+m?s ago$")
        self.assertEqual(self.browser.texts(".supervisor:last-child ol .cause"), ["Heat"])
        self.assertEqual(self.browser.texts(".supervisor:last-child .nothing"),
                         ["Nothing is told."])
        self.assertReadable()

    def testShowsCopiesThatDifferAndAChangedTextOnce(self):
        _, two = self.device("edge-1", [("Power loss", NOW - HOUR)], [("Heat", NOW - 2 * DAY)])
        self.look(cells=2)
        self.waitForCopies(2)
        self.device("edge-1-later", [("Power loss", NOW - HOUR)],
                    [("Heat of CPU 1", NOW - 2 * DAY)])
        self.target(("edge-1", 1, self.agents[0][2]), ("edge-1", 2, self.agents[3][2]))
        waitFor(lambda: {labels["description"] for labels, _ in self.query(
            'cell:norvek_reload_cause_time_seconds:history{cell="2"}')} == {"Heat of CPU 1"},
            "the other text")
        self.show(device="edge-1")
        self.assertEqual(self.browser.texts(".supervisor:first-child .unlike"), [])
        self.assertEqual(self.browser.texts(".supervisor:last-child .unlike"),
                         ["The two do not agree."])
        self.assertEqual(self.browser.texts("td[data-name=Causes]"),
                         ["Power loss", "Heat of CPU 1"])
        self.assertEqual(self.browser.texts(".supervisor dt:nth-of-type(3) + dd"), ["1", "0"])
        self.assertReadable()

    def testShowsWhatIsNoTextAndWhatHasNoTime(self):
        bad = b"\xff\xfe".decode(errors="surrogateescape")
        self.recordReset(1, [(bad, NOW - HOUR), ("", 0)])
        agent = self.start()
        self.agents = [("edge 1/ä&x", 1, agent.address)]
        self.write("past.txt", "")
        self.look(cells=2)
        self.show(device="edge 1/ä&x")
        bad, untimed = self.browser.texts(".supervisor ol li")
        at = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(NOW - HOUR))
        self.assertRegex(bad, f"^0xFFFE {at} 1h \\d+m ago$")
        self.assertEqual(untimed, "no text time unknown")
        self.browser.open(self.consolePage())
        self.browser.script("document.querySelector('tbody a').click()")
        waitFor(lambda: self.browser.texts("h1") == ["edge 1/ä&x"], "the link leads to the device")

    def testRefreshesItselfOnlyWhereAsked(self):
        self.monitor()
        for asked, told in (("30", True), ("0", False), ("30;url=//x", False)):
            self.assertEqual(re.findall('http-equiv="refresh" content="([^"]*)"',
                                        fetched(self.consolePage(refresh=asked))[1]),
                             ["30"] if told else [])


if __name__ == "__main__":
    unittest.main()
