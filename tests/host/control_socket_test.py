"""The control socket and the executor behind it: taken, stale, answered by strangers, killed."""

import os
import signal
import stat

import endpoints
import host_case
import readings
from host_case import (ALREADY_GONE, LAUNCHING, POLLING, SETTING_UP, SIGNALLED, STOPPED, HostCase,
                       activation, cli_failure, failed, refused, starting)
from root_folder import BOOTFORGE, PROFILE, RECORD, SOCKET

NO_START = ("warning", "Failed to start executor Bootforge executor failed to start")
REFUSED_CONNECT = ("error", "Failed connecting to executor Connection refused")
NOT_STOPPED = ("error", "Failed to stop Executor: Failed sending STOP to executorBroken pipe")
NOT_SENT = "Failed sending command to executor: Broken pipe"
NO_STATUS = "Failed to recieve command status from Executor: "


class TakenPath(HostCase):
    def assert_not_started(self, host, reason):
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, NO_START], status=1)
        self.assertEqual(host.executor_log(), [
            ("error", f"Unable to start executor: Failed to bind to executor control socket: "
                      f"{reason}")])
        self.assert_syslog_holds(host, boot.messages, host.executor_log())
        self.assertEqual((host.notes(), host.kernel_log()), ([], []))
        self.assertEqual((host.read(PROFILE), host.read(RECORD)), (None, None))
        host.wait_for_emptiness()

    def test_a_file_in_the_way_is_left_alone_and_the_boot_ends(self):
        host = self.host()
        host.plugin("only", start=["note add --text=ran"])
        host.write(SOCKET, "precious")
        self.assert_not_started(host, "Address already in use")
        self.assertEqual(host.read(SOCKET), b"precious")

    def test_so_are_a_folder_a_link_and_a_socket_of_another_kind(self):
        host = self.host()
        os.mkdir(host.path(SOCKET))
        self.assert_not_started(host, "Address already in use")
        self.assertEqual(host.listing(SOCKET), [])

        host = self.host()
        os.symlink("elsewhere", host.path(SOCKET))
        self.assert_not_started(host, "Address already in use")
        self.assertEqual(os.readlink(host.path(SOCKET)), "elsewhere")
        self.assertFalse(host.exists("/var/run/nimbus/elsewhere"))

        host = self.host()
        os.rename(host.path("/dev/log"), host.path(SOCKET))
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, NO_START], status=1)
        self.assertTrue(stat.S_ISSOCK(os.stat(host.path(SOCKET)).st_mode))

    def test_a_stale_socket_makes_room(self):
        host = self.host()
        host.plugin("only", start=["note add --text=ran"])
        endpoints.leave_stale_socket(host.root, SOCKET)
        os.chmod(host.path(SOCKET), 0o777)
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), STOPPED])
        self.assertEqual(host.notes(), ["ran"])
        self.assertEqual(os.stat(host.path(SOCKET)).st_mode & 0o077, 0)  # it is another one

    def test_the_socket_is_for_its_owner_alone_and_stays(self):
        host = self.host()
        host.debug("look:seen:any:read x </tmp/gate")
        host.gate("/tmp/gate")
        boot = host.start(BOOTFORGE)
        host.wait_for(lambda: starting("look") in boot.messages, "the injection")
        mode = os.stat(host.path(SOCKET)).st_mode
        self.assertTrue(stat.S_ISSOCK(mode))
        self.assertEqual(mode & 0o077, 0)
        host.open_gate("/tmp/gate")
        host.finish(boot)
        host.wait_for_executor_end()
        self.assertTrue(host.exists(SOCKET))
        host.debug()
        self.assert_boot(host.boot(), [LAUNCHING, SETTING_UP, STOPPED])


