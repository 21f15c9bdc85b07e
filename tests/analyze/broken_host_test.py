#!/usr/bin/env python3
"""The installed bootforge-analyze over examples/broken-host, and what documents say of its rules.

The whole output is held by broken-host.txt, .json, .sarif and .github beside this file. After a
meant change of it, copy the new ones from the folder that a failure names.
"""

import collections
import contextlib
import difflib
import fcntl
import functools
import json
import os
import pty
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import termios
import unittest

HERE = os.path.dirname(os.path.realpath(__file__))
PROJECT = os.path.realpath(f"{HERE}/../..")
BROKEN_HOST = f"{PROJECT}/examples/broken-host"
BUILD = os.environ.get("BOOTFORGE_ANALYZE_BUILD", "")
CMAKE = os.environ.get("BOOTFORGE_ANALYZE_CMAKE", "cmake")
SCHEMA = f"{BUILD}/sarif-schema"
NOT_IN_THE_IMAGE = ("README.md", "complete")

Section = collections.namedtuple("Section", "rule severity text")
Row = collections.namedtuple("Row", "files rule")


@functools.lru_cache(maxsize=None)
def installed():
    """A folder with what the build installs, for all tests."""
    folder = tempfile.mkdtemp(prefix="bootforge-analyze-")
    unittest.addModuleCleanup(shutil.rmtree, folder)
    subprocess.run([CMAKE, "--install", BUILD], env={**os.environ, "DESTDIR": folder}, check=True,
                   stdout=subprocess.DEVNULL)
    return folder


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def sections(markdown):
    """The rules of rules.md; a title inside an example is none."""
    found, fence = [], False
    for line in markdown.splitlines():
        fence ^= line.startswith("```")
        if not fence and line.startswith("#"):
            found.append([line] if line.startswith("### ") else None)
        elif found and found[-1]:
            found[-1].append(line)
    result = []
    for lines in filter(None, found):
        text = "\n".join(lines[1:]).strip()
        severity = re.match(r"\*\*(\w+)\*\* · ", text)
        result.append(Section(lines[0][4:], severity and severity[1], text))
    return result


def rows(markdown):
    """The files and the rule of each row of the tables."""
    found = []
    for line in markdown.splitlines():
        match = re.match(r"\| (.*?) \| `([a-z-]+)` \| ", line)
        if match:
            found.append(Row(re.findall(r"`([^`]+)`", match[1]), match[2]))
    return found


