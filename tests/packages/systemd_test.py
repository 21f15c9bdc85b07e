#!/usr/bin/env python3
"""A Debian with systemd boots with our unit, and without it again when the package is gone.

usage: systemd_test.py ROOT PACKAGES

systemd is process 1 of namespaces of its own, as in a container; its control groups are below one that is
made for it.
"""

import glob
import os
import re
import select
import subprocess
import sys
import tempfile
import time
import unittest

import debian_root
import isolation  # debian_root knows the way

LIMIT = 120  # seconds for a boot
PLUGINS = "/usr/libexec/bootforge/plugins"
PROFILE = "/var/log/sysboot.log"
# Becomes process 1. What it says while nobody keeps a journal goes to standard output.
INIT = """
root=$1 group=$2
echo $$ >"$group/cgroup.procs"
exec unshare --cgroup --mount --pid --net --ipc --uts --fork --kill-child sh -ec '
    cd "$1"
    mount -t proc proc proc
    mount -t tmpfs tmpfs sys
    mkdir -p sys/fs/cgroup
    mount -t cgroup2 cgroup2 sys/fs/cgroup
    mount -t tmpfs tmpfs run
    mount -t tmpfs tmpfs tmp
    # Clock and kernel belong to the machine.
    exec setpriv --bounding-set=-sys_time,-sys_module,-sys_rawio \\
        chroot . env -i container=test PATH=/usr/sbin:/usr/bin:/sbin:/bin \\
        /sbin/init --log-target=console
' sh "$root"
"""


class Boot:
    """A running systemd in a DebianRoot, for a `with` statement."""

    def __init__(self, root, groups):
        self.group = tempfile.mkdtemp(prefix="bootforge-test-", dir=groups)
        self.log = tempfile.TemporaryFile()
        self.process = subprocess.Popen(["sh", "-ec", INIT, "sh", root.path, self.group],
                                        stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=subprocess.STDOUT)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        children = [os.pidfd_open(pid) for pid in self._children()]
        self.process.kill()
        self.process.wait()
        for child in children:
            # All of its processes end before it does.
            select.select([child], [], [], LIMIT)
            os.close(child)
        for folder, _, _ in os.walk(self.group, topdown=False):
            os.rmdir(folder)
        self.log.close()

    def _children(self):
        if self.process.poll() is not None:
            return []
        with open(f"/proc/{self.process.pid}/task/{self.process.pid}/children") as file:
            return [int(pid) for pid in file.read().split()]

    def run(self, *words):
        """Runs a command inside; returns its status and what it said."""
        init = self._children()
        if not init:
            return -1, ""
        done = subprocess.run(["nsenter", "--target", str(init[0]), "--all", "--root", "--wd", *words],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=LIMIT, check=False)
        return done.returncode, done.stdout

    def wait(self):
        """Waits until everything is started; returns the state in which systemd is then."""
        deadline = time.monotonic() + LIMIT
        said = ""
        while time.monotonic() < deadline and self.process.poll() is None:
            _, said = self.run("systemctl", "is-system-running")
            if said.strip() in ("running", "degraded", "maintenance"):
                return said.strip()
            time.sleep(0.1)
        self.log.seek(0)
        raise AssertionError(f"systemd did not boot: {said}\n{self.log.read().decode()}")


class Systemd(unittest.TestCase):
    maxDiff = None

    def boot(self, root):
        boot = Boot(root, GROUPS)
        try:
            self.assertEqual(boot.wait(), "running", boot.run("systemctl", "--failed"))
        except BaseException:
            boot.__exit__()
            raise
        return boot

    def test_the_unit_boots_and_is_gone_with_the_package(self):
        with debian_root.DebianRoot(LOWER, PACKAGES) as root:
            packages = [f"/packages/{os.path.basename(path)}"
                        for path in glob.glob(f"{PACKAGES}/bootforge_*.deb")]
            root.run("dpkg", "--install", *packages)
            os.mkdir(f"{root.path}/bootbank")
            for name, run_once in (("always", "false"), ("once", "true")):
                root.write(f"{PLUGINS}/{name}.json",
                           '{"metadata": {"version": 3, "requires": [], "provides": [], '
                           f'"run_once": {run_once}, "plugin_version": "1"}}, '
                           '"operations": {"start": []}}')
            root.run("bootforge-adopt", "enable")
            for ran in (["always", "once"], ["always"]):
                with self.boot(root) as boot:
                    self.assertEqual(boot.run("systemctl", "is-active", "bootforge"), (0, "active\n"))
                    self.assertEqual(boot.run("stat", "-c", "%a %U", "/run/nimbus"),
                                     (0, "755 root\n"))
                    profile = root.read(PROFILE)
                    # What did not run has no time.
                    self.assertEqual(sorted(re.findall(r"^\[2.*\] sysboot: (.*)$", profile, re.M)),
                                     ran, profile)
                    os.unlink(root.path + PROFILE)
            # An administrator removes it from the running host.
            with self.boot(root) as boot:
                status, said = boot.run("dpkg", "--remove", "bootforge")
                self.assertEqual(status, 0, said)
                os.unlink(root.path + PROFILE)
            with self.boot(root) as boot:
                self.assertNotEqual(boot.run("systemctl", "is-active", "bootforge")[0], 0)
                self.assertFalse(root.exists(PROFILE))


def control_groups():
    """A folder below which control groups can be made."""
    folder = tempfile.mkdtemp(prefix="bootforge-groups-")
    try:
        isolation.mount("cgroup2", folder, "cgroup2")
        os.rmdir(tempfile.mkdtemp(prefix="bootforge-test-", dir=folder))
    except OSError as error:
        debian_root.skip(f"no control groups can be had here: {error.strerror}")
    return folder


if __name__ == "__main__":
    PACKAGES, LOWER = (os.path.abspath(sys.argv.pop()) for _ in range(2))
    debian_root.need_root(LOWER)
    GROUPS = control_groups()
    program = unittest.main(exit=False)
    isolation.unmount(GROUPS)
    os.rmdir(GROUPS)
    sys.exit(not program.result.wasSuccessful())
