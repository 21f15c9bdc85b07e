#!/usr/bin/env python3
"""Real boots, and what bootforge-analyze makes of their logs: both must agree.

A host with plugins of every kind, which sleep and compute, is booted with one, two and four workers,
each kind of boot three times. The error of the model is the median of these. Of a change the shortest
boots are compared, since what else the machine does only makes boots longer; where they do not agree,
more boots of both kinds are made, twice at most.
"""

import functools
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../host"))

# pylint: disable=wrong-import-position
import host_case
from root_folder import BOOTFORGE, PLUGINS, PROFILE

ANALYZE = "/usr/bin/bootforge-analyze"
LABOUR = "/usr/bin/labour"
LINE = re.compile(r"^\[(.*) - .*\] (?:sysboot|daemon): (.*)$", re.M)
BOOTS = 3
ATTEMPTS = 3
MODEL_ERROR = 0.05  # of the simulation of what was recorded
CHANGE_ERROR = 0.10  # of what a change promises

# name: (kind, requires, provides, milliseconds asleep, milliseconds of computing, commands)
BOOT = {
    "address": ("json", [], ["net"], 120, 0, 6),
    "volumes": ("json", [], ["disk"], 200, 0, 8),
    "accounts": ("json", ["disk"], ["accounts"], 100, 20, 4),
    "routes": ("json", ["net"], [], 100, 0, 5),
    "rotation": ("json", ["disk"], ["log"], 90, 0, 3),
    "mark": ("json", ["net", "log"], [], 0, 0, 0),
    "clock": ("native", [], ["clock"], 20, 60, 0),
    "firmware": ("native", [], ["firmware"], 260, 0, 0),
    "inventory": ("native", [], [], 160, 0, 0),
    "sensors": ("native", ["clock"], [], 50, 30, 0),
    "storage": ("native", ["disk", "firmware"], ["storage"], 180, 0, 0),
    "agent": ("native", ["net", "clock"], [], 140, 0, 0),
    "web": ("native", ["accounts", "storage"], [], 110, 0, 0),
}
# name: (priority, milliseconds asleep, milliseconds of computing)
DAEMONS = {"syslogging": (10, 100, 0), "timekeeping": (10, 160, 0), "events": (10, 60, 40),
           "storing": (20, 200, 0), "guests": (20, 150, 0), "licences": (20, 90, 20),
           "heartbeat": (20, 120, 0), "cleaning": (30, 140, 0)}


