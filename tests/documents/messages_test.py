#!/usr/bin/env python3
"""docs/messages.md holds every text that a program can say, and no other.

The string literals of the sources are what the programs say: a message is one of them, with
conversions in it, or several that are put together. A table's row shows a whole message; the words
in capitals that the page explains stand for what varies.
"""

import glob
import os
import re
import unittest

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
PAGE = f"{PROJECT}/docs/messages.md"
TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|#include[^\n]*|R"\((?:.*?)\)"|"(?:[^"\\\n]|\\.)*"|'
                   r"'(?:[^'\\\n]|\\.)*'", re.S)
ESCAPES = {"n": "\n", "t": "\t", '"': '"', "\\": "\\", "'": "'"}
CONVERSION = re.compile(r"%#?\d*(?:lld|[sduxMj])")
PROSE = re.compile(r"[A-Za-z]{2,}.* |[ :'\"][A-Za-z]{3,}")
LEVELS = {"2": "error", "3": "warning", "5": "info"}

# What the programs write that is no message, by file and text.
NO_MESSAGES = [
    (r"main/command_line\.cpp", r" -h,--help  .*"),               # the summary of the options
    (r"main/profiling_log\.cpp", r"[ =H].*: |=== .* ===\n| (sysboot|daemon): "),  # sysboot.log(5)
    (r"main/boot\.cpp", r"Activating Bootforge Plugins|standard output"),  # console; a PATH
    (r"graph/(graph|init_barrier|priority_barrier)\..*", r"digraph g \{| shape=.*"),  # dot
    (r"linux/kernel_log\.cpp", r"<\d>bootforge: "),               # levels of the kernel's log
    (r"linux/command_file\.cpp", r'the file|: "\w+"( word )?'),   # places in a file
    (r"plugins/daemon_plugin\.cpp", r"Starting service "),         # the console's status line
    (r"plugins/legacy_daemon_plugin\.cpp", r" (start|stop)"),      # words of a command line
    (r"catalogue/init_scripts\.cpp", r"/bin/chkconfig -p"),
    (r"reading/init_scripts\.cpp", r"### BEGIN INIT INFO"),
    (r"hypcli/help\.cpp", r"Usage: hypcli \[.*|  \(missing\)"),
    (r"hypcli/main\.cpp", r"hypcli [\d.]*|--help' for more information\."),
    (r"chkconfig/main\.cpp", r"usage: .*Exit status: .*"),
    (r"adopt/draft_tree\.cpp", r"diff --git |(new|old|deleted) (file )?mode |\n(similarity|copy) .*| is \w+\n"),
    (r"adopt/lines\.cpp", r"\n\\ No newline at end of file\n"),   # a patch, too
    (r"adopt/inittab\.cpp", r"# .*|in the place of |before rc |the init scripts \w+\n| --daemon=wait .*"),
    (r"adopt/(record|unit)\.cpp", r'\{"version.*|.*"steps": .*|, "init.*|# Made .*| --run-once=.*'),
    (r"adopt/main\.cpp", r"(The host's root|Change nothing|Lets the|Let the|Put every|Also put|Tell what).*"),
]

# The statements of bootforge-analyze that make errors and remarks. Everything else that it writes
# is an answer, or a finding, which docs/rules.md is about.
ANALYZE = re.compile(r"\bthrow\b|UsageError|\bremark\(|notes\.(push|emplace)|contradictions\.push|"
                     r"\bnote\(")
ANALYZE_TOO = {  # where such a text is put together before it is thrown
    "main.cpp": r"std::string text =|separator =",
    "verb_planning.cpp": r"std::string text =|\? \"the plugin folder",
    "simulation_view.cpp": r"std::string text =",
    "chain_view.cpp": r"std::string note =",
    "profiling_log_reader.cpp": r"reason|damagedLines_\.size",
}
NO_REMARKS = re.compile(r"/analyze/(verify|output)/|/elf_memory\.cpp|/loader\.cpp|/probe")


