"""Whole boots: everything that a run tells, leaves behind and does, compared in full.

The sample host, milestones in brackets; "broken" fails, nobody provides [license]:

    clock --> [time] -----> keys ----> [crypto] --+
                                                  +--> login      motd
    disk --> [storage] +--> broken --> [cache] ---+
                       +--> probe (a debug injection)             [license] --> license-check
"""

import datetime
import os
import re
import signal

import host_case
import readings
from host_case import (ALREADY_GONE, LAUNCHING, POLLING, SETTING_UP, SIGNALLED, STOPPED, HostCase,
                       activation, alert, cli_failure, failed, refused, starting)
from root_folder import (BOOTFORGE, EVTD, EXECUTOR_LOG, PLUGINS, PROFILE, RECORD, SYSLOGD,
                         SYSLOGD_PID)

NO_LICENSE = ('Bootforge dependency error: Initialization barrier "license" is not provided by any '
              'plugin but the following plugins require it: "license-check"')
NAMES = ("clock", "disk", "keys", "broken", "login", "motd", "license-check")
EDGES = [("clock", "keys"), ("keys", "login"), ("disk", "broken"), ("broken", "login"),
         ("disk", "probe")]
# The syslog daemon's part: it leaves its number, once that may be used, and tells of its reload.
SYSLOGD_SCRIPT = f"""
: >/tmp/ready
( sleep 3600 &
  trap 'kill $!; echo reloaded >>/tmp/syslogd; exit' USR1
  echo >/tmp/ready
  wait ) &
until [ -s /tmp/ready ]; do :; done
echo $! >{SYSLOGD_PID}
echo "started with $# words" >>/tmp/syslogd
"""


def sample_host(test):
    host = test.host()
    note = "note add --text={}".format
    host.plugin("clock", provides=["time"], start=[note("clock")])
    host.plugin("disk", provides=["storage"], start=[note("disk-1"), note("disk-2")],
                version=2)
    host.plugin("keys", requires=["time"], provides=["crypto"], start=[note("keys")], version=3,
                run_once=True, plugin_version="1.2")
    host.plugin("broken", requires=["storage"], provides=["cache"],
                start=["note add", note("broken"), "fail now"])
    host.plugin("login", requires=["crypto", "cache"], start=[note("login")], version=4)
    host.plugin("motd", version=4)
    host.plugin("license-check", requires=["license"], start=[note("license")])
    host.debug("probe:probed:storage:echo probe >>/tmp/notes; exit 3", "not an injection")
    host.write(f"{PLUGINS}/README", "no extension\n")
    host.write(f"{PLUGINS}/old.conf", "of no known kind\n")
    host.shell_command("fail now", "echo 'cannot do that' >&2\nexit 3\n")
    host.script(SYSLOGD, SYSLOGD_SCRIPT)
    host.script(EVTD, 'echo "$@" >>/tmp/evtd\n')
    host.write("/var/run/nimbus/configstore/autoconf", "")
    host.write("/var/run/nimbus/configstore/boot-state/network/eth0", "dhcp\n")
    return host


def discovery_messages(host):
    """What gathering the plugins logs, in the order of the plugin folder."""
    malformed = ("info", "ignoring malformed debug entry at line 2: not an injection")
    messages = [malformed]
    for name in host.listing():
        if name == "README":
            messages.append(("warning", "ignoring plugin 'README' of unspecified type..."))
        else:
            messages.append(malformed)  # the list is read anew for each file
        if name == "old.conf":
            messages.append(("warning", "ignoring plugin 'old.conf' of unknown type (conf)..."))
    return messages


def profile_names(host):
    names = [name.removesuffix(".json") for name in host.listing()]
    return [name for name in names if name in NAMES] + ["probe"]


