"""An emulated machine with two serial lines: the console, and a shell that takes commands. It has a
keyboard and a screen, too."""

import os
import re
import selectors
import socket
import subprocess
import time

TIMEOUT = 180.0
# Emulated even where the hardware could do it: that takes seconds too, and is the same everywhere.
EMULATOR = ("qemu-system-x86_64", "-accel", "tcg", "-cpu", "max", "-m", "256", "-smp", "2",
            "-no-user-config", "-nodefaults", "-vga", "std", "-display", "none", "-no-reboot")
# A panic ends the machine. The console is the operator's: the kernel says what is urgent only.
PARAMETERS = "rdinit=/sbin/init console=ttyS0 panic=-1 loglevel=1 mitigations=off"


class Line:
    """A serial line. Everything that came stays in `text`."""

    def __init__(self):
        self.near, self.far = socket.socketpair()
        self.near.setblocking(False)
        self.text = ""
        self.seen = 0

    def receive(self):
        """Reads what is there; returns whether more may come."""
        try:
            data = self.near.recv(65536)
        except BlockingIOError:
            return True
        except ConnectionResetError:
            return False
        # A terminal makes two characters of a newline; the tests speak of one.
        self.text = (self.text + data.decode("utf-8", "replace")).replace("\r\n", "\n")
        return bool(data)

    def type(self, keys):
        self.near.sendall(keys.encode())

    def close(self):
        self.near.close()
        self.far.close()


def drive_words(disk, log):
    """The emulator's options for the disk."""
    if log is None:
        return ["-drive", f"file={disk},format=raw,if=none,id=disk",
                "-device", "nvme,drive=disk,serial=disk"]
    # The emulated NVMe disk does not pass on which writes are to be on the disk when they are done.
    return ["-blockdev", f"driver=raw,node-name=plain,file.driver=file,file.filename={disk}",
            "-blockdev", "driver=blklogwrites,node-name=disk,file=plain,"
                         f"log.driver=file,log.filename={log}",
            "-device", "virtio-blk-pci,drive=disk"]


class Machine:
    """For a `with` statement, which ends with the machine gone. With the path of a log, an empty
    file, each write to the disk is appended there, too, in the format of the kernel's
    dm-log-writes."""

    def __init__(self, kernel, initramfs, disk, variables, log=None):
        self.console, self.shell, self.monitor = Line(), Line(), Line()
        self.commands = 0
        words = ["setpriv", "--pdeathsig", "KILL", *EMULATOR, "-kernel", kernel,
                 "-initrd", initramfs, "-append", f"{PARAMETERS} {variables}",
                 *drive_words(disk, log)]
        lines = {self.console: "-serial", self.shell: "-serial", self.monitor: "-monitor"}
        for line, use in lines.items():
            name = f"line{line.far.fileno()}"
            words += ["-chardev", f"socket,id={name},fd={line.far.fileno()}",
                      use, f"chardev:{name}"]
        self.process = subprocess.Popen(
            words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            pass_fds=[line.far.fileno() for line in lines])
        self.selector = selectors.DefaultSelector()
        for line in lines:
            line.far.close()
            self.selector.register(line.near, selectors.EVENT_READ, line)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        self.selector.close()
        for line in (self.console, self.shell, self.monitor):
            line.close()

    def wait_for(self, condition, what):
        """Reads the lines until the condition holds; returns its value. Raises when it takes too
        long, or when the machine is off."""
        deadline = time.monotonic() + TIMEOUT
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > deadline or not self.selector.get_map():
                raise AssertionError(f"waited in vain for {what}\n{self.describe()}")
            for key, _ in self.selector.select(0.05):
                if not key.data.receive():
                    self.selector.unregister(key.fileobj)

    def expect(self, text):
        """Waits for a text on the console, after all that was waited for before."""
        console = self.console
        place = self.wait_for(lambda: console.text.find(text, console.seen) + 1,
                              f"{text!r} on the console, after {console.text[console.seen:]!r}")
        console.seen = place - 1 + len(text)

    def press(self, *keys):
        """Presses keys of the keyboard, by the emulator's names for them."""
        for key in keys:
            self.monitor.type(f"sendkey {key}\n")

    def run(self, command):
        """Runs a command in the guest; returns what it wrote."""
        self.wait_for(lambda: "=== 0 ===\n" in self.shell.text, "the shell")
        self.commands += 1
        mark = f"=== {self.commands} ===\n"
        start = len(self.shell.text)
        # The mark is not in the command as it is in the answer.
        self.shell.type(f"{{ {command}\n}} 2>&1; echo '=== '{self.commands}' ==='\n")
        self.wait_for(lambda: mark in self.shell.text[start:], f"the end of: {command}")
        return self.shell.text[start:self.shell.text.index(mark, start)]

    def wait_until(self, command):
        """Runs a command in the guest again and again until it succeeds."""
        self.run(f"until {command}; do usleep 50000; done")

    def wait_for_end(self):
        """Waits until the machine is switched off; returns the emulator's exit status."""
        self.wait_for(lambda: not self.selector.get_map(), "the machine to switch itself off")
        return self.process.wait(TIMEOUT)

    def processes(self):
        """The guest's processes: (pid, parent, command line) of each with a command line."""
        rows = re.findall(r"^ *(\d+) +(\d+) (.*)$", self.run("ps -o pid,ppid,args"), re.M)
        return [(int(pid), int(parent), words) for pid, parent, words in rows]

    def describe(self):
        said = b""
        if self.process.poll() is not None:
            said = self.process.stdout.read()
        return (f"--- emulator, status {self.process.returncode}\n{said.decode()}\n"
                f"--- console\n{self.console.text[-8000:]}\n"
                f"--- shell\n{self.shell.text[-8000:]}").replace("\033", "^[")
