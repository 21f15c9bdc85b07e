"""Private namespaces for a test process: what can be had here, and the calls behind it.

As root, or as an ordinary user by way of a user namespace, the test process itself moves into
mount, network, uts and ipc namespaces of its own; each host then gets a process 1 of its own
(keeper.py). Root without the right to make namespaces gets plain chroots, and the tests that need
mounts skip. BOOTFORGE_HOST_TESTS=user or =chroot makes root do with less, to try that.
"""

import ctypes
import os

CLONE_NEWNS, CLONE_NEWUTS, CLONE_NEWIPC = 0x00020000, 0x04000000, 0x08000000
CLONE_NEWUSER, CLONE_NEWPID, CLONE_NEWNET = 0x10000000, 0x20000000, 0x40000000
MS_RDONLY, MS_NOSUID, MS_REMOUNT, MS_BIND = 1, 2, 32, 4096
MS_REC, MS_PRIVATE = 16384, 1 << 18
MNT_DETACH = 2
PR_SET_PDEATHSIG, PR_CAPBSET_DROP, PR_SET_CHILD_SUBREAPER = 1, 24, 36
CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH = 1, 2

_libc = ctypes.CDLL(None, use_errno=True)


def _call(name, *arguments):
    if getattr(_libc, name)(*arguments) == -1:
        error = ctypes.get_errno()
        raise OSError(error, f"{name}: {os.strerror(error)}")


def _bytes(text):
    return None if text is None else os.fsencode(text)


def unshare(flags):
    _call("unshare", ctypes.c_int(flags))


def mount(source, target, kind=None, flags=0, data=None):
    _call("mount", _bytes(source), _bytes(target), _bytes(kind), ctypes.c_ulong(flags),
          _bytes(data))


def unmount(target):
    _call("umount2", _bytes(target), ctypes.c_int(MNT_DETACH))


def prctl(option, argument):
    _call("prctl", ctypes.c_int(option), ctypes.c_ulong(argument), ctypes.c_ulong(0),
          ctypes.c_ulong(0), ctypes.c_ulong(0))


def mounts_below(directory):
    """Mount points at or below a directory, innermost last."""
    prefix = os.path.realpath(directory)
    found = []
    with open("/proc/self/mountinfo", errors="surrogateescape") as table:
        for line in table:
            point = line.split(" ")[4].replace("\\040", " ")
            if point == prefix or point.startswith(prefix + "/"):
                found.append(point)
    return found


class Unavailable(Exception):
    """No scratch host can be made here; the text says why."""


class Isolation:
    """What the test process was given. `mounts` and `pids` tell what a host may rely on."""

    def __init__(self):
        self.mounts = self.pids = False
        self.given = []
        allowed = os.environ.get("BOOTFORGE_HOST_TESTS", "full")
        if allowed not in ("full", "user", "chroot"):
            raise Unavailable(f"BOOTFORGE_HOST_TESTS={allowed}: not one of full, user, chroot")
        if os.geteuid() != 0 or allowed == "user":
            self._become_root_of_user_namespace()
        if allowed != "chroot":
            self._unshare_what_can_be_had()
        if not self.mounts:
            self._probe_plain_chroot()

    def __str__(self):
        return ("private " + ", ".join(self.given)) if self.given else "plain chroot"

    def _become_root_of_user_namespace(self):
        user, group = os.geteuid(), os.getegid()
        try:
            unshare(CLONE_NEWUSER | CLONE_NEWNS)
            for name, text in (("setgroups", "deny"), ("uid_map", f"0 {user} 1"),
                               ("gid_map", f"0 {group} 1")):
                with open(f"/proc/self/{name}", "w") as file:
                    file.write(text)
            mount(None, "/", None, MS_REC | MS_PRIVATE)
        except OSError as error:
            raise Unavailable("not root, and no user namespace can be had: "
                              f"{error.strerror}") from error
        self.mounts = True
        self.given = ["user", "mount"]

    def _unshare_what_can_be_had(self):
        kinds = [("uts", CLONE_NEWUTS), ("ipc", CLONE_NEWIPC), ("network", CLONE_NEWNET)]
        if not self.mounts:
            kinds.insert(0, ("mount", CLONE_NEWNS))
        for name, flag in kinds:
            try:
                unshare(flag)
                if flag == CLONE_NEWNS:
                    mount(None, "/", None, MS_REC | MS_PRIVATE)
                    self.mounts = True
                self.given.append(name)
            except OSError:
                pass
        self.pids = self._pids_can_be_had()
        if self.pids:
            self.given.append("pid")

    @staticmethod
    def _pids_can_be_had():
        return _works(lambda: unshare(CLONE_NEWPID))

    @staticmethod
    def _probe_plain_chroot():
        if not _works(lambda: os.chroot("/")):
            raise Unavailable("neither namespaces nor chroot are allowed here")


def _works(call):
    """Tries a call in a child of this process, which it then leaves as it is."""
    child = os.fork()
    if child == 0:
        try:
            call()
            os._exit(0)
        finally:
            os._exit(1)
    return os.waitpid(child, 0)[1] == 0


_isolation = None


def isolation():
    """This process's isolation, entered on first use. Raises Unavailable."""
    global _isolation
    if _isolation is None:
        _isolation = Isolation()
    return _isolation
