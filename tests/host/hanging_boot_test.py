"""Boots that hang, and what `bootforge-analyze stuck` tells from what they have said so far."""

import json
import os
import re
import subprocess

import host_case
from host_case import starting
from native_test import NativeCase
from root_folder import BOOTFORGE

ANALYZE = "/usr/bin/bootforge-analyze"
SANITIZED = bool(os.environ.get("BOOTFORGE_HOST_SANITIZE"))
RECORD = re.compile(r"<\d+>(.*)")
MISSING = [{"milestone": "disk", "plugins": ["volumes"]}]
# What stands behind the plugin that hangs.
BEHIND = [{"name": "accounts", "for": MISSING},
          {"name": "login", "for": [{"milestone": "accounts-ready", "plugins": ["accounts"]}]}]


class HangingBoots(NativeCase):
    """The hosts' own processes are ended with their pid namespace when the hosts are closed."""

    def setUp(self):
        super().setUp()
        self.need_private_processes()

    # Captures

    def kernel_log(self, host):
        """As dmesg prints it."""
        host.drain()
        return "".join(f"[{7 + number / 8:12.6f}] {RECORD.fullmatch(record)[1]}\n"
                       for number, record in enumerate(host.kernel_log()))

    def syslog_file(self, host):
        """As a syslog daemon writes it."""
        host.drain()
        return "".join(re.sub(r"^<\d+>(\w{3} [ \d]\d \d\d:\d\d:\d\d) ", r"\1 host7 ",
                              message.decode().rstrip("\n\0")) + "\n"
                       for message in host.system_log.messages)

    def stuck(self, host, capture, *options, status=1):
        """The answer, and what was said beside it."""
        with open(f"{host.root}/capture", "wb") as file:
            file.write(capture if isinstance(capture, bytes) else capture.encode())
        done = subprocess.run([host.path(ANALYZE), "stuck", f"--root={host.root}", "--format=json",
                               f"--messages={host.root}/capture", *options], check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
        if status is not None:
            self.assertEqual(done.returncode, status, done.stderr.decode())
        self.assertIn(done.returncode, (0, 1, 2), done.stderr.decode())
        if done.returncode == 2:
            return None, done.stderr.decode()
        told = json.loads(done.stdout)
        told["waiting"].sort(key=lambda each: each["name"])  # it has them in the folder's order
        return told, done.stderr.decode()

    def whole_answer(self, host, capture, *options):
        """The answer to a capture that tells of every end: nothing is said beside it."""
        told, said = self.stuck(host, capture, *options)
        self.assertEqual(said, "")
        return told

    def check_cuts(self, host, capture, *options):
        """Every beginning of a capture has an answer: of plugins that there are, and never less
        that has begun than before. With a sanitizer, each eleventh beginning."""
        capture = capture.encode()
        known = {"accounts", "login", "volumes", "clock", "one", "two", "free"}
        waiting = known
        for length in range(0, len(capture) + 1, 11 if SANITIZED else 1):
            told, said = self.stuck(host, capture[:length], *options, status=None)
            if told is None:
                self.assertIn("there is no message of a boot in it", said)
                continue
            named = {each["name"] for each in told["running"] + told["waiting"]}
            self.assertLessEqual(named, known, f"cut after {length} bytes")
            still = {each["name"] for each in told["waiting"]}
            self.assertLessEqual(still, waiting, f"cut after {length} bytes")
            waiting = still

    # Hosts

    def host_of_four(self, volumes=()):
        """"accounts" and "login" wait behind "volumes"; "clock" is free."""
        host = self.host()
        if volumes is not None:
            host.plugin("volumes", provides=["disk"], start=volumes)
        host.plugin("accounts", requires=["disk"], provides=["accounts-ready"])
        host.plugin("login", requires=["accounts-ready"])
        host.plugin("clock")
        return host

    def host_with_a_command_that_hangs(self):
        host = self.host_of_four(["wait here"])
        host.shell_command("wait here", "read x </tmp/gate\n")
        host.gate("/tmp/gate")
        return host

    def start_until_it_hangs(self, host, *options):
        """Two workers, so that the free plugin ends beside the one that hangs."""
        process = host.start(BOOTFORGE, "--parallel", *options)
        host.wait_for(lambda: b"Bootforge plugin clock activated." in host.kernel.text
                      and b"plugin volumes." in host.kernel.text, "the boot to hang")
        self.assertIsNone(process.status)
        return process

    def let_it_end(self, host, process):
        host.open_gate("/tmp/gate")
        host.finish(process)
        host.wait_for_executor_end()

    # Tests

    def test_a_command_that_hangs_is_named_with_all_that_waits_behind_it(self):
        host = self.host_with_a_command_that_hangs()
        process = self.start_until_it_hangs(host)
        log = self.kernel_log(host)
        since = re.search(r"\[ *(\S+)\] bootforge: Activating Bootforge plugin volumes\.", log)[1]
        self.assertEqual(self.whole_answer(host, log), {
            "running": [{"name": "volumes", "since": since, "blocks": 2}],
            "waiting": BEHIND, "cycle": []})
        self.check_cuts(host, log)
        self.let_it_end(host, process)
        told, said = self.stuck(host, self.kernel_log(host), status=0)
        self.assertEqual((told, said), ({"running": [], "waiting": [], "cycle": []}, ""))

    def test_standard_output_and_syslog_name_it_and_say_what_they_do_not_know(self):
        host = self.host_with_a_command_that_hangs()
        process = self.start_until_it_hangs(host)
        # What the program was started for is told everywhere before it runs.
        host.wait_for(lambda: host.processes("/usr/bin/wait-here"), "the program that hangs")
        host.drain()
        for capture, stamp in ((process.stdout.decode(), r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"),
                               (self.syslog_file(host), r"\w{3} [ \d]\d \d\d:\d\d:\d\d")):
            told, said = self.stuck(host, capture)
            self.assertIn("only the kernel log, or a run with --trace, tells", said)
            self.assertEqual(told["waiting"], BEHIND)
            # What nothing waits for may have ended.
            running = {each["name"]: each for each in told["running"]}
            self.assertEqual(set(running), {"volumes", "clock"})
            self.assertEqual(running["volumes"]["blocks"], 2)
            self.assertRegex(running["volumes"]["since"], f"^{stamp}$")
            self.check_cuts(host, capture)
        self.let_it_end(host, process)

    def test_a_trace_tells_what_has_ended(self):
        host = self.host_with_a_command_that_hangs()
        process = self.start_until_it_hangs(host, "--trace")
        host.wait_for(lambda: b"completed execution of plugin: clock" in process.stdout, "its end")
        told = self.whole_answer(host, process.stdout)
        self.assertEqual([each["name"] for each in told["running"]], ["volumes"])
        self.let_it_end(host, process)

    def test_a_native_plugin_in_a_loop_is_named(self):
        host = self.host_of_four(volumes=None)
        self.shared_object(host, "volumes", "entry", provides=["disk"],
                           more=self.entry("for (;;) usleep(1000);"))
        process = self.start_until_it_hangs(host)
        told = self.whole_answer(host, self.kernel_log(host))
        self.assertEqual([(each["name"], each["blocks"]) for each in told["running"]],
                         [("volumes", 2)])
        self.assertEqual(told["waiting"], BEHIND)
        self.assertIsNone(process.status)

    def test_an_init_script_that_hangs_is_named(self):
        host = self.host()
        os.symlink("/usr/lib/nimbus/bootforge/chkconfig", host.path("/bin/chkconfig"))
        host.remove("/etc/init.d/evtd")
        host.gate("/tmp/gate")
        for name, priority, body in (("volumes", 10, "read x </tmp/gate"), ("clock", 10, "exit 0"),
                                     ("accounts", 20, "exit 0"), ("login", 30, "exit 0")):
            host.script(f"/etc/init.d/{name}", f"# chkconfig: 345 {priority} 10\n{body}\n")
        process = host.start(BOOTFORGE, "--daemon=wait", "--method=start", "--parallel")
        host.wait_for(lambda: b"Bootforge plugin clock activated." in host.kernel.text
                      and b"plugin volumes." in host.kernel.text, "the scripts to hang")
        log = self.kernel_log(host)
        told = self.whole_answer(host, log, "--daemons")
        self.assertEqual([(each["name"], each["blocks"]) for each in told["running"]],
                         [("volumes", 2)])
        self.assertEqual([each["name"] for each in told["waiting"]], ["accounts", "login"])
        self.assertEqual(told["waiting"][0]["for"],
                         [{"milestone": "_<->_priority_<->_10", "plugins": ["volumes"]}])
        self.check_cuts(host, log, "--daemons")
        self.let_it_end(host, process)

    def test_a_cycle_is_told_where_nothing_runs(self):
        host = self.host()
        host.plugin("one", requires=["b"], provides=["a"])
        host.plugin("two", requires=["a"], provides=["b"])
        host.plugin("login", requires=["a"])
        host.plugin("free")
        process = host.start(BOOTFORGE)
        host.wait_for(lambda: b"Bootforge plugin free activated." in host.kernel.text,
                      "what can run")
        log = self.kernel_log(host)
        told = self.whole_answer(host, log)
        self.assertEqual(told["running"], [])
        self.assertEqual(told["cycle"], ["one", "b", "two", "a", "one"])
        self.assertEqual({each["name"] for each in told["waiting"]}, {"one", "two", "login"})
        self.check_cuts(host, log)
        self.assertIsNone(process.status)

    def test_a_syslog_that_nobody_reads_leaves_the_other_captures_whole(self):
        host = self.host_with_a_command_that_hangs()
        host.ignore(host.system_log)
        process = self.start_until_it_hangs(host)
        host.wait_for(lambda: starting("volumes") in process.messages, "the message")
        for capture in (self.kernel_log(host), process.stdout):
            told, _ = self.stuck(host, capture)
            self.assertIn({"name": "volumes", "blocks": 2},
                          [{"name": each["name"], "blocks": each["blocks"]}
                           for each in told["running"]])
            self.assertEqual(told["waiting"], BEHIND)
        self.let_it_end(host, process)

    def test_a_syslog_daemon_that_died_leaves_what_it_has_written(self):
        host = self.host_with_a_command_that_hangs()
        process = self.start_until_it_hangs(host)
        lines = self.syslog_file(host).splitlines(keepends=True)
        cut = next(number for number, line in enumerate(lines) if "plugin: " in line)
        told, said = self.stuck(host, "".join(lines[:cut + 1]))
        self.assertIn("only the kernel log", said)
        self.assertEqual(len(told["running"]), 1)
        # Before any plugin has begun, all of them wait.
        told, _ = self.stuck(host, "".join(lines[:cut]))
        self.assertEqual(told["running"], [])
        self.assertEqual(len(told["waiting"]), 4)
        self.assertEqual(told["cycle"], [])
        self.let_it_end(host, process)

    def test_a_boot_that_hangs_in_its_syslog_daemon_has_said_nothing_yet(self):
        host = self.host_with_a_command_that_hangs()
        daemon = "/usr/lib/nimbus/hvsyslog/bin/hvsyslogd"
        host.script(daemon, "read x </tmp/syslog-gate\n")
        host.gate("/tmp/syslog-gate")
        process = host.start(BOOTFORGE, "--init", "--parallel")
        host.wait_for(lambda: host.processes("/bin/sh", daemon), "the syslog daemon")
        for capture in (self.kernel_log(host), process.stdout, self.syslog_file(host)):
            _, said = self.stuck(host, capture, status=2)
            self.assertEqual(said, f"bootforge-analyze: {host.root}/capture: there is no message of "
                                   "a boot in it\n")
        host.open_gate("/tmp/syslog-gate")
        host.wait_for(lambda: b"plugin volumes." in host.kernel.text, "the plugins")
        self.assertIn("volumes", [each["name"] for each in
                                  self.whole_answer(host, self.kernel_log(host))["running"]])
        self.let_it_end(host, process)


if __name__ == "__main__":
    host_case.main()
