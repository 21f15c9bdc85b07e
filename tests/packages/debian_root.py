"""A Debian root to change at will: a scratch layer over one that was made before.

    with DebianRoot(lower) as root:
        root.run("dpkg", "--install", "/packages/bootforge_0.2.0-1_amd64.deb")

Root only. The process moves into a mount namespace of its own, and every command runs in a pid namespace
with which its last process ends, so nothing stays behind.
"""

import hashlib
import os
import shutil
import stat
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../host"))
import isolation

SKIPPED = 77
LIMIT = 300  # seconds for one command
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
               "HOME": "/root", "LANG": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive"}
# Mounts what programs expect, in the namespaces of one command, and becomes it.
FIRST = """
root=$1
shift
mount -t proc proc "$root/proc"
exec chroot "$root" "$@"
"""


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def need_root(lower):
    if not os.path.isdir(f"{lower}/usr"):
        skip(f"there is no Debian root in {lower}")
    if os.geteuid() != 0:
        skip("a Debian root is entered by root only")
    try:
        isolation.unshare(isolation.CLONE_NEWNS)
        isolation.mount(None, "/", None, isolation.MS_REC | isolation.MS_PRIVATE)
    except OSError as error:
        skip(f"no private mounts can be had here: {error.strerror}")


class DebianRoot:
    """`packages` is the folder whose files stand in /packages."""

    def __init__(self, lower, packages):
        self.folder = tempfile.mkdtemp(prefix="debian-root-")
        isolation.mount("tmpfs", self.folder, "tmpfs", 0, "mode=0755")
        self.path = f"{self.folder}/root"
        for name in ("root", "upper", "work"):
            os.mkdir(f"{self.folder}/{name}")
        isolation.mount("overlay", self.path, "overlay", 0,
                        f"lowerdir={lower},upperdir={self.folder}/upper,"
                        f"workdir={self.folder}/work")
        os.mkdir(f"{self.path}/packages")
        isolation.mount(packages, f"{self.path}/packages", None, isolation.MS_BIND)
        for name in ("null", "zero", "full", "random", "urandom", "tty"):
            if not self.exists(f"/dev/{name}"):
                self.write(f"/dev/{name}", "")
            isolation.mount(f"/dev/{name}", f"{self.path}/dev/{name}", None, isolation.MS_BIND)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for point in reversed(isolation.mounts_below(self.folder)):
            isolation.unmount(point)
        shutil.rmtree(self.folder)

    def run(self, *words, status=0, stdin="", **environment):
        """Runs a command in the root; returns what it said on both streams."""
        done = subprocess.run(
            ["unshare", "--mount", "--pid", "--net", "--ipc", "--uts", "--fork", "--kill-child", "sh",
             "-ec", FIRST, "sh", self.path, *words], env={**ENVIRONMENT, **environment}, input=stdin,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=LIMIT, check=False)
        if done.returncode != status:
            raise AssertionError(f"{' '.join(words)}: status {done.returncode}\n{done.stdout}")
        return done.stdout

    def write(self, path, text, mode=0o644):
        target = self.path + path
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(target, mode)

    def read(self, path):
        with open(self.path + path, encoding="utf-8") as file:
            return file.read()

    def exists(self, path):
        return os.path.lexists(self.path + path)

    def everything(self, ignored):
        """Every path with its kind, mode, owner and content, but for those that begin like one of
        `ignored`."""
        found = {}
        for folder, folders, names in os.walk(self.path):
            place = folder[len(self.path):] + "/"
            folders[:] = [name for name in folders if not (place + name).startswith(ignored)]
            for name in folders + names:
                path = place + name
                if path.startswith(ignored):
                    continue
                status = os.lstat(self.path + path)
                found[path] = (stat.filemode(status.st_mode), status.st_uid, status.st_gid,
                               self._content(path, status.st_mode))
        return found

    def _content(self, path, mode):
        if stat.S_ISLNK(mode):
            return os.readlink(self.path + path)
        if not stat.S_ISREG(mode):
            return None
        with open(self.path + path, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()
