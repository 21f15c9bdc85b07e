"""The file system of a scratch host: its layout, its plugins and its command files."""

import functools
import json
import os
import shutil
import stat
import tempfile

import isolation
import readings

BOOTFORGE = "/usr/sbin/bootforge"
# Other places for tests of programs that were configured for them.
PLUGINS = os.environ.get("BOOTFORGE_HOST_PLUGINS", "/usr/libexec/bootforge/plugins")
COMMANDS = os.environ.get("BOOTFORGE_HOST_COMMANDS", "/usr/lib/nimbus/hypcli")
SOCKET = "/var/run/nimbus/bootforgeExecutor.sock"
PROFILE = "/var/log/sysboot.log"
RECORD = "/bootbank/bootfrge.gz"
EXECUTOR_LOG = "/var/log/bootforge-hypcli-stdout.log"
SYSLOGD = "/usr/lib/nimbus/hvsyslog/bin/hvsyslogd"
SYSLOGD_PID = "/var/run/nimbus/hvsyslogd.pid"
EVTD = "/etc/init.d/evtd"
DEBUG_CONFIGURATION = "/etc/nimbus/bootforge/debug.conf"
GLANCE = 6000  # bytes
FOLDERS = ("bin", "bootbank", "dev", "etc/init.d", "etc/nimbus/bootforge", "lib64", "proc", "tmp",
           "usr/lib/nimbus/hvsyslog/bin", "var/log", "var/run/nimbus/configstore")


