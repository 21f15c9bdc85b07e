"""The launcher of ordinary init scripts: what the script is given, and where its words go."""

import os
import signal

import endpoints
import host_case
import readings
from host_case import HostCase
from root_folder import BOOTFORGE

LIBRARY = "/usr/lib/nimbus/bootforge"
LINKS = f"{LIBRARY}/init.d"
RELAY = "stderr-relay"


class LauncherCase(HostCase):
    def launched_host(self, **scripts):
        """A host with these scripts, started through launchers."""
        host = self.host()
        os.symlink(f"{LIBRARY}/chkconfig", host.path("/bin/chkconfig"))
        for name, body in scripts.items():
            host.write(f"/etc/init.d/{name}", f"#!/bin/sh\n# chkconfig: 2345 10 10\n{body}\n", 0o755)
        self.assertEqual(host.run("/bin/chkconfig", "--add-launchers").status, 0)
        return host

    def start(self, host):
        process = host.run(BOOTFORGE, "--daemon=wait", "--method=start")
        self.assertEqual((process.status, process.stderr), (0, b""))
        return process

    def told(self, messages):
        """What reached a syslog daemon under the name of the script "talks"."""
        return [readings.syslog_message(message, "talks") for message in messages
                if b" talks: " in message]

    def texts(self, messages):
        return [message.text for message in self.told(messages)]

    def wait_until_told(self, host, *texts):
        """Waits for exactly these lines."""
        host.wait_for(lambda: self.texts(host.system_log.messages) == list(texts),
                      f"{texts} in the syslog")


class StandardErrorOfAScript(LauncherCase):
    def test_reaches_syslog_under_its_name_line_by_line(self):
        host = self.launched_host(talks="printf 'one\\n\\n two\\tx\\033[2J\\nno newline' >&2; exit 3")
        process = self.start(host)
        self.assertIn("failed with status: 3", process.stdout.decode())
        self.wait_until_told(host, "one", " two\tx\\x1b[2J", "no newline")
        self.assertEqual({message.priority for message in self.told(host.system_log.messages)},
                         {29})  # daemon, notice
        host.wait_for_emptiness()

    def test_reaches_syslog_from_its_daemon_later_and_nobody_stays_behind(self):
        host = self.launched_host(talks="(read x </tmp/gate; echo later >&2) & echo soon >&2")
        host.gate("/tmp/gate")
        self.assertEqual(self.start(host).messages[-1], ("info", "talks started."))
        self.wait_until_told(host, "soon")
        self.assertEqual(len(host.processes(RELAY)), 1)
        host.open_gate("/tmp/gate")
        self.wait_until_told(host, "soon", "later")
        host.wait_for_emptiness()

    def test_is_told_though_a_line_has_no_end_yet(self):
        host = self.launched_host(talks="printf 'waiting for ' >&2; read x </tmp/gate")
        host.gate("/tmp/gate")
        process = host.start(BOOTFORGE, "--daemon=wait", "--method=start")
        self.wait_until_told(host, "waiting for ")
        host.open_gate("/tmp/gate")
        host.finish(process)
        host.wait_for_emptiness()

    def test_is_told_in_parts_when_a_line_is_long(self):
        host = self.launched_host(talks="printf '%02000d' 0 >&2")
        self.start(host)
        self.wait_until_told(host, "0" * 960, "0" * 960, "0" * 80)
        host.wait_for_emptiness()

    def test_goes_where_the_caller_sends_it_when_that_is_not_the_null_device(self):
        host = self.launched_host(talks="echo here >&2")
        process = host.run(f"{LINKS}/talks", "++group=a", "start")
        self.assertEqual((process.status, process.stderr), (0, b"here\n"))
        self.assertEqual((self.told(host.system_log.messages), host.processes()), ([], []))

    def test_is_that_of_the_launcher_too_when_the_script_cannot_be_executed(self):
        host = self.launched_host(talks="")
        host.write("/etc/init.d/talks", "#!/no/such/shell\n# chkconfig: 2345 10 10\n", 0o755)
        self.start(host)
        self.wait_until_told(host, "launch: /etc/init.d/talks: No such file or directory")
        host.wait_for_emptiness()