class WholeInitBoot(HostCase):
    # One activation logs these, whatever else happens around it.
    ACTIVATIONS = {
        "broken": [starting("broken")] + failed("broken", refused("note add"),
                                                refused("fail now")),
        "probe": [starting("probe"), ("info", "debug injection 'probe' returned 0x000300")],
        "license-check": [("warning", NO_LICENSE), starting("license-check")],
        **{name: [starting(name)] for name in ("clock", "disk", "keys", "login", "motd")}}
    EXECUTOR = [("error", "execution of 'note add' failed : missing required parameter 'text' of "
                          "command 'note add'"),
                ("error", "execution of 'fail now' failed : cannot do that"),
                ("error", "execution of 'fail now' failed : /usr/bin/fail-now exited with code 3")]
    NOTES = ["broken", "clock", "disk-1", "disk-2", "keys", "license", "login", "probe"]

    def boot(self, *options):
        host = sample_host(self)
        boot = host.boot("--init", *options)
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        host.wait_for(lambda: "reloaded" in host.read_lines("/tmp/syslogd"), "the reload")
        return host, boot

    def check_everything(self, host, boot, **options):
        messages = boot.messages
        opening = [LAUNCHING, SETTING_UP] + discovery_messages(host)
        self.assertEqual(messages[:len(opening)], opening)
        self.assertEqual(messages[-1], STOPPED)
        activations = messages[len(opening):-1]
        self.assertEqual(sorted(activations), sorted(sum(self.ACTIVATIONS.values(), [])))
        for expected in self.ACTIVATIONS.values():
            self.assert_in_order(expected, activations)
        for earlier, later in EDGES:
            self.assertLess(activations.index(starting(earlier)),
                            activations.index(starting(later)))

        self.assert_executor_log(host, POLLING, *self.EXECUTOR, SIGNALLED)
        self.assert_syslog_holds(host, messages, host.executor_log())
        records = host.kernel_log()
        expected = [activation(name, cli_failure("broken") if name == "broken" else None)
                    for name in (*NAMES, "probe")]
        self.assertEqual(sorted(records), sorted(sum(expected, []) + [alert(NO_LICENSE)]))
        for pair in expected:
            self.assert_in_order(pair, records)

        profile = self.assert_profiled(host, profile_names(host), **options)
        self.check_times(profile, boot)
        self.assertEqual(host.record(), "bootforge.run-once=keys1.2,\n")
        self.assertEqual(sorted(host.notes()), self.NOTES)
        self.assertEqual(host.read_lines("/tmp/syslogd"), ["started with 0 words", "reloaded"])
        self.assertEqual(host.read_lines("/tmp/evtd"), ["start"])
        self.assertFalse(host.exists("/var/run/nimbus/configstore/autoconf"))
        self.assertEqual(host.listing("/var/run/nimbus/configstore/boot-state"), [])
        self.check_leftovers(host)

    def check_times(self, profile, boot):
        begin, end = profile.head
        moments = [begin - datetime.timedelta(milliseconds=1), *(line.time for line in boot.lines)]
        self.assertEqual(moments, sorted(moments))
        self.assertLessEqual(boot.lines[-2].time, end)
        with open("/proc/uptime", encoding="ascii") as file:
            self.assertAlmostEqual(profile.kernel / 1e6, float(file.read().split()[0]), delta=60)
        self.assertEqual(profile.kernel % 1_000_000, 0)
        spans = {node.name: node for node in profile.nodes}
        for node in profile.nodes:
            self.assertTrue(begin <= node.start <= node.end <= end, node)
        for earlier, later in EDGES:
            self.assertLessEqual(spans[earlier].end, spans[later].start)

    def check_leftovers(self, host):
        self.assertEqual(sorted(host.listing("/var/log")),
                         ["bootforge-hypcli-stdout.log", "sysboot.log"])
        self.assertEqual(host.listing("/bootbank"), ["bootfrge.gz"])
        for path in (PROFILE, RECORD):
            self.assertEqual(os.stat(host.path(path)).st_mode & 0o7777, 0o600)
        host.wait_for_emptiness()

    def test_a_serial_boot_is_told_whole_in_every_place(self):
        host, boot = self.boot()
        self.check_everything(host, boot)
        by_time = sorted(host.profile().nodes, key=lambda node: node.start)
        self.assertEqual([node.name for node in by_time], self.order_of(boot))
        for before, after in zip(by_time, by_time[1:]):  # one worker, one plugin at a time
            self.assertLessEqual(before.end, after.start)

    def order_of(self, boot):
        return [text.removeprefix("executing start plugin: ") for _, text in boot.messages
                if text.startswith("executing start plugin: ")]

    def test_a_parallel_boot_gives_the_same_set_of_results(self):
        host, boot = self.boot("--parallel")
        self.check_everything(host, boot, parallel=1)

    def test_two_serial_boots_of_one_folder_go_in_the_same_order(self):
        host, first = self.boot()
        os.unlink(host.path("/tmp/syslogd"))
        second = host.boot("--init")
        self.assertEqual(self.order_of(first), self.order_of(second))

    def test_every_log_line_has_the_shape_that_tools_rely_on(self):
        host, boot = self.boot()
        self.assertRegex(boot.stdout.decode().splitlines()[0],
                         r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z info "
                         rf"bootforge\[{boot.pid}\]: Launching Executor$")
        self.assertEqual({line.pid for line in boot.lines}, {boot.pid})
        executor = {line.pid for line in readings.log_lines(host.read(EXECUTOR_LOG))}
        self.assertEqual(len(executor), 1)
        self.assertNotIn(boot.pid, executor)

    def test_times_are_utc_wherever_the_host_is(self):
        host = self.host()
        now = datetime.datetime.now(datetime.timezone.utc)
        boot = host.boot(env={"TZ": "FAR-11"})
        for time in (boot.lines[0].time, *host.profile().head):
            self.assertLess(abs(time - now), datetime.timedelta(minutes=5))

    def test_the_console_shows_the_progress(self):
        self.need_mounts()
        host, _ = self.boot()
        self.assertIn(b"Activating Bootforge Plugins", host.console.text)


