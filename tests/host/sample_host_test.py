"""The demo: the sample host as scripts/demo boots it, with its daemons and with an operator."""

import functools
import os
import pty
import re
import selectors
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import time
import unittest

import host_case
import isolation
from prompt_test import SHOW, answered, prompt

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
sys.path.append(f"{PROJECT}/scripts/lib")
import operator_terminal  # pylint: disable=wrong-import-position
BUILD = os.environ.get("BOOTFORGE_HOST_BUILD", "")
LIMIT = 60  # seconds for one demo
PARTS = ("scripts", "examples")  # of the project, which is what a demo with --build needs
# A plugin that ran, as "blame" shows it.
ROW = re.compile(r"^ *(?:(?:\d+|[\d.]+ (?:µs|ms|s))  +){2,7}(\S+)  +(failed|skipped)?", re.M)
FAILING = {"second-uplink", "license-agent"}


class Demo:
    """One run of scripts/demo, with a terminal of its own if it is to be `interactive`."""

    def __init__(self, folder, *arguments, project=PROJECT, interactive=False):
        self.raw, self.text = b"", ""
        self.seen = 0
        self.terminal = self.saved = None
        if interactive:
            self.reader, self.terminal = pty.openpty()
            self.saved = termios.tcgetattr(self.terminal)
            far_ends = dict.fromkeys(("stdin", "stdout", "stderr"), self.terminal)
        else:
            self.reader, writer = os.pipe()
            far_ends = {"stdin": subprocess.DEVNULL, "stdout": writer, "stderr": writer}
        self.process = subprocess.Popen(
            [f"{project}/scripts/demo", "--build", BUILD, *arguments], **far_ends,
            env={**os.environ, "TMPDIR": folder, "LC_ALL": "C.UTF-8"}, start_new_session=True)
        if not interactive:
            os.close(writer)
        self.deadline = time.monotonic() + LIMIT
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.reader, selectors.EVENT_READ)

    def read(self):
        """Reads for a moment; false at the end of all output."""
        if time.monotonic() > self.deadline:
            raise AssertionError(f"the demo is too slow; so far:\n{self.text}")
        if self.selector.select(0.01):
            data = os.read(self.reader, 65536)
            self.raw += data
            # There are two terminals in a row, each with its carriage return before a newline.
            text = self.raw.decode(errors="ignore")
            self.text = text.replace("\r\r\n", "\n").replace("\r\n", "\n")
            return bool(data)
        return True

    def expect(self, pattern):
        """Waits for a match after all that was waited for before."""
        while True:
            match = re.compile(pattern).search(self.text, self.seen)
            if match:
                self.seen = match.end()
                return match
            if self.process.poll() is not None:
                raise AssertionError(f"the demo ended before {pattern!r}:\n{self.text}")
            self.read()

    def type(self, keys):
        os.write(self.reader, keys.encode())

    def finish(self):
        """Waits for the end; the exit status."""
        if not self.terminal:
            while self.read():
                pass
        while self.process.poll() is None:
            self.read()
        while self.terminal and self.selector.select(0):
            self.read()
        return self.process.returncode

    def results(self):
        """Of everything that ran: "failed", or nothing."""
        table = self.text[self.text.index("── What ran"):self.text.index("── What did not")]
        return dict(ROW.findall(table))

    def close(self):
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        self.selector.close()
        os.close(self.reader)
        if self.terminal:
            os.close(self.terminal)


