#!/usr/bin/env python3
"""Exports, read by what other people read them with: public packages of npm.

exports_test.py PROGRAM PACKAGES [TEST...]. Without the packages, or node, all of it is skipped.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import fleet_hosts

HERE = os.path.dirname(os.path.abspath(__file__))
SKIPPED = 77
PROGRAM = PACKAGES = ""
# Of these hosts number 4 has a plugin that fails, and number 3 a slow one.
HOSTS = 24


class Exports(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="exports-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.fleet = fleet_hosts.FleetOfHosts(PROGRAM, self.folder, HOSTS)

    def read(self, kind, *words):
        done = subprocess.run(["node", f"{HERE}/read_export.js", PACKAGES, kind, *words],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return json.loads(done.stdout)

    def exported(self, host, form):
        path = f"{self.folder}/{host}.{form}"
        self.fleet.export(host, form, "--output", path)
        return path

    def blame(self, host):
        return json.loads(self.fleet.ask(
            "blame", "--format=json", f"--root={self.fleet.root}", f"--log=/logs/{host}.log",
            f"--messages={self.fleet.root}/logs/{host}.messages"))

    def test_trace_has_a_track_for_each_worker_with_its_plugins(self):
        told = self.read("trace", self.exported("host004", "trace"))
        blame = self.blame("host004")
        self.assertEqual((told["start"], told["end"]), (0, blame["boot"]["makespan"]))
        process, = told["processes"]
        self.assertEqual(process["name"], "bootforge boot")
        tracks = {}
        for plugin in sorted(blame["plugins"], key=lambda each: each["start"]):
            tracks.setdefault(f"worker {plugin['worker']}", []).append(
                {"name": plugin["name"], "start": plugin["start"], "end": plugin["end"],
                 "nested": False})
        self.assertEqual({each["name"]: each["events"] for each in process["threads"]}, tracks)

    def test_collectors_take_the_spans(self):
        spans = self.read("otlp", self.exported("host004", "otlp"))
        blame = self.blame("host004")
        boot, *plugins = spans
        self.assertEqual((boot["name"], boot["parent"]), ("boot", ""))
        self.assertEqual(len({each["span"] for each in spans}), len(spans))
        nanoseconds = lambda moment: str((blame["boot"]["start"] + moment) * 1000)
        status = {"activated": (1, None), "failed": (2, 'agent->start() failed: no, "really"')}
        self.assertEqual(
            {(each["name"], each["start"], each["end"], each["status"], each["message"])
             for each in plugins},
            {(each["name"], nanoseconds(each["start"]), nanoseconds(each["end"]),
              *status[each["result"]]) for each in blame["plugins"]})
        for span in plugins:
            self.assertEqual((span["parent"], span["trace"]), (boot["span"], boot["trace"]))
            self.assertRegex(span["span"] + span["trace"], r"^[0-9a-f]{48}$")

    def documented_queries(self):
        """The queries of docs/fleet.md: indented blocks that begin with SELECT or WITH."""
        with open(f"{HERE}/../../docs/fleet.md", encoding="utf-8") as file:
            blocks = re.findall(r"(?m)(?:^    .*\n|^\n(?=    ))+", file.read())
        queries = [re.sub("(?m)^    ", "", block).strip() for block in blocks]
        return [query for query in queries if query.startswith(("SELECT", "WITH"))]

    def test_documented_queries_give_what_the_fleet_verb_gives(self):
        for host in self.fleet.hosts:
            os.makedirs(f"{self.folder}/boots/{host}")
            for form in ("csv", "jsonl"):
                self.fleet.export(host, form, "--output",
                                  f"{self.folder}/boots/{host}/2026-03-05.{form}")
        told = self.fleet.told()
        plugins, boots, outliers, rows = (self.read("duckdb", self.folder, query)
                                          for query in self.documented_queries())
        self.assertEqual(
            {each["plugin"]: {key: int(each[key]) for key in each if key != "plugin"}
             for each in plugins},
            {each["name"]: {key: each[key] for key in each if key != "name"}
             for each in told["plugins"]})
        self.assertEqual([{key: int(value) for key, value in each.items()} for each in boots],
                         [told["boot"]])
        self.assertGreater(len(outliers), 0)
        self.assertEqual([(each["host"], int(each["value"])) for each in outliers],
                         [(each["host"], each["value"]) for each in told["outliers"]])
        for got, wanted in zip(outliers, told["outliers"]):
            self.assertAlmostEqual(got["score"], wanted["score"])
        self.assertEqual([(each["host"], each["reason"]) for each in rows],
                         [(host, 'agent->start() failed: no, "really"')
                          for number, host in enumerate(self.fleet.hosts) if number % 10 == 4])


if __name__ == "__main__":
    PROGRAM, PACKAGES = os.path.abspath(sys.argv.pop(1)), os.path.abspath(sys.argv.pop(1))
    if not (os.path.exists(f"{PACKAGES}/complete") and shutil.which("node")):
        print(f"skipped: there is no node, or no packages in {PACKAGES}")
        sys.exit(SKIPPED)
    unittest.main()
