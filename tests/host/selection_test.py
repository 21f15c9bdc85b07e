"""Which plugins a run takes: lists of names, flags, run-once records, host profiles, injections."""

import gzip
import os
import signal

import host_case
from host_case import (LAUNCHING, SETTING_UP, STOPPED, HostCase, activation, alert, failed, refused,
                       rejected, starting, unhandled)
from root_folder import BOOTFORGE, PLUGINS, PROFILE, RECORD


def info(text):
    return ("info", text)


def warning(text):
    return ("warning", text)


class Selection(HostCase):
    """Runs whose plugins have no order among them: what counts is what was said of each."""

    def assert_run(self, host, arguments, messages, status=0):
        """The whole log of a run, between its fixed opening and its end, in that order."""
        boot = host.boot(*arguments)
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *messages, STOPPED], status)
        return boot

    def folder_order(self, host, messages):
        """Puts (file name -> messages) in the order in which the program sees the files."""
        return sum((messages.get(name, []) for name in host.listing()), [])


class Lists(Selection):
    def test_only_named_plugins_are_loaded_in_the_order_of_the_command_line(self):
        host = self.host()
        for name in ("one", "two", "three"):
            host.plugin(name)
        host.debug("probe:probed:any:true")
        self.assert_run(host, ["--plugin=two.json,,one.json", "--plugin=none.json"],
                        [warning(rejected("none.json", "no such file or directory")),
                         starting("two"), starting("one")])
        self.assert_profiled(host, ["two", "one"])

    def test_a_named_debug_file_adds_the_injections_of_its_name(self):
        host = self.host()
        host.debug("probe:first:any:echo 1 >>/tmp/notes", "other:x:any:true",
                   "probe:second:first:echo 2 >>/tmp/notes")
        boot = host.boot("--plugin=probe.debug,nobody.debug")
        self.assertEqual(boot.status, 0)
        self.assertEqual(host.notes(), ["1", "2"])
        self.assert_profiled(host, ["probe", "probe"])

    def test_disabled_plugins_count_as_done_for_those_that_need_them(self):
        host = self.host()
        host.plugin("net", provides=["network"], start=["note add --text=net"])
        host.plugin("libssh", requires=["network"], start=["note add --text=ssh"])
        host.plugin("web", requires=["network"], start=["note add --text=web"])
        ignored = {"net.json": [info("ignoring plugin 'net' due to denylist.")],
                   "libssh.json": [info("ignoring plugin 'ssh' due to denylist.")]}
        self.assert_run(host, ["--disable-plugins=net,libweb", "--disable-plugins=ssh"],
                        self.folder_order(host, ignored) + [starting("web")])
        self.assertEqual(host.notes(), ["web"])
        self.assert_profiled(host, ["web"])

    def test_other_files_are_told_of_and_left_alone(self):
        host = self.host()
        for name in ("README", "x.JSON", "y.json.bak", "z."):
            host.write(f"{PLUGINS}/{name}", "")
        host.write(f"{PLUGINS}/sub.d/deep.json", "")
        said = {"README": "'README' of unspecified type...",
                "x.JSON": "'x.JSON' of unknown type (JSON)...",
                "y.json.bak": "'y.json.bak' of unknown type (bak)...",
                "z.": "'z.' of unknown type ()...",
                "sub.d": "'sub.d' of unknown type (d)..."}
        self.assert_run(host, [], self.folder_order(
            host, {name: [warning(f"ignoring plugin {text}")] for name, text in said.items()}))


