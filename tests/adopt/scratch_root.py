"""Roots of hosts for bootforge-adopt: a few files that look like those of a distribution."""

import os
import shutil
import stat
import subprocess
import tempfile
import unittest

LIBRARY = "/usr/lib/nimbus/bootforge"
LINKS = f"{LIBRARY}/init.d"
RECORD = "/etc/bootforge-adopt.json"
INITTAB = "/etc/inittab"
ORIGINAL = "/etc/inittab.before-bootforge"
START = "/usr/sbin/bootforge --daemon=wait --method=start --parallel\n"
STOP = "/usr/sbin/bootforge --daemon=wait --method=stop --parallel\n"
UNIT = "/etc/systemd/system/bootforge.service"
WANTED = "/etc/systemd/system/multi-user.target.wants/bootforge.service"

SYSVINIT = """# The default runlevel.
id:2:initdefault:
si::sysinit:/etc/init.d/rcS

l0:0:wait:/etc/init.d/rc 0
l1:1:wait:/etc/init.d/rc 1
l2:2:wait:/etc/init.d/rc 2
l3:3:wait:/etc/init.d/rc 3
l6:6:wait:/etc/init.d/rc 6
z6:6:respawn:/sbin/sulogin
1:2345:respawn:/sbin/getty 38400 tty1
"""
BUSYBOX = """# The first thing.
::sysinit:/etc/init.d/rcS
ttyS0::respawn:/sbin/getty -L ttyS0 115200 vt100
::shutdown:/etc/init.d/rcK
::shutdown:/bin/umount -a -r
"""
# What init is known by.
PROGRAMS = {"sysvinit": b"\x7fELF\0wait\0initdefault\0", "busybox": b"\x7fELF\0BusyBox v1.35.0\0",
            "systemd": b"\x7fELF\0"}
TEXTS = {"sysvinit": SYSVINIT, "busybox": BUSYBOX, "systemd": None}
KINDS = tuple(PROGRAMS)
OLD = 1_500_000_000
# Where what is brought to the disk is there at once.
MEMORY = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None


class Root:
    """A root in a folder of its own; outside of it, there is a file that nobody may touch."""

    def __init__(self, kind, inittab="as usual"):
        self.folder = tempfile.mkdtemp(prefix="bootforge-adopt-", dir=MEMORY)
        self.path = f"{self.folder}/root"
        for name in ("etc/init.d", "etc/rc2.d", "sbin", "bin", "usr/sbin", LIBRARY[1:]):
            os.makedirs(f"{self.path}/{name}")
        for name in ("/usr/sbin/bootforge", f"{LIBRARY}/launch", f"{LIBRARY}/chkconfig",
                     "/bin/mkdir"):
            self.write(name, "#!/bin/sh\n", 0o755)
        if kind == "systemd":
            self.write("/lib/systemd/systemd", PROGRAMS[kind], 0o755)
            self.link("/sbin/init", "/lib/systemd/systemd")
        elif kind == "busybox":
            self.write("/bin/busybox", PROGRAMS[kind], 0o755)
            self.link("/sbin/init", "../bin/busybox")
        elif kind in PROGRAMS:
            self.write("/sbin/init", PROGRAMS[kind], 0o755)
        else:
            self.write("/sbin/init", kind, 0o755)
        text = TEXTS.get(kind) if inittab == "as usual" else inittab
        if text is not None:
            self.write(INITTAB, text)
        self.script("cron", 89)
        self.script("ssh", 20)
        for name in ("README", "rcS"):
            self.write(f"/etc/init.d/{name}", "#!/bin/sh\n", 0o755 if name == "rcS" else 0o644)

    def close(self):
        shutil.rmtree(self.folder)

    def at(self, path):
        return self.path + path

    def write(self, path, content, mode=0o644):
        os.makedirs(os.path.dirname(self.at(path)), exist_ok=True)
        with open(self.at(path), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        os.chmod(self.at(path), mode)
        os.utime(self.at(path), (OLD, OLD))

    def link(self, path, target):
        os.makedirs(os.path.dirname(self.at(path)), exist_ok=True)
        os.symlink(target, self.at(path))

    def script(self, name, priority):
        self.write(f"/etc/init.d/{name}", "#!/bin/sh\n### BEGIN INIT INFO\n", 0o755)
        self.link(f"/etc/rc2.d/S{priority}{name}", f"../init.d/{name}")

    def read(self, path=INITTAB):
        with open(self.at(path), encoding="utf-8") as file:
            return file.read()

    def edit(self, path, old, new):
        text = self.read(path)
        assert text.count(old) == 1, (old, text)
        # As an editor does: in place.
        with open(self.at(path), "w", encoding="utf-8") as file:
            file.write(text.replace(old, new))

    def exists(self, path):
        return os.path.lexists(self.at(path))

    def snapshot(self, times=True):
        """All that is in the folder, this root and what stands beside it. The folders' own times
        do not count: something may have been in them in the meantime."""
        found = {}
        for parent, folders, files in os.walk(self.folder):
            for name in folders + files:
                path = os.path.join(parent, name)
                status = os.lstat(path)
                row = [stat.filemode(status.st_mode), status.st_uid, status.st_gid]
                if stat.S_ISLNK(status.st_mode):
                    row.append(os.readlink(path))
                elif stat.S_ISREG(status.st_mode):
                    with open(path, "rb") as file:
                        row.append(file.read())
                    if times:
                        row += [status.st_mtime_ns, status.st_nlink]
                found[os.path.relpath(path, self.folder)] = row
        return found


class AdoptCase(unittest.TestCase):
    maxDiff = None
    program = None  # set by main()

    def root(self, kind="sysvinit", **options):
        root = Root(kind, **options)
        self.addCleanup(root.close)
        return root

    def run_program(self, root, *words, before=(), **options):
        done = subprocess.run([*before, self.program, *words, f"--root={root.path}"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              check=False, timeout=60, **options)
        done.told = [line.removeprefix("bootforge-adopt: ") for line in done.stderr.splitlines()]
        return done

    def succeed(self, root, *words):
        done = self.run_program(root, *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""), words)
        return done.stdout.splitlines()

    def refuse(self, root, *words, status=1):
        """The program fails with one line, and changes nothing. Returns the line."""
        before = root.snapshot()
        done = self.run_program(root, *words)
        self.assertEqual((done.returncode, done.stdout), (status, ""), done.stderr)
        self.assertEqual(root.snapshot(), before)
        self.assertEqual(len(done.told), 1, done.stderr)
        return done.told[0]

    def status(self, root):
        done = self.run_program(root, "status")
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout.splitlines()


def main(arguments):
    AdoptCase.program = os.path.realpath(arguments.pop(1))
    unittest.main(argv=arguments)
