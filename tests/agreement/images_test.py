#!/usr/bin/env python3
"""Drawn images are booted in scratch hosts and looked at by bootforge-analyze; both must agree.

usage: images_test.py [--count N] [--seed S] [--only NUMBER] [--workers W]

The seed is printed; --seed S --only NUMBER draws one image again and shows all of it. What is
compared: agreement.py.
"""

import argparse
import collections
import json
import os
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../host"))

# pylint: disable=wrong-import-position
import isolation
import readings
import scratch_host
from agreement import STARTING, Agreement, name_of, plain
from drawn_image import draw_image
from host_case import SKIPPED
from root_folder import BOOTFORGE, COMMANDS, DEBUG_CONFIGURATION, EXECUTOR_LOG, PLUGINS

ANALYZE = "/usr/bin/bootforge-analyze"
# A host keeps what its processes said; a new one now and then costs less.
IMAGES_FOR_A_HOST = 50
ENDED = b"<6>bootforge: Bootforge plugin "
# For how many seconds a boot must be at rest before it counts as hanging.
SHORT_REST, LONG_REST = 0.01, 5.0
SHOWN = 3  # disagreements of one worker that are told in full


class Boot:
    """What a boot did: its status (None: it hung, and was ended), its log and the executor's."""

    def __init__(self, host, process, image):
        self.status = process.status
        self.left_behind = []
        self.lines = [(line.level, line.text) for line in process.lines]
        self.executor_lines = [(line.level, line.text)
                               for line in readings.log_lines(host.read(EXECUTOR_LOG) or b"")]
        self.with_host_profile = {
            plain(name_of(name)[0]).rstrip("\n") for name, entry in image.plugins.items()
            if not isinstance(entry, bytes) or b"pply" in entry or b"\\u0070\\u0070" in entry}


def analyze(host, verb, options):
    done = subprocess.run([host.path(ANALYZE), verb, f"--root={host.root}", "--format=json",
                           *map(os.fsencode, options)], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False, timeout=scratch_host.TIMEOUT)
    if done.returncode not in (0, 1):
        raise AssertionError(f"{verb}: exit status {done.returncode}\n{done.stderr.decode()}")
    return done.returncode, json.loads(done.stdout)


def is_at_rest(pid):
    """What tells whether a process has done anything meanwhile; None while it runs."""
    switches = []
    try:
        for task in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{task}/status", encoding="utf-8") as file:
                status = file.read()
            if "State:\tS" not in status:
                return None
            switches.append([line for line in status.splitlines() if "ctxt_switches" in line])
    except (FileNotFoundError, ProcessLookupError):
        return None
    return switches


def wait_until_it_hangs(host, process, count):
    """Waits until a boot has ended, or has come to rest. Where `count` plugins have ended, which is
    all that a boot is expected to do before it hangs, a short rest is enough; otherwise it may wait
    for what it started."""
    orchestrator = []
    last, since = None, time.monotonic()

    def hangs():
        nonlocal last, since
        if process.status is not None:
            return True
        if not orchestrator:
            # The executor has the same words; the orchestrator is the one that was started.
            orchestrator.extend(found for found in host.processes()
                                if process.pid in (found.inner_pid, found.pid))
            return False
        look = is_at_rest(orchestrator[0].pid)
        if look is None or look != last:
            last, since = look, time.monotonic()
            return False
        is_complete = count is not None and host.kernel.text.count(ENDED) >= count
        return time.monotonic() - since > (SHORT_REST if is_complete else LONG_REST)

    host.wait_for(hangs, "the boot to end, or to hang")
    host.drain()


def end_all(host):
    """Ends what a boot that hangs has left in its host."""
    def is_empty():
        for process in host.processes():
            process.signal(signal.SIGKILL)
        return not host.processes()
    host.wait_for(is_empty, "the host to be empty")


def boot_image(host, image, planned):
    """A boot and its end, its own or ours."""
    count = None
    if planned["blocked"]:
        count = sum(node["kind"] == "plugin" for node in planned["order"])
    host.kernel.text = b""
    process = host.start(BOOTFORGE, *image.options)
    try:
        wait_until_it_hangs(host, process, count)
        if process.status is not None:
            host.wait_for_executor_end()
        return Boot(host, process, image)
    except scratch_host.Timeout:
        boot = Boot(host, process, image)
        boot.left_behind = [str(left) for left in host.processes()]
        return boot
    finally:
        end_all(host)


def try_image(host, image, shown=False):
    """Boots an image and looks at it. Returns the Agreement."""
    image.write(host, PLUGINS, COMMANDS, DEBUG_CONFIGURATION)
    host.remove(EXECUTOR_LOG)
    verify_status, verified = analyze(host, "verify", image.options)
    _, planned = analyze(host, "plan", image.options)
    boot = boot_image(host, image, planned)
    listed = image.named or (host.listing() if image.has_folder else [])
    agreement = Agreement(image, listed, verified["findings"], planned, boot)
    has_errors = any(finding["severity"] == "error" for finding in verified["findings"])
    if boot.left_behind:
        agreement.problems.append(f"left behind: {boot.left_behind}")
    if verify_status != int(has_errors):
        agreement.problems.append(f"verify's exit status {verify_status}, errors: {has_errors}")
    if shown or agreement.problems:
        agreement.story = describe(host, image, verified, planned, boot)
    return agreement