class Flags(Selection):
    def host_with_flags(self):
        host = self.host()
        host.plugin("always", version=3)
        host.plugin("debugger", version=3, required_flags=["debug", "console"])
        host.plugin("quiet", version=4, disabling_flags=["verbose", "debug"])
        host.plugin("odd", version=3, required_flags=["b", "a"], disabling_flags=["debug"])
        host.plugin("old", version=2, required_flags=["never"])
        return host

    def check(self, arguments, messages, started):
        host = self.host_with_flags()
        order = [name for name in host.listing() if name.removesuffix(".json") in started]
        self.assert_run(host, arguments, self.folder_order(
            host, {f"{name}.json": [warning(text) for text in texts]
                   for name, texts in messages.items()}) +
            [starting(name.removesuffix(".json")) for name in order])
        self.assert_profiled(host, [name.removesuffix(".json") for name in order])

    def test_without_flags_what_requires_some_is_left_out(self):
        missing = "ignoring plugin '{}', disabled due to missing required boot flags: {}."
        self.check([], {"debugger": [missing.format("debugger", "console debug ")],
                        "odd": [missing.format("odd", "a b ")]}, ["always", "quiet", "old"])

    def test_flags_enable_and_disable(self):
        self.check(["--plugin-flags=debug,console"], {
            "quiet": ["ignoring plugin 'quiet', disabled due to boot flags: debug ."],
            "odd": ["ignoring plugin 'odd', disabled due to boot flags: debug .",
                    "ignoring plugin 'odd', disabled due to missing required boot flags: a b ."]},
            ["always", "debugger", "old"])

    def test_only_the_last_list_of_flags_counts(self):
        self.check(["--plugin-flags=debug,console", "--plugin-flags=a"], {
            "debugger": ["ignoring plugin 'debugger', disabled due to missing required boot flags: "
                         "console debug ."],
            "odd": ["ignoring plugin 'odd', disabled due to missing required boot flags: b ."]},
            ["always", "quiet", "old"])


class RunOnce(Selection):
    INVOKE = ("--invoke", "--method=start", "--plugin=net.json")

    def host_with_run_once(self, version="1.2"):
        host = self.host()
        host.plugin("net", start=["note add --text=ran"], version=3, run_once=True,
                    plugin_version=version)
        return host

    def test_invoking_twice_runs_once(self):
        host = self.host_with_run_once()
        self.assert_run(host, self.INVOKE, [starting("net")])
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,\n")
        records = len(host.kernel_log())
        self.assert_run(host, self.INVOKE, [
            info("ignoring plugin 'net' because version '1.2'  has already been run.")])
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,\n")
        self.assertEqual(host.notes(), ["ran"])
        self.assertEqual(host.kernel_log()[records:], [])
        self.assertIsNone(host.read(PROFILE))  # invoked runs are not profiled

    def test_a_new_version_runs_again(self):
        host = self.host_with_run_once()
        host.boot(*self.INVOKE)
        host.plugin("net", start=["note add --text=new"], version=4, run_once=True,
                    plugin_version="1.3")
        self.assert_run(host, self.INVOKE, [starting("net")])
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,net1.3,\n")
        self.assertEqual(host.notes(), ["ran", "new"])

    def test_a_version_with_a_blank_is_stored_without_it_and_runs_every_time(self):
        host = self.host_with_run_once("1 2")
        for _ in range(2):
            self.assert_run(host, self.INVOKE, [starting("net")])
        self.assertEqual(host.record(), "bootforge.run-once=net12,\n")
        self.assertEqual(host.notes(), ["ran", "ran"])

    def test_a_boot_does_not_read_the_record_but_replaces_it(self):
        host = self.host_with_run_once()
        host.write(RECORD, gzip.compress(b"bootforge.run-once=net1.2,old7,\n"), mode=0o644)
        self.assert_run(host, [], [starting("net")])
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,\n")
        self.assertEqual(os.stat(host.path(RECORD)).st_mode & 0o7777, 0o644)

    def test_run_once_keys_come_from_the_command_line_too(self):
        host = self.host_with_run_once()
        self.assert_run(host, ["--run-once=zebra1,net1.2", "--run-once=apple"], [
            info("ignoring plugin 'net' because version '1.2'  has already been run.")])
        self.assertEqual(host.record(), "bootforge.run-once=apple,net1.2,zebra1,\n")
        profile = self.assert_profiled(host, ["net"])
        self.assertEqual(profile.nodes[0].start.timestamp(), 0)

    def test_blanks_around_keys_of_the_record_do_not_count(self):
        host = self.host_with_run_once()
        host.write(RECORD, gzip.compress(b"bootforge.run-once= net1.2 ,,\tb,\n"))
        self.assert_run(host, self.INVOKE, [
            info("ignoring plugin 'net' because version '1.2'  has already been run.")])
        self.assertEqual(host.record(), "bootforge.run-once=b,net1.2,\n")

    def test_a_record_of_another_kind_or_damaged_loads_nothing(self):
        whole = gzip.compress(b"bootforge.run-once=net1.2," + b"x" * 500 + b",\n")
        broken = bytearray(whole)
        broken[-6] ^= 1  # in the checksum
        for content in (b"", b"no gzip", gzip.compress(b"bootforge.run-once:net1.2,\n"),
                        whole[:-9], bytes(broken)):
            with self.subTest(content[:20]):
                host = self.host_with_run_once()
                host.write(RECORD, content)
                self.assert_run(host, self.INVOKE, [starting("net")])
                self.assertEqual(host.record(), "bootforge.run-once=net1.2,\n")


