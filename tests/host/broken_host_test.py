"""Boots on hosts where something is missing, full, read-only or in the way: files and devices."""

import fcntl
import gzip
import os
import shutil
import signal
import socket
import struct
import termios

import endpoints
import host_case
import isolation
import readings
from host_case import (LAUNCHING, POLLING, SETTING_UP, SIGNALLED, STOPPED, HostCase, activation,
                       starting)
from root_folder import BOOTFORGE, EVTD, EXECUTOR_LOG, PROFILE, RECORD, SYSLOGD

NO_PID_FILE = ("warning", "unable to open hvksyslogd pid file.")
NO_SPACE = "No space left on device"


class BrokenHost(HostCase):
    def working_host(self, **options):
        """Two plugins in a chain; each command and each kernel record must get through."""
        host = self.host(**options)
        host.plugin("first", provides=["one"], start=["note add --text=first"])
        host.plugin("second", requires=["one"], start=["note add --text=second"])
        return host

    MESSAGES = [starting("first"), starting("second")]
    KERNEL = activation("first") + activation("second")

    def names(self, host):
        return [name.removesuffix(".json") for name in host.listing()]

    def assert_all_ran(self, host):
        self.assertEqual(host.notes(), ["first", "second"])
        host.wait_for_emptiness()

    def assert_no_temporary_file(self, host, path):
        folder, name = os.path.split(path)
        self.assertEqual([entry for entry in host.listing(folder) if entry.startswith(name + ".")],
                         [])


class LogFolder(BrokenHost):
    NO_EXECUTOR_LOG = ("warning", f"Failed opening log file {EXECUTOR_LOG}")

    def boot_without_log_files(self, host, reason):
        boot = host.boot()
        own = [(line.level, line.text) for line in boot.lines if line.pid == boot.pid]
        self.assertEqual(own, [LAUNCHING, SETTING_UP, *self.MESSAGES,
                               ("error", f"unable to open profiling log ({PROFILE}): {reason}."),
                               STOPPED])
        # The executor keeps the streams that it inherited, and says so once.
        others = [(line.level, line.text) for line in boot.lines if line.pid != boot.pid]
        self.assertEqual(others[0], self.NO_EXECUTOR_LOG)
        self.assertEqual(sorted(others), sorted([self.NO_EXECUTOR_LOG, POLLING, SIGNALLED]))
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(host.kernel_log(), self.KERNEL)
        self.assertEqual(host.record(), "bootforge.run-once=\n")
        self.assert_all_ran(host)

    def test_a_missing_log_folder_costs_the_files_and_nothing_else(self):
        host = self.working_host()
        shutil.rmtree(host.path("/var/log"))
        self.boot_without_log_files(host, "No such file or directory")
        self.assertFalse(host.exists("/var/log"))

    def test_a_read_only_log_folder_does_too(self):
        self.need_mounts()
        host = self.working_host()
        host.tmpfs("/var/log")
        host.write(PROFILE, "old")
        host.make_read_only("/var/log")
        self.boot_without_log_files(host, "Read-only file system")
        self.assertEqual(host.read(PROFILE), b"old")

    def test_a_file_in_the_place_of_the_log_folder_does_too(self):
        host = self.working_host()
        shutil.rmtree(host.path("/var/log"))
        host.write("/var/log", "")
        self.boot_without_log_files(host, "Not a directory")