class OtherModes(HostCase):
    def test_a_plain_run_starts_and_reloads_no_daemon(self):
        host = sample_host(self)
        boot = host.boot()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual((host.read("/tmp/evtd"), host.read("/tmp/syslogd")), (None, None))
        self.assert_profiled(host, profile_names(host))
        self.assertFalse(host.exists("/var/run/nimbus/configstore/autoconf"))

    def test_trace_tells_of_the_beginning_and_the_time_of_each_plugin(self):
        host = self.host()
        host.plugin("good", provides=["first"])
        host.plugin("bad", requires=["first"], start=["no such"])
        boot = host.boot("--trace")
        self.assert_boot(boot, [
            LAUNCHING, SETTING_UP,
            ("info", "starting execution of plugin: good"), starting("good"),
            ("info", "completed execution of plugin: good (took N us)"),
            ("info", "starting execution of plugin: bad"), starting("bad"),
            *failed("bad", refused("no such")),
            ("info", "completed execution of plugin: bad (took N us)"), STOPPED])
        times = dict(re.findall(r"plugin: (\w+) \(took (\d+) us\)", boot.stdout.decode()))
        for node in host.profile().nodes:
            self.assertEqual(int(times[node.name]),
                             (node.end - node.start) // datetime.timedelta(microseconds=1))

    def test_the_profile_keeps_the_mode_of_the_file_that_it_replaces(self):
        host = self.host()
        host.write(PROFILE, "an old profile", mode=0o640)
        host.boot()
        self.assert_profiled(host, [])
        self.assertEqual(os.stat(host.path(PROFILE)).st_mode & 0o7777, 0o640)

    def test_a_missing_milestone_is_an_alert_except_in_invoke_mode(self):
        host = self.host()
        host.plugin("lonely", requires=["nothing", "nowhere"])
        host.plugin("friend", requires=["nothing"])
        order = [name.removesuffix(".json") for name in host.listing()]
        requirers = ", ".join(f'"{name}"' for name in order)
        nothing = ('Bootforge dependency error: Initialization barrier "nothing" is not provided '
                   f"by any plugin but the following plugins require it: {requirers}")
        nowhere = ('Bootforge dependency error: Initialization barrier "nowhere" is not provided '
                   'by any plugin but the following plugins require it: "lonely"')
        boot = host.boot()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        warnings = [text for level, text in boot.messages if level == "warning"]
        self.assertEqual(sorted(warnings), sorted([nothing, nowhere]))
        self.assertEqual(sorted(host.kernel_log()), sorted(
            [alert(nothing), alert(nowhere)] + activation("lonely") + activation("friend")))

        host = self.host()
        host.plugin("lonely", requires=["nowhere"])
        boot = host.boot("--invoke", "--method=start", "--plugin=lonely.json")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, ("warning", nowhere), starting("lonely"),
                                STOPPED])
        self.assertEqual(host.kernel_log(), activation("lonely"))

    def test_stopping_of_what_is_already_gone_is_information(self):
        self.need_private_processes()
        host = self.host()
        host.shell_command("kill executor", "kill -9 $PPID\n")
        host.debug("wait:gone:killed:read x </tmp/gate")
        host.gate("/tmp/gate")
        host.plugin("killer", provides=["killed"], start=["kill executor"])
        process = host.start(BOOTFORGE)
        host.wait_for(lambda: starting("wait") in process.messages, "the injection to start")
        host.wait_for_executor_end()
        host.open_gate("/tmp/gate")
        host.finish(process)
        self.assertEqual(process.messages[-1], ALREADY_GONE)
        self.assertEqual(process.status, 0)


