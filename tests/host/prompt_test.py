"""The operator's prompt, on a pseudo-terminal, byte for byte."""

import os
import re
import signal
import termios

import endpoints
import host_case
from host_case import HostCase

COLOURS = {"c": 5, "e": 2, "t": 3, "s": 1}
TEXTS = {"c": "(c)ontinue", "e": "(e)xecute", "t": "(t)roubleshoot", "s": "(s)kip"}
HIDE, SHOW, ERASE = "\033[?25l", "\033[?25h", "\033[2K"


def option_line(chosen=None):
    return "\t".join(f"\033[3{COLOURS[letter] if chosen in (None, letter) else 7}m"
                     f"{TEXTS[letter]}\033[0m" for letter in TEXTS)


def prompt(name):
    return f"current plugin: \033[36m{name}\n{option_line()}{HIDE}"


def answered(letter):
    return f"\r{option_line(letter)}\n"


class Terminal(endpoints.Terminal):
    """One with somebody at it."""

    seen = 0

    @property
    def text(self):
        return self.data.decode()

    def type(self, keys):
        os.write(self.fd, keys.encode())

    def modes(self):
        return termios.tcgetattr(self.slave)[3] & (termios.ICANON | termios.ECHO)


class PromptCase(HostCase):
    def setUp(self):
        super().setUp()
        self.scratch = self.host()
        self.scratch.plugin("first", provides=["one"], start=["note add --text=first"])
        self.scratch.plugin("second", requires=["one"], provides=["two"],
                            start=["note add --text=second"])
        self.scratch.plugin("third", requires=["two"], start=["note add --text=third"])
        self.terminal = self.scratch.attach(Terminal())

    def start(self, *arguments, streams=(0,)):
        """Starts the program with the terminal for its standard output and these streams."""
        return self.scratch.start("/usr/sbin/bootforge", "--interactive", *arguments,
                                  stdout=self.terminal.slave,
                                  extra={number: self.terminal.slave for number in streams})

    def expect(self, text):
        """Waits for a text on the terminal, after all that was waited for before."""
        terminal = self.terminal
        place = self.scratch.wait_for(
            lambda: terminal.text.find(text, terminal.seen) + 1,
            f"{text!r} on the terminal, after {terminal.text[terminal.seen:]!r}")
        terminal.seen = place - 1 + len(text)

    def answer(self, name, keys):
        self.expect(prompt(name))
        # Keys are read unseen only once the terminal is in that mode.
        self.scratch.wait_for(lambda: self.terminal.modes() == 0, "the terminal to read single keys")
        self.terminal.type(keys)
        self.expect(SHOW)

    def finish(self, process):
        self.scratch.finish(process)
        self.scratch.wait_for_executor_end()
        self.assertEqual(process.status, 0)
        self.assertEqual(process.stderr, b"")
        self.assertEqual(self.terminal.modes(), termios.ICANON | termios.ECHO)

    def logged(self):
        """The log lines on the terminal, without what stands around them."""
        return [line.split("]: ", 1)[1] for line in self.terminal.text.split("\n")
                if "]: " in line]


class Answers(PromptCase):
    def test_execute_runs_one_plugin_and_asks_about_the_next(self):
        process = self.start()
        for name in ("first", "second", "third"):
            self.answer(name, "e")
            self.expect(answered("e"))
        self.finish(process)
        self.assertEqual(self.scratch.notes(), ["first", "second", "third"])
        self.assertEqual(self.scratch.profile().options["interactive"], 1)

    def test_continue_asks_no_more_whatever_the_case_of_the_letter(self):
        process = self.start()
        self.answer("first", "x7 \033[A\tC")
        self.expect(answered("c"))
        self.finish(process)
        self.assertEqual(self.terminal.text.count("current plugin: "), 1)
        self.assertEqual(self.scratch.notes(), ["first", "second", "third"])
        self.assertEqual(self.scratch.profile().options["interactive"], 0)

    def test_a_skipped_plugin_is_neither_run_nor_timed_and_holds_up_nobody(self):
        process = self.start("--trace")
        self.answer("first", "S")
        self.expect(answered("s"))
        self.answer("second", "c")
        self.finish(process)
        self.assertEqual(self.scratch.notes(), ["second", "third"])
        self.assertIn("skipping plugin first (interactive mode request)", self.logged())
        self.assertNotIn("first", " ".join(self.scratch.kernel_log()))
        self.assertNotIn("starting execution of plugin: first", self.logged())
        first = {node.name: node for node in self.scratch.profile().nodes}["first"]
        self.assertEqual(first.end.timestamp(), 0)

    def test_nothing_but_the_prompt_and_the_log_is_shown(self):
        process = self.start()
        self.answer("first", "e")
        self.answer("second", "s")
        self.answer("third", "c")
        self.finish(process)
        # What the log wrote are whole lines; without them the prompt's own bytes are left.
        shown = re.sub(r"\d{4}-\d\d-\d\dT[^\n]*bootforge\[[^\n]*\n", "", self.terminal.text)
        self.assertEqual(shown, "".join(prompt(name) + SHOW + answered(letter) for name, letter in
                                        (("first", "e"), ("second", "s"), ("third", "c"))))
        self.assertEqual(self.terminal.text.count(HIDE), 3)
        self.assertEqual(self.terminal.text.count(SHOW), 3)


