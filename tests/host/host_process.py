"""The processes of a scratch host, as the machine's process list shows them."""

import os

import readings


class HostProcess:
    """One line of the process list. `pid` is the number out here, `inner_pid` that in the host.

    A process counts until it has been waited for: before that, threads of it may still be ending,
    with its sockets open. While it ends it has no words.
    """

    def __init__(self, pid, inner_pid, parent, state, words, started):
        self.pid, self.inner_pid, self.parent = pid, inner_pid, parent
        self.state, self.words, self.started = state, words, started

    def __repr__(self):
        return (f"process {self.inner_pid}, parent {self.parent}, state {self.state}: "
                f"{' '.join(self.words)}")

    def signal(self, number):
        try:
            os.kill(self.pid, number)
        except ProcessLookupError:
            pass

    def descriptors(self):
        """What its descriptors lead to, by their numbers; without those closed meanwhile."""
        folder = f"/proc/{self.pid}/fd"
        found = {}
        for number in os.listdir(folder):
            try:
                found[int(number)] = os.readlink(f"{folder}/{number}")
            except FileNotFoundError:
                continue
        return found

    def signals(self, field):
        """The signals in a set of /proc/PID/status, for example those of SigIgn. Two that only the
        C library itself can use do not count."""
        with open(f"/proc/{self.pid}/status", encoding="utf-8") as file:
            mask, = [line.split()[1] for line in file if line.startswith(f"{field}:")]
        return {number + 1 for number in range(64) if int(mask, 16) >> number & 1} - {32, 33}

    def environment(self):
        with open(f"/proc/{self.pid}/environ", "rb") as file:
            entries = readings.text_of(file.read()).split("\0")[:-1]
        return dict(entry.split("=", 1) for entry in entries)

    @staticmethod
    def read(pid):
        try:
            with open(f"/proc/{pid}/status", encoding="utf-8") as file:
                fields = dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                words = readings.text_of(file.read()).split("\0")[:-1]
            with open(f"/proc/{pid}/stat", "rb") as file:
                started = int(file.read().rsplit(b")", 1)[1].split()[19])
        except (FileNotFoundError, ProcessLookupError):
            return None
        return HostProcess(pid, int(fields["NSpid"].split()[-1]), int(fields["PPid"]),
                           fields["State"], words, started)


def is_alive(process):
    """Whether that same process still runs; another one may have got its number."""
    now = HostProcess.read(process.pid)
    return now is not None and now.started == process.started


def in_namespace_of(keeper):
    """Every process of a pid namespace but for its first one, by that one's number."""
    namespace = os.readlink(f"/proc/{keeper}/ns/pid")
    return _select(lambda pid: pid != keeper and os.readlink(f"/proc/{pid}/ns/pid") == namespace)


def in_root(root):
    """Every process whose root directory is that one."""
    return _select(lambda pid: os.readlink(f"/proc/{pid}/root") == root)


def _select(wanted):
    found = []
    for name in os.listdir("/proc"):
        try:
            process = HostProcess.read(int(name)) if name.isdigit() and wanted(int(name)) else None
        except OSError:
            continue
        if process:
            found.append(process)
    return found
