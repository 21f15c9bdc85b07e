"""The installed programs on a real kernel, started by a real init, in an emulated machine.

usage: real_kernel_test.py KERNEL GUEST BUILD BUSYBOX CMAKE [TEST]...
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import guest_image
from machine import EMULATOR, Machine

SKIPPED = 77
# In the order of their milestones. Beside them is "cluster", which requires what nobody provides.
PLUGINS = ["file-systems", "host-keys", "network", "uplink", "storage", "ready"]
# In the order of their priorities.
DAEMONS = {"messenger": "nc -ll -p 7 -e /bin/cat", "watcher": "watch -n 60 uptime",
           "scheduler": "crond -f -c /run"}
WITH_NOTES = {"file-systems", "host-keys", "network", "ready", "cluster"}
PLUGIN_FAILURE = "uplink->start() failed: error while executing the cli"
INTERRUPT = "\x03"


class RealKernel(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="bootforge-vm-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.disk = guest_image.make_disk(f"{self.folder}/disk", BUSYBOX)

    def machine(self, variables=""):
        return Machine(f"{KERNEL}/vmlinuz", INITRAMFS, self.disk, variables)

    def wait_until_up(self, guest):
        guest.wait_until("[ -e /run/up ]")
        self.assertEqual(guest.run("cat /run/boot-status"), "0\n")

    def notes(self, guest):
        return set(guest.run("cat /run/notes").splitlines())

    def has_lines(self, expected, text):
        """Checks that lines with these ends are there in this order."""
        lines = iter(text.splitlines())
        for end in expected:
            self.assertTrue(any(line.endswith(end) for line in lines), f"{end!r} in:\n{text}")


class TwoBoots(RealKernel):
    def test_a_host_boots_and_halts_and_the_next_boot_leaves_out_what_has_been_run(self):
        with self.machine() as guest:
            self.wait_until_up(guest)
            self.check_boot(guest)
            self.check_daemons(guest)
            guest.run("poweroff")
            self.assertEqual(guest.wait_for_end(), 0, guest.describe())
            self.has_lines([text for name in reversed(DAEMONS) for text in
                            (f"executing stop for daemon {name}.", f"{name} stopped.")],
                           guest.console.text)
        with self.machine('OPTIONS="--parallel"') as guest:
            self.wait_until_up(guest)
            self.check_last_words(guest)
            self.assertEqual(self.notes(guest), WITH_NOTES - {"host-keys"})
            self.assertIn("ignoring plugin 'host-keys' because version '1'  has already been run.",
                          guest.run("cat /var/log/syslog.log"))
            self.assertEqual(guest.run("zcat /bootbank/bootfrge.gz"),
                             "bootforge.run-once=host-keys1,\n")

    def test_a_record_survives_a_power_cut_be_it_new_or_in_the_place_of_another(self):
        with self.machine() as guest:
            guest.wait_until("[ -e /run/boot-status ]")
        with self.machine() as guest:
            guest.wait_until("[ -e /run/boot-status ]")
            self.assertEqual(self.notes(guest), WITH_NOTES - {"host-keys"})
            guest.run("bootforge --run-once=host-keys1,more1")
        with self.machine() as guest:
            guest.wait_until("[ -e /run/boot-status ]")
            self.assertEqual(guest.run("zcat /bootbank/bootfrge.gz"),
                             "bootforge.run-once=host-keys1,more1,\n")

    def check_boot(self, guest):
        self.assertEqual(guest.run("readlink /proc/1/exe"), "/bin/busybox\n")
        self.assertEqual(self.notes(guest), WITH_NOTES)
        self.has_lines([f"bootforge: {text}" for name in PLUGINS for text in
                        (f"Activating Bootforge plugin {name}.", f"Bootforge plugin {name} " + (
                            "activated." if name != "uplink" else
                            f"activation failed: {PLUGIN_FAILURE}"))],
                       guest.run("dmesg"))
        # Facility "user" is the kernel's word for a record that did not come from itself.
        self.assertRegex(guest.run("dmesg -r"), r"(?m)^<14>\[.*Activating Bootforge plugin ready\.")
        self.assertRegex(guest.run("dmesg -r"), r'(?m)^<9>\[.*"cluster-key" is not provided by ')
        self.has_lines(["]: Launching Executor"] +
                       [f"]: executing start plugin: {name}" for name in PLUGINS] +
                       ["]: Executor has been Successfully Stopped"],
                       guest.run("cat /var/log/syslog.log"))
        guest.wait_until("grep -q 'reloaded: messages below level 7' /var/log/syslog.log")
        profile = guest.run("cat /var/log/sysboot.log")
        self.assertEqual(set(re.findall(r"\] sysboot: (.*)", profile)), {*PLUGINS, "cluster"})
        self.assertEqual(guest.run("zcat /bootbank/bootfrge.gz"),
                         "bootforge.run-once=host-keys1,\n")
        guest.wait_until("! ps -o args | grep -q '[b]ootforge'")

    def check_daemons(self, guest):
        daemons = {words: pid for pid, parent, words in guest.processes() if parent == 1}
        for name, words in DAEMONS.items():
            self.assertIn(words, daemons)
            self.assertEqual(guest.run(f"cat /proc/{daemons[words]}/cgroup"),
                             f"0::/bootforge/init/{name}\n")
        self.assertEqual(guest.run("echo hello | nc -w 20 127.0.0.1 7"), "hello\n")

    def check_last_words(self, guest):
        """What the last boot's host was like when its daemons had been stopped."""
        processes = guest.run("cat /bootbank/last-processes")
        self.assertIn("init\n", processes)
        for words in DAEMONS.values():
            self.assertNotIn(words, processes)
        self.has_lines([text for name in reversed(DAEMONS) for text in
                        (f"Deactivating Daemon {name}.", f"Daemon {name} deactivated.")],
                       guest.run("cat /bootbank/last-kernel-log"))
        self.assertEqual(guest.run("grep -c '=== Daemon configuration' /bootbank/last-profile"),
                         "2\n")


