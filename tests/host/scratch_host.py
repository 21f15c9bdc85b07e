"""A scratch host: a root of its own with the installed programs, its devices and its processes.

    host = ScratchHost()
    host.plugin("network", provides=["net"], start=["note add --text=up"])
    boot = host.boot("--init")
    boot.status, boot.messages, boot.stderr, host.kernel_log(), host.profile()
    host.close()

Nothing here waits without a bound: what does not come within TIMEOUT raises Timeout, with the whole
state of the host in its text. All of it runs on the test's one thread; waiting is what reads the
ends of the host's devices.
"""

import json
import os
import selectors
import signal
import socket
import stat
import time

import endpoints
import host_process
import isolation
import keeper
import readings
import root_folder
from root_folder import BOOTFORGE, EXECUTOR_LOG, GLANCE, PROFILE, RECORD

TIMEOUT = 20.0 * float(os.environ.get("BOOTFORGE_HOST_TIMEOUT_SCALE", "1"))
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/"}
# For programs built with sanitizers: their settings reach the host too.
PASSED_ON = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS", "LLVM_PROFILE_FILE")
# Programs that count which lines run write into this folder of the machine, scripts/coverage.
COUNTERS = os.environ.get("BOOTFORGE_HOST_COUNTERS")


class Timeout(AssertionError):
    """Something did not happen in time."""


class Process:
    """A program started in a host."""

    def __init__(self, number, words, stdout, stderr):
        self.number, self.words = number, words
        self._stdout, self._stderr = stdout, stderr
        self.pid = None  # in the host's numbers
        self.status = None  # the exit status, or minus the signal

    @property
    def stdout(self):
        return self._stdout.text if self._stdout else b""

    @property
    def stderr(self):
        return self._stderr.text if self._stderr else b""

    @property
    def lines(self):
        return readings.log_lines(self.stdout)

    @property
    def messages(self):
        """Standard output as (level, text) pairs, measured times masked."""
        return [(line.level, readings.without_numbers(line.text)) for line in self.lines]


