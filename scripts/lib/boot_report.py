"""What a boot's own log says, and what its host holds: for show_boot.py. Times and results are the
analyzer's to tell."""

import gzip
import json
import os
import re

LOG_LINE = re.compile(r"(\S+Z) (\w+) bootforge\[(\d+)\]: (.*)", re.DOTALL)
UNPROVIDED = re.compile(r'.*Initialization barrier "(.*)" is not provided by any plugin .*: (".*")')


class Report:
    """root: the host's root directory; log: the lines that the program wrote on standard output."""

    def __init__(self, root, log):
        self.root = root
        self.log = [match.groups() for match in map(LOG_LINE.match, log) if match]
        self.executor_log = [match.groups() for match in map(
            LOG_LINE.match, self.lines("/var/log/bootforge-hypcli-stdout.log")) if match]
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