class FullDisk(BrokenHost):
    def test_a_full_log_disk_costs_the_profile_and_keeps_the_old_one(self):
        self.need_mounts()
        host = self.working_host()
        host.tmpfs("/var/log")
        host.write(PROFILE, "the old profile")
        host.fill("/var/log")
        boot = host.boot()
        (level, text), = boot.messages[4:-1]
        self.assertEqual(level, "warning")
        self.assertRegex(text, f"^unable to log profiling information: .*{NO_SPACE}\\.$")
        self.assertEqual(boot.messages[:4] + boot.messages[-1:],
                         [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(host.read(PROFILE), b"the old profile")
        self.assert_no_temporary_file(host, PROFILE)
        self.assert_all_ran(host)
        self.assertEqual(host.record(), "bootforge.run-once=\n")
        # What the full disk did not take stands in the syslog.
        self.assert_syslog_holds(host, boot.messages, [POLLING, SIGNALLED])

    def test_a_limit_of_the_size_of_files_is_a_full_disk_too(self):
        host = self.working_host()
        host.write(PROFILE, "the old profile")
        boot = host.boot(limits={"FSIZE": 100})
        (level, text), = boot.messages[4:-1]
        self.assertEqual(level, "warning")
        self.assertRegex(text, "^unable to log profiling information: .*File too large\\.$")
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(host.read(PROFILE), b"the old profile")
        self.assert_no_temporary_file(host, PROFILE)
        self.assert_all_ran(host)
        self.assert_syslog_holds(host, boot.messages, [POLLING, SIGNALLED])

    def boot_without_record(self, host, pattern):
        boot = host.boot()
        (level, text), = boot.messages[4:-1]
        self.assertEqual(level, "error")
        self.assertRegex(text, "^unhandled exception whilst enumerating plugins.\nDetails:\n "
                               f"{pattern} $")
        self.assertEqual(boot.messages[:4] + boot.messages[-1:],
                         [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        self.assertEqual((boot.status, boot.stderr), (1, b""))
        self.assert_profiled(host, self.names(host))
        self.assert_all_ran(host)

    def test_a_full_boot_bank_is_exit_1_and_keeps_the_old_record(self):
        self.need_mounts()
        host = self.working_host()
        host.tmpfs("/bootbank")
        old = gzip.compress(b"bootforge.run-once=old1,\n")
        host.write(RECORD, old)
        host.fill("/bootbank")
        self.boot_without_record(host, f".*{NO_SPACE}")
        self.assertEqual(host.read(RECORD), old)
        self.assert_no_temporary_file(host, RECORD)

    def test_a_boot_bank_without_room_for_another_file_does_too(self):
        self.need_mounts()
        host = self.working_host()
        host.tmpfs("/bootbank", "nr_inodes=2,mode=0755")
        host.write(RECORD, b"old")
        self.boot_without_record(host, "unable to create temporary file to write "
                                       f"'{RECORD}': {NO_SPACE}")
        self.assertEqual(host.read(RECORD), b"old")

    def test_a_missing_boot_bank_does_too(self):
        host = self.working_host()
        os.rmdir(host.path("/bootbank"))
        self.boot_without_record(host, "unable to create temporary file to write "
                                       f"'{RECORD}': No such file or directory")
        self.assertFalse(host.exists("/bootbank"))

    def test_a_read_only_boot_bank_does_too(self):
        self.need_mounts()
        host = self.working_host()
        host.tmpfs("/bootbank")
        host.make_read_only("/bootbank")
        self.boot_without_record(host, "unable to create temporary file to write "
                                       f"'{RECORD}': Read-only file system")

    def test_a_folder_in_the_place_of_the_record_does_too(self):
        host = self.working_host()
        os.mkdir(host.path(RECORD))
        self.boot_without_record(host, f"unable to rename '{RECORD}.[0-9a-zA-Z]{{6}}' to "
                                       f"'{RECORD}': Is a directory")
        self.assert_no_temporary_file(host, RECORD)


class Devices(BrokenHost):
    def test_without_a_syslog_socket_the_boot_is_the_same(self):
        host = self.working_host()
        host.detach(host.system_log)
        for left in (True, False):  # first a socket that nobody reads, then none
            host.remove("/tmp/notes")
            if not left:
                host.remove("/dev/log")
            boot = host.boot()
            self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
            self.assert_all_ran(host)
        self.assertEqual(host.kernel_log(), self.KERNEL * 2)

    def test_a_syslog_daemon_that_stopped_reading_holds_nothing_up(self):
        host = self.working_host()
        host.detach(host.system_log)
        os.unlink(host.path("/dev/log"))
        hung = endpoints.SystemLog(host.root)
        self.addCleanup(hung.close)
        # No room is left from the beginning.
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK) as sender:
            sender.connect(f"{host.root}/dev/log")
            with self.assertRaises(BlockingIOError):
                while True:
                    sender.send(b"<30>full")
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        self.assert_all_ran(host)
        self.assert_executor_log(host, POLLING, SIGNALLED)
        hung.drain()
        self.assertEqual(set(hung.messages), {b"<30>full"})

    def test_without_a_kernel_log_its_records_go_to_the_syslog(self):
        host = self.working_host()
        host.plugin("second", requires=["one", "nothing"], start=["note add --text=second"])
        host.remove("/dev/kmsg")
        boot = host.boot()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assert_all_ran(host)
        self.assert_in_order([LAUNCHING, SETTING_UP, starting("first"), starting("second"),
                              STOPPED], boot.messages)
        missing = [text for level, text in boot.messages if "dependency error" in text]
        self.assertEqual(len(missing), 1)
        expected = []
        for record in self.KERNEL:
            expected += [readings.Syslog(27, "Exception occurred while logging msg: "
                                             "No such file or directory"),
                         readings.Syslog(27, record.removeprefix("<6>bootforge: "))]
        self.assertEqual([message for message in host.syslog()
                          if message.priority == 27 and "alert" not in message.text], expected)

    def test_neither_log_device_changes_what_is_done(self):
        host = self.working_host(devices=False)
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        self.assert_profiled(host, self.names(host))
        self.assert_all_ran(host)

    def test_a_full_kernel_log_gets_no_piece_of_a_record_and_holds_nothing_up(self):
        host = self.working_host()
        host.drain()
        # One page, filled until no record fits in but its prefix would: a record that came in
        # pieces would leave its first piece here.
        kernel_log = host.kernel.fd
        fcntl.fcntl(kernel_log, 1031, 4096)  # F_SETPIPE_SZ
        filler = b"x" * (4096 - len("<6>bootforge: ") - 6)
        os.write(kernel_log, filler)
        host.ignore(host.kernel)
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        held, = struct.unpack("i", fcntl.ioctl(kernel_log, termios.FIONREAD, b"\0" * 4))
        self.assertEqual(held, len(filler))
        lost = [message.text for message in host.syslog() if message.priority == 27]
        self.assertEqual(lost[1::2], [record.removeprefix("<6>bootforge: ")
                                      for record in self.KERNEL])

    def test_without_a_console_the_boot_is_the_same(self):
        self.need_mounts()
        host = self.working_host()
        host.unmount("/dev/console")
        host.remove("/dev/console")
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        self.assertEqual(host.console.text, b"")

    def test_a_file_in_the_place_of_the_console_gets_nothing(self):
        self.need_mounts()
        host = self.working_host()
        host.unmount("/dev/console")
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, STOPPED])
        self.assertEqual(host.read("/dev/console"), b"")

    def test_without_a_null_device_the_executor_warns_and_serves(self):
        host = self.working_host()
        if host.isolation.mounts:
            host.unmount("/dev/null")
        host.remove("/dev/null")
        boot = host.boot()
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertIn(("warning", "Failed opening /dev/null"), boot.messages)
        self.assertEqual(boot.messages[-1], STOPPED)


class StartedDaemons(BrokenHost):
    def boot_with(self, prepare):
        host = self.working_host()
        prepare(host)
        boot = host.boot("--init")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *self.MESSAGES, NO_PID_FILE, STOPPED])
        self.assert_all_ran(host)
        own = [message for message in boot.messages]
        errors = [readings.Syslog(27, message.text) for message in host.syslog()
                  if message.priority == 27]
        self.assertEqual(len(host.syslog()), len(own) + 2 + len(errors))
        return [message.text for message in errors]

    def test_a_missing_syslog_daemon_is_told_to_the_syslog_alone(self):
        self.assertEqual(self.boot_with(lambda host: host.remove(SYSLOGD)),
                         [f"execve({SYSLOGD}) failure: No such file or directory"])

    def test_a_missing_event_daemon_is_too(self):
        self.assertEqual(self.boot_with(lambda host: host.remove(EVTD)),
                         [f"execve({EVTD}) failure: No such file or directory"])

    def test_what_cannot_be_executed_is_too(self):
        def prepare(host):
            host.write(SYSLOGD, "no program", mode=0o644)
            host.remove(EVTD)
            os.mkdir(host.path(EVTD))
        self.assertEqual(self.boot_with(prepare),
                         [f"execve({SYSLOGD}) failure: Permission denied",
                          f"execve({EVTD}) failure: Permission denied"])

    def test_a_failing_daemon_is_ignored(self):
        self.assertEqual(self.boot_with(lambda host: host.script(SYSLOGD, "exit 3\n")), [])

    def test_a_daemon_killed_by_a_signal_is_ignored(self):
        self.assertEqual(self.boot_with(lambda host: host.script(SYSLOGD, "kill -9 $$\n")), [])

    def test_daemons_get_null_streams_their_words_and_nothing_else(self):
        host = self.working_host()
        for number, path in enumerate((SYSLOGD, EVTD)):
            host.script(path, f'WORDS="$0 $*" exec sleep 360{number}\n')
        secret = os.open("/dev/null", os.O_RDONLY)
        boot = host.start(BOOTFORGE, "--init", env={"FLAVOUR": "plain"},
                          extra={9: secret, 200: secret})
        os.close(secret)
        for number, words in enumerate((f"{SYSLOGD} ", f"{EVTD} start")):
            daemon, = host.wait_for(lambda: host.processes(f"360{number}"), f"{words} to run")
            self.assertEqual(set(daemon.descriptors().items()),
                             {(stream, host.path("/dev/null")) for stream in range(3)})
            self.assertEqual(daemon.signals("SigIgn") | daemon.signals("SigBlk"), set())
            environment = daemon.environment()
            self.assertEqual((environment["WORDS"], environment["FLAVOUR"]), (words, "plain"))
            self.assertNotIn("executing", boot.stdout.decode())  # it is waited for
            daemon.signal(signal.SIGTERM)
        host.finish(boot)
        self.assert_all_ran(host)


