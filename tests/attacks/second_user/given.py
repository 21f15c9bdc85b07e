"""What reaches each kind of child when bootforge itself was started with odd things: the whole of
its descriptors, environment, signals, umask, ids and working directory."""

import collections
import functools
import os
import re
import subprocess
import tempfile
import time

import scratch_host
from root_folder import BOOTFORGE, EVTD, EXECUTOR_LOG, PLUGINS, SYSLOGD, SYSLOGD_PID
from scenarios import HEADER, LIBRARY, Terminal

HERE = os.path.dirname(os.path.realpath(__file__))
UMASKS = ("0000", "0022", "0027", "0077", "0777")
ODD = ["PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/", "EMPTY=", "TWICE=1", "TWICE=2", "NOVALUE",
       "=nameless", "LINES=a\nb", "odd name=1", "\udcff\udcfe=bytes"]
NONE = "0000000000000000"
SIGNALS = ("SigPnd", "ShdPnd", "SigBlk", "SigIgn", "SigCgt")
UPGRADE = "/usr/lib/nimbus/hvsyslog/bin/upgrade-syslog.conf.sh"

Record = collections.namedtuple("Record", "words descriptors signals umask ids place environment")


class Wrong(AssertionError):
    """A child was given something else."""


@functools.lru_cache(maxsize=None)
def program(name, *options):
    """A program of this folder, compiled."""
    with tempfile.TemporaryDirectory(prefix="bootforge-second-user-") as folder:
        target = f"{folder}/program"
        subprocess.run(["cc", "-Wall", "-Wextra", "-Werror", "-O1", *options, "-o", target,
                        f"{HERE}/{name}.c"], check=True)
        with open(target, "rb") as file:
            return file.read()


def read_records(data):
    """What the processes of one name have written, in their order."""
    records = []
    for part in data.decode("utf-8", "surrogateescape").split("\0\0")[:-1]:
        found = collections.defaultdict(list)
        for item in part.split("\0"):
            kind, _, text = item.partition(" ")
            found[kind].append(text)
        descriptors = {}
        for text in found["fd"]:
            number, flags, target = text.split(" ", 2)
            descriptors[int(number)] = (int(flags), target)
        signals = dict(kind.split(":\t", 1) for kind in found if ":\t" in kind)
        records.append(Record(found["word"], descriptors, signals, found["umask"][0],
                              found["ids"][0], found["cwd"][0], found["env"]))
    return records


class Host:
    """A host in which every program that bootforge starts notes what it was given."""

    def __init__(self, umask):
        self.umask = umask
        self.host = host = scratch_host.ScratchHost()
        look = program("state")
        host.write("/usr/bin/dirty", look, 0o755)
        host.write("/usr/bin/odd", look, 0o755)
        host.write("/etc/secret", "secret\n", 0o600)
        self.place(SYSLOGD, EVTD, UPGRADE, "/usr/bin/command", "/usr/bin/limited", "/usr/bin/debug",
                   "/etc/init.d/direct", "/etc/init.d/launched", "/bin/chkconfig", "/bin/sh")
        os.mkdir(host.path("/bin/real"))
        os.symlink(f"{LIBRARY}/chkconfig", host.path("/bin/real/chkconfig"))
        os.symlink("../busybox", host.path("/bin/real/sh"))
        host.write(f"{PLUGINS}/libnative.so",
                   program("state", "-shared", "-fPIC", "-DAS_PLUGIN", f"-I{HEADER}"), 0o755)
        host.command("look plain", ["/usr/bin/command"])
        host.command("look limited", ["/usr/bin/limited"], timeout=30)
        host.plugin("json", start=["look plain", "look limited"])
        host.debug("probe:probed:any:/usr/bin/debug")
        host.write("/etc/syslog.conf", "")
        host.write(SYSLOGD_PID, "4194303\n")
        for name, number in (("direct", 10), ("launched", 20)):
            os.makedirs(host.path("/etc/rc3.d"), exist_ok=True)
            os.symlink(f"../init.d/{name}", host.path(f"/etc/rc3.d/S{number}{name}"))
        host.run("/bin/real/chkconfig", "--add-launchers")
        host.remove(f"{LIBRARY}/init.d/direct")

    def place(self, *paths):
        for path in paths:
            self.host.remove(path)
            self.host.write(path, program("state"), 0o755)

    def records(self, path):
        return read_records(self.host.read(f"/tmp/state-{os.path.basename(path)}") or b"")

    def record(self, path, chosen=lambda _: True):
        found = [record for record in self.records(path) if chosen(record)]
        if len(found) != 1:
            raise Wrong(f"{path} ran {len(found)} times, not once\n{self.host.describe()}")
        return found[0]

    def start(self, *words, **options):
        return self.host.start("/usr/bin/dirty", self.umask, BOOTFORGE, *words, **options)

    def check(self, title, record, words, descriptors, given=None):
        """The whole of it is as it has to be. `given` is what a shell between us hands on."""
        wanted = Record(words, descriptors, given.signals if given else dict.fromkeys(SIGNALS, NONE),
                        f"{int(self.umask, 8) | 0o022:04o}", "0 0", "/",
                        given.environment if given else ODD)
        for field in Record._fields:
            got, want = getattr(record, field), getattr(wanted, field)
            if got != want:
                raise Wrong(f"{title}, umask {self.umask}: {field}: {got!r}, not {want!r}\n"
                            f"{self.host.describe()}")

    def from_shell(self):
        """What the host's own shell hands on when nothing but the environment is odd: it changes
        that, and some leave a signal ignored."""
        self.host.run("/usr/bin/odd", "/bin/real/sh", "-c", "/usr/bin/debug")
        record = self.record("/usr/bin/debug")
        self.host.remove("/tmp/state-debug")
        return record


