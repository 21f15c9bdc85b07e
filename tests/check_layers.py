#!/usr/bin/env python3
"""Checks who includes whom, by the rules of layers.txt.

check_layers.py [RULES [ROOT]]: prints one line for each include against the rules and for each rule
that is of no use, and exits with 1 when there is one.
"""

import re
import sys
from pathlib import Path

SOURCES = {".h", ".hpp", ".c", ".cpp", ".cc"}
# Where the compiler looks for "folder/header.h".
INCLUDE_ROOTS = ["src", "include", "."]
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


class RulesError(Exception):
    """A line of the rules that cannot be understood."""


class Rules:
    def __init__(self, text):
        self.rooms = {}
        self.leaves = set()
        self.exemptions = {}  # (file, header) -> reason
        for number, line in enumerate(text.splitlines(), 1):
            words = line.split("#", 1)[0].split()
            if not words:
                continue
            try:
                self._add(words)
            except (IndexError, RulesError) as error:
                raise RulesError(f"line {number}: {error}: {line.strip()}") from error
        for room, allowed in self.rooms.items():
            for other in allowed:
                if other not in self.rooms:
                    raise RulesError(f"room {room}: there is no room {other}")

    def _add(self, words):
        kind = words[0]
        if kind == "room" and words[1].endswith(":"):
            room = words[1][:-1]
            if room in self.rooms:
                raise RulesError("a second rule for one room")
            self.rooms[room] = set(words[2:])
        elif kind == "leaf" and len(words) == 2:
            self.leaves.add(words[1])
        elif kind == "allow" and words[2].endswith(":"):
            if len(words) == 3:
                raise RulesError("an exemption without a reason")
            self.exemptions[words[1], words[2][:-1]] = " ".join(words[3:])
        else:
            raise RulesError("not understood")

    def room_of(self, path):
        """The innermost room of a path below the root, or None."""
        while "/" in path:
            path = path.rsplit("/", 1)[0]
            if path in self.rooms:
                return path
        return None


def includes_of(path):
    """(line number, bracket, name) of each include."""
    text = path.read_text(encoding="utf-8", errors="replace")
    for number, line in enumerate(text.splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def resolve(root, source, name):
    """The path below the root of a header of ours, or None."""
    for folder in INCLUDE_ROOTS:
        path = root / folder / name
        if path.is_file():
            return path.resolve().relative_to(root).as_posix()
    beside = root / Path(source).parent / name
    return beside.resolve().relative_to(root).as_posix() if beside.is_file() else None


class Checker:
    def __init__(self, rules, root):
        self.rules = rules
        self.root = root.resolve()
        self.problems = []
        self.used = set()

    def check(self):
        outermost = {room.split("/", 1)[0] for room in self.rules.rooms}
        for room in self.rules.rooms:
            if not (self.root / room).is_dir():
                self.problems.append(f"{room}: there is no such folder")
        for folder in sorted(outermost):
            for path in sorted((self.root / folder).rglob("*")):
                if path.suffix in SOURCES and path.is_file():
                    self._check_file(path.relative_to(self.root).as_posix())
        for exemption in self.rules.exemptions:
            if exemption not in self.used:
                self.problems.append(f"{exemption[0]}: needs no permission to include {exemption[1]}")
        return self.problems

    def _check_file(self, source):
        room = self.rules.room_of(source)
        if room is None:
            self.problems.append(f"{source}: belongs to no room")
            return
        for number, bracket, name in includes_of(self.root / source):
            problem = self._problem(room, source, bracket, name)
            if problem:
                self.problems.append(f"{source}:{number}: {problem}")

    def _problem(self, room, source, bracket, name):
        header = resolve(self.root, source, name)
        if header is None:
            return f'"{name}" is no header of ours' if bracket == '"' else None
        if bracket == "<":
            return f"<{name}> is a header of ours, which stands in quotes"
        if not any(header == (Path(folder) / name).as_posix() for folder in INCLUDE_ROOTS):
            return f'"{name}" is not named from the root'
        if not header.endswith((".h", ".hpp")):
            return f'"{name}" is no header'
        if source in self.rules.leaves:
            return f'a leaf includes "{name}"'
        other = self.rules.room_of(header)
        if other is None:
            return f'"{name}" belongs to no room'
        if other == room or other in self.rules.rooms[room] or header in self.rules.leaves:
            return None
        if (source, header) in self.rules.exemptions:
            self.used.add((source, header))
            return None
        return f'{room} may not include {other} ("{name}")'


def main(arguments):
    here = Path(__file__).resolve().parent
    rules = Path(arguments[0]) if arguments else here / "layers.txt"
    root = Path(arguments[1]) if len(arguments) > 1 else here.parent
    try:
        problems = Checker(Rules(rules.read_text(encoding="utf-8")), root).check()
    except RulesError as error:
        problems = [f"{rules}: {error}"]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
