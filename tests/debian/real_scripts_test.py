"""Debian's own init scripts, through the launcher, as they come from their packages.

usage: real_scripts_test.py ROOT BUILD CMAKE

Each test gets a fresh copy (an overlay) of the root, in namespaces of its own: what a script does, it
does to its own processes, network and files.
"""

import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

SKIPPED = 77
INSIDE = "BOOTFORGE_IN_NAMESPACES"
LIBRARY = "/usr/lib/nimbus/bootforge"
LIMIT = 20.0

# The daemons that have to live between start and stop, by the script that starts them.
DAEMONS = {"chrony": "chronyd", "cron": "cron", "dbus": "dbus-daemon", "memcached": "memcached",
           "nginx": "nginx", "redis-server": "redis-server", "ssh": "sshd"}
# What they answer to the first bytes of a client.
ANSWERS = {11211: (b"version\r\n", b"VERSION "), 6379: (b"PING\r\n", b"+PONG"),
           80: (b"GET / HTTP/1.0\r\n\r\n", b"HTTP/1.1 200"), 22: (b"", b"SSH-2.0-")}


def run(*words, **options):
    return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)


def mount(*words):
    done = run("mount", *words)
    if done.returncode != 0:
        raise unittest.SkipTest(f"mount {' '.join(words)}: {done.stdout}")


