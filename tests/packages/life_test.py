#!/usr/bin/env python3
"""The packages are installed, upgraded, removed and purged in a bare Debian root, and nothing stays.

usage: life_test.py ROOT PACKAGES OLDER-PACKAGES
"""

import glob
import os
import re
import subprocess
import sys
import unittest

import debian_root

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../adopt"))
import scratch_root

HELPERS = "/usr/lib/nimbus/bootforge"
PLUGINS = "/usr/libexec/bootforge/plugins"
# What tells an adopted host from another one.
ADOPTED_FILE = {"sysvinit": scratch_root.INITTAB, "busybox": scratch_root.INITTAB,
                "systemd": scratch_root.UNIT}
LOGS = ("/var/log/sysboot.log", "/var/log/bootforge-hypcli-stdout.log")
NAMES = ("bootforge", "bootforge-analyze", "bootforge-dev", "bootforge-doc")
# What dpkg writes down about itself, and the index of the loader.
OWN = ("/proc", "/dev", "/packages", "/var/lib/dpkg/", "/var/log/dpkg.log", "/var/log/alternatives.log",
       "/var/cache/ldconfig", "/etc/ld.so.cache", "/var/log/apt", "/var/cache/apt", "/var/lib/apt")


def packages(folder):
    return [path for name in NAMES for path in glob.glob(f"{folder}/{name}_*.deb")]


def version(folder):
    return re.match(r"bootforge_(.*)_", os.path.basename(packages(folder)[0]))[1]