# What the build puts in the place of a name: documents speak of the default.
PLACES = {"BOOTFORGE_HELPER_DIR": "/usr/lib/nimbus/bootforge",
          "BOOTFORGE_PLUGIN_DIR": "/usr/libexec/bootforge/plugins",
          "BOOTFORGE_COMMAND_DIR": "/usr/lib/nimbus/hypcli"}


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


# What others say through us.
NOT_OURS = {"cannot end with escape", "unknown escape sequence"}


class Literal:
    """A string literal, with the statement that it stands in."""

    def __init__(self, file, text, statement):
        self.file, self.text, self.statement = file, text, statement
        self.pieces = [piece for piece in CONVERSION.split(text.rstrip("\n")) if piece]
        sink = re.search(r"(Log_Level\((\d)|kernelLog\(|Warning\(|Panic\()[^\"]*$",
                         statement.partition("\0")[0])
        self.is_whole = bool(sink) and bool(re.search(r"[a-z]{3}", text))
        self.level = LEVELS.get(sink[2]) if sink else None

    def __repr__(self):
        return f"{os.path.relpath(self.file, PROJECT)}: {self.text!r}"

    def pattern(self):
        """What a row that shows this text looks like: capitals for each conversion."""
        parts = CONVERSION.split(re.sub(r"\s*\n\s*", " ", self.text.rstrip()))
        return r"\S.*?".join(re.escape(part) for part in parts)


def literals_of(path):
    source = read(path)
    for name, place in PLACES.items():
        source = source.replace(name, f'"{place}"')
    found, last_end = [], None
    code = list(source)
    for match in TOKEN.finditer(source):
        if match[0][0] in "/'#":
            code[match.start():match.end()] = " " * len(match[0])
    bare = "".join(code)
    strings = [match for match in TOKEN.finditer(source) if match[0][0] in '"R']
    for match in strings:
        text = match[0][3:-2] if match[0][0] == "R" else re.sub(
            r"\\(x[0-9a-f]{2}|[0-7]{3}|.)",
            lambda escape: ESCAPES.get(escape[1], "\0"), match[0][1:-1], flags=re.S)
        if last_end is not None and not bare[last_end:match.start()].strip():
            found[-1] = (found[-1][0], found[-1][1] + text)
        else:
            found.append((match.start(), text))
        last_end = match.end()
    blanked = list(bare)
    for match in strings:
        blanked[match.start() + 1:match.end() - 1] = "_" * (len(match[0]) - 2)
    blanked = "".join(blanked)
    for at, text in found:
        begin = max(blanked.rfind(mark, 0, at) for mark in ";{}") + 1
        end = min(place for place in (blanked.find(";", at), len(blanked)) if place >= 0)
        yield Literal(path, text, bare[begin:at] + "\0" + bare[at:end])


def sources():
    for folder in ("src", "tools"):
        for kind in ("cpp", "h"):
            yield from glob.glob(f"{PROJECT}/{folder}/**/*.{kind}", recursive=True)


def is_of_analyze(literal):
    name = os.path.basename(literal.file)
    statement = literal.statement.replace("\0", "")
    return bool(ANALYZE.search(statement) or
                name in ANALYZE_TOO and re.search(ANALYZE_TOO[name], statement))


class Said:
    """All literals, those of them that are messages, and which exceptions were needed."""

    def __init__(self):
        self.everything, self.messages, self.used = [], [], set()
        for path in sorted(sources()):
            for literal in literals_of(path):
                self.everything.append(literal)
                if self._is_message(literal):
                    self.messages.append(literal)

    def _is_message(self, literal):
        if "/analyze/" in literal.file:
            return (not NO_REMARKS.search(literal.file) and is_of_analyze(literal)
                    and bool(PROSE.search(literal.text)))
        if not (PROSE.search(literal.text) and " " in literal.text or literal.is_whole):
            return False
        for number, (file, text) in enumerate(NO_MESSAGES):
            if re.search(f"{file}$", literal.file) and re.fullmatch(text, literal.text, re.S):
                self.used.add(number)
                return False
        return True


