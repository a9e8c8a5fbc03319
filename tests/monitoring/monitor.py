"""Fixtures of the monitoring tests: agents, and Debian's exporter, Prometheus and Alertmanager on
free ports of this machine, with the configuration that is shipped."""

import contextlib
import http.server
import json
import os
import re
import shutil
import socket
import sys
import threading
import time
import urllib.error
import urllib.parse
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../system"))

from support import Process, ROOT, SystemTest, waitFor  # noqa: E402

MONITORING = os.path.join(ROOT, "monitoring")
# Seconds between two scrapes, and two evaluations; what is shipped has 15.
INTERVAL = float(os.environ.get("MONITORING_INTERVAL", "1"))


def freeTcpPort():
    with contextlib.closing(socket.socket()) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def fetched(url):
    """Status and text of a page."""
    try:
        with urllib.request.urlopen(url, timeout=20) as answer:
            return answer.status, answer.read().decode()
    except urllib.error.HTTPError as error:
        return error.code, error.read().decode(errors="replace")
    except OSError:
        return 0, ""


class Operator:
    """Who is told by Alertmanager: (name, cell, status) of each alert, in the order of messages."""

    def __init__(self):
        told = self.told = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                message = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
                told.extend((alert["labels"]["alertname"], alert["labels"].get("cell"),
                             alert["status"]) for alert in message["alerts"])
                self.send_response(200)
                self.end_headers()

            def log_message(self, *arguments):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.port = self.server.server_address[1]
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.server.shutdown()
        self.server.server_close()


class MonitoredTest(SystemTest):
    """A test that has, after `monitor()`, everything between an agent and an operator."""

    def setUp(self):
        super().setUp()
        for program in ("prometheus", "prometheus-snmp-exporter", "prometheus-alertmanager"):
            if not shutil.which(program):
                self.skipTest(f"{program} is not installed (script/packages monitoring)")

    def configured(self, name, *changes):
        """A file as it is shipped, but for the changes, each of which must find its place."""
        with open(os.path.join(MONITORING, name)) as file:
            text = file.read()
        for what, instead in changes:
            self.assertIn(what, text)
            text = text.replace(what, instead)
        return self.write(name, text)

    def serve(self, *command, ready):
        process = Process(self.directory, *command)
        self.addCleanup(process.close)
        waitFor(lambda: process.hasEnded() or fetched(ready)[0] == 200, f"{command[0]} is ready")
        self.assertFalse(process.hasEnded(), process.said())
        return process

    def startExporter(self):
        self.exporterPort = freeTcpPort()
        self.configured("snmp.yml")
        self.exporter = self.serve(
            "prometheus-snmp-exporter", "--config.file=snmp.yml",
            f"--web.listen-address=127.0.0.1:{self.exporterPort}",
            ready=f"http://127.0.0.1:{self.exporterPort}/")

    def startAlertmanager(self):
        self.operator = Operator()
        self.addCleanup(self.operator.close)
        self.alertmanagerPort = freeTcpPort()
        self.configured("alertmanager.yml", ("127.0.0.1:9099", f"127.0.0.1:{self.operator.port}"),
                        ("group_wait: 10s", "group_wait: 1s"))
        self.alertmanager = self.serve(
            "prometheus-alertmanager", "--config.file=alertmanager.yml",
            "--storage.path=alertmanager", "--cluster.listen-address=",
            f"--web.listen-address=127.0.0.1:{self.alertmanagerPort}",
            ready=f"http://127.0.0.1:{self.alertmanagerPort}/-/ready")

    def startPrometheus(self):
        self.prometheusPort = freeTcpPort()
        seconds = f"{INTERVAL:g}s"
        self.configured("norvek-rules.yml", ("[150s]", f"[{4 * INTERVAL:g}s]"))
        self.configured("prometheus.yml", ("127.0.0.1:9116", f"127.0.0.1:{self.exporterPort}"),
                        ("127.0.0.1:9093", f"127.0.0.1:{self.alertmanagerPort}"),
                        ("scrape_interval: 15s", f"scrape_interval: {seconds}\n"
                                                 f"  scrape_timeout: {seconds}"),
                        ("evaluation_interval: 15s", f"evaluation_interval: {seconds}"),
                        ("scrape_interval: 2m", f"scrape_interval: {3 * INTERVAL:g}s"))
        self.prometheus = self.serve(
            "prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=tsdb",
            f"--web.console.templates={MONITORING}/consoles", "--web.console.libraries=libraries",
            f"--web.listen-address=127.0.0.1:{self.prometheusPort}",
            ready=f"http://127.0.0.1:{self.prometheusPort}/-/ready")

    def target(self, *agents):
        """Names (device, cell, address) as the targets."""
        self.write("norvek-targets.yml", json.dumps([
            {"targets": [re.sub("^udp:", "", address)],
             "labels": {"device": device, "cell": str(cell)}}
            for device, cell, address in agents]))

    def monitor(self, *agents):
        self.target(*agents)
        self.startExporter()
        self.startAlertmanager()
        self.startPrometheus()

    def scraped(self, agent, module="norvek"):
        return fetched(f"http://127.0.0.1:{self.exporterPort}/snmp?" + urllib.parse.urlencode(
            {"target": re.sub("^udp:", "", agent.address), "module": module}))

    def query(self, expression):
        """[(labels, value)] of what Prometheus knows now."""
        status, text = fetched(f"http://127.0.0.1:{self.prometheusPort}/api/v1/query?" +
                               urllib.parse.urlencode({"query": expression}))
        self.assertEqual(status, 200, text)
        return [(row["metric"], float(row["value"][1]))
                for row in json.loads(text)["data"]["result"]]

    def firing(self):
        """{(name, device, cell): annotations} of what is active at Alertmanager."""
        _, text = fetched(f"http://127.0.0.1:{self.alertmanagerPort}/api/v2/alerts?active=true")
        return {(alert["labels"]["alertname"], alert["labels"].get("device"),
                 alert["labels"].get("cell")): alert["annotations"] for alert in json.loads(text)}

    def consolePage(self, **parameters):
        return (f"http://127.0.0.1:{self.prometheusPort}/consoles/norvek.html?" +
                urllib.parse.urlencode(parameters))

    def secondsUntil(self, condition, what):
        begun = time.monotonic()
        waitFor(condition, what)
        return time.monotonic() - begun
