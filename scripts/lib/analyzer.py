"""bootforge-analyze over the demo's host."""

import json
import os
import subprocess
import sys


class Analyzer:
    """program: its path; image: the options that say which host it is, and how it was booted."""

    def __init__(self, program, root, image, width):
        self.program = program
        self.image = [f"--root={root}", *image]
        self.messages = f"--messages={root}/var/log/kernel.log"
        self.environment = {**os.environ, "COLUMNS": str(width)}

    def ask(self, verb, *words):
        """An answer to a question about the boot; None when there is none."""
        done = subprocess.run([self.program, verb, "--format=json", *self.image, *words],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False)
        return json.loads(done.stdout) if done.returncode in (0, 1) else None

    def show(self, verb, *words):
        """Shows an answer to people; whether there was one."""
        sys.stdout.flush()
        return subprocess.run([self.program, verb, *self.image, *words], env=self.environment,
                              stdin=subprocess.DEVNULL, check=False).returncode in (0, 1)

    def runs(self, *words):
        """What ran or was to run, with results, as "blame" has it."""
        told = self.ask("blame", self.messages, *words)
        return told["plugins"] if told else []

    def unfinished(self):
        """Plugins that were begun and have not ended."""
        told = self.ask("stuck", self.messages)
        return [plugin["name"] for plugin in told["running"]] if told else []
