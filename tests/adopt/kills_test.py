"""bootforge-adopt is killed before each call that changes something, and each of them fails once.

usage: kills_test.py BOOTFORGE_ADOPT [TEST]...
"""

import collections
import errno
import os
import re
import shutil
import subprocess
import sys
import unittest

from scratch_root import INITTAB, LIBRARY, LINKS, RECORD, START, AdoptCase, main

# What changes files, and what brings the changes to the disk.
CALLS = {"write": "ENOSPC", "fsync": "EIO", "fchmod": "EPERM", "fchown": "EPERM",
         "fchmodat": "EPERM", "fchownat": "EPERM", "fsetxattr": "ENOSPC", "renameat": "EIO",
         "linkat": "EMLINK", "symlinkat": "ENOSPC", "mkdirat": "ENOSPC", "unlinkat": "EROFS"}
KILLED = -9


def sysvinit(_):
    """As it comes."""


def edited(root):
    """Of which the lines have to be taken out one by one."""
    root.edit(INITTAB, "# The default", "# Our default")


def new_script(root):
    root.script("web", 3)


@unittest.skipUnless(shutil.which("strace"), "there is no strace here")
class Interrupted(AdoptCase):
    def prepare(self, kind, verb, change):
        """A root that the verb has something to do in."""
        root = self.root(kind)
        before = root.snapshot()
        if verb == "disable" or change is new_script:
            self.succeed(root, "enable")
        change(root)
        return root, before

    def strace(self, root, verb, *options):
        trace = f"{root.folder}.trace"
        self.addCleanup(lambda: os.path.exists(trace) and os.unlink(trace))
        done = self.run_program(root, verb, before=(
            "strace", "-o", trace, "-E", "LC_ALL=C", "-e", f"trace={','.join(CALLS)}", *options))
        with open(trace, encoding="utf-8") as file:
            done.calls = collections.Counter(re.findall(r"^([a-z]+)\(", file.read(), re.M))
        os.unlink(trace)
        return done

    def each_call(self, kind, verb, change):
        """Each call of an undisturbed run, with how many of its name came before it."""
        root, _ = self.prepare(kind, verb, change)
        done = self.strace(root, verb)
        self.assertEqual(done.returncode, 0, done.stderr)
        # The answer, and each remark, is written last.
        done.calls["write"] -= 1 + len(done.told)
        cases = [(call, number) for call, count in done.calls.items()
                 for number in range(1, count + 1)]
        self.assertGreater(len(cases), 5)
        return cases

    def check_bootable(self, root, after):
        """Before the switch the host boots as it did; after it everything is there."""
        self.assertTrue(root.exists(INITTAB))
        if START in root.read():
            self.assertEqual(os.readlink(root.at("/bin/chkconfig")), f"{LIBRARY}/chkconfig")
            self.assertTrue(root.exists(f"{LINKS}/cron") and root.exists(f"{LINKS}/ssh"), after)
            self.assertTrue(root.exists(RECORD), after)

    def finish(self, root, before, change, number):
        """The next run goes on, be it to adopt or to give back."""
        if number % 2:
            self.assertEqual(self.run_program(root, "enable").returncode, 0)
            self.assertEqual(self.status(root)[0], 0)
        self.assertEqual(self.run_program(root, "disable").returncode, 0)
        now = root.snapshot()
        if change is edited:
            self.assertIn("# Our default", root.read())
            self.assertNotIn("bootforge", root.read())
            del now[f"root{INITTAB}"], before[f"root{INITTAB}"]
        if change is new_script:
            now = {path: row for path, row in now.items() if not path.endswith("web")}
        self.assertEqual(now, before)

    def kill_at_each_call(self, kind, verb, change=sysvinit):
        for number, (call, occurrence) in enumerate(self.each_call(kind, verb, change)):
            with self.subTest(f"{call} {occurrence}"):
                root, before = self.prepare(kind, verb, change)
                done = self.strace(root, verb, "-e", f"inject={call}:signal=KILL:when={occurrence}")
                self.assertEqual(done.returncode, KILLED, done.stdout)
                if kind == "sysvinit":
                    self.check_bootable(root, done.calls)
                self.finish(root, before, change, number)

    def test_enable_goes_on_wherever_it_was_killed(self):
        self.kill_at_each_call("sysvinit", "enable")

    def test_disable_goes_on_wherever_it_was_killed(self):
        self.kill_at_each_call("sysvinit", "disable")

    def test_disable_of_an_edited_file_goes_on_wherever_it_was_killed(self):
        self.kill_at_each_call("sysvinit", "disable", edited)

    def test_enable_of_a_new_script_goes_on_wherever_it_was_killed(self):
        self.kill_at_each_call("sysvinit", "enable", new_script)

    def test_a_unit_goes_on_wherever_it_was_killed(self):
        self.kill_at_each_call("systemd", "enable")
        self.kill_at_each_call("systemd", "disable")

    def test_an_enable_in_which_a_call_fails_leaves_nothing(self):
        for call, occurrence in self.each_call("sysvinit", "enable", sysvinit):
            with self.subTest(f"{call} {occurrence}"):
                root, before = self.prepare("sysvinit", "enable", sysvinit)
                done = self.strace(root, "enable", "-e",
                                   f"inject={call}:error={CALLS[call]}:when={occurrence}")
                text = os.strerror(getattr(errno, CALLS[call]))
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertRegex(done.stderr, rf"\Abootforge-adopt: /\S+: {text}"
                                 r"(; what was done is taken back)?\n\Z")
                self.assertEqual(root.snapshot(), before)

    def test_after_a_disable_in_which_a_call_fails_the_next_one_goes_on(self):
        for call, occurrence in self.each_call("sysvinit", "disable", edited):
            with self.subTest(f"{call} {occurrence}"):
                root, before = self.prepare("sysvinit", "disable", edited)
                done = self.strace(root, "disable", "-e",
                                   f"inject={call}:error={CALLS[call]}:when={occurrence}")
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.finish(root, before, edited, 0)

    def test_an_enable_that_cannot_even_be_taken_back_says_so(self):
        root, before = self.prepare("sysvinit", "enable", sysvinit)
        done = self.strace(root, "enable", "-e", "inject=linkat:error=EROFS",
                           "-e", "inject=unlinkat:error=EROFS")
        self.assertEqual((done.returncode, done.told), (2, [
            "/etc/inittab.before-bootforge: Read-only file system; taking back what was done "
            "failed, too: /bin/chkconfig: Read-only file system; "
            '"bootforge-adopt disable" goes on']))
        self.finish(root, before, sysvinit, 0)


if __name__ == "__main__":
    main(sys.argv)
