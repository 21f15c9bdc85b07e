"""Commands and the programs behind them: what becomes of the odd ones, and of those that hang."""

import os

import host_case
import readings
from host_case import (LAUNCHING, POLLING, SETTING_UP, SIGNALLED, STOPPED, HostCase,
                       activation, failed, refused, starting)
from root_folder import BOOTFORGE, COMMANDS, EXECUTOR_LOG

NO_STATUS = "Failed to recieve command status from Executor: "


def execution(command, reason):
    return ("error", f"execution of '{command}' failed : {reason}")


class Commands(HostCase):
    def assert_one(self, host, command, errors=(), executor=()):
        """Boots with one plugin of that one command, and compares both logs whole."""
        host.plugin("only", start=[command])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), *errors, STOPPED])
        self.assert_executor_log(host, POLLING, *executor, SIGNALLED)
        return boot

    def assert_fails(self, host, command, *reasons):
        return self.assert_one(host, command, failed("only", refused(command)),
                               [execution(command, reason) for reason in reasons])


class Programs(Commands):
    def test_the_exit_code_and_each_line_of_standard_error_are_told(self):
        host = self.host()
        path = host.shell_command("go wrong", "echo to the log\necho >&2\n"
                                  "printf 'one\\n\\ntwo\\n  three' >&2\nexit 42\n")
        host.plugin("only", start=["go wrong"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused("go wrong")), STOPPED])
        log = host.read(EXECUTOR_LOG).replace(b"to the log\n", b"", 1)
        errors = [(line.level, line.text) for line in readings.log_lines(log)
                  if line.level == "error"]
        self.assertEqual(errors, [execution("go wrong", reason) for reason in
                                  ("one", "two", "  three", f"{path} exited with code 42")])

    def test_a_program_that_dies_by_a_signal_names_it(self):
        host = self.host()
        path = host.shell_command("die now", "echo last words >&2\nkill -11 $$\n")
        self.assert_fails(host, "die now", "last words", f"{path} was killed by signal 11")

    def test_a_program_that_floods_its_standard_error_keeps_64_kib_of_it(self):
        host = self.host()
        path = host.shell_command("flood it", "yes 'a line of many' | head -n 200000 >&2\nexit 9\n")
        command = "flood it"
        host.plugin("only", start=[command, "note add --text=after"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused(command)), STOPPED])
        self.assertEqual(host.notes(), ["after"])
        errors = [text for level, text in host.executor_log() if level == "error"]
        self.assertEqual(errors[-1], execution(command, f"{path} exited with code 9")[1])
        kept = [text.removeprefix(f"execution of '{command}' failed : ") for text in errors[:-1]]
        self.assertEqual("\n".join(kept), ("a line of many\n" * 5000)[:64 * 1024].rstrip("\n"))
        self.assertIn(("warning", f"{path} wrote {200000 * 15 - 65536} bytes more"),
                      host.executor_log())

    def test_a_flood_of_short_lines_is_cut_short(self):
        host = self.host()
        path = host.shell_command("flood it", "yes | head -n 32768 >&2\nexit 9\n")
        host.plugin("only", start=["flood it"])
        host.boot()
        told = [text for level, text in host.executor_log() if level == "error"]
        self.assertEqual(told, [execution("flood it", "y")[1]] * 5000 +
                         [execution("flood it", f"{path} exited with code 9")[1]])
        self.assertIn(("warning", f"{path} wrote {27768 * 2} bytes more"), host.executor_log())

    def test_control_characters_reach_no_log(self):
        host = self.host()
        path = host.shell_command("go wrong", "printf '\\033[2J\\tred\\r\\n' >&2\nexit ${1:-3}\n")
        host.shell_command("go well", "printf '\\033[2J\\n' >&2\n")
        self.assert_fails(host, "go wrong", "\\x1b[2J\tred\\x0d", f"{path} exited with code 3")
        host.plugin("only", start=["go well"])
        host.boot()
        self.assertTrue(any(line == "\\x1b[2J" for line in host.read_lines(EXECUTOR_LOG)))
        self.assertNotIn(b"\x1b", host.read(EXECUTOR_LOG))
        self.assertFalse([text for text in host.system_log.messages if b"\x1b" in text])

    def test_a_program_over_its_time_is_ended_and_the_boot_goes_on(self):
        host = self.host()
        path = host.shell_command("hang on", "echo waiting >&2\nsleep 1000 &\nwait\n", timeout=0.5)
        host.plugin("only", start=["hang on", "note add --text=after"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused("hang on")), STOPPED])
        self.assert_executor_log(host, POLLING, execution("hang on", "waiting"),
                                 execution("hang on", f"{path} timed out after 0.5 s"), SIGNALLED)
        self.assertEqual(host.notes(), ["after"])
        host.wait_for_emptiness()  # the program's own child is gone too

    def test_a_flood_before_success_is_no_error(self):
        host = self.host()
        host.shell_command("flood it", "yes 'a line of many' | head -n 200000 >&2\n")
        host.plugin("only", start=["flood it"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), STOPPED])
        self.assertLess(len(host.read(EXECUTOR_LOG)), 100_000)

    def test_a_process_left_behind_with_standard_error_open_holds_nothing_up(self):
        for code in (0, 5):
            with self.subTest(code):
                host = self.host()
                path = host.shell_command("leave child",
                                          "(read x </tmp/gate; echo late >&2; echo done "
                                          f">>/tmp/notes) &\necho soon >&2\nexit {code}\n")
                host.gate("/tmp/gate")
                host.plugin("only", start=["leave child", "note add --text=next"])
                boot = host.boot()
                self.assertEqual((boot.status, boot.stderr), (0, b""))
                self.assertEqual(host.notes(), ["next"])
                errors = [message for message in boot.messages if message[0] == "error"]
                self.assertEqual(errors, failed("only", refused("leave child")) if code else [])
                if code:
                    told = [message for message in host.executor_log() if message[0] == "error"]
                    self.assertEqual(told, [execution("leave child", "soon"), execution(
                        "leave child", f"{path} exited with code {code}")])
                # The child lives on, and with it what keeps its standard error from filling up.
                self.assertEqual(len(host.processes()), 2)
                self.assertEqual(len(host.processes("stderr-drain")), 1)
                host.open_gate("/tmp/gate")
                host.wait_for_emptiness()
                self.assertEqual(host.notes(), ["next", "done"])

    def test_programs_that_cannot_be_started_say_why(self):
        host = self.host()
        host.command("bad missing", ["/no/such/program"])
        host.write("/usr/bin/text", "no program", mode=0o644)
        host.command("bad mode", ["/usr/bin/text"])
        host.command("bad folder", ["/usr"])
        host.write("/usr/bin/rubbish", b"\x7fELF rubbish", mode=0o755)
        host.command("bad format", ["/usr/bin/rubbish"])
        host.write("/usr/bin/orphan", "#!/no/such/shell\n", mode=0o755)
        host.command("bad shell", ["/usr/bin/orphan"])
        reasons = {"bad missing": ("/no/such/program", "No such file or directory"),
                   "bad mode": ("/usr/bin/text", "Permission denied"),
                   "bad folder": ("/usr", "Permission denied"),
                   "bad format": ("/usr/bin/rubbish", "Exec format error"),
                   "bad shell": ("/usr/bin/orphan", "No such file or directory")}
        host.plugin("only", start=list(reasons) + ["note add --text=after"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", *map(refused, reasons)), STOPPED])
        told = [message for message in host.executor_log() if message[0] == "error"]
        self.assertEqual(len(told), len(reasons))
        for (level, text), (command, (program, reason)) in zip(told, reasons.items()):
            self.assertTrue(text.startswith(f"execution of '{command}' failed : {program} "), text)
            self.assertTrue(text.endswith(reason), text)
        self.assertEqual(host.notes(), ["after"])

    def test_programs_get_clean_signals_three_streams_and_no_more(self):
        host = self.host()
        host.shell_command("hold on", "exec sleep 3600\n")
        host.plugin("only", start=["hold on"])
        secret = os.open("/dev/null", os.O_RDONLY)
        boot = host.start(BOOTFORGE, extra={9: secret, 200: secret}, env={"FLAVOUR": "plain"})
        os.close(secret)
        program, = host.wait_for(lambda: host.processes("3600"), "the command's program")
        executor, = host.executors()
        self.assertEqual(program.parent, executor.pid)
        for field in ("SigIgn", "SigBlk", "SigCgt"):
            self.assertEqual(program.signals(field), set(), field)
        descriptors = program.descriptors()
        self.assertEqual((descriptors[0], descriptors[1]),
                         (host.path("/dev/null"), host.path(EXECUTOR_LOG)))
        self.assertEqual(sorted(descriptors), [0, 1, 2])
        self.assertEqual(program.environment()["FLAVOUR"], "plain")
        # The executor itself keeps nothing of what its starter had open.
        self.assertNotIn(200, executor.descriptors())
        program.signal(15)
        host.finish(boot)
        self.assertEqual(boot.status, 0)

    def test_three_commands_all_run_though_the_second_fails(self):
        host = self.host()
        host.shell_command("fail now", "exit 1\n")
        host.plugin("only", start=["note add -t 1", "fail now", "note add -t=3"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused("fail now")), STOPPED])
        self.assertEqual(host.notes(), ["1", "3"])
        self.assertEqual(host.kernel_log(), activation(
            "only", "only->start() failed: error while executing the cli"))


class CommandLines(Commands):
    def test_a_line_of_1500_characters_is_cut_at_1023(self):
        host = self.host()
        command = ("note add --text=" + "0123456789" * 150)[:1500]
        self.assert_one(host, command)
        self.assertEqual(host.notes(), [command[:1023].removeprefix("note add --text=")])

    def test_a_failing_long_line_is_named_whole_here_and_cut_there(self):
        host = self.host()
        command = "no such " + "x" * 1492
        cut = command[:1023]
        self.assert_one(host, command, failed("only", refused(command)),
                        [execution(cut, f"unknown command '{cut}'")])

    def test_a_line_of_1023_characters_is_whole(self):
        host = self.host()
        text = "y" * (1023 - len("note add --text="))
        self.assert_one(host, f"note add --text={text}")
        self.assertEqual(host.notes(), [text])

    def test_a_line_that_begins_with_stop_stops_the_executor_instead(self):
        self.need_restarts()
        for command in ("Stop everything --now", "stop", "STOPPER"):
            with self.subTest(command):
                host = self.host()
                host.command("Stop everything", ["/bin/touch", "/tmp/ran"])
                host.plugin("first", provides=["one"], start=[command])
                host.debug("pause:two:one:read x </tmp/gate")
                host.plugin("second", requires=["two"], start=["note add --text=after"])
                host.gate("/tmp/gate")
                boot = host.start(BOOTFORGE)
                host.wait_for(lambda: starting("pause") in boot.messages, "the pause")
                host.wait_for_executor_end()
                host.open_gate("/tmp/gate")
                host.finish(boot)
                host.wait_for_executor_end()
                lost = boot.messages[3][1]
                self.assertTrue(lost.startswith(NO_STATUS), lost)
                self.assert_boot(boot, [
                    LAUNCHING, SETTING_UP, starting("first"), *failed("first", lost),
                    starting("pause"), starting("second"),
                    ("error", "Failed connecting to executor Connection refused"), SETTING_UP,
                    STOPPED])
                self.assertEqual(host.notes(), ["after"])
                self.assertFalse(host.exists("/tmp/ran"))
                self.assertEqual(host.executor_log().count(SIGNALLED), 2)

    def test_an_empty_line_is_refused_and_never_sent(self):
        host = self.host()
        self.assert_one(host, "", failed("only", refused("")))

    def test_blanks_alone_are_no_command(self):
        host = self.host()
        host.plugin("only", start=["  \t "])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused("  \t ")), STOPPED])
        (level, text), = [line for line in host.executor_log() if line[0] == "error"]
        self.assertRegex(text, "^Executor was unable to parse command: .+")

    def test_an_unterminated_quote_is_refused_and_said(self):
        host = self.host()
        command = "note add --text='open"
        host.plugin("only", start=[command])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused(command)), STOPPED])
        (level, text), = [line for line in host.executor_log() if line[0] == "error"]
        self.assertRegex(text, "^Executor was unable to parse command: .+")
        self.assertEqual(host.notes(), [])

    def test_a_zero_byte_ends_the_line(self):
        host = self.host()
        self.assert_one(host, "note add --text=ab\0 --no-such-parameter")
        self.assertEqual(host.notes(), ["ab"])

    def test_any_bytes_reach_the_program_and_all_but_controls_the_logs(self):
        host = self.host()
        odd = "caf\udce9 \udcff\udcfe \x01\x7f %s%n ünï"
        host.plugin("only", start=[f"note add --text='{odd}'", f"no{odd}"])
        boot = host.boot()
        self.assertIn(os.fsencode(odd) + b"\n", host.read("/tmp/notes"))
        shown = odd.replace("\x01\x7f", "\\x01\\x7f")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"),
                                *failed("only", refused(f"no{shown}")), STOPPED])

    def test_words_are_split_and_unquoted_and_nothing_is_expanded(self):
        host = self.host()
        for command in (r'''note add --text "a  'b' \"c\" $HOME `id` *"''',
                        r"""note add --text='d\e'"f g"\ h""", "note add --text=",
                        "  note   add   -t  i=j"):
            host.plugin("only", start=[command])
            self.assertEqual(host.boot().status, 0)
        self.assertEqual(host.notes(), ["a  'b' \"c\" $HOME `id` *", r"d\ef g h", "", "i=j"])