class Stranger(HostCase):
    """Somebody else answers on the socket: no executor is started, and every answer is survived."""

    def boot_with(self, **behaviour):
        host = self.host()
        host.plugin("first", provides=["one"], start=["note add --text=1", "note add --text=2"])
        host.plugin("second", requires=["one"])
        stranger = host.attach(endpoints.Stranger(host.root, SOCKET, **behaviour))
        boot = host.boot()
        messages = boot.messages
        self.assertEqual((boot.status, boot.stderr), (int(messages[-1] == NOT_STOPPED), b""))
        self.assertEqual(messages[:2], [LAUNCHING, starting("first")])
        self.assertEqual(host.executor_log(), [])
        self.assertEqual(host.notes(), [])
        self.assert_profiled(host, [name.removesuffix(".json") for name in host.listing()])
        return host, stranger, messages[2:]

    def assert_first_failed(self, messages, reasons, end=STOPPED):
        self.assertEqual(messages, failed("first", *reasons) + [starting("second"), end])

    def test_one_that_hangs_up_without_an_answer_fails_each_command(self):
        host, stranger, messages = self.boot_with(answer=b"")
        self.assertEqual(stranger.requests, [b"note add --text=1", b"note add --text=2", b"stop"])
        for level, text in messages[:2]:
            self.assertEqual(level, "error")
            self.assertTrue(text.startswith(NO_STATUS), text)
        self.assert_first_failed(messages, [text for _, text in messages[:2]])
        self.assertEqual(host.kernel_log(),
                         activation("first", cli_failure("first")) + activation("second"))

    def test_one_that_hangs_up_without_listening_fails_each_command(self):
        _, _, messages = self.boot_with(reads=False)
        for _, text in messages[:2]:
            self.assertIn(text, [NOT_SENT, f"{NO_STATUS}Connection reset by peer"])
        # Its stop request may meet the same, before or after it is sent.
        end = messages[-1]
        self.assertIn(end, [STOPPED, NOT_STOPPED])
        self.assert_first_failed(messages, [text for _, text in messages[:2]], end)

    def test_garbage_for_an_answer_fails_the_command_and_says_which(self):
        _, _, messages = self.boot_with(answer=b"GARBAGE, and more of it")
        self.assertEqual(messages, failed("first", refused("note add --text=1"),
                                          refused("note add --text=2")) + [starting("second")])

    def test_one_byte_is_judged_over_a_status_of_0(self):
        _, _, messages = self.boot_with(answer=b"\x01")
        self.assertEqual(messages, failed("first", refused("note add --text=1"),
                                          refused("note add --text=2")) + [starting("second")])
        _, _, messages = self.boot_with(answer=b"\x00")
        self.assertEqual(messages, [starting("second")])

    def test_a_false_success_is_believed(self):
        _, stranger, messages = self.boot_with(answer=b"\x00\x00\x00\x00 and more")
        self.assertEqual(messages, [starting("second")])
        self.assertEqual(stranger.requests[-1], b"stop")


class KilledExecutor(HostCase):
    def host_with_killer(self):
        host = self.host()
        host.shell_command("kill executor", "kill -9 $PPID\n")
        return host

    def test_one_killed_by_a_command_costs_that_command_and_is_replaced(self):
        self.need_restarts()
        host = self.host_with_killer()
        host.plugin("first", provides=["one"], start=["note add --text=1", "kill executor"])
        host.debug("pause:two:one:read x </tmp/gate")
        host.plugin("second", requires=["two"], start=["note add --text=2"])
        host.gate("/tmp/gate")
        boot = host.start(BOOTFORGE)
        host.wait_for(lambda: starting("pause") in boot.messages, "the pause")
        host.wait_for_executor_end()
        host.open_gate("/tmp/gate")
        host.finish(boot)
        host.wait_for_executor_end()
        messages = boot.messages
        self.assertTrue(messages[3][1].startswith(NO_STATUS), messages[3])
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("first"),
                                *failed("first", messages[3][1]), starting("pause"),
                                starting("second"), REFUSED_CONNECT, SETTING_UP, STOPPED])
        self.assertEqual(host.notes(), ["1", "2"])
        self.assertEqual(host.kernel_log(), activation("first", cli_failure("first")) +
                         activation("pause") + activation("second"))

    def test_commands_that_follow_a_killed_one_at_once_run_or_fail_aloud(self):
        self.need_restarts()
        # A dying process closes its connections before its socket, so the next command may still
        # reach it and be lost with it; then that is told.
        host = self.host_with_killer()
        notes = [f"note add --text={number}" for number in range(6)]
        host.plugin("only", start=sum(([note, "kill executor"] for note in notes), []))
        boot = host.boot()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        lost = [text for _, text in boot.messages if text.startswith((NO_STATUS, NOT_SENT))]
        refusals = boot.messages.count(REFUSED_CONNECT)
        self.assertEqual([message for message in boot.messages if message[0] == "error"
                          and message[1] not in lost],
                         [REFUSED_CONNECT] * refusals + failed("only"))
        self.assertEqual(boot.messages.count(SETTING_UP), 1 + refusals)
        # Two commands a round; each ran, killed its executor, or was reported lost.
        self.assertEqual(len(host.notes()) + len(lost), len(notes) * 2)
        self.assertEqual(host.notes(), sorted(host.notes()))

    def test_one_killed_between_two_commands_costs_nothing(self):
        self.need_restarts()
        host = self.host()
        host.plugin("first", provides=["one"], start=["note add --text=1"])
        host.debug("pause:two:one:read x </tmp/gate")
        host.plugin("second", requires=["two"], start=["note add --text=2"])
        host.gate("/tmp/gate")
        boot = host.start(BOOTFORGE, "--parallel")
        host.wait_for(lambda: starting("pause") in boot.messages, "the pause")
        executor, = host.executors()
        executor.signal(signal.SIGKILL)
        host.wait_for_executor_end()
        host.open_gate("/tmp/gate")
        host.finish(boot)
        host.wait_for_executor_end()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("first"), starting("pause"),
                                starting("second"), REFUSED_CONNECT, SETTING_UP, STOPPED])
        self.assertEqual(host.notes(), ["1", "2"])

    def test_one_killed_under_a_running_command_leaves_that_commands_program_alone(self):
        host = self.host()
        host.shell_command("wait here", "read x </tmp/gate; echo done >>/tmp/notes\n")
        host.gate("/tmp/gate")
        host.plugin("only", start=["wait here"])
        boot = host.start(BOOTFORGE)
        host.wait_for(lambda: host.processes("/usr/bin/wait-here"), "the command's program")
        executor, = host.executors()
        executor.signal(signal.SIGKILL)
        host.finish(boot)
        self.assertEqual(boot.status, 0)
        self.assertTrue(boot.messages[3][1].startswith(NO_STATUS))
        self.assertEqual(boot.messages[3:-1], failed("only", boot.messages[3][1]))
        host.open_gate("/tmp/gate")
        host.wait_for(lambda: host.notes() == ["done"], "the program left behind")

    def test_many_workers_that_lose_it_at_once_start_one_new_one(self):
        self.need_restarts()
        host = self.host()
        host.debug("pause:open:any:read x </tmp/gate")
        host.gate("/tmp/gate")
        for number in range(4):
            host.plugin(f"p{number}", requires=["open"], start=[f"note add --text={number}"])
        boot = host.start(BOOTFORGE, "--parallel")
        host.wait_for(lambda: POLLING in host.executor_log() and starting("pause") in boot.messages,
                      "the pause")
        host.executors()[0].signal(signal.SIGKILL)
        host.wait_for_executor_end()
        host.open_gate("/tmp/gate")
        host.finish(boot)
        host.wait_for_executor_end()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(sorted(host.notes()), ["0", "1", "2", "3"])
        self.assertEqual(boot.messages.count(SETTING_UP), 2)
        self.assertEqual(host.executor_log().count(POLLING), 2)
        self.assertEqual([message for message in boot.messages if message[0] == "error"],
                         [REFUSED_CONNECT] * boot.messages.count(REFUSED_CONNECT))

    def test_one_that_cannot_come_back_is_tried_ten_times_a_command(self):
        host = self.host_with_killer()
        host.shell_command("kill executor", f"rm {SOCKET}; mkdir {SOCKET}; kill -9 $PPID\n")
        host.plugin("only", start=["kill executor", "note add --text=1", "note add --text=2"])
        boot = host.boot()
        messages = boot.messages
        attempt = [REFUSED_CONNECT, SETTING_UP,
                   ("error", "Resetting Executor failed, retrying: Bootforge executor failed to "
                             "start")]
        given_up = ("error", "Could not connect to Executor:Connection refused")
        self.assertTrue(messages[3][1].startswith(NO_STATUS))
        self.assertEqual(messages, [
            LAUNCHING, SETTING_UP, starting("only"), messages[3], *attempt * 10, given_up,
            *attempt * 10, given_up, *failed("only"), ALREADY_GONE])
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(host.executor_log().count(
            ("error", "Unable to start executor: Failed to bind to executor control socket: "
                      "Address already in use")), 20)