class ConfigurationStore(BrokenHost):
    def test_a_marker_that_cannot_be_removed_is_an_error_and_the_rest_is_done(self):
        host = self.working_host()
        host.write("/var/run/nimbus/configstore/autoconf/inside", "")
        host.write("/var/run/nimbus/configstore/boot-state/x", "")
        boot = host.boot()
        (level, text), = boot.messages[5:]
        self.assertEqual(level, "error")
        self.assertRegex(text, "^Failed to disable autoconf: .+")
        self.assertEqual(boot.messages[4], STOPPED)
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertEqual(host.listing("/var/run/nimbus/configstore/boot-state"), [])

    def test_what_is_mounted_in_the_boot_state_stays_and_the_rest_goes(self):
        self.need_mounts()
        host = self.working_host()
        state = "/var/run/nimbus/configstore/boot-state"
        os.makedirs(host.path(f"{state}/mounted"))
        host.write(f"{state}/other/file", "")
        host.write("/etc/precious/file", "")
        host.mount(host.path("/etc/precious"), f"{state}/mounted", flags=isolation.MS_BIND)
        boot = host.boot()
        self.assertEqual(boot.messages[5:],
                         [("warning", f"{state}/mounted is left alone: it is a mount")])
        self.assertEqual(host.listing(state), ["mounted"])
        self.assertTrue(host.exists("/etc/precious/file"))

    def test_boot_state_that_cannot_be_removed_is_an_error(self):
        host = self.working_host()
        os.symlink("/etc", host.path("/var/run/nimbus/configstore/boot-state"))
        boot = host.boot()
        (level, text), = boot.messages[5:]
        self.assertEqual(level, "error")
        self.assertRegex(text, "^Failed to cleanup boot state: .+")
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assertTrue(host.exists(EVTD))


