#!/usr/bin/env python3
"""Fifty hosts whose boots a Prometheus server watches, by examples/fleet and the distribution's programs.

monitoring_test.py PROGRAM [TEST...]. Everything listens on loopback, on ports of its own, and writes
below a folder of its own. Without the programs all of it is skipped.
"""

import json
import os
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

import fleet_hosts

HERE = os.path.dirname(os.path.abspath(__file__))
EXAMPLES = os.path.realpath(f"{HERE}/../../examples/fleet")
PROGRAMS = ("prometheus", "prometheus-node-exporter", "promtool")
SKIPPED = 77
PROGRAM = ""
HOSTS = 50
LIMIT = 120  # seconds for any of it to come


def free_ports(count):
    """Ports that nobody uses at this moment."""
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [each.getsockname()[1] for each in sockets]
    for each in sockets:
        each.close()
    return ports


def get(url):
    try:
        with urllib.request.urlopen(url, timeout=10) as answer:
            return answer.read().decode()
    except urllib.error.HTTPError as error:
        if error.code == 503:  # it has not begun yet
            return None
        raise AssertionError(f"{url}: {error}: {error.read().decode()}") from error
    except OSError:
        return None


class WithFolder(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="monitoring-")
        self.addCleanup(shutil.rmtree, self.folder)

    def start(self, *words):
        """A program that ends with the test."""
        log = open(f"{self.folder}/{os.path.basename(words[0])}.log", "ab")
        self.addCleanup(log.close)
        # Killed with us, however we end.
        process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *words], stdout=log,
                                   stderr=log, stdin=subprocess.DEVNULL, cwd=self.folder,
                                   env={**os.environ, "GOMAXPROCS": "1"})
        self.addCleanup(process.wait)
        self.addCleanup(process.send_signal, signal.SIGKILL)
        return process

    def wait_for(self, condition, what):
        deadline = time.monotonic() + LIMIT
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > deadline:
                logs = [f"{self.folder}/{name}" for name in os.listdir(self.folder)
                        if name.endswith(".log")]
                text = "".join(open(path, encoding="utf-8").read()[-3000:] for path in logs)
                raise AssertionError(f"waited in vain for {what}\n{text}")
            time.sleep(0.05)


