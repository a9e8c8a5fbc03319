"""What was made of each reload, and what should have been."""

import collections

from boxes import UNEXPLAINED, UNREQUESTED

LOOP = "NorvekReloadLoop"
LOOP_RELOADS = 3  # in an hour


def percentile(values, share):
    """The least of the values that so large a share of them does not exceed."""
    if not values:
        return None
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))]


def hasRightCauses(seen, reload):
    """Each cause at its position, and nothing else."""
    return seen == {str(place): {cause} for place, cause in enumerate(reload.causes, 1)}


def keyOf(labels):
    return labels["device"], labels["cell"], int(float(labels["reloaded"]))


def explains(annotations, reload):
    return annotations["description"].startswith("; ".join(reload.causes) + "; at ")


def verdictOf(made, seen, told):
    """`made` is a list of Reload, `seen` what Prometheus has (Monitoring.causesSeen), `told` what
    came out (Receiver.told)."""
    alerts = collections.defaultdict(list)  # of each reload
    others = collections.Counter()
    reloads = {reload.key(): reload for reload in made}
    counts = collections.Counter(key[:2] for key in reloads)
    for when, labels, annotations in told:
        name = labels["alertname"]
        if name in (UNREQUESTED, UNEXPLAINED) and keyOf(labels) in reloads:
            alerts[keyOf(labels)].append((when, name, annotations))
        elif name != LOOP or counts[labels["device"], labels["cell"]] < LOOP_RELOADS:
            others[f"{name} of {labels.get('device')}"] += 1
    expected = [reload for reload in made if reload.alert]
    return {
        "made": len(made),
        "seen with their causes": sum(hasRightCauses(seen.get(reload.key()), reload)
                                      for reload in made),
        "to be alerted": len(expected),
        "alerted": sum(bool(alerts[reload.key()]) for reload in expected),
        "missed": sum(not alerts[reload.key()] for reload in expected),
        "twice": sum(len(found) > 1 for found in alerts.values()),
        "with another cause": sum(
            any(name != reload.alert or not explains(annotations, reload)
                for _, name, annotations in alerts[reload.key()]) for reload in expected),
        "though requested": sum(bool(alerts[reload.key()]) for reload in made
                                if not reload.alert),
        "other alerts": dict(others)}


def latencies(made, told):
    """Seconds from each reload in its database to its alert out of the Alertmanager."""
    first = {}
    for when, labels, _ in told:
        if labels["alertname"] in (UNREQUESTED, UNEXPLAINED):
            first.setdefault(keyOf(labels), when)
    return [first[reload.key()] - reload.made for reload in made if reload.key() in first]


def isRight(verdict):
    return (verdict["made"] == verdict["seen with their causes"]
            and verdict["to be alerted"] == verdict["alerted"]
            and not any(verdict[fault] for fault in ("missed", "twice", "with another cause",
                                                     "though requested", "other alerts")))