class RealScripts(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="bootforge-debian-")
        self.addCleanup(shutil.rmtree, self.folder)
        mount("-t", "tmpfs", "tmpfs", self.folder)
        self.addCleanup(run, "umount", "-R", "-l", self.folder)
        for name in ("upper", "work", "root"):
            os.mkdir(f"{self.folder}/{name}")
        self.root = f"{self.folder}/root"
        mount("-t", "overlay", "-o", f"lowerdir={ROOT},upperdir={self.folder}/upper,"
              f"workdir={self.folder}/work", "overlay", self.root)
        self.add_kernel_folders()
        done = run(CMAKE, "--install", BUILD, env={**os.environ, "DESTDIR": self.root})
        self.assertEqual(done.returncode, 0, done.stdout)
        os.makedirs(f"{self.root}/run/nimbus")
        os.symlink(f"{LIBRARY}/chkconfig", f"{self.root}/bin/chkconfig")
        self.addCleanup(self.end_processes)

    def add_kernel_folders(self):
        mount("-t", "proc", "proc", f"{self.root}/proc")
        mount("-t", "tmpfs", "tmpfs", f"{self.root}/run")
        os.mkdir(f"{self.root}/run/lock")
        mount("-t", "tmpfs", "tmpfs", f"{self.root}/dev")
        for name, major, minor in (("null", 1, 3), ("zero", 1, 5), ("full", 1, 7), ("random", 1, 8),
                                   ("urandom", 1, 9), ("tty", 5, 0)):
            os.mknod(f"{self.root}/dev/{name}", 0o20666, os.makedev(major, minor))
            os.chmod(f"{self.root}/dev/{name}", 0o666)
        os.symlink("/proc/self/fd", f"{self.root}/dev/fd")
        mount("-t", "sysfs", "sysfs", f"{self.root}/sys")
        self.has_groups = run("mount", "-t", "cgroup2", "cgroup2",
                              f"{self.root}/sys/fs/cgroup").returncode == 0

    def end_processes(self):
        """Only this test's namespace has processes that can be seen; the first two are its own."""
        for pid in self.processes():
            try:
                os.kill(pid, 9)
            except ProcessLookupError:
                pass

    def processes(self):
        """Processes of the root, by number, with their names."""
        found = {}
        for name in os.listdir("/proc"):
            try:
                if name.isdigit() and os.readlink(f"/proc/{name}/root") == self.root:
                    with open(f"/proc/{name}/comm", encoding="utf-8") as file:
                        found[int(name)] = file.read().strip()
            except OSError:
                continue
        return found

    def inside(self, *words):
        return run("chroot", self.root, *words)

    def bootforge(self, method, *arguments):
        done = self.inside("/usr/sbin/bootforge", "--daemon=wait", f"--method={method}", *arguments)
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout

    def wait_for(self, condition, what):
        deadline = time.monotonic() + LIMIT
        while not condition():
            self.assertLess(time.monotonic(), deadline, f"waited in vain for {what}: "
                            f"{self.processes()}")
            time.sleep(0.01)

    def answers(self, port):
        request, expected = ANSWERS[port]
        try:
            with socket.create_connection(("127.0.0.1", port), 5) as connection:
                connection.sendall(request)
                return connection.recv(1024).startswith(expected)
        except OSError:
            return False

    def check_started(self, log):
        for script, daemon in DAEMONS.items():
            self.assertIn(f"]: {script} started.\n", log)
            self.wait_for(lambda d=daemon: d in self.processes().values(), daemon)
        for port in ANSWERS:
            self.wait_for(lambda p=port: self.answers(p), f"an answer on port {port}")

    def check_stopped(self, log):
        for script in DAEMONS:
            self.assertIn(f"]: {script} stopped.\n", log)
        self.wait_for(lambda: not self.processes(), "the last daemon to end")

    def priorities(self):
        lines = self.inside("/bin/chkconfig", "-p").stdout.splitlines()
        return {os.path.basename(path): int(priority)
                for path, priority in (line.split() for line in lines)}

    def check_order(self, log, verb, reverse):
        names = re.findall(r"executing (?:start plugin:|stop for daemon) (\S+?)\.?\n", log)
        order = [self.priorities()[name] for name in names]
        self.assertEqual(order, sorted(order, reverse=reverse), f"{verb}: {names}")
        self.assertGreater(len(set(order)), 1)

    def start_and_stop(self, *arguments):
        done = self.inside("/bin/chkconfig", "--add-launchers")
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        log = self.bootforge("start", *arguments)
        self.check_order(log, "start", False)
        self.check_started(log)
        if self.has_groups:
            self.check_groups()
        log = self.bootforge("stop", *arguments)
        self.check_order(log, "stop", True)
        self.check_stopped(log)

    def check_groups(self):
        names = {daemon: script for script, daemon in DAEMONS.items()}
        for pid, name in self.processes().items():
            with open(f"/proc/{pid}/cgroup", encoding="utf-8") as file:
                group = [line for line in file if line.startswith("0::")][0].strip()
            if name in names:
                self.assertTrue(group.endswith(f"/bootforge/init/{names[name]}"), (name, group))

    def test_the_daemons_live_between_start_and_stop(self):
        self.start_and_stop()

    def test_the_daemons_live_between_a_parallel_start_and_stop(self):
        self.start_and_stop("--parallel")

    def test_without_launchers_no_script_understands_its_words(self):
        log = self.bootforge("start")
        self.assertIn("Bootforge failed to start: cron reason: ", log)
        self.assertEqual(self.processes(), {})


def enter_namespaces():
    """Becomes the same test in namespaces of its own, where the loopback is up."""
    if os.geteuid() != 0:
        print("skipped: a Debian root takes root")
        sys.exit(SKIPPED)
    if not os.path.exists(f"{sys.argv[1]}.complete"):
        print(f"skipped: there is no Debian root in {sys.argv[1]}")
        sys.exit(SKIPPED)
    words = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "--net", "--uts",
             "--ipc"]
    if run(*words, "true").returncode != 0:
        print("skipped: private namespaces are not allowed here")
        sys.exit(SKIPPED)
    os.environ[INSIDE] = "yes"
    # The shell is the namespace's first process and buries the daemons that nobody waits for, as an
    # init does: stop scripts wait for a daemon's process to be gone.
    os.execvp(words[0], words + ["sh", "-c", '"$@"; exit $?', "sh", sys.executable, "-B", *sys.argv])


if __name__ == "__main__":
    if INSIDE not in os.environ:
        enter_namespaces()
    ROOT, BUILD, CMAKE = sys.argv[1:]
    run("ip", "link", "set", "lo", "up")
    unittest.main(argv=sys.argv[:1], verbosity=2)
