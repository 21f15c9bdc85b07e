#!/usr/bin/env python3
"""The schemas of share/schemas accept what bootforge accepts, and warn of what it ignores.

Files are drawn; the program's verdict is that of "bootforge-analyze verify", whose readers are
those of a boot. What a schema cannot say is let through by it, and nothing else: see CANNOT_SAY.
"""

import argparse
import collections
import copy
import json
import os
import random
import re
import subprocess
import sys
import tempfile

try:
    import jsonschema
except ImportError:
    print("skipped: this Python has no jsonschema")
    sys.exit(77)

import drawn_files
from drawn_files import COMMAND_FILE, DESCRIPTION

SCHEMAS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../share/schemas")
FOLDERS = {DESCRIPTION: "usr/libexec/bootforge/plugins", COMMAND_FILE: "usr/lib/nimbus/hypcli"}
FILES = {DESCRIPTION: "plugin-description.schema.json", COMMAND_FILE: "command-file.schema.json"}
BAD = {"description-unreadable", "description-syntax", "description-invalid",
       "command-file-invalid"}
IGNORED_KEY = {"description-unknown-key", "description-ignored-key", "command-file-unknown-key"}

# Faults that a schema lets through, by the program's message.
CANNOT_SAY = {
    "a name that two parameters share": re.compile(
        r'parameters ".*" and ".*" share the name', re.S),
    "{name} of no parameter": re.compile(r"'\{.*\}' names no parameter of the command", re.S),
}


def warn(_validator, message, _instance, _schema):
    yield jsonschema.ValidationError(message)


Validator = jsonschema.validators.extend(
    jsonschema.Draft7Validator, {"deprecationMessage": warn})


def refuse_constant(text):
    raise ValueError(text)


def take_number(text):
    """An exponent of more than 31 bits is no JSON to the program."""
    exponent = text.lower().partition("e")[2]
    if exponent and abs(int(exponent)) >= 2**31:
        raise ValueError(text)
    return float(text)


class File:
    """A drawn file, what the program says of it, and what it is for a schema."""

    def __init__(self, kind, number, seed):
        self.kind = kind
        self.name = f"{number}.json"
        self.seed = f"{seed} {number}"
        self.text, plain = drawn_files.draw_file(kind, self.seed)
        self.faults, self.rules, self.ignored_keys = [], set(), 0
        self.repeats_key = False
        try:
            self.value = json.loads(plain, parse_constant=refuse_constant, parse_float=take_number,
                                    object_pairs_hook=self.members)
            self.is_json = True
        except (ValueError, RecursionError):
            self.is_json = False

    def members(self, pairs):
        result = dict(pairs)
        self.repeats_key |= len(result) < len(pairs)
        return result

    def take(self, finding):
        self.rules.add(finding["rule"])
        if finding["rule"] in BAD:
            self.faults.append(finding["message"])
        self.ignored_keys += finding["rule"] in IGNORED_KEY

    def only_what_no_schema_says(self):
        return bool(self.faults) and all(
            any(pattern.search(fault) for pattern in CANNOT_SAY.values()) for fault in self.faults)

    def names_a_schema(self):
        """Then an editor takes that one instead."""
        return b'"$schema"' in self.text

    def disagreement(self, validator):
        """None, or in what the schema differs from the program."""
        if not self.is_json:
            # Text behind a description is ignored.
            good = bool(self.faults) or "description-trailing" in self.rules
            return None if good else "no JSON, and the program takes it"
        warnings = errors = 0
        for error in validator.iter_errors(self.value):
            if error.validator == "deprecationMessage":
                warnings += 1
            else:
                errors += 1
        if bool(errors) != bool(self.faults) and (errors or not self.only_what_no_schema_says()):
            return f"{errors} errors of the schema, and of the program: {self.faults}"
        if warnings != self.ignored_keys and not self.repeats_key:
            return f"{warnings} warnings, and {self.ignored_keys} keys are ignored"
        return None


def judge(program, files):
    """Lets the program read all files."""
    with tempfile.TemporaryDirectory(prefix="bootforge-schemas.") as root:
        for folder in [*FOLDERS.values(), *(f"{FOLDERS[COMMAND_FILE]}/{inner}"
                                            for inner in ("int/ext", "ext"))]:
            os.makedirs(f"{root}/{folder}")
        places = {}
        for file in files:
            place = f"{FOLDERS[file.kind]}/{file.name}"
            places["/" + place] = file
            with open(f"{root}/{place}", "wb") as output:
                output.write(file.text)
        done = subprocess.run([program, "verify", "--root", root, "--format", "json"],
                              stdout=subprocess.PIPE, check=False, timeout=600)
    if done.returncode not in (0, 1):
        sys.exit(f"verify ended with {done.returncode}")
    for finding in json.loads(done.stdout)["findings"]:
        if finding["file"] in places:
            places[finding["file"]].take(finding)