@functools.lru_cache(maxsize=None)
def reason_to_skip():
    given = isolation.isolation()
    if not (given.mounts and given.pids):
        return "no private mounts and processes can be had here"
    if os.environ.get("BOOTFORGE_HOST_SANITIZE"):
        return "the sample host's root has no sanitizer's settings"
    missing = [name for name in ("busybox", "ip", "openssl", "unshare", "setpriv")
               if not shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin:/sbin")]
    return f"this machine lacks {', '.join(missing)}" if missing else None


class DemoCase(host_case.HostCase):
    def setUp(self):
        super().setUp()
        self.folder = tempfile.mkdtemp(prefix="sample-host-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.demos = []

    def demo(self, *arguments, makes_host=True, **options):
        if makes_host and reason_to_skip():
            self.skipTest(reason_to_skip())
        demo = Demo(self.folder, *arguments, **options)
        self.addCleanup(demo.close)
        self.demos.append(demo)
        return demo

    def describe(self):
        return "\n".join(f"=== {demo.process.args}\n{demo.text}" for demo in self.demos)

    def assert_nothing_is_left(self):
        self.assertEqual(os.listdir(self.folder), [])
        self.assertEqual(isolation.mounts_below(self.folder), [])
        left = []
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{name}/cmdline", "rb") as file:
                    words = file.read()
            except OSError:
                continue
            if os.fsencode(self.folder) in words:
                left.append(words)
        self.assertEqual(left, [])

    def assert_terminal_is_restored(self, demo):
        self.assertEqual(termios.tcgetattr(demo.terminal), demo.saved)
        self.assertGreater(demo.text.rfind(SHOW), demo.text.rfind("\033[?25l"))

    def copy_of_the_project(self):
        copy = tempfile.mkdtemp(prefix="sample-host-project-")
        self.addCleanup(shutil.rmtree, copy)
        for part in PARTS:
            shutil.copytree(f"{PROJECT}/{part}", f"{copy}/{part}", symlinks=True)
        return copy

    def project_with(self, daemon, old, new):
        """A copy of the project in which that daemon's script is another one."""
        copy = self.copy_of_the_project()
        path = f"{copy}/examples/host/etc/init.d/{daemon}"
        with open(path, encoding="utf-8") as script:
            text = script.read()
        self.assertEqual(text.count(old), 1)
        with open(path, "w", encoding="utf-8") as script:
            script.write(text.replace(old, new))
        return copy


class Boots(DemoCase):
    def test_good_boots_agree_and_a_bad_one_is_told_and_all_leave_nothing(self):
        # Side by side, because each of them waits for its daemons most of the time.
        serial, parallel = self.demo("--daemons"), self.demo("--daemons", "--parallel")
        bad = self.demo("--daemons", "--parallel",
                        project=self.project_with("guest-web", 'service "$@"',
                                                  '[ "$2" = stop ] || service "$@"'))
        self.assertEqual(bad.finish(), 1)
        self.assertRegex(bad.text, r"\nprocess \d+ of daemon guest-web still lives: httpd -f ")
        for demo in (serial, parallel):
            self.assertEqual(demo.finish(), 0)
            self.assertIn("\n35 activated, 1 failed, 2 passed over; milestones without a provider: "
                          "1\ndaemons: 6 of 7 started\n", demo.text)
            self.assertIn("\n0 errors, 2 warnings, 3 notes\n== booting it", demo.text)
            self.assertIn("    | entropy_check: chi-squared of 65536 bytes is ", demo.text)
            self.assertIn("<p>The daemons are up.\n", demo.text)
            self.assertRegex(demo.text, r"\n    lines from bootforge: [4-9]\d\n")
            self.assertEqual(len(re.findall(r" syslogd -n .*\n", demo.text)), 1)
        results = serial.results()
        self.assertEqual(results, parallel.results())
        self.assertEqual({name for name in results if results[name]}, FAILING)
        for name in ("inventory", "guest-dhcp", "host-ready"):
            self.assertIn(name, results)
        for demo in (serial, parallel):
            self.assertRegex(demo.text, r"\n── What kept the boot from ending sooner ─+\n"
                                        r"Boot of .*\n\S+ ended at .* steps that followed one another")
        self.assert_nothing_is_left()

    def test_a_comparison_boots_both_ways_and_shows_the_difference(self):
        demo = self.demo("--compare", "--keep")
        self.assertEqual(demo.finish(), 0)
        self.assertEqual(demo.text.count("\n35 activated, 1 failed, 2 passed over; milestones without "
                                         "a provider: 1\nThe boot went as it should.\n"), 2)
        self.assertRegex(demo.text, r"\nBoot: .* before, .* after: .*\n"
                                    r"Medians of 1 boot before and 1 boot after")
        self.assertRegex(demo.text, r"\nworkers +boot  times as fast")
        kept, = os.listdir(self.folder)
        for name, parallel in (("serial", 0), ("parallel", 1)):
            with open(f"{self.folder}/{kept}/{name}/root/var/log/sysboot.log",
                      encoding="utf-8") as log:
                self.assertIn(f"\n Parallel: {parallel}\n", log.read())
            with open(f"{self.folder}/{kept}/{name}/boot.html", encoding="utf-8") as page:
                self.assertIn("second-uplink", page.read())
        self.assertIn(f"The host's files are kept in {self.folder}/{kept}\n", demo.text)
        shutil.rmtree(f"{self.folder}/{kept}")
        self.assert_nothing_is_left()

    def test_a_comparison_decides_itself_how_to_boot(self):
        demo = self.demo("--compare", "--parallel", makes_host=False)
        self.assertEqual(demo.finish(), 2)
        self.assertEqual(demo.text, "demo: --compare boots as it needs to: without --parallel, "
                                    "--interactive and --daemons\n")
        self.assert_nothing_is_left()


class Mistakes(DemoCase):
    def project_with_plugin(self, name, text):
        copy = self.copy_of_the_project()
        path = f"{copy}/examples/host/usr/libexec/bootforge/plugins/{name}"
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return copy

    def test_the_sample_host_is_not_booted_with_one(self):
        demo = self.demo(project=self.project_with_plugin("broken.json", "{"))
        self.assertEqual(demo.finish(), 1)
        self.assertRegex(demo.text, r"\n/usr/libexec/bootforge/plugins/broken\.json:1:2: error: .*"
                                    r" \[description-syntax\]\n")
        self.assertTrue(demo.text.endswith("\ndemo: the sample host has mistakes\n"), demo.text)
        self.assertNotIn("== booting it", demo.text)
        self.assert_nothing_is_left()

    def test_those_of_plugins_of_ones_own_are_told_before_the_boot(self):
        folder = tempfile.mkdtemp(prefix="sample-host-plugins-")
        self.addCleanup(shutil.rmtree, folder)
        with open(f"{folder}/lonely.json", "w", encoding="utf-8") as file:
            file.write('{"metadata": {"version": 1, "requires": [], "provides": []},\n'
                       ' "operations": {"start": ["boot file directory --path=/srv"]}}\n')
        demo = self.demo("--plugins", folder)
        self.assertEqual(demo.finish(), 1)
        told, _, booted = demo.text.partition("== booting it")
        self.assertIn("/usr/libexec/bootforge/plugins/lonely.json:2:27: error: missing required "
                      "parameter 'mode' of command 'boot file directory' "
                      "[command-parameter-missing]\n", told)
        self.assertIn("lonely: error while executing the cli", booted)
        self.assert_nothing_is_left()


class Operators(DemoCase):
    def prompted(self, demo):
        return demo.expect(r"current plugin: \033\[36m(\S+)\n.*\(s\)kip\S*\033\[\?25l")[1]

    def test_every_answer_does_its_work_and_the_log_stays_out_of_the_prompt(self):
        demo = self.demo("--interactive", interactive=True)
        names = [self.prompted(demo)]
        self.assertIn("upgrade-bootbank", demo.text[:demo.seen], "what makes the file systems ran")
        demo.type("xe")
        names.append(self.prompted(demo))
        demo.type("t")
        demo.expect(r"# ")
        demo.type("echo $((6 * 7)) of $(tty); stty raw -echo; kill -9 $$\n")
        demo.expect(r"\n42 of /dev/pts/\d\n")
        names.append(self.prompted(demo))
        demo.type("see")  # the second is for the prompt after this one, and so on
        names += [self.prompted(demo) for _ in range(3)]
        demo.type("c")
        self.assertEqual(demo.finish(), 0)
        self.assertEqual(demo.text.count("current plugin: "), 6)
        for name, letter in zip(names, "etseec"):
            self.assertIn(prompt(name) + SHOW + answered(letter), demo.text)
        self.assertIn(f"skipping plugin {names[2]} (interactive mode request)", demo.text)
        self.assertIn(", 1 skipped by the operator, 2 passed over", demo.text)
        self.assert_terminal_is_restored(demo)
        self.assert_nothing_is_left()

    def test_input_that_is_no_terminal_is_refused_before_anything_is_made(self):
        demo = self.demo("--interactive", makes_host=False)
        self.assertEqual(demo.finish(), 2)
        self.assertEqual(demo.text, "demo: --interactive asks on a terminal: standard input and "
                                    "output both have to be one\n")
        self.assert_nothing_is_left()


class Pieces(unittest.TestCase):
    """The program's output comes in pieces that begin and end anywhere."""

    STAMP = "2026-03-05T07:04:09.000Z info bootforge[18]: "

    def split_up(self, text, size):
        """What is shown as it is, and what goes to the log, when it comes in such pieces."""
        shown, logged = [], []
        terminal = operator_terminal.OperatorTerminal(None, logged.append)
        terminal.show = shown.append
        data = text.encode()
        for place in range(0, len(data), size):
            terminal.receive(data[place:place + size])
        terminal.finish()
        return b"".join(shown).decode(), b"".join(logged).decode()

    def check(self, text, shown, logged):
        for size in (1, 2, 3, 7, 50, len(text)):
            self.assertEqual(self.split_up(text, size), (shown, logged), f"pieces of {size}")

    def test_the_log_waits_for_the_answer_and_follows_it(self):
        skipping = f"{self.STAMP}skipping plugin two (interactive mode request)\r\n"
        before, after = f"{self.STAMP}before\r\n", f"{self.STAMP}after\r\n"
        self.check(before + prompt("two") + SHOW + skipping + answered("s") + after,
                   prompt("two") + SHOW + answered("s"), before + skipping + after)

    def test_what_a_shell_shows_is_no_log_until_it_has_ended(self):
        asked = prompt("two") + SHOW + answered("t")
        inside = (f"# cat log\r\n{self.STAMP}executing start plugin: one\r\n"
                  "\033[2K# \033[2K2026 \033")
        running = f"{self.STAMP}executing start plugin: two\r\n"
        self.check(asked + inside + "\033[2K" + running, asked + inside + "\033[2K", running)

    def test_a_shell_whose_last_words_are_mixed_with_others_has_ended_at_the_next_prompt(self):
        asked = prompt("two") + SHOW + answered("t") + "\033[2Kfrom behind\r\n"
        mixed = f"{self.STAMP}executing start plugin: two\r\n"
        rest = prompt("three") + SHOW + answered("c")
        text = asked + mixed + rest + mixed
        self.assertEqual(self.split_up(text, len(text)), (asked + mixed + rest, mixed))


class Interruptions(DemoCase):
    def test_nothing_is_left_when_it_comes_at_the_prompt_or_while_daemons_run(self):
        at_prompt = self.demo("--interactive", interactive=True)
        slow = self.project_with("datastore", "usleep 1200000", "sleep 30")
        with_daemons = self.demo("--daemons", project=slow)
        at_prompt.expect("current plugin: ")
        at_prompt.type("\x03")
        self.assertEqual(at_prompt.finish(), 130)
        self.assertIn("Interrupted; plugins that had not ended: none", at_prompt.text)
        self.assert_terminal_is_restored(at_prompt)
        with_daemons.expect("executing start plugin: datastore")
        os.killpg(with_daemons.process.pid, signal.SIGINT)
        self.assertEqual(with_daemons.finish(), 130)
        self.assert_nothing_is_left()


class Examples(DemoCase):
    def test_the_makefiles_beside_the_native_plugins_build_them(self):
        if not shutil.which("make"):
            self.skipTest("this machine has no make")
        copy = self.copy_of_the_project()
        built = []
        expected = ["libentropy_check.so", "libinventory.so", "libswap_tuning.so"]
        languages = ["c", "cpp"]
        if shutil.which("rustc"):
            languages.append("rust")
            expected.append("libmount_report.so")
        for language in languages:
            folder = f"{copy}/examples/native/{language}"
            subprocess.run(["make", "-s", "-C", folder, f"CPPFLAGS=-I{PROJECT}/include"],
                           check=True)
            built += [name for name in os.listdir(folder) if name.endswith(".so")]
        self.assertEqual(sorted(built), sorted(expected))


if __name__ == "__main__":
    host_case.main()
