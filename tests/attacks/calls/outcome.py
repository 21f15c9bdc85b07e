"""What a run has done, and what is wrong with it."""

import errno
import os
import re
import zlib

import readings
from errors import EXPLAINED, NOT_STOPPED
from root_folder import EXECUTOR_LOG, PROFILE, RECORD
from scenarios import OLD_PROFILE, STORE, TELLING, TREE, LIBRARY

TEMPORARY = re.compile(r"^(bootfrge\.gz|sysboot\.log|autoconf)\.\w{6}$")

class Outcome:
    """`effects` is what a run is for, `told` the problems that it told somebody."""

    def __init__(self, host, process, scenario, terminal, marks):
        kernel, syslog = marks
        self.status = process.status
        texts = [process.stdout, process.stderr, host.read(EXECUTOR_LOG) or b"",
                 terminal.data if terminal else b"", *host.system_log.messages[syslog:]]
        lines = [line for text in texts for line in readings.text_of(text).splitlines()]
        lines += [line for line in readings.text_of(process.stderr).splitlines()]
        alerts = [line for line in readings.text_of(host.kernel.text[kernel:]).splitlines()
                  if line.startswith("<1>") or "failed" in line]
        self.lines = {masked(line) for line in lines}
        self.told = {masked(found[2]) for line in lines if (found := TELLING.search(line))
                     and found[1] in ("error", "warning")}
        self.told |= {masked(line) for line in alerts}
        self.told |= {masked(line) for line in
                      readings.text_of(process.stderr).splitlines() if line.strip()}
        self.told |= {masked(readings.text_of(message)) for message in
                      host.system_log.messages[syslog:] if message[:4] in (b"<27>", b"<28>")}
        self.broken = []
        notes = host.notes()
        self.effects = {
            "notes": notes if "parallel" not in scenario.name else sorted(notes),
            "record": self.record(host), "profile": self.profile(host, scenario),
            "autoconf": host.exists(f"{STORE}/autoconf"),
            "boot state": host.exists(f"{STORE}/boot-state/network/eth0"),
            "tree": self.tree(host), "links": sorted(self.listing(host, f"{LIBRARY}/init.d")),
            "output": None if TELLING.search(readings.text_of(process.stdout))
            else masked(readings.text_of(process.stdout)),
        }
        self.temporary = [f"{folder}/{name}" for folder in ("/bootbank", "/var/log", STORE)
                          for name in host.listing(folder) if TEMPORARY.match(name)]

    def record(self, host):
        try:
            return readings.read_record(host.read(RECORD) or b"")
        except (OSError, EOFError, zlib.error) as error:
            self.broken.append(f"{RECORD}: {error}")
            return "broken"

    def profile(self, host, scenario):
        data = host.read(PROFILE) or b""
        if data == OLD_PROFILE.encode():
            return "old"
        try:
            if scenario.name.startswith("daemon"):
                head, found, rest = readings.text_of(data).partition(" Random Seed: 1\n")
                if head + found != OLD_PROFILE or rest.count("=== Daemon") != 1 \
                        or not re.search(r" Random Seed: -?\d+\n\Z", rest):
                    raise ValueError(data)
                return re.findall(r"\] daemon: (.*)", rest)
            return sorted(node.name for node in readings.read_profile(data).nodes)
        except ValueError as error:
            self.broken.append(f"{PROFILE}: {error}")
            return "broken"

    def tree(self, host):
        data = host.read(TREE)
        if not data:
            return data
        try:
            vertices, edges = readings.read_dot(readings.text_of(data))
            return sorted(vertices), sorted(edges)
        except ValueError:
            return "cut"

    @staticmethod
    def listing(host, folder):
        return host.listing(folder) if host.exists(folder) else []


def masked(text):
    text = re.sub(r"\d{4}-\d\d-\d\dT[\d:.]+Z|\w{3} [ \d]\d \d\d:\d\d:\d\d", "TIME", text)
    text = re.sub(r"\[\d+\]", "[N]", text)
    text = re.sub(r"\.\w{6}'", ".XXXXXX'", text)
    return re.sub(r"\(took \d+ us\)", "(took N us)", text)


def is_explained(case, outcome, trace):
    struck = [line for line in trace.splitlines() if "(INJECTED)" in line]
    return any(re.fullmatch(scenario, case.scenario.name) and
               any(re.search(call, line) for line in struck) and
               (not told or told in outcome.told)
               for scenario, call, told, _ in EXPLAINED)


def problems(case, baseline, outcome, left, calls_before_main, trace):
    """What must not be, as (kind, text) pairs; and what became of the fault: README.md."""
    # The loader ends a program with 127, or by a signal where it has no memory for itself.
    before_main = case.number <= calls_before_main.get(case.call, 0)
    allowed = (*case.scenario.statuses, 127, -11) if before_main else case.scenario.statuses
    explained = is_explained(case, outcome, trace)
    found = [("broken", text) for text in outcome.broken if not explained]
    if outcome.status not in allowed and not explained:
        found.append(("status", f"it ended with {outcome.status}"))
    if outcome.temporary and not case.call.startswith("unlink"):
        found.append(("temporary", f"it left {outcome.temporary}"))
    new = outcome.told - baseline.told
    different = sorted(key for key in baseline.effects
                       if outcome.effects[key] != baseline.effects[key])
    if outcome.status != baseline.status:
        different.append("status")
    for process in left:
        # A run that cannot reach the executor leaves it to the next run, and says so.
        said = any(text in line for text in NOT_STOPPED for line in outcome.lines)
        if not said:
            found.append(("process", f"it left {process}"))
    reason = os.strerror(getattr(errno, case.error)) if case.error else None
    if reason and any(reason in line for line in new):
        return found, "named"
    if new:
        return found, "told"
    if explained:
        return found, "explained"
    if different and not (before_main and outcome.status in (127, -11)):
        found.append(("silent", f"nothing is told, and these differ: {', '.join(different)}: " +
                      "; ".join(f"{key}: {outcome.effects.get(key)!r}, not "
                                f"{baseline.effects.get(key)!r}" for key in different
                                if key != "status")))
        return found, "silent"
    return found, "harmless"