def compare(files, schemas):
    validators = {kind: Validator(schema) for kind, schema in schemas.items()}
    for file in files:
        difference = file.disagreement(validators[file.kind])
        if difference:
            yield file, difference


# Words whose loss makes a schema say less.
SAYING = {"type", "required", "minimum", "exclusiveMaximum", "exclusiveMinimum", "minItems",
          "maxLength", "pattern", "propertyNames", "items", "additionalItems",
          "additionalProperties", "deprecationMessage", "if", "then"}


def weakened(schema, node=None, path=""):
    """(where, copy of the schema) for each word or entry of a list that can be left out."""
    node = schema if node is None else node
    entries = node.items() if isinstance(node, dict) else enumerate(node)
    for key, entry in list(entries):
        place = f"{path}/{key}"
        if key == "defaultSnippets":
            continue
        of_names = path.endswith(("/properties", "/definitions"))
        is_required = isinstance(node, list) and path.endswith("/required")
        if is_required or (not of_names and key in SAYING):
            at = [int(step) if step.isdigit() else step for step in place.split("/")[1:]]
            less = copy.deepcopy(schema)
            inner = less
            for step in at[:-1]:
                inner = inner[step]
            del inner[at[-1]]
            yield place, less
        if isinstance(entry, (dict, list)):
            yield from weakened(schema, entry, place)


# What only keeps an editor from a second error where a version is missing or not supported.
FOR_EDITORS = re.compile(r"/allOf/0/if/required|/definitions/metadata_from_[23]/"
                         r"(type|required|properties/version/(type|exclusiveMaximum))")


def check_weakened(files, schemas):
    """Leaves out one word of the schemas after the other: the files have to show each loss."""
    unseen = []
    count = 0
    for kind, schema in schemas.items():
        own = [file for file in files if file.kind == kind]
        for place, less in weakened(schema):
            if FOR_EDITORS.match(place):
                continue
            count += 1
            if next(compare(own, {kind: less}), None) is None:
                unseen.append(f"{kind} {place}")
    print(f"{count} words were left out of the schemas, {len(unseen)} without a difference")
    return unseen


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", help="bootforge-analyze")
    parser.add_argument("--count", type=int, default=600)
    parser.add_argument("--seed", type=int, help="BOOTFORGE_SEED; a random one is printed",
                        default=os.environ.get("BOOTFORGE_SEED"))
    parser.add_argument("--only", type=int, help="show the file of this number")
    parser.add_argument("--write", metavar="FILE",
                        help="for editors_test.js: the files with the program's verdicts")
    parser.add_argument("--weaken", action="store_true",
                        help="also see that every word of the schemas is needed")
    given = parser.parse_args()
    seed = random.SystemRandom().randrange(2**32) if given.seed is None else given.seed
    print(f"seed {seed}")
    numbers = range(given.count) if given.only is None else [given.only]
    files = [File((DESCRIPTION, COMMAND_FILE)[number % 2], number, seed) for number in numbers]
    judge(given.program, files)
    if given.write:
        with open(given.write, "w", encoding="utf-8") as output:
            json.dump([{"name": FILES[file.kind], "number": file.name, "text": file.text.decode(),
                        "good": not file.faults, "ignored": file.ignored_keys}
                       for file in files if file.is_json and not file.repeats_key
                       and not file.names_a_schema()
                       and not file.only_what_no_schema_says()], output)
    schemas = {}
    for kind, name in FILES.items():
        with open(f"{SCHEMAS}/{name}", encoding="utf-8") as text:
            schemas[kind] = json.load(text)
        jsonschema.Draft7Validator.check_schema(schemas[kind])
    if given.only is not None:
        print(files[0].text.decode(), files[0].rules, files[0].faults, sep="\n")
    wrong = list(compare(files, schemas))
    for file, difference in wrong[:20]:
        print(f"{file.kind}, --only {file.name.removesuffix('.json')}: {difference}")
    seen = collections.Counter()
    for file in files:
        seen["taken" if not file.faults else "rejected"] += 1
        seen["no JSON"] += not file.is_json
        seen["with ignored keys"] += bool(file.ignored_keys)
        seen["what no schema says"] += file.only_what_no_schema_says()
    print(f"{len(files)} files: " + ", ".join(f"{n} {what}" for what, n in sorted(seen.items())))
    print(f"{len(wrong)} disagreements")
    unseen = check_weakened(files, schemas) if given.weaken else []
    for place in unseen:
        print(f"no file needs {place}")
    # Of the last kind there are two in a hundred: some seeds draw few of them.
    few = given.only is None and not (seen["what no schema says"] and all(
        seen[what] >= given.count / 100 for what in
        ("taken", "rejected", "no JSON", "with ignored keys")))
    if few:
        print("the files are too much alike to show anything")
    return 1 if wrong or unseen or few else 0


if __name__ == "__main__":
    sys.exit(main())
