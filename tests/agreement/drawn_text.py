"""Drawn JSON texts: values written in many ways, and what goes wrong with them.

Objects are lists of pairs, so that a key can stand twice; Raw is text that is written as it stands.
All draws come from one random.Random, whose seed tells the whole text.
"""

import json


class Object(list):
    """The pairs of a JSON object."""


class Raw(str):
    """A value in its own words."""


def junk(draw):
    """A value of any type."""
    return draw.choice([
        None, True, False, 0, 1, -1, 4, 5, 1.5, 4.99, "", "x", "true", "3", [], ["x"], [1], [None],
        [["x"]], Object(), Object([("x", 1)]), Raw("1e400"), Raw("-1e400"), Raw("1e-400"),
        Raw("-0"), Raw("4.99999999999999999999"), Raw("0.99999999999999999999"), Raw("3.0e0"),
        Raw("30e-1"),
        Raw("18446744073709551616"), Raw("-9223372036854775809"), Raw('"\\ud800"'),
        Raw('"\\ud83d\\ude00"'), Raw('"\\u0000"'), Raw("01"), Raw("+1"), Raw(".5"), Raw("1."),
        Raw("NaN"), Raw("Infinity"), Raw("'x'"), Raw("nul"), Raw("True"), Raw('"\\x"'), Raw('"\t"'),
        Raw("[1,]"), Raw("{,}"), Raw("[" * 40 + "]" * 40), Raw("")])


def write(value, draw, decorated=False):
    """A JSON text of a value; decorated with comments and odd white space."""
    def gap():
        if not decorated or draw.random() < 0.7:
            return ""
        return draw.choice([" ", "\n", "\t", "\r\n", "/**/", "// ,\n", "/* } \" */", "/***/ "])

    def string(text):
        if decorated and text and draw.random() < 0.2:
            return '"' + "".join(f"\\u{ord(c):04x}" if ord(c) < 0x10000 else c for c in text) + '"'
        return json.dumps(text, ensure_ascii=draw.random() < 0.5 if decorated else False)

    def put(item):
        if isinstance(item, Raw):
            return str(item)
        if isinstance(item, Object):
            pairs = (f"{gap()}{string(key)}{gap()}:{gap()}{put(inner)}{gap()}"
                     for key, inner in item)
            return "{" + ",".join(pairs) + "}"
        if isinstance(item, list):
            return "[" + ",".join(gap() + put(inner) + gap() for inner in item) + "]"
        return string(item) if isinstance(item, str) else json.dumps(item)

    return gap() + put(value) + gap()


def objects_of(value):
    """Every object in a value, itself included."""
    if isinstance(value, Object):
        yield value
        for _, inner in value:
            yield from objects_of(inner)
    elif isinstance(value, list):
        for inner in value:
            yield from objects_of(inner)


def lists_of(value):
    """Every array in a value."""
    if isinstance(value, Object):
        for _, inner in value:
            yield from lists_of(inner)
    elif isinstance(value, list):
        yield value
        for inner in value:
            yield from lists_of(inner)


def mutate_value(value, draw):
    """Changes one thing in an object."""
    lists = list(lists_of(value))
    if lists and draw.random() < 0.2:
        target = draw.choice(lists)
        target.insert(draw.randint(0, len(target)), junk(draw))
        return
    targets = [each for each in objects_of(value) if each] or [value]
    target = draw.choice(targets)
    if not target:
        target.append(("x", junk(draw)))
        return
    place = draw.randrange(len(target))
    key, inner = target[place]
    what = draw.randrange(6)
    if what == 0:
        del target[place]
    elif what == 1:
        target[place] = (key, junk(draw))
    elif what == 2:  # a second one, before or behind the first
        target.insert(draw.randint(0, len(target)), (key, draw.choice([inner, junk(draw)])))
    elif what == 3:  # misspelt
        target[place] = (draw.choice([key.upper(), key[:-1], key + "s", key.replace("_", "-"),
                                      key[::-1], " " + key, ""]), inner)
    elif what == 4:
        target.insert(place, (draw.choice(["comment", "Version", "priority", "stop", ""]),
                              junk(draw)))
    else:
        draw.shuffle(target)


def mutate_bytes(data, draw):
    """Changes one thing in a text."""
    place = draw.randint(0, len(data))
    what = draw.randrange(9)
    if what == 0:
        return data[:place]
    if what == 1:
        return data[:place] + bytes([draw.randrange(256)]) + data[place + 1:]
    if what == 2:
        return data[:place] + draw.choice([b"\xff", b"\xc3", b"\xc0\x80", b"\xed\xa0\x80",
                                           b"\xf4\x90\x80\x80", b"\x80"]) + data[place:]
    if what == 3:
        return data + draw.choice([b"x", b"{}", b" ", b"\n// end\n", b"/* open", b"\0", b"]", b","])
    if what == 4:
        return draw.choice([b"\xef\xbb\xbf", b"\xff\xfe", b" \n", b"/* head */", b"//\n", b"\0",
                            b"\x0c"]) + data
    if what == 5:
        return data[:place] + draw.choice([b"/*", b"*/", b"//", b"/", b'"', b"\\", b"\0", b"{",
                                           b"}", b"[", b"]", b",", b":", b"\n"]) + data[place:]
    if what == 6:
        return data[:place] + data[place + draw.randint(1, 4):]
    if what == 7:
        depth = draw.choice([1, 1000, 4090, 4094, 4095, 4096, 4097, 5000, 100000])
        deep = b"[" * depth + b"]" * depth
        at = data.find(b"{") + 1
        return data[:at] + b'"deep":' + deep + b"," + data[at:]
    return draw.choice([b"", b"null", b"[]", b"{}", b'""', b"0", b"\n", b"//", b"/*", b"\xff"])
