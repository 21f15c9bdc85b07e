"""The tables that bench/run prints, in the form in which docs/performance.md holds them."""

import re
import statistics

SIZES = (50, 200, 1000)


class Measurement:
    """All repetitions of one benchmark; seconds."""

    def __init__(self, name, runs):
        self.size = int((re.findall(r"/(\d+)", name) or ["1"])[0])
        unit = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3}
        self.median = statistics.median(run["real_time"] * unit[run["time_unit"]] for run in runs)
        each = {"best_ns": 1, "ns_each": self.size, "ns_per_node": self.size}
        self.best = min(run[counter] * times * 1e-9 for run in runs
                        for counter, times in each.items() if counter in run)
        self.runs = runs

    def most(self, counter):
        return max(run[counter] for run in self.runs)


def measurements(results):
    """By name, as in "reading/bare/1000"."""
    groups = {}
    for runs in results.values():
        for run in runs:
            name = re.sub(r"/(iterations:\d+|manual_time)", "", run["run_name"])
            groups.setdefault(name, []).append(run)
    return {name: Measurement(name, runs) for name, runs in groups.items()}


def shown(seconds):
    for unit, factor in (("s", 1), ("ms", 1e3), ("µs", 1e6), ("ns", 1e9)):
        if seconds * factor >= 1:
            break
    return f"{seconds * factor:.3g} {unit}" if seconds * factor < 1000 else f"{seconds:.0f} s"


def print_table(head, rows):
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    for row in (head, ["-" * width for width in widths], *rows):
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")
    print()


# What is measured, its benchmark, the floor that it stands against, the floor's benchmark, and the
# greatest ratio that is aimed at, by table.

PARALLEL = (("serial", ""), ("parallel", ", --parallel"))


def run_aim(size):
    """What a whole run may cost beside its floor: a short one shows its own start more."""
    return 1.10 if size < 200 else 1.08


DESCRIPTIONS = [
    (f"read {size:,} descriptions", f"reading/discovery/{size}",
     "bare read and parse", f"reading/bare/{size}", 1.3) for size in (50, 1000, 10000, 100000)]

IMAGES = [
    (f"{verb} {size:,} descriptions", f"reading/{verb}/{size}",
     "the orchestrator's reading", f"reading/discovery/{size}", None)
    for verb in ("verify", "plan") for size in (1000, 10000, 100000)]

# The verb "fleet" may take ten seconds for ten thousand logs; this is what it may cost beside reading
# them, so that a slower machine does not decide.
FLEETS = [
    (f"{size:,} logs of 200 plugins", f"reading/fleet/{size}",
     "reading their bytes", f"reading/bytes/{size}", 15.0) for size in (1000, 10000)]

COMMANDS = [
    ("command refused, at the socket", "refused_at_socket", "bare exchange", "bare", 1.5),
    ("command refused, runCommand", "refused", "bare exchange", "bare", 1.5),
    ("command that runs /bin/true", "command", "exchange + spawn", "bare_spawn", None)]

BOOTS = [
    *((f"boot of {size:,} plugins{note}", f"boot/{kind}/{size}",
       "one-worker spawn loop", f"boot/floor/{size}", run_aim(size))
      for kind, note in PARALLEL for size in SIZES),
    ("bootforge --help", "startUp/help", "/bin/true", "startUp/true", 1.25)]

# As many workers as the run has; for a chain, where no two scripts may run at a time, one.
DAEMON_STARTS = [
    *((f"start {size:,} daemons, {mode}{note}", f"daemons/shell/start/{mode}/{workers}/{size}",
       "spawn loop", f"daemons/shell/floor/{workers}/{size}", run_aim(size))
      for mode in ("wait", "nowait") for workers, note in PARALLEL for size in SIZES),
    *((f"start 1,000 daemons on 1,000 levels, wait{note}",
       f"daemons/chain/start/wait/{workers}/1000", "one-worker spawn loop",
       "daemons/chain/floor/serial/1000", run_aim(1000)) for workers, note in PARALLEL),
    *((f"start {size:,} daemons without a shell, wait{note}",
       f"daemons/static/start/wait/{workers}/{size}", "spawn loop",
       f"daemons/static/floor/{workers}/{size}", None)
      for workers, note in PARALLEL for size in (200, 1000))]

DAEMON_STOPS = [
    (label.replace("start", "stop"), ours.replace("/start/", "/stop/"), "start", ours, 1.05)
    for label, ours, *_ in DAEMON_STARTS]

NATIVE = [
    *((f"boot of {size:,} native plugins{note}", f"native/boot/{workers}/{size}",
       "dlopen loop, spawn loop of bare dlopen", f"native/floor/{workers}/{size}", run_aim(size))
      for workers, note in PARALLEL for size in SIZES),
    ("start of nativeExecutor", "native/executor", "bare dlopen", "native/bare", 2.0)]


PEERS = [
    (f"{label}, {size:,} services", f"peers/{kind}/{size}", "two-worker spawn loop",
     f"peers/floor/{size}", None)
    for kind, label in (("make", "make -j2"), ("ninja", "ninja -j2"),
                        ("native", "native plugins, --parallel"),
                        ("json", "commands, --parallel")) for size in SIZES]


