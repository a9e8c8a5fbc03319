"""How soon a running pair of supervisors shows what a kavra command changed."""

import json
import queue
import subprocess
import threading
import time

import snmp_client
import support
from support import DESCRIPTION, ENTRY, KAVRA, PATIENCE

HOT_STANDBY, WARM_STANDBY = 3, 2
MOST_ROWS = 10  # more than a unit ever has here
HISTORY = "cell/1/sys/reset/history"
STATUS = "cell/2/redundancy/status"


class Watch:
    """`kavra watch`, each line with the moment at which it came."""

    def __init__(self, directory):
        self.child = subprocess.Popen([KAVRA, "--db", "file:kavra.json", "watch", "cell/"],
                                      stdout=subprocess.PIPE, cwd=directory)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        for line in self.child.stdout:
            self.lines.put((time.perf_counter(), json.loads(line)))

    def next(self, path):
        """When the next line came, which must tell of the path."""
        moment, line = self.lines.get(timeout=PATIENCE)
        if line["path"] != path:
            raise AssertionError(f"{path} expected, but seen: {line}")
        return moment

    def close(self):
        self.child.terminate()
        self.reader.join()
        self.child.wait()
        self.child.stdout.close()


class Latencies(support.SystemTest):
    """Two agents under hot standby and a `kavra watch`. A latency runs from the end of a command,
    which is after its commit, to the first answers of both agents that show it, or to the line of
    `kavra watch`; it is 0 for what came before the command had ended."""

    def setUp(self):
        super().setUp()
        self.recordReset(1, [("first", 1)])
        self.recordReset(2, [("other", 1)])
        for cell in (1, 2):
            self.setRedundancy(cell, protocol=HOT_STANDBY, capable=True)
        self.managers = {}
        for cell in (1, 2):
            self.managers[cell] = snmp_client.Client(self.start(cell=cell).port, PATIENCE)
            self.addCleanup(self.managers[cell].close)
        self.watch = Watch(self.directory)
        self.addCleanup(self.watch.close)
        # What stands already comes first.
        for path in (f"cell/{cell}/{rest}" for cell in (1, 2)
                     for rest in ("redundancy/status", "sys/reset/history")):
            self.watch.next(path)
        self.found = {}

    def shown(self, cell, unit):
        answers = self.managers[cell].bulk(f"{ENTRY}.{DESCRIPTION}.{unit}", MOST_ROWS)
        return [text.decode() for _, text in answers]

    def shows(self, own, peer):
        """Whether cell 1 shows these causes of its own, and cell 2 those of its peer."""
        return (self.shown(1, 0), self.shown(1, 1), self.shown(2, 1)) == (own, own, peer)

    def note(self, what, seconds):
        self.found.setdefault(what, []).append(max(seconds, 0))

    def noteBoth(self, what, begin, end, seen):
        self.note(what, seen - end)
        self.note(f"{what}, run included", seen - begin)

    def measure(self, command, path, own, peer):
        """Runs a command that makes the pair show this, and did not before."""
        self.assertFalse(self.shows(own, peer), command)
        begin = time.perf_counter()
        self.kavra(*command)
        end = time.perf_counter()
        support.waitFor(lambda: self.shows(own, peer), command)
        self.noteBoth(command[0], begin, end, time.perf_counter())
        self.noteBoth("watch", begin, end, self.watch.next(path))

    def round(self, number):
        reload, cause = f"reload {number}", f"cause {number}"
        self.measure(["record-reset", "--cell", "1", "--cause", reload], HISTORY, [reload],
                     [reload])
        both = [reload, cause]
        self.measure(["add-cause", "--cell", "1", "--cause", cause], HISTORY, both, both)
        for protocol, peer in ((WARM_STANDBY, []), (HOT_STANDBY, both)):
            self.measure(["set-redundancy", "--cell", "2", "--protocol", str(protocol)], STATUS,
                         both, peer)
