#!/usr/bin/env python3
"""The checker of includes, on small trees with one mistake each."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

TESTS = Path(__file__).resolve().parents[2]

RULES = """
# a comment
room src/top:    src/middle src/base
room src/middle: src/base
room src/base:
room src/base/inner: src/base
leaf src/top/options.h
allow src/base/upward.cpp src/top/top.h: it has a reason
"""

FILES = {
    "src/top/top.h": "#pragma once\n",
    "src/top/options.h": "#include <string>\n",
    "src/top/top.cpp": '#include "top/top.h"\n#include "middle/middle.h"\n#include "base/base.h"\n',
    "src/middle/middle.h": '#include "base/base.h"\n#include "top/options.h"\n#include <vector>\n',
    "src/base/base.h": "#include <sys/types.h>\n",
    "src/base/upward.cpp": '#include "top/top.h"\n',
    "src/base/inner/inner.h": '#include "base/base.h"\n',
}


class CheckLayers(unittest.TestCase):
    def check(self, files=None, rules=RULES):
        """The exit status and the lines for the tree with these files changed; None removes one."""
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for name, text in {**FILES, **(files or {})}.items():
                if text is None:
                    continue
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            (root / "layers.txt").write_text(rules)
            run = subprocess.run(
                [sys.executable, "-B", TESTS / "check_layers.py", root / "layers.txt", root],
                capture_output=True, text=True, check=False)
            self.assertEqual(run.stderr, "")
            return run.returncode, run.stdout.replace(str(root) + "/", "").splitlines()

    def expect(self, problem, files=None, rules=RULES):
        self.assertEqual(self.check(files, rules), (1, [problem]))

    def test_a_tree_that_keeps_the_rules_passes(self):
        self.assertEqual(self.check(), (0, []))

    def test_an_include_upwards_is_told(self):
        self.expect('src/base/base.h:2: src/base may not include src/middle ("middle/middle.h")',
                    {"src/base/base.h": '\n#include "middle/middle.h"\n'})

    def test_an_include_upwards_is_told_however_it_is_written(self):
        for line in ['#include"top/top.h"', '  #  include "top/top.h" // why not',
                     '#include\t"top/top.h"']:
            self.expect('src/middle/x.cpp:1: src/middle may not include src/top ("top/top.h")',
                        {"src/middle/x.cpp": line + "\n"})

    def test_every_include_is_told(self):
        status, lines = self.check({"src/base/base.h": '#include "top/top.h"\n#include "top/top.h"\n',
                                    "src/middle/x.c": '#include "top/top.h"\n'})
        self.assertEqual((status, len(lines)), (1, 3))

    def test_the_inside_of_a_room_is_a_room(self):
        self.expect('src/middle/x.cpp:1: src/middle may not include src/base/inner '
                    '("base/inner/inner.h")',
                    {"src/middle/x.cpp": '#include "base/inner/inner.h"\n'})
        self.expect('src/base/x.h:1: src/base may not include src/base/inner ("base/inner/inner.h")',
                    {"src/base/x.h": '#include "base/inner/inner.h"\n'})

    def test_an_exemption_is_for_one_header_in_one_file(self):
        self.expect('src/base/other.cpp:1: src/base may not include src/top ("top/top.h")',
                    {"src/base/other.cpp": '#include "top/top.h"\n'})
        self.expect('src/base/upward.cpp:2: src/base may not include src/middle ("middle/middle.h")',
                    {"src/base/upward.cpp": '#include "top/top.h"\n#include "middle/middle.h"\n'})

    def test_an_exemption_that_nobody_needs_is_told(self):
        self.expect("src/base/upward.cpp: needs no permission to include src/top/top.h",
                    {"src/base/upward.cpp": "\n"})

    def test_an_exemption_without_a_reason_is_told(self):
        rules = RULES.replace(" it has a reason", "")
        status, lines = self.check(rules=rules)
        self.assertEqual(status, 1)
        self.assertIn("line 8: an exemption without a reason", lines[0])

    def test_a_leaf_that_includes_one_of_us_is_told(self):
        self.expect('src/top/options.h:1: a leaf includes "base/base.h"',
                    {"src/top/options.h": '#include "base/base.h"\n'})

    def test_a_header_that_is_not_there_is_told(self):
        self.expect('src/top/top.h:1: "top/missing.h" is no header of ours',
                    {"src/top/top.h": '#include "top/missing.h"\n'})

    def test_a_header_of_ours_in_angle_brackets_is_told(self):
        self.expect("src/top/top.h:1: <base/base.h> is a header of ours, which stands in quotes",
                    {"src/top/top.h": "#include <base/base.h>\n"})

    def test_a_header_that_is_not_named_from_the_root_is_told(self):
        self.expect('src/top/x.cpp:1: "top.h" is not named from the root',
                    {"src/top/x.cpp": '#include "top.h"\n'})
        self.expect('src/base/x.cpp:1: "../top/top.h" is not named from the root',
                    {"src/base/x.cpp": '#include "../top/top.h"\n'})
        self.expect('src/base/x.cpp:1: "base/../top/top.h" is not named from the root',
                    {"src/base/x.cpp": '#include "base/../top/top.h"\n'})

    def test_an_included_source_is_told(self):
        self.expect('src/top/x.cpp:1: "top/top.cpp" is no header',
                    {"src/top/x.cpp": '#include "top/top.cpp"\n'})

    def test_a_file_without_a_room_is_told(self):
        self.expect("src/new/new.cpp: belongs to no room", {"src/new/new.cpp": "\n"})

    def test_a_room_without_a_folder_is_told(self):
        self.expect("src/gone: there is no such folder", rules=RULES + "room src/gone:\n")

    def test_rules_that_are_not_understood_are_told(self):
        for line in ["rooms src/top:", "room src/top", "room src/top:", "leaf", "leaf a b",
                     "allow src/base/upward.cpp", "room src/x: src/nowhere"]:
            status, lines = self.check(rules=RULES + line + "\n")
            self.assertEqual((status, len(lines)), (1, 1), line)
            self.assertTrue(lines[0].startswith("layers.txt: "), lines)


if __name__ == "__main__":
    unittest.main()
