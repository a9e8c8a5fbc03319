"""What a machine tells of its last reload, from outside and inside, and whether that is right."""

import calendar
import json
import os
import sys
import time

import vm

sys.path.insert(0, os.path.join(vm.ROOT, "tests/system"))
import support  # noqa: E402  (the path comes first)

EXACT = 2.0  # seconds by which a time may be wrong
SLACK = 1.0  # the same for the ends of a window: clocks of hardware tell whole seconds
PATIENCE = 15  # until agent and database agree
ASK = ("norvek-reset-cause find --json && echo ---- && "
       "kavra --db file:{file} show --json --cell {cell}")


def manager(port, phrases):
    """The reader of the packaged access configuration, with the passphrases of the machine."""
    authentication, privacy = phrases
    return support.Manager(f"udp:127.0.0.1:{port}", "-v3", "-l", "authPriv", "-u", "reader", "-a",
                           "SHA-256", "-A", authentication, "-x", "AES", "-X", privacy)


def dateAndTimeOf(octets):
    """Seconds since 1970 of the eleven octets."""
    moment = time.strptime("-".join(map(str, [int.from_bytes(octets[:2], "big"), *octets[2:7]])),
                           "%Y-%m-%d-%H-%M-%S")
    return float(calendar.timegm(moment))


def outside(reader, unit=0):
    """The causes of the last reload by SNMP, [(text, seconds)]; none while nobody answers."""
    try:
        rows = reader.rows()
    except AssertionError:
        return []
    return [(description.decode(errors="replace"), dateAndTimeOf(octets))
            for (which, _, _), (description, octets) in sorted(rows.items()) if which == unit]


def shownBy(document, cell):
    """The same of what `kavra show --json` prints."""
    for each in document["cells"]:
        if each["cell"] == cell:
            causes = each["reloads"][0]["causes"]
            return [(cause["description"], cause["time"]) for cause in causes]
    return []


def inside(machine, cell=1, file="/var/lib/kavra/kavra.json"):
    """The verdict as a document, and the causes that `kavra show` tells."""
    found, shown = machine.run(ASK.format(cell=cell, file=file)).split("\n----\n")
    return json.loads(found), shownBy(json.loads(shown), cell)


def ask(machine, reader, cell=1, file="/var/lib/kavra/kavra.json"):
    """All that it tells: as JSON knows it."""
    first = outside(reader)
    found, shown = inside(machine, cell, file)
    deadline = time.monotonic() + PATIENCE
    by = outside(reader)
    while [text for text, _ in by] != [text for text, _ in shown] and time.monotonic() < deadline:
        time.sleep(0.5)
        by = outside(reader)
    return {"find": found, "show": shown, "snmp": by, "first": first or by}


def timeError(way, moment, cause, start):
    """By how many seconds the time is wrong; null where a window is told and holds the moment."""
    if way.exact:
        return cause["time"] - moment if "time" in cause else float("inf")
    if "time" in cause or "since" not in cause:
        return float("inf")
    if moment < cause["since"] - SLACK:
        return cause["since"] - moment
    return moment - start if moment > start + SLACK else None


def isInTime(error, took):
    """Whether the time is that of something which `took` so long, or a window holds it."""
    return error is None or -EXACT <= error <= took + EXACT


def wrongs(way, tag, moment, took, told, boots):
    """What is wrong with what is told of a reload, a sentence each. `boots` are the boot before
    and this one; to ask the machine to go down took so many seconds from the moment on."""
    wrong = []

    def expect(what, seen, wanted):
        if seen != wanted:
            wrong.append(f"{what}: {seen!r} instead of {wanted!r}")

    cause, *beside = told["find"]["causes"]
    text = way.text.replace("{tag}", tag)
    expect("find", cause["cause"], text)
    expect("how sure", cause["confidence"], way.confidence)
    ids = told["find"]["boots"]
    expect("boots", [ids.get("previousId"), ids.get("id")], list(boots))
    for each in beside:
        if each["cause"] not in way.beside:
            wrong.append(f"beside it: {each['cause']!r}")
    error = timeError(way, moment, cause, ids["start"])
    if not isInTime(error, took):
        wrong.append(f"time: wrong by {error:.1f} s")
    # A window is told by its begin, or its end, where that is all there is.
    recorded = [(each["cause"], each.get("time", each.get("since", ids["start"])))
                for each in told["find"]["causes"]]
    expect("kavra show", [each for each, _ in told["show"]], [each for each, _ in recorded])
    expect("its times", [at for _, at in told["show"]], [at for _, at in recorded])
    expect("SNMP", [each for each, _ in told["snmp"]], [each for each, _ in recorded])
    expect("its times", [at for _, at in told["snmp"]], [float(int(at)) for _, at in recorded])
    expect("SNMP at first", told["first"], told["snmp"])
    return wrong
