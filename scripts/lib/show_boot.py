#!/usr/bin/env python3
"""Boots a host and shows a person what happens: the log as it goes, then what came of it.

usage: show_boot.py [--interactive] [--daemons] [--brief] [--page FILE] [--expect-failed NAME]...
                    [--expect-daemon-failed NAME]... [--expect-unprovided MILESTONE]...
                    [--image OPTION]... --analyze PROGRAM
                    --root ROOT --host COMMAND [ARGUMENT...] --boot COMMAND [ARGUMENT...]

The COMMAND of --host makes the directory ROOT a host (private_host.py); that of --boot boots it.
PROGRAM, with the OPTIONs of --image, tells where the time went; --page says that the host is kept,
and where to show its boot as a page for a browser. --brief shows only how the boot went.
--interactive gives the boot the terminal on standard input; --daemons starts the host's daemons
afterwards, uses one of them, and stops them. Exit status: 0 when everything went as expected, 1
when it did not, 125 when the host could not be made.
"""

import argparse
import contextlib
import ctypes
import os
import signal
import sys

import analyzer as analyzers
import boot_report
import daemon_round
import host_session
import operator_terminal
import screen as screens

FILES = (
    ("/var/log/sysboot.log", "boot profiling log"),
    ("/bootbank/bootfrge.gz", "run-once record"),
    ("/var/log/syslog.log", "the host's system log"),
    ("/var/log/kernel.log", "what the program told the kernel's log"),
    ("/var/log/bootforge-hypcli-stdout.log", "CLI executor's log, output of the commands"),
    ("/var/log/console.log", "what the console showed"),
)
# The boot's section of the profiling log is the first; stopping the daemons is the third.
STARTED_DAEMONS = ("--daemons", "--section=1")
PR_SET_PDEATHSIG = 1  # of prctl(2)
# There while the host configures itself; the program takes it away at the end of the boot.
AUTOCONF_MARKER = "/var/run/nimbus/configstore/autoconf"


STATUS = "/usr/lib/nimbus/host/status"


@contextlib.contextmanager
def host_of(options):
    """The host, which ends first, however this process ends."""
    signals = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def leave(number, frame):
        raise SystemExit(128 + number)

    for number in signals:
        signal.signal(number, leave)
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)  # whoever started us may be killed
    host = host_session.HostSession(options.host)
    try:
        host.wait_until_ready()
        yield host
    finally:
        for number in signals:
            signal.signal(number, signal.SIG_IGN)
        host.close()


def boot(host, options, follower, analyzer):
    """Boots, following the log; the exit status."""
    try:
        if not options.interactive:
            return host.run(options.boot, follower.receive)
        with operator_terminal.OperatorTerminal(host.terminal, follower.receive) as terminal:
            status = host.run(options.boot, terminal.receive, terminal)
            terminal.finish()
            return status
    except SystemExit:
        host.close()  # its logs are whole now
        left = analyzer.unfinished()
        print(f"\nInterrupted; plugins that had not ended: {', '.join(left) or 'none'}")
        raise
    finally:
        follower.finish()


def named(runs, result):
    return [run for run in runs if run["result"] == result]


def show_troubles(screen, report, runs, daemons):
    for run in named(runs, "failed"):
        error = run["reason"].rpartition("() failed: ")[2]
        print(screen.paint("red", f"failed       {run['name']}: {error}"))
        for command, errors in report.reasons(run["name"]):
            print(f"                 {command}")
            for error in errors:
                print(f"                     {error}")
    for run in named(daemons, "failed"):
        error = run["reason"].rpartition("() failed: ")[2]
        print(screen.paint("red", f"failed       daemon {run['name']}: {error}"))
    for text in report.unusable:
        print(screen.paint("red", f"unusable     {text}"))
    for milestone, requirers in report.unprovided.items():
        print(screen.paint("yellow", f"unprovided   milestone {milestone}: no plugin provides it; "
                           f"required by {requirers}, which ran without it"))
    for text in report.passed_over:
        print(f"passed over  {text.removeprefix('ignoring plugin ')}")
    for text in report.injections:
        print(f"injection    {text.removeprefix('debug injection ')}")
    if not (named(runs + daemons, "failed") or report.unusable or report.unprovided):
        print("Nothing failed.")


def write_page(analyzer, page):
    if page and analyzer.show("report", analyzer.messages, f"--output={page}"):
        print(f"The boot as a page for a browser: {page}")


def show_files(report, kept):
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


