#!/usr/bin/env python3
"""Counts the instructions of our work and holds them to the table of docs/performance.md.

Callgrind counts what the processor would carry out: the number does not depend on the machine's load
or speed. It does depend on the compiler and the C library, so that the table is that of one release
of Debian, and anywhere else this is skipped. A row may be 5 % off. Who is better writes the new rows
down: --print shows them.
"""

import argparse
import json
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile

DOCUMENT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../docs/performance.md")
HEADING = "## Instructions"
MEASURED_ON = re.compile(r"Debian (?P<debian>\d+), g\+\+ (?P<compiler>[\d.]+), (?P<machine>\S+):")
TOLERANCE = 0.05
SKIPPED = 77
NODES = 10_000
DESCRIPTIONS = 1_000


def count(command, *options):
    """Instructions of a program and its children, in what the options let callgrind collect."""
    with tempfile.TemporaryDirectory(prefix="bootforge-instructions.") as folder:
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/%p", *options, *command],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False, timeout=200,
            env={"PATH": os.environ["PATH"], "LC_ALL": "C"})
        totals = [int(line.split()[1]) for name in os.listdir(folder)
                  for line in open(f"{folder}/{name}", encoding="utf-8")
                  if line.startswith(("summary:", "totals:"))][:1]
    if done.returncode != 0 or not totals:
        sys.exit(f"{' '.join(command)} ended with {done.returncode}:\n{done.stderr}")
    return totals[0]


def graph_rows(program):
    pass_alone = ["--collect-atstart=no", "--toggle-collect=bootforge::Graph::runForward*",
                  "--toggle-collect=bootforge::Executor::work*"]
    for shape in ("chain", "fan", "layers", "milestones"):
        total = count([program, shape, str(NODES)], *pass_alone)
        yield f"a node of a graph, {shape}", round(total / NODES)


def write_image(root):
    for folder in ("usr/libexec/bootforge/plugins", "usr/lib/nimbus/hypcli/int/ext",
                   "usr/lib/nimbus/hypcli/ext"):
        os.makedirs(f"{root}/{folder}")
    for number in range(DESCRIPTIONS):
        layer = number // 10
        description = {
            "metadata": {"version": 1, "provides": [f"layer-{layer}"],
                         "requires": [f"layer-{layer - 1}"] if layer else []},
            "operations": {"start": [f"bench true --number {number}"]}}
        with open(f"{root}/usr/libexec/bootforge/plugins/plugin-{number}.json", "w",
                  encoding="utf-8") as file:
            json.dump(description, file, indent=2)


def rows(given):
    yield from graph_rows(given.graph_pass)
    yield "`bootforge --help`", count([given.bootforge, "--help"])
    with tempfile.TemporaryDirectory(prefix="bootforge-instructions.") as root:
        write_image(root)
        plan = [given.analyze, "plan", "--root", root, "--format", "json"]
        yield "a description of 1,000, `bootforge-analyze plan`", round(count(plan) / DESCRIPTIONS)


def recorded():
    """What the document says: where it was measured, and the number of each row."""
    with open(DOCUMENT, encoding="utf-8") as file:
        section = file.read().partition(f"\n{HEADING}\n")[2].partition("\n## ")[0]
    place = MEASURED_ON.search(section)
    if place is None:
        sys.exit(f"{DOCUMENT}: '{HEADING}' does not say where it was measured")
    numbers = {}
    for line in section.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if len(cells) >= 2 and re.fullmatch(r"[\d,]+", cells[1]):
            numbers[cells[0]] = int(cells[1].replace(",", ""))
    return place, numbers


def where_it_differs(place, compiler):
    release = platform.freedesktop_os_release() if hasattr(platform, "freedesktop_os_release") else {}
    here = (f"{release.get('ID')} {release.get('VERSION_ID')}", compiler, platform.machine())
    there = (f"debian {place['debian']}", place["compiler"], place["machine"])
    return "" if here == there else f"recorded on {' '.join(there)}, this is {' '.join(here)}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("compiler", "graph-pass", "bootforge", "analyze"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--print", action="store_true", help="show the rows, compare nothing")
    given = parser.parse_args()
    place, numbers = recorded()
    reason = where_it_differs(place, given.compiler)
    if not shutil.which("valgrind"):
        reason = "there is no valgrind"
    if reason and not given.print:
        print(f"skipped: {reason}")
        return SKIPPED
    wrong = 0
    for name, instructions in rows(given):
        if given.print:
            print(f"| {name} | {instructions:,} |")
            continue
        known = numbers.pop(name, None)
        ratio = instructions / known if known else float("inf")
        good = abs(ratio - 1) <= TOLERANCE
        wrong += not good
        print(f"{name}: {instructions:,}, recorded {known}, {ratio:.3f}{'' if good else ' WRONG'}")
    if given.print:
        return 0
    for name in numbers:
        print(f"{name}: recorded, and measured by nobody WRONG")
    return 1 if wrong or numbers else 0


if __name__ == "__main__":
    sys.exit(main())