class RootFolder:
    """A folder with the installed programs in it. Paths are the host's own."""

    def __init__(self, image):
        home, original = _home(image)
        self.root = tempfile.mkdtemp(prefix="host-", dir=home)
        os.chmod(self.root, 0o755)
        self._commands = {}
        _copy_tree(original, self.root)
        for folder in FOLDERS:
            os.makedirs(f"{self.root}/{folder}", exist_ok=True)
        self.script(SYSLOGD, "exit 0\n")
        self.script(EVTD, "exit 0\n")
        self.command("note add", ["/bin/sh", "-c", 'printf "%s\\n" "$1" >>/tmp/notes', "sh",
                                  "{text}"], text={"short": "t", "required": True})

    def delete(self):
        """Unmounts what is mounted in it and removes it. Raises when something is left."""
        for point in reversed(isolation.mounts_below(self.root)):
            isolation.unmount(point)
        left = isolation.mounts_below(self.root)
        if left:
            raise AssertionError(f"mounts left behind: {left}")
        shutil.rmtree(self.root)

    # Files

    def path(self, path):
        return self.root + path

    def write(self, path, content, mode=0o644):
        target = self.path(path)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        if os.path.islink(target) or os.path.isfile(target) and os.stat(target).st_nlink > 1:
            os.unlink(target)  # the image's own file may be behind it
        with open(target, "wb") as file:
            file.write(content if isinstance(content, bytes) else os.fsencode(content))
        os.chmod(target, mode)

    def script(self, path, text):
        self.remove(path)
        self.write(path, f"#!/bin/sh\n{text}", 0o755)

    def read(self, path):
        """The content of a file, or None when there is none."""
        try:
            with open(self.path(path), "rb") as file:
                return file.read()
        except (FileNotFoundError, NotADirectoryError):
            return None

    def glance(self, path, most=GLANCE, flags=0):
        """(status, beginning) of what may be anything, a FIFO or endless; (None, None) of nothing."""
        try:
            file = os.open(self.path(path), os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC | flags)
        except OSError:
            return None, None
        try:
            status = os.fstat(file)
            return status, os.read(file, most) if stat.S_ISREG(status.st_mode) else b""
        finally:
            os.close(file)

    def read_lines(self, path):
        return readings.text_of(self.read(path) or b"").splitlines()

    def remove(self, path):
        target = self.path(path)
        if os.path.isdir(target) and not os.path.islink(target):
            shutil.rmtree(target)
        elif os.path.lexists(target):
            os.unlink(target)

    def exists(self, path):
        return os.path.lexists(self.path(path))

    def listing(self, path=PLUGINS):
        """Names in a folder, in the order in which the program sees them."""
        return os.listdir(self.path(path))

    # Mounts

    def mount(self, source, path, kind=None, flags=0, data=None):
        isolation.mount(source, self.path(path), kind, flags, data)

    def tmpfs(self, path, data="size=16k,mode=0755"):
        """A small file system of its own at a path."""
        os.makedirs(self.path(path), exist_ok=True)
        self.mount("tmpfs", path, "tmpfs", 0, data)

    def make_read_only(self, path):
        """Makes the mount at a path read-only."""
        self.mount(None, path, None, isolation.MS_REMOUNT | isolation.MS_BIND | isolation.MS_RDONLY)

    def unmount(self, path):
        isolation.unmount(self.path(path))

    def fill(self, path):
        """Fills the file system at a path to the last byte."""
        with open(self.path(f"{path}/ballast"), "wb", buffering=0) as file:
            for size in (4096, 1):
                try:
                    while True:
                        file.write(b"x" * size)
                except OSError:
                    pass

    # Plugins and commands

    def plugin(self, name, requires=(), provides=(), start=(), version=1, **more):
        """Writes NAME.json; `more` goes to "operations" or "metadata", where it belongs."""
        operations = {"start": list(start)}
        metadata = {"version": version, "requires": list(requires), "provides": list(provides)}
        if version >= 3:
            metadata.update(run_once=False, plugin_version="1")
        for key, value in more.items():
            (operations if key == "apply_host_profile" else metadata)[key] = value
        description = {"metadata": metadata, "operations": operations}
        self.write(f"{PLUGINS}/{name}.json", json.dumps(description, ensure_ascii=False))

    def command(self, path, program, folder=COMMANDS, timeout=None, **parameters):
        """Defines the command with that path ("namespace... name") by its "exec" list."""
        namespace, name = path.rsplit(" ", 1)
        commands = self._commands.setdefault((folder, namespace), {})
        commands[name] = {"parameters": parameters, "exec": program}
        if timeout is not None:
            commands[name]["timeout"] = timeout
        self.write(f"{folder}/{namespace.replace(' ', '-')}.json",
                   json.dumps({"namespace": namespace, "commands": commands}))

    def shell_command(self, path, script, timeout=None, **parameters):
        """Defines a command by a shell script, whose parent is then the executor. Returns the
        program's path."""
        program = f"/usr/bin/{path.replace(' ', '-')}"
        self.script(program, script)
        self.command(path, [program] + [f"{{{name}}}" for name in parameters], timeout=timeout,
                     **parameters)
        return program

    def debug(self, *lines):
        self.write(DEBUG_CONFIGURATION, "".join(line + "\n" for line in lines))

    def gate(self, path):
        """A FIFO on which `read x <PATH` waits until open_gate."""
        os.mkfifo(self.path(path), 0o600)

    def open_gate(self, path):
        # Opening for both ends never waits; the line stays for a reader that comes later.
        gate = os.open(self.path(path), os.O_RDWR | os.O_NONBLOCK)
        os.write(gate, b"open\n")
        return gate


@functools.lru_cache(maxsize=None)
def _home(image):
    """Where this process keeps its hosts, and the tree to copy them from.

    Where mounts are allowed, both are on a file system in memory that only this process sees and
    that ends with it; otherwise the hosts are beside the image, or in the folder for temporary
    files.
    """
    hosts, original = os.path.join(os.path.realpath(image), "hosts"), os.path.join(image, "root")
    if isolation.isolation().mounts:
        isolation.mount("tmpfs", hosts, "tmpfs", 0, "mode=0755")
        copy = f"{hosts}/image"
        shutil.copytree(original, copy, symlinks=True)
        return hosts, copy
    if os.access(hosts, os.W_OK):
        return hosts, original
    return os.path.realpath(tempfile.gettempdir()), original


def _copy_tree(source, target):
    """Copies a tree, with hard links in the place of copied files where the system lets us."""
    for entry in os.scandir(source):
        there = os.path.join(target, entry.name)
        if entry.is_symlink():
            os.symlink(os.readlink(entry.path), there)
        elif entry.is_dir():
            os.mkdir(there)
            _copy_tree(entry.path, there)
        else:
            try:
                os.link(entry.path, there)
            except OSError:
                shutil.copy(entry.path, there)
