#!/usr/bin/env python3
"""Makes a directory a host of its own and runs commands in it, one after another, on request.

usage: private_host.py ROOT

Runs as process 1 of new mount, pid, network, uts and ipc namespaces, as root or as the root of a
new user namespace. When it ends, the kernel ends every process of the host and drops every mount.

Standard input is the line to whoever started it (host_session.py), a socket of messages in JSON. It
sends {"ready": true}, with the near end of the operator's terminal. Each request is {"command":
[PROGRAM, ARGUMENT...], "terminal": false}, with the descriptor that becomes the command's standard
output; the answer is {"status": N}. With "terminal": true the command reads from and writes to the
operator's terminal instead. The host ends when the line does: then whoever started it is gone.

It plays the kernel's part: what the host writes to /dev/kmsg goes to ROOT/var/log/kernel.log (as
"<level>[seconds] text") and what it shows on /dev/console to ROOT/var/log/console.log. Exit status
125: the host could not be made.
"""

import array
import fcntl
import json
import os
import queue
import select
import signal
import socket
import subprocess
import sys
import termios
import threading
import time

DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
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


def make_terminal(dev):
    """A new terminal of the host: a descriptor of its near end, and its path."""
    near = os.open(f"{dev}/pts/ptmx", os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
    fcntl.ioctl(near, TIOCSPTLCK, array.array("i", [0]))
    number = array.array("i", [0])
    fcntl.ioctl(near, TIOCGPTN, number)
    fcntl.ioctl(near, termios.TIOCSWINSZ, array.array("H", [25, 80, 0, 0]))
    return near, f"{dev}/pts/{number[0]}"


def make_devices(root):
    """Fills ROOT/dev; returns descriptors of the kernel log's and the console's near ends."""
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
    console, path = make_terminal(dev)
    open(f"{dev}/console", "w").close()
    mount("--bind", path, f"{dev}/console")
    os.open(f"{dev}/console", os.O_RDWR | os.O_NOCTTY)  # keeps the far end readable between users
    return kernel_log, console


class Collector(threading.Thread):
    """Copies the kernel log and the console to files."""

    def __init__(self, root, kernel_log, console):
        super().__init__(daemon=True)
        self.kernel_log, self.console = kernel_log, console
        self.kernel_file = open(f"{root}/var/log/kernel.log", "wb", buffering=0)
        self.console_file = open(f"{root}/var/log/console.log", "wb", buffering=0)
        self.wake_up, self.bell = os.pipe()
        self.caught_up = threading.Event()
        self.started = time.monotonic()
        self.rest = b""

    def run(self):
        while True:
            if self.wake_up not in self.wait(None):
                self.copy()
                continue
            os.read(self.wake_up, 1)
            while self.wait(0):
                self.copy()
            self.caught_up.set()

    def catch_up(self, seconds=None):
        """Returns when everything is copied that was written before, or so much later."""
        self.caught_up.clear()
        os.write(self.bell, b".")
        self.caught_up.wait(seconds)

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


def listen(line, requests, collector):
    """Passes requests on. Ends this process, and so the host, when the line ends."""
    while True:
        message, descriptors, _, _ = socket.recv_fds(line, 65536, 1)
        if not message:
            collector.catch_up(5)
            os._exit(124)
        for fd in descriptors:
            os.set_inheritable(fd, False)  # but as the stream that it is to be
        requests.put((json.loads(message), descriptors))


def run_in_host(root, command, streams):
    """Runs a command in the host, buries meanwhile what else dies there; its exit status."""
    child = os.posix_spawnp(
        "setpriv", ["setpriv", f"--bounding-set={FORBIDDEN}", "chroot", root, *command],
        ENVIRONMENT, setsigdef=[signal.SIGINT, signal.SIGQUIT, signal.SIGPIPE, signal.SIGXFSZ],
        file_actions=[(os.POSIX_SPAWN_DUP2, fd, number) for number, fd in enumerate(streams)])
    while True:
        pid, status = os.wait()
        if pid == child:
            return os.waitstatus_to_exitcode(status)


def serve(root, line, terminal, collector):
    """Runs what is asked for; does not return."""
    requests = queue.SimpleQueue()
    threading.Thread(target=listen, args=(line, requests, collector), daemon=True).start()
    null = os.open("/dev/null", os.O_RDONLY)
    while True:
        request, descriptors = requests.get()
        streams = (terminal,) * 3 if request["terminal"] else (null, *descriptors)
        status = run_in_host(root, request["command"], streams)
        for fd in descriptors:
            os.close(fd)
        collector.catch_up()
        line.send(json.dumps({"status": status if status >= 0 else 128 - status}).encode())


def main():
    root, = sys.argv[1:]
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, frame: os._exit(128 + number))
    os.environ["PATH"] = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    line = socket.socket(fileno=os.dup(0))
    try:
        socket.sethostname("unnamed")
        mount_proc_and_sys(root)
        collector = Collector(root, *make_devices(root))
        collector.start()
        near, path = make_terminal(f"{root}/dev")
        terminal = os.open(path, os.O_RDWR | os.O_NOCTTY)  # readable between its users, too
    except OSError as error:
        print(f"private host: {error}", file=sys.stderr)
        return 125
    socket.send_fds(line, [b'{"ready": true}'], [near])
    serve(root, line, terminal, collector)


if __name__ == "__main__":
    sys.exit(main())
