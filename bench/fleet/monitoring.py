"""Prometheus, its exporter and its Alertmanager, as monitoring/ sets them up, on free ports."""

import contextlib
import http.server
import json
import os
import shutil
import socket
import threading
import time
import urllib.error
import urllib.parse
import urllib.request

from boxes import PORT
from processes import Process

# An alert a message, at once: each is counted. Nothing holds another one back.
ALERTMANAGER = """
route:
  receiver: fleet
  group_by: ['...']
  group_wait: 0s
  group_interval: 1m
  repeat_interval: 12h
receivers:
  - name: fleet
    webhook_configs:
      - url: http://127.0.0.1:{port}/
        send_resolved: false
        max_alerts: 0
"""


def freePort():
    with contextlib.closing(socket.socket()) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def fetch(port, path, **parameters):
    query = "?" + urllib.parse.urlencode(parameters, doseq=True) if parameters else ""
    with urllib.request.urlopen(f"http://127.0.0.1:{port}{path}{query}", timeout=60) as answer:
        return answer.read().decode()


def answers(port, path):
    try:
        fetch(port, path)
        return True
    except (OSError, urllib.error.URLError):
        return False


class Receiver:
    """Whom the Alertmanager tells; keeps each alert with the time at which it came."""

    def __init__(self):
        self.told = []  # (when, labels, annotations)
        receiver = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                message = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
                now = time.time()
                receiver.told += [(now, alert["labels"], alert["annotations"])
                                  for alert in message["alerts"] if alert["status"] == "firing"]
                self.send_response(200)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def port(self):
        return self.server.server_address[1]

    def close(self):
        self.server.shutdown()
        self.server.server_close()


class Monitoring:
    def __init__(self, shipped, folder, interval):
        """The files of `shipped`, with what is the fleet's own in their place."""
        self.shipped, self.folder, self.interval = shipped, folder, interval
        self.ports = {name: freePort() for name in ("prometheus", "exporter", "alertmanager")}
        self.processes = {}

    def start(self, cells, receiver):
        self.configure(cells, receiver)
        self.server("exporter", "/", "/usr/bin/prometheus-snmp-exporter",
                    "--config.file=" + os.path.join(self.shipped, "snmp.yml"))
        self.server("alertmanager", "/-/ready", "/usr/bin/prometheus-alertmanager",
                    "--config.file=alertmanager.yml", "--storage.path=alertmanager",
                    "--cluster.listen-address=")
        self.server("prometheus", "/-/ready", "/usr/bin/prometheus",
                    "--config.file=prometheus.yml", "--storage.tsdb.path=prometheus")

    def server(self, name, ready, *command):
        port = self.ports[name]
        process = Process(os.path.join(self.folder, name + ".log"), *command,
                          f"--web.listen-address=127.0.0.1:{port}", "--log.level=warn")
        self.processes[name] = process
        process.wait(lambda: answers(port, ready))

    def configure(self, cells, receiver):
        shutil.copy(os.path.join(self.shipped, "norvek-rules.yml"), self.folder)
        targets = json.dumps([
            {"targets": [f"{cell.address}:{PORT}"],
             "labels": {"device": cell.device, "cell": str(cell.number)}} for cell in cells])
        with open(os.path.join(self.shipped, "prometheus.yml"), encoding="utf-8") as file:
            text = file.read()
        for shipped, own in (
                (":9116'", f":{self.ports['exporter']}'"),
                (":9093'", f":{self.ports['alertmanager']}'"),
                # Prometheus would follow a file with inotify, of which the agents may leave none.
                ("file_sd_configs:", "static_configs:"),
                ("[{files: [norvek-targets.yml]}]", targets),
                ("  scrape_interval: 15s\n  evaluation_interval: 15s",
                 f"  scrape_interval: {self.interval}s\n"
                 f"  evaluation_interval: {self.interval}s")):
            if shipped not in text:
                raise RuntimeError(f"monitoring/prometheus.yml has no {shipped!r} any more")
            text = text.replace(shipped, own)
        self.file("prometheus.yml", text)
        self.file("alertmanager.yml", ALERTMANAGER.format(port=receiver.port()))

    def file(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            file.write(text)

    def check(self):
        for process in self.processes.values():
            process.check()

    def ask(self, path, **parameters):
        return json.loads(fetch(self.ports["prometheus"], "/api/v1/" + path,
                                **parameters))["data"]

    def number(self, query):
        """The value of a query with one result; None of one without any."""
        found = self.ask("query", query=query)["result"]
        return float(found[0]["value"][1]) if found else None

    def isAwake(self, count):
        """Whether each agent was asked, and the rules have looked twice at what it told."""
        return self.number("count(count_over_time(cell:norvek_reload_time_seconds:last[1h]) > 1)"
                           ) == count

    def causesSeen(self, since):
        """{(device, cell, time): {position: {cause}}} of each reload that was ever told."""
        seen = {}
        for labels in self.ask("series", start=since, end=time.time(), **{
                "match[]": "cell:norvek_reload_cause_time_seconds:history"}):
            key = labels["device"], labels["cell"], int(float(labels["reloaded"]))
            causes = seen.setdefault(key, {})
            causes.setdefault(labels["position"], set()).add(labels.get("description"))
        return seen

    def metrics(self):
        """What Prometheus says of itself, {name: value}; of names with labels the sum."""
        found = {}
        for line in fetch(self.ports["prometheus"], "/metrics").splitlines():
            if not line.startswith("#"):
                name, _, value = line.rpartition(" ")
                name = name.partition("{")[0]
                found[name] = found.get(name, 0) + float(value)
        return found

    def scrapeByHand(self, cell):
        fetch(self.ports["exporter"], "/snmp", module="norvek", target=f"{cell.address}:{PORT}")
