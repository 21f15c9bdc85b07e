"""A boot that was recorded, its image, and the verbs over them by the installed program's command line."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM = ""
BEGIN = 1772694250000000  # 2026-03-05 07:04:10
FLAGS = " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n"


def stamp(moment):
    if moment is None:
        return "1970-01-01 00:00:00.000000"
    return f"2026-03-05 07:04:{10 + moment // 1000000:02d}.{moment % 1000000:06d}"


def boot_log(lines):
    text = "HVKernel Initialization Time: 7000000\n"
    for name, start, end in lines:
        text += f"[{stamp(start)} - {stamp(end)}] sysboot: {name}\n"
    return (text + f"=== Bootforge configuration info ===\n Start: {stamp(0)}\n End: {stamp(9)}\n"
            + FLAGS)


def daemon_log(lines):
    text = "".join(f"[{stamp(start)} - {stamp(end)}] daemon: {name}\n" for name, start, end in lines)
    return (text + f"=== Daemon configuration info ===\n Start Daemon: {stamp(0)}\n"
            f" End Daemon: {stamp(9)}\n" + FLAGS)


BOOT = [("network", 0, 1200000), ("disk", 500, 800000), ("log", 800100, 1500000),
        ("web", 1500020, 2900000), ("clock", 900, 1000), ("left", None, None)]


class RecordedCase(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="recorded-verbs-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.root = self.folder / "root"
        self.plugins = self.root / "usr/libexec/bootforge/plugins"
        self.plugins.mkdir(parents=True)
        self.log = self.root / "var/log/sysboot.log"
        self.log.parent.mkdir(parents=True)
        self.describe("network", [], ["net"], ["network up"])
        self.describe("disk", [], ["disk"], ["disk mount"])
        self.describe("log", ["disk"], ["log"], ["log start"])
        self.describe("web", ["net", "log"], [], ["web start"])
        self.describe("clock", [], [], [])
        self.log.write_text(boot_log(BOOT))

    def describe(self, name, requires, provides, commands):
        (self.plugins / f"{name}.json").write_text(json.dumps(
            {"metadata": {"version": 1, "requires": requires, "provides": provides},
             "operations": {"start": commands}}))

    def run_verb(self, verb, *words, status=0, root=True, given="", **environment):
        command = [PROGRAM, verb, *(["--root", str(self.root)] if root else []), *map(str, words)]
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60,
                                input=given.encode(), check=False, cwd=self.folder,
                                env={**os.environ, "COLUMNS": "", **environment})
        self.assertEqual(result.returncode, status, result.stderr.decode())
        self.errors = result.stderr.decode()
        return result.stdout.decode()

    def ask(self, verb, *words, **options):
        return json.loads(self.run_verb(verb, "--format", "json", *words, **options))

    def file(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return path

    def row(self, name, *words):
        rows = self.ask("blame", *words)["plugins"]
        return next(each for each in rows if each["name"] == name)


def main():
    """Runs the tests of the calling file: FILE PROGRAM [TEST...]."""
    global PROGRAM
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main(module="__main__")
