"""Drawn boots of any size, as a root with descriptions, a profiling log and a capture of messages."""

import heapq
import json
import random
from pathlib import Path

BEGIN = "2026-03-05 07:04:"
LOG_END = ("=== Bootforge configuration info ===\n Start: {0}\n End: {0}\n Verbose: 0\n Parallel: 1\n"
           " Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n")


def stamp(moment):
    """A moment in microseconds as the log has it; None was never taken."""
    if moment is None:
        return "1970-01-01 00:00:00.000000"
    seconds, microseconds = divmod(moment, 1000000)
    return f"2026-03-05 07:{4 + seconds // 60:02d}:{seconds % 60:02d}.{microseconds:06d}"


def write_boot(root, plugins, lines, messages=""):
    """plugins: name -> (requires, provides, commands); lines: (name, start, end) of the log."""
    folder = Path(root) / "usr/libexec/bootforge/plugins"
    folder.mkdir(parents=True, exist_ok=True)
    for name, (requires, provides, commands) in plugins.items():
        (folder / f"{name}.json").write_text(json.dumps(
            {"metadata": {"version": 1, "requires": requires, "provides": provides},
             "operations": {"start": commands}}))
    log = Path(root) / "var/log/sysboot.log"
    log.parent.mkdir(parents=True, exist_ok=True)
    text = "HVKernel Initialization Time: 7000000\n"
    text += "".join(f"[{stamp(start)} - {stamp(end)}] sysboot: {name}\n"
                    for name, start, end in lines)
    log.write_bytes((text + LOG_END.format(stamp(0))).encode("utf-8", "surrogateescape"))
    capture = Path(root) / "messages"
    capture.write_bytes(messages.encode("utf-8", "surrogateescape"))
    return capture


def drawn(root, count, workers=8, seed=1):
    """A boot of so many plugins in layers; gives the path of its messages."""
    draw = random.Random(seed)
    plugins, providers = {}, []
    for number in range(count):
        name = f"plugin-{number:04d}"
        requires = []
        if number > workers:
            near = range(max(0, number - 60), number - workers // 2)
            requires = [f"milestone-{draw.choice(near):04d}" for _ in range(draw.choice((1, 1, 2, 3)))]
        commands = [f"network tune {number}"] if draw.random() < 0.6 else []
        plugins[name] = (sorted(set(requires)), [f"milestone-{number:04d}"], commands)
        providers.append(name)
    lines, ends, free = [], {}, [(0, worker) for worker in range(workers)]
    heapq.heapify(free)
    messages = []
    for number, name in enumerate(providers):
        requires = plugins[name][0]
        ready = max((ends[int(milestone[-4:])] for milestone in requires), default=0)
        at, worker = heapq.heappop(free)
        start = max(at, ready) + draw.randrange(5, 40)
        end = start + int(draw.lognormvariate(9, 1))
        ends[number] = end
        heapq.heappush(free, (end, worker))
        lines.append((name, start, end))
        seconds = f"{7 + start / 1e6:.6f}"
        messages.append((start, f"[{seconds:>12}] bootforge: Activating Bootforge plugin {name}."))
        failed = number % 97 == 50
        tail = f"{name} activation failed: Method invocation failed: {name}->start() failed: status 3" \
            if failed else f"{name} activated."
        messages.append((end, f"[{7 + end / 1e6:>12.6f}] bootforge: Bootforge plugin {tail}"))
    text = "".join(line + "\n" for _, line in sorted(messages))
    return write_boot(root, plugins, lines, text)


# Names that would end an element, begin a comment, change the direction or clear a terminal.
HOSTILE = ["</script><script>window.broken = true</script>", "<!--<script>", "quo\"te'&amp;<b>",
           "\u05e9\u05dc\u05d5\u05dd", "\u202eright-to-left", "escape\x1b[2J\x07", "caf\udce9",
           "\u2028line\u2029"]


def small(root):
    """A boot with a bit of everything; gives the path of its messages."""
    plugins = {
        "network": ([], ["net"], ["network up"]),
        "disk": ([], ["disk"], ["disk mount"]),
        "log": (["disk"], ["log"], ["log start"]),
        "web": (["net", "log"], ["service"], ["web start"]),
        "clock": ([], ["time"], []),
        "left": (["web-ready"], [], []),
        "choice": ([], [], []),
        "unused": ([], [], []),
    }
    lines = [("network", 0, 1200000), ("disk", 500, 800000), ("log", 800100, 1500000),
             ("web", 1500020, 2900000), ("clock", 900, 1000), ("choice", 2000, None),
             ("left", None, None)]
    for number, name in enumerate(HOSTILE):
        lines.append((name, 1600000 + 100000 * number, 1650000 + 100000 * number))
        if "/" not in name:
            plugins[name] = (["net"], [f"after {name}"], [])
    messages = (
        "[    7.000000] bootforge: Activating Bootforge plugin network.\n"
        "[    8.200000] bootforge: Bootforge plugin network activated.\n"
        "[    8.500020] bootforge: Activating Bootforge plugin web.\n"
        "[    9.900000] bootforge: Bootforge plugin web activation failed: "
        "no <b>socket</b> & no \"port\"\n"
        "[    9.900010] bootforge: Bootforge plugin disk activated.\n")
    return write_boot(root, plugins, lines, messages)