class LostExecutor(RealKernel):
    def test_a_boot_goes_on_when_its_executor_is_killed(self):
        with self.machine("GATE=yes") as guest:
            guest.wait_until("grep -q waiting /run/gate-state")
            executor = [pid for pid, _, words in guest.processes()
                        if words.startswith("{bootforge-cli} ")]
            self.assertEqual(len(executor), 1, guest.processes())
            guest.run(f"kill -KILL {executor[0]}; rm /run/gate")
            self.wait_until_up(guest)
            self.assertEqual(self.notes(guest), WITH_NOTES)
            self.has_lines(["Failed to recieve command status from Executor: Success",
                            "storage->start() failed: error while executing the cli",
                            "Failed connecting to executor Connection refused",
                            "Setting up Executor - Reset Requested",
                            "Executor has been Successfully Stopped"],
                           guest.run("cat /var/log/syslog.log"))


class HangingBoot(RealKernel):
    def stuck(self, capture, status):
        """What the build's own analyzer tells from a capture, of the guest's files out here."""
        with open(f"{self.folder}/capture", "wb") as file:
            file.write(capture)
        done = subprocess.run([f"{BUILD}/bootforge-analyze", "stuck", f"--root={GUEST}/root",
                               f"--messages={self.folder}/capture", "--format=json"],
                              capture_output=True, check=False, timeout=60)
        self.assertIn(done.returncode, status, done.stderr.decode())
        return json.loads(done.stdout) if done.returncode < 2 else None

    def check_answer(self, told):
        self.assertEqual([(each["name"], each["blocks"]) for each in told["running"]],
                         [("storage", 1)])
        self.assertRegex(told["running"][0]["since"], r"^\d+\.\d{6}$")
        # The one worker holds "cluster" up, too.
        self.assertEqual(sorted(told["waiting"], key=lambda each: each["name"]), [
            {"name": "cluster", "for": []},
            {"name": "ready", "for": [{"milestone": "storage-ready", "plugins": ["storage"]}]}])
        self.assertEqual(told["cycle"], [])

    def test_the_serial_line_and_the_kernel_log_name_what_hangs(self):
        with self.machine("GATE=yes loglevel=7") as guest:
            guest.wait_until("grep -q waiting /run/gate-state")
            guest.expect("Activating Bootforge plugin storage.\n")
            capture = guest.console.text.encode()
            self.check_answer(self.stuck(capture, [1]))
            first = capture.index(b"bootforge: Activating")
            for length in range(first, len(capture), 11):
                self.stuck(capture[:length], [0, 1, 2])
            # In the host itself, as its engineer would ask.
            told = guest.run("dmesg | bootforge-analyze stuck --messages - --format json; "
                             "echo $? >/run/stuck-status")
            self.check_answer(json.loads(told))
            self.assertEqual(guest.run("cat /run/stuck-status"), "1\n")
            guest.run("rm /run/gate-state; echo >/run/gate")
            self.wait_until_up(guest)
            told = self.stuck(guest.run("dmesg").encode(), [0])
            self.assertEqual(told, {"running": [], "waiting": [], "cycle": []})


