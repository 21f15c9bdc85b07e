#!/usr/bin/env python3
"""The README's five minutes, word for word, in a bare Debian root that has the package's file only.

usage: readme_test.py ROOT PACKAGES
"""

import glob
import os
import re
import shutil
import sys
import unittest

import debian_root

README = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../README.md")
SECTION = "## Five minutes with the package alone\n"
# What every run has its own of.
OWN = ((r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", "TIME"), (r"bootforge\[\d+\]", "bootforge[N]"))


def masked(text):
    for pattern, name in OWN:
        text = re.sub(pattern, name, text)
    return text


def steps():
    """(commands, what they say) in the order of the page; None where the page does not tell."""
    with open(README, encoding="utf-8") as file:
        section = file.read().partition(SECTION)[2].partition("\n## ")[0]
    for block in re.findall(r"(?:^    .*\n|^\n(?=    ))+", section, re.M):
        text = re.sub(r"^    ", "", block, flags=re.M).strip("\n") + "\n"
        script, *told = re.split(r"^\$ ", text, flags=re.M)
        if script.strip():
            yield script, None
        for each in told:
            command, _, output = each.partition("\n")
            yield command, output.rstrip("\n")


class FiveMinutes(unittest.TestCase):
    maxDiff = None

    def test_each_command_does_what_the_page_says(self):
        found = list(steps())
        self.assertGreater(sum(output is None for _, output in found), 1)
        self.assertGreater(sum(output is not None for _, output in found), 3)
        with debian_root.DebianRoot(LOWER, PACKAGES) as root:
            there = f"{root.path}/root/here"
            os.mkdir(there)
            for path in glob.glob(f"{PACKAGES}/bootforge_*.deb"):
                shutil.copy(path, there)
            for command, output in found:
                # A refusal that the page shows is one that it means.
                end = "\nexit 0" if output is not None else ""
                said = root.run("env", "-C", "/root/here", "bash", "-ec" if not end else "-c",
                                command + end)
                if output is not None:
                    self.assertEqual(masked(said.rstrip("\n")), masked(output), command)


if __name__ == "__main__":
    PACKAGES, LOWER = sys.argv.pop(), sys.argv.pop()
    debian_root.need_root(LOWER)
    unittest.main()
