#!/usr/bin/env python3
"""Every link of a document leads to a file, and to a section of it, here and where it is installed.

usage: links_test.py BUILD CMAKE
"""

import glob
import os
import re
import subprocess
import sys
import tempfile
import unittest

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
INSTALLED = "usr/share/doc/bootforge"
FENCE = re.compile(r"^```.*?^```$", re.M | re.S)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def sections(text):
    """The anchors of a page's headings, as forges make them."""
    found = set()
    for heading in re.findall(r"^#+ (.*)$", FENCE.sub("", text), re.M):
        plain = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading).lower()
        anchor = re.sub(r"[^\w\- ]", "", plain).replace(" ", "-")
        number, unique = 0, anchor
        while unique in found:
            number += 1
            unique = f"{anchor}-{number}"
        found.add(unique)
    return found


def documents(root):
    return sorted(path for pattern in ("*.md", "docs/*.md", "examples/**/*.md")
                  for path in glob.glob(f"{root}/{pattern}", recursive=True))


def broken_links(root):
    broken = []
    for document in documents(root):
        text = FENCE.sub("", read(document))
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"[a-z]+:", target):
                continue
            path, _, anchor = target.partition("#")
            there = os.path.normpath(os.path.join(os.path.dirname(document), path))
            there = there if path else document
            if not os.path.exists(there) or not there.startswith(root):
                broken.append((os.path.relpath(document, root), target, "no such file"))
            elif anchor and anchor not in sections(read(there)):
                broken.append((os.path.relpath(document, root), target, "no such section"))
    return broken


class Links(unittest.TestCase):
    maxDiff = None

    def test_each_leads_somewhere(self):
        self.assertGreater(len(documents(PROJECT)), 10)
        self.assertEqual(broken_links(PROJECT), [])

    def test_each_leads_somewhere_where_the_documents_are_installed(self):
        with tempfile.TemporaryDirectory(prefix="links-") as root:
            done = subprocess.run([CMAKE, "--install", BUILD], stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, check=False,
                                  env={**os.environ, "DESTDIR": root})
            self.assertEqual(done.returncode, 0, done.stdout)
            installed = f"{root}/{INSTALLED}"
            self.assertEqual([os.path.relpath(path, installed) for path in documents(installed)],
                             [os.path.relpath(path, PROJECT) for path in documents(PROJECT)])
            self.assertEqual(broken_links(installed), [])
            for page in glob.glob(f"{PROJECT}/docs/*.[1-8]"):
                name = os.path.basename(page)
                self.assertEqual(read(f"{root}/usr/share/man/man{name[-1]}/{name}"), read(page))

    def test_one_that_does_not_is_found(self):
        with tempfile.TemporaryDirectory(prefix="links-") as root:
            with open(f"{root}/README.md", "w", encoding="utf-8") as file:
                file.write("# A `b`, c\n[x](none.md) [y](#a-b-c) [z](#a-b) [w](../etc)\n")
            self.assertEqual([found[1:] for found in broken_links(root)],
                             [("none.md", "no such file"), ("#a-b", "no such section"),
                              ("../etc", "no such file")])


if __name__ == "__main__":
    CMAKE, BUILD = sys.argv.pop(), sys.argv.pop()
    unittest.main()
