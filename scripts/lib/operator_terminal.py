"""The operator's prompt on a person's own terminal.

The program asks on a terminal of the host, where its log goes too. This stands between that and the
terminal of whoever called: it takes the log's lines out, passes the prompt and the troubleshooting
shell on as they are, and gives the program the keys that it asks for, when it asks.
"""

import collections
import fcntl
import os
import re
import signal
import sys
import termios

PROMPT = b"current plugin: "
SHOW_CURSOR = b"\x1b[?25h"
RESET = b"\x1b[0m"
ANSWER = re.compile(rb"\r(\x1b\[3\dm\(c\)[^\r\n]*)\r?\n")
CHOSEN = re.compile(rb"\x1b\[3[0-6]m\(([cets])\)")
# The program erases the line when the shell has ended, and says what it does next.
SHELL_ENDED = re.compile(
    rb"\x1b\[2K(?=\d{4}-\d\d-\d\dT[\d:.]+Z info bootforge\[\d+\]: executing )")
PERHAPS_ENDED = re.compile(
    rb"\x1b(?:\[(?:2(?:K(?:[-\dT:.]{1,24}(?:Z[ \w[\]:]*)?)?)?)?)?\Z")
INTERRUPT = b"\x03"
PAUSE = 0.01  # seconds until the program's terminal is looked at again

# What the program is doing, as far as its output tells.
RUNNING, ASKING, TOLD, ANSWERED, IN_SHELL = "running", "asking", "told", "answered", "in the shell"


class OperatorTerminal:
    """For a `with` statement, which ends with the terminal as it was. near_end: of the host's
    terminal; take_log: gets what belongs to the log."""

    def __init__(self, near_end, take_log):
        self.near_end, self.take_log = near_end, take_log
        self.state = RUNNING
        self.unread = b""  # of the program's output
        self.shown = 0  # so much of that is on the screen already
        self.keys = collections.deque()

    def __enter__(self):
        self.saved = termios.tcgetattr(0)
        settings = termios.tcgetattr(0)
        settings[0] &= ~(termios.ICRNL | termios.INLCR | termios.IGNCR | termios.IXON)
        settings[3] &= ~(termios.ICANON | termios.ECHO | termios.ISIG | termios.IEXTEN)
        settings[6][termios.VMIN], settings[6][termios.VTIME] = 1, 0
        termios.tcsetattr(0, termios.TCSADRAIN, settings)
        self.copy_size()
        signal.signal(signal.SIGWINCH, lambda number, frame: self.copy_size())
        return self

    def __exit__(self, *_):
        signal.signal(signal.SIGWINCH, signal.SIG_DFL)
        self.show(RESET + SHOW_CURSOR)
        termios.tcsetattr(0, termios.TCSADRAIN, self.saved)

    def copy_size(self):
        size = fcntl.ioctl(0, termios.TIOCGWINSZ, bytes(8))
        fcntl.ioctl(self.near_end, termios.TIOCSWINSZ, size)

    @staticmethod
    def show(data):
        sys.stdout.flush()
        while data:
            data = data[os.write(1, data):]

    # From the program

    def receive(self, data):
        self.unread += data
        read = {RUNNING: self.read_log, ASKING: self.read_prompt, TOLD: self.read_prompt,
                ANSWERED: self.read_answer, IN_SHELL: self.read_shell}
        while read[self.state]():
            pass

    def take(self, count):
        taken, self.unread = self.unread[:count], self.unread[count:]
        return taken

    def read_log(self):
        place = self.unread.find(PROMPT)
        if place < 0:
            self.take_log(self.take(self.unread.rfind(b"\n") + 1))
            return False
        self.take_log(self.take(place))
        self.state, self.shown = ASKING, 0
        return True

    def read_prompt(self):
        end = self.unread.find(SHOW_CURSOR)
        end = end + len(SHOW_CURSOR) if end >= 0 else len(self.unread)
        self.show(self.unread[self.shown:end])
        self.shown = end
        if SHOW_CURSOR not in self.unread:
            return False
        self.take(end)
        self.state = ANSWERED
        return True

    def read_answer(self):
        """The log may speak before the program has drawn what was chosen: it has to wait."""
        answer = ANSWER.search(self.unread)
        if not answer:
            return False
        taken = self.take(answer.end())
        self.show(b"\r" + answer[1] + b"\n")
        self.take_log(taken[:answer.start()])
        self.state = IN_SHELL if CHOSEN.search(answer[1])[1] == b"t" else RUNNING
        return True

    def read_shell(self):
        ended = SHELL_ENDED.search(self.unread)
        if ended:
            self.show(self.take(ended.end()))
            self.state = RUNNING
            return True
        if PROMPT in self.unread:  # something else wrote in between
            self.show(self.take(self.unread.find(PROMPT)))
            self.state = RUNNING
            return True
        perhaps = PERHAPS_ENDED.search(self.unread)
        self.show(self.take(perhaps.start() if perhaps else len(self.unread)))
        return False

    def finish(self):
        """The program has ended."""
        (self.take_log if self.state == RUNNING else self.show)(self.take(len(self.unread)))

    # To the program

    def fileno(self):
        return 0

    def seconds(self):
        return PAUSE if self.keys else None

    def ready(self, typed):
        """Takes the keys that were typed, if any, and hands on what the program reads now."""
        if typed:
            keys = os.read(0, 4096)
            if not keys:
                raise SystemExit(128 + signal.SIGHUP)
            if INTERRUPT in keys and self.state != IN_SHELL:
                raise SystemExit(128 + signal.SIGINT)
            self.keys.extend(keys[i:i + 1] for i in range(len(keys)))
        while self.keys and self.is_reading():
            key = self.keys.popleft()
            os.write(self.near_end, key)
            if self.state == ASKING and key.lower() in b"cets":
                self.state = TOLD

    def is_reading(self):
        """Whether a key would not be echoed among the log, nor read by another than it is for."""
        if self.state == ASKING:
            return not termios.tcgetattr(self.near_end)[3] & (termios.ICANON | termios.ECHO)
        return self.state == IN_SHELL
