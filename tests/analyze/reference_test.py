#!/usr/bin/env python3
"""Thousands of drawn boots, worked out by the library and by reference.py, must agree.

reference_test.py PROBE [COUNT [SEED]]. The seed is printed, so that a failure can be drawn again.

A question to the probe holds: "log" (the text of a profiling log), "plugins" (descriptions in linking
order: name, kind, requires, provides, level, commands, left_out), "messages" (a capture or null),
"daemons", "chains_to" (names), "workers" (numbers to simulate), "set" (name -> microseconds) and
"without" (names).
"""

import json
import random
import subprocess
import sys
import time
from datetime import datetime, timezone
from fractions import Fraction

import reference

FLAGS = " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 1\n"


def stamp(moment):
    text = datetime.fromtimestamp(moment // 1000000, timezone.utc).strftime("%Y-%m-%d %H:%M:%S")
    return f"{text}.{moment % 1000000:06d}"


class Drawn:
    """One drawn boot: an image, the log of its boot, and what is asked about it."""

    def __init__(self, draw):
        self.draw = draw
        self.scripts = draw.random() < 0.2
        self.names = self.draw_names(draw.choice([1, 2, 5, 10, 16]))
        self.descriptions = (self.draw_scripts() if self.scripts else self.draw_plugins())
        self.lines, self.trail = self.run()
        self.damage = draw.random() < 0.1
        self.question = {
            "plugins": self.descriptions, "log": self.log(), "messages": self.messages(),
            "daemons": self.scripts, "chains_to": draw.sample(self.names, min(2, len(self.names))),
            "workers": draw.sample(range(1, 17), 2), "set": {}, "without": []}
        if draw.random() < 0.3:
            self.question["set"] = {draw.choice(self.names): draw.choice([0, 1, 5000])}
        if draw.random() < 0.3:
            self.question["without"] = [draw.choice(self.names)]
        for each in self.descriptions:
            each["left_out"] = draw.random() < 0.05

    def draw_names(self, count):
        words = ["net", "disk", "clock", "log", "web", "Zeit", "über", "a b", "x-1", "x.2"]
        return [f"{self.draw.choice(words)}{number}" for number in range(count)]

    def describe(self, name, kind):
        return {"name": name, "kind": kind, "requires": [], "provides": [], "level": 0,
                "commands": False, "left_out": False}

    def draw_plugins(self):
        milestones = [f"m{number}" for number in range(self.draw.randint(1, 8))]
        descriptions = []
        for place, name in enumerate(self.names):
            each = self.describe(name, self.draw.choice(["json", "json", "json", "native", "debug"]))
            each["commands"] = each["kind"] == "json" and self.draw.random() < 0.8
            # What requires only what stands before, and provides only what stands behind, cannot
            # wait for itself.
            middle = place * len(milestones) // len(self.names)
            for _ in range(self.draw.randint(0, 2)):
                if milestones[:middle]:
                    each["requires"].append(self.draw.choice(milestones[:middle]))
                if milestones[middle:]:
                    each["provides"].append(self.draw.choice(milestones[middle:]))
            descriptions.append(each)
        self.draw.shuffle(descriptions)
        return descriptions

    def draw_scripts(self):
        descriptions = []
        for name in self.names:
            each = self.describe(name, "script")
            each["level"] = self.draw.choice([5, 10, 20, 4294967295])
            descriptions.append(each)
        return sorted(descriptions, key=lambda each: each["level"])

    def duration(self):
        return self.draw.choice([0, 0, 1, 2, 3, 40, 50, 51, 60, self.draw.randint(1, 10**6),
                                 self.draw.randint(1, 200)])

    def run(self):
        """Runs the plugins on some workers in some order that their dependencies allow."""
        workers = self.draw.randint(1, 16)
        free = [self.draw.randint(10**6, 2 * 10**15)] * workers
        todo = list(self.descriptions)
        lines, ends, trail = {}, {}, []
        while todo:
            ready = [each for each in todo if not any(
                reference.links(reference.Plugin("", 1, 1, each),
                                reference.Plugin("", 1, 1, other)) for other in todo)]
            each = self.draw.choice(ready)
            todo.remove(each)
            fate = self.draw.random()
            if fate < 0.03:
                lines[each["name"]] = (0, 0)
                continue
            worker = self.draw.randrange(workers)
            start = max([free[worker]] + [
                ends[other["name"]] for other in self.descriptions if other["name"] in ends
                and reference.links(reference.Plugin("", 1, 1, each),
                                    reference.Plugin("", 1, 1, other))])
            start += self.draw.choice([0, 0, 10, 50, 51, 1000])
            end = start + self.duration()
            if fate < 0.06:
                lines[each["name"]] = (start, 0)
                continue
            backwards = fate < 0.08
            lines[each["name"]] = (start, max(1, start - 77) if backwards else end)
            if backwards:
                end = start
            free[worker] = ends[each["name"]] = end
            trail.append((each["name"], start, end))
        if self.draw.random() < 0.05 and lines:  # log and image do not belong together
            name = self.draw.choice(sorted(lines))
            start, end = lines[name]
            if start and end > start:
                lines[name] = (max(1, start - 500), end)
        names = [each["name"] for each in self.descriptions if self.draw.random() < 0.97]
        return [(name, *lines[name]) for name in names], trail

    def log(self):
        kind = "daemon" if self.scripts else "sysboot"
        text = "" if self.scripts else "HVKernel Initialization Time: 5000000\n"
        if self.draw.random() < 0.1:
            self.lines.append(("stranger", *self.draw.choice(
                [line[1:] for line in self.lines] or [(0, 0)])))
        for name, start, end in self.lines:
            text += f"[{stamp(start)} - {stamp(end)}] {kind}: {name}\n"
            if self.damage and self.draw.random() < 0.2:
                text += self.draw.choice(["\n", "noise\n", "[2024-01-01 00:00:00.000000 - x\n"])
        if self.scripts:
            text += "=== Daemon configuration info ===\n Start Daemon: "
            text += f"{stamp(1)}\n End Daemon: {stamp(2)}\n" + FLAGS
            # What stands before does not count: the last daemon run does.
            text = ("HVKernel Initialization Time: 5\n=== Bootforge configuration info ===\n"
                    f" Start: {stamp(1)}\n End: {stamp(2)}\n" + FLAGS) + text
        else:
            text += "=== Bootforge configuration info ===\n Start: "
            text += f"{stamp(1)}\n End: {stamp(2)}\n" + FLAGS
        if self.damage and self.draw.random() < 0.5:
            text = text[:self.draw.randrange(len(text))]
            # The cut line counts for nothing in the reference, and must not by its known name.
            text = text[:text.rfind("\n") + 1]
        return text

    def messages(self):
        """The kernel's log of the boot up to some moment."""
        events = []
        self.begun, self.ended = set(), {}
        for name, start, end in self.trail:
            events.append((start, 0, f"Activating Bootforge plugin {name}.", name, None))
            if self.draw.random() < 0.2:
                events.append((end, 1, f"Bootforge plugin {name} activation failed: {name}->start() "
                               "failed: so", name, "failed"))
            else:
                events.append((end, 1, f"Bootforge plugin {name} activated.", name, "activated"))
        events.sort()
        capture = ""
        for _, _, text, name, result in events[:self.draw.randint(0, len(events))]:
            capture += f"[    1.000000] bootforge: {text}\n[    1.0] other: noise\n"
            if result:
                self.ended[name] = result
            else:
                self.begun.add(name)
        return capture


def compare(drawn, answer):
    """The differences between an answer and the reference, as texts."""
    wrong = []

    def same(what, told, expected):
        if told != expected:
            wrong.append(f"{what}: told {told}, expected {expected}")

    question = drawn.question
    descriptions = question["plugins"]
    blocks, missing = reference.stuck(descriptions, drawn.begun, drawn.ended)
    told = answer["stuck"]["json"]
    same("running", {each["name"]: each["blocks"] for each in told["running"]}, blocks)
    same("waiting", {each["name"]: {one["milestone"]: set(one["plugins"]) for one in each["for"]}
                     for each in told["waiting"]}, missing)
    same("stuck", answer["stuck"]["status"], 1 if blocks or missing else 0)

    lines = reference.read_section(question["log"], question["daemons"])
    if lines is None:
        same("section", "blame" in answer, False)
        return wrong
    boot = reference.Boot(lines, descriptions)
    same("contradicted", answer["contradicted"], boot.contradicted)
    told = answer["blame"]["json"]
    same("makespan", told["boot"]["makespan"], boot.makespan)
    same("boot start", told["boot"]["start"], boot.first if boot.ran else None)
    same("workers", told["boot"]["workers"], boot.workers)
    rows = sorted(boot.blame(), key=lambda row: row["name"])
    for row in rows:
        row["result"] = "unknown"
        row["reason"] = None
        if row["start"] is None:
            row["result"] = "never"
        elif row["end"] is None:
            row["result"] = "skipped"
        elif row["name"] in drawn.ended:
            row["result"] = drawn.ended[row["name"]]
            if row["result"] == "failed":
                row["reason"] = f"{row['name']}->start() failed: so"
    same("rows", sorted(told["plugins"], key=lambda row: row["name"]), rows)
    starts = [row["start"] for row in told["plugins"] if row["end"] is not None]
    same("order of rows", starts, sorted(starts))
    if not boot.contradicted:
        same("chain", answer["chain"]["json"]["chain"], boot.chain())
        for name, told in zip(question["chains_to"], answer["chains"]):
            same(f"chain to {name}", told["chain"], boot.chain(name))
    wrong += compare_simulations(boot, question, answer["simulate"]["json"])
    return wrong


def compare_simulations(boot, question, told):
    wrong = []

    def near(what, one, other, tolerance=1e-9):
        if (one is None) != (other is None) or one is not None and abs(one - other) > tolerance:
            wrong.append(f"simulation, {what}: told {one}, expected {other}")

    for run, workers in zip(told["runs"], question["workers"]):
        model = reference.Simulation(boot, question["plugins"], workers, question["set"],
                                     question["without"], question["daemons"])
        model.run()
        near("workers", run["workers"], workers)
        near("makespan", run["makespan"], float(model.now), 0.500001)
        if run["order"] != model.order:
            wrong.append(f"order with {workers}: told {run['order']}, expected {model.order}")
        if model.now:
            near("speedup", run["speedup"], boot.makespan / float(model.now), 1e-6)
            near("utilisation", run["utilisation"], float(model.busy / (model.now * workers)))
            near("executor", run["executor"], float(model.executor_busy / model.now))
    if boot.makespan:
        model = reference.Simulation(boot, question["plugins"], boot.workers, {}, [],
                                     question["daemons"])
        model.run()
        near("model error", told["model_error"], float(model.now / Fraction(boot.makespan)) - 1)
    return wrong


def main(probe, count=3000, seed=None):
    seed = int(seed) if seed else int(time.time())
    print(f"seed {seed}", flush=True)
    draw = random.Random(seed)
    drawn = [Drawn(draw) for _ in range(int(count))]
    text = "".join(json.dumps(each.question) + "\n" for each in drawn)
    result = subprocess.run([probe], input=text.encode(), stdout=subprocess.PIPE, check=True)
    answers = result.stdout.decode().splitlines()
    if len(answers) != len(drawn):
        sys.exit(f"{len(drawn)} questions, {len(answers)} answers")
    failures = 0
    for number, (each, answer) in enumerate(zip(drawn, answers)):
        wrong = compare(each, json.loads(answer))
        if wrong:
            failures += 1
            print(f"boot {number}:\n{each.question['log']}{json.dumps(each.descriptions)}")
            print("\n".join(wrong))
            if failures == 3:
                break
    if failures:
        sys.exit(f"seed {seed}: answers differ from the reference")
    print(f"{len(drawn)} boots: every answer is the reference's")


if __name__ == "__main__":
    main(*sys.argv[1:])