def stream(host, process, number):
    """What a standard stream of a program leads to that the host has started."""
    end = process._stdout if number == 1 else process._stderr
    return os.O_WRONLY, f"pipe:[{os.fstat(end.fd).st_ino}]"


def children_of_a_boot(umask):
    """The kinds: syslog daemon, event daemon, commands without and with a limit of time, native
    plugin, debug injection, upgrade script."""
    given = Host(umask)
    host = given.host
    try:
        shell = given.from_shell()
        process = given.start("--init")
        host.finish(process)
        host.wait_for_emptiness()
        if process.status != 0:
            raise Wrong(f"the boot ended with {process.status}\n{host.describe()}")
        null, read_null = (os.O_RDWR, "/dev/null"), (os.O_RDONLY, "/dev/null")
        own = {0: read_null, 1: stream(host, process, 1), 2: stream(host, process, 2)}
        appended = (os.O_WRONLY | os.O_APPEND, "/dev/null")
        nulls = {0: null, 1: appended, 2: appended}
        given.check("syslog daemon", given.record(SYSLOGD), [SYSLOGD], nulls)
        given.check("event daemon", given.record(EVTD), [EVTD, "start"], nulls)
        log = (os.O_WRONLY | os.O_APPEND, EXECUTOR_LOG)
        for path in ("/usr/bin/command", "/usr/bin/limited"):
            record = given.record(path)
            flags, target = record.descriptors.get(2, (None, ""))
            if flags != os.O_WRONLY or not target.startswith("pipe:") or target == own[2][1]:
                raise Wrong(f"{path}: standard error is {flags} {target}")
            given.check(path, record, [path], {0: read_null, 1: log, 2: (flags, target)})
        given.check("native plugin", given.record("native"), [], own)
        for path in ("/usr/bin/debug", UPGRADE):
            words = ["sh", "-c", path]
            given.check(f"shell of {path}", given.record(
                "/bin/sh", lambda record, words=words: record.words == words), words, own)
            given.check(path, given.record(path), [path], own, shell)
        return 9
    finally:
        host.close()


def children_of_daemons(umask):
    """The kinds: list of scripts, script without and with a launcher."""
    given = Host(umask)
    host = given.host
    try:
        shell = given.from_shell()
        process = given.start("--daemon=wait", "--method=start")
        host.finish(process)
        host.wait_for_emptiness()
        if process.status != 0:
            raise Wrong(f"the run ended with {process.status}\n{host.describe()}")
        null, read_null = (os.O_RDWR, "/dev/null"), (os.O_RDONLY, "/dev/null")
        record = given.record("/bin/chkconfig")
        flags, target = record.descriptors.get(1, (None, ""))
        own_output = stream(host, process, 1)[1]
        if flags != os.O_WRONLY or not target.startswith("pipe:") or target == own_output:
            raise Wrong(f"chkconfig: standard output is {flags} {target}")
        given.check("chkconfig", record, ["/bin/chkconfig", "-p"],
                    {0: read_null, 1: (flags, target), 2: stream(host, process, 2)}, shell)
        script = "/etc/init.d/direct"
        given.check("script", given.record(script), [script, "++group=init/direct", "start"],
                    {0: null, 1: null, 2: null})
        record = given.record("/etc/init.d/launched")
        flags, target = record.descriptors.get(2, (None, ""))
        if flags != os.O_WRONLY or not target.startswith("pipe:"):
            raise Wrong(f"launched script: standard error is {flags} {target}")
        given.check("launched script", record, ["/etc/init.d/launched", "start"],
                    {0: null, 1: null, 2: (flags, target)})
        return 3
    finally:
        host.close()