def describe(host, image, verified, planned, boot):
    lines = [f"options: {image.options}"]
    for folder in (PLUGINS, COMMANDS):
        for where, _, names in os.walk(host.path(folder)):
            for name in sorted(names):
                path = os.path.join(where, name)
                text = b"?"
                if os.path.isfile(path) and not os.path.islink(path):
                    with open(path, "rb") as file:
                        text = file.read(1500)
                elif os.path.islink(path):
                    text = b"-> " + os.fsencode(os.readlink(path))
                lines.append(f"{path[len(host.root):]!r}: {text!r}")
    lines.append(f"debug: {image.debug!r}")
    lines += [f"verify: {finding}" for finding in verified["findings"]]
    lines.append(f"plan: {[node['name'] for node in planned['order']]}, "
                 f"blocked {planned['blocked']}")
    lines += [f"boot: {level} {text!r}" for level, text in boot.lines]
    lines += [f"executor: {level} {text!r}" for level, text in boot.executor_lines]
    lines.append(f"status {boot.status}")
    return "\n".join("  | " + line for line in lines)


class Worker:
    """Tries every W-th image in hosts of its own."""

    def __init__(self, arguments, objects):
        self.arguments, self.objects = arguments, objects
        self.counts = collections.Counter()

    def run(self, numbers):
        """Returns whether all of them agreed."""
        host = None
        try:
            for place, number in enumerate(numbers):
                if host is None or place % IMAGES_FOR_A_HOST == 0:
                    if host:
                        host.close()
                    host = scratch_host.ScratchHost()
                self.try_one(host, number)
        finally:
            if host:
                host.close()
        return self.counts["disagree"] == 0

    def try_one(self, host, number):
        image = draw_image(self.arguments.seed, number, self.objects)
        shown = self.arguments.only is not None
        try:
            agreement = try_image(host, image, shown)
        except BaseException:
            print(f"image {number}:", flush=True)
            raise
        self.counts["images"] += 1
        self.counts["clean"] += agreement.is_clean
        self.counts["hang"] += bool(agreement.blocked)
        self.counts["rejected"] += len(agreement.rejected)
        self.counts["plugins run"] += len(agreement.started)
        if agreement.problems:
            self.counts["disagree"] += 1
            if self.counts["disagree"] <= SHOWN or shown:
                print(f"image {number}:")
                for problem in agreement.problems:
                    print(f"    {problem}")
        if shown or (agreement.problems and self.counts["disagree"] <= SHOWN):
            print(agreement.story, flush=True)


def read_objects(folder):
    objects = {}
    for name in sorted(os.listdir(folder)):
        with open(f"{folder}/{name}", "rb") as file:
            objects[name.removesuffix(".so")] = file.read()
    return objects


def need_isolation():
    """Boots that hang are ended with the processes of their pid namespace."""
    if not isolation.isolation().pids:
        raise isolation.Unavailable("pid namespaces are not allowed here")


def fork_workers(arguments, objects):
    """Runs the images in processes of their own. Returns the sum of their counts."""
    pipes = []
    for index in range(arguments.workers):
        reader, writer = os.pipe()
        sys.stdout.flush()
        child = os.fork()
        if child == 0:
            status = 1
            try:
                isolation.prctl(isolation.PR_SET_PDEATHSIG, signal.SIGKILL)
                need_isolation()  # each worker has its own
                worker = Worker(arguments, objects)
                worker.run(range(index, arguments.count, arguments.workers))
                os.write(writer, json.dumps(worker.counts).encode())
                status = 0
            except isolation.Unavailable as unavailable:
                print(f"skipped: {unavailable}")
                status = SKIPPED
            except BaseException:  # told, and the child does not go on as the parent
                sys.excepthook(*sys.exc_info())
            finally:
                sys.stdout.flush()
                os._exit(status)
        os.close(writer)
        pipes.append((child, reader))
    counts = collections.Counter()
    for child, reader in pipes:
        with open(reader, "rb") as file:
            counts.update(json.loads(file.read() or b"{}"))
        status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        if status == SKIPPED:
            sys.exit(SKIPPED)
        counts["broken workers"] += status != 0
    return counts


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--seed", type=int,
                        default=os.environ.get("BOOTFORGE_SEED", str(int(time.time()))))
    parser.add_argument("--only", type=int, help="one image, shown whole")
    parser.add_argument("--workers", type=int, default=len(os.sched_getaffinity(0)))
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}", flush=True)
    objects = read_objects(os.environ["BOOTFORGE_AGREEMENT_OBJECTS"])
    started = time.monotonic()
    if arguments.only is not None:
        sys.exit(0 if Worker(arguments, objects).run([arguments.only]) else 1)
    counts = fork_workers(arguments, objects)
    print(", ".join(f"{name}: {count}" for name, count in counts.items())
          + f"; {time.monotonic() - started:.0f} s")
    # A run in which nothing was clean, hung or was rejected has compared nothing.
    too_few = [name for name in ("clean", "hang", "rejected")
               if arguments.count >= 100 and not counts[name]]
    if too_few:
        print(f"the images are not what they should be: no {too_few}")
    if counts["images"] != arguments.count or counts["disagree"] or counts["broken workers"]:
        print(f"again: {sys.argv[0]} --seed {arguments.seed} --only NUMBER")
        sys.exit(1)
    sys.exit(1 if too_few else 0)


if __name__ == "__main__":
    main()