def compile_labour(*options):
    """Returns the bytes of a build of labour.c."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["cc", "-O1", "-I", f"{HERE}/../../include", "-o", f"{folder}/labour",
                        *options, f"{HERE}/labour.c"], check=True)
        with open(f"{folder}/labour", "rb") as file:
            return file.read()


@functools.lru_cache(maxsize=None)
def native_plugin(requires, provides, asleep, computing):
    def listed(names):
        return "".join(f'"{name}",' for name in names)

    return compile_labour("-shared", "-fPIC", f"-DREQUIRES={listed(requires)}",
                          f"-DPROVIDES={listed(provides)}", f"-DSLEEPS={asleep}",
                          f"-DCOMPUTES={computing}")


class Recorded:
    """One boot and what the analyzer says of its log."""

    def __init__(self, host, names, daemons):
        self.host, self.daemons = host, daemons
        starts = {name: start for start, name in LINE.findall(host.read(PROFILE).decode())
                  if name in names}
        assert set(starts) == names, starts
        self.order = sorted(starts, key=starts.get)
        told = self.ask("blame")
        self.makespan, self.workers = told["boot"]["makespan"], told["boot"]["workers"]
        self.work = {each["name"]: each["work"] for each in told["plugins"]}

    def ask(self, verb, *words):
        options = ["--daemons"] if self.daemons else []
        done = subprocess.run([self.host.path(ANALYZE), verb, f"--root={self.host.root}",
                               "--format=json", *options, *map(str, words)], timeout=60,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        if done.returncode != 0 or done.stderr:
            raise AssertionError(f"{verb} {words}: {done.returncode}, {done.stderr.decode()}")
        return json.loads(done.stdout)

    def simulate(self, workers, *change):
        return self.ask("simulate", "--workers", workers, *change)["runs"][0]


class Series:
    """Boots of one kind."""

    def __init__(self, make):
        self.make, self.boots = make, []
        self.grow()

    def grow(self):
        self.boots += [self.make() for _ in range(BOOTS)]

    def least(self):
        return min(boot.makespan for boot in self.boots)


class RecordedBoots(host_case.HostCase):
    def setUp(self):
        super().setUp()
        processors = os.sched_getaffinity(0)
        self.addCleanup(os.sched_setaffinity, 0, processors)
        self.processors = sorted(processors)

    def narrow(self, workers):
        """Hosts that are made from now on run in parallel with so many workers, or serially."""
        if workers > 1:
            count = workers // 2  # two workers for each processor
            if count > len(self.processors):
                self.skipTest(f"{workers} workers want {count} processors")
            os.sched_setaffinity(0, self.processors[:count])
        return ["--parallel"] if workers > 1 else []

    def recorded_boot(self, workers, plugins, *options):
        parallel = self.narrow(workers)
        host = self.host()
        host.write(LABOUR, compile_labour(), 0o755)
        host.command("labour do", [LABOUR, "{asleep}", "{computing}"],
                     asleep={"short": "a", "required": True},
                     computing={"short": "c", "required": True})
        for name, (kind, requires, provides, asleep, computing, commands) in plugins.items():
            if kind == "native":
                host.write(f"{PLUGINS}/lib{name}.so", native_plugin(
                    tuple(requires), tuple(provides), asleep, computing))
            else:
                line = f"labour do --asleep={asleep / max(1, commands):g} " \
                       f"--computing={computing / max(1, commands):g}"
                host.plugin(name, requires, provides, [line] * commands)
        boot = host.boot(*parallel, *options)
        self.assertEqual(boot.status, 0)
        self.assertNotIn(b"failed", boot.stdout)
        disabled = {option.partition("=")[2] for option in options}
        return Recorded(host, set(plugins) - disabled, daemons=False)

    def recorded_daemons(self, workers, scripts):
        parallel = self.narrow(workers)
        host = self.host()
        host.write(LABOUR, compile_labour(), 0o755)
        os.symlink("/usr/lib/nimbus/bootforge/chkconfig", host.path("/bin/chkconfig"))
        host.remove("/etc/init.d/evtd")
        for name, (priority, asleep, computing) in scripts.items():
            host.script(f"/etc/init.d/{name}", f"# chkconfig: 2345 {priority} 10\n"
                        f"exec {LABOUR} {asleep} {computing}\n")
        run = host.run(BOOTFORGE, "--daemon", "--method=start", *parallel)
        self.assertEqual(run.status, 0)
        return Recorded(host, set(scripts), daemons=True)

    def check_model(self, series, workers):
        """The boots as they were, by the model."""
        boots = series.boots
        self.assertEqual(statistics.median(boot.workers for boot in boots), workers)
        errors = [boot.ask("simulate", "--workers", 1)["model_error"] for boot in boots]
        self.assertLessEqual(abs(statistics.median(errors)), MODEL_ERROR, errors)
        for boot, error in zip(boots, errors):
            again = boot.simulate(boot.workers)["makespan"]
            self.assertAlmostEqual(again / (boot.makespan * (1 + error)), 1, places=5)
            if workers == 1:
                self.assertEqual(boot.simulate(1)["order"], boot.order)

    def check_change(self, series, workers, changed, words_of):
        """What the analyzer promises of the boots as they were, and what changed boots measure."""
        for attempt in range(ATTEMPTS):
            if attempt > 0:
                series.grow()
                changed.grow()
            words = words_of(changed)
            promised = min(boot.simulate(workers, *words)["makespan"] for boot in series.boots)
            measured = changed.least()
            if abs(promised / measured - 1) <= CHANGE_ERROR:
                self.assertGreater(abs(series.least() / measured - 1), CHANGE_ERROR / 2,
                                   f"{words} changes nothing, so nothing is shown")
                return
        self.fail(f"{workers} workers, {words}: {promised} us promised, {measured} us measured")

    def check_set(self, series, workers, name, changed):
        """One plugin takes longer. How long is measured too, because a busy machine adds to it."""
        def words_of(changed):
            return ["--set", f"{name}={min(boot.work[name] for boot in changed.boots)}"]
        self.check_change(series, workers, changed, words_of)

    def check_without(self, series, workers, name, changed):
        self.check_change(series, workers, changed, lambda _: ["--without", name])

    def check_boots(self, workers):
        def several(plugins, *options):
            return Series(lambda: self.recorded_boot(workers, plugins, *options))

        series = several(BOOT)
        self.check_model(series, workers)
        # A native plugin, longer; one with commands, longer; and one that is left out.
        self.check_set(series, workers, "web", several(
            {**BOOT, "web": ("native", ["accounts", "storage"], [], 600, 0, 0)}))
        self.check_set(series, workers, "accounts", several(
            {**BOOT, "accounts": ("json", ["disk"], ["accounts"], 520, 20, 18)}))
        self.check_without(series, workers, "volumes", several(BOOT, "--disable-plugins=volumes"))

    def check_daemons(self, workers):
        def several(scripts):
            return Series(lambda: self.recorded_daemons(workers, scripts))

        series = several(DAEMONS)
        self.check_model(series, workers)
        self.check_set(series, workers, "storing", several({**DAEMONS, "storing": (20, 600, 0)}))
        self.check_without(series, workers, "cleaning", several(
            {name: script for name, script in DAEMONS.items() if name != "cleaning"}))

    def test_one_worker_takes_as_long_and_the_same_order(self):
        self.check_boots(1)

    def test_two_workers_take_as_long_as_the_model_says(self):
        self.check_boots(2)

    def test_four_workers_take_as_long_as_the_model_says(self):
        self.check_boots(4)

    def test_daemons_on_one_worker_take_as_long_and_the_same_order(self):
        self.check_daemons(1)

    def test_daemons_on_four_workers_take_as_long_as_the_model_says(self):
        self.check_daemons(4)


if __name__ == "__main__":
    host_case.main()
