"""What bootforge-adopt makes of hosts of every kind, and that nothing of it stays.

usage: adopt_test.py BOOTFORGE_ADOPT [TEST]...
"""

import os
import shutil
import subprocess
import sys
import unittest

from scratch_root import (INITTAB, KINDS, LIBRARY, LINKS, ORIGINAL, RECORD, START, STOP, SYSVINIT,
                          UNIT, WANTED, AdoptCase, main)

FOLDER = "/bin/mkdir -p -m 0755 /var/run/nimbus\n"


class Adopted(AdoptCase):
    def test_sysvinit_gets_its_lines(self):
        root = self.root("sysvinit")
        self.assertEqual(self.succeed(root, "enable"), [
            f"made 2 launchers in {LINKS}", f"linked /bin/chkconfig to {LIBRARY}/chkconfig",
            f"changed {INITTAB}; the original is {ORIGINAL}",
            "the next boot starts the init scripts with bootforge"])
        rc = "l2:2:wait:/etc/init.d/rc 2\n"
        self.assertEqual(root.read(), SYSVINIT.replace(
            rc, f"# bootforge-adopt: in the place of {rc}bfr:2:wait:{FOLDER}l2:2:wait:{START}"
        ).replace("l0:", f"# bootforge-adopt: before rc 0\nbf0:0:wait:{STOP}l0:").replace(
            "l6:", f"# bootforge-adopt: before rc 6\nbf6:6:wait:{STOP}l6:"))
        for name in ("cron", "ssh"):
            self.assertEqual(os.readlink(root.at(f"{LINKS}/{name}")), f"{LIBRARY}/launch")
        self.assertEqual(sorted(os.listdir(root.at(LINKS))), ["cron", "ssh"])

    def test_busybox_gets_its_lines_behind_the_first_and_before_the_last_things(self):
        root = self.root("busybox")
        self.succeed(root, "enable")
        self.assertEqual(root.read(), "".join((
            "# The first thing.\n::sysinit:/etc/init.d/rcS\n",
            "# bootforge-adopt: the init scripts start\n",
            f"::sysinit:{FOLDER}::sysinit:{START}",
            "ttyS0::respawn:/sbin/getty -L ttyS0 115200 vt100\n",
            f"# bootforge-adopt: the init scripts stop\n::shutdown:{STOP}",
            "::shutdown:/etc/init.d/rcK\n::shutdown:/bin/umount -a -r\n")))

    def test_busybox_without_a_file_gets_one_that_does_what_it_did_without(self):
        root = self.root("busybox", inittab=None)
        before = root.snapshot()
        self.succeed(root, "enable")
        lines = root.read().splitlines(True)
        self.assertEqual([line for line in lines if "::sysinit:" in line],
                         ["::sysinit:/etc/init.d/rcS\n", f"::sysinit:{FOLDER}",
                          f"::sysinit:{START}"])
        self.assertEqual([line for line in lines if "::shutdown:" in line],
                         [f"::shutdown:{STOP}", "::shutdown:/sbin/swapoff -a\n",
                          "::shutdown:/bin/umount -a -r\n"])
        self.assertIn("::askfirst:-/bin/sh\n", lines)
        self.succeed(root, "disable")
        self.assertEqual(root.snapshot(), before)

    def test_a_busybox_whose_init_runs_rc_has_that_line_replaced(self):
        root = self.root("busybox", inittab="::sysinit:/etc/init.d/rcS\n::wait:/etc/init.d/rc 2")
        before = root.snapshot()
        self.succeed(root, "enable")
        self.assertEqual(root.read(), "".join((
            "::sysinit:/etc/init.d/rcS\n",
            "# bootforge-adopt: in the place of ::wait:/etc/init.d/rc 2\n",
            f"::wait:{FOLDER}::wait:{START}",
            f"# bootforge-adopt: the init scripts stop\n::shutdown:{STOP}")))
        self.succeed(root, "disable")
        self.assertEqual(root.snapshot(), before)

    def test_a_systemd_host_gets_a_unit_as_systemctl_would_enable_it(self):
        root = self.root("systemd")
        self.assertEqual(self.succeed(root, "enable"), [
            f"made {UNIT}", f"linked {WANTED} to {UNIT}",
            "the next boot runs bootforge for its plugins"])
        self.assertFalse(root.exists(LINKS))
        if shutil.which("systemctl"):
            made = os.readlink(root.at(WANTED))
            os.unlink(root.at(WANTED))
            subprocess.run(["systemctl", f"--root={root.path}", "enable", "bootforge.service"],
                           check=True, capture_output=True)
            self.assertEqual(os.readlink(root.at(WANTED)), made)

    @unittest.skipUnless(shutil.which("systemd-analyze"), "there is no systemd-analyze here")
    def test_systemd_has_nothing_to_say_about_the_unit(self):
        root = self.root("systemd")
        self.succeed(root, "enable")
        done = subprocess.run(["systemd-analyze", "--man=no", "verify", root.at(UNIT)],
                              capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_the_unit_hands_the_record_and_the_options_to_the_boot(self):
        root = self.root("systemd")
        self.succeed(root, "enable")
        line, = [line for line in root.read(UNIT).splitlines() if line.startswith("ExecStart=")]
        shell, script = line.removeprefix("ExecStart=").split(" -c ")
        script = script[1:-1].replace("$$", "$")
        tools = f"{root.folder}/tools"
        os.mkdir(tools)
        for name, text in (("zcat", 'echo "bootforge.run-once=a1,b2,"'),
                           ("bootforge", 'for word; do echo "<$word>"; done')):
            root.write(f"/../tools/{name}", f"#!/bin/sh\n{text}\n", 0o755)
        done = subprocess.run(
            [shell, "-c", script.replace("/usr/sbin/bootforge", f"{tools}/bootforge")],
            capture_output=True, text=True, check=True,
            env={"PATH": f"{tools}:{os.environ['PATH']}", "BOOTFORGE_OPTIONS": "--parallel --trace"})
        self.assertEqual(done.stdout, "<--run-once=a1,b2,>\n<--parallel>\n<--trace>\n")

    def test_the_unit_of_a_package_is_enabled_where_it_is(self):
        root = self.root("systemd")
        root.write("/usr/lib/systemd/system/bootforge.service", "[Install]\n")
        self.succeed(root, "enable")
        self.assertFalse(root.exists(UNIT))
        self.assertEqual(os.readlink(root.at(WANTED)), "/usr/lib/systemd/system/bootforge.service")

    def test_everything_is_taken_back_to_the_byte(self):
        for kind in KINDS:
            with self.subTest(kind):
                root = self.root(kind)
                if kind != "systemd":
                    os.chmod(root.at(INITTAB), 0o640)
                    if os.geteuid() == 0:
                        os.chown(root.at(INITTAB), 7, 8)
                before = root.snapshot()
                self.succeed(root, "enable")
                if kind != "systemd":
                    now, was = os.stat(root.at(INITTAB)), os.stat(root.at(ORIGINAL))
                    self.assertEqual((now.st_mode, now.st_uid, now.st_gid),
                                     (was.st_mode, was.st_uid, was.st_gid))
                self.assertEqual(self.succeed(root, "disable"),
                                 ["it is adopted no longer; every file is as it was before"])
                self.assertEqual(root.snapshot(), before)

    def test_twice_is_once(self):
        for kind in KINDS:
            with self.subTest(kind):
                root = self.root(kind)
                before = root.snapshot()
                self.succeed(root, "enable")
                adopted = root.snapshot()
                self.assertEqual(self.succeed(root, "enable"), ["it is adopted already"])
                self.assertEqual(root.snapshot(), adopted)
                self.succeed(root, "disable")
                self.assertEqual(self.succeed(root, "disable"),
                                 ["it is not adopted, so there is nothing to take back"])
                self.assertEqual(root.snapshot(), before)

    def test_extended_attributes_are_taken_over(self):
        root = self.root()
        try:
            os.setxattr(root.at(INITTAB), "user.label", b"kept")
        except OSError as error:
            self.skipTest(f"no extended attributes here: {error}")
        self.succeed(root, "enable")
        self.assertEqual(os.getxattr(root.at(INITTAB), "user.label"), b"kept")

    def test_status_tells_what_is_in_place(self):
        root = self.root()
        self.assertEqual(self.status(root), (1, ["not adopted"]))
        self.succeed(root, "enable")
        self.assertEqual(self.status(root), (0, [
            "adopted, init is sysvinit", "/bin/chkconfig: in place", f"{INITTAB}: in place",
            f"{LINKS}: 2 launchers in place"]))
        root.edit(INITTAB, "tty1\n", "tty2\n")
        root.script("web", 3)
        os.unlink(root.at("/bin/chkconfig"))
        self.assertEqual(self.status(root), (1, [
            "adopted in part, init is sysvinit", "/bin/chkconfig: missing",
            f"{INITTAB}: in place, and edited since", f"{LINKS}: 2 launchers in place",
            f'{LINKS}/web: missing; "bootforge-adopt enable" makes it']))

    def test_a_new_script_gets_its_launcher_by_the_next_enable(self):
        root = self.root()
        self.succeed(root, "enable")
        root.script("web", 3)
        before = root.read()
        self.assertEqual(self.succeed(root, "enable"), [f"made 1 launcher in {LINKS}"])
        self.assertEqual((self.status(root)[0], root.read()), (0, before))
        self.succeed(root, "disable")
        self.assertFalse(root.exists(LINKS))

    def test_what_went_missing_is_made_again(self):
        for path in ("/bin/chkconfig", f"{LINKS}/cron", LINKS):
            with self.subTest(path):
                root = self.root()
                before = root.snapshot()
                self.succeed(root, "enable")
                adopted = root.snapshot(times=False)
                if path == LINKS:
                    shutil.rmtree(root.at(path))
                else:
                    os.unlink(root.at(path))
                self.assertEqual(self.status(root)[0], 1)
                self.succeed(root, "enable")
                self.assertEqual(root.snapshot(times=False), adopted)
                self.succeed(root, "disable")
                self.assertEqual(root.snapshot(), before)

    def test_links_that_were_there_before_stay(self):
        root = self.root()
        root.link(f"{LINKS}/cron", f"{LIBRARY}/launch")
        root.link("/bin/chkconfig", f"..{LIBRARY}/chkconfig")
        before = root.snapshot()
        self.assertIn(f"made 1 launcher in {LINKS}", self.succeed(root, "enable"))
        self.succeed(root, "disable")
        self.assertEqual(root.snapshot(), before)

    def test_differences_to_the_run_level_are_told(self):
        root = self.root()
        root.write("/etc/init.d/late", "#!/bin/sh\n# chkconfig: 2345 9 9\n", 0o755)
        root.link("/etc/rc2.d/S04gone", "../init.d/gone")
        done = self.run_program(root, "enable")
        self.assertEqual((done.returncode, done.told), (0, [
            "/etc/init.d/late: bootforge starts it, and rc 2 did not",
            "/etc/init.d/gone: rc 2 started it, and bootforge does not: it has no priority"]))


class DryRun(AdoptCase):
    def apply(self, root, patch):
        done = subprocess.run(["git", "apply", "--unsafe-paths", "-"], cwd=root.path, input=patch,
                              text=True, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""), patch)

    def contents(self, root):
        return {path: (row[0][0], row[3]) for path, row in root.snapshot(times=False).items()
                if row[0][0] != "d"}

    def check(self, root, verb, *options):
        """The patch that is shown makes of a copy what the verb makes of the root."""
        before = root.snapshot()
        done = self.run_program(root, verb, "--dry-run", *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(root.snapshot(), before)
        copy = self.root()
        shutil.rmtree(copy.path)
        shutil.copytree(root.path, copy.path, symlinks=True)
        if done.stdout:
            self.apply(copy, done.stdout)
        self.assertEqual(self.run_program(root, verb, *options).returncode, 0)
        self.assertEqual(self.contents(copy), self.contents(root))
        return done.stdout

    @unittest.skipUnless(shutil.which("git"), "there is no git here")
    def test_its_patch_makes_exactly_what_the_run_makes(self):
        for kind in KINDS:
            with self.subTest(kind):
                root = self.root(kind)
                self.assertNotEqual(self.check(root, "enable"), "")
                self.assertEqual(self.check(root, "enable"), "")
                self.assertNotEqual(self.check(root, "disable"), "")
                self.assertEqual(self.check(root, "disable"), "")

    @unittest.skipUnless(shutil.which("git"), "there is no git here")
    def test_its_patch_is_right_for_files_that_were_edited(self):
        root = self.root(inittab=SYSVINIT.rstrip("\n"))
        self.check(root, "enable")
        root.edit(INITTAB, "# The default", "# Our default")
        root.script("web", 3)
        self.check(root, "enable")
        os.unlink(root.at("/bin/chkconfig"))
        self.check(root, "enable")
        root.edit(INITTAB, "# Our default", "# My default")
        root.edit(INITTAB, "--method=start --parallel", "--method=start")
        self.check(root, "disable", "--force")
        self.assertEqual(root.read(), SYSVINIT.rstrip("\n").replace("# The", "# Our"))

    def test_it_names_folders_and_shows_the_lines(self):
        root = self.root()
        text = self.run_program(root, "enable", "--dry-run").stdout
        self.assertTrue(text.startswith(f"folder {LINKS} is made\ndiff --git a/bin/chkconfig "))
        self.assertIn("\n-l2:2:wait:/etc/init.d/rc 2\n+# bootforge-adopt: in the place of l2:", text)
        self.assertIn(f"\nsimilarity index 100%\ncopy from etc/inittab\ncopy to {ORIGINAL[1:]}\n",
                      text)


if __name__ == "__main__":
    main(sys.argv)