class TroublesomeSyslog(LauncherCase):
    """Whatever becomes of the syslog daemon, a script and its daemon write on."""

    FLOOD = "yes 'a line of many' | head -n 20000 >&2 || echo failed >>/tmp/notes"

    def hang_syslog(self, host):
        """A daemon in the place of the test's, which nobody reads."""
        os.unlink(host.path("/dev/log"))
        hung = endpoints.SystemLog(host.root)
        self.addCleanup(hung.close)
        return hung

    def assert_counted(self, texts):
        """Each line of the flood has arrived or was told to be lost; some were lost."""
        self.assertEqual(texts[-1], "later")
        lost = [int(text.split()[0]) for text in texts if text.endswith(" messages were lost")]
        self.assertEqual(len(texts) - len(lost) - 1 + sum(lost), 20000)
        self.assertGreater(sum(lost), 0)

    def test_a_hung_one_holds_no_script_up_and_is_told_what_it_missed(self):
        host = self.launched_host(talks=f"({self.FLOOD}; echo flooded >>/tmp/notes; "
                                        "read x </tmp/gate; echo later >&2) &")
        host.gate("/tmp/gate")
        hung = self.hang_syslog(host)
        self.start(host)
        host.wait_for(lambda: host.notes() == ["flooded"], "the end of the flood")
        host.open_gate("/tmp/gate")
        host.wait_for(lambda: hung.drain() or "later" in self.texts(hung.messages), "the last word")
        host.wait_for_emptiness()
        self.assert_counted(self.texts(hung.messages))

    def test_one_that_is_gone_and_comes_back_gets_what_is_said_then(self):
        host = self.launched_host(talks=f"({self.FLOOD}; echo flooded >>/tmp/notes; "
                                        "read x </tmp/gate; echo later >&2) &")
        host.gate("/tmp/gate")
        os.unlink(host.path("/dev/log"))
        self.start(host)
        host.wait_for(lambda: host.notes() == ["flooded"], "the end of the flood")
        back = host.attach(endpoints.SystemLog(host.root))
        host.open_gate("/tmp/gate")
        host.wait_for_emptiness()
        host.drain()
        self.assert_counted(self.texts(back.messages))

    def test_one_that_was_started_anew_gets_the_next_word(self):
        host = self.launched_host(talks="(echo soon >&2; read x </tmp/gate; echo later >&2) &")
        host.gate("/tmp/gate")
        old = self.hang_syslog(host)
        self.start(host)
        host.wait_for(lambda: old.drain() or self.texts(old.messages), "the first word")
        os.unlink(host.path("/dev/log"))
        old.close()
        new = host.attach(endpoints.SystemLog(host.root))
        host.open_gate("/tmp/gate")
        host.wait_for_emptiness()
        host.drain()
        self.assertEqual(self.texts(new.messages), ["later"])


class TheRelay(LauncherCase):
    def relayed_host(self):
        host = self.launched_host(talks="(read x </tmp/gate; echo later >&2) &")
        host.gate("/tmp/gate")
        self.start(host)
        relay, = host.wait_for(lambda: host.processes(RELAY), "the relay's name")
        return host, relay

    def test_outlives_every_signal_that_can_be_ignored(self):
        host, relay = self.relayed_host()
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM, signal.SIGPIPE,
                       signal.SIGUSR1, signal.SIGALRM):
            relay.signal(number)
        host.open_gate("/tmp/gate")
        self.wait_until_told(host, "later")
        host.wait_for_emptiness()

    def test_is_not_found_by_who_looks_for_the_daemon_and_holds_nothing(self):
        host, relay = self.relayed_host()
        self.assertEqual([word for word in relay.words if word], [RELAY])
        with open(f"/proc/{relay.pid}/comm", encoding="utf-8") as file:
            self.assertEqual(file.read(), f"{RELAY}\n")
        null = host.path("/dev/null")
        places = relay.descriptors()
        self.assertTrue(places.pop(0).startswith("pipe:"))
        self.assertEqual(places, {1: null, 2: null})
        self.assertNotEqual(os.getsid(relay.pid), os.getsid(0))
        self.assertNotIn(relay.parent, [process.pid for process in host.processes()])
        host.open_gate("/tmp/gate")
        host.wait_for_emptiness()


class WhatAScriptIsGiven(LauncherCase):
    def test_default_signals_and_a_umask_of_022_at_least(self):
        host = self.launched_host(talks="umask > /tmp/umask; exec sleep 1000")
        before = os.umask(0)
        try:
            process = host.start("/bin/sh", "-c", "trap '' HUP TERM USR1 CHLD; umask 0; "
                                 f"exec {LINKS}/talks ++group=a start")
        finally:
            os.umask(before)
        child, = host.wait_for(lambda: host.processes("sleep", "1000"), "the script's program")
        self.assertEqual((child.signals("SigIgn"), child.signals("SigBlk")), (set(), set()))
        self.assertEqual(host.read_lines("/tmp/umask"), ["0022"])
        child.signal(signal.SIGKILL)
        host.finish(process)

    def test_a_narrower_umask_stays(self):
        host = self.launched_host(talks="umask > /tmp/umask")
        host.run("/bin/sh", "-c", f"umask 077; exec {LINKS}/talks ++group=a start")
        self.assertEqual(host.read_lines("/tmp/umask"), ["0077"])


if __name__ == "__main__":
    host_case.main()