class ScratchHost(root_folder.RootFolder):
    """Make it, use it, close it. Without `devices` there is neither /dev/kmsg nor /dev/log."""

    def __init__(self, devices=True):
        self.isolation = isolation.isolation()
        super().__init__(os.environ["BOOTFORGE_HOST_IMAGE"])
        self.transcript = None
        self._selector = selectors.DefaultSelector()
        self._endpoints = []
        self._processes = {}
        self._keeper = None
        self.kernel = self.system_log = self.console = None
        if devices:
            self.kernel = self.attach(endpoints.KernelLog(self.path("/dev/kmsg")))
            self.system_log = self.attach(endpoints.SystemLog(self.root))
        self._make_null()
        if self.isolation.mounts:
            self.console = self.attach(endpoints.Console())
            self.write("/dev/console", "")
            self.mount(self.console.slave_path, "/dev/console", flags=isolation.MS_BIND)
        if COUNTERS and self.isolation.mounts:
            os.makedirs(self.path(COUNTERS))
            self.mount(COUNTERS, COUNTERS, flags=isolation.MS_BIND)
        self._guard, self._keeper, self._channel = keeper.start_keeper(self.root,
                                                                       self.isolation.pids)
        self._channel.setblocking(False)
        self._selector.register(self._channel, selectors.EVENT_READ, None)

    def _make_null(self):
        if self.isolation.mounts:
            self.write("/dev/null", "")
            self.mount("/dev/null", "/dev/null", flags=isolation.MS_BIND)
        else:
            os.mknod(self.path("/dev/null"), stat.S_IFCHR | 0o666, os.makedev(1, 3))
            os.chmod(self.path("/dev/null"), 0o666)

    def close(self):
        """Ends every process of the host, then removes it. Raises when anything is left."""
        if self.transcript is not None:
            return
        self.transcript = self.describe()
        inside = self.processes()
        self._end_keeper()
        for endpoint in self._endpoints:
            endpoint.close()
        self._selector.close()
        self.delete()
        alive = [process for process in inside if host_process.is_alive(process)]
        if alive or os.path.exists(self.root):
            raise AssertionError(f"left behind: {alive or self.root}")

    def _end_keeper(self):
        while not self.isolation.pids and self.processes():
            for process in self.processes():
                process.signal(signal.SIGKILL)
        self._channel.close()
        deadline = time.monotonic() + TIMEOUT
        while os.waitpid(self._guard, os.WNOHANG) == (0, 0):
            if time.monotonic() > deadline:
                os.kill(self._guard, signal.SIGKILL)  # and with it goes the keeper
                os.waitpid(self._guard, 0)
                raise Timeout("the host's first process did not end")
            time.sleep(0.0005)
        self._keeper = None

    # Running

    def boot(self, *arguments, **options):
        """Runs bootforge to its end, and waits for the end of the executor that it told to stop."""
        process = self.finish(self.start(BOOTFORGE, *arguments, **options))
        self.wait_for_executor_end()
        return process

    def run(self, program, *arguments, **options):
        return self.finish(self.start(program, *arguments, **options))

    def start(self, program, *arguments, closed=(), stdout=None, extra=None, env=None, cwd="/",
              argv0=None, dropped=(), group_leader=False, limits=None, groups=(), user=0):
        """Starts a program, with standard input from /dev/null and both outputs in pipes.

        `closed` are streams that it does not get at all, `stdout` replaces the pipe, `extra` maps
        more descriptor numbers, `dropped` are capabilities that even root does not get, `limits`
        resource limits by the names of setrlimit(2), `groups` control groups by the paths that
        their processes are written to, `user` the number of the user and the group that it runs as.
        """
        given, streams = {}, {}
        ours = [os.open("/dev/null", os.O_RDONLY)]
        given[0] = ours[0]
        for number in (1, 2):
            if number == 1 and stdout is not None:
                given[1] = stdout
            elif number not in closed:
                reader, given[number] = os.pipe()
                ours.append(given[number])
                streams[number] = self.attach(endpoints.Stream(reader))
        given = {number: fd for number, fd in given.items() if number not in closed}
        given.update(extra or {})
        process = Process(len(self._processes), [program, *arguments], streams.get(1),
                          streams.get(2))
        self._processes[process.number] = process
        passed_on = {name: os.environ[name] for name in PASSED_ON if name in os.environ}
        request = {"id": process.number, "program": program,
                   "argv": [argv0 or program, *arguments],
                   "env": {**ENVIRONMENT, **passed_on, **(env or {})}, "cwd": cwd,
                   "dropped": list(dropped), "group_leader": group_leader,
                   "limits": limits or {}, "groups": list(groups), "user": user,
                   "streams": list(given)}
        socket.send_fds(self._channel, [json.dumps(request).encode()], list(given.values()))
        for fd in ours:
            os.close(fd)
        self.wait_for(lambda: process.pid is not None, f"{program} to start")
        return process

    def finish(self, process, timeout=TIMEOUT):
        """Waits for the end of a program and reads what it wrote."""
        self.wait_for(lambda: process.status is not None,
                      f"{' '.join(process.words)} to end", timeout)
        self.drain()
        return process

    def drain(self):
        """Reads everything that has been written so far."""
        while self._pump(0):
            pass

    def wait_for(self, condition, what, timeout=TIMEOUT):
        """Reads the host's devices until the condition holds; returns its value."""
        deadline = time.monotonic() + timeout
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > deadline:
                raise Timeout(f"waited {timeout:g} s in vain for {what}\n{self.describe()}")
            self._pump(0.002)

    def attach(self, endpoint):
        """Reads an endpoint whenever the test waits, and closes it with the host."""
        self._endpoints.append(endpoint)
        self._selector.register(endpoint.fd, selectors.EVENT_READ, endpoint)
        return endpoint

    def detach(self, endpoint):
        self._endpoints.remove(endpoint)
        self._selector.unregister(endpoint.fd)
        endpoint.close()

    def ignore(self, endpoint):
        """Reads an endpoint no longer, and keeps it open."""
        self._selector.unregister(endpoint.fd)

    def _pump(self, timeout):
        read = False
        for key, _ in self._selector.select(timeout):
            if key.data is None:
                self._take_answer()
                read = True
                continue
            read = key.data.receive() or read
            if getattr(key.data, "ended", False):
                self._selector.unregister(key.fd)
        return read

    def _take_answer(self):
        message = self._channel.recv(keeper.MESSAGE)
        if not message:
            raise AssertionError("the host's first process has died")
        answer = json.loads(message)
        process = self._processes[answer["id"]]
        process.pid = answer.get("pid", process.pid)
        process.status = answer.get("status", process.status)

    # Looking

    def kernel_log(self):
        return readings.kernel_records(self.kernel.text)

    def syslog(self):
        return [readings.syslog_message(message) for message in self.system_log.messages]

    def executor_log(self):
        lines = readings.log_lines(self.read(EXECUTOR_LOG) or b"")
        return [(line.level, line.text) for line in lines]

    def profile(self):
        return readings.read_profile(self.read(PROFILE))

    def record(self):
        return readings.read_record(self.read(RECORD))

    def notes(self):
        """What "note add" commands wrote, in the order in which they ran."""
        return self.read_lines("/tmp/notes")

    def processes(self, *words):
        """The host's processes but for its first one; those with all these words in their command
        line."""
        if self._keeper is None:
            return []
        found = (host_process.in_namespace_of(self._keeper) if self.isolation.pids else
                 host_process.in_root(self.root))
        return [process for process in found if set(words) <= set(process.words)]

    def executors(self):
        """The CLI executors: bootforge processes that have nobody but the host's first process for
        a parent, and that the test did not start; also orphans that are about to end."""
        own = {process.pid for process in self._processes.values()}
        return [process for process in self.processes() if process.parent == self._keeper
                and process.words[:1] in ([], [BOOTFORGE]) and process.inner_pid not in own]

    def wait_for_emptiness(self):
        """Waits until the host has no process but its first one."""
        self.wait_for(lambda: not self.processes(), "the host's last process to end")

    def wait_for_executor_end(self):
        self.wait_for(lambda: not self.executors(), "the executor to end")
        self.drain()

    def describe(self):
        """Everything that may explain a failure."""
        if self.transcript is not None:
            return self.transcript
        self.drain()
        texts = []
        for process in self._processes.values():
            texts.append((f"$ {' '.join(process.words)} -> status {process.status}", b" "))
            texts += [("standard output", process.stdout), ("standard error", process.stderr)]
        texts += [(path, self.glance(path)[1]) for path in (EXECUTOR_LOG, PROFILE, "/tmp/notes")]
        if self.kernel:
            texts += [("/dev/kmsg", self.kernel.text),
                      ("/dev/log", b"\n".join(self.system_log.messages))]
        parts = [f"--- {name}\n{readings.text_of(text[:GLANCE]).rstrip()}"
                 for name, text in texts if text]
        return "\n".join(parts + [f"--- {process}" for process in self.processes()])