def executor_itself(umask):
    """What the executor has, which is a fork of bootforge that never becomes another program."""
    given = Host(umask)
    host = given.host
    try:
        host.script("/usr/bin/command", "read x </tmp/gate\n")
        host.gate("/tmp/gate")
        process = given.start("--init")
        host.wait_for(lambda: host.processes("/usr/bin/command"), "the command", 20)
        executor, = host.executors()
        with open(f"/proc/{executor.pid}/environ", "rb") as file:
            environment = file.read().decode("utf-8", "surrogateescape").split("\0")[:-1]
        with open(f"/proc/{executor.pid}/status", encoding="utf-8") as file:
            fields = dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
        log = EXECUTOR_LOG
        # Listener, the connection that is served, the one that is held in reserve, the syslog.
        # The loop has three of its own; the program that runs has the null device, both ends of a
        # pipe, and its own end as a fourth.
        wanted = sorted(["/dev/null", log, log, *["socket"] * 4, *["anon_inode"] * 3,
                         "/dev/null", "pipe", "pipe", "anon_inode"])

        def kinds():
            return sorted(target.removeprefix(host.root) if target.startswith("/") else
                          re.sub(r":.*", "", target) for target in executor.descriptors().values())

        try:
            host.wait_for(lambda: kinds() == wanted, "the descriptors", 5)
        except scratch_host.Timeout:
            pass  # told below
        ignored = {number + 1 for number in range(64) if int(fields["SigIgn"], 16) >> number & 1}
        for title, got, want in (
                ("descriptors", kinds(), wanted), ("environment", environment, ODD),
                ("ignored signals", ignored, {13, 25}), ("blocked", fields["SigBlk"], NONE),
                ("umask", fields["Umask"], f"{int(umask, 8) | 0o022:04o}"),
                ("folder", os.readlink(f"/proc/{executor.pid}/cwd"), host.root)):
            if got != want:
                raise Wrong(f"executor, umask {umask}: {title}: {got!r}, not {want!r}\n"
                            f"{host.describe()}")
        host.open_gate("/tmp/gate")
        host.finish(process)
        host.wait_for_emptiness()
        return 1
    finally:
        host.close()


def prompt_shell(umask):
    """The shell that the operator asks for."""
    given = Host(umask)
    host = given.host
    try:
        for path in (f"{PLUGINS}/libnative.so", "/etc/nimbus/bootforge/debug.conf",
                     f"{PLUGINS}/json.json"):
            host.remove(path)
        host.plugin("only")
        terminal = host.attach(Terminal())
        process = given.start("--interactive", stdout=terminal.slave,
                              extra={0: terminal.slave, 2: terminal.slave})
        host.wait_for(lambda: b"(s)kip" in terminal.data, "the prompt")
        os.write(terminal.fd, b"t\n")
        host.wait_for(lambda: given.records("/bin/sh"), "the shell")
        os.write(terminal.fd, b"exit\n")
        next_look = time.monotonic() + 0.5

        def ended():
            nonlocal next_look
            if process.status is None and time.monotonic() > next_look:
                next_look = time.monotonic() + 0.5
                terminal.answer()
            return process.status is not None

        host.wait_for(ended, "the run")
        host.wait_for_emptiness()
        name = os.ttyname(terminal.slave)
        own = {number: (os.O_RDWR, name) for number in range(3)}
        given.check("shell of the prompt", given.record("/bin/sh"), ["/bin/sh"], own)
        return 1
    finally:
        host.close()


KINDS = [children_of_a_boot, children_of_daemons, executor_itself, prompt_shell]
