"""The command /usr/bin/hypcli: the same commands as in a boot, at a shell."""

import os
import signal

import host_case
from host_case import LAUNCHING, SETTING_UP, STOPPED, HostCase, starting
from root_folder import COMMANDS

HYPCLI = "/usr/bin/hypcli"


class Hypcli(HostCase):
    def assert_run(self, host, words, status, stdout=b"", stderr=b""):
        run = host.run(HYPCLI, *words)
        self.assertEqual((run.stdout, run.stderr, run.status), (stdout, stderr, status))

    def test_it_shows_the_output_of_a_command_and_ends_with_0(self):
        host = self.host()
        host.command("show text", ["/bin/echo", "{text}", "and", "more={more}"],
                     text={"required": True}, more={"short": "m"})
        self.assert_run(host, ["show", "text", "--text=a b"], 0, b"a b and\n")
        self.assert_run(host, ["show", "text", "--text", "x", "-m", "y"], 0, b"x and more=y\n")
        self.assertEqual(host.processes(), [])

    def test_its_arguments_are_words_as_they_are(self):
        host = self.host()
        odd = "it's \"odd\" \\ $HOME \udcff"
        self.assert_run(host, ["note", "add", "--text", odd], 0)
        self.assertEqual(host.notes(), [odd])

    def test_a_failing_command_tells_its_errors_and_ends_with_1(self):
        host = self.host()
        path = host.shell_command("fail now", "echo shown; echo one >&2; echo two >&2; exit 7\n")
        self.assert_run(host, ["fail", "now"], 1, b"shown\n",
                        f"one\ntwo\n{path} exited with code 7\n".encode())
        host.shell_command("fail now", "kill -9 $$\n")
        self.assert_run(host, ["fail", "now"], 1, b"",
                        f"{path} was killed by signal 9\n".encode())

    def test_a_command_that_is_not_there_is_no_success(self):
        for words in (["no", "such"], ["note", "take"], ["note", "add", "--color=x"],
                      ["note", "add"]):
            with self.subTest(words):
                host = self.host()
                run = host.run(HYPCLI, *words)
                self.assertIn(run.status, (1, 2))
                self.assertNotEqual(run.stderr, b"")
                self.assertEqual(host.notes(), [])

    def test_the_list_for_programs_is_lines_of_six_fields(self):
        host = self.host()
        host.write(f"{COMMANDS}/net.json", """{"namespace": "network ip", "commands": {
            "set": {"summary": "one\\ttwo\\nthree", "exec": ["/bin/true", "{mtu}"], "parameters": {
                "mtu": {"short": "m", "required": true, "summary": "bytes"},
                "force": {"flag": true}}}}}""")
        self.assert_run(host, ["--list"], 0, b"network ip set\t\t\t\t\tone two three\n"
                        b"network ip set\t--mtu\t-m\tvalue\trequired\tbytes\n"
                        b"network ip set\t--force\t\tflag\toptional\t\n"
                        b"note add\t\t\t\t\t\nnote add\t--text\t-t\tvalue\trequired\t\n")

    def test_it_lists_namespaces_and_commands(self):
        host = self.host()
        host.command("network ip set", ["/bin/true"], address={"required": True})
        host.command("network ip show", ["/bin/true"])
        everything = host.run(HYPCLI)
        self.assertEqual((everything.status, everything.stderr), (0, b""))
        for word in (b"network", b"note"):
            self.assertIn(word, everything.stdout)
        inside = host.run(HYPCLI, "network", "ip")
        self.assertEqual((inside.status, inside.stderr), (0, b""))
        for word in (b"set", b"show"):
            self.assertIn(word, inside.stdout)
        self.assertNotIn(b"note", inside.stdout)
        one = host.run(HYPCLI, "network", "ip", "set", "--help")
        self.assertEqual((one.status, one.stderr), (0, b""))
        self.assertIn(b"address", one.stdout)
        self.assertEqual(host.run(HYPCLI, "--help").status, 0)

    def test_a_bad_command_file_is_named_and_the_others_serve(self):
        host = self.host()
        host.write(f"{COMMANDS}/bad.json", "[]")
        run = host.run(HYPCLI, "note", "add", "-t", "good")
        self.assertEqual(run.status, 0)
        self.assertEqual(host.notes(), ["good"])
        told = run.stdout + run.stderr + b"\n".join(host.system_log.messages)
        self.assertIn(f"{COMMANDS}/bad.json".encode(), told)

    def test_a_folder_of_commands_that_cannot_be_read_is_named_and_the_others_serve(self):
        host = self.host()
        host.remove(f"{COMMANDS}/ext")
        os.symlink("ext", host.path(f"{COMMANDS}/ext"))
        listed = host.run(HYPCLI)
        self.assertEqual((listed.status, listed.stdout), (0, b"Namespaces:\n  note\n"))
        self.assertEqual(listed.stderr.decode(), f"hypcli: warning: {COMMANDS}/ext: Too many "
                         "levels of symbolic links\n")

    def test_it_and_a_boot_run_the_same_command_the_same_way(self):
        host = self.host()
        host.command("show args", ["/bin/sh", "-c", 'for a; do echo "[$a]"; done >>/tmp/notes',
                                   "sh", "{one}", "-x={two}", "{{}}"], f"{COMMANDS}/ext",
                     one={"short": "o"}, two={"flag": True})
        self.assert_run(host, ["show", "args", "-o", "1 2", "--two"], 0)
        host.plugin("only", start=["show args -o '1 2' --two"])
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, starting("only"), STOPPED])
        self.assertEqual(host.notes(), ["[1 2]", "[-x=true]", "[{}]"] * 2)

    def test_programs_get_three_streams_and_no_more(self):
        host = self.host()
        host.shell_command("hold on", "exec sleep 3600\n")
        secret = os.open("/dev/null", os.O_RDONLY)
        run = host.start(HYPCLI, "hold", "on", extra={9: secret, 200: secret})
        os.close(secret)
        program, = host.wait_for(lambda: host.processes("sleep", "3600"), "the program")
        self.assertEqual(sorted(program.descriptors()), [0, 1, 2])
        self.assertEqual(program.signals("SigIgn") | program.signals("SigBlk"), set())
        program.signal(signal.SIGKILL)
        self.assertEqual(host.finish(run).status, 1)

    def test_an_output_that_nobody_reads_ends_it(self):
        host = self.host()
        host.shell_command("talk on", "while echo more; do :; done\n")
        reader, writer = os.pipe()
        os.close(reader)
        run = host.run(HYPCLI, "talk", "on", stdout=writer)
        os.close(writer)
        self.assertIn(run.status, (0, 1))
        host.wait_for_emptiness()


if __name__ == "__main__":
    host_case.main()