def judge(report, runs, status, options):
    """What was not as expected, one sentence each."""
    problems = []

    def compare(what, expected, found):
        problems.extend(f"{what} {name}, which was not expected" for name in found - expected)
        problems.extend(f"not so: {what} {name}" for name in expected - found)

    if status:
        problems.append(f"the program ended with exit status {status}")
    # What others make of a plugin that the operator left out is for the operator to judge.
    if not named(runs, "skipped"):
        compare("failed:", set(options.expect_failed),
                {run["name"] for run in named(runs, "failed")})
    compare("no provider for milestone", set(options.expect_unprovided), set(report.unprovided))
    if report.unusable:
        problems.append(f"descriptions that are unusable: {len(report.unusable)}")
    known = {run["name"] for run in runs if run["result"] in ("activated", "failed", "skipped")}
    for name in report.plugin_files():
        base = os.path.splitext(name)[0].removeprefix("lib")
        if base not in known and not any(f"'{base}'" in text for text in report.passed_over):
            if not any(f" {name}: " in text for text in report.unusable):
                problems.append(f"{name} has not ended, or left no word of it in the kernel's log")
    if not report.run_once_record():
        problems.append("there is no run-once record")
    if os.path.exists(report.path(AUTOCONF_MARKER)):
        problems.append(f"automatic configuration was not ended: {AUTOCONF_MARKER} is still there")
    return problems


def read_options():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--interactive", action="store_true")
    parser.add_argument("--daemons", action="store_true")
    parser.add_argument("--brief", action="store_true")
    parser.add_argument("--page")
    parser.add_argument("--image", action="append", default=[])
    parser.add_argument("--analyze", required=True)
    parser.add_argument("--expect-failed", action="append", default=[])
    parser.add_argument("--expect-daemon-failed", action="append", default=[])
    parser.add_argument("--expect-unprovided", action="append", default=[])
    parser.add_argument("--root", required=True)
    # Commands with options of their own, which are not for us.
    words = sys.argv[1:]
    place = words.index("--host"), words.index("--boot")
    options = parser.parse_args(words[:place[0]])
    options.host, options.boot = words[place[0] + 1:place[1]], words[place[1] + 1:]
    return options


def show_all(screen, report, runs, daemons, status_text, options, analyzer):
    screen.title("What ran, and when")
    analyzer.show("blame", analyzer.messages)
    if daemons:
        screen.title("The daemons, as they were started")
        analyzer.show("blame", analyzer.messages, *STARTED_DAEMONS)
    screen.title("What did not go well, and why")
    show_troubles(screen, report, runs, daemons)
    screen.title("The host as it stood at the end")
    print(status_text.rstrip("\n") or "It has no status program.")
    screen.title("Where the files are")
    show_files(report, options.page)
    write_page(analyzer, options.page)
    screen.title("What kept the boot from ending sooner")
    analyzer.show("critical-chain")


def main():
    options = read_options()
    screen = screens.Screen()
    follower = screens.Follower(screen, options.root, silent=options.brief)
    analyzer = analyzers.Analyzer(options.analyze, options.root, options.image, screen.width)
    daemon_problems, status_text = [], ""
    try:
        with host_of(options) as host:
            if not options.brief:
                screen.title("The log as it goes")
            status = boot(host, options, follower, analyzer)
            boot_lines = list(follower.lines)
            if options.daemons:
                daemon_problems = daemon_round.go_round(host, options, screen, follower)
            if os.access(options.root + STATUS, os.X_OK):
                status_text = host.output([STATUS])
    except host_session.Gone:
        print("The host could not be made, or ended before its time.", file=sys.stderr)
        return 125

    report = boot_report.Report(options.root, boot_lines)
    runs = analyzer.runs()
    daemons = analyzer.runs(*STARTED_DAEMONS) if options.daemons else []
    if not options.brief:
        show_all(screen, report, runs, daemons, status_text, options, analyzer)
        screen.title("Outcome")
    else:
        write_page(analyzer, options.page)
    problems = judge(report, runs, status, options) + daemon_problems
    skipped = len(named(runs, "skipped"))
    by_operator = f"{skipped} skipped by the operator, " if skipped else ""
    print(f"{len(named(runs, 'activated'))} activated, {len(named(runs, 'failed'))} failed, "
          f"{by_operator}{len(report.passed_over)} passed over; milestones without a provider: "
          f"{len(report.unprovided)}")
    if options.daemons:
        print(f"daemons: {len(named(daemons, 'activated'))} of {len(daemons)} started")
    for problem in problems:
        print(screen.paint("red", problem))
    subject, they = "The boot", "it"
    if options.daemons:
        subject, they = "The boot and the round of the daemons", "they"
    if problems:
        print(screen.paint("red", f"{subject} did not go as {they} should."))
        return 1
    print(screen.paint("green", f"{subject} went as {they} should."))
    return 0


if __name__ == "__main__":
    sys.exit(main())