class Life(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.root = debian_root.DebianRoot(LOWER, os.path.dirname(NEW))
        self.addCleanup(self.root.__exit__)

    def install(self, folder):
        inside = [f"/packages/{os.path.relpath(path, os.path.dirname(NEW))}"
                  for path in packages(folder)]
        self.assertEqual(len(inside), len(NAMES))
        return self.root.run("dpkg", "--install", *inside)

    def boot(self):
        self.root.write(f"{PLUGINS}/somebodys.json",
                        '{"metadata": {"version": 3, "requires": [], "provides": [], '
                        '"run_once": true, "plugin_version": "1"}, "operations": {"start": []}}')
        os.makedirs(self.root.path + "/bootbank", exist_ok=True)
        self.assertIn("bootforge", self.root.run("bootforge"))

    def test_a_whole_life(self):
        root = self.root
        before = root.everything(OWN)
        self.install(OLD)
        self.assertEqual(root.run("dpkg", "--verify", *NAMES), "")
        older = version(OLD).rsplit("-", 1)[0]
        self.assertEqual(root.run("hypcli", "--version"), f"hypcli {older}\n")
        self.boot()
        root.write("/etc/init.d/somebodys", "#!/bin/sh\n# chkconfig: 3 10 90\n", 0o755)
        os.symlink(f"{HELPERS}/chkconfig", f"{root.path}/usr/bin/chkconfig")
        root.run("chkconfig", "--add-launchers")
        root.write("/etc/logrotate.d/bootforge", "# nothing here\n")

        said = self.install(NEW)
        newer = version(NEW).rsplit("-", 1)[0]
        self.assertNotEqual(newer, older)
        self.assertEqual(root.run("hypcli", "--version"), f"hypcli {newer}\n")
        self.assertEqual(root.run("bootforge-analyze", "--version"), f"bootforge-analyze {newer}\n")
        # The operator's things are as they were.
        self.assertNotIn("Configuration file", said)
        self.assertEqual(root.read("/etc/logrotate.d/bootforge"), "# nothing here\n")
        self.assertEqual(root.run("chkconfig", "-p"), f"{HELPERS}/init.d/somebodys 10\n")
        for path in (f"{PLUGINS}/somebodys.json", "/bootbank/bootfrge.gz", *LOGS):
            self.assertTrue(root.exists(path), path)

        root.run("dpkg", "--remove", *NAMES)
        for path in ("/usr/sbin/bootforge", HELPERS, "/usr/bin/chkconfig"):
            self.assertFalse(root.exists(path), path)
        for path in (f"{PLUGINS}/somebodys.json", "/etc/logrotate.d/bootforge",
                     "/bootbank/bootfrge.gz", *LOGS):
            self.assertTrue(root.exists(path), path)

        root.run("dpkg", "--purge", *NAMES)
        os.unlink(f"{root.path}/etc/init.d/somebodys")
        if "/etc/init.d" not in before:  # Debian 13 has it by the first package that wants it
            os.rmdir(f"{root.path}/etc/init.d")
        os.unlink(f"{root.path}{PLUGINS}/somebodys.json")
        os.removedirs(root.path + PLUGINS)  # what was not empty is left to whoever filled it
        os.rmdir(f"{root.path}/bootbank")
        after = root.everything(OWN)
        self.assertEqual({path: (before.get(path), after.get(path))
                          for path in before.keys() | after.keys()
                          if before.get(path) != after.get(path)}, {})

    def adopt(self, kind):
        """A host with this init, our packages, and its adoption. Returns what it was before that."""
        program = scratch_root.PROGRAMS[kind].decode()
        self.root.write("/usr/lib/systemd/systemd" if kind == "systemd" else "/usr/sbin/init", program,
                        0o755)
        if kind == "systemd":
            os.symlink("/lib/systemd/systemd", f"{self.root.path}/usr/sbin/init")
        else:
            self.root.write(scratch_root.INITTAB, scratch_root.TEXTS[kind])
        self.root.write("/etc/init.d/somebodys", "#!/bin/sh\n", 0o755)
        self.root.write("/etc/rc2.d/README", "")
        os.symlink("../init.d/somebodys", f"{self.root.path}/etc/rc2.d/S10somebodys")
        before = self.root.everything(OWN)
        self.install(OLD)
        self.root.run("bootforge-adopt", "enable")
        self.assertTrue(self.root.exists(scratch_root.RECORD))
        self.assertNotEqual(self.root.read(ADOPTED_FILE[kind]), scratch_root.TEXTS[kind])
        return before

    def upgrade_and_purge(self, kind):
        before = self.adopt(kind)
        adopted = self.root.read(ADOPTED_FILE[kind])
        self.install(NEW)
        self.assertEqual(self.root.read(ADOPTED_FILE[kind]), adopted)
        self.root.run("bootforge-adopt", "status")
        self.root.run("dpkg", "--purge", *NAMES)
        self.assertEqual(self.root.everything(OWN), before)

    def test_an_adopted_host_with_sysvinit_stays_so_and_is_given_back_at_the_end(self):
        self.upgrade_and_purge("sysvinit")

    def test_an_adopted_host_with_busybox_stays_so_and_is_given_back_at_the_end(self):
        self.upgrade_and_purge("busybox")

    def test_an_adopted_host_with_systemd_stays_so_and_is_given_back_at_the_end(self):
        self.upgrade_and_purge("systemd")

    def test_removal_is_refused_where_the_host_would_not_boot(self):
        self.adopt("sysvinit")
        edited = self.root.read(scratch_root.INITTAB).replace("--parallel", "--parallel --verbose")
        self.root.write(scratch_root.INITTAB, edited)
        for action in ("--remove", "--purge"):
            said = self.root.run("dpkg", action, *NAMES, status=1)
            self.assertIn("/etc/inittab: changed since, so that it cannot be taken back: ", said)
        # All that the edited file starts is still there, and configured.
        self.assertEqual(self.root.read(scratch_root.INITTAB), edited)
        self.assertTrue(self.root.exists(f"{HELPERS}/init.d/somebodys"))
        self.assertEqual(self.root.run("dpkg-query", "-W", "-f", "${db:Status-Status}", "bootforge"),
                         "installed")
        self.root.run("bootforge-adopt", "disable", "--force")
        self.root.run("dpkg", "--remove", *NAMES)
        self.assertEqual(self.root.read(scratch_root.INITTAB), scratch_root.SYSVINIT)

    def test_installed_and_purged_at_once(self):
        before = self.root.everything(OWN)
        self.install(NEW)
        self.assertNotEqual(self.root.everything(OWN), before)
        self.root.run("dpkg", "--purge", *NAMES)
        self.assertEqual(self.root.everything(OWN), before)

    def test_each_package_has_what_its_name_says(self):
        have = {}
        for path in packages(NEW):
            name = os.path.basename(path).split("_")[0]
            listed = subprocess.run(["dpkg-deb", "--fsys-tarfile", path], stdout=subprocess.PIPE,
                                    check=True).stdout
            have[name] = set(subprocess.run(["tar", "-tf", "-"], input=listed, stdout=subprocess.PIPE,
                                            check=True).stdout.decode().split("\n"))
        for name, paths in {
                "bootforge": ["usr/sbin/bootforge", "usr/bin/hypcli", "etc/logrotate.d/bootforge",
                              "usr/lib/tmpfiles.d/bootforge.conf", "usr/libexec/bootforge/plugins/",
                              "usr/share/man/man8/bootforge.8.gz"],
                "bootforge-analyze": ["usr/bin/bootforge-analyze"],
                "bootforge-dev": ["usr/include/bootforge/plugin.h",
                                  "usr/share/pkgconfig/bootforge.pc",
                                  "usr/share/cmake/bootforge/bootforgeConfig.cmake",
                                  "usr/share/doc/bootforge-dev/examples/c/swap_tuning.c"],
                "bootforge-doc": ["usr/share/doc/bootforge/docs/plugins.md",
                                  "usr/share/doc/bootforge/examples/host/etc/init.d/boot"]}.items():
            for path in paths:
                self.assertIn(f"./{path}", have[name])
        owners = {}
        for name, paths in have.items():
            for path in paths:
                if not path.endswith("/"):
                    owners.setdefault(path, []).append(name)
        self.assertEqual({path: owner for path, owner in owners.items() if path and len(owner) > 1}, {})


if __name__ == "__main__":
    OLD, NEW, LOWER = sys.argv.pop(), sys.argv.pop(), sys.argv.pop()
    debian_root.need_root(LOWER)
    unittest.main()
