#!/usr/bin/env python3
"""Boots a host and shows a person what happens: the log as it goes, then what came of it.

usage: show_boot.py [--expect-failed NAME]... [--expect-unprovided MILESTONE]... [--kept]
                    ROOT COMMAND [ARGUMENT...]

COMMAND boots the host whose files are below ROOT: it writes the program's log to standard output
and ends when its standard input does. Exit status: 0 when the boot went as expected, 1 when it did
not, 125 when the host could not be made.
"""

import argparse
import ctypes
import os
import shutil
import signal
import subprocess
import sys

import boot_report

COLOURS = {"red": 31, "green": 32, "yellow": 33, "blue": 34, "dim": 2, "bold": 1}
LEVELS = {"error": "red", "warning": "yellow", "notice": "bold", "info": "blue"}
FILES = (
    ("/var/log/sysboot.log", "boot profiling log"),
    ("/bootbank/bootfrge.gz", "run-once record"),
    ("/var/log/syslog.log", "the host's system log"),
    ("/var/log/kernel.log", "what the program told the kernel's log"),
    ("/var/log/bootforge-hypcli-stdout.log", "CLI executor's log, output of the commands"),
    ("/var/log/console.log", "what the console showed"),
)
PR_SET_PDEATHSIG = 1  # of prctl(2)
# There while the host configures itself; the program takes it away at the end of the boot.
AUTOCONF_MARKER = "/var/run/nimbus/configstore/autoconf"


class Screen:
    """Standard output, with colours when it is a terminal."""

    def __init__(self):
        terminal = sys.stdout.isatty()
        self.coloured = terminal and "NO_COLOR" not in os.environ
        self.width = min(shutil.get_terminal_size((110, 25)).columns if terminal else 110, 140)
        encoding = (sys.stdout.encoding or "").lower()
        self.blocks = " ▏▎▍▌▋▊▉█" if encoding.startswith("utf") else " #"
        sys.stdout.reconfigure(errors="replace", line_buffering=True)

    def paint(self, colour, text):
        return f"\x1b[{COLOURS[colour]}m{text}\x1b[0m" if self.coloured and colour else text

    def title(self, text):
        rule = "─" if len(self.blocks) > 2 else "-"
        print("\n" + self.paint("bold", f"{rule * 2} {text} {rule * (self.width - len(text) - 4)}"))

    def bar(self, begin, end, width):
        """A bar from begin to end (0 to 1) within width cells; at least a sliver."""
        fine = len(self.blocks) - 1
        first = min(int(begin * width), width - 1)
        parts = max(round((end - begin) * width * fine), 1)
        full, rest = divmod(parts, fine)
        return (" " * first + self.blocks[-1] * full + self.blocks[rest].strip())[:width]


class Follower:
    """Prints the program's log as it comes, with the executor's words before what they explain."""

    def __init__(self, screen, root):
        self.screen = screen
        self.executor_path = f"{root}/var/log/bootforge-hypcli-stdout.log"
        self.position = 0
        self.lines = []

    def show(self, line, indent=""):
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

    def follow(self, stream):
        for line in stream:
            line = line.decode(errors="replace").rstrip("\n")
            self.lines.append(line)
            self.show_executor()
            self.show(line)
        self.show_executor()


def boot(command, follower, root):
    """Boots, following the log; the exit status. However this process ends, the host ends first."""
    signals = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def leave(number, frame):
        raise SystemExit(128 + number)

    for number in signals:
        signal.signal(number, leave)
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)  # whoever started us may be killed
    host = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    try:
        follower.follow(host.stdout)
        return host.wait()
    except SystemExit:
        left = boot_report.Report(root, follower.lines).unfinished()
        print(f"\nInterrupted; plugins that had not ended: {', '.join(left) or 'none'}")
        raise
    finally:
        for number in signals:
            signal.signal(number, signal.SIG_IGN)
        host.stdin.close()
        host.wait()


def show_profile(screen, report):
    runs = [run for run in report.runs if run.start]
    if not runs:
        print("No plugin ran.")
        return
    begin, end = runs[0].start, max(run.end for run in runs)
    span = max(end - begin, 1)
    names = max(len(run.name) for run in runs)
    width = max(screen.width - names - 42, 10)
    head = f"{'order':>5}  {'plugin':{names}}  {'began ms':>9}  {'took ms':>9}  {'result':9}"
    print(screen.paint("dim", f"{head}  0{f'{span / 1000:.0f} ms':>{width - 1}}"))
    for number, run in enumerate(runs, 1):
        colour = {"activated": "green", "failed": "red"}.get(run.result, "yellow")
        bar = screen.bar((run.start - begin) / span, (run.end - begin) / span, width)
        print(f"{number:5}  {run.name:{names}}  {(run.start - begin) / 1000:9.1f}  "
              f"{run.took / 1000:9.1f}  {screen.paint(colour, f'{run.result:9}')}  "
              f"{screen.paint(colour, bar)}")
    for run in report.runs:
        if not run.start:
            print(f"{'-':>5}  {run.name:{names}}  {run.result}")
    slowest = max(runs, key=lambda run: run.took)
    print(f"\n{len(runs)} plugin{'s' * (len(runs) != 1)} in {span / 1000:.1f} ms, the longest "
          f"{slowest.name} with {slowest.took / 1000:.1f} ms")


