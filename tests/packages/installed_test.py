#!/usr/bin/env python3
"""The tests that the packages bring (packaging/debian/tests) pass where the packages are installed.

usage: installed_test.py ROOT PACKAGES

ROOT has what they depend on. They run there as autopkgtest(1) runs them: in the unpacked sources, with a
folder of their own.
"""

import glob
import os
import re
import subprocess
import sys
import unittest

import debian_root

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
TESTS = f"{PROJECT}/packaging/debian/tests"
OURS = ("bootforge", "bootforge-analyze", "bootforge-dev")


def paragraphs():
    with open(f"{TESTS}/control", encoding="utf-8") as file:
        for text in file.read().strip().split("\n\n"):
            yield dict(re.findall(r"^(\S+): (.*)$", text, re.M))


class Installed(unittest.TestCase):
    def test_the_tests_that_the_packages_bring_pass(self):
        paths = [path for name in OURS for path in glob.glob(f"{PACKAGES}/{name}_*.deb")]
        self.assertEqual(len(paths), len(OURS))
        names = []
        with debian_root.DebianRoot(LOWER, PACKAGES) as root:
            root.run("dpkg", "--install", *(f"/packages/{os.path.basename(path)}" for path in paths))
            sources = f"{root.path}/root/sources"
            os.makedirs(sources)
            for name in ("scripts", "examples"):
                subprocess.run(["cp", "-R", f"{PROJECT}/{name}", sources], check=True)
            subprocess.run(["cp", "-R", f"{PROJECT}/packaging/debian", sources], check=True)
            for paragraph in paragraphs():
                for package in paragraph["Depends"].split(", "):
                    self.assertIn("install ok installed",
                                  root.run("dpkg-query", "-W", "-f", "${Status}", package), package)
                for name in paragraph["Tests"].split():
                    names.append(name)
                    with self.subTest(name):
                        os.makedirs(f"{root.path}/root/{name}")
                        said = root.run("env", "-C", "/root/sources", f"debian/tests/{name}",
                                        AUTOPKGTEST_TMP=f"/root/{name}")
                        print(f"--- {name}\n{said}")
        self.assertEqual(sorted(names), sorted(set(os.listdir(TESTS)) - {"control"}))


if __name__ == "__main__":
    PACKAGES, LOWER = sys.argv.pop(), sys.argv.pop()
    debian_root.need_root(LOWER)
    unittest.main()
