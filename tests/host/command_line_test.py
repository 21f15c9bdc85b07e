"""The command line of the installed program: its help, its errors, what excludes what."""

import os
import shutil
import subprocess
import unittest

import host_case
import readings
from host_case import LAUNCHING, SETTING_UP, STOPPED, HostCase, starting
from root_folder import BOOTFORGE, PROFILE, RECORD

with open(os.path.join(os.path.dirname(__file__), "usage.txt"), "rb") as _file:
    USAGE = _file.read()
INVALID = [("error", "Invalid combination of options passed. Exiting")]


class Help(HostCase):
    def assert_help(self, *arguments):
        host = self.host()
        help_run = host.run(BOOTFORGE, *arguments)
        self.assertEqual(help_run.stdout, USAGE)
        self.assertEqual((help_run.status, help_run.stderr), (0, b""))
        self.assertEqual((host.kernel_log(), host.syslog(), host.processes()), ([], [], []))

    def test_help_is_printed_to_the_byte(self):
        self.assert_help("--help")

    def test_short_help_is_the_same(self):
        self.assert_help("-h")

    def test_help_after_other_options_wins_over_what_they_would_do(self):
        self.assert_help("--daemon", "--init", "--help")

    def test_options_after_help_are_not_looked_at(self):
        self.assert_help("--help", "--no-such-option", "--randomize=much")


class UsageErrors(HostCase):
    def assert_usage_error(self, *arguments, argv0=BOOTFORGE):
        host = self.host()
        wrong = host.run(BOOTFORGE, *arguments, argv0=argv0)
        self.assertEqual(wrong.stderr, f"usage: {argv0} --help for usage information\n".encode())
        self.assertEqual((wrong.stdout, wrong.status), (b"", 1))
        self.assertEqual((host.kernel_log(), host.syslog()), ([], []))

    def test_an_unknown_option_gives_the_usage_line_and_nothing_else(self):
        self.assert_usage_error("--no-such-option")

    def test_an_unknown_letter_does_too(self):
        self.assert_usage_error("-x")

    def test_a_missing_argument_does_too(self):
        self.assert_usage_error("--init", "--plugin")

    def test_an_argument_where_none_is_taken_does_too(self):
        self.assert_usage_error("--init=yes")

    def test_the_usage_line_names_the_program_as_it_was_called(self):
        self.assert_usage_error("--no-such-option", argv0="./boot forge")

    def test_an_error_before_help_is_an_error(self):
        self.assert_usage_error("--no-such-option", "--help")


class Combinations(HostCase):
    def assert_refused(self, arguments, messages, rest=b""):
        host = self.host()
        host.plugin("only", start=["note add --text=ran"])
        refused = host.run(BOOTFORGE, *arguments)
        self.assertTrue(refused.stdout.endswith(rest))
        log = refused.stdout[:len(refused.stdout) - len(rest)]
        self.assertEqual([(line.level, line.text) for line in readings.log_lines(log)], messages)
        self.assertEqual((refused.status, refused.stderr), (1, b""))
        self.assertEqual((host.notes(), host.read(PROFILE), host.read(RECORD)), ([], None, None))
        self.assert_syslog_holds(host, messages)

    def test_daemon_mode_takes_no_method_but_start_and_stop(self):
        self.assert_refused(["--daemon", "--method=restart"], INVALID)

    def test_daemon_mode_needs_a_method(self):
        self.assert_refused(["--daemon=wait"], INVALID)

    def test_daemon_mode_excludes_the_other_modes(self):
        for other in ("--init", "--invoke", "--interactive", "--plugin=only.json"):
            with self.subTest(other):
                self.assert_refused(["--daemon", "--method=start", other], INVALID)

    def test_invoke_without_a_plugin_prints_the_error_and_the_usage(self):
        self.assert_refused(["--invoke", "--method=start"],
                            [("error", "invoke requires a method and plugin specified")], USAGE)

    def test_invoke_without_a_method_prints_the_error_and_the_usage(self):
        self.assert_refused(["--invoke", "--plugin=only.json"],
                            [("error", "invoke requires a method and plugin specified")], USAGE)

    def assert_not_a_number(self, argument):
        host = self.host()
        refused = host.run(BOOTFORGE, argument)
        (level, text), = refused.messages
        self.assertEqual(level, "warning")
        self.assertRegex(text, "^Failed to initialize bootforge: .+")
        self.assertEqual((refused.status, refused.stderr), (1, b""))

    def test_numbers_that_cannot_be_read_end_the_program(self):
        for argument in ("--randomize=", "--randomize=five", "--randomize=2147483648",
                         "--randomize=+-5", "--randomize=5 ", "--daemon-wait-timeout=-1",
                         "--daemon-wait-timeout=", "--daemon-wait-timeout=4294967296"):
            with self.subTest(argument):
                self.assert_not_a_number(argument)


