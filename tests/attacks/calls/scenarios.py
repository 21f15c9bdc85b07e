"""Whole runs of every mode, on one scratch host each, that are made again and again."""

import functools
import gzip
import os
import re
import subprocess
import tempfile

import endpoints
from root_folder import BOOTFORGE, EXECUTOR_LOG, PLUGINS, PROFILE, RECORD, SYSLOGD_PID

LIBRARY = "/usr/lib/nimbus/bootforge"
STORE = "/var/run/nimbus/configstore"
TREE = "/tmp/tree"
HEADER = os.path.join(os.path.dirname(__file__), "../../../include")
NATIVE = f"{PLUGINS}/libnative.so"
NATIVE_SOURCE = """
#include <bootforge/plugin.h>
#include <fcntl.h>
#include <unistd.h>
static int start(void) {
  int notes = open("/tmp/notes", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  int failed = notes < 0 || write(notes, "native\\n", 7) != 7;
  if (notes >= 0) close(notes);
  return failed;
}
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1, .provides = (const char* const[]){NULL}};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {start};
"""
TELLING = re.compile(r"(error|warning|notice|info) \w+\[\d+\]: (.*)")


class Terminal(endpoints.Terminal):
    """One whose operator types "c" whenever asked."""

    def answer(self):
        """Types it, with the newline that a terminal in its usual mode waits for."""
        try:
            os.write(self.fd, b"c\n")
        except BlockingIOError:
            pass


@functools.lru_cache(maxsize=None)
def native_object():
    with tempfile.TemporaryDirectory(prefix="bootforge-native-") as folder:
        source, target = f"{folder}/plugin.c", f"{folder}/plugin.so"
        with open(source, "w", encoding="utf-8") as file:
            file.write(NATIVE_SOURCE)
        subprocess.run(["cc", "-shared", "-fPIC", "-I", HEADER, "-o", target, source], check=True)
        with open(target, "rb") as file:
            return file.read()


class Scenario:
    """One way of calling one program. `statuses` are those that a failing run may end with."""

    def __init__(self, name, *words, make=None, statuses=(0, 1), terminal=False):
        self.name, self.words, self.make = name, list(words), make or boot_files
        self.statuses, self.terminal = statuses, terminal

    def prepare(self, host):
        """Makes what the runs need, once for a host."""
        self.make(host)
        # What was there before: an earlier boot's.
        host.write(RECORD, old_record())
        host.write(PROFILE, OLD_PROFILE)

    def reset(self, host):
        """Puts back what a run has changed."""
        for path in ("/tmp/notes", TREE, EXECUTOR_LOG):
            host.remove(path)
        for folder in ("/bootbank", "/var/log", "/var/run/nimbus"):
            for name in host.listing(folder):
                if re.search(r"\.[A-Za-z0-9]{6}$", name) and not name.endswith(".socket"):
                    host.remove(f"{folder}/{name}")
        host.write(RECORD, old_record())
        host.write(PROFILE, OLD_PROFILE)
        host.write(f"{STORE}/autoconf", "")
        host.write(f"{STORE}/boot-state/network/eth0", "dhcp\n")
        if self.name == "remove-launchers":
            host.remove(f"{LIBRARY}/init.d")
            os.makedirs(host.path(f"{LIBRARY}/init.d"))
            for script in ("alpha", "beta"):
                os.symlink("../launch", host.path(f"{LIBRARY}/init.d/{script}"))
        if self.name == "add-launchers":
            host.remove(f"{LIBRARY}/init.d")


OLD_PROFILE = """HVKernel Initialization Time: 0
=== Bootforge configuration info ===
 Start: 2026-01-01 00:00:00.000000
 End: 2026-01-01 00:00:01.000000
 Verbose: 0
 Parallel: 0
 Randomize: 0
 Interactive Mode: 0
 Random Seed: 1
"""


@functools.lru_cache(maxsize=None)
def old_record():
    return gzip.compress(b"bootforge.run-once=old1,\n")


def boot_files(host):
    """A boot in which every kind of plugin, every list and every closing step has its part."""
    host.plugin("first", provides=["one"], start=["note add --text=first"], version=3,
                run_once=True, plugin_version="1")
    host.shell_command("show descriptors", 'exec >>/tmp/notes; echo /proc/self/fd/*\n')
    host.plugin("second", requires=["one"], provides=["two"],
                start=["note add --text=second", "show descriptors"])
    host.plugin("third", requires=["one"], provides=["two"], start=["note add --text=third"])
    host.write(NATIVE, native_object())
    host.debug("probe:probed:two:echo probe >>/tmp/notes")
    host.write("/etc/syslog.conf", "")
    host.script("/usr/lib/nimbus/hvsyslog/bin/upgrade-syslog.conf.sh",
                "echo upgrade >>/tmp/notes\n")
    host.write(SYSLOGD_PID, "4194303\n")


def daemon_files(host):
    os.symlink(f"{LIBRARY}/chkconfig", host.path("/bin/chkconfig"))
    for name, priority in (("alpha", 10), ("beta", 20), ("gamma", 20)):
        host.write(f"/etc/init.d/{name}", f"#!/bin/sh\n# chkconfig: 2345 {priority} 10\n"
                   f'echo "{name} $2" >>/tmp/notes\n', 0o755)


def launcher_files(host):
    daemon_files(host)
    host.write("/etc/init.d/alpha", '#!/bin/sh\n# chkconfig: 2345 10 10\necho "$*" >>/tmp/notes\n'
               "echo said >&2\n", 0o755)
    if not host.exists(f"{LIBRARY}/init.d"):
        host.run(f"{LIBRARY}/chkconfig", "--add-launchers")


SCENARIOS = [
    Scenario("init", BOOTFORGE, "--init"),
    Scenario("init-parallel", BOOTFORGE, "--init", "--parallel"),
    Scenario("plain", BOOTFORGE),
    Scenario("invoke", BOOTFORGE, "--invoke", "--method=start", "--plugin=first.json",
             "--plugin=second.json"),
    Scenario("dump", BOOTFORGE, f"--dump-dependency-tree={TREE}"),
    Scenario("prompt", BOOTFORGE, "--interactive", terminal=True),
    Scenario("daemon-start", BOOTFORGE, "--daemon=wait", "--method=start", make=daemon_files),
    Scenario("daemon-stop", BOOTFORGE, "--daemon=wait", "--method=stop", make=daemon_files),
    Scenario("hypcli", "/usr/bin/hypcli", "note", "add", "--text=first", statuses=(0, 1, 2)),
    Scenario("hypcli-list", "/usr/bin/hypcli", statuses=(0, 1, 2)),
    Scenario("chkconfig", f"{LIBRARY}/chkconfig", "-p", make=daemon_files),
    Scenario("add-launchers", f"{LIBRARY}/chkconfig", "--add-launchers", make=daemon_files),
    Scenario("remove-launchers", f"{LIBRARY}/chkconfig", "--remove-launchers", make=daemon_files),
    Scenario("launch", f"{LIBRARY}/init.d/alpha", "++group=init/alpha", "start",
             make=launcher_files, statuses=(0, 127)),
    Scenario("native-executor", f"{LIBRARY}/nativeExecutor", NATIVE, "native", "start",
             statuses=(0, 1, 127)),
]
