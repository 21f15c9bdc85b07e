"""Limits of descriptors, processes, memory and disk, from nearly nothing upwards, each over whole
runs of every mode."""

import os
import tempfile

import cgroups
import isolation
from scenarios import SCENARIOS
from stage import free_of

KIB, MIB = 1 << 10, 1 << 20
OF_FILES = "Too many open files|Error 24"
OF_PROCESSES = "Resource temporarily unavailable"
OF_MEMORY = "Cannot allocate memory|bad_alloc|emory|Resource temporarily unavailable"
OF_DISK = "No space left on device"
OF_SIZE = "File too large"
BOOTS = ("init", "init-parallel")
PAGE = os.sysconf("SC_PAGE_SIZE")


class Sweep:
    """`cases` are values of the limit; attempt() makes one run with one of them."""

    reason = ""
    killed = False
    scenarios = [scenario.name for scenario in SCENARIOS]

    def why_not(self):
        return ""

    def attempt(self, stage, value):
        raise NotImplementedError

    def check(self, stage, value, run, lift=None):
        title = f"{self.name} {stage.scenario.name} {value}"
        return stage.check(title, run, self.reason, self.killed, lift)


class ResourceSweep(Sweep):
    def __init__(self, name, resource, values, reason):
        self.name, self.resource, self.values, self.reason = name, resource, values, reason

    def attempt(self, stage, value):
        return self.check(stage, value, stage.run(limits={self.resource: value}))


class GroupSweep(Sweep):
    """By a control group, which binds root as well."""

    def __init__(self, name, controller, values, reason, killed=False):
        self.name, self.controller, self.values = name, controller, values
        self.reason, self.killed = reason, killed

    def why_not(self):
        return cgroups.why_not(self.controller)

    def attempt(self, stage, value):
        with cgroups.group(self.controller) as group:
            group.limit(value)
            run = stage.run(groups=[group.processes])
            # An executor that could not be told to end is in the group until the next run.
            return self.check(stage, value, run, group.lift)


class DiskSweep(Sweep):
    """A small file system with so many free blocks and files."""

    name = "disk"
    reason = OF_DISK
    scenarios = ["init-parallel", "plain", "daemon-start"]
    values = [(folder, blocks, files) for folder in ("/var/log", "/bootbank", "/tmp",
                                                     "/var/run/nimbus")
              for blocks in (0, 1, 2, 3, 8) for files in (0, 1, 2, 3, 8)]

    def why_not(self):
        return "" if isolation.isolation().mounts else "mounts are not allowed here"

    def attempt(self, stage, value):
        folder, blocks, files = value
        stage.fresh(lambda host: host.tmpfs(folder, "size=512k,nr_inodes=200,mode=0755"))
        ballast = []
        run = stage.run(prepare=lambda host: ballast.extend(fill(host.path(folder), blocks, files)))
        for path in ballast:
            os.unlink(path)
        return self.check(stage, value, run)


def fill(folder, blocks, files):
    """Leaves so many blocks and files free; returns what takes the rest."""
    made = []
    while free_of(folder)[1] > max(files, 1):
        made.append(tempfile.mkstemp(prefix="ballast-", dir=folder))
    if files == 0 and free_of(folder)[1]:
        made.append(tempfile.mkstemp(prefix="ballast-", dir=folder))
    free = free_of(folder)[0] - blocks
    if free > 0:
        os.posix_fallocate(made[0][0], 0, free * PAGE)
    for number, _ in made:
        os.close(number)
    return [path for _, path in made]


def sizes(first, last, step):
    return list(range(first, last + 1, step))


SWEEPS = [
    ResourceSweep("descriptors", "NOFILE", sizes(3, 40, 1), OF_FILES),
    GroupSweep("processes", "pids", sizes(1, 24, 1), OF_PROCESSES),
    ResourceSweep("address space", "AS", sizes(1 * MIB, 16 * MIB, 256 * KIB) +
                  sizes(20 * MIB, 400 * MIB, 4 * MIB), OF_MEMORY),
    ResourceSweep("data", "DATA", sizes(0, 4 * MIB, 64 * KIB) + sizes(5 * MIB, 80 * MIB, MIB),
                  OF_MEMORY),
    GroupSweep("memory", "memory", sizes(256 * KIB, 12 * MIB, 128 * KIB), OF_MEMORY, killed=True),
    ResourceSweep("file size", "FSIZE", sizes(0, 1000, 50) + sizes(1024, 6144, 256), OF_SIZE),
    DiskSweep(),
]
