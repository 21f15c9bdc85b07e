"""What somebody does to the files of an adopted host is not lost when it is given back.

usage: edits_test.py BOOTFORGE_ADOPT [TEST]...
"""

import os
import random
import shutil
import sys

from scratch_root import (INITTAB, LIBRARY, LINKS, ORIGINAL, RECORD, START, SYSVINIT, UNIT, AdoptCase,
                          main)

EDITED = f"{INITTAB}.bootforge-edited"
REFUSED = (': changed since, so that it cannot be taken back: put its lines right, or say '
           '"bootforge-adopt disable --force", which keeps it under another name')
SEQUENCES = 40
STEPS = 12


class Edits(AdoptCase):
    def adopted(self, kind="sysvinit", **options):
        root = self.root(kind, **options)
        before = root.snapshot()
        self.succeed(root, "enable")
        return root, before

    def disable(self, root, *options, told=()):
        done = self.run_program(root, "disable", *options)
        self.assertEqual((done.returncode, done.told), (0, list(told)))
        self.assertEqual(done.stdout, "it is adopted no longer\n" if told else
                         "it is adopted no longer; every file is as it was before\n")
        self.assertFalse(root.exists(RECORD))

    def assert_before(self, root, before, *but):
        now = root.snapshot()
        for path in but:
            now.pop(f"root{path}", None)
            before.pop(f"root{path}", None)
        self.assertEqual(now, before)

    def test_lines_elsewhere_stay(self):
        root, before = self.adopted()
        root.edit(INITTAB, "# The default", "# Our default")
        root.edit(INITTAB, "tty1\n", "tty1\nT0:23:respawn:/sbin/getty -L ttyS0\n")
        os.chmod(root.at(INITTAB), 0o600)
        self.assertEqual(self.succeed(root, "enable"), ["it is adopted already"])
        self.disable(root, told=[
            f"{INITTAB}: what was edited since is kept; the lines of bootforge are out"])
        self.assertEqual(root.read(), SYSVINIT.replace("# The", "# Our") +
                         "T0:23:respawn:/sbin/getty -L ttyS0\n")
        self.assertEqual(os.stat(root.at(INITTAB)).st_mode & 0o777, 0o600)
        self.assert_before(root, before, INITTAB)

    def test_a_mode_stays(self):
        root, before = self.adopted()
        os.chmod(root.at(INITTAB), 0o600)
        self.disable(root, told=[f"{INITTAB}: its new mode and owner are kept"])
        self.assertEqual(os.stat(root.at(INITTAB)).st_mode & 0o777, 0o600)
        os.chmod(root.at(INITTAB), 0o644)
        self.assert_before(root, before)

    def test_our_own_lines_are_not_given_up_unless_forced(self):
        root, before = self.adopted()
        root.edit(INITTAB, START, START.replace("wait ", "wait --daemon-wait-timeout=90 "))
        edited = root.read()
        for verb in ("disable", "enable"):
            self.assertEqual(self.refuse(root, verb), INITTAB + REFUSED)
        self.assertEqual(self.status(root)[1][2],
                         f"{INITTAB}: changed since, so that it cannot be taken back")
        self.disable(root, "--force", told=[
            f"{INITTAB}: what was edited is kept as {EDITED}"])
        self.assertEqual(root.read(EDITED), edited)
        self.assert_before(root, before, EDITED)

    def test_nothing_that_was_kept_aside_is_overwritten(self):
        root, _ = self.adopted()
        root.write(EDITED, "mine")
        root.edit(INITTAB, START, "/bin/true\n")
        self.disable(root, "--force", told=[f"{INITTAB}: what was edited is kept as {EDITED}-2"])
        self.assertEqual((root.read(EDITED), root.read()), ("mine", SYSVINIT))

    def test_lines_that_were_put_right_by_hand_are_taken_for_what_they_are(self):
        for text in (SYSVINIT, SYSVINIT.replace("# The", "# Our")):
            for verb in ("disable", "enable"):
                root, before = self.adopted()
                root.write(INITTAB, text)
                self.assertEqual(self.status(root)[1][2],
                                 f"{INITTAB}: without the lines of bootforge")
                if verb == "enable":
                    self.succeed(root, "enable")
                    self.assertIn(START, root.read())
                self.disable(root)
                self.assertEqual(root.read(), text)
                self.assert_before(root, before, INITTAB)

    def test_a_file_that_was_removed_is_not_put_back_unless_forced(self):
        root, before = self.adopted()
        os.unlink(root.at(INITTAB))
        self.assertEqual(self.refuse(root, "disable"), INITTAB + REFUSED)
        self.disable(root, "--force")
        self.assert_before(root, before)

    def test_without_the_original_the_lines_come_from_the_record(self):
        root, before = self.adopted()
        os.unlink(root.at(ORIGINAL))
        self.assertEqual(self.status(root)[0], 0)
        self.disable(root, told=[
            f"{INITTAB}: {ORIGINAL} is gone, so the lines are put back from the record"])
        self.assertEqual(root.read(), SYSVINIT)
        self.assert_before(root, before, INITTAB)

    def test_without_the_original_a_file_that_cannot_be_taken_back_stays(self):
        root, before = self.adopted()
        os.unlink(root.at(ORIGINAL))
        root.edit(INITTAB, START, "/bin/true\n")
        edited = root.read()
        self.assertEqual(self.refuse(root, "disable"), INITTAB + REFUSED)
        self.disable(root, "--force", told=[
            f"{INITTAB}: {ORIGINAL} is gone, too; the file stays as it is"])
        self.assertEqual(root.read(), edited)
        self.assert_before(root, before, INITTAB)

    def test_a_record_that_is_damaged_is_left_alone(self):
        for text, reason in (("{", "incomplete JSON$"), ("[]", "[a-z ]+$"), ('{"version": 2}', "it is of"),
                             ('{"version": 1, "init": "a", "steps": []}', "it has no steps$"),
                             ('{"version": 1, "init": "a", "steps": [{"link": "a/b"}]}',
                              "a path is not absolute$")):
            root, _ = self.adopted()
            root.write(RECORD, text)
            for verb in ("enable", "disable"):
                self.assertRegex(self.refuse(root, verb, status=2),
                                 f"^{RECORD}: this is no record of bootforge-adopt: {reason}")

    def test_without_the_record_nothing_is_touched(self):
        root, _ = self.adopted()
        os.unlink(root.at(RECORD))
        self.assertEqual(self.status(root), (1, ["not adopted"]))
        self.succeed(root, "disable")
        self.assertIn("runs bootforge already", self.refuse(root, "enable", status=2))

    def test_what_took_the_place_of_a_link_stays(self):
        root, before = self.adopted()
        os.unlink(root.at("/bin/chkconfig"))
        root.write("/bin/chkconfig", "another")
        root.write(f"{LINKS}/mine", "")
        self.disable(root, told=["/bin/chkconfig: this is something else by now, so it stays",
                                 f"{LINKS}: there is something else in it, so it stays"])
        self.assertEqual(os.listdir(root.at(LINKS)), ["mine"])
        self.assert_before(root, before, "/bin/chkconfig", LINKS, f"{LINKS}/mine")

    def test_a_unit_that_was_edited_stays_unless_forced(self):
        root, before = self.adopted("systemd")
        root.edit(UNIT, "TimeoutStartSec=infinity", "TimeoutStartSec=60")
        self.assertEqual(self.refuse(root, "disable"), UNIT + REFUSED)
        self.disable(root, "--force", told=[
            f"{UNIT}: what was edited is kept as {UNIT}.bootforge-edited",
            "/etc/systemd/system: there is something else in it, so it stays",
            "/etc/systemd: there is something else in it, so it stays"])
        self.assertIn("TimeoutStartSec=60", root.read(f"{UNIT}.bootforge-edited"))
        shutil.rmtree(root.at("/etc/systemd"))
        self.assert_before(root, before)

    def test_lines_that_are_no_text_stay_as_they_are(self):
        text = SYSVINIT.encode().replace(b"# The", b"# \xfcber \x00\x1b[2J").replace(
            b"l2:2:wait:", b"  l2:2:wait:").replace(b"rc 2", b"rc\t2 ")
        root = self.root(inittab=text)
        before = root.snapshot()
        self.succeed(root, "enable")
        os.unlink(root.at(ORIGINAL))
        self.assertEqual(self.run_program(root, "disable").returncode, 0)
        self.assert_before(root, before, INITTAB)
        with open(root.at(INITTAB), "rb") as file:
            self.assertEqual(file.read(), text)