class Requirements(PromptCase):
    def test_the_prompt_waits_until_every_listed_plugin_has_run(self):
        process = self.start("--interactive-mode-requires=first,second")
        self.answer("third", "e")
        self.finish(process)
        self.assertEqual(self.terminal.text.count("current plugin: "), 1)
        self.assertEqual(self.scratch.notes(), ["first", "second", "third"])

    def test_a_listed_plugin_that_never_runs_means_no_prompt(self):
        process = self.start("--interactive-mode-requires=first,missing")
        self.finish(process)
        self.assertNotIn("current plugin: ", self.terminal.text)
        self.assertEqual(self.scratch.notes(), ["first", "second", "third"])


class TroubleshootingShell(PromptCase):
    def shell(self, *commands):
        """Runs commands in the shell of the first plugin's prompt, and leaves it to its end."""
        # Newer shells talk to their operator on standard error.
        process = self.start(streams=(0, 2))
        self.answer("first", "t")
        self.expect(answered("t"))
        for command in commands:
            self.terminal.type(command + "\n")
        self.expect(ERASE)
        self.answer("second", "c")
        self.finish(process)
        self.assertEqual(self.scratch.notes(), ["first", "second", "third"])
        return process

    def test_the_plugin_is_activated_when_the_shell_has_ended(self):
        self.shell("echo was here > /tmp/shell", "exit 3")
        self.assertEqual(self.scratch.read_lines("/tmp/shell"), ["was here"])

    def test_the_shell_leads_a_session_with_the_terminal_and_has_no_other_descriptor(self):
        self.need_proc()
        self.shell("echo $0 > /tmp/name", "cat /proc/$$/stat > /tmp/stat",
                   "for n in 3 4 5 6 7 8 9; do [ -e /proc/$$/fd/$n ] && echo $n; done > /tmp/fds",
                   "echo terminal > /dev/tty && echo works > /tmp/tty", "exit")
        fields = self.scratch.read("/tmp/stat").rsplit(b")", 1)[1].split()
        pid = int(self.scratch.read("/tmp/stat").split()[0])
        self.assertEqual(int(fields[3]), pid, "the session")
        self.assertNotEqual(int(fields[4]), 0, "the controlling terminal")
        self.assertEqual(self.scratch.read_lines("/tmp/fds"), [])
        self.assertEqual(self.scratch.read_lines("/tmp/name"), ["/bin/sh"])

    def test_the_terminal_is_put_right_when_the_shell_changed_it(self):
        self.shell("/bin/busybox stty raw -echo; exit")

    def test_the_terminal_is_put_right_when_the_shell_died(self):
        self.shell("/bin/busybox stty raw -echo; kill -9 $$")

    def test_a_shell_that_is_missing_is_a_line_in_the_log(self):
        self.scratch.remove("/bin/sh")
        self.scratch.command("note add", ["/bin/busybox", "touch", "/tmp/{text}"],
                             text={"required": True})
        process = self.start()
        self.answer("first", "t")
        self.expect(ERASE)
        self.answer("second", "c")
        self.finish(process)
        self.assertIn("unable to exec shell: No such file or directory", self.logged())
        self.assertTrue(self.scratch.exists("/tmp/first"))


class OtherInput(PromptCase):
    def test_input_that_is_no_terminal_is_read_all_the_same(self):
        reader, writer = os.pipe()
        self.addCleanup(os.close, writer)
        process = self.scratch.start("/usr/sbin/bootforge", "--interactive", extra={0: reader})
        os.close(reader)
        os.write(writer, b"sc")
        self.scratch.finish(process)
        self.assertEqual(process.status, 0)
        self.assertEqual(self.scratch.notes(), ["second", "third"])
        text = process.stdout.decode()
        for line in ("unable to get terminal io state.", "unable to restore terminal io state.",
                     "skipping plugin first (interactive mode request)"):
            self.assertIn(f"]: {line}\n", text)
        self.assertNotIn("unable to set terminal io state.", text)

    def test_the_end_of_input_is_no_answer_and_costs_no_processor(self):
        self.need_proc()
        process = self.scratch.start("/usr/sbin/bootforge", "--interactive")  # on /dev/null
        self.scratch.wait_for(lambda: HIDE.encode() in process.stdout, "the prompt")
        bootforge = [p for p in self.scratch.processes("--interactive")
                     if p.inner_pid == process.pid][0]

        def switches():
            with open(f"/proc/{bootforge.pid}/task/{self.worker(bootforge)}/status",
                      encoding="utf-8") as file:
                return [int(line.split()[1]) for line in file
                        if line.startswith("voluntary_ctxt_switches")][0]

        def ticks():
            with open(f"/proc/{bootforge.pid}/stat", encoding="utf-8") as file:
                fields = file.read().rsplit(")", 1)[1].split()
            return int(fields[11]) + int(fields[12])

        before, used = switches(), ticks()
        self.scratch.wait_for(lambda: switches() >= before + 10, "ten more attempts to read")
        self.assertLess(ticks() - used, 20)  # of the hundred that a second has
        self.assertIsNone(process.status)
        bootforge.signal(signal.SIGKILL)
        self.scratch.finish(process)
        for executor in self.scratch.executors():
            executor.signal(signal.SIGKILL)

    def worker(self, process):
        """The thread that runs the plugins: the last one."""
        return max(int(task) for task in os.listdir(f"/proc/{process.pid}/task"))


if __name__ == "__main__":
    host_case.main()
