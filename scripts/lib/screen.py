"""What a person sees: titles, colours and the log as it comes."""

import os
import shutil
import sys

import boot_report

COLOURS = {"red": 31, "green": 32, "yellow": 33, "blue": 34, "dim": 2, "bold": 1}
LEVELS = {"error": "red", "warning": "yellow", "notice": "bold", "info": "blue"}


class Screen:
    """Standard output, with colours when it is a terminal."""

    def __init__(self):
        terminal = sys.stdout.isatty()
        self.coloured = terminal and "NO_COLOR" not in os.environ
        self.width = min(shutil.get_terminal_size((110, 25)).columns if terminal else 110, 140)
        self.rule = "─" if (sys.stdout.encoding or "").lower().startswith("utf") else "-"
        sys.stdout.reconfigure(errors="replace", line_buffering=True)

    def paint(self, colour, text):
        return f"\x1b[{COLOURS[colour]}m{text}\x1b[0m" if self.coloured and colour else text

    def title(self, text):
        rest = self.rule * (self.width - len(text) - 4)
        print("\n" + self.paint("bold", f"{self.rule * 2} {text} {rest}"))


class Follower:
    """Prints the program's log as it comes, with the executor's words before what they explain; a
    `silent` one only keeps it."""

    def __init__(self, screen, root, silent=False):
        self.silent = silent
        self.screen = screen
        self.executor_path = f"{root}/var/log/bootforge-hypcli-stdout.log"
        self.position = 0
        self.lines = []
        self.rest = b""

    def show(self, line, indent=""):
        if self.silent:
            return
        match = boot_report.LOG_LINE.match(line)
        if not match:
            print(self.screen.paint("dim", f"{indent}    | {line}"))
            return
        stamp, level, pid, text = match.groups()
        colour = LEVELS.get(level, "")
        strong = colour if level in ("error", "warning") else ""
        print(self.screen.paint("dim", stamp), self.screen.paint(colour, f"{level:7}"),
              self.screen.paint("dim", f"[{pid}]"), indent + self.screen.paint(strong, text))

    def show_executor(self):
        try:
            with open(self.executor_path, "rb") as file:
                file.seek(self.position)
                new = file.read()
        except OSError:
            return
        new = new[:new.rfind(b"\n") + 1]
        self.position += len(new)
        for line in new.decode(errors="replace").splitlines():
            self.show(line, "    ")

    def receive(self, data):
        """Takes what the program wrote, in parts of any size."""
        *lines, self.rest = (self.rest + data).split(b"\n")
        for line in lines:
            line = line.decode(errors="replace").rstrip("\r")
            self.lines.append(line)
            self.show_executor()
            self.show(line)
        self.show_executor()

    def finish(self):
        self.receive(b"\n" if self.rest else b"")
