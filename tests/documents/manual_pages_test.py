#!/usr/bin/env python3
"""The manual pages: without a remark of mandoc's, whole, and leading to each other.

usage: manual_pages_test.py MANDOC
"""

import glob
import os
import re
import subprocess
import sys
import unittest

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
PAGES = sorted(glob.glob(f"{PROJECT}/docs/*.[1-8]"))
OURS = re.compile(r"bootforge|hypcli|chkconfig|launch|nativeExecutor|sysboot")
REFERENCE = re.compile(r"^\.BR ([\w.\\-]+) \((\d)\)", re.M)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def named(path):
    """A page as others name it: ("bootforge", "8")."""
    name, _, section = os.path.basename(path).rpartition(".")
    return name, section


def references(text):
    return [(name.replace("\\", ""), section) for name, section in REFERENCE.findall(text)]


class ManualPages(unittest.TestCase):
    maxDiff = None

    def test_mandoc_has_nothing_to_say(self):
        self.assertTrue(PAGES)
        done = subprocess.run([MANDOC, "-Tlint", *PAGES], stdout=subprocess.PIPE, text=True,
                              stderr=subprocess.STDOUT, check=False)
        self.assertEqual(done.stdout, "")

    def test_each_begins_and_ends_as_a_page_does(self):
        for page in PAGES:
            with self.subTest(page):
                text = read(page)
                name, section = named(page)
                title = re.search(r"^\.TH (\S+) (\d) \S+ \"bootforge \d", text, re.M)
                self.assertIsNotNone(title, ".TH with a date and a version")
                self.assertEqual((title[1].replace("\\", "").lower(), title[2]),
                                 (name.lower(), section))
                headings = [heading.strip('"') for heading in re.findall(r"^\.SH (.*)$", text, re.M)]
                self.assertEqual((headings[0], headings[-1]), ("NAME", "SEE ALSO"))
                self.assertRegex(text, r"\n\.SH NAME\n" + re.escape(name).replace(r"\-", r"\\?-") +
                                 r" \\- [a-z]")

    def test_each_page_of_ours_that_is_named_is_there(self):
        pages = {named(page) for page in PAGES}
        for page in PAGES:
            for reference in references(read(page)):
                if OURS.match(reference[0]) and reference != ("chkconfig", "1"):
                    self.assertIn(reference, pages, page)

    def test_the_overview_names_every_page(self):
        overview = references(read(f"{PROJECT}/docs/bootforge.7"))
        self.assertEqual({named(page) for page in PAGES} - {("bootforge", "7")} - set(overview),
                         set())

    def test_the_readme_names_every_page(self):
        text = read(f"{PROJECT}/README.md")
        for page in PAGES:
            self.assertIn(f"](docs/{os.path.basename(page)})", text)


if __name__ == "__main__":
    MANDOC = sys.argv.pop()
    unittest.main()
