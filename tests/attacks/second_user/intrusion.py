"""Another user beside root's boot: on a host as it should be, and on one with a careless folder."""

import fcntl
import hashlib
import os
import re
import signal
import socket
import stat

import readings
import scratch_host
from given import Wrong, program
from host_case import starting
from root_folder import BOOTFORGE, EXECUTOR_LOG, PROFILE, SOCKET
from scenarios import OLD_PROFILE, SCENARIOS, STORE, daemon_files

USER = 54321
SECRET = b"root's own secret 7f3a"
MOST = 1 << 20  # bytes of a file that is read
LIMIT = 40.0  # seconds for a run; undisturbed it takes a tenth of one
OURS = ("/var/log", "/bootbank", "/var/run/nimbus", "/tmp", "/dev", "/proc", "/srv")
BOOT = ("--init", "--parallel")
DAEMONS = ("--daemon=wait", "--method=start")
DONE = {BOOT: {"first", "second", "third", "native", "probe", "upgrade"},
        DAEMONS: {"alpha start", "beta start", "gamma start"}}
# Owner, group and mode of the folder of logs.
CARELESS = {"0775 of the user's group": (0, USER, 0o775), "0777": (0, 0, 0o777),
            "1777": (0, 0, 0o1777), "the user's own": (USER, USER, 0o755)}
INTRUDER = "/usr/bin/intruder"
REFUSED = "Refused a connection on the control socket - Operation not permitted"


def expect(condition, text, host):
    if not condition:
        raise Wrong(f"{text}\n{host.describe()}")


class Scene:
    """A host with every kind of plugin and script, with secrets, and with another user."""

    def __init__(self, careless=None):
        self.host = host = scratch_host.ScratchHost()
        self.scenario, = [scenario for scenario in SCENARIOS if scenario.name == "init-parallel"]
        self.scenario.prepare(host)
        daemon_files(host)
        self.scenario.reset(host)
        host.write("/etc/secret", SECRET, 0o600)
        host.write("/etc/public", "public\n")
        host.write("/etc/cron.d/old", "old\n")
        host.write("/var/log/other.log", "root's, and for everybody to read\n")
        host.write(INTRUDER, program("intruder"), 0o755)
        os.makedirs(host.path("/srv/user"))
        os.chown(host.path("/srv/user"), USER, USER)
        self.held = []
        if careless:
            owner, group, mode = CARELESS[careless]
            os.chown(host.path("/var/log"), owner, group)
            os.chmod(host.path("/var/log"), mode)
        self.before = self.outside()

    def close(self):
        for end in self.held:
            end.close() if hasattr(end, "close") else os.close(end)
        for process in self.host.processes():
            process.signal(signal.SIGKILL)
        self.host.close()

    def intrude(self, *words, until=None):
        process = self.host.start(INTRUDER, *words, user=USER)
        if until:
            self.host.wait_for(lambda: until in process.stdout or process.status is not None,
                               f"the intruder's {until!r}")
            expect(process.status is None, "the intruder has ended", self.host)
        return process

    def run(self, *words):
        """A run: it does all of its work in time, whatever is done to it."""
        host = self.host
        host.remove("/tmp/notes")
        process = host.finish(host.start(BOOTFORGE, *words), LIMIT)
        expect(process.status == 0, f"{words}: status {process.status}", host)
        missing = DONE[words] - set(host.notes())
        expect(not missing, f"{words}: {missing} did not run", host)
        return process

    def files(self):
        for folder, folders, names in os.walk(self.host.root):
            folders[:] = [name for name in folders
                          if f"{folder}/{name}" not in map(self.host.path, ("/proc", "/dev"))]
            for name in [*names, *folders]:
                path = f"{folder}/{name}"
                try:
                    yield path.removeprefix(self.host.root), os.lstat(path)
                except FileNotFoundError:
                    continue

    def outside(self):
        """What no intruder may change, and no run of ours either."""
        found = {}
        for path, status in self.files():
            if path.startswith(OURS):
                continue
            content = os.readlink(self.host.path(path)) if stat.S_ISLNK(status.st_mode) else \
                hashlib.sha1(self.host.read(path)).digest() if stat.S_ISREG(status.st_mode) else ""
            found[path] = (status.st_mode, status.st_uid, status.st_gid, content)
        return found

    def check(self, title):
        """Root's files are as they were; nobody can read, write or execute more than before."""
        now = self.outside()
        changed = {path: (self.before.get(path), now.get(path))
                   for path in {*self.before, *now} if self.before.get(path) != now.get(path)}
        expect(not changed, f"{title}: changed: {changed}", self.host)
        for path, _ in self.files():
            status, text = self.host.glance(path, MOST, os.O_NOFOLLOW)
            if status is None or not stat.S_ISREG(status.st_mode) or path == INTRUDER:
                continue
            mode = status.st_mode
            expect(status.st_uid != 0 or not mode & 0o6022, f"{title}: {path} has mode {mode:o}",
                   self.host)
            if mode & 0o004 or status.st_uid == USER or status.st_gid == USER and mode & 0o040:
                expect(SECRET not in text, f"{title}: {path} tells the secret", self.host)

    def check_files(self, title):
        """Each file is whole, or its loss is told."""
        host = self.host
        told = b"\n".join(host.system_log.messages)
        names = [name for name in host.listing("/var/log")
                 if re.fullmatch(r"sysboot\.log\.\w{6}", name)]
        expect(not names, f"{title}: left {names}", host)
        status = os.lstat(host.path(PROFILE)) if host.exists(PROFILE) else None
        if b"unable to log " not in told and b" profiling log (" not in told:
            expect(status and stat.S_ISREG(status.st_mode) and status.st_uid == 0 and
                   not status.st_mode & 0o7133, f"{title}: the profile is {status}", host)
        log = os.lstat(host.path(EXECUTOR_LOG)) if host.exists(EXECUTOR_LOG) else None
        if b"Failed opening log file" not in told:
            expect(log and stat.S_ISREG(log.st_mode) and
                   (log.st_size > MOST or b"polling for commands" in host.read(EXECUTOR_LOG)),
                   f"{title}: the executor's log is {log}", host)


