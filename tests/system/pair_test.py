#!/usr/bin/python3
"""Two supervisors on one state database, driven at random by kavra and compared with a reference
that is told in plain words below."""

import os
import unittest

import support
from support import rowsOf

STEPS = int(os.environ.get("MISCSNMP_SYSTEM_STEPS", "200"))
HOT_STANDBY = 3


class Supervisor:
    """What the agent of one cell must show, given the commands in their order. The histories are
    the publishers', shared; each always has a latest reload."""

    def __init__(self, cell, histories):
        self.cell = cell
        self.peer = 3 - cell
        self.histories = histories
        self.protocol = 0
        self.capable = False
        self.followsPeer = False
        self.peerRows = {}

    def rows(self):
        own = self.histories[self.cell]
        return {**rowsOf(0, own), **rowsOf(self.cell, own), **self.peerRows}

    def showPeer(self):
        """Writes the peer's rows anew, if it may; what is there stays otherwise."""
        if self.capable and self.followsPeer:
            self.peerRows = rowsOf(self.peer, self.histories[self.peer])

    def peerChanged(self):
        """The causes of the peer's latest reload changed: its rows go before they are written."""
        if self.followsPeer:
            self.peerRows = {}
            self.showPeer()

    def redundancyChanged(self, protocol, capable):
        changed = protocol != self.protocol
        switched = capable != self.capable
        self.protocol, self.capable = protocol, capable
        if changed and protocol == HOT_STANDBY:
            # The mount of the peer's history clears the old rows when its first machine starts.
            self.followsPeer = True
            self.peerRows = {}
            self.showPeer()
        elif changed:
            self.followsPeer = False
            self.peerRows = {}
        if switched:
            self.showPeer()


class Pair(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.clock = 1700000000
        self.histories = {cell: self.newCauses(1) for cell in (1, 2)}
        self.expected = {cell: Supervisor(cell, self.histories) for cell in (1, 2)}
        for cell in (1, 2):
            self.recordReset(cell, self.histories[cell])
            self.setRedundancy(cell, protocol=0, capable=False)
        self.agents = {cell: self.start(cell=cell) for cell in (1, 2)}

    def newCauses(self, count):
        causes = []
        for _ in range(count):
            self.clock += 1
            causes.append((f"cause {self.clock}", self.clock + 0.25))
        return causes

    def reload(self, cell, count=1):
        self.histories[cell] = self.newCauses(count)
        self.recordReset(cell, self.histories[cell])
        self.expected[3 - cell].peerChanged()

    def cause(self, cell):
        causes = self.newCauses(1)
        self.histories[cell] = self.histories[cell] + causes
        self.addCause(cell, *causes[0])
        self.expected[3 - cell].peerChanged()

    def redundancy(self, cell, protocol, capable):
        self.setRedundancy(cell, protocol=protocol, capable=capable)
        self.expected[cell].redundancyChanged(protocol, capable)

    def assertBoth(self, when=""):
        for cell in (1, 2):
            self.assertRows(self.agents[cell], self.expected[cell].rows(), f"cell {cell} {when}")

    def testEachShowsTheOtherUnderHotStandbyAlone(self):
        self.assertBoth("at the start")
        for cell in (1, 2):
            self.redundancy(cell, HOT_STANDBY, True)
        self.assertIn((2, 0, 1), self.expected[1].rows())
        self.assertBoth("under hot standby")
        self.cause(2)
        self.reload(1, 3)
        self.assertBoth("after news of both")
        for cell in (1, 2):
            self.redundancy(cell, 2, True)
        self.assertNotIn((2, 0, 1), self.expected[1].rows())
        self.assertBoth("under another protocol")

    def testPeerRowsStandWhileThePeerWarmsUp(self):
        self.redundancy(1, HOT_STANDBY, True)
        self.assertBoth("with a peer")
        self.redundancy(1, HOT_STANDBY, False)
        self.assertIn((2, 0, 1), self.expected[1].rows())
        self.reload(1)  # seen after the flag, so that the flag has been seen
        self.assertBoth("while the peer warms up")

    def testAnAgentThatStartsAgainShowsTheSame(self):
        self.redundancy(1, HOT_STANDBY, True)
        self.assertBoth("before")
        self.assertEqual(self.agents[1].stopped(), 0)
        self.agents[1] = self.start(cell=1)
        self.assertBoth("after")

    def testRandomHistoriesAreShownAsTheyAre(self):
        dice = support.seeded()
        for step in range(STEPS):
            cell = dice.choice((1, 2))
            kind = dice.choice(("reload", "cause", "cause", "redundancy", "redundancy"))
            if kind == "reload":
                self.reload(cell, dice.randrange(1, 4))
            elif kind == "cause":
                self.cause(cell)
            else:
                self.redundancy(cell, dice.choice((0, 1, 2, 3, 3, 3)), dice.choice((True, False)))
            when = f"in step {step}, {kind} of cell {cell}"
            self.assertBoth(when)
            # News that both show in any case: what was done in silence has been done by then.
            for other in (1, 2):
                self.reload(other)
            self.assertBoth(when + ", then news of both")
        for agent in self.agents.values():
            self.assertEqual(agent.stopped(), 0, agent.said())


if __name__ == "__main__":
    unittest.main()
