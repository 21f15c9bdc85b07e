"""Daemon mode: init scripts, started and stopped by priority through the installed programs."""

import os
import signal

import host_case
import isolation
from host_case import HostCase
from root_folder import BOOTFORGE, PROFILE

LIBRARY = "/usr/lib/nimbus/bootforge"
CHKCONFIG = "/bin/chkconfig"
LINKS = f"{LIBRARY}/init.d"


class DaemonCase(HostCase):
    """Hosts whose service-configuration tool is ours, linked as an engineer would link it."""

    def daemon_host(self):
        host = self.host()
        os.symlink(f"{LIBRARY}/chkconfig", host.path(CHKCONFIG))
        # The two that an init run starts itself.
        for name in ("hvsyslogd", "evtd"):
            self.script(host, name, 1, 'echo wrong >> /tmp/notes')
        return host

    def script(self, host, name, priority, body='echo "$(basename $0) $2" >> /tmp/notes'):
        host.write(f"/etc/init.d/{name}",
                   f"#!/bin/sh\n# chkconfig: 2345 {priority} 10\n{body}\n", 0o755)

    def daemons(self, host, method, *arguments):
        return host.run(BOOTFORGE, "--daemon", f"--method={method}", *arguments)

    def command(self, name, word, path=None):
        return f"{path or '/etc/init.d/' + name} ++group=init/{name} {word}"


class StartAndStop(DaemonCase):
    def test_daemons_start_by_priority_and_stop_in_reverse(self):
        host = self.daemon_host()
        host.script("/bin/basename", 'echo "${1##*/}"')
        for name, priority in (("late", 90), ("early", 5), ("middle", 50)):
            self.script(host, name, priority)
        process = self.daemons(host, "start")
        messages = []
        for name in ("early", "middle", "late"):
            messages += [("info", f"executing start plugin: {name}"), ("info", f"{name} started.")]
        self.assert_boot(process, messages)
        self.assertEqual(host.notes(), ["early start", "middle start", "late start"])
        self.assertEqual(host.kernel_log(), [
            record for name in ("early", "middle", "late")
            for record in (f"<6>bootforge: Activating Bootforge plugin {name}.",
                           f"<6>bootforge: Bootforge plugin {name} activated.")])

        process = self.daemons(host, "stop")
        messages = []
        for name in ("late", "middle", "early"):
            messages += [("info", f"executing stop for daemon {name}."),
                         ("info", f"{name} stopped.")]
        self.assert_boot(process, messages)
        self.assertEqual(host.notes()[3:], ["late stop", "middle stop", "early stop"])
        self.assertEqual(host.kernel_log()[6:], [
            record for name in ("late", "middle", "early")
            for record in (f"<6>bootforge: Deactivating Daemon {name}.",
                           f"<6>bootforge: Daemon {name} deactivated.")])

    def test_serial_and_parallel_runs_start_the_same_daemons(self):
        notes = []
        for arguments in ((), ("--parallel",)):
            host = self.daemon_host()
            for number in range(12):
                self.script(host, f"d{number}", 10 * (number % 3),
                            f"echo {number % 3} d{number} >> /tmp/notes")
            self.assertEqual(self.daemons(host, "start", *arguments).status, 0)
            self.assertEqual([note[0] for note in host.notes()], ["0"] * 4 + ["1"] * 4 + ["2"] * 4)
            notes.append(sorted(host.notes()))
        self.assertEqual(*notes)

    def test_the_profile_gets_a_section_for_each_run(self):
        host = self.daemon_host()
        self.script(host, "one", 10, "exit 0")
        host.write(PROFILE, "kept as it is\n", 0o640)
        self.daemons(host, "start")
        self.daemons(host, "stop", "--verbose")
        lines = host.read_lines(PROFILE)
        self.assertEqual(lines[0], "kept as it is")
        self.assertRegex(lines[1], r"^\[20.* - 20.*\] daemon: one$")
        self.assertEqual(lines[2], "=== Daemon configuration info ===")
        self.assertRegex(lines[3], r"^ Start Daemon: 20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}$")
        self.assertRegex(lines[4], r"^ End Daemon: 20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}$")
        self.assertEqual(lines[5:9], [" Verbose: 0", " Parallel: 0", " Randomize: 0",
                                      " Interactive Mode: 0"])
        # The reverse pass is not timed.
        self.assertEqual(lines[10], "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] "
                                    "daemon: one")
        self.assertEqual(lines[14], " Verbose: 1")
        self.assertEqual(len(lines), 19)
        self.assertEqual(os.stat(host.path(PROFILE)).st_mode & 0o777, 0o640)

    def test_without_an_old_profile_the_section_makes_a_new_one(self):
        host = self.daemon_host()
        self.daemons(host, "start")
        self.assertEqual(host.read_lines(PROFILE)[0], "=== Daemon configuration info ===")

    def test_without_the_tool_there_are_no_daemons_and_no_failure(self):
        host = self.host()
        process = self.daemons(host, "start")
        self.assertEqual((process.status, process.messages), (0, []))

    def test_no_executor_is_started_and_no_record_is_written(self):
        host = self.daemon_host()
        host.write("/var/run/nimbus/configstore/autoconf", "")
        self.daemons(host, "start")
        self.assertFalse(host.exists("/var/run/nimbus/bootforgeExecutor.sock"))
        self.assertFalse(host.exists("/bootbank/bootfrge.gz"))
        self.assertTrue(host.exists("/var/run/nimbus/configstore/autoconf"))