class SyslogReload(HostCase):
    def reload_with(self, prepare):
        host = self.host()
        prepare(host)
        boot = host.boot("--init")
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(boot.messages[:2] + boot.messages[-1:], [LAUNCHING, SETTING_UP, STOPPED])
        return host, boot.messages[2:-1]

    def test_a_missing_pid_file_is_a_warning(self):
        _, messages = self.reload_with(lambda host: None)
        self.assertEqual(messages, [("warning", "unable to open hvksyslogd pid file.")])

    def test_a_pid_that_cannot_be_read_is_an_error(self):
        for content in ("", "syslogd\n", "0\n", "-1\n"):
            with self.subTest(content):
                _, messages = self.reload_with(lambda host: host.write(SYSLOGD_PID, content))
                self.assertEqual(messages, [("error", "unable to read hvsyslogd pid.")])

    def test_a_daemon_that_is_gone_is_a_warning(self):
        _, messages = self.reload_with(lambda host: host.write(SYSLOGD_PID, "4194303\n"))
        self.assertEqual(messages,
                         [("warning", "failed to reload hvsyslogd: No such process.")])

    def test_a_pid_file_that_is_a_fifo_is_not_waited_on(self):
        _, messages = self.reload_with(lambda host: os.mkfifo(host.path(SYSLOGD_PID)))
        self.assertEqual(messages, [("warning", "unable to open hvksyslogd pid file.")])

    def test_an_old_configuration_is_upgraded_before_the_reload(self):
        def prepare(host):
            host.script(SYSLOGD, SYSLOGD_SCRIPT)
            host.write("/etc/syslog.conf", "")
            host.script("/usr/lib/nimbus/hvsyslog/bin/upgrade-syslog.conf.sh",
                        "echo upgraded >>/tmp/syslogd\n")
        host, messages = self.reload_with(prepare)
        host.wait_for(lambda: len(host.read_lines("/tmp/syslogd")) == 3, "the reload")
        self.assertEqual(host.read_lines("/tmp/syslogd"),
                         ["started with 0 words", "upgraded", "reloaded"])
        self.assertEqual(messages, [])

    def test_only_that_daemon_gets_the_signal(self):
        host = self.host()
        bystander = host.start("/bin/sleep", "7200")
        host.script(SYSLOGD, SYSLOGD_SCRIPT)
        host.boot("--init")
        host.wait_for(lambda: "reloaded" in host.read_lines("/tmp/syslogd"), "the reload")
        self.assertIsNone(bystander.status)
        host.processes("7200")[0].signal(signal.SIGTERM)
        self.assertEqual(host.finish(bystander).status, -signal.SIGTERM)


if __name__ == "__main__":
    host_case.main()
