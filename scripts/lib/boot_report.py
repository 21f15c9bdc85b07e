"""What a boot left behind, read from the files of the host: for show_boot.py."""

import calendar
import gzip
import json
import os
import re
import time

LOG_LINE = re.compile(r"(\S+Z) (\w+) bootforge\[(\d+)\]: (.*)", re.DOTALL)
PROFILE_LINE = re.compile(r"\[(\S+ \S+)\.(\d{6}) - (\S+ \S+)\.(\d{6})\] (sysboot|daemon): (.*)")
SKIPPED = re.compile(r"skipping plugin (.*) \(interactive mode request\)")
UNPROVIDED = re.compile(r'.*Initialization barrier "(.*)" is not provided by any plugin .*: (".*")')


def microseconds(date, fraction):
    return calendar.timegm(time.strptime(date, "%Y-%m-%d %H:%M:%S")) * 1000000 + int(fraction)


class Run:
    """One activation, of a plugin or a daemon; times in microseconds since the epoch, 0 = never
    taken."""

    def __init__(self, name, start, end):
        self.name, self.start, self.end = name, start, end
        self.result = "unknown"
        self.error = ""

    @property
    def took(self):
        return self.end - self.start


class Report:
    """root: the host's root directory; log: the lines that the program wrote on standard output."""

    def __init__(self, root, log):
        self.root = root
        self.log = [match.groups() for match in map(LOG_LINE.match, log) if match]
        self.executor_log = [match.groups() for match in map(
            LOG_LINE.match, self.lines("/var/log/bootforge-hypcli-stdout.log")) if match]
        self.skipped = {match[1] for match in map(SKIPPED.fullmatch, self.texts()) if match}
        self.runs = self.read_profile("sysboot")
        self.daemons = self.read_profile("daemon")
        self.read_results(self.runs + self.daemons)
        self.unprovided = dict(
            match.groups() for match in (UNPROVIDED.match(text) for text in self.texts()) if match)
        self.passed_over = [text for text in self.texts() if text.startswith("ignoring plugin '")]
        self.unusable = [text for text in self.texts() if "whilst loading plugin " in text]
        self.injections = [text for text in self.texts() if text.startswith("debug injection '")]

    def path(self, name):
        return self.root + name

    def lines(self, name):
        try:
            with open(self.path(name), errors="replace") as file:
                return file.read().splitlines()
        except OSError:
            return []

    def texts(self):
        return [text for _, _, _, text in self.log]

    def failed(self):
        return [run for run in self.runs if run.result == "failed"]

    def failed_daemons(self):
        return [run for run in self.daemons if run.result == "failed"]

    def read_profile(self, kind):
        """The runs in the order in which they began. Of daemons, which have a section for each run
        of the program, those of the first: stopping is not timed."""
        runs = {}
        for line in self.lines("/var/log/sysboot.log"):
            match = PROFILE_LINE.fullmatch(line)
            if match and match[5] == kind:
                start, start_us, end, end_us, _, name = match.groups()
                run = Run(name, microseconds(start, start_us), microseconds(end, end_us))
                if name in self.skipped:
                    run.start, run.result = 0, "skipped"
                runs.setdefault(name, run)
        return sorted(runs.values(), key=lambda run: run.start)

    def read_results(self, runs):
        """How each run ended stands in the kernel's log."""
        by_name = {run.name: run for run in runs}
        for line in self.lines("/var/log/kernel.log"):
            text = line.partition("bootforge: ")[2]
            match = re.fullmatch(r"Bootforge plugin (.*?) activat(ed\.|ion failed: (.*))", text)
            if match and match[1] in by_name:
                run = by_name[match[1]]
                run.result, run.error = ("activated", "") if match[3] is None else (
                    "failed", match[3])
        for text in self.texts():
            match = re.match(r"ignoring plugin '(.*)' because version '.*'  has already", text)
            if match and match[1] in by_name:
                by_name[match[1]].result = "already run"

    def unfinished(self):
        """Plugins that were begun and have not ended, by the kernel's log."""
        begun = []
        for line in self.lines("/var/log/kernel.log"):
            text = line.partition("bootforge: ")[2]
            match = re.fullmatch(r"Activating Bootforge plugin (.*)\.", text)
            if match:
                begun.append(match[1])
            match = re.match(r"Bootforge plugin (.*?) activat(ed|ion failed)", text)
            if match and match[1] in begun:
                begun.remove(match[1])
        return begun

    def reasons(self, name):
        """For a failed plugin: pairs of a command that failed and the list of its errors."""
        try:
            with open(self.path(f"/usr/libexec/bootforge/plugins/{name}.json"),
                      errors="replace") as file:
                description = file.read()
        except OSError:
            return []
        found = []
        for text in self.texts():
            command = text.partition("Executor failed executing hypcli command: ")[2]
            quoted = json.dumps(command, ensure_ascii=False)
            if command and quoted in description and command not in dict(found):
                prefix = f"execution of '{command}' failed : "
                errors = [said[len(prefix):] for _, _, _, said in self.executor_log
                          if said.startswith(prefix)]
                found.append((command, errors or self.parse_errors()))
        return found

    def parse_errors(self):
        """Of all commands that could not be parsed: the log does not tell which is whose."""
        mark = "Executor was unable to parse command: "
        return [f"could not be parsed: {said[len(mark):]}" for _, _, _, said in self.executor_log
                if said.startswith(mark)]

    def run_once_record(self):
        try:
            with gzip.open(self.path("/bootbank/bootfrge.gz"), "rt") as file:
                return file.read().strip()
        except (OSError, EOFError):
            return ""

    def plugin_files(self):
        """Names of the files that should each be a plugin."""
        return sorted(name for name in os.listdir(self.path("/usr/libexec/bootforge/plugins"))
                      if name.endswith((".json", ".so")))