class TroublesomeScripts(DaemonCase):
    def failure(self, host, process, name, reason):
        self.assertIn(("warning", f"Bootforge failed to start: {name} reason: {reason}"),
                      process.messages)
        self.assertIn(("error", f"Method invocation failed: {name}->start() failed: {reason}"),
                      process.messages)
        self.assertIn(f"<6>bootforge: Bootforge plugin {name} activation failed: "
                      f"{name}->start() failed: {reason}", host.kernel_log())

    def test_each_has_its_message_and_the_rest_goes_on(self):
        host = self.daemon_host()
        self.script(host, "a-three", 10, "exit 3")
        self.script(host, "b-signal", 10, "kill -15 $$")
        self.script(host, "d-loud", 10, "yes noise | head -c 1000000; yes more | head -c 1000000 >&2")
        self.script(host, "e-good", 20, "echo ran >> /tmp/notes")
        host.script("/bin/chkconfig", "for n in a-three b-signal c-gone d-loud; do "
                                      "echo /etc/init.d/$n 10; done; echo /etc/init.d/e-good 20")
        host.write("/etc/init.d/f-text", "no program\n", 0o644)
        process = self.daemons(host, "start")
        self.assertEqual(process.status, 0)
        run = "Execution of command: "
        self.failure(host, process, "a-three",
                     f"{run}{self.command('a-three', 'start')} failed with status: 3")
        self.failure(host, process, "b-signal",
                     f"{run}{self.command('b-signal', 'start')} failed with signal: 15")
        self.failure(host, process, "c-gone",
                     f"failed to ForkExec '{self.command('c-gone', 'start')}' : "
                     "No such file or directory")
        self.assertIn(("info", "d-loud started."), process.messages)
        self.assertEqual(host.notes(), ["ran"])

    def test_one_that_hangs_is_left_alone_when_its_time_is_over(self):
        host = self.daemon_host()
        self.script(host, "hangs", 10, "trap '' TERM; while :; do sleep 1000; done")
        self.script(host, "next", 20, "echo ran >> /tmp/notes")
        process = host.run(BOOTFORGE, "--daemon=wait", "--daemon-wait-timeout=1",
                           "--method=start")
        self.failure(host, process, "hangs",
                     f"Execution of command: '{self.command('hangs', 'start')}' timed out.")
        self.assertEqual(host.notes(), ["ran"])
        left = host.processes("/etc/init.d/hangs")
        self.assertEqual(len(left), 1)
        for one in host.processes():
            one.signal(signal.SIGKILL)

    def test_one_that_stays_behind_holds_nobody_up(self):
        host = self.daemon_host()
        self.script(host, "stays", 10, "sleep 1000 & exit 0")
        self.assertEqual(self.daemons(host, "start").messages[-1], ("info", "stays started."))
        for one in host.processes("sleep"):
            one.signal(signal.SIGKILL)

    def test_a_child_has_three_descriptors_and_default_signals(self):
        host = self.daemon_host()
        self.script(host, "looks", 10, "pwd > /tmp/place; exec sleep 1000")
        reader, writer = os.pipe()
        # A descriptor that whoever starts the program forgot to close.
        process = host.start(BOOTFORGE, "--daemon=wait", "--method=start", extra={7: writer})
        os.close(writer)
        child, = host.wait_for(lambda: host.processes("sleep", "1000"), "the script's program")
        # The log is a socket, which cannot be opened by its name: the null device stands in.
        null = host.path("/dev/null")
        self.assertEqual(child.descriptors(), {n: null for n in range(3)})
        self.assertEqual(child.signals("SigIgn"), set())
        self.assertEqual(child.signals("SigBlk"), set())
        self.assertEqual(host.read_lines("/tmp/place"), ["/"])
        child.signal(signal.SIGTERM)
        host.finish(process)
        os.close(reader)
        self.assertIn("failed with signal: 15", process.stdout.decode())