class DrawnOrders(AdoptCase):
    """Whatever is done in whatever order: what the operator wrote is there in the end, and nothing
    else."""

    def test_leave_what_was_written_and_nothing_else(self):
        seed = int(os.environ.get("BOOTFORGE_SEED", random.SystemRandom().randrange(10**6)))
        for number in range(SEQUENCES):
            with self.subTest(f"BOOTFORGE_SEED={seed}", number=number):
                self.follow(random.Random(f"{seed} {number}"))

    def follow(self, draw):
        kind = draw.choice(("sysvinit", "busybox"))
        root = self.root(kind)
        others = root.snapshot()
        written = root.read()
        done = []
        for step in range(STEPS):
            action = draw.choice(("enable", "enable", "disable", "disable", "write", "write",
                                  "script", "lose", "dry"))
            done.append(action)
            if action in ("enable", "disable"):
                self.assertEqual(self.run_program(root, action).returncode, 0, done)
                self.assertEqual(self.status(root)[0] == 0, action == "enable", done)
            elif action == "write":
                line = f"# {step}\n"
                place = draw.choice(("front", "end"))
                now = root.read()
                root.write(INITTAB, line + now if place == "front" else now + line)
                written = line + written if place == "front" else written + line
            elif action == "script":
                root.script(f"new{step}", step)
                for path in (f"/etc/init.d/new{step}", f"/etc/rc2.d/S{step}new{step}"):
                    others[f"root{path}"] = root.snapshot()[f"root{path}"]
            elif action == "lose":
                lost = draw.choice((ORIGINAL, "/bin/chkconfig", f"{LINKS}/cron"))
                if root.exists(lost):
                    os.unlink(root.at(lost))
            else:
                before = root.snapshot()
                self.run_program(root, draw.choice(("enable", "disable")), "--dry-run")
                self.assertEqual(root.snapshot(), before, done)
        self.assertEqual(self.run_program(root, "disable").returncode, 0, done)
        self.assertEqual(root.read(), written, done)
        now = root.snapshot()
        for rows in (now, others):
            del rows[f"root{INITTAB}"]
        self.assertEqual(now, others, done)


if __name__ == "__main__":
    main(sys.argv)