def show_troubles(screen, report):
    for run in report.failed():
        error = run.error.rpartition("() failed: ")[2]
        print(screen.paint("red", f"failed       {run.name}: {error}"))
        for command, errors in report.reasons(run.name):
            print(f"                 {command}")
            for error in errors:
                print(f"                     {error}")
    for text in report.unusable:
        print(screen.paint("red", f"unusable     {text}"))
    for milestone, requirers in report.unprovided.items():
        print(screen.paint("yellow", f"unprovided   milestone {milestone}: no plugin provides it; "
                           f"required by {requirers}, which ran without it"))
    for text in report.passed_over:
        print(f"passed over  {text.removeprefix('ignoring plugin ')}")
    for text in report.injections:
        print(f"injection    {text.removeprefix('debug injection ')}")
    if not (report.failed() or report.unusable or report.unprovided):
        print("Nothing failed.")


def show_files(screen, report, kept):
    if kept:
        print(f"below {report.root}:")
    for name, meaning in FILES:
        try:
            size = f"{os.path.getsize(report.path(name))} bytes"
        except OSError:
            size = "not there"
        print(f"{name:38}  {size:>12}  {meaning}")
    print(f"\nThe run-once record says: {report.run_once_record() or 'nothing'}")
    if not kept:
        print("These files are the host's, and are removed with it now; --keep keeps them.")


def judge(report, status, options):
    """What was not as expected, one sentence each."""
    problems = []

    def compare(what, expected, found):
        problems.extend(f"{what} {name}, which was not expected" for name in found - expected)
        problems.extend(f"not so: {what} {name}" for name in expected - found)

    if status:
        problems.append(f"the program ended with exit status {status}")
    compare("failed:", set(options.expect_failed), {run.name for run in report.failed()})
    compare("no provider for milestone", set(options.expect_unprovided), set(report.unprovided))
    if report.unusable:
        problems.append(f"descriptions that are unusable: {len(report.unusable)}")
    known = {run.name for run in report.runs if run.result != "unknown"}
    for name in report.plugin_files():
        base = name.removeprefix("lib")
        if base not in known and not any(f"'{base}'" in text for text in report.passed_over):
            if not any(f" {name}.json: " in text for text in report.unusable):
                problems.append(f"{name} has not ended, or left no word of it in the kernel's log")
    if not report.run_once_record():
        problems.append("there is no run-once record")
    if os.path.exists(report.path(AUTOCONF_MARKER)):
        problems.append(f"automatic configuration was not ended: {AUTOCONF_MARKER} is still there")
    return problems


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--expect-failed", action="append", default=[])
    parser.add_argument("--expect-unprovided", action="append", default=[])
    parser.add_argument("--kept", action="store_true")
    parser.add_argument("root")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    options = parser.parse_args()

    screen = Screen()
    follower = Follower(screen, options.root)
    screen.title("The log as it goes")
    status = boot(options.command, follower, options.root)
    if status == 125:
        return 125

    report = boot_report.Report(options.root, follower.lines)
    screen.title("Order of activation, and the profile")
    show_profile(screen, report)
    screen.title("What did not go well, and why")
    show_troubles(screen, report)
    screen.title("The host as it stood at the end")
    print("\n".join(report.lines("/var/log/status.txt")) or "It has no status program.")
    screen.title("Where the files are")
    show_files(screen, report, options.kept)
    screen.title("Outcome")
    problems = judge(report, status, options)
    activated = sum(run.result == "activated" for run in report.runs)
    print(f"{activated} activated, {len(report.failed())} failed, {len(report.passed_over)} passed "
          f"over; milestones without a provider: {len(report.unprovided)}")
    for problem in problems:
        print(screen.paint("red", problem))
    if problems:
        print(screen.paint("red", "The boot did not go as it should."))
        return 1
    print(screen.paint("green", "The boot went as it should."))
    return 0


if __name__ == "__main__":
    sys.exit(main())