class Methods(Selection):
    PROFILE_FILE = "/etc/nimbus/hostprofile.xml"

    def host_with_profiles(self):
        host = self.host()
        both = {"start": ["note add --text=start"],
                "apply_host_profile": ["note add --text=profile"]}
        host.plugin("second", version=2, **both)
        host.plugin("first", version=1, **both)
        host.plugin("empty", version=4, start=both["start"], apply_host_profile=[])
        host.plugin("plain", version=3, start=both["start"])
        return host

    def test_a_host_profile_is_applied_by_those_who_can(self):
        for name in (self.PROFILE_FILE, f"{self.PROFILE_FILE}.gz"):
            with self.subTest(name):
                host = self.host_with_profiles()
                host.write(name, "")
                self.assert_run(host, [], self.folder_order(host, {
                    "second.json": [info("executing host profile plugin: second")],
                    "first.json": [starting("first")],
                    "empty.json": [info("executing host profile plugin: empty")],
                    "plain.json": [starting("plain")]}))
                self.assertEqual(sorted(host.notes()), ["profile", "start", "start"])

    def test_without_a_host_profile_everybody_starts(self):
        host = self.host_with_profiles()
        self.assert_run(host, [], [starting(name.removesuffix(".json"))
                                   for name in host.listing()])
        self.assertEqual(host.notes(), ["start"] * 4)

    def test_apply_host_profile_can_be_invoked(self):
        host = self.host_with_profiles()
        host.plugin("second", version=2, apply_host_profile=["note add --text=asked", "no such"])
        self.assert_run(
            host, ["--invoke", "--method=apply_host_profile", "--plugin=second.json,first.json"],
            [info("executing host profile plugin: second"),
             *failed("second", refused("no such"), operation="apply_host_profile"),
             info("executing host profile plugin: first")])
        self.assertEqual(host.notes(), ["asked"])
        self.assertEqual(host.kernel_log(), activation("second", "Method invocation failed") +
                         activation("first"))

    def test_any_other_method_does_nothing_and_succeeds(self):
        host = self.host_with_profiles()
        self.assert_run(host, ["--invoke", "--method=restart", "--plugin=first.json"], [])
        self.assertEqual(host.kernel_log(), activation("first"))
        self.assertEqual(host.notes(), [])

    def test_an_invoked_run_ends_the_automatic_configuration_too(self):
        host = self.host_with_profiles()
        host.write("/var/run/nimbus/configstore/autoconf", "")
        host.write("/var/run/nimbus/configstore/boot-state/x", "")
        self.assert_run(host, ["--invoke", "--method=start", "--plugin=first.json"],
                        [starting("first")])
        self.assertFalse(host.exists("/var/run/nimbus/configstore/autoconf"))
        self.assertFalse(host.exists("/var/run/nimbus/configstore/boot-state/x"))


