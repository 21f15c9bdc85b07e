#!/usr/bin/env python3
"""The documents as a site: it builds, every link in it leads somewhere, and it fetches nothing.

usage: site_test.py
"""

import html.parser
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
SKIPPED = 77


class Page(html.parser.HTMLParser):
    """What a page links to (in its navigation, too), what it loads, and the places in it that a link
    may name."""

    def __init__(self, text):
        super().__init__()
        self.links, self.navigation, self.loaded, self.places = [], [], [], set()
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        if "id" in attributes:
            self.places.add(attributes["id"])
        if tag == "a" and "href" in attributes:
            self.links.append(attributes["href"])
            if "md-nav__link" in (attributes.get("class") or "").split():
                self.navigation.append(attributes["href"])
        elif tag == "link" and attributes.get("rel") != "canonical":
            self.loaded.append(attributes["href"])
        elif tag in ("script", "img") and "src" in attributes:
            self.loaded.append(attributes["src"])


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class Site(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="site-test-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        done = subprocess.run([f"{PROJECT}/scripts/site", cls.folder], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            raise AssertionError(done.stdout)
        cls.said = done.stdout
        paths = [os.path.join(parent, name) for parent, _, names in os.walk(cls.folder)
                 for name in names if name.endswith(".html") and name != "404.html"]
        cls.pages = {path: Page(read(path)) for path in paths}

    def target(self, page, link):
        path = urllib.parse.unquote(urllib.parse.urlsplit(link).path)
        there = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
        return f"{there}/index.html" if os.path.isdir(there) else there

    def broken(self):
        for page, content in self.pages.items():
            for link in content.links + content.loaded:
                if re.match(r"[a-z]+:", link):
                    continue
                there, place = self.target(page, link), urllib.parse.urlsplit(link).fragment
                if not os.path.isfile(there):
                    yield os.path.relpath(page, self.folder), link, "no such page"
                elif place and there in self.pages and place not in self.pages[there].places:
                    yield os.path.relpath(page, self.folder), link, "no such section"

    def test_is_built_without_a_complaint(self):
        self.assertEqual(self.said, f"the site is in {self.folder}\n")

    def test_has_every_document(self):
        for name in os.listdir(f"{PROJECT}/docs"):
            if re.search(r"\.(md|[1-8])$", name):
                place = name.removesuffix(".md")
                self.assertIn(f"{self.folder}/docs/{place}/index.html", self.pages)

    def test_each_document_is_in_the_navigation(self):
        start = {self.target(f"{self.folder}/index.html", link)
                 for link in self.pages[f"{self.folder}/index.html"].navigation
                 if not re.match(r"[a-z]+:", link)}
        for page in self.pages:
            if page.startswith(f"{self.folder}/docs/"):
                self.assertIn(page, start)

    def test_each_link_leads_somewhere(self):
        self.assertGreater(sum(len(page.links) for page in self.pages.values()), 1000)
        self.assertEqual(list(self.broken()), [])

    def test_loads_nothing_from_elsewhere(self):
        for page, content in self.pages.items():
            self.assertEqual([what for what in content.loaded if re.match(r"([a-z]+:)?//", what)],
                             [], page)
            self.assertNotRegex(read(page), r"fonts\.g")

    def test_the_search_finds_what_manual_pages_say(self):
        index = json.loads(read(f"{self.folder}/search/search_index.json"))
        found = [entry["location"] for entry in index["docs"] if "--run-once" in entry["text"]]
        self.assertTrue([place for place in found if place.startswith("docs/bootforge.8/")], found)


if __name__ == "__main__":
    for program in ("mkdocs", "mandoc"):
        if not shutil.which(program):
            print(f"skipped: {program} is not there")
            sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