class CommandFiles(Commands):
    def test_unknown_commands_parameters_and_missing_ones_are_refused(self):
        host = self.host()
        host.plugin("only", start=["no such", "note", "note add --text=x --color=y", "note add"])
        boot = host.boot()
        self.assertEqual(boot.messages[3:-1], failed("only", *map(refused, (
            "no such", "note", "note add --text=x --color=y", "note add"))))
        told = [text for level, text in host.executor_log() if level == "error"]
        for text, command in zip(told, ("no such", "note", "note add --text=x --color=y",
                                        "note add")):
            self.assertTrue(text.startswith(f"execution of '{command}' failed : "), text)
        self.assertEqual(len(told), 4)
        self.assertEqual(host.notes(), [])

    def test_arguments_of_parameters_that_were_not_given_are_left_out(self):
        host = self.host()
        host.command("show args", ["/bin/sh", "-c", 'for a; do echo "[$a]"; done >>/tmp/notes',
                                   "sh", "{one}", "two={two}", "{{three}}", "{flag}", "end"],
                     one={"required": True}, two={"short": "w"}, flag={"flag": True})
        self.assert_one(host, "show args --one 1")
        self.assertEqual(host.notes(), ["[1]", "[{three}]", "[end]"])
        host.remove("/tmp/notes")
        host.remove(EXECUTOR_LOG)
        self.assert_one(host, "show args --flag --one '' -w=2")
        self.assertEqual(host.notes(), ["[]", "[two=2]", "[{three}]", "[true]", "[end]"])

    def test_directories_are_read_in_their_order_and_the_later_definition_wins(self):
        host = self.host()
        folders = [COMMANDS, f"{COMMANDS}/int", f"{COMMANDS}/int/ext", f"{COMMANDS}/ext"]
        for number, folder in enumerate(folders):
            host.command("which one", ["/bin/sh", "-c", f"echo {number} >>/tmp/notes"], folder)
        host.plugin("only", start=["which one"])
        boot = host.boot()
        self.assertEqual(boot.messages[-2:], [starting("only"), STOPPED])
        self.assertEqual(host.notes(), ["3"])
        others = [text for level, text in host.executor_log()
                  if (level, text) not in (POLLING, SIGNALLED)]
        self.assertEqual(len(others), 3)
        for folder, text in zip(folders[1:], others):
            self.assertIn("which one", text)
            self.assertIn(f"{folder}/which.json", text)

    def test_a_bad_file_costs_its_own_commands_and_is_named(self):
        host = self.host()
        host.write(f"{COMMANDS}/bad.json", "{")
        os.mkfifo(host.path(f"{COMMANDS}/fifo.json"))
        os.symlink("/nowhere", host.path(f"{COMMANDS}/link.json"))
        host.write(f"{COMMANDS}/notes.txt", "{")
        host.plugin("only", start=["note add --text=good"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), STOPPED])
        self.assertEqual(host.notes(), ["good"])
        warnings = [text for level, text in host.executor_log() if level == "warning"]
        self.assertEqual(len(warnings), 3)
        for name, text in zip(("bad", "fifo", "link"), sorted(warnings)):
            self.assertIn(f"{COMMANDS}/{name}.json", text)

    def test_a_missing_directory_costs_its_own_commands_alone(self):
        host = self.host()
        os.rmdir(host.path(f"{COMMANDS}/int/ext"))
        os.rmdir(host.path(f"{COMMANDS}/int"))
        host.command("late one", ["/bin/sh", "-c", "echo late >>/tmp/notes"], f"{COMMANDS}/ext")
        host.plugin("only", start=["note add --text=early", "late one"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), STOPPED])
        self.assertEqual(host.notes(), ["early", "late"])
        errors = [text for level, text in host.executor_log() if level == "error"]
        self.assertEqual(len(errors), 2)
        for folder, text in zip(("int", "int/ext"), errors):
            self.assertRegex(text, "^unable to add external directory to the hypcli dispatcher: "
                                   f".*{COMMANDS}/{folder}\\b.*No such file or directory")


