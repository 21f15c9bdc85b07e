#!/usr/bin/env python3
"""Prints what llvm-cov has exported: lines and branches of src/, and which lines never ran.

usage: coverage_report.py EXPORT GOAL
"""

import json
import os
import sys


def main():
    export, goal = sys.argv[1], float(sys.argv[2])
    with open(export, encoding="utf-8") as file:
        files = json.load(file)["data"][0]["files"]
    source = os.path.join(os.getcwd(), "src", "")
    lines, missed, branches, taken = 0, 0, 0, 0
    rows = []
    for entry in files:
        # The compiler may have been given it relative to the build.
        path = os.path.realpath(os.path.join("build/coverage", entry["filename"]))
        if not path.startswith(source):
            continue
        name = os.path.relpath(path)
        summary = entry["summary"]
        lines += summary["lines"]["count"]
        missed += summary["lines"]["count"] - summary["lines"]["covered"]
        branches += summary["branches"]["count"]
        taken += summary["branches"]["covered"]
        never = never_run(entry["segments"])
        if never:
            rows.append((name, summary["lines"]["percent"], ranges(never)))
    for name, percent, text in sorted(rows, key=lambda row: row[1]):
        print(f"{percent:6.1f}%  {name}: {text}")
    percent = 100 * (lines - missed) / lines
    print(f"{lines - missed} of {lines} lines ({percent:.2f} %), "
          f"{taken} of {branches} branches ({100 * taken / max(branches, 1):.2f} %)")
    if percent < goal:
        print(f"below the goal of {goal:g} %")
        return 1
    return 0


def never_run(segments):
    """The lines in which a counted region begins or goes on and nothing ever ran."""
    ran, seen = set(), set()
    for (line, _, count, counted, *_), following in zip(segments, segments[1:] + [None]):
        if not counted:
            continue
        last = following[0] if following else line
        # A region that ends in the first column of a line has nothing on it.
        if following and following[1] == 1 and last > line:
            last -= 1
        covered = range(line, last + 1)
        seen.update(covered)
        if count:
            ran.update(covered)
    return sorted(seen - ran)


def ranges(lines):
    found = []
    for line in lines:
        if found and line == found[-1][1] + 1:
            found[-1][1] = line
        else:
            found.append([line, line])
    return ", ".join(f"{first}" if first == last else f"{first}-{last}" for first, last in found)


if __name__ == "__main__":
    sys.exit(main())
