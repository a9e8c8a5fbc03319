"""Where the instructions of a GETNEXT go: as a tree of calls counted by callgrind, and as a picture.

A frame is [name, whose, instructions, called frames]; instructions are those of one request, with
what the frame calls. The agent is counted from outside, whatever version it has.
"""

import json
import re
import sys
import tempfile
from collections import Counter

import agents
from figures import rounded

ROWS = 100
FEW, MANY = 200, 600  # values: the table once, and three times
CALLERS = 60  # deeper than any stack of the agent
LEAST = 0.004  # of a request: what is less is left out
PASSING = 0.97  # of a frame: what one call takes of another that does little but call it
UNKNOWN = "(no name)"

# Whose a frame is, by the file that it is in; the first that fits.
OWNERS = (("the table", re.compile(r"/libMiscSnmp")), ("the agent", re.compile(r"norvek|qelplatform")),
          ("net-snmp", re.compile(r"/libnetsnmp")), ("C and C++", re.compile("")))


def ownerOf(path):
    return next(owner for owner, pattern in OWNERS if pattern.search(path))


def shortened(name):
    """Without the arguments of function and templates."""
    if name.startswith("0x"):
        return UNKNOWN
    name = name.replace("(anonymous namespace)::", "")
    while (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    return name.split("(")[0].split(" ")[-1] or UNKNOWN


class Names:
    """callgrind writes a name once, and its number from then on."""

    def __init__(self):
        self.known = {}

    def read(self, text):
        number, _, name = text.partition(" ")
        if name:
            self.known[number] = name
        return self.known[number]


def stacksIn(profile):
    """What each stack, a tuple of frames with the innermost last, took by itself."""
    objects, functions = Names(), Names()
    whose, places, took = {}, None, Counter()
    isCall = False
    for line in profile:
        key, _, value = line.rstrip("\n").partition("=")
        if key in ("ob", "cob"):
            objects.read(value)
        if key == "ob":
            place = objects.read(value)
        elif key == "fn":
            chain = functions.read(value).split("'")
            whose.setdefault(chain[0], ownerOf(place))
            places = tuple(reversed(chain))
        elif key == "cfn":
            functions.read(value)
        elif key == "calls":
            isCall = True  # the next line is what the callee took
        elif places and re.match(r"[+\-*\d]", line):
            if not isCall:
                took[places] += int(line.split()[-1])
            isCall = False
    return took, whose


def stacksOf(options, values, agent, table):
    """Of an agent that answers for so many values and ends."""
    with tempfile.TemporaryDirectory() as directory:
        under = ["valgrind", "--tool=callgrind", f"--log-file={directory}/log",
                 f"--separate-callers={CALLERS}", f"--callgrind-out-file={directory}/profile"]
        with agents.Agent(options, ROWS, (table,), under, agent) as running:
            running.awaited()
            running.ask(agents.CORE, "--walk", "ours", "--values", str(values))
        with open(f"{directory}/profile", encoding="utf-8") as profile:
            return stacksIn(profile)


def simplified(frame):
    """Without what only passes a call on; the frame has the name of one that has any."""
    while frame[3] and frame[3][0][2] >= PASSING * frame[2]:
        called = frame[3][0]
        names = called if called[0] != UNKNOWN else frame
        frame = [*names[:2], frame[2], called[3]]
    return frame


def framesOf(took, whose, least):
    """The frames of stacks by what they took, the dearest first, without those below `least`."""
    groups = {}
    for stack, instructions in took.items():
        if stack:
            groups.setdefault(stack[0], Counter())[stack[1:]] += instructions
    frames = [simplified([shortened(name), whose[name], sum(inner.values()),
                          framesOf(inner, whose, least)])
              for name, inner in groups.items() if sum(inner.values()) >= least]
    return sorted(frames, key=lambda frame: -frame[2])


def measured(agent=agents.support.AGENT, table=agents.TABLE):
    """What one GETNEXT takes: all that more requests take more, divided by their number."""
    with agents.store("file", ROWS) as options:
        few, _ = stacksOf(options, FEW, agent, table)
        many, whose = stacksOf(options, MANY, agent, table)
    many.subtract(few)
    took = Counter({stack: count / (MANY - FEW) for stack, count in many.items() if count > 0})
    whole = sum(took.values())
    return {"instructions": whole, "frames": framesOf(took, whose, LEAST * whole)}


def byOwner(frames):
    """The instructions in the code of each, without what it calls, as far as frames tell."""
    found = Counter()
    for _, owner, instructions, called in frames:
        found[owner] += instructions - sum(frame[2] for frame in called)
        found.update(byOwner(called))
    return found


if __name__ == "__main__":  # AGENT TABLE SOURCE: of programs that were built elsewhere, as JSON
    print(json.dumps({"source": sys.argv[3], **rounded(measured(*sys.argv[1:3]))},
                     separators=(",", ":")))
