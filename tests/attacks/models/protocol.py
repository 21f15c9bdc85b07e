"""Which functions a model stands for, and whether they are still those that it was held against.

A model names them, one on a line: `protocol: FILE NAME DIGEST`. The digest is of the function's
tokens: comments and layout do not count, everything else does.
"""

import hashlib
import re

LINE = re.compile(r"^protocol: (?P<file>\S+) (?P<name>\S+)(?: (?P<digest>[0-9a-f]{16}))?$", re.M)
TOKEN = re.compile(r"""
    (?P<space>\s+|//[^\n]*|/\*.*?\*/)
  | (?P<raw>R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)")
  | (?P<text>"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*')
  | (?P<word>[A-Za-z_]\w*)
  | (?P<number>[0-9](?:'?[\w.])*)
  | (?P<sign>::|->|\+\+|--|<=>|<<=|>>=|<<|[-+*/%&|^<>=!]=|&&|\|\||.)
""", re.X | re.S)
CLOSING = {"(": ")", "{": "}", "[": "]"}


class Unknown(Exception):
    """A function that a model names is not there, or more than once."""


def tokens(source):
    """The tokens of a C++ text, without comments and white space."""
    return [match.group() for match in TOKEN.finditer(source) if match["space"] is None]


def _end_of_group(stream, start):
    """The place behind the bracket that closes the one at `start`."""
    expected = []
    for place in range(start, len(stream)):
        token = stream[place]
        if token in CLOSING:
            expected.append(CLOSING[token])
        elif expected and token == expected[-1]:
            expected.pop()
            if not expected:
                return place + 1
    raise Unknown("its brackets do not match")


def _end_of_definition(stream, place):
    """The place behind the body of a definition whose name ends at `place`; None for anything else
    that has that name: a declaration, a call."""
    while place < len(stream):
        token = stream[place]
        if token == "{":
            return _end_of_group(stream, place)
        if token in CLOSING:
            place = _end_of_group(stream, place)
        elif token in (";", ")", ",", "}", "="):
            return None
        else:
            if token == ":":  # members are initialised: commas belong to it
                while stream[place] != "{":
                    place = (_end_of_group(stream, place) if stream[place] in CLOSING
                             else place + 1)
                continue
            place += 1
    return None


def definition(source, name):
    """The tokens of the one definition of a function or class. Raises Unknown."""
    stream, words = tokens(source), tokens(name)
    found, classes = [], []
    for place in range(len(stream)):
        behind = place + len(words)
        if stream[place:behind] != words or stream[place - 1:place] in (["::"], ["~"]):
            continue
        if stream[behind:behind + 1] not in (["("], ["{"]):
            continue
        end = _end_of_definition(stream, behind)
        if end is not None:
            (classes if stream[behind] == "{" else found).append(stream[place:end])
    found = classes or found  # a class has its constructors in it
    if len(found) != 1:
        raise Unknown("it is not there" if not found else f"it is there {len(found)} times")
    return found[0]


def digest(source, name):
    text = "\n".join(definition(source, name))
    return hashlib.sha256(text.encode()).hexdigest()[:16]


def differences(model, read):
    """What of a model's text no longer fits the sources, one line each. `read` gives a file."""
    found = []
    lines = list(LINE.finditer(model))
    if not lines:
        found.append("it names no function")
    for line in lines:
        place = f"{line['file']}: {line['name']}"
        try:
            if digest(read(line["file"]), line["name"]) != line["digest"]:
                found.append(f"{place} has changed")
        except (OSError, Unknown) as error:
            found.append(f"{place}: {error}")
    return found


def renewed(model, read):
    """The model's text with today's digests. Raises Unknown or OSError."""
    return LINE.sub(lambda line: f"protocol: {line['file']} {line['name']} "
                    f"{digest(read(line['file']), line['name'])}", model)
