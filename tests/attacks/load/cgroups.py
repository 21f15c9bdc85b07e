"""Control groups of the test's own, of version 1 or 2, where this machine lets us make them."""

import contextlib
import os
import signal
import tempfile
import time

FILES = {"pids": {1: "pids.max", 2: "pids.max"},
         "memory": {1: "memory.limit_in_bytes", 2: "memory.max"}}


def hierarchy(controller):
    """(folder, version) of a controller, or None."""
    with open("/proc/self/mountinfo", encoding="utf-8") as table:
        for line in table:
            left, right = line.rstrip("\n").split(" - ")
            kind, _, options = right.split(" ", 2)
            folder = left.split(" ")[4]
            if kind == "cgroup" and controller in options.split(","):
                return folder, 1
            if kind == "cgroup2":
                with open(f"{folder}/cgroup.subtree_control", encoding="ascii") as file:
                    if controller in file.read().split():
                        return folder, 2
    return None


def why_not(controller):
    """Why no group with that controller can be had here; empty when one can."""
    try:
        with group(controller):
            return ""
    except OSError as error:
        return f"no control group with the controller {controller} can be had: {error}"


@contextlib.contextmanager
def group(controller):
    """A group of that controller. Raises OSError."""
    found = hierarchy(controller)
    if found is None:
        raise OSError(f"{controller} is not mounted, or not handed down to groups")
    folder, version = found
    made = Group(tempfile.mkdtemp(prefix="bootforge-attack-", dir=folder), controller, version)
    try:
        yield made
    finally:
        made.remove()


class Group:
    def __init__(self, folder, controller, version):
        self.folder, self.controller, self.version = folder, controller, version
        self.processes = f"{folder}/cgroup.procs"

    def limit(self, value):
        """Everybody in it must have ended."""
        if self.controller == "memory" and self.version == 1 and \
                os.path.exists(f"{self.folder}/memory.force_empty"):
            self._write("memory.force_empty", "0")
        self._write(FILES[self.controller][self.version], str(value))

    def lift(self):
        none = "-1" if self.controller == "memory" and self.version == 1 else "max"
        self._write(FILES[self.controller][self.version], none)

    def _write(self, name, text):
        with open(f"{self.folder}/{name}", "w", encoding="ascii") as file:
            file.write(text)

    def remove(self):
        deadline = time.monotonic() + 10
        while True:
            try:
                os.rmdir(self.folder)
                return
            except OSError:
                if time.monotonic() > deadline:
                    raise
                self._end_members()
                time.sleep(0.01)

    def _end_members(self):
        """What a failed case has left; a zombie is listed until it has been waited for."""
        with open(self.processes, encoding="ascii") as file:
            for number in file.read().split():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(int(number), signal.SIGKILL)
