"""Small changes of the sources: which there are, in which order a seed draws them, and how many of
them stand in one program, each with a switch."""

import collections
import difflib
import hashlib
import os
import re

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
TOKEN = re.compile(r"""
    (?P<skip>//[^\n]*|/\*.*?\*/|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"
            |'(?:\\.|[^'\\\n])*'|^[ \t]*\#[^\n]*)
  | (?P<word>[A-Za-z_]\w*) | (?P<number>\b(?<!')\d+\b(?![.'\w]))
  | (?P<sign><=>|->|::|\+\+|--|<<=?|>>=?|[-+*/%&|^<>=!]=|&&|\|\||.)
""", re.X | re.S | re.M)
INSTEAD = {
    "==": ["!="], "!=": ["=="], "<=": ["<"], ">=": [">"], "&&": ["||"], "||": ["&&"],
    "++": ["--"], "--": ["++"], "+=": ["-="], "-=": ["+="], "true": ["false"], "false": ["true"],
    "break": ["continue"], "continue": ["break"], "!": [""], " < ": [" <= "], " > ": [" >= "],
    " + ": [" - "], " - ": [" + "],
}
# One statement on a line of its own: a call or an assignment, and no declaration.
STATEMENT = re.compile(r"^[ \t]+(?:[\w:]+(?:(?:\.|->|::)\w+|\[[^\]\n]*\])*"
                       r"(?:\([^\n]*\)| [-+|&]?= [^\n]*)|\+\+\w+|--\w+|throw [^\n]*);[^\n]*$", re.M)
# Left out, these mean the same on every machine that we know: they make room, or end what needs no end.
NO_STATEMENT = re.compile(r"\.reserve\(|\bva_end\(")
# One more element than is used.
ARRAY = re.compile(r"^[ \t]*(?:const )?[\w:]+ \w+\[\Z|\bstd::array<[\w:]+, \Z", re.M)
BLOCK_HEAD = re.compile(r"\b(switch|for|while|do)\b[^;{}]*\Z")
# What may stand before one; after anything else the line goes on with what has begun.
BEFORE_STATEMENT = re.compile(r"(?:[;{}:)]|\belse|\bdo)[ \t]*(?://[^\n]*)?\n"
                              r"(?:[ \t]*(?://[^\n]*)?\n)*\Z")
# What an expression ends at, whichever it is, and what a comparison or a sum ends at, too.
ENDS = {",", ";", "?", ":", "=", "return", "case", "throw", "else", "do"}
ASSIGNMENTS = {"+=", "-=", "|=", "&="}
LOGICAL = {"&&", "||"}
OPEN, CLOSE = "([{", ")]}"
SWITCH = "::mutants::on"

Mutant = collections.namedtuple("Mutant", "path start end text")


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def source_files():
    found = []
    for folder, _, names in os.walk(f"{PROJECT}/src"):
        found += [os.path.relpath(f"{folder}/{name}", PROJECT) for name in names
                  if name.endswith((".cpp", ".h"))]
    return sorted(found)


def ends_a_case(source, start):
    """Whether a break leaves a switch: where it stands, to go on with a loop mostly means the same."""
    depth = 0
    for at in range(start - 1, -1, -1):
        if source[at] == "}":
            depth += 1
        elif source[at] == "{" and depth:
            depth -= 1
        elif source[at] == "{":
            head = BLOCK_HEAD.search(source, max(0, at - 400), at)
            if head:
                return head.group(1) == "switch"
    return False