class Row:
    def __init__(self, cells):
        self.cells = cells
        code = re.fullmatch(r"(`+) ?(.*?) ?\1", cells[0], re.S)
        self.text = code[2].replace(r"\|", "|") if code else None


class Page:
    def __init__(self, text):
        self.placeholders = re.findall(r"^\| ((?:[A-Z]+(?:, )?)+) \| ", text, re.M)
        self.placeholders = [word for words in self.placeholders for word in words.split(", ")]
        self.tables = []
        for table in re.findall(r"^(\|.*\n)(?:\|[-|]+\n)((?:\|.*\n)+)", text, re.M):
            if table[0].startswith(("| message ", "| text ")):
                rows = [Row([cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]])
                        for line in table[1].splitlines()]
                self.tables.append((table[0], rows))
        self.rows = [row for _, rows in self.tables for row in rows]

    def pieces(self, text):
        return [piece for piece in
                re.split(rf"\b(?:{'|'.join(self.placeholders)})(?=\b|requested)|(?<=[a-z])ERROR\b",
                         text) if piece]


def can_be_made_of(piece, parts):
    """Whether a text is several literals one after the other, of the last one perhaps the start."""
    reached = {0}
    for start in range(len(piece)):
        if start in reached:
            reached.update(start + len(part) for part in parts if piece.startswith(part, start))
            if any(part.startswith(piece[start:]) for part in parts):
                return True
    return len(piece) in reached


class Messages(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.said = Said()
        cls.page = Page(read(PAGE))

    def test_there_is_something_to_compare(self):
        self.assertGreater(len(self.said.messages), 200)
        self.assertGreater(len(self.page.rows), 200)
        self.assertIn("PLUGIN", self.page.placeholders)

    def test_each_text_of_the_sources_is_listed(self):
        texts = [row.text for row in self.page.rows]
        missing = []
        for literal in self.said.messages:
            pattern = re.compile(literal.pattern())
            match = pattern.fullmatch if literal.is_whole else pattern.search
            # The kernel's records have a prefix of their own.
            if not any(match(text) or match(text.removeprefix("bootforge: ")) for text in texts):
                missing.append(literal)
        self.assertEqual(missing, [], "docs/messages.md lacks these")

    def test_each_text_that_is_listed_is_said(self):
        parts = {piece.replace("\n", " ") for literal in self.said.everything
                 for piece in literal.pieces}
        parts |= {re.sub(r"\s+", " ", part) for part in parts}
        gone = []
        for row in self.page.rows:
            for piece in self.page.pieces(row.text) if row.text not in NOT_OURS else ():
                if not (any(piece in part for part in parts) or can_be_made_of(piece, parts)):
                    gone.append((row.text, piece))
        self.assertEqual(gone, [], "docs/messages.md has these, and nobody says them")

    def test_each_level_is_the_one_that_it_is_logged_at(self):
        wrong = []
        for literal in self.said.messages:
            if not (literal.is_whole and literal.level) or "/analyze/" in literal.file:
                continue
            pattern = re.compile(literal.pattern())
            for row in self.page.rows:
                if pattern.fullmatch(row.text) and len(row.cells) == 5:
                    if not row.cells[1].startswith(literal.level):
                        wrong.append((literal, row.cells[1]))
        self.assertEqual(wrong, [])

    def test_the_tables_are_whole_and_sorted(self):
        for head, rows in self.page.tables:
            width = len(head.split("|")) - 2
            for row in rows:
                self.assertEqual(len(row.cells), width, row.cells)
                self.assertTrue(row.text and all(row.cells), row.cells)
                # Each is looked up alone.
                self.assertFalse({"the same", "the next one"} & set(row.cells), row.cells)
            texts = [row.text.lower() for row in rows]
            self.assertEqual([pair for pair in zip(texts, texts[1:]) if pair[0] > pair[1]], [],
                             "the second belongs before the first")
            self.assertEqual(len(texts), len(set(texts)))

    def test_each_exception_is_needed(self):
        self.assertEqual([entry for number, entry in enumerate(NO_MESSAGES)
                          if number not in self.said.used], [])


if __name__ == "__main__":
    unittest.main()
