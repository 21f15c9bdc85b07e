"""A scratch host in which a whole run is repeated under limits, and what is expected of each run."""

import os
import re
import signal
import types

import scratch_host
from errors import NOT_STOPPED
from outcome import Outcome
from scenarios import Terminal

LIMIT = 45.0  # seconds: the longest patience of the programs is 10 s, and some wait twice
REST = 12.0  # seconds for what is left behind to end by itself
RUNS_FOR_A_HOST = 60
# The loader, or the C++ library where there is no heap at all.
NOT_LOADED = re.compile(r"error while loading shared libraries|cannot allocate TLS|"
                        r"terminate called without an active exception")

BEGUN = re.compile(r"(error|warning|notice|info) \w+\[N\]: ")  # as outcomes mask them
NO_MEMORY = re.compile(r"std::bad_alloc|out of memory while a message was formatted")


class Failure(AssertionError):
    """Something that must not be."""


def expect(condition, text, host):
    if not condition:
        raise Failure(f"{text}\n{host.describe()}")


class Stage:
    """A host for one scenario, made anew now and then: one keeps what all of its processes said."""

    def __init__(self, scenario):
        self.scenario, self.host, self.runs = scenario, None, 0
        self.baseline = None

    def __enter__(self):
        self.fresh()
        runs = [self.run() for _ in range(3)]
        self.baseline = runs[0].outcome
        for run in runs:
            if run.hung or run.left or run.outcome.broken or run.outcome.temporary or \
                    run.outcome.effects != self.baseline.effects:
                raise Failure(f"{self.scenario.name}: runs without limits are no measure\n"
                              f"{self.host.describe()}")
            self.baseline.told |= run.outcome.told
        return self

    def __exit__(self, *_):
        self.close()

    def fresh(self, arrange=None):
        self.close()
        self.host, self.runs = scratch_host.ScratchHost(), 0
        if arrange:
            arrange(self.host)
        self.scenario.prepare(self.host)

    def close(self):
        if self.host:
            for process in self.host.processes():
                process.signal(signal.SIGKILL)
            self.host.close()
            self.host = None

    def run(self, prepare=None, **limits):
        """One run: its outcome, the processes that it left, and whether it hung."""
        if self.runs >= RUNS_FOR_A_HOST:
            self.fresh()
        self.runs += 1
        host = self.host
        self.scenario.reset(host)
        if prepare:
            prepare(host)
        marks = len(host.kernel.text), len(host.system_log.messages)
        terminal = host.attach(Terminal()) if self.scenario.terminal else None
        streams = {"stdout": terminal.slave, "extra": {0: terminal.slave}} if terminal else {}
        process = host.start(*self.scenario.words, **streams, **limits)

        def ended():
            if terminal and process.status is None:
                terminal.answer()
            return process.status is not None
        hung = not self._settle(ended, LIMIT)
        left = [] if not hung and self._settle(lambda: not host.processes(), 3) else \
            self._left(hung)
        host.drain()
        outcome = Outcome(host, process, self.scenario, terminal, marks)
        outcome.errors = process.stderr.decode(errors="replace")
        if terminal:
            host.detach(terminal)
        return types.SimpleNamespace(outcome=outcome, left=left, hung=hung)

    def _left(self, hung):
        """What stays, after some patience with those who are not executors."""
        host = self.host
        if not hung:
            self._settle(lambda: len(host.processes()) == len(host.executors()), REST)
            return host.processes()
        left = host.processes()
        for process in left:
            process.signal(signal.SIGKILL)
        self._settle(lambda: not host.processes(), REST)
        return left

    def _settle(self, condition, seconds):
        try:
            self.host.wait_for(condition, "it", seconds)
            return True
        except scratch_host.Timeout:
            return False

    # What is expected

    def check(self, title, run, reason, killed=False, lift=None):
        """Raises Failure; returns what became of the limit. `reason` is the text of the error that
        a message should have, `killed` tells that the kernel may end processes at this limit,
        `lift` takes it from an executor that is left."""
        outcome, host = run.outcome, self.host
        new = outcome.told - self.baseline.told
        different = sorted(key for key in self.baseline.effects
                           if outcome.effects[key] != self.baseline.effects[key])
        status = outcome.status
        says = f"{title}: status {status}, differs in {different}, told {sorted(new)[:12]}"
        expect(not run.hung, f"{says}: it had not ended after {LIMIT:g} s: {run.left}", host)
        expect(not outcome.broken, f"{says}: {outcome.broken}", host)
        expect(not outcome.temporary or killed and status == -signal.SIGKILL,
               f"{says}: it left {outcome.temporary}", host)
        # Before main, the loader ends a program with 127, or it dies where it has no memory at all.
        unborn = not any(BEGUN.search(line) for line in outcome.lines) and (
            NOT_LOADED.search(outcome.errors) or
            status in (-signal.SIGSEGV, -signal.SIGKILL, 126))
        if unborn:
            expect(not run.left, f"{says}: it left {run.left}", host)
            self._run_again(title, lift)
            return "not loaded"
        if status == -signal.SIGABRT and NO_MEMORY.search(outcome.errors):
            # Not even a message could be made; the executor is left to the next run.
            self._run_again(title, lift)
            return "aborted"
        if not killed or status != -signal.SIGKILL:
            # What scripts and plugins do is theirs; their status is passed on.
            foreign = self.scenario.name in ("launch", "native-executor")
            expect(status in self.scenario.statuses or foreign, f"{says}: a wrong status", host)
            expect(not different and status == self.baseline.status or new or foreign and status,
                   f"{says}: nothing is told", host)
            self._look_for_silence(says, outcome)
            said = any(text in line for text in NOT_STOPPED for line in outcome.lines)
            expect(not run.left or said or killed, f"{says}: it left {run.left}", host)
        self._run_again(title, lift)
        if status == -signal.SIGKILL:
            return "killed"
        if not new:
            return "harmless"
        lines = outcome.lines - self.baseline.lines
        return "named" if any(re.search(reason, line) for line in lines) else "told"

    def _look_for_silence(self, says, outcome):
        """Whoever has not run is named, unless the whole run has failed."""
        if outcome.status != 0:
            return
        new = outcome.lines - self.baseline.lines
        # Without the list of scripts no script is known; the upgrade is nobody's plugin.
        if any("chkconfig -p" in line for line in new):
            return
        for note in self.baseline.effects["notes"]:
            name = "second" if note.startswith("/") else note.split(" ")[0]
            expect(note in outcome.effects["notes"] or name == "upgrade" or
                   any(name in line for line in new),
                   f"{says}: {note!r} is missing, and nobody says so", self.host)

    def _run_again(self, title, lift):
        """Without the limit everything is as ever, and nobody stays: an executor that could not be
        told to end is used and ended by the next run."""
        if lift:
            lift()
        run = self.run()
        effects = run.outcome.effects
        expect(not run.hung and not run.left and effects == self.baseline.effects and
               run.outcome.status == self.baseline.status,
               f"{title}: the next run, without the limit, ended with {run.outcome.status}, left "
               f"{run.left}, did {effects}, not {self.baseline.effects}", self.host)


def free_of(path):
    volume = os.statvfs(path)
    return volume.f_bavail, volume.f_ffree
