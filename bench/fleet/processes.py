"""Children that are ended by their id, whatever happens to whoever started them."""

import os
import re
import subprocess
import time

# Seconds that a server may take to start, and to end when it is asked to.
PATIENCE = 30
TICKS = os.sysconf("SC_CLK_TCK")


class Process:
    """A child of a session of its own, which a Ctrl-C does not reach; it ends with its parent."""

    def __init__(self, log, *command):
        self.name = os.path.basename(command[0])
        self.log = log
        with open(log, "wb") as output:
            self.child = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *command],
                                          cwd=os.path.dirname(log), stdin=subprocess.DEVNULL,
                                          stdout=output, stderr=subprocess.STDOUT,
                                          start_new_session=True)

    def said(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def check(self):
        if self.child.poll() is not None:
            raise RuntimeError(f"{self.name} has ended: {self.said().strip()[-600:]}")

    def wait(self, condition):
        """Until the condition holds."""
        deadline = time.monotonic() + PATIENCE
        while not condition():
            self.check()
            if time.monotonic() > deadline:
                raise RuntimeError(f"{self.name} is not ready after {PATIENCE} s: "
                                   f"{self.said().strip()[-600:]}")
            time.sleep(0.05)

    def privateMemory(self):
        """Octets that it shares with no other process."""
        return 1024 * sum(map(int, re.findall(r"^Private_\w+:\s+(\d+) kB", self.roll(), re.M)))

    def proportionalMemory(self):
        """Octets with its part of what is shared."""
        return 1024 * int(re.search(r"^Pss:\s+(\d+) kB", self.roll(), re.M)[1])

    def roll(self):
        with open(f"/proc/{self.child.pid}/smaps_rollup", encoding="ascii") as file:
            return file.read()

    def processorTime(self):
        """Seconds by the ticks of the clock, of the threads that ended as well."""
        with open(f"/proc/{self.child.pid}/stat", encoding="utf-8") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS

    def exactProcessorTime(self):
        """Seconds to the nanosecond, of the threads that there are."""
        tasks = f"/proc/{self.child.pid}/task"
        total = 0
        for task in os.listdir(tasks):
            with open(f"{tasks}/{task}/schedstat", encoding="ascii") as file:
                total += int(file.read().split()[0])
        return total / 1e9


def end(processes):
    """All at once, and those that do not end by themselves the hard way."""
    for process in processes:
        if process.child.poll() is None:
            process.child.terminate()
    deadline = time.monotonic() + PATIENCE
    for process in processes:
        try:
            process.child.wait(max(0.0, deadline - time.monotonic()))
        except subprocess.TimeoutExpired:
            process.child.kill()
            process.child.wait()
