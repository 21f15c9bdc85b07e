#!/usr/bin/env python3
"""Makes a directory a host of its own, boots a command in it and looks at it afterwards.

usage: private_host.py ROOT COMMAND [ARGUMENT...]

Runs as process 1 of new mount, pid, network, uts and ipc namespaces, as root or as the root of a
new user namespace. When it ends, the kernel ends every process of the host and drops every mount.
It ends early when its standard input does: then whoever started it is gone.

It plays the kernel's part: what the host writes to /dev/kmsg goes to ROOT/var/log/kernel.log (as
"<level>[seconds] text") and what it shows on /dev/console to ROOT/var/log/console.log. After the
command, the host's own status program, if it has one, writes ROOT/var/log/status.txt. The exit
status is that of COMMAND; 125 when the host could not be made.
"""

import array
import fcntl
import os
import select
import signal
import socket
import subprocess
import sys
import termios
import threading
import time

DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
STATUS_PROGRAM = "/usr/lib/nimbus/host/status"
# What belongs to the machine and not to a namespace: its clock, modules, ports and raw devices.
FORBIDDEN = "-sys_time,-sys_module,-sys_rawio,-sys_boot,-mknod"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/", "TERM": "linux"}
TIOCGPTN, TIOCSPTLCK = 0x80045430, 0x40045431


def mount(*arguments):
    done = subprocess.run(["mount", *arguments], capture_output=True, text=True)
    if done.returncode:
        raise OSError(done.stderr.strip().partition("\n")[0])


def mount_proc_and_sys(root):
    proc = f"{root}/proc"
    mount("-t", "proc", "proc", proc)
    # Parameters of the network are the host's own, all others are the machine's.
    mount("--bind", f"{proc}/sys", f"{proc}/sys")
    mount("--bind", f"{proc}/sys/net", f"{proc}/sys/net")
    mount("-o", "remount,bind,ro", f"{proc}/sys")
    if os.path.exists(f"{proc}/sysrq-trigger"):
        mount("--bind", "/dev/null", f"{proc}/sysrq-trigger")
    try:
        mount("-t", "sysfs", "-o", "ro", "sysfs", f"{root}/sys")
    except OSError as error:
        print(f"private host: it has to do without /sys ({error})", file=sys.stderr)


def make_devices(root):
    """Fills ROOT/dev; returns descriptors of the kernel log's and the console's far ends."""
    dev = f"{root}/dev"
    mount("-t", "tmpfs", "-o", "mode=0755,size=1m", "tmpfs", dev)
    for name in DEVICES:  # making device nodes is not for everybody, showing them elsewhere is
        open(f"{dev}/{name}", "w").close()
        mount("--bind", f"/dev/{name}", f"{dev}/{name}")
    for number, name in enumerate(("stdin", "stdout", "stderr")):
        os.symlink(f"/proc/self/fd/{number}", f"{dev}/{name}")
    os.symlink("/proc/self/fd", f"{dev}/fd")

    os.mkfifo(f"{dev}/kmsg", 0o600)
    kernel_log = os.open(f"{dev}/kmsg", os.O_RDWR | os.O_NONBLOCK)

    os.mkdir(f"{dev}/pts")
    mount("-t", "devpts", "-o", "newinstance,ptmxmode=0666,mode=0620", "devpts", f"{dev}/pts")
    os.symlink("pts/ptmx", f"{dev}/ptmx")
    console = os.open(f"{dev}/pts/ptmx", os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
    fcntl.ioctl(console, TIOCSPTLCK, array.array("i", [0]))
    number = array.array("i", [0])
    fcntl.ioctl(console, TIOCGPTN, number)
    fcntl.ioctl(console, termios.TIOCSWINSZ, array.array("H", [25, 80, 0, 0]))
    open(f"{dev}/console", "w").close()
    mount("--bind", f"{dev}/pts/{number[0]}", f"{dev}/console")
    os.open(f"{dev}/console", os.O_RDWR | os.O_NOCTTY)  # keeps the far end readable between users
    return kernel_log, console


class Collector(threading.Thread):
    """Copies the kernel log and the console to files until told to stop, then what is left."""

    def __init__(self, root, kernel_log, console):
        super().__init__(daemon=True)
        self.kernel_log, self.console = kernel_log, console
        self.kernel_file = open(f"{root}/var/log/kernel.log", "wb", buffering=0)
        self.console_file = open(f"{root}/var/log/console.log", "wb", buffering=0)
        self.wake_up, self.bell = os.pipe()
        self.started = time.monotonic()
        self.rest = b""

    def run(self):
        while self.wake_up not in self.wait(None):
            self.copy()
        while self.wait(0) != {self.wake_up}:
            self.copy()

    def wait(self, timeout):
        return set(select.select([self.kernel_log, self.console, self.wake_up], [], [], timeout)[0])

    def copy(self):
        ready = self.wait(0)
        if self.console in ready:
            self.console_file.write(os.read(self.console, 65536))
        if self.kernel_log in ready:
            *lines, self.rest = (self.rest + os.read(self.kernel_log, 65536)).split(b"\n")
            stamp = b"[%12.6f] " % (time.monotonic() - self.started)
            for line in lines:
                level, mark, text = line.partition(b">")
                self.kernel_file.write(
                    level + mark + stamp + text + b"\n" if mark else stamp + line + b"\n")

    def stop(self):
        os.write(self.bell, b".")
        self.join()


def end_with_starter():
    """Ends this process, and so the host, when standard input does."""
    while os.read(0, 4096):
        pass
    os._exit(124)


def run_in_host(root, command, output):
    """Runs a command in the host, buries meanwhile what else dies there; its exit status."""
    null = os.open("/dev/null", os.O_RDONLY)
    child = os.posix_spawnp(
        "setpriv", ["setpriv", f"--bounding-set={FORBIDDEN}", "chroot", root, *command],
        ENVIRONMENT, setsigdef=[signal.SIGINT, signal.SIGQUIT, signal.SIGPIPE, signal.SIGXFSZ],
        file_actions=[(os.POSIX_SPAWN_DUP2, null, 0), (os.POSIX_SPAWN_DUP2, output, 1)])
    os.close(null)
    while True:
        pid, status = os.wait()
        if pid == child:
            return os.waitstatus_to_exitcode(status)


def main():
    root, *command = sys.argv[1:]
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, frame: os._exit(128 + number))
    os.environ["PATH"] = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    try:
        socket.sethostname("unnamed")
        mount_proc_and_sys(root)
        collector = Collector(root, *make_devices(root))
    except OSError as error:
        print(f"private host: {error}", file=sys.stderr)
        return 125
    threading.Thread(target=end_with_starter, daemon=True).start()
    collector.start()

    status = run_in_host(root, command, 1)
    if os.access(root + STATUS_PROGRAM, os.X_OK):
        with open(f"{root}/var/log/status.txt", "w") as output:
            run_in_host(root, [STATUS_PROGRAM], output.fileno())
    collector.stop()
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main())