def print_comparisons(title, comparisons, found):
    rows = []
    for label, ours, floor_label, floor, aim in comparisons:
        if ours not in found or floor not in found:
            continue
        ours, floor = found[ours], found[floor]
        rows.append([label, shown(ours.median), floor_label, shown(floor.median),
                     f"{ours.median / floor.median:.2f}", f"{ours.best / floor.best:.2f}",
                     f"<= {aim:.2f}" if aim else ""])
    if rows:
        print(f"## {title}\n")
        print_table(["what", "median", "against", "median", "ratio", "of minima", "aim"], rows)


def print_scheduling(found):
    workers = (1, 2, 4)
    has_peer = any(name.startswith("flowGraph/") for name in found)
    rows = []
    for shape in ("chain", "fan", "layers", "milestones"):
        for size in (10**3, 10**4, 10**5, 10**6):
            names = [f"floorOf/{shape}/{size}",
                     *(f"scheduling/{shape}/{size}/{count}" for count in workers)]
            if has_peer:
                names += [f"flowGraph/{shape}/{size}/{count}" for count in workers]
            if all(name in found for name in names):
                nodes = [found[name] for name in names]
                rows.append([f"{shape}, {size:,}", *(f"{node.median / size * 1e9:.0f} "
                                                     f"({node.best / size * 1e9:.0f})"
                                                     for node in nodes)])
    if rows:
        print("## Scheduling\n\nNanoseconds for each node, median (minimum)\n")
        each = ["1 worker", *(f"{count} workers" for count in workers[1:])]
        print_table(["shape, nodes", "floor", *each,
                     *(f"oneTBB, {words}" for words in each if has_peer)], rows)


# How much more a script may cost among 10,000 than among fewer: as the logarithms grow.
LEVEL_AIMS = {100: 2.0, 1000: 1.33}


def print_levels(found):
    rows = []
    for kind, scripts in (("one", "one level"), ("ascending", "a level each"),
                          ("shuffled", "a level each, made in random order"),
                          ("below", "a level each, made below the highest")):
        for step in ("build", "start", "stop"):
            nodes = [found.get(f"priority/{kind}/{step}/{size}") for size in (100, 1000, 10000)]
            if not all(nodes):
                continue
            each = [node.median / node.size for node in nodes]
            best = [node.best / node.size for node in nodes]
            rows.append([scripts, step, *(f"{seconds * 1e9:.0f}" for seconds in each),
                         *(f"{each[2] / each[i]:.2f} ({best[2] / best[i]:.2f})" for i in (0, 1))])
    if rows:
        print("## Levels of priority\n\n"
              "Nanoseconds for each script, median; ratio (of minima)\n")
        print_table(["scripts on", "", "100", "1,000", "10,000",
                     *(f"10,000 against {size:,}, aim <= {aim}"
                       for size, aim in LEVEL_AIMS.items())], rows)


def print_processor(found):
    """What a run uses beside its floor: the least of each, which hardly depends on the machine's load."""
    rows = []
    for label, ours, floor_label, floor, _ in (*BOOTS, *DAEMON_STARTS, *NATIVE):
        if ours not in found or floor not in found or found[ours].size != 1000:
            continue
        times = [min(run["processor_ns"] for run in found[name].runs) * 1e-9 for name in (ours, floor)]
        rows.append([label, shown(times[0]), floor_label, shown(times[1]),
                     f"{(times[0] - times[1]) * 1e3:.1f} ms", "<= 20 ms"])
    if rows:
        print("## Processor time\n")
        print_table(["what", "least", "against", "least", "more", "aim"], rows)


def print_memory(found):
    rows = []
    for program, run, name, counter, aim in (
            ("bootforge", "a boot of 1,000 plugins", "boot/serial/1000", "peak_kib", "<= 4 MiB"),
            ("the CLI executor", "a boot of 1,000 plugins", "boot/serial/1000",
             "executor_peak_kib", "<= 4 MiB"),
            ("bootforge", "a dump of 100,000 plugins", "boot/dump/100000", "peak_kib", "<= 150 MiB"),
            ("bootforge", "a start of 1,000 daemons", "daemons/shell/start/wait/serial/1000",
             "peak_kib", ""),
            ("bootforge", "a boot of 1,000 native plugins", "native/boot/serial/1000",
             "peak_kib", "")):
        if name in found:
            rows.append([f"{program} in {run}", f"{found[name].most(counter) / 1024:.1f} MiB", aim])
    if rows:
        print("## Peak memory\n")
        print_table(["what", "most", "aim"], rows)


def print_all(results):
    found = measurements(results)
    print_scheduling(found)
    print_levels(found)
    print_comparisons("Reading descriptions", DESCRIPTIONS, found)
    print_comparisons("Looking into images", IMAGES, found)
    print_comparisons("Many boots", FLEETS, found)
    print_comparisons("Commands", COMMANDS, found)
    print_comparisons("Whole boots and start-up", BOOTS, found)
    print_comparisons("Daemons", DAEMON_STARTS, found)
    print_comparisons("Stopping daemons", DAEMON_STOPS, found)
    print_comparisons("Native plugins", NATIVE, found)
    print_comparisons("Peers", PEERS, found)
    print_processor(found)
    print_memory(found)
