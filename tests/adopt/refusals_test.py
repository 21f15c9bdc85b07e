"""Hosts that bootforge-adopt cannot adopt, and roots that are strange: a clear word, and no change.

usage: refusals_test.py BOOTFORGE_ADOPT [TEST]...
"""

import fcntl
import os
import shutil
import subprocess
import sys
import unittest

from scratch_root import (INITTAB, LIBRARY, LINKS, ORIGINAL, RECORD, START, STOP, SYSVINIT, UNIT,
                          WANTED, AdoptCase, main)

PRIVATE = ("unshare", "--mount")
# A copy of the root on a small disk, which is full when it is adopted and when it is given back.
FULL_DISK = """
look() { { find . -type f -exec md5sum {} +; find . -printf '%p %y %m %l\\n'; } | sort; }
fill() { cat /dev/zero 2>/dev/null >fill || :; }
cp -a "$1" "$1.new"
mount -t tmpfs -o size=1m tmpfs "$1" || exit 77
cp -a "$1.new/." "$1"
cd "$1"
before=$(look)
fill
"$2" enable --root="$1" || [ $? = 2 ]
rm fill
[ "$before" = "$(look)" ]
"$2" enable --root="$1"
fill
"$2" disable --root="$1"
rm fill
[ "$before" = "$(look)" ]
"""