class Injections(Selection):
    def test_injections_run_where_they_stand_in_the_graph(self):
        host = self.host()
        host.plugin("net", provides=["network"], start=["note add --text=net"])
        host.plugin("web", requires=["probed"], start=["note add --text=web"])
        host.debug('probe : "a,b",probed : network :echo probe >>/tmp/notes',
                   "late:x:a,b:echo late >>/tmp/notes")
        boot = host.boot()
        self.assertEqual(boot.status, 0)
        self.assertEqual(host.notes()[:2], ["net", "probe"])
        # The quoted name is one milestone, so "late" waits for two that nobody provides.
        missing = ('Bootforge dependency error: Initialization barrier "{}" is not provided by any '
                   'plugin but the following plugins require it: "late"')
        self.assert_in_order([warning(missing.format("a")), warning(missing.format("b")),
                              starting("late")], boot.messages)
        self.assertIn(starting("probe "), boot.messages)
        names = [node.name for node in host.profile().nodes]
        self.assertEqual(names[2:], ["probe ", "late"])

    def test_malformed_lines_are_told_of_each_time_the_list_is_read(self):
        host = self.host()
        host.plugin("only")
        host.write("/etc/nimbus/bootforge/debug.conf",
                   "\n  # a:b  \na:b:c:d:e\nq::r:true\nlast:x:y:true")
        malformed = [info(f"ignoring malformed debug entry at line {number}: {text}")
                     for number, text in ((1, ""), (2, "# a:b"), (3, "a:b:c:d:e"),
                                          (4, "q::r:true"))]
        boot = host.boot()
        self.assertEqual(boot.messages[2:2 + 2 * 4], malformed * 2)
        self.assertEqual([text for _, text in boot.messages].count(starting("last")[1]), 1)

    def test_what_an_injection_returns_is_logged_raw(self):
        host = self.host()
        host.debug("a:a1:any:exit 3", "b:b1:any:kill -9 $$", "c:c1:any:true",
                   "d:d1:any:/no/such/program 2>/dev/null")
        boot = host.boot()
        returned = [text for _, text in boot.messages if "returned" in text]
        self.assertEqual(returned, ["debug injection 'a' returned 0x000300",
                                    "debug injection 'b' returned 0x000009",
                                    "debug injection 'd' returned 0x007f00"])
        self.assertEqual((boot.status, boot.stderr), (0, b""))

    def test_an_injection_gets_the_streams_of_the_boot_and_no_more(self):
        host = self.host()
        host.debug("hold:held:any:exec sleep 3600")
        boot = host.start(BOOTFORGE, "--parallel")
        injection, = host.wait_for(lambda: host.processes("sleep", "3600"), "the injection")
        self.assertEqual(sorted(injection.descriptors()), [0, 1, 2])
        injection.signal(signal.SIGKILL)
        host.finish(boot)
        self.assertIn(info("debug injection 'hold' returned 0x000009"), boot.messages)

    def test_a_bad_escape_is_an_alert_for_one_file_and_the_end_of_a_boot(self):
        host = self.host()
        host.plugin("only")
        host.debug("bad:a\\x:b:true")
        boot = host.boot("--plugin=only.json")
        text = "exception occurred whilst loading plugin only.json: unknown escape sequence"
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, warning(text), STOPPED])
        self.assertEqual(host.kernel_log(), [alert(text)])

        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, unhandled("unknown escape sequence"),
                                STOPPED], status=1)
        self.assert_profiled(host, [])

    def test_an_unreadable_list_is_an_empty_one(self):
        host = self.host()
        os.mkdir(host.path("/etc/nimbus/bootforge/debug.conf"))
        self.assert_run(host, [], [])
        host.remove("/etc/nimbus/bootforge/debug.conf")
        os.mkfifo(host.path("/etc/nimbus/bootforge/debug.conf"))
        self.assert_run(host, [], [])


if __name__ == "__main__":
    host_case.main()
