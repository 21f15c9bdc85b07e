"""Draws descriptions and command files, sound ones and ones with a change in a single place."""

import copy
import json
import random

WORDS = ["network", "ip", "set", "boot", "file", "write", "a", "x1", "über", "_"]
MILESTONES = ["fs-ready", "net ready", "", "ä", "config-ready", "\u2028"]
NUMBERS = [0, 1, 2, 3, 4, 5, -1, 0.5, 1.9, 2.5, 3.0, 4.999, 5.0, 1e3, 1e-3, 10**30, 2**63]
ODD_VALUES = [None, True, False, "", "x", "a\0b", "3", [], {}, ["x"], [1], [None], {"a": 1}, "/x",
              "{path}", *NUMBERS]
ODD_LETTERS = " -\n\0{}=\x7f\x1fé/\t,\"\\s"
UNKNOWN_KEYS = ["requirs", "Version", "comment", "", "$schema", "timeout", "short", "run_once"]

DESCRIPTION = "description"
COMMAND_FILE = "command file"


def some(draw, choices, most):
    return [draw.choice(choices) for _ in range(draw.randint(0, most))]


def description(draw):
    version = draw.choice([1, 1, 2, 2, 3, 3, 3, 4, 4, 1.5, 2.9, 3.25, 4.9])
    metadata = {"version": version, "requires": some(draw, MILESTONES, 3),
                "provides": some(draw, MILESTONES, 2)}
    if version >= 3 or draw.random() < 0.15:
        metadata["run_once"] = draw.random() < 0.5
        metadata["plugin_version"] = draw.choice(["1.0", "", "7", "beta 1"])
        for key in ("required_flags", "disabling_flags"):
            if draw.random() < 0.6:
                metadata[key] = some(draw, ["production", "debug", ""], 2)
    elif draw.random() < 0.3:
        # Of no account below version 3, whatever it is.
        key = draw.choice(["run_once", "plugin_version", "required_flags", "disabling_flags"])
        metadata[key] = draw.choice(ODD_VALUES)
    operations = {"start": some(draw, ["network ip set -i a", "boot file write", ""], 3)}
    if draw.random() < 0.5:
        operations["apply_host_profile"] = (
            some(draw, ["network ip set"], 2) if version >= 2 else draw.choice(ODD_VALUES))
    return shuffled(draw, {"metadata": shuffled(draw, metadata),
                           "operations": shuffled(draw, operations)})


def shuffled(draw, members):
    pairs = list(members.items())
    draw.shuffle(pairs)
    return dict(pairs)


def parameter(draw, letters):
    members = {}
    if draw.random() < 0.5:
        members["short"] = letters.pop()
    for key in ("required", "flag"):
        if draw.random() < 0.4:
            members[key] = draw.random() < 0.5
    if draw.random() < 0.4:
        members["summary"] = draw.choice(["", "a name", "ä\n"])
    return shuffled(draw, members)


def command(draw):
    letters = draw.sample("abcxyzABZ!~<>.+0", 4)
    names = draw.sample(["path", "mode", "interface", "größe", "x-1", "a.b"], draw.randint(0, 3))
    members = {"exec": [draw.choice(["/usr/bin/x", "/", "/a{{b}}", "/opt/two words"])]}
    if names or draw.random() < 0.5:
        members["parameters"] = {name: parameter(draw, letters) for name in names}
    for name in names:
        members["exec"].append(draw.choice(["{%s}", "--%s={%s}", "{{{%s}}}", "{%s}{%s}"])
                               .replace("%s", name))
    members["exec"] += some(draw, ["", "--plain", "{{", "a}}b", "line\n"], 2)
    if draw.random() < 0.6:
        members["timeout"] = draw.choice([1, 30, 0.25, 1e9])
    if draw.random() < 0.5:
        members["summary"] = "what it does"
    return shuffled(draw, members)


def command_file(draw):
    spaces = draw.choice(["", " ", "  "])
    name_space = draw.choice([" ", "  "]).join(some(draw, WORDS, 2) + [draw.choice(WORDS)])
    commands = {name: command(draw) for name in draw.sample(WORDS, draw.randint(0, 3))}
    return shuffled(draw, {"namespace": spaces + name_space + spaces, "commands": commands})


def places(value):
    """All (container, key) in a value."""
    found = []
    if isinstance(value, (dict, list)):
        keys = value.keys() if isinstance(value, dict) else range(len(value))
        for key in keys:
            found.append((value, key))
            found += places(value[key])
    return found


def odd_text(draw, text):
    at = draw.randint(0, len(text))
    letter = draw.choice(ODD_LETTERS)
    return draw.choice([text[:at] + letter + text[at:], text[:at] + letter + text[at + 1:],
                        text[:at] + text[at + 1:], letter + text, text + letter])


def change(draw, value):
    """The value with a change in one place of its tree."""
    value = copy.deepcopy(value)
    container, key = draw.choice(places(value))
    kind = draw.choice(["replace", "replace", "remove", "rename", "add", "text", "text", "repeat"])
    if draw.random() < 0.03:
        return draw.choice(ODD_VALUES)
    if kind == "rename" and isinstance(container, dict):
        pairs = [(odd_text(draw, name) if name == key else name, entry)
                 for name, entry in container.items()]
        container.clear()
        container.update(pairs)
    elif kind == "remove":
        del container[key]
    elif kind == "add":
        inner = container[key] if isinstance(container[key], dict) else container
        if isinstance(inner, dict):
            inner[draw.choice(UNKNOWN_KEYS)] = draw.choice(ODD_VALUES)
        else:
            inner.insert(draw.randint(0, len(inner)), draw.choice(ODD_VALUES))
    elif kind == "text" and isinstance(container[key], str):
        container[key] = odd_text(draw, container[key])
    elif kind == "repeat" and isinstance(container, dict) and len(container) > 1:
        container[key] = copy.deepcopy(container[draw.choice(list(container))])
    else:
        container[key] = draw.choice(ODD_VALUES)
    return value


def change_text(draw, text):
    """The text with one character more, less, or another one: most often no JSON any more."""
    at = draw.randrange(len(text))
    letter = draw.choice("{}[]:,\"' \n019truefalsn/\\-.eE\x01")
    return draw.choice([text[:at] + text[at + 1:], text[:at] + letter + text[at:],
                        text[:at] + letter + text[at + 1:], text[:at], text + letter])


def with_comments(draw, text):
    """Comments between tokens of a text that is indented: only there a line ends."""
    lines = text.split("\n")
    for at in draw.sample(range(len(lines)), min(2, len(lines))):
        lines[at] += draw.choice([" // what \"it\" is", " /* two\n lines */", "/**/"])
    return "\n".join(lines)


def draw_file(kind, seed):
    """(bytes for the program, text for the schema). They differ by comments only."""
    draw = random.Random(f"{kind} {seed}")
    value = (description if kind == DESCRIPTION else command_file)(draw)
    way = draw.choice(["sound", "changed", "changed", "changed", "text"])
    if way == "changed":
        value = change(draw, value)
    text = json.dumps(value, indent=draw.choice([None, 2]), ensure_ascii=draw.random() < 0.5)
    if way == "text":
        text = change_text(draw, text)
        return text.encode(), text
    # A line ends inside of no string: a new line is escaped there.
    return (with_comments(draw, text) if draw.random() < 0.3 else text).encode(), text