# Things in the place of our files. Root puts them there, for the user.

def leased(scene, target):
    """Who opens the file has to wait until its owner gives it back, or 45 s."""
    with open(target, "w", encoding="ascii") as file:
        file.write("leased\n")
    end = os.open(target, os.O_RDWR)
    signal.signal(signal.SIGIO, signal.SIG_IGN)
    fcntl.fcntl(end, fcntl.F_SETLEASE, fcntl.F_WRLCK)
    scene.held.append(end)


def listening(scene, target):
    made = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    folder = os.open(os.path.dirname(target), os.O_PATH)
    made.bind(f"/proc/self/fd/{folder}/{os.path.basename(target)}")
    os.close(folder)
    made.listen(1)
    scene.held.append(made)


def fifo_with_reader(scene, target):
    os.mkfifo(target, 0o666)
    end = os.open(target, os.O_RDWR | os.O_NONBLOCK)
    # It is full, and nobody reads it.
    try:
        while True:
            os.write(end, b"x" * 4096)
    except BlockingIOError:
        pass
    scene.held.append(end)


def plain(content=b"the user's\n", mode=0o666, size=None):
    def plant(_, target):
        with open(target, "wb") as file:
            file.write(content)
            if size:
                file.truncate(size)
        os.chown(target, USER, USER)
        os.chmod(target, mode)
    return plant


def folder(*names):
    def plant(_, target):
        os.mkdir(target, 0o777)
        for name in names:
            os.mkdir(f"{target}/{name}")
    return plant


