#!/usr/bin/python3
"""A pair of supervisors on one state database, driven at random, good documents and bad ones, and
compared after each step with what reference.py says."""

import json
import os
import unittest

import reference
import support
from reference import HISTORY, STATUS, Document, historyPath, statusPath

STEPS = int(os.environ.get("MISCSNMP_SYSTEM_STEPS", "1000"))
MOST_RELOADS = 10
TEXTS = ["Power loss", "Reload requested by the user", "Watchdog \u2014 expired", "Kernel panic", ""]
TYPES = ["supervisor", "supervisor", "fixed"]


def row(text, at):
    return (support.octets(text), support.dateAndTime(at))


class RandomPair(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.dice = support.seeded()
        self.standing = {}  # the document at each path
        self.marks = 0
        self.agents = {}
        self.expected = {}
        self.write("kavra.json", "{}")
        for cell in (1, 2):
            self.begin(cell)

    def begin(self, cell):
        cellType = self.dice.choice(TYPES)
        self.agents[cell] = self.start("--cell-type", cellType, cell=cell)
        self.expected[cell] = reference.Supervisor(cell, cellType, self.standing)

    # What has happened, told to the plain twins.

    def publish(self, path, document):
        self.standing[path] = document
        for supervisor in self.expected.values():
            supervisor.see(path, document)

    def unpublish(self, path):
        del self.standing[path]
        for supervisor in self.expected.values():
            supervisor.unsee(path)

    # The means: kavra for what it accepts, the file itself for what it refuses.

    def rewrite(self, path, document):
        with open(self.database) as file:
            documents = json.load(file)
        documents[path] = document
        self.write("kavra.json", json.dumps(documents))

    def anyTime(self):
        return self.dice.choice([0, 1700000000.9, 1700000001, 4294967295.5,
                                 self.dice.randrange(2**31)])

    def anyCauses(self, atLeast=0):
        return [(self.dice.choice(TEXTS), self.anyTime())
                for _ in range(self.dice.randrange(atLeast, 4))]

    def accepts(self, path, type):
        """Whether kavra goes on from what stands there."""
        document = self.standing.get(path, Document(type))
        return document.fits and document.type == type

    def reloadsOf(self, cell):
        path = historyPath(cell)
        if not self.accepts(path, HISTORY) or path not in self.standing:
            return {}
        return self.standing[path].content

    # What may happen. Each returns what to tell when a difference shows.

    def reloaded(self, cell):
        reloads, causes = self.reloadsOf(cell), self.anyCauses(1)
        if not self.accepts(historyPath(cell), HISTORY):
            return self.replaced(cell)
        self.recordReset(cell, causes)
        after = {index + 1: older for index, older in reloads.items() if index + 1 < MOST_RELOADS}
        self.publish(historyPath(cell), Document(HISTORY, {**after, 0: causes}))
        return f"a reload of cell {cell}"

    def causeAdded(self, cell):
        reloads, cause = self.reloadsOf(cell), (self.dice.choice(TEXTS), self.anyTime())
        if 0 not in reloads:
            return self.reloaded(cell)
        self.addCause(cell, *cause)
        self.publish(historyPath(cell), Document(HISTORY, {**reloads, 0: reloads[0] + [cause]}))
        return f"a cause of cell {cell}"

    def put(self, cell, reloads):
        self.putHistory(cell, reloads)
        self.publish(historyPath(cell), Document(HISTORY, reloads))

    def replaced(self, cell):
        self.put(cell, {index: self.anyCauses() for index in range(4) if self.dice.random() < 0.6})
        return f"a new history of cell {cell}"

    def emptied(self, cell):
        self.put(cell, {**self.reloadsOf(cell), 0: []})
        return f"an empty reload of cell {cell}"

    def latestGone(self, cell):
        self.put(cell, {index: causes for index, causes in self.reloadsOf(cell).items()
                        if index != 0})
        return f"no latest reload of cell {cell}"

    def unpublished(self, cell):
        path = self.dice.choice([historyPath, historyPath, statusPath])(cell)
        if path in self.standing:
            self.kavra("del", path)
            self.unpublish(path)
        return f"{path} is unpublished"

    def otherType(self, cell):
        self.rewrite(historyPath(cell),
                     {"type": STATUS, "protocol": 3, "switchoverCapable": True})
        self.publish(historyPath(cell), Document(STATUS, (3, True)))
        return f"another type in the place of the history of cell {cell}"

    def misfit(self, cell):
        kind = self.dice.choice([HISTORY, STATUS, "No::Such"])
        path = self.dice.choice([historyPath, historyPath, statusPath])(cell)
        self.rewrite(path, {"type": kind, "rebootHistory": "bad"})
        self.publish(path, Document(kind, fits=False))
        return f"a {kind} at {path} that does not fit"

    def redundancy(self, cell):
        protocol = self.dice.choice([0, 1, 2, 3, 3, 3, 3, 4294967295])
        capable = self.dice.random() < 0.7
        if self.accepts(statusPath(cell), STATUS):
            self.setRedundancy(cell, protocol, capable)
        else:
            self.kavra("put", statusPath(cell), text=json.dumps(
                {"type": STATUS, "protocol": protocol, "switchoverCapable": capable}))
        self.publish(statusPath(cell), Document(STATUS, (protocol, capable)))
        return f"protocol {protocol}, switchover-capable {capable} of cell {cell}"

    def startedAgain(self, cell):
        self.assertEqual(self.agents[cell].stopped(), 0, self.agents[cell].said())
        self.agents[cell].close()
        self.begin(cell)
        return f"cell {cell} started again"

    EVENTS = [(reloaded, 20), (causeAdded, 25), (replaced, 10), (emptied, 6), (latestGone, 10),
              (unpublished, 8), (otherType, 5), (misfit, 8), (redundancy, 35), (startedAgain, 3)]

    def happen(self):
        events, weights = zip(*self.EVENTS)
        return self.dice.choices(events, weights)[0](self, self.dice.choice((1, 2)))

    def settle(self):
        """Returns when both agents have seen everything. A document that none of them can use is
        published behind it: each complains of it."""
        self.marks += 1
        mark = f"Mark{self.marks}."
        self.rewrite("mark", {"type": mark})
        for agent in self.agents.values():
            support.waitFor(lambda agent=agent: mark in agent.said() or agent.hasEnded(),
                            f"the agent sees {mark}")

    def testBothShowWhatTheReferenceSays(self):
        shown = 0
        for step in range(STEPS):
            what = self.happen()
            self.settle()
            for cell in (1, 2):
                rows = self.expected[cell].rows(row)
                self.assertRows(self.agents[cell], rows, f"cell {cell} in step {step}: {what}")
                shown += len(rows)
        print(f"{STEPS} steps, {shown} rows compared", flush=True)
        self.assertGreater(shown, STEPS)
        for agent in self.agents.values():
            self.assertEqual(agent.stopped(), 0, agent.said())


if __name__ == "__main__":
    unittest.main()