class Refused(AdoptCase):
    def test_an_init_that_is_not_known(self):
        for program, path in (("#!/bin/sh\n", "/sbin/init"), ("runit", "/sbin/init")):
            root = self.root(program, inittab=SYSVINIT)
            self.assertEqual(self.refuse(root, "enable", status=2),
                             f"{path}: this init is neither sysvinit nor busybox nor systemd")
        root = self.root()
        os.unlink(root.at("/sbin/init"))
        self.assertEqual(self.refuse(root, "enable", status=2),
                         "/sbin/init: No such file or directory")

    def test_a_subcommand_that_there_is_not(self):
        root = self.root("sysvinit")
        for words, text in ((("adopt",), 'there is no subcommand "adopt"'),
                            ((), "A subcommand is required"),
                            (("enable", "now"), "The following argument was not expected: now")):
            done = self.run_program(root, *words)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertEqual(done.told, [text, "See bootforge-adopt --help."])

    def test_lines_that_are_not_understood(self):
        none = "so it is not known how this host"
        by_hand = "runs bootforge already; take out what was put in by hand first"
        for kind, old, new, text in (
                ("sysvinit", "id:2:", "id:1:",
                 'no line "initdefault" names a level from 2 to 5'),
                ("sysvinit", "id:2:", "#id:2:",
                 'no line "initdefault" names a level from 2 to 5'),
                ("sysvinit", "rc 2", "rc.M",
                 f"no line runs /etc/init.d/rc 2, {none} starts its init scripts"),
                ("sysvinit", "l6:6", "l6:5",
                 f"no line runs /etc/init.d/rc 6, {none} stops its init scripts"),
                ("sysvinit", "l3:3:wait:/etc/init.d/rc 3", "x2:2:once:/etc/init.d/rc 2",
                 "lines 7 and 8 both start the init scripts"),
                ("sysvinit", "1:2345", f"b:2:once:{START}1:2345", f"line 11 {by_hand}"),
                ("busybox", "::shutdown:/etc/init.d/rcK", f"::shutdown:{STOP}".strip(),
                 f"line 4 {by_hand}"),
                ("busybox", "/etc/init.d/rcS", "/sbin/openrc sysinit",
                 "line 2 runs openrc, whose scripts bootforge does not start")):
            with self.subTest(text):
                root = self.root(kind)
                root.edit(INITTAB, old, new)
                self.assertEqual(self.refuse(root, "enable", status=2), f"{INITTAB}: {text}")

    def test_what_is_in_the_way_stays(self):
        for kind, path in (("sysvinit", ORIGINAL), ("sysvinit", f"{INITTAB}.bootforge-new"),
                           ("sysvinit", f"{LINKS}/cron"), ("sysvinit", LINKS), ("systemd", UNIT),
                           ("systemd", WANTED)):
            with self.subTest(path):
                root = self.root(kind)
                root.write(path, "mine")
                self.assertEqual(self.refuse(root, "enable", status=2),
                                 f"{path}: this is in the way; move it elsewhere")
        root = self.root()
        root.write("/bin/chkconfig", "another\n", 0o755)
        self.assertEqual(self.refuse(root, "enable", status=2),
                         "/bin/chkconfig: this is another program, which bootforge would ask for "
                         "the init scripts; move it elsewhere")

    def test_a_host_without_what_is_needed(self):
        for path in ("/usr/sbin/bootforge", f"{LIBRARY}/launch", f"{LIBRARY}/chkconfig"):
            root = self.root()
            os.unlink(root.at(path))
            self.assertEqual(self.refuse(root, "enable", status=2),
                             f"{path}: there is no such program; bootforge has to be installed first")
        root = self.root()
        os.unlink(root.at(INITTAB))
        self.assertEqual(self.refuse(root, "enable", status=2),
                         f"{INITTAB}: No such file or directory")
        root = self.root()
        shutil.rmtree(root.at("/etc/rc2.d"))
        self.assertEqual(self.refuse(root, "enable", status=2),
                         "/etc/init.d: no script has a priority, so there is nothing to start")

    def test_a_second_run_at_the_same_time(self):
        root = self.root()
        folder = os.open(root.at("/etc"), os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        for verb in ("enable", "disable"):
            self.assertEqual(self.refuse(root, verb, status=2),
                             "another run of bootforge-adopt is at work")
        self.assertEqual(self.run_program(root, "enable", "--dry-run").returncode, 0)

    def test_words_that_are_wrong(self):
        for words in ((), ("adopt",), ("enable", "--forse"), ("status", "--dry-run"),
                      ("enable", "disable"), ("enable", "--force")):
            done = subprocess.run([self.program, *words], capture_output=True, text=True,
                                  check=False)
            self.assertEqual((done.returncode, done.stdout), (2, ""), words)
            self.assertRegex(done.stderr,
                             r"\Abootforge-adopt: .+\nSee bootforge-adopt --help\.\n\Z")
        for words in (("--help",), ("-h",), ("enable", "--help"), ("--version",)):
            done = subprocess.run([self.program, *words], capture_output=True, text=True, check=True)
            self.assertEqual(done.stderr, "")
            self.assertRegex(done.stdout, "bootforge-adopt")

    def test_a_root_that_is_not_there(self):
        done = subprocess.run([self.program, "enable", "--root=/no/such"], capture_output=True,
                              text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (
            2, "bootforge-adopt: cannot read the root /no/such: No such file or directory\n"))

    @unittest.skipUnless(os.geteuid() == 0, "only root can become somebody else")
    def test_somebody_who_may_not(self):
        root = self.root()
        os.chmod(root.folder, 0o755)
        shutil.copy(self.program, f"{root.folder}/program")
        before = root.snapshot()
        done = subprocess.run([f"{root.folder}/program", "enable", f"--root={root.path}"],
                              capture_output=True, text=True, check=False, user=65534, group=65534)
        self.assertEqual((done.returncode, done.stderr), (
            2, f"bootforge-adopt: {RECORD}.bootforge-new: Permission denied\n"))
        self.assertEqual(root.snapshot(), before)


class Places(AdoptCase):
    def check(self, root, inittab):
        """Adopts and gives back; what the file with the lines is called is told."""
        before = root.snapshot()
        self.assertIn(f"changed {inittab}; the original is {inittab}.before-bootforge",
                      self.succeed(root, "enable"))
        self.assertIn(START, root.read(inittab))
        self.assertEqual(self.status(root)[0], 0)
        self.succeed(root, "disable")
        self.assertEqual(root.snapshot(), before)

    def test_links_are_followed_inside_the_root_and_stay(self):
        root = self.root(inittab=None)
        root.write("/etc/alternatives/sysv.tab", SYSVINIT)
        root.link("/etc/alternatives/inittab", "/etc/alternatives/sysv.tab")
        root.link(INITTAB, "/etc/alternatives/inittab")
        self.check(root, "/etc/alternatives/sysv.tab")

    def test_no_link_leads_outside(self):
        root = self.root()
        os.rename(root.at("/etc"), root.at("/config"))
        root.link("/etc", "../../../../config")
        os.rename(root.at("/bin"), root.at("/usr/bin"))
        root.link("/bin", "usr/bin")
        os.mkdir(f"{root.folder}/config")
        self.check(root, "/config/inittab")

    def test_links_in_a_circle_are_an_error(self):
        root = self.root(inittab=None)
        root.link(INITTAB, "/etc/inittab")
        self.assertEqual(self.refuse(root, "enable", status=2),
                         f"{INITTAB}: Too many levels of symbolic links")

    def private(self, root, script):
        """Runs a script for the root in mounts of its own."""
        done = subprocess.run([*PRIVATE, "sh", "-eu", "-c", script, "sh", root.path, self.program],
                              capture_output=True, text=True, check=False)
        if done.returncode == 77:
            self.skipTest(f"no mounts here: {done.stderr}")
        return done

    @unittest.skipUnless(os.geteuid() == 0, "only root mounts")
    def test_a_root_that_is_read_only(self):
        root = self.root()
        for verb, text in (("enable", f"{RECORD}.bootforge-new"), ("disable", INITTAB)):
            before = root.snapshot()
            done = self.private(root, 'mount --bind "$1" "$1" || exit 77; '
                                'mount -o remount,ro,bind "$1" || exit 77; '
                                f'exec "$2" {verb} --root="$1"')
            self.assertEqual((done.returncode, done.stderr),
                             (2, f"bootforge-adopt: {text}: Read-only file system\n"))
            self.assertEqual(root.snapshot(), before)
            self.succeed(root, "enable")

    @unittest.skipUnless(os.geteuid() == 0, "only root mounts")
    def test_a_disk_that_is_full_takes_no_adoption_but_gives_one_back(self):
        root = self.root()
        done = self.private(root, FULL_DISK)
        self.assertEqual((done.returncode, done.stderr), (
            0, f"bootforge-adopt: {RECORD}.bootforge-new: No space left on device\n"))


if __name__ == "__main__":
    main(sys.argv)
