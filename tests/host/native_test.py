"""Native plugins through the installed native executor."""

import os
import signal
import subprocess
import tempfile

import host_case
from host_case import HostCase, activation
from root_folder import PLUGINS

EXECUTOR = "/usr/lib/nimbus/bootforge/nativeExecutor"
HEADER = os.path.join(os.path.dirname(__file__), "../../include")
RECORDS = """
#include <bootforge/plugin.h>
{more}
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {{
    .api_version = {version}, .provides = (const char* const[]){{{provides} NULL}}}};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {{{entries}}};
"""


class NativeCase(HostCase):
    """Plugins are compiled by the test, as their authors do it."""

    def shared_object(self, host, name, entries="", version=1, more="", path=None, provides=()):
        with tempfile.TemporaryDirectory() as folder:
            source, target = f"{folder}/plugin.c", f"{folder}/plugin.so"
            with open(source, "w", encoding="utf-8") as file:
                file.write(RECORDS.format(entries=entries, version=version, more=more,
                                          provides="".join(f'"{each}",' for each in provides)))
            subprocess.run(["cc", "-shared", "-fPIC", "-I", HEADER, "-o", target, source],
                           check=True)
            with open(target, "rb") as file:
                host.write(path or f"{PLUGINS}/lib{name}.so", file.read())

    def entry(self, body, name="entry"):
        return f"#include <signal.h>\n#include <stdio.h>\n#include <stdlib.h>\n" \
               f"#include <unistd.h>\nstatic int {name}(void) {{ {body} }}\n"