KINDS = {
    "link to a secret": lambda _, target: os.symlink("/etc/secret", target),
    "link to a public file": lambda _, target: os.symlink("/etc/public", target),
    "link to a new file": lambda _, target: os.symlink("/etc/cron.d/new", target),
    "link to itself": lambda _, target: os.symlink(os.path.basename(target), target),
    "link to a device": lambda _, target: os.symlink("/dev/null", target),
    "hard link to a secret": lambda scene, target: os.link(scene.host.path("/etc/secret"), target),
    "FIFO": lambda _, target: os.mkfifo(target, 0o666),
    "full FIFO": fifo_with_reader,
    "socket": listening,
    "folder": folder(),
    "folder with something in it": folder("inside"),
    "file": plain(),
    "set-id file": plain(mode=0o6777),
    "old profile": plain(OLD_PROFILE.encode()),
    "file of 1 TiB": plain(size=1 << 40),
    "leased file": leased,
    "device": lambda _, target: os.mknod(target, 0o666 | stat.S_IFCHR, os.makedev(1, 5)),
}
# A hard link and a device belong to root still.
KEPT = ("hard link to a secret", "device")


def planted(careless, kind):
    """A thing in the place of both logs; a boot, and a run of the scripts after it."""
    title = f"{careless}, {kind}"
    for place in (PROFILE, EXECUTOR_LOG):
        for words in (BOOT, DAEMONS):
            scene = Scene(careless)
            try:
                host = scene.host
                host.remove(place)
                try:
                    KINDS[kind](scene, host.path(place))
                except PermissionError as error:
                    return f"skipped: {error}"
                if kind not in KEPT:
                    os.lchown(host.path(place), USER, USER)
                scene.run(*words)
                host.wait_for_emptiness()
                scene.check(f"{title}, {place}, {words}")
                if words == BOOT:
                    scene.check_files(f"{title}, {place}, {words}")
            finally:
                scene.close()
    return "4 runs"


def racing(careless, runs):
    """Both logs, and the temporary files beside them, are something else at any moment."""
    scene = Scene(careless)
    try:
        host = scene.host
        targets = ("/etc/secret", "/etc/cron.d/new", "/etc/public", "/dev/null")
        for name in ("sysboot.log", "bootforge-hypcli-stdout.log"):
            scene.intrude("swap", "/var/log", name, *targets, until=b"swapping")
        for number in range(runs):
            scene.run(*(BOOT if number % 2 else DAEMONS))
            host.wait_for_executor_end()
            scene.check(f"{careless}, run {number}")
        return f"{runs} runs"
    finally:
        scene.close()


def turning(runs):
    """A folder of the boot state belongs to the user, who turns it into a link to another one."""
    scene = Scene()
    try:
        host = scene.host
        for number in range(200):
            host.write(f"/etc/precious/{number}", "precious\n")
        scene.before = scene.outside()
        cleaning = ("--invoke", "--method=start", "--plugin=third.json")
        for _ in range(runs):
            state = f"{STORE}/boot-state/user"
            for name in range(200):
                host.write(f"{state}/place/{name}", "")
            for path in (state, f"{state}/place"):
                os.chown(host.path(path), USER, USER)
            turner = scene.intrude("turn", f"{state}/place", "/etc/precious", until=b"turning")
            for words in (cleaning, cleaning):
                process = host.finish(host.start(BOOTFORGE, *words), LIMIT)
                expect(process.status == 0, f"status {process.status}", host)
                for found in host.processes(INTRUDER):
                    found.signal(signal.SIGKILL)
            host.finish(turner)
            host.wait_for_emptiness()
            scene.check("turned")
            # When nobody turns it any more, it is removed.
            expect(host.listing(f"{STORE}/boot-state") == [], "the boot state is left", host)
        return f"{runs} runs"
    finally:
        scene.close()


# While a boot waits

def waiting_boot(scene, commands=0):
    host = scene.host
    host.debug("pause:paused:two:read x </tmp/gate")
    host.gate("/tmp/gate")
    for number in range(commands):
        host.plugin(f"many{number}", requires=["paused"], start=[f"note add --text={number}"])
    boot = host.start(BOOTFORGE, "--init")
    host.wait_for(lambda: starting("pause") in boot.messages, "the pause")
    scene.before = scene.outside()
    return boot