class Dump(DaemonCase):
    def test_levels_are_trapezia_that_follow_each_other(self):
        host = self.daemon_host()
        self.script(host, "low", 10)
        self.script(host, "high", 30)
        process = self.daemons(host, "start", "--dump-dependency-tree=/tmp/graph")
        self.assertEqual(process.status, 0)
        self.assertEqual(host.notes(), [])
        lines = host.read_lines("/tmp/graph")
        names, edges = {}, set()
        for line in lines[1:-1]:
            if " -> " in line:
                edges.add(tuple(line.rstrip(";").split(" -> ")))
            else:
                identifier, rest = line.split(" ", 1)
                names[identifier] = rest
        self.assertEqual(sorted(names.values()), [
            '[label="_<->_priority_<->_10" shape=trapezium];',
            '[label="_<->_priority_<->_30" shape=trapezium];',
            '[label="high"];', '[label="low"];'])
        short = {identifier: rest.split('"')[1].replace("_<->_priority_<->_", "level ")
                 for identifier, rest in names.items()}
        self.assertEqual({(short[a], short[b]) for a, b in edges},
                         {("low", "level 10"), ("level 10", "level 30"), ("level 10", "high"),
                          ("high", "level 30")})


class Tools(DaemonCase):
    def test_priorities_come_from_the_header_or_else_from_the_links_of_run_levels(self):
        host = self.daemon_host()
        self.script(host, "header", 42)
        self.script(host, "negative", -5)
        for name in ("linked", "second", "nowhere"):
            host.script(f"/etc/init.d/{name}", "# no chkconfig line\n")
        host.write("/etc/init.d/README", "no script\n")
        # Neither is an executable file, whatever its header says.
        host.write("/etc/init.d/resting", "#!/bin/sh\n# chkconfig: 2345 30 10\n", 0o644)
        os.makedirs(host.path("/etc/init.d/folder"))
        # A header without a number for START is none.
        self.script(host, "unnumbered", "-")
        for level, link in (("rc3.d", "S07linked"), ("rc2.d", "S99linked"), ("rc2.d", "S20second"),
                            ("rc3.d", "S55unnumbered"), ("rc3.d", "S31resting"),
                            ("rc3.d", "K01nowhere")):
            os.makedirs(host.path(f"/etc/{level}"), exist_ok=True)
            os.symlink(f"../init.d/{link[3:]}", host.path(f"/etc/{level}/{link}"))
        listed = host.run(CHKCONFIG, "-p")
        self.assertEqual(listed.status, 0)
        self.assertEqual(listed.stdout.decode().splitlines(),
                         ["/etc/init.d/evtd 1", "/etc/init.d/header 42",
                          "/etc/init.d/hvsyslogd 1", "/etc/init.d/linked 7",
                          "/etc/init.d/negative -5", "/etc/init.d/second 20",
                          "/etc/init.d/unnumbered 55"])

    def test_ordinary_scripts_run_through_launchers_with_their_word_first(self):
        host = self.daemon_host()
        self.script(host, "ordinary", 10, 'echo "$0" "$@" >> /tmp/notes')
        self.assertEqual(host.run(CHKCONFIG, "--add-launchers").status, 0)
        self.assertEqual(os.readlink(host.path(f"{LINKS}/ordinary")), f"{LIBRARY}/launch")
        self.assertIn(f"{LINKS}/ordinary 10",
                      host.run(CHKCONFIG, "-p").stdout.decode().splitlines())
        self.assertEqual(self.daemons(host, "start").messages[-1], ("info", "ordinary started."))
        self.assertEqual(host.notes(), ["/etc/init.d/ordinary start"])
        self.assertEqual(host.run(CHKCONFIG, "--remove-launchers").status, 0)
        self.assertFalse(host.exists(LINKS))
        self.assertIn("/etc/init.d/ordinary 10",
                      host.run(CHKCONFIG, "-p").stdout.decode().splitlines())

    def test_a_launcher_refuses_bad_groups_and_names(self):
        host = self.daemon_host()
        self.script(host, "ordinary", 10)
        host.run(CHKCONFIG, "--add-launchers")
        launcher = f"{LINKS}/ordinary"
        for group in ("", "/a", "a/", "a//b", ".", "..", "a/./b", "a/../b", "../a"):
            process = host.run(launcher, f"++group={group}", "start")
            self.assertEqual(process.status, 127, group)
            self.assertEqual(process.stderr.decode(),
                             f"launch: ++group={group}: not a good group\n")
        for words in ((), ("start",), ("--group=a", "start")):
            process = host.run(launcher, *words)
            self.assertEqual(process.status, 127)
            self.assertEqual(process.stderr.decode(),
                             "launch: ordinary: expected ++group=GROUP as the first word\n")
        process = host.run(f"{LIBRARY}/launch", "++group=a", "start")
        self.assertEqual((process.status, process.stderr.decode()),
                         (127, "launch: launch: there is no such script in /etc/init.d\n"))
        for words in ((), ("--help",), ("start",)):
            process = host.run(f"{LIBRARY}/launch", *words)
            self.assertEqual((process.status, process.stderr.decode()), (
                127, "launch: usage: call me through a link that has an init script's name: "
                "/usr/lib/nimbus/bootforge/init.d/NAME ++group=GROUP WORDS... runs "
                "/etc/init.d/NAME WORDS... in that control group (chkconfig --add-launchers makes "
                "the links)\n"))

    def test_names_with_dots_are_good_groups(self):
        host = self.daemon_host()
        self.script(host, "ordinary", 10, "exit 0")
        host.run(CHKCONFIG, "--add-launchers")
        for group in ("init/a.service", "...", ".a", "a..b"):
            self.assertEqual(host.run(f"{LINKS}/ordinary", f"++group={group}", "start").status, 0)

    def test_a_script_that_cannot_be_looked_at_is_told_and_the_others_are_listed(self):
        host = self.daemon_host()
        self.script(host, "header", 42)
        os.symlink("turning", host.path("/etc/init.d/turning"))
        os.symlink("gone", host.path("/etc/init.d/dangling"))  # is no script, and no mistake
        listed = host.run(CHKCONFIG, "-p")
        self.assertEqual(listed.stderr.decode(),
                         "chkconfig: /etc/init.d/turning: Too many levels of symbolic links\n")
        self.assertEqual(listed.stdout.decode().splitlines(),
                         ["/etc/init.d/evtd 1", "/etc/init.d/header 42", "/etc/init.d/hvsyslogd 1"])
        self.assertEqual(listed.status, 1)
        self.assertEqual(host.run(CHKCONFIG, "--add-launchers").status, 1)
        self.assertEqual(sorted(host.listing(LINKS)), ["evtd", "header", "hvsyslogd"])

    def test_a_script_that_cannot_be_read_is_told_and_the_others_are_listed(self):
        host = self.daemon_host()
        host.write("/etc/init.d/secret", "#!/bin/sh\n# chkconfig: 2345 30 10\n", 0o111)
        listed = host.run(CHKCONFIG, "-p", dropped=[isolation.CAP_DAC_OVERRIDE,
                                                    isolation.CAP_DAC_READ_SEARCH])
        self.assertEqual(listed.stderr.decode(),
                         "chkconfig: /etc/init.d/secret: Permission denied\n")
        self.assertEqual(listed.stdout.decode().splitlines(),
                         ["/etc/init.d/evtd 1", "/etc/init.d/hvsyslogd 1"])
        self.assertEqual(listed.status, 1)

    def test_usage_errors_say_how_it_is_used(self):
        host = self.daemon_host()
        usage = "usage: chkconfig -p | --add-launchers | --remove-launchers\n"
        for words in ((), ("-x",), ("-p", "more")):
            process = host.run(CHKCONFIG, *words)
            self.assertEqual((process.status, process.stderr.decode()), (2, usage))
        for option in ("--help", "-h"):
            process = host.run(CHKCONFIG, option)
            self.assertEqual((process.status, process.stderr), (0, b""))
            self.assertTrue(process.stdout.decode().startswith(usage), process.stdout)
            for word in (b"-p ", b"--add-launchers ", b"--remove-launchers ", b"Exit status: "):
                self.assertIn(word, process.stdout)


if __name__ == "__main__":
    host_case.main()