class TwoRuns(HostCase):
    def test_runs_right_behind_each_other_lose_no_command(self):
        host = self.host()
        host.plugin("only", start=["note add --text=done"])
        host.script("/tmp/runs", "for run in 1 2 3 4 5 6 7 8 9 10; do\n"
                    f"  {BOOTFORGE} --invoke --method=start --plugin=only.json\ndone\n")
        for _ in range(4):
            runs = host.run("/tmp/runs")
            self.assertEqual(runs.messages, [LAUNCHING, SETTING_UP, starting("only"), STOPPED] * 10)
        self.assertEqual(host.notes(), ["done"] * 40)
        host.wait_for_executor_end()

    def test_a_second_run_uses_the_executor_of_the_first_and_stops_it(self):
        self.need_restarts()
        host = self.host()
        host.plugin("first", provides=["one"], start=["note add --text=1"])
        host.debug("pause:two:one:read x </tmp/gate")
        host.plugin("third", requires=["two"], start=["note add --text=3"])
        host.plugin("second", requires=["one"], start=["note add --text=2"], version=3,
                    required_flags=["never"])
        host.gate("/tmp/gate")
        first = host.start(BOOTFORGE)
        host.wait_for(lambda: starting("pause") in first.messages, "the pause")
        executor, = host.executors()

        second = host.boot("--invoke", "--method=start", "--plugin=second.json",
                           "--plugin-flags=never")
        self.assertEqual(second.messages[0], LAUNCHING)
        self.assertNotIn(SETTING_UP, second.messages)
        self.assertEqual(second.messages[-2:], [starting("second"), STOPPED])
        self.assertEqual((second.status, second.stderr), (0, b""))
        self.assertEqual({line.pid for line in readings.log_lines(
            host.read("/var/log/bootforge-hypcli-stdout.log"))}, {executor.inner_pid})

        host.open_gate("/tmp/gate")
        host.finish(first)
        host.wait_for_executor_end()
        self.assertEqual(first.messages[-5:], [starting("pause"), starting("third"),
                                               REFUSED_CONNECT, SETTING_UP, STOPPED])
        self.assertEqual((first.status, first.stderr), (0, b""))
        self.assertEqual(host.notes(), ["1", "2", "3"])
        # Both executors appended to one log.
        log = host.executor_log()
        self.assertEqual((log.count(POLLING), log.count(SIGNALLED)), (2, 2))


if __name__ == "__main__":
    host_case.main()
