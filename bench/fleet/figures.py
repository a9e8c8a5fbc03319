"""What agents and monitoring take, and the table of all that was found."""

import statistics
import time

from verdict import percentile

MEGABYTE = 1e6
SAMPLES = "prometheus_tsdb_head_samples_appended_total"
SERIES = "prometheus_tsdb_head_series"
# What an agent may take beyond what processes share, and of a core while nobody asks it.
BARS = {("agents now", "private memory, largest"): 8 * MEGABYTE,
        ("at rest", "of a core, largest"): 0.0002}


def agentsAtRest(agents, seconds):
    """The processor time of agents that nobody asks, as shares of a core."""
    time.sleep(min(seconds, 5))  # what follows a start
    before, begin = [agent.exactProcessorTime() for agent in agents], time.monotonic()
    time.sleep(seconds)
    lasted = time.monotonic() - begin
    shares = [(agent.exactProcessorTime() - earlier) / lasted
              for agent, earlier in zip(agents, before)]
    return {"seconds": lasted, "of a core": statistics.median(shares),
            "of a core, largest": max(shares), **memoryOf(agents)}


def memoryOf(agents):
    private = [agent.privateMemory() for agent in agents]
    whole = [agent.proportionalMemory() for agent in agents]
    return {"private memory": statistics.median(private),
            "private memory, largest": max(private),
            "memory with its part of what is shared": statistics.median(whole)}


def work(fleet):
    """The processor time of everybody up to now."""
    return {"agents": sum(agent.exactProcessorTime() for agent in fleet.agents),
            **{name: process.processorTime()
               for name, process in fleet.monitoring.processes.items()}}


def load(fleet, begin, before, stored):
    """What asking all agents has taken of a core, and how long, since `begin`; before that there
    was `before` of work, and Prometheus said `stored` of itself."""
    lasted = time.time() - begin
    now, metrics = work(fleet), fleet.monitoring.metrics()
    shares = {name: (now[name] - before[name]) / lasted for name in now}
    return {
        "seconds": lasted, "of a core": shares,
        "an agent of a core": shares["agents"] / len(fleet.agents),
        "memory": {name: process.proportionalMemory()
                   for name, process in fleet.monitoring.processes.items()},
        **scrapes(fleet.monitoring, lasted),
        "series": metrics[SERIES], "series before the reloads": stored[SERIES],
        "series a reload": (metrics[SERIES] - stored[SERIES]) / max(1, len(fleet.reloads.made)),
        "samples a second": (metrics[SAMPLES] - stored[SAMPLES]) / lasted,
        "rules, a round": metrics["prometheus_rule_group_last_duration_seconds"],
        "rounds of rules missed": metrics["prometheus_rule_group_iterations_missed_total"]}


def scrapes(monitoring, lasted):
    """Those of the last seconds."""
    span = f"[{int(lasted)}s]"
    return {
        "scrapes a second": monitoring.number(
            f'sum(count_over_time(up{{job=~"norvek.*"}}{span}))') / lasted,
        "scrapes without an answer": monitoring.number(
            f'sum(count_over_time(up{span}) - sum_over_time(up{span}))'),
        "a scrape": {
            "p50": monitoring.number(
                f'quantile(0.5, quantile_over_time(0.5, '
                f'scrape_duration_seconds{{job="norvek"}}{span}))'),
            "p99": monitoring.number(
                f'quantile(0.99, quantile_over_time(0.99, '
                f'scrape_duration_seconds{{job="norvek"}}{span}))')},
        "all agents, one after another": monitoring.number(
            f'sum(avg_over_time(scrape_duration_seconds{{job="norvek"}}{span}))'),
        "requests a scrape": monitoring.number('avg(snmp_scrape_packets_sent{job="norvek"})'),
        "samples a scrape": monitoring.number('avg(scrape_samples_scraped{job="norvek"})')}


def rows(found):
    """(what, value) of the table."""
    fleet, rest, busy = found["fleet"], found["at rest"], found["under Prometheus"]
    reloads = found["reloads"]
    yield "agents, of these in pairs", f"{fleet['agents']}, {fleet['in pairs']}"
    yield "files of theirs that are looked at each second", fleet["files looked at each second"]
    yield "start of all", f"{fleet['seconds to start']:.1f} s"
    for name, part in (("at rest", rest), ("asked", found["agents now"])):
        yield (f"private memory of an agent {name}, median and largest (bar: 8 MB)",
               f"{part['private memory'] / MEGABYTE:.2f} MB, "
               f"{part['private memory, largest'] / MEGABYTE:.2f} MB")
    yield ("an agent of a core at rest, median and largest (bar: 0.02 %)",
           f"{rest['of a core']:.5%}, {rest['of a core, largest']:.5%}")
    yield f"an agent of a core, asked every {fleet['scrape interval']} s", \
        f"{busy['an agent of a core']:.4%}"
    for name in ("exporter", "prometheus", "alertmanager"):
        yield name, (f"{busy['of a core'][name]:.1%} of a core, "
                     f"{busy['memory'][name] / MEGABYTE:.0f} MB")
    yield "scrapes a second; without an answer", \
        f"{busy['scrapes a second']:.1f}; {busy['scrapes without an answer']:.0f}"
    yield "a scrape, p50 and p99", (f"{1000 * busy['a scrape']['p50']:.1f} ms, "
                                    f"{1000 * busy['a scrape']['p99']:.1f} ms")
    yield "a scrape of all agents, one after another", \
        f"{busy['all agents, one after another']:.2f} s"
    yield (f"the same, {found['a pass by hand']['askers']} at a time",
           f"{found['a pass by hand']['seconds']:.2f} s")
    yield "series in Prometheus, more a reload; samples a second", \
        (f"{busy['series before the reloads']:.0f}, {busy['series a reload']:.1f}; "
         f"{busy['samples a second']:.0f}")
    yield "a round of its rules", f"{busy['rules, a round']:.3f} s"
    yield "rounds of rules missed", f"{busy['rounds of rules missed']:.0f}"
    for name, part in (("at random", "latency"), ("all at once", "latency of a power cut")):
        one = found[part]
        if one["alerts"]:
            yield (f"reloads {name}: seconds to the alert, p50, p99, longest",
                   f"{one['p50']:.1f}, {one['p99']:.1f}, {one['longest']:.1f}")
    for name, value in reloads.items():
        yield f"reloads: {name}", value or 0


def table(found):
    lines = [(str(name), str(value)) for name, value in rows(found)]
    width = max(len(name) for name, _ in lines)
    return "\n".join(f"{name:{width}}  {value}" for name, value in lines)