class RunOptions(HostCase):
    def profile_of(self, *arguments, prepare=lambda host: None):
        host = self.host()
        prepare(host)
        boot = host.boot(*arguments)
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        return host.profile().options

    def test_every_option_is_off_by_default_and_the_seed_is_the_time(self):
        host = self.host()
        host.boot()
        profile = host.profile()
        seed = profile.options.pop("seed")
        self.assertEqual(profile.options,
                         {"verbose": 0, "parallel": 0, "randomize": 0, "interactive": 0})
        self.assertAlmostEqual(seed, profile.head[0].timestamp(), delta=2)

    def test_the_later_of_interactive_and_parallel_wins(self):
        options = self.profile_of("--interactive", "--parallel")
        self.assertEqual((options["parallel"], options["interactive"]), (1, 0))
        options = self.profile_of("--parallel", "--interactive")
        self.assertEqual((options["parallel"], options["interactive"]), (0, 1))

    def test_seeds_are_signed_32_bit_numbers(self):
        for argument, seed in (("5", 5), ("+7", 7), ("-2147483648", -2147483648)):
            with self.subTest(argument):
                options = self.profile_of("--verbose", f"--randomize={argument}")
                self.assertEqual((options["randomize"], options["verbose"], options["seed"]),
                                 (1, 1, seed))

    def test_the_stateless_marker_switches_parallel_off(self):
        options = self.profile_of("--parallel",
                                  prepare=lambda host: os.mkdir(host.path("/stateless.tgz")))
        self.assertEqual(options["parallel"], 0)

    def test_words_that_are_no_options_are_ignored(self):
        host = self.host()
        host.plugin("only")
        boot = host.boot("some", "words")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), STOPPED])

    def test_the_seed_changes_nothing_about_the_order(self):
        orders = []
        for seed in (5, 6):
            host = self.host()
            host.debug(*[f"p{number}:all:any:true" for number in range(8)])
            boot = host.boot(f"--randomize={seed}")
            orders.append([message for message in boot.messages if "executing" in message[1]])
        self.assertEqual(len(orders[0]), 8)
        self.assertEqual(orders[0], orders[1])
        self.assertNotEqual(orders[0], sorted(orders[0]), "the order without an option")

    def test_a_relative_plugin_directory_starts_from_the_working_directory(self):
        host = self.host()
        host.plugin("elsewhere")
        os.makedirs(host.path("/srv/boot"))
        os.rename(host.path("/usr/libexec/bootforge/plugins/elsewhere.json"),
                  host.path("/srv/boot/elsewhere.json"))
        boot = host.boot("--plugin-directory=boot", cwd="/srv")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("elsewhere"), STOPPED])

    def test_the_program_leads_a_session_of_its_own_and_works_in_the_root(self):
        self.need_proc()
        host = self.host()
        host.debug("look:seen:any:echo $(readlink /proc/$PPID/cwd) >/tmp/cwd; "
                   "tr -d '\\n' </proc/$PPID/stat >/tmp/stat")
        boot = host.boot(cwd="/tmp")
        self.assertEqual(boot.status, 0)
        self.assertEqual(host.read_lines("/tmp/cwd"), ["/"])
        fields = host.read("/tmp/stat").decode().rsplit(")", 1)[1].split()
        group, session = fields[2:4]
        self.assertEqual(group, session)

    def test_a_group_leader_cannot_start_a_session_and_says_so(self):
        host = self.host()
        boot = host.boot(group_leader=True)
        self.assert_boot(boot, [LAUNCHING, SETTING_UP,
                                ("info", "unable to create session: Operation not permitted."),
                                STOPPED])


# With AddressSanitizer, clang makes a red zone behind it part of the symbol.
@unittest.skipIf("address" in os.environ.get("BOOTFORGE_HOST_SANITIZE", ""), "has a red zone")
class Marker(HostCase):
    def test_the_program_exports_a_pointer_to_the_frameworks_number(self):
        program = readings.ElfFile(self.host().path(BOOTFORGE))
        address, size, kind = program.exported("__hypclic_magic")
        self.assertEqual((size, kind), (8, 1))  # a pointer, a data object
        self.assertEqual(program.at(program.pointer_at(address), "<I"), 0x5CA1AB1E)

    @unittest.skipUnless(shutil.which("readelf"), "readelf is not installed")
    def test_the_linkers_own_tools_see_the_symbol(self):
        table = subprocess.run(["readelf", "-W", "--dyn-syms", self.host().path(BOOTFORGE)],
                               stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertRegex(table, r"8 OBJECT +GLOBAL +DEFAULT +\d+ __hypclic_magic")


if __name__ == "__main__":
    host_case.main()
