#!/usr/bin/env python3
"""What the page of a recorded boot is made of, beside what other verbs say of the same boot.

data_test.py PROGRAM BUILD [TEST...].
"""

import html.parser
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import boots

PROGRAM = ""
BUILD = Path()
# A minute each with a sanitizer, which finds nothing in them that smaller boots have not.
NOT_SANITIZED = unittest.skipIf(os.environ.get("BOOTFORGE_SANITIZE"), "large boots")
BLAME_KEYS = ("name", "start", "end", "run", "wait_milestones", "wait_worker", "wait_executor", "work",
              "worker", "slack", "result", "reason")


class Parts(html.parser.HTMLParser):
    """The text of each script, and all tags."""

    def __init__(self, text):
        super().__init__(convert_charrefs=False)
        self.scripts, self.tags, self.inside = [], [], False
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.tags.append((tag, dict(attrs)))
        if tag == "script":
            self.scripts.append((dict(attrs), []))
            self.inside = True

    def handle_endtag(self, tag):
        self.inside = self.inside and tag != "script"

    def handle_data(self, data):
        if self.inside:
            self.scripts[-1][1].append(data)


class Data(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="report-data-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.root = self.folder / "root"
        self.messages = boots.small(self.root)

    def run_verb(self, verb, *words, status=0):
        told = subprocess.run([PROGRAM, verb, "--root", str(self.root), *map(str, words)],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, timeout=120,
                              stdin=subprocess.DEVNULL)
        self.assertEqual(told.returncode, status, told.stderr.decode())
        return told.stdout.decode()

    def ask(self, verb, *words):
        return json.loads(self.run_verb(verb, "--format", "json", *words))

    def report(self, *words):
        page = self.run_verb("report", *words)
        for attributes, text in Parts(page).scripts:
            if attributes.get("id") == "data":
                return json.loads("".join(text))
        self.fail("there are no data")

    def agrees(self, *words):
        told, blamed = self.report(*words), self.ask("blame", *words)
        self.assertEqual(told["boot"], blamed["boot"])
        self.assertEqual([{key: row[key] for key in BLAME_KEYS} for row in told["plugins"]],
                         blamed["plugins"])
        chain = self.ask("critical-chain", *words)["chain"]
        names = [row["name"] for row in told["plugins"]]
        for link, other in zip(told["chain"], chain, strict=True):
            self.assertEqual(names[link.pop("plugin")], link["name"])
            if link["after"]:
                self.assertEqual(names[link["after"].pop("plugin")], link["after"]["name"])
            self.assertEqual(link, other)
        return told

    def test_numbers_are_those_of_blame_and_critical_chain(self):
        self.agrees("--messages", self.messages)
        self.agrees()
        boots.drawn(self.root, 120, workers=4, seed=7)
        self.agrees("--messages", self.messages)

    def test_savings_are_those_of_simulate(self):
        boots.drawn(self.root, 60, workers=4, seed=3)
        told = self.report()
        workers = told["boot"]["workers"]

        def makespan(*words):
            return self.ask("simulate", "--workers", workers, *words)["runs"][0]["makespan"]

        self.assertEqual(told["model"]["makespan"], makespan())
        changed = 0
        for row in told["plugins"][::6]:
            for key, work in (("half", row["work"] // 2), ("none", 0)):
                saved = makespan() - makespan("--set", f"{row['name']}={work}")
                self.assertEqual(row["saves"][key], saved, row["name"])
                changed += saved != 0
            self.assertEqual(row["saves"]["native"] is None, not row["executor"])
        self.assertGreater(changed, 0)

    @NOT_SANITIZED
    def test_large_boots_have_savings_for_those_that_matter(self):
        boots.drawn(self.root, 1200)
        told = self.report()
        rows = told["plugins"]
        for link in told["chain"]:
            self.assertIsNotNone(rows[link["plugin"]]["saves"])
        least = min(row["work"] for row in rows if row["saves"] is not None)
        left = [row["work"] for row in rows if row["saves"] is None]
        self.assertTrue(left)
        self.assertLessEqual(min(left), least + max(left))
        most = max(rows, key=lambda row: row["work"])
        self.assertIsNotNone(most["saves"])

    def test_edges_are_those_of_the_descriptions(self):
        told = self.report()
        row = next(each for each in told["plugins"] if each["name"] == "web")
        names = [told["gates"][gate] for gate in row["requires"]]
        self.assertEqual((names, row["levels"], row["kind"], row["executor"]),
                         (["net", "log"], 0, "json", True))
        self.assertEqual([told["gates"][gate] for gate in row["provides"]], ["service"])
        self.assertIsNone(next(each["kind"] for each in told["plugins"]
                               if each["name"].startswith("</script>")))
        self.assertEqual([each["name"] for each in told["absent"]], ["unused"])

    def test_messages_stand_with_their_plugins(self):
        told = self.report("--messages", self.messages)
        row = next(each for each in told["plugins"] if each["name"] == "web")
        self.assertEqual(row["messages"], [
            ["8.500020", "Activating Bootforge plugin web."],
            ["9.900000", "Bootforge plugin web activation failed: no <b>socket</b> & no \"port\""]])
        self.assertTrue(told["has_messages"])
        self.assertFalse(self.report()["has_messages"])

    def test_nothing_in_names_ends_the_data(self):
        page = self.run_verb("report", "--messages", self.messages)
        parts = Parts(page)
        self.assertEqual(len(parts.scripts), 2)
        data = "".join(parts.scripts[0][1])
        self.assertNotIn("<", data)
        program = "".join(parts.scripts[1][1]).lower()
        for ending in ("</script", "<script", "<!--"):
            self.assertNotIn(ending, program)

    def test_nothing_is_from_elsewhere(self):
        page = self.run_verb("report")
        for tag, attributes in Parts(page).tags:
            self.assertNotIn(tag, ("iframe", "img", "object", "embed", "base", "form"))
            self.assertNotIn("src", attributes)
            self.assertRegex(attributes.get("href", "#"), "^(#|data:,$)")
        self.assertIn("default-src 'none'", page)

    @NOT_SANITIZED
    def test_thousand_plugins_take_less_than_a_megabyte(self):
        self.messages = boots.drawn(self.root, 1000)
        size = len(self.run_verb("report", "--messages", self.messages).encode())
        print(f"a report of 1,000 plugins: {size / 1e6:.2f} MB")
        self.assertLess(size, 1000000)

    def test_options_are_those_of_its_siblings(self):
        path = self.folder / "boot.html"
        self.assertEqual(self.run_verb("report", "--format", "html", "--output", path), "")
        self.assertEqual(path.read_text(), self.run_verb("report"))
        self.run_verb("report", "--format", "json", status=2)
        self.run_verb("report", "--section", "7", status=2)
        self.run_verb("report", "--output", self.folder / "missing/boot.html", status=2)
        log = self.root / "var/log/sysboot.log"
        log.write_bytes(log.read_bytes().replace(b"04:01.500020", b"04:01.400020"))
        self.run_verb("report", status=2)
        self.assertTrue(any("for which it waits" in note for note in self.report("--force")["notes"]))

    def test_page_is_valid(self):
        path = self.folder / "page.html"
        self.run_verb("report", "--messages", self.messages, "--output", path)
        checked = False
        if shutil.which("tidy"):
            told = subprocess.run(["tidy", "-errors", "-quiet", str(path)], stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, check=False)
            self.assertEqual((told.returncode, told.stdout), (0, b""))
            checked = True
        tools = BUILD / "report-tools"
        if (tools / "complete").exists():
            here = os.path.dirname(os.path.realpath(__file__))
            told = subprocess.run([str(tools / "node_modules/.bin/html-validate"), "--config",
                                   f"{here}/htmlvalidate.json", str(path)], stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, check=False)
            self.assertEqual(told.returncode, 0, told.stdout.decode())
            checked = True
        if not checked:
            self.skipTest("neither tidy nor html-validate is here")

    def configure(self, *words, **environment):
        """What the configuration of the page alone says when it fails."""
        script = Path(__file__).resolve().parents[3] / "src/analyze/report/page.cmake"
        told = subprocess.run([shutil.which("cmake"), *words, "-P", str(script)], cwd=self.folder,
                              env={**os.environ, **environment}, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False)
        self.assertNotEqual(told.returncode, 0)
        return " ".join(told.stdout.decode().split())

    def test_missing_packages_are_named(self):
        told = self.configure(PATH="/nonexistent")
        self.assertIn("these packages: esbuild. scripts/bootstrap installs them.", told)
        told = self.configure("-DBOOTFORGE_JAVASCRIPT=/nonexistent")
        self.assertIn("these packages: node-dagre-layout node-graphlibrary node-lodash node-d3-color "
                      "node-d3-dispatch node-d3-drag node-d3-ease node-d3-interpolate "
                      "node-d3-selection node-d3-timer node-d3-transition node-d3-zoom.", told)

    def test_every_library_is_listed_with_its_licence(self):
        contents = json.loads((BUILD / "report/contents.json").read_text())
        bundled = {path.split("nodejs/")[1].split("/")[0] for path in contents["inputs"]
                   if "nodejs/" in path}
        page = Path(__file__).resolve().parents[3] / "src/analyze/report/page"
        listed = {each["name"] for each in json.loads((BUILD / "report/libraries.json").read_text())}
        self.assertEqual(bundled, listed)
        licences = (page / "licences.txt").read_text()
        for name in bundled:
            self.assertIn(name, licences)


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    BUILD = Path(sys.argv.pop(1))
    unittest.main()