class HangingCommand(Commands):
    def test_it_holds_up_what_needs_it_and_both_lists_show_which_it_is(self):
        host = self.host()
        host.shell_command("hang forever", "read x </tmp/gate\n", disk={})
        host.gate("/tmp/gate")
        host.plugin("hung", provides=["disk"], start=["hang forever --disk=sda"])
        host.plugin("needs-disk", requires=["disk"], start=["note add --text=needs-disk"])
        host.plugin("free", version=2)
        host.plugin("queued", start=["note add --text=queued"])
        host.debug("probe:probed:free:echo probe >>/tmp/notes")
        host.plugin("after-probe", requires=["probed"])
        boot = host.start(BOOTFORGE, "--init", "--parallel")
        program, = host.wait_for(lambda: host.processes("--disk=sda") or
                                 host.processes("/usr/bin/hang-forever"), "the program to hang")
        # Everything that needs neither the disk nor the one executor goes on and completes.
        host.wait_for(lambda: {activation(name)[1] for name in ("free", "probe", "after-probe")}
                      <= set(host.kernel_log()), "the others to complete")
        self.assertIsNone(boot.status)
        self.assertIn(starting("hung"), boot.messages)
        self.assertNotIn(starting("needs-disk"), boot.messages)
        self.assertNotIn(activation("hung")[1], host.kernel_log())
        executor, = host.executors()
        self.assertEqual(program.parent, executor.pid)

        host.open_gate("/tmp/gate")
        host.finish(boot)
        host.wait_for_executor_end()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(sorted(host.notes()), ["needs-disk", "probe", "queued"])
        records = host.kernel_log()
        for name in ("hung", "needs-disk", "free", "queued", "probe", "after-probe"):
            self.assert_in_order(activation(name), records)
        self.assert_in_order([activation("hung")[1], activation("needs-disk")[0]], records)

    def test_killing_the_program_frees_the_boot(self):
        host = self.host()
        path = host.shell_command("hang forever", "exec sleep 3600\n")
        host.plugin("hung", provides=["disk"], start=["hang forever"])
        host.plugin("next", requires=["disk"], start=["note add --text=next"])
        boot = host.start(BOOTFORGE)
        program, = host.wait_for(lambda: host.processes("3600"), "the program to hang")
        program.signal(9)
        host.finish(boot)
        host.wait_for_executor_end()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("hung"),
                                *failed("hung", refused("hang forever")), starting("next"),
                                STOPPED])
        self.assert_executor_log(host, POLLING,
                                 execution("hang forever", f"{path} was killed by signal 9"),
                                 SIGNALLED)


if __name__ == "__main__":
    host_case.main()