class Prompt(RealKernel):
    """The operator at the machine's console, which is no pseudo-terminal."""

    def answer(self, guest, name, key):
        guest.expect(f"current plugin: \033[36m{name}\n")
        guest.expect("\033[?25l")
        # Keys are read unseen only once the terminal is in that mode.
        guest.wait_until("stty -a -F /dev/ttyS0 2>/dev/null | grep -q -e -icanon")
        guest.console.type(key)
        guest.expect("\033[?25h")

    def troubleshoot(self, guest, name, last):
        """Uses the shell of a plugin's prompt, and ends it with the last words."""
        self.answer(guest, name, "t")
        guest.expect("# ")
        guest.run("rm -f /run/said")
        guest.console.type("sleep 1000\n")
        guest.wait_until("ps -o args | grep -q '^sleep 1000'")
        guest.console.type(INTERRUPT)  # only a controlling terminal passes that on
        guest.wait_until("! ps -o args | grep -q '^sleep 1000'")
        guest.console.type("echo >/dev/tty && echo tty >/run/said\n")
        guest.wait_until("grep -q tty /run/said")
        guest.console.type(last + "\n")
        guest.expect("\033[2K")

    def operate(self, guest):
        self.troubleshoot(guest, "file-systems", "exit 3")
        self.troubleshoot(guest, "host-keys", "stty raw -echo; kill -KILL $$")
        self.answer(guest, "network", "e")
        self.answer(guest, "uplink", "s")
        self.answer(guest, "storage", "c")

    def check(self, guest):
        self.assertEqual(self.notes(guest), WITH_NOTES)
        self.assertIn("skipping plugin uplink (interactive mode request)\n",
                      guest.run("cat /var/log/syslog.log"))
        modes = guest.run("stty -a -F /dev/ttyS0")
        self.assertRegex(modes, r"(?s)\bicanon\b.*\becho\b")

    def test_the_operator_decides_at_the_console(self):
        with self.machine("OPTIONS=--interactive") as guest:
            self.operate(guest)
            self.wait_until_up(guest)
            self.check(guest)
            # The same on the terminal by its own name, which the shell's end hangs up.
            guest.run("rm /run/notes; echo >/run/again")
            self.operate(guest)
            guest.wait_until("[ -e /run/again-status ]")
            self.assertEqual(guest.run("cat /run/again-status"), "0\n")
            self.check(guest)


    def test_the_operator_decides_at_the_screen(self):
        with self.machine("console=tty0 OPTIONS=--interactive") as guest:
            self.answer_at_screen(guest, "file-systems", "t")
            guest.wait_until("grep -q '[/~] # ' /dev/vcs1")
            guest.press(*"mkdir", "spc", "slash", *"run", "slash", *"said", "ret")
            guest.wait_until("[ -d /run/said ]")
            guest.press(*"exit", "ret")
            self.answer_at_screen(guest, "host-keys", "s")
            self.answer_at_screen(guest, "network", "e")
            self.assertEqual(guest.run("cat /sys/class/tty/tty0/active"), "tty1\n")
            self.answer_at_screen(guest, "uplink", "c")
            self.wait_until_up(guest)
            self.assertEqual(guest.run("cat /sys/class/tty/tty0/active"), "tty11\n")
            self.assertEqual(self.notes(guest), WITH_NOTES - {"host-keys"})

    def answer_at_screen(self, guest, name, key):
        guest.wait_until(f"grep -q 'current plugin: {name}' /dev/vcs1")
        guest.wait_until("stty -a -F /dev/tty1 2>/dev/null | grep -q -e -icanon")
        guest.press(key)


if __name__ == "__main__":
    KERNEL, GUEST, BUILD, BUSYBOX, CMAKE = sys.argv[1:6]
    if not os.path.exists(f"{KERNEL}.complete") or not shutil.which(EMULATOR[0]):
        print(f"skipped: there is no kernel in {KERNEL}, or no {EMULATOR[0]}")
        sys.exit(SKIPPED)
    INITRAMFS = guest_image.make_initramfs(GUEST, KERNEL, BUILD, BUSYBOX, CMAKE)
    unittest.main(argv=[sys.argv[0], *sys.argv[6:]], verbosity=2)