def mutants_of(path):
    source = text_of(f"{PROJECT}/{path}")
    found = []
    for token in TOKEN.finditer(source):
        if token["skip"] is not None:
            continue
        text, start, end = token.group(), token.start(), token.end()
        if text == "break" and ends_a_case(source, start):
            continue
        if token["number"] and not ARRAY.search(source, 0, start):
            found.append(Mutant(path, start, end, str(int(text) + 1)))
            continue
        # Comparisons and sums have blanks around them; brackets of templates have not.
        spaced = f" {text} " if source[start - 1:end + 1] == f" {text} " else None
        for other in INSTEAD.get(text, []) + [each.strip() for each in INSTEAD.get(spaced, [])]:
            found.append(Mutant(path, start, end, other))
    if path.endswith(".cpp"):
        for line in STATEMENT.finditer(source):
            if (BEFORE_STATEMENT.search(source, 0, line.start()) and
                    not NO_STATEMENT.search(line.group())):
                found.append(Mutant(path, line.start(), line.end(), "  ;"))
    return found


def name_of(mutant, source):
    """The same for the same change of the same line, wherever in its file that stands."""
    begin = source.rfind("\n", 0, mutant.start) + 1
    line = source[begin:].split("\n", 1)[0]
    before = source[:begin].count(f"\n{line}\n")
    column = mutant.start - begin
    return f"{mutant.path}: {line.strip()} [{before}, {column}: {mutant.text.strip()}]"


def drawn(seed, only):
    """Every mutant with its name, in the order in which this seed draws them."""
    named = []
    for path in source_files():
        if only in path:
            source = text_of(f"{PROJECT}/{path}")
            named += [(name_of(mutant, source), mutant) for mutant in mutants_of(path)]
    return sorted(named, key=lambda each: hashlib.sha256(f"{seed} {each[0]}".encode()).digest())


def difference(mutant, old):
    new = old[:mutant.start] + mutant.text + old[mutant.end:]
    return "\n".join(list(difflib.unified_diff(old.splitlines(), new.splitlines(), mutant.path,
                                               mutant.path, n=1, lineterm=""))[2:])


def line_of(mutant, source):
    return source.count("\n", 0, mutant.start) + 1


def expression_around(source, mutant):
    """Where the smallest expression begins and ends that can stand twice, changed and unchanged."""
    text = source[mutant.start:mutant.end]
    ends = ENDS if text in LOGICAL | ASSIGNMENTS else ENDS | LOGICAL | ASSIGNMENTS
    tokens = [token for token in TOKEN.finditer(source)
              if not (token["skip"] or "").startswith(("/", "#")) and token.group().strip()]
    at = next(i for i, token in enumerate(tokens) if token.start() == mutant.start)

    def reach(step, inner, outer):
        depth, index = 0, at
        while 0 <= index + step < len(tokens):
            sign = tokens[index + step].group()
            if sign in inner:
                depth += 1
            elif sign in outer:
                if depth == 0:
                    break
                depth -= 1
                if depth == 0 and sign == "{":
                    break  # the end of a block before the statement
            elif depth == 0 and sign in ends:
                break
            index += step
        return tokens[index]

    return reach(-1, CLOSE, OPEN).start(), reach(1, OPEN, CLOSE).end()


def switched(source, mutant, number):
    """What to put where into the source, so that the mutant comes and goes with a switch; each line
    keeps its number."""
    text, on = source[mutant.start:mutant.end], f"{SWITCH}({number})"
    if mutant.text == "  ;":
        statement = STATEMENT.match(source, mutant.start).group().strip()
        statement = statement[:statement.rindex(";")]
        return mutant.start, mutant.end, f"({on} ? (void)0 : (void)({statement}));"
    if text.isdigit() or text in ("true", "false"):
        return mutant.start, mutant.end, f"({on} ? {mutant.text} : {text})"
    if text in ("break", "continue"):
        end = source.index(";", mutant.end) + 1
        return mutant.start, end, f"if ({on}) {mutant.text}; else {text};"
    if text == "!":
        return mutant.start, mutant.end, f"{on} != !"
    start, end = expression_around(source, mutant)
    changed = source[start:mutant.start] + mutant.text + source[mutant.end:end]
    both = f"({on} ? ({changed}) : ({source[start:end]}))"
    return start, end, both.replace("\n", " ") + source.count("\n", start, end) * "\n"