class RunFolder(BrokenHost):
    def test_without_a_folder_for_the_control_socket_nothing_is_started(self):
        host = self.working_host()
        shutil.rmtree(host.path("/var/run/nimbus"))
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP,
                                ("warning", "Failed to start executor Bootforge executor failed "
                                            "to start")], status=1)
        self.assertEqual(host.executor_log(), [
            ("error", "Unable to start executor: Failed to bind to executor control socket: "
                      "No such file or directory")])
        self.assertEqual((host.kernel_log(), host.notes()), ([], []))
        self.assertEqual((host.read(PROFILE), host.read(RECORD)), (None, None))
        self.assert_syslog_holds(host, boot.messages, host.executor_log())
        host.wait_for_emptiness()

    def test_the_installed_examples_make_it(self):
        host = self.working_host()
        examples = "/usr/share/doc/bootforge/examples/run_folder"
        entries = [line for line in host.read_lines(f"{examples}/tmpfiles.conf")
                   if not line.startswith("#")]
        self.assertEqual(entries, ["d /run/nimbus 0755 root root -"])
        shutil.rmtree(host.path("/var/run/nimbus"))
        self.assertEqual(host.run(f"{examples}/init_script").status, 0)
        self.assertEqual(os.stat(host.path("/var/run/nimbus")).st_mode & 0o777, 0o755)
        self.assertEqual(host.boot().status, 0)
        self.assert_all_ran(host)


if __name__ == "__main__":
    host_case.main()
