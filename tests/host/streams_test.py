"""Standard streams that are closed, full or gone: nothing is lost but what only they would show."""

import fcntl
import os

import host_case
import readings
from host_case import (LAUNCHING, POLLING, SETTING_UP, SIGNALLED, STOPPED, HostCase, activation,
                       failed, refused, starting)
from root_folder import BOOTFORGE


class Streams(HostCase):
    MESSAGES = [LAUNCHING, SETTING_UP, starting("first"), starting("second"),
                *failed("second", refused("no such")),
                ("warning", "unable to open hvksyslogd pid file."), STOPPED]
    EXECUTOR = [POLLING, ("error", "execution of 'no such' failed : unknown command 'no such'"),
                SIGNALLED]

    def host_of_two(self):
        host = self.host()
        host.plugin("first", provides=["one"], start=["note add --text=first"])
        host.plugin("second", requires=["one"], start=["no such", "note add --text=second"])
        return host

    def check(self, host, boot):
        """Everything but standard output is as it is in any boot."""
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assert_syslog_holds(host, self.MESSAGES, self.EXECUTOR)
        self.assert_executor_log(host, *self.EXECUTOR)
        self.assertEqual(host.kernel_log(), activation("first") + activation(
            "second", "second->start() failed: error while executing the cli"))
        self.assert_profiled(host, [name.removesuffix(".json") for name in host.listing()])
        self.assertEqual(host.record(), "bootforge.run-once=\n")
        self.assertEqual(host.notes(), ["first", "second"])

    def test_any_streams_may_be_closed(self):
        for closed in ((0,), (1,), (2,), (0, 1), (1, 2), (0, 2), (0, 1, 2)):
            with self.subTest(closed):
                host = self.host_of_two()
                boot = host.boot("--init", closed=closed)
                self.check(host, boot)
                self.assertEqual(boot.messages, [] if 1 in closed else self.MESSAGES)

    def test_an_output_that_nobody_reads_any_more_loses_only_itself(self):
        host = self.host_of_two()
        reader, writer = os.pipe()
        os.close(reader)
        boot = host.boot("--init", stdout=writer)
        os.close(writer)
        self.check(host, boot)

    def test_an_output_that_goes_away_in_the_middle_does_too(self):
        host = self.host_of_two()
        host.plugin("second", requires=["one"],
                    start=["wait here", "no such", "note add --text=second"])
        host.shell_command("wait here", "read x </tmp/gate\n")
        host.gate("/tmp/gate")
        reader, writer = os.pipe()
        boot = host.start(BOOTFORGE, "--init", stdout=writer)
        os.close(writer)
        host.wait_for(lambda: starting("second")[1] in
                      [message.text for message in host.syslog()], "the second plugin")
        # The syslog gets a message first.
        os.set_blocking(reader, False)
        text = bytearray()

        def read_four_lines():
            try:
                text.extend(os.read(reader, 65536))
            except BlockingIOError:
                pass
            return text.count(b"\n") == 4

        host.wait_for(read_four_lines, "the second plugin on the output")
        shown = readings.log_lines(bytes(text))
        os.close(reader)
        host.open_gate("/tmp/gate")
        host.finish(boot)
        host.wait_for_executor_end()
        self.check(host, boot)
        self.assertEqual([line.text for line in shown],
                         [text for _, text in self.MESSAGES[:4]])

    def test_an_output_on_a_full_disk_does_too(self):
        self.need_mounts()
        host = self.host_of_two()
        host.tmpfs("/srv")
        host.fill("/srv")
        output = os.open(host.path("/srv/ballast"), os.O_WRONLY | os.O_APPEND)
        boot = host.boot("--init", stdout=output)
        os.close(output)
        self.check(host, boot)

    def test_help_into_a_broken_pipe_ends_at_once(self):
        host = self.host()
        reader, writer = os.pipe()
        os.close(reader)
        self.assertEqual(host.run(BOOTFORGE, "--help", stdout=writer).status, 0)
        os.close(writer)

    def test_programs_of_commands_get_three_streams_whatever_was_closed(self):
        host = self.host_of_two()
        host.plugin("second", requires=["one"], start=["hold on"])
        host.shell_command("hold on", "exec sleep 3600\n")
        boot = host.start(BOOTFORGE, closed=(0, 1, 2))
        program, = host.wait_for(lambda: host.processes("3600"), "the command's program")
        descriptors = program.descriptors()
        self.assertEqual(sorted(descriptors), [0, 1, 2])
        self.assertEqual(descriptors[0], host.path("/dev/null"))
        self.assertEqual(descriptors[1], host.path("/var/log/bootforge-hypcli-stdout.log"))
        program.signal(9)
        host.finish(boot)
        self.assertEqual(boot.status, 0)

    def test_a_slow_reader_of_the_output_gets_every_line(self):
        host = self.host()
        for number in range(40):
            host.plugin(f"p{number}")
        reader, writer = os.pipe()
        fcntl.fcntl(writer, 1031, 4096)  # F_SETPIPE_SZ: less than the boot has to say
        boot = host.start(BOOTFORGE, stdout=writer)
        os.close(writer)
        # The boot stops at a full pipe until somebody reads.
        host.wait_for(lambda: len(host.syslog()) > 20, "the pipe to fill")
        self.assertIsNone(boot.status)
        text = b""
        while piece := os.read(reader, 300):
            text += piece
            host.drain()
        os.close(reader)
        host.finish(boot)
        lines = readings.log_lines(text)
        self.assertEqual([(line.level, line.text) for line in lines[2:-1]],
                         [starting(name.removesuffix(".json")) for name in host.listing()])
        self.assertEqual(boot.status, 0)


if __name__ == "__main__":
    host_case.main()