class NativePlugins(NativeCase):
    def failure(self, host, process, name, reason):
        whole = f"{name}->start() failed: {reason}"
        self.assertIn(("error", f"Method invocation failed: {whole}"), process.messages)
        for record in activation(name, whole):
            self.assertIn(record, host.kernel_log())

    def test_a_plugin_runs_in_a_process_of_its_own_on_our_streams(self):
        host = self.host()
        self.shared_object(host, "works", "entry", more=self.entry(
            'printf("said by the plugin\\n"); fflush(stdout); return 0;'))
        process = host.boot()
        self.assertEqual(process.status, 0)
        self.assertIn(b"said by the plugin\n", process.stdout)
        self.assertIn(b"executing start plugin: works\n", process.stdout)
        self.assertEqual(host.kernel_log(), activation("works"))

    def test_each_bad_end_has_its_reason_and_the_others_run(self):
        host = self.host()
        # A sanitizer's handler would make an exit of the crash.
        bodies = {"one": "return 1;", "big": "return 512;", "minus": "return -1;",
                  "crash": "signal(SIGSEGV, SIG_DFL); raise(SIGSEGV); return 0;", "leaves": "exit(7);",
                  "fine": "return 0;"}
        for name, body in bodies.items():
            self.shared_object(host, name, "entry", more=self.entry(body))
        self.shared_object(host, "noentry")
        process = host.boot("--parallel")
        self.assertEqual(process.status, 0)
        for name, reason in (("one", "exited with code 1"), ("big", "exited with code 1"),
                             ("minus", "exited with code 255"),
                             ("crash", f"exited with signal: {signal.SIGSEGV.value}"),
                             ("leaves", "exited with code 7"),
                             ("noentry", "exited with code 127")):
            self.failure(host, process, name, reason)
        self.assertEqual(process.stderr, b"nativeExecutor: noentry: no entry for the method\n")
        for record in activation("fine"):
            self.assertIn(record, host.kernel_log())

    def test_a_host_profile_is_applied_from_version_two_on(self):
        host = self.host()
        host.write("/etc/nimbus/hostprofile.xml", "<profile/>\n")
        more = (self.entry('puts("started"); return 0;') +
                self.entry('puts("applied"); return 0;', "apply"))
        self.shared_object(host, "old", "entry, apply", 1, more)
        self.shared_object(host, "new", "entry, apply", 2, more)
        self.shared_object(host, "plain", "entry", 2, self.entry('puts("started"); return 0;'))
        process = host.boot()
        words = [line for line in process.stdout.decode().splitlines()
                 if line in ("started", "applied")]
        self.assertEqual(sorted(words), ["applied", "started", "started"])
        self.assertIn(b"executing host profile plugin: new\n", process.stdout)
        self.assertIn(b"executing start plugin: plain\n", process.stdout)

    def test_what_is_no_plugin_is_reported_and_the_boot_goes_on(self):
        host = self.host()
        host.plugin("good", start=["note add --text=good"])
        host.write(f"{PLUGINS}/libtext.so", "text " * 100)
        host.write(f"{PLUGINS}/libempty.so", "")
        os.mkdir(host.path(f"{PLUGINS}/libfolder.so"))
        os.mkfifo(host.path(f"{PLUGINS}/libpipe.so"))
        os.symlink("nowhere", host.path(f"{PLUGINS}/liblink.so"))
        self.shared_object(host, "five", "0", 5)
        process = host.boot()
        self.assertEqual(process.status, 0)
        self.assertEqual(host.notes(), ["good"])
        for name, reason in (("text", "invalid ELF header"), ("empty", "file too short"),
                             ("folder", "cannot read file data: Is a directory"),
                             ("pipe", "cannot open shared object file: No such device or address"),
                             ("link", "cannot open shared object file: No such file or directory")):
            path = f"{PLUGINS}/lib{name}.so"
            text = (f"exception occurred whilst loading plugin lib{name}.so: plugin `{path}' is "
                    f"invalid: {path}: {reason}")
            self.assertIn(("warning", text), process.messages)
            self.assertIn(f"<1>bootforge: {text}", host.kernel_log())
        self.assertIn(("warning", "exception occurred whilst loading plugin libfive.so: plugin "
                                  f"`{PLUGINS}/libfive.so' is invalid: Unsupported API version"),
                      process.messages)

    def test_the_program_has_default_signals_and_three_descriptors(self):
        host = self.host()
        self.shared_object(host, "waits", "entry", more=self.entry("pause(); return 0;"))
        reader, writer = os.pipe()
        process = host.start("/usr/sbin/bootforge", extra={7: writer})
        os.close(writer)
        child, = host.wait_for(lambda: host.processes(EXECUTOR, "start"), "the native executor")
        host.wait_for(lambda: child.signals("SigIgn") == set() and
                      list(child.descriptors()) == [0, 1, 2], "the plugin to have been loaded")
        self.assertEqual(child.signals("SigBlk"), set())
        child.signal(signal.SIGTERM)
        host.finish(process)
        host.wait_for_executor_end()
        os.close(reader)
        self.failure(host, process, "waits", "exited with signal: 15")


class NativeExecutor(NativeCase):
    def refusal(self, host, *words):
        process = host.run(EXECUTOR, *words)
        self.assertEqual(process.status, 127)
        self.assertEqual(process.stdout, b"")
        self.assertEqual(process.stderr.count(b"\n"), 1)
        return process.stderr.decode()

    def test_what_cannot_be_called_is_one_line_and_status_127(self):
        host = self.host()
        path = "/tmp/plugin.so"
        self.shared_object(host, "x", "entry", more=self.entry("return 0;"), path=path)
        self.assertEqual(self.refusal(host, path, "x", "restart"),
                         "nativeExecutor: x: unknown method\n")
        self.assertEqual(self.refusal(host, path, "x", "apply_host_profile"),
                         "nativeExecutor: x: no entry for the method\n")
        self.assertIn("No such file or directory", self.refusal(host, "/none.so", "x", "start"))
        self.assertIn("usage", self.refusal(host, path))
        host.write("/tmp/bare.so", host.read(path).replace(b"operations\0", b"0perations\0"))
        self.refusal(host, "/tmp/bare.so", "x", "start")
        self.assertEqual(host.run(EXECUTOR, path, "x", "start").status, 0)


if __name__ == "__main__":
    host_case.main()