class BrokenHost(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="broken-host-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        # A checkout has the modes that somebody's umask gave it.
        cls.image = f"{cls.folder}/image"
        shutil.copytree(BROKEN_HOST, cls.image, symlinks=True,
                        ignore=lambda folder, names: NOT_IN_THE_IMAGE if folder == BROKEN_HOST
                        else ())
        subprocess.run(["chmod", "-R", "u=rwX,go=rX", cls.image], check=True)

    def analyze(self, *arguments, expect=0):
        environment = {name: value for name, value in os.environ.items() if name != "COLUMNS"}
        done = subprocess.run([f"{installed()}/usr/bin/bootforge-analyze", *arguments],
                              env=environment, cwd=self.folder, text=True, capture_output=True,
                              stdin=subprocess.DEVNULL, check=False, encoding="utf-8")
        self.assertEqual((done.returncode, done.stderr), (expect, ""), done.stdout)
        return done.stdout

    def verify(self, *arguments, image=None, expect=1):
        return self.analyze(*self.call(image), *arguments, expect=expect)

    def call(self, image=None):
        return "verify", "--root", image or self.image, "--owner", str(os.getuid())

    def findings(self, *arguments, image=None):
        return json.loads(self.verify("--format", "json", *arguments, image=image))["findings"]

    def verify_in_order(self, *arguments):
        """With the plugins in the order of their names: "the second of two" depends on it, and the
        order of a folder is its file system's."""
        names = sorted(os.listdir(f"{self.image}/usr/libexec/bootforge/plugins"))
        return self.verify(f"--plugin={','.join(names)}", *arguments)

    def severities(self):
        return dict(line.split() for line in self.analyze("verify", "--list-rules").splitlines())

    def assert_output(self, name, found):
        expected = read(f"{HERE}/{name}")
        if found == expected:
            return
        keep = f"{BUILD}/analyze-outputs"
        os.makedirs(keep, exist_ok=True)
        with open(f"{keep}/{name}", "w", encoding="utf-8") as file:
            file.write(found)
        difference = difflib.unified_diff(expected.splitlines(), found.splitlines(), name,
                                          f"{keep}/{name}", lineterm="")
        self.fail("\n" + "\n".join(difference))


class Output(BrokenHost):
    def test_people_read_this(self):
        self.assert_output("broken-host.txt", self.verify_in_order())

    def test_a_long_line_is_cut_where_it_is_far_from_the_mistake(self):
        image = f"{self.folder}/long"
        os.makedirs(f"{image}/usr/libexec/bootforge/plugins")
        self.addCleanup(shutil.rmtree, image)
        names = ", ".join(f'"milestone-{number:02}"' for number in range(20))
        path = f"{image}/usr/libexec/bootforge/plugins/long.json"
        with open(path, "w", encoding="utf-8") as file:
            file.write(f'{{"metadata": {{"version": 1, "requires": [], "provides": [{names}, 1, '
                       f'{names}]}},\n"operations": {{"start": []}}}}\n')
        self.assertIn('\n    ...estone-16", "milestone-17", "milestone-18", "milestone-19", 1, '
                      '"milestone-00", "milestone-01", "milestone-02", "milestone-03", '
                      '"milestone-04", "milest...\n' + 67 * " " + "^\n",
                      self.verify(image=image))

    def test_a_terminal_of_any_width_keeps_the_caret_below_the_mistake(self):
        whole = self.excerpts(self.verify())
        for columns in (40, 57, 80, 300):
            text = self.on_a_terminal(columns)
            heads = re.findall(r"^/.*: (?:error|warning|note): .*\]$", text, re.M)
            self.assertEqual(len(heads), len(self.findings()))
            for line in text.splitlines():
                self.assertTrue(line in heads or len(line) <= columns, line)
            narrow = self.excerpts(text)
            self.assertEqual(len(narrow), len(whole))
            for (line, caret), (whole_line, whole_caret) in zip(narrow, whole):
                self.assertEqual(line[caret:caret + 9], whole_line[whole_caret:whole_caret + 9])

    @staticmethod
    def excerpts(text):
        """Each excerpt with the column of its caret."""
        found = re.findall(r"^    (.*)\n    ( *)\^$", text, re.M)
        return [(line, len(blanks)) for line, blanks in found]

    def on_a_terminal(self, columns):
        near, far = pty.openpty()
        fcntl.ioctl(far, termios.TIOCSWINSZ, struct.pack("4H", 25, columns, 0, 0))
        with subprocess.Popen([f"{installed()}/usr/bin/bootforge-analyze", *self.call()],
                              stdin=subprocess.DEVNULL, stdout=far,
                              env={**os.environ, "NO_COLOR": "1"}) as process:
            os.close(far)
            parts = []
            with contextlib.suppress(OSError):  # EIO: nobody has the terminal open any more
                while True:
                    parts.append(os.read(near, 65536))
            os.close(near)
        self.assertEqual(process.returncode, 1)
        return b"".join(parts).decode().replace("\r\n", "\n")

    def test_programs_read_this(self):
        found = self.verify_in_order("--format", "json")
        text = json.dumps(json.loads(found), indent=1, ensure_ascii=False) + "\n"
        self.assert_output("broken-host.json", text)

    def test_code_scanners_read_this(self):
        log = json.loads(self.verify_in_order("--format", "sarif"))
        self.assertTrue(log["runs"][0]["tool"]["driver"].pop("version"))
        text = json.dumps(log, indent=1, ensure_ascii=False) + "\n"
        self.assert_output("broken-host.sarif", text)

    def test_reviewers_read_this(self):
        self.assert_output("broken-host.github", self.verify_in_order("--format", "github"))

    def test_sarif_keeps_to_its_published_schema(self):
        if not (os.path.exists(f"{SCHEMA}/complete") and shutil.which("node")):
            self.skipTest("there is no schema, or no node to validate with")
        path = f"{self.folder}/findings.sarif"
        self.verify("--format", "sarif", "--output", path)
        done = subprocess.run(["node", f"{HERE}/validate_sarif.js", SCHEMA, path], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_sarif_leads_to_the_section_of_each_rule(self):
        rules = json.loads(self.verify("--format", "sarif"))["runs"][0]["tool"]["driver"]["rules"]
        self.assertTrue(rules)
        for rule in rules:
            self.assertEqual(rule["helpUri"],
                             f"file:///usr/share/doc/bootforge/docs/rules.md#{rule['id']}")

    def test_what_it_may_fail_on_is_chosen(self):
        self.verify("--fail-on", "error", expect=1)
        self.verify("--fail-on", "warning", expect=1)
        self.verify("--fail-on", "never", expect=0)


class Documents(BrokenHost):
    def test_each_rule_has_one_section_with_its_severity(self):
        found = sections(read(f"{PROJECT}/docs/rules.md"))
        self.assertEqual(sorted((section.rule, section.severity) for section in found),
                         sorted(self.severities().items()))

    def test_each_section_tells_what_happens_and_shows_wrong_and_right(self):
        for section in sections(read(f"{PROJECT}/docs/rules.md")):
            parts = re.findall(r"^(At boot|Instead|Wrong|Right):", section.text, re.M)
            self.assertEqual(parts, ["At boot", "Instead", "Wrong", "Right"], section.rule)

    def test_the_manual_page_lists_each_rule_under_its_severity(self):
        page = read(f"{installed()}/usr/share/man/man1/bootforge-analyze.1").replace("\\-", "-")
        page = page.partition(".SS Rules\n")[2].partition("\n.SH ")[0]
        found, severity = [], None
        for line in page.splitlines():
            match = re.match(r"(Error|Warning|Note)s: |\.B ([a-z]+-[a-z-]+|cycle)$", line)
            if match and match[1]:
                severity = match[1].lower()
            elif match:
                found.append((match[2], severity))
        self.assertEqual(sorted(found), sorted(self.severities().items()))

    def test_the_readme_shows_what_is_said(self):
        said = read(f"{HERE}/broken-host.txt")
        shown = read(f"{PROJECT}/README.md").partition("verify --root examples/broken-host\n")[2]
        shown = re.match(r"(?:    .*\n)+", shown)[0]
        parts = re.sub("^    ", "", shown, flags=re.M).split("...\n")
        self.assertEqual(len(parts), 5)
        for part in parts:
            self.assertIn(part, said)

    def test_the_rules_are_installed_with_the_documents(self):
        self.assertEqual(read(f"{installed()}/usr/share/doc/bootforge/docs/rules.md"),
                         read(f"{PROJECT}/docs/rules.md"))


class ListOfDefects(BrokenHost):
    """The tables of the broken host's README."""

    def setUp(self):
        text = read(f"{BROKEN_HOST}/README.md")
        in_git, self.title, added = text.partition("## What Git cannot hold")
        self.in_git, self.added = rows(in_git), rows(added)
        self.assertTrue(self.in_git and self.added)

    def complete_image(self):
        if not shutil.which("cc"):
            self.skipTest("there is no C compiler, cc")
        image = f"{self.folder}/complete"
        subprocess.run([f"{BROKEN_HOST}/complete", image], check=True)
        self.addCleanup(shutil.rmtree, image)
        return image

    @staticmethod
    def is_listed(finding, row):
        place = finding["file"] or ""
        return row.rule == finding["rule"] and any(
            place.endswith("/" + name.removeprefix(".../").rstrip("/")) for name in row.files)

    def test_each_is_found(self):
        findings = self.findings()
        missing = [row for row in self.in_git
                   if not any(self.is_listed(finding, row) for finding in findings)]
        self.assertEqual(missing, [])

    def test_nothing_else_is_found(self):
        others = [f"{finding['file']}: {finding['rule']}" for finding in self.findings()
                  if not any(self.is_listed(finding, row) for row in self.in_git)]
        self.assertEqual(others, [])

    def test_those_that_are_added_are_found_and_nothing_else(self):
        before = [json.dumps(finding) for finding in self.findings()]
        findings = self.findings(image=self.complete_image())
        new = [finding for finding in findings if json.dumps(finding) not in before]
        missing = [row for row in self.added
                   if not any(self.is_listed(finding, row) for finding in new)]
        # Which of two of one name comes second may be another here: a copy's folder has an order of
        # its own.
        others = [f"{finding['file']}: {finding['rule']}" for finding in new
                  if not any(self.is_listed(finding, row) for row in self.added + self.in_git)]
        self.assertEqual((missing, others), ([], []))

    def test_together_they_break_every_rule(self):
        rules = {finding["rule"] for finding in self.findings(image=self.complete_image())}
        self.assertEqual(set(self.severities()) - rules, set())


if __name__ == "__main__":
    if not BUILD:
        sys.exit("BOOTFORGE_ANALYZE_BUILD names no build folder")
    unittest.main(verbosity=2)
