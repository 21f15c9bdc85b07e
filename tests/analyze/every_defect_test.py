#!/usr/bin/env python3
"""An image with every defect that there is a rule for, and all that is said about it.

every_defect_test.py ANALYZER SAMPLES [TEST...]. SAMPLES is the folder of the shared objects that the
tests of native plugins are built with. The expected answers stand in every_defect/. After a change of
words that is meant, write them anew, and read what changed:

    UPDATE=1 tests/analyze/every_defect_test.py build/release/bootforge-analyze \\
        build/release/tests/unit/native
"""

import os
import re
import sys

import image
from image import COMMANDS, PLUGINS, ImageCase

SAMPLES = ""
EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "every_defect")

KEYS = """{
  // Keys that mean nothing.
  "metadata": {"version": 1, "requires": [], "provide": [], "provides": [],
    "run_once": true,
    "requires": []},
  "operations": {"start": []}
}
{"more": "text"}
"""

INVALID = """{"metadata": {"version": 3,
    "requires": "network-up",
    "provides": ["a", 1, null],
    "run_once": "no"},
 "operations": {"start": [["host", "say"]]}}
"""

LINES = """{"metadata": {"version": 2, "requires": [], "provides": []},
 "operations": {
  "start": [
    "host say --text 'no end",
    "host sya --text x",
    "host say --txt x",
    "host say --loud=yes",
    "host say --text %s",
    "Stop the host",
    ""],
  "apply_host_profile": ["host broken", "host mute"]}}
"""

HOST = """{"namespace": "host", "commands": {
  "say": {"exec": ["/bin/say", "{text}"],
          "parameters": {"text": {"required": true}, "loud": {"flag": true}}},
  "mute": {"exec": ["/bin/none"], "timeout": 5, "sumary": "Says nothing"}}}
"""

BROKEN = """{"namespace": "host", "commands": {
  "broken": {"exec": ["/bin/say"], "timeout": -1},
  "worse": {"exec": ["say"]}}}
"""

SHADOW = """{"namespace": "host", "commands": {
  "mute": {"exec": ["/bin/none"], "timeout": 5}}}
"""

OPTIONS = ["--plugin-flags", "fast", "--disable-plugins", "denied"]
# The folder's own order is any; names fix which of two plugins is the second.
NAMED = ["unreadable.json", "syntax.json", "invalid.json", "keys.json", "notes.txt", "libtwin.json",
         "twin.json", "first.json", "second.json", "third.json", "lonely.json", "denied.json",
         "waiting.json", "contradiction.json", "odd name.json", "once.json", "once1.json",
         "lines.json", "text.so", "libnothing.so", "malformed.so", "needy.so"]


class EveryDefect(ImageCase):
    def setUp(self):
        super().setUp()
        make = self.image
        os.rmdir(make.path(COMMANDS + "/int/ext"))
        make.folder(PLUGINS + "/unreadable.json")
        make.put(PLUGINS + "/syntax.json", '{"metadata": {\n  "version": 1,,\n}}')
        make.put(PLUGINS + "/invalid.json", INVALID)
        make.put(PLUGINS + "/keys.json", KEYS)
        make.put(PLUGINS + "/notes.txt", "")
        make.plugin("libtwin")
        make.plugin("twin")
        make.plugin("first", requires=["second-up"], provides=["first-up"])
        make.plugin("second", requires=["first-up"], provides=["second-up"])
        make.plugin("third", requires=["second-up"], provides=["network-up"])
        make.plugin("lonely", requires=["netwrok-up"])
        make.plugin("denied", provides=["denied-up"])
        make.plugin("waiting", requires=["denied-up"])
        make.plugin("contradiction", required_flags=["fast"], disabling_flags=["fast"])
        make.plugin("odd name", run_once=True, plugin_version="1:2")
        make.plugin("once", run_once=True, plugin_version="12")
        make.plugin("once1", run_once=True, plugin_version="2")
        make.put(PLUGINS + "/lines.json", LINES % ("x" * 1100), 0o664)
        make.put(PLUGINS + "/text.so", "no object")
        for name, sample in [("libnothing", "no_metadata"), ("malformed", "malformed"),
                             ("needy", "needy")]:
            with open(f"{SAMPLES}/libsample_{sample}.so", "rb") as file:
                make.put(f"{PLUGINS}/{name}.so", file.read())
        make.put("/bin/say", "", 0o755)
        make.put(COMMANDS + "/host.json", HOST)
        make.put(COMMANDS + "/broken.json", BROKEN)
        make.put(COMMANDS + "/ext/host.json", SHADOW)
        make.put("/etc/nimbus/bootforge/debug.conf",
                 "look: :network-up:date\nbad:a\\b:c:date\n")
        make.put("/etc/init.d/lsb", "#!/bin/bash\n### BEGIN INIT INFO\n# chkconfig: 345 5 95\n",
                 0o755)

    def verify_all(self, output_format):
        answer = self.verify(*OPTIONS, "--plugin", ",".join(NAMED), "--format", output_format)
        self.assertEqual((answer.status, answer.error), (1, ""))
        return answer

    def check(self, output_format, suffix):
        text = self.verify_all(output_format).text
        # What an installation decides.
        text = re.sub(r'"version": "\d+\.\d+\.\d+[^"]*",\n(\s+"rules")', r'"version": "0.0.0",\n\1', text)
        text = re.sub(r'file://[^"#]*/rules\.md', "file:///rules.md", text)
        path = os.path.join(EXPECTED, "expected." + suffix)
        if os.environ.get("UPDATE"):
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        with open(path, encoding="utf-8") as file:
            self.maxDiff = None
            self.assertMultiLineEqual(text, file.read())

    def test_every_rule_finds_something(self):
        rules = dict(line.split() for line in self.analyze("verify", "--list-rules").text.splitlines())
        self.assertEqual(len(rules), 37)
        answer = self.verify_all("json").json
        found = {finding["rule"]: finding["severity"] for finding in answer["findings"]}
        self.assertEqual(found, rules)
        for severity in ["error", "warning", "note"]:
            self.assertEqual(answer["counts"][severity],
                             sum(f["severity"] == severity for f in answer["findings"]))

    def test_findings_are_in_order(self):
        findings = self.verify_all("json").json["findings"]
        keys = [((f["file"] or "").encode(), f["line"] or 0, f["column"] or 0, f["rule"])
                for f in findings]
        self.assertEqual(keys, sorted(keys))

    def test_whole_text(self):
        self.check("text", "txt")

    def test_whole_json(self):
        self.check("json", "json")

    def test_whole_sarif(self):
        self.check("sarif", "sarif")

    def test_whole_workflow_commands(self):
        self.check("github", "github")


if __name__ == "__main__":
    SAMPLES = os.path.abspath(sys.argv.pop(2))
    image.main()