class Watched(WithFolder):
    maxDiff = None

    def export(self, host):
        """As examples/fleet/export-boot does it, with the host's own messages in place of dmesg."""
        target = f"{self.folder}/textfiles/{host}"
        os.makedirs(target)
        tools = f"{self.folder}/tools/{host}"
        os.makedirs(tools)
        with open(f"{tools}/dmesg", "w", encoding="utf-8") as script:
            script.write(f"#!/bin/sh\nexec cat '{self.fleet.root}/logs/{host}.messages'\n")
        os.chmod(f"{tools}/dmesg", 0o755)
        os.symlink(PROGRAM, f"{tools}/bootforge-analyze")
        environment = {"PATH": f"{tools}:{os.environ['PATH']}", "FOLDER": target,
                       "OPTIONS": f"--root={self.fleet.root} --log=/logs/{host}.log"}
        for word in ("stop", "start", "start"):  # the last replaces the one before
            subprocess.run([f"{EXAMPLES}/export-boot", f"++group=init/{host}", word],
                           env=environment, check=True)
            self.assertEqual(os.listdir(target), [] if word == "stop" else ["bootforge.prom"])
        return target

    def start_all(self):
        self.fleet = fleet_hosts.FleetOfHosts(PROGRAM, self.folder, HOSTS)
        server, *ports = free_ports(HOSTS + 1)
        targets = []
        for host, port in zip(self.fleet.hosts, ports):
            address = f"127.0.0.1:{port}"
            self.start("prometheus-node-exporter", "--collector.disable-defaults",
                       "--collector.textfile", f"--web.listen-address={address}",
                       f"--collector.textfile.directory={self.export(host)}")
            targets.append({"targets": [address], "labels": {"instance": host}})
        with open(f"{self.folder}/hosts.json", "w", encoding="utf-8") as file:
            json.dump(targets, file)
        shutil.copy(f"{EXAMPLES}/rules.yml", self.folder)
        with open(f"{EXAMPLES}/prometheus.yml", encoding="utf-8") as file:
            text = file.read()
        self.assertIn("scrape_interval: 1m\n", text)
        with open(f"{self.folder}/prometheus.yml", "w", encoding="utf-8") as file:
            file.write(text.replace("scrape_interval: 1m\n", "scrape_interval: 2s\n"
                                    "  evaluation_interval: 1s\n"))
        subprocess.run(["promtool", "check", "config", "prometheus.yml"], cwd=self.folder,
                       check=True, stdout=subprocess.DEVNULL)
        self.server = f"http://127.0.0.1:{server}"
        self.start("prometheus", "--config.file=prometheus.yml",
                   f"--storage.tsdb.path={self.folder}/data",
                   f"--web.listen-address=127.0.0.1:{server}")

    def query(self, expression):
        """The result as pairs of labels and a number."""
        answer = get(f"{self.server}/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
        if answer is None:
            return []
        return [(each["metric"], float(each["value"][1]))
                for each in json.loads(answer)["data"]["result"]]

    def value(self, expression):
        (_, value), = self.query(expression)
        return value

    def test_the_numbers_of_the_fleet_come_back(self):
        self.start_all()
        told = self.fleet.told()
        self.wait_for(lambda: self.query(f"count(bootforge_boot_seconds) == {HOSTS}"),
                      "all hosts to be scraped")
        self.assertEqual(self.query("node_textfile_scrape_error != 0"), [])
        seconds = lambda microseconds: microseconds / 1e6
        # The rules are evaluated after that.
        self.wait_for(lambda: self.query("count(bootforge:boot_seconds:score) == "
                                         f"{HOSTS}") and self.query(
                                             f"bootforge:boot_seconds:most == "
                                             f"{seconds(told['boot']['most'])}"), "the rules")
        self.assertEqual(self.value("count(bootforge_boot_seconds)"), told["boot"]["count"])
        for name in ("p50", "p90", "p99", "most"):
            self.assertEqual(self.value(f"bootforge:boot_seconds:{name}"),
                             seconds(told["boot"][name]), name)
        plugins = {each["name"]: each for each in told["plugins"]}
        most = {labels["plugin"]: value
                for labels, value in self.query("bootforge:plugin_seconds:most")}
        self.assertEqual(most, {name: seconds(each["most"]) for name, each in plugins.items()})
        failures = {labels["plugin"]: value
                    for labels, value in self.query("bootforge:plugin_failures:count")}
        self.assertEqual(failures, {name: each["failures"] for name, each in plugins.items()})
        scores = {labels["instance"]: value
                  for labels, value in self.query("bootforge:boot_seconds:score > 3.5")}
        self.assertEqual(list(sorted(scores)), sorted(each["host"] for each in told["outliers"]))
        self.assertGreater(len(scores), 0)
        for each in told["outliers"]:
            self.assertAlmostEqual(scores[each["host"]], each["score"], places=4)
        alerts = {("BootStandsOut", host, None) for host in scores}
        alerts |= {("PluginFailed", host, "agent")
                   for number, host in enumerate(self.fleet.hosts) if number % 10 == 4}
        self.wait_for(lambda: self.firing() == alerts, f"the alerts {alerts}, all of them")

    def firing(self):
        return {(labels["alertname"], labels["instance"], labels.get("plugin"))
                for labels, _ in self.query('ALERTS{alertstate="firing"}')}


class Files(WithFolder):
    def promtool(self, *words):
        done = subprocess.run(["promtool", *words], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False, cwd=self.folder)
        self.assertEqual(done.returncode, 0, done.stdout.decode())

    def test_rules_are_rules_and_alert_when_they_say(self):
        self.promtool("check", "rules", f"{EXAMPLES}/rules.yml")
        shutil.copy(f"{EXAMPLES}/rules.yml", self.folder)
        shutil.copy(f"{HERE}/fleet_rules_test.yml", self.folder)
        self.promtool("test", "rules", "fleet_rules_test.yml")

    def test_an_export_is_sound_and_for_everybody_to_read(self):
        fleet = fleet_hosts.FleetOfHosts(PROGRAM, self.folder, 5)
        for host in fleet.hosts:
            path = f"{self.folder}/{host}.prom"
            fleet.export(host, "prometheus", "--output", path)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode) & 0o444, 0o444)
            with open(path, "rb") as file:
                done = subprocess.run(["promtool", "check", "metrics"], stdin=file,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            self.assertEqual((done.returncode, done.stdout), (0, b""))

    def test_a_boot_without_a_log_leaves_the_last_export_and_says_so(self):
        target = f"{self.folder}/bootforge.prom"
        with open(target, "w", encoding="utf-8") as file:
            file.write("bootforge_boot_timestamp_seconds 1\n")
        os.symlink(PROGRAM, f"{self.folder}/bootforge-analyze")
        done = subprocess.run([f"{EXAMPLES}/export-boot", "start"], stderr=subprocess.PIPE,
                              env={"PATH": f"{self.folder}:{os.environ['PATH']}",
                                   "FOLDER": self.folder, "OPTIONS": f"--root={self.folder}"},
                              check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"sysboot.log: No such file or directory", done.stderr)
        with open(target, encoding="utf-8") as file:
            self.assertEqual(file.read(), "bootforge_boot_timestamp_seconds 1\n")


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    missing = [name for name in PROGRAMS if not shutil.which(name)]
    if missing:
        print(f"skipped: this machine lacks {', '.join(missing)}")
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
