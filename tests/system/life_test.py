#!/usr/bin/python3
"""How an agent starts and ends, and what it leaves on the system."""

import os
import resource
import signal
import subprocess
import time
import unittest

import support
from support import ENTRY, Manager, rowsOf

CAUSES = [("Power loss", 1700000000.9)]
# How many directories may be watched within the user namespace of whoever sets it.
MOST_WATCHED = "/proc/sys/user/max_inotify_instances"
WITH_NONE_WATCHED = f'echo 0 >{MOST_WATCHED} && exec "$@"'


def mayLimitWatches():
    return subprocess.run(["unshare", "--user", "--map-root-user", "sh", "-c", WITH_NONE_WATCHED,
                           "sh", "true"], capture_output=True, check=False).returncode == 0


class Life(support.SystemTest):
    def setUp(self):
        super().setUp()
        self.recordReset(1, CAUSES)

    def testSigtermAndSigintEndItWell(self):
        for how in (signal.SIGTERM, signal.SIGINT):
            agent = self.start("--context", "blue")
            self.assertEqual(agent.stopped(how), 0, agent.said())
            self.assertEqual(len(agent.said().splitlines()), 1, agent.said())

    def testASignalDuringTheStartEndsItWell(self):
        for delay in (0.0, 0.005, 0.01, 0.02, 0.04, 0.08):
            agent = support.Agent(self.directory)
            self.addCleanup(agent.close)
            time.sleep(delay)  # the moment is the test: anywhere between exec and the first event
            status = agent.stopped()
            # Before the process holds signals back, the kernel ends it.
            self.assertIn(status, (0, -signal.SIGTERM), agent.said())

    def testASignalEndsItWhileItReadsALongConfiguration(self):
        views = "".join(f"view v{n % 1000} included .1.3.6.1.{n}\n" for n in range(60000))
        agent = support.Agent(self.directory, "--config",
                              self.write("access.conf", "rocommunity public 127.0.0.1\n" + views))
        self.addCleanup(agent.close)
        support.waitFor(lambda: agent.hasEnded() or self.catches(agent, signal.SIGTERM),
                        "it reads")
        self.assertEqual(agent.stopped(), 0, agent.said())

    @staticmethod
    def catches(agent, number):
        with open(f"/proc/{agent.child.pid}/status") as status:
            caught = next(line for line in status if line.startswith("SigCgt:"))
        return int(caught.split()[1], 16) & 1 << (number - 1)

    @unittest.skipIf(support.isSanitized(), "a sanitizer brings an allocator of its own")
    def testItAllocatesWithMimalloc(self):
        agent = self.start()
        with open(f"/proc/{agent.child.pid}/maps", encoding="utf-8") as mapped:
            places = mapped.read()
        self.assertIn("/libmimalloc.so", places)
        self.assertNotIn("[heap]", places)  # from where the C library would give it

    @unittest.skipIf(support.isSanitized(), "a sanitizer ends what it has no memory for")
    def testItServesOnWhereThereIsNoMemoryForAFile(self):
        agent = self.start()
        with open(f"/proc/{agent.child.pid}/statm", encoding="ascii") as sizes:
            taken = int(sizes.read().split()[5]) * resource.getpagesize()
        before = resource.prlimit(agent.child.pid, resource.RLIMIT_DATA)
        resource.prlimit(agent.child.pid, resource.RLIMIT_DATA, (taken + (8 << 20), before[1]))
        with open(self.database, encoding="utf-8") as database:
            published = database.read()
        self.write("kavra.json", published.replace("Power loss", "Overheated") + " " * (48 << 20))
        support.waitFor(lambda: agent.hasEnded() or "Cannot allocate memory" in agent.said(),
                        "it is told")
        self.assertRows(agent, {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)})
        resource.prlimit(agent.child.pid, resource.RLIMIT_DATA, before)
        later = [("Overheated", CAUSES[0][1])]
        self.assertRows(agent, {**rowsOf(0, later), **rowsOf(1, later)})

    def testNoMemoryOfItIsBackedByHugePages(self):
        agent = self.start()
        with open(f"/proc/{agent.child.pid}/status", encoding="utf-8") as status:
            self.assertIn("THP_enabled:\t0\n", status.read())

    def testItEndsWhileManagersAsk(self):
        agent = self.start()
        walkers = [support.Process(self.directory, "snmpbulkwalk", "-v2c", "-c", "public", "-m", "",
                                   "-r", "0", "-t", "1", agent.address, ENTRY) for _ in range(4)]
        self.assertEqual(agent.stopped(), 0, agent.said())
        for walker in walkers:
            walker.ended()
            walker.close()

    def testItsPortIsFreeAfterwards(self):
        agent = self.start()
        agent.stopped()
        again = self.start(address=agent.address)
        self.assertRows(again, {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)})

    def testASecondAgentOnThePortEndsWithOneLine(self):
        first = self.start()
        second = support.Agent(self.directory, address=first.address)
        self.addCleanup(second.close)
        self.assertEqual(second.ended(), 1)
        self.assertEqual(second.said(), f"norvek-snmpd: cannot listen on {first.address}: "
                                        "Address already in use\n")
        self.assertRows(first, {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)})

    def testItReadsNoSystemConfigurationAndKeepsNothing(self):
        trace = self.path("strace")
        port = support.freePort()
        agent = support.Process(self.directory, "strace", "-f", "-qq", "-o", trace, "-e",
                                # The leak sanitizer, where it is built in, cannot be traced.
                                "trace=file", "-E", "ASAN_OPTIONS=detect_leaks=0", support.AGENT,
                                "--listen", f"udp:127.0.0.1:{port}")
        self.addCleanup(agent.close)
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "the agent serves")
        Manager(f"udp:127.0.0.1:{port}").rows()
        with open(f"/proc/{agent.child.pid}/task/{agent.child.pid}/children") as children:
            os.kill(int(children.read().split()[0]), signal.SIGTERM)
        self.assertEqual(agent.ended(), 0, agent.said())
        with open(trace) as calls:
            for call in calls:
                self.assertNotRegex(call, r'"/(etc|var/lib|usr/share|root/\.)[^"]*snmp', call)
                self.assertNotRegex(call, r"O_CREAT|O_WRONLY|mkdir\(\"/[^d]|unlink|rename", call)

    def testADirectoryOfItsOwnIsNotNeeded(self):
        """It runs as any user, in a directory where it may write nothing."""
        if os.geteuid() != 0:
            self.skipTest("only root may become another user")
        program = support.agentForAnyone(self.directory)
        os.chmod(self.directory, 0o555)
        os.chmod(self.database, 0o444)
        port = support.freePort()
        agent = support.Process(self.directory, "setpriv", "--reuid=65534", "--regid=65534",
                                "--clear-groups", program, "--listen", f"udp:127.0.0.1:{port}")
        self.addCleanup(agent.close)
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "the agent serves")
        self.assertEqual(Manager(f"udp:127.0.0.1:{port}").rows(),
                         {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)}, agent.said())
        self.assertEqual(agent.stopped(), 0, agent.said())

    @unittest.skipUnless(mayLimitWatches(), "needs a user namespace of its own")
    def testItServesAndFollowsWithoutAnInotifyInstance(self):
        address = f"udp:127.0.0.1:{support.freePort()}"
        agent = support.Process(self.directory, "unshare", "--user", "--map-root-user", "sh", "-c",
                                WITH_NONE_WATCHED, "sh", support.AGENT, "--listen", address)
        self.addCleanup(agent.close)
        agent.manager = Manager(address)
        support.waitFor(lambda: " serves " in agent.said() or agent.hasEnded(), "the agent serves")
        self.assertRows(agent, {**rowsOf(0, CAUSES), **rowsOf(1, CAUSES)})
        later = [("Fan failure", 1700000100)]
        self.recordReset(1, later)
        self.assertRows(agent, {**rowsOf(0, later), **rowsOf(1, later)})
        unwatched, _ = agent.said().splitlines()
        self.assertRegex(unwatched, r"^norvek-snmpd: Kavra 0: file:kavra\.json: directory .* cannot "
                                    r"be watched: .*fs\.inotify\.max_user_instances\); looking each second$")
        subprocess.run(["nsenter", "--user", "--preserve-credentials", "--target",
                        str(agent.child.pid), "sh", "-c", f"echo 1 >{MOST_WATCHED}"], check=True)
        support.waitFor(lambda: agent.said().endswith("kavra.json: is watched again\n"),
                        "the directory is watched")
        self.assertEqual(agent.stopped(), 0, agent.said())


if __name__ == "__main__":
    unittest.main()
