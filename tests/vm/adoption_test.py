"""A real Debian is adopted by bootforge-adopt, boots, and is given back.

usage: adoption_test.py KERNEL DEBIAN-ROOT PACKAGES BUSYBOX

Three boots of one disk with our Debian package: as Debian boots, adopted, and as Debian boots again, when
the package has been removed from the adopted host.
"""

import glob
import os
import shutil
import sys
import tempfile
import unittest

import debian_image
from machine import EMULATOR, Machine

SKIPPED = 77
DAEMONS = {"chronyd", "cron", "dbus-daemon", "memcached", "nginx", "redis-server", "sshd"}
SCRIPTS = {"chrony", "cron", "dbus", "memcached", "nginx", "redis-server", "ssh"}
# Also what is there only while it is looked at; the relay is the launchers'.
OTHERS = {"sh", "ps", "test-shell", "stderr-relay"}
# Everything that the program may change. What a boot writes itself is left out.
LOOK = ("find /etc /usr/bin /usr/sbin /usr/lib/nimbus ! -type d ! -name adjtime ! -name mtab "
        "! -name 'ld.so.cache' -printf '%p %y %m %U %G %i %s %T@ %l\\n' 2>/dev/null | sort")
# What the package itself brings there, but for the file of logrotate, which only a purge takes away.
PACKAGED = ("/usr/bin/hypcli", "/usr/sbin/bootforge", "/usr/lib/nimbus/")
PROFILE = "/var/log/sysboot.log"


class Adoption(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="bootforge-adoption-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.initramfs = debian_image.make_initramfs(self.folder, KERNEL, BUSYBOX)
        self.disk = debian_image.make_disk(self.folder, DEBIAN, PACKAGE, BUSYBOX)

    def machine(self):
        return Machine(f"{KERNEL}/vmlinuz", self.initramfs, self.disk, "")

    def processes(self, guest):
        """The names of the processes that are no kernel threads."""
        guest.wait_until("[ \"$(ps -eo comm= | sort -u | grep -cxE '" + "|".join(DAEMONS) +
                         f"')\" = {len(DAEMONS)} ]")
        rows = [line.split(None, 2) for line in guest.run("ps -eo pid=,ppid=,comm=").splitlines()]
        return {name for pid, parent, name in rows if "2" not in (pid, parent)} - OTHERS

    def look(self, guest):
        return set(guest.run(LOOK).splitlines())

    def assert_as_it_was(self, guest, before):
        now = self.look(guest)
        self.assertEqual((sorted(before - now), sorted(now - before)), ([], []))

    def switch_off(self, guest):
        guest.run("sync; poweroff")
        self.assertEqual(guest.wait_for_end(), 0, guest.describe())

    def manage(self, guest, action):
        said = guest.run(f"dpkg {action} 2>&1; echo status=$?")
        self.assertTrue(said.endswith("status=0\n"), said)

    def enable(self, guest):
        self.assertNotIn("bootforge-adopt:", guest.run("bootforge-adopt enable"))
        self.assertEqual(guest.run("bootforge-adopt status; echo $?")[-2:], "0\n")

    def test_the_same_daemons_live_before_with_and_after_it(self):
        with self.machine() as guest:
            usual = self.processes(guest)
            self.assertLessEqual(DAEMONS, usual)
            self.manage(guest, "--install /root/bootforge_*.deb")
            before = self.look(guest)
            self.assertEqual(guest.run("bootforge-adopt status"), "not adopted\n")
            self.enable(guest)
            self.switch_off(guest)
        with self.machine() as guest:
            self.assertEqual(self.processes(guest), usual)
            profile = guest.run(f"cat {PROFILE}")
            for script in SCRIPTS:
                self.assertIn(f"] daemon: {script}\n", profile)
            self.assertEqual(guest.run("stat -c '%a %U' /run/nimbus"), "755 root\n")
            self.assertEqual(guest.run("bootforge-adopt disable"),
                             "it is adopted no longer; every file is as it was before\n")
            self.assert_as_it_was(guest, before)
            # Who removes the package from a host that it boots gets a host that boots.
            self.enable(guest)
            self.manage(guest, "--remove bootforge")
            before = {line for line in before if not line.startswith(PACKAGED)}
            self.assert_as_it_was(guest, before)
            guest.run(f"rm {PROFILE}")
            self.switch_off(guest)
        with self.machine() as guest:
            self.assertEqual(self.processes(guest), usual)
            self.assertEqual(guest.run(f"ls {PROFILE} /run/nimbus 2>/dev/null"), "")
            self.assert_as_it_was(guest, before)
            self.switch_off(guest)


if __name__ == "__main__":
    KERNEL, DEBIAN, packages, BUSYBOX = sys.argv[1:5]
    PACKAGE = "".join(glob.glob(f"{packages}/bootforge_*.deb"))
    for needed, there in ((packages, PACKAGE), (KERNEL, os.path.exists(f"{KERNEL}.complete")),
                          (DEBIAN, os.path.exists(f"{DEBIAN}.complete")),
                          (EMULATOR[0], shutil.which(EMULATOR[0])),
                          ("mkfs.ext4", shutil.which("mkfs.ext4"))):
        if not there:
            print(f"skipped: there is no {needed}")
            sys.exit(SKIPPED)
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]], verbosity=2)
