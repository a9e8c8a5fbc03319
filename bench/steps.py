"""Where the time of a publication goes, step by step, by what strace sees of the processes.

Tracing itself takes some hundredths of a millisecond a step: this tells the shares, and
publications.py the sum.
"""

import os
import re
import statistics
import time

import publications
import support

CALLS = "openat,read,write,rename,sendto,recvfrom,select,pselect6,poll,ppoll"
LINE = re.compile(r"^(\d+) +([\d.]+) (.*)$")
READ = [("the watch of the folder wakes the thread", r"read\(\d+, .*\\0{file}\\0"),
        ("it looks along the path", r"openat\(.*{file}\", O_RDONLY\|O_NONBLOCK"),
        ("it reads and parses", r"write\(\d+, \"\\1\\0\\0\\0\\0\\0\\0\\0\", 8\) = 8"),
        ("it wakes the loop", r"read\(\d+, \"\\1\\0\\0\\0\\0\\0\\0\\0\", 8\) = 8")]
# Who does a step, and the call at its end.
STEPS = {
    "file": [("agent", *step) for step in READ] + [
        ("agent", "the loop checks, compares and rebuilds the rows", r"p?select6?\(")],
    "redis": [("serve", *step) for step in READ] + [
        ("serve", "the loop checks, and looks at the server", r"sendto\(.*MULTI"),
        ("serve", "the server answers the look", r"recvfrom\(.*\+OK"),
        ("serve", "the claim is watched", r"recvfrom\(.*host"),
        ("serve", "the publication is put together", r"sendto\(.*MULTI"),
        ("agent", "it is sent, the server takes it in and rings", r"recvfrom\(.*kavra:log"),
        ("agent", "the agent asks for a snapshot", r"sendto\(.*MULTI"),
        ("agent", "the server answers it", r"recvfrom\(.*\+OK"),
        ("agent", "the agent decodes, checks, rebuilds the rows", r"sendto\(.*XREAD")]}


class Steps(publications.Publications):
    """Publications under strace; `figures` are the steps, in milliseconds."""

    def startProcess(self, name, *command):
        return super().startProcess(
            name, "strace", "-D", "-f", "-s", "256", "-ttt", "--seccomp-bpf", "-e", f"trace={CALLS}", "-o",
            self.path(name + ".strace"), *command)

    def calls(self):
        """Every call that was seen: (when, whose, which)."""
        found = []
        for name in ("serve", "agent"):
            if os.path.exists(self.path(name + ".strace")):
                with open(self.path(name + ".strace"), errors="replace") as trace:
                    lines = map(LINE.match, trace.read().splitlines())
                found += [(float(line[2]), name, line[3]) for line in lines if line]
        return sorted(found)

    def moments(self, calls, begin, end):
        """When each step ended between the two."""
        rest = iter([call for call in calls if begin <= call[0] <= end])
        file = os.path.basename(self.database if self.store == "file" else self.source)
        found = []
        for process, what, pattern in STEPS[self.store]:
            pattern = pattern.replace("{file}", re.escape(file))
            found.append((what, next((when for when, name, text in rest
                                      if name == process and re.match(pattern, text)), None)))
        return found

    def publication(self, number):
        self.begun = time.time()
        super().publication(number)
        self.spans.append((self.begun, time.time()))

    def runTest(self):
        self.spans = []
        port = self.startAgent()
        self.startManagers(port)
        self.end.set()  # the other manager's questions would stand between
        support.waitFor(lambda: self.shows(0), "the agent shows what stands already")
        for number in range(1, self.rounds + 1):
            self.publication(number)
        self.figures = {"store": self.store, "causes": self.causes, "steps": self.steps()}

    def steps(self):
        calls, taken = self.calls(), {}
        for begin, end in self.spans:
            last = None
            for what, when in self.moments(calls, begin, end):
                # None where two calls came the other way round.
                if last and when:
                    taken.setdefault(what, []).append((when - last) * 1000)
                last = when
        return [{"step": what, "median": round(statistics.median(times), 3), "of": len(times)}
                for what, times in taken.items()]