def finish_boot(scene, boot, commands=0):
    host = scene.host
    host.open_gate("/tmp/gate")
    host.finish(boot, LIMIT)
    expect(boot.status == 0, f"status {boot.status}", host)
    wanted = {str(number) for number in range(commands)} | {"first", "second", "third", "native"}
    expect(wanted <= set(host.notes()), f"{wanted - set(host.notes())} did not run", host)
    expect("intruder" not in host.notes(), "the intruder's command has run", host)


def everything(_):
    """Every file and every process, tried."""
    scene = Scene()
    try:
        host = scene.host
        boot = waiting_boot(scene)
        touched = host.finish(scene.intrude("touch", "/"), LIMIT)
        tried = host.finish(scene.intrude("processes"), LIMIT)
        for process in (touched, tried):
            worked = [line for line in process.stdout.splitlines() if line.startswith(b"worked")]
            expect(process.status == 0 and not worked, f"{process.status} {worked}", host)
        count = int(tried.stdout.split()[0])
        expect(count >= 3, f"{count} processes tried", host)
        scene.check("touched")
        finish_boot(scene, boot)
        host.wait_for_emptiness()
        return f"{count} processes, {len(scene.before)} files"
    finally:
        scene.close()


def connections(mode):
    """Whoever passes the socket's mode is refused all the same; the executor goes on."""
    scene = Scene()
    commands = 60
    try:
        host = scene.host
        boot = waiting_boot(scene, commands)
        os.chmod(host.path(SOCKET), mode)
        intruder = scene.intrude("connect", SOCKET, "100", until=b"refused\n")
        finish_boot(scene, boot, commands)
        connected = int(re.findall(rb"(\d+) connected", intruder.stdout)[-1])
        told = sum(REFUSED in readings.text_of(message) for message in host.system_log.messages)
        if mode & 0o022:
            expect(connected and told, f"{connected} connections, {told} told", host)
        else:
            expect(not connected and not told, f"{connected} connections, {told} told", host)
        for found in host.processes(INTRUDER):
            found.signal(signal.SIGKILL)
        host.wait_for_emptiness()
        scene.check(f"socket {mode:o}")
        return f"{connected} connections, {told} refusals told"
    finally:
        scene.close()


def served_by_the_user(_):
    """The user's own socket has the name of ours: it is told nothing, and nothing is started."""
    scene = Scene()
    try:
        host = scene.host
        server = scene.intrude("serve", "/srv/user/socket", until=b"listening")
        os.rename(host.path("/srv/user/socket"), host.path(SOCKET))
        boot = host.finish(host.start(BOOTFORGE, "--init"), LIMIT)
        expect(boot.status == 1 and b"Failed to start executor" in boot.stdout,
               f"status {boot.status}", host)
        received = [int(count) for count in re.findall(rb"received (-?\d+)", server.stdout)]
        expect(max(received, default=0) <= 0, f"the user received {received}", host)
        for found in host.processes(INTRUDER):
            found.signal(signal.SIGKILL)
        host.wait_for_emptiness()
        # That name is left alone. When root has removed it, all is as ever.
        host.remove(SOCKET)
        scene.run(*BOOT)
        host.wait_for_emptiness()
        scene.check("served")
        return "2 runs"
    finally:
        scene.close()


def full_disk(_):
    """The user has filled the disk of the logs to the last byte."""
    scene = Scene()
    try:
        host = scene.host
        host.tmpfs("/var/log", "size=64k,mode=0777")
        host.write(PROFILE, OLD_PROFILE)
        host.fill("/var/log")
        os.chown(host.path("/var/log/ballast"), USER, USER)
        boot = scene.run(*BOOT)
        host.wait_for_emptiness()
        expect(b"unable to log profiling information" in boot.stdout and
               host.read(PROFILE) == OLD_PROFILE.encode(), "the old profile is gone", host)
        scene.check("full disk")
        return "1 run"
    finally:
        scene.close()
