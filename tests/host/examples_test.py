"""The examples: what their pages show happens; each file of the sample host says what it is for."""

import glob
import os
import re
import shlex
import shutil
import subprocess
import unittest

import host_case
import image
from host_case import HostCase, starting
from root_folder import PLUGINS
from sample_host_test import BUILD, PROJECT, DemoCase

MINIMAL = f"{PROJECT}/examples/minimal"


def text_of(path):
    with open(f"{PROJECT}/{path}", encoding="utf-8") as file:
        return file.read()


def shown(page, command):
    """What a page shows below a command line of a terminal, as lines."""
    lines = page[page.index(f"    $ {command}"):].split("\n")[1:]
    end = next(at for at, line in enumerate(lines) if not line.startswith("    "))
    return [line[4:] for line in lines[:end]]


def demo_words(text):
    """The arguments of the first call of the demo in a text, which may go over lines."""
    call = re.search(r"scripts/demo ((?:.*\\\n)*.*)", text).group(1)
    return shlex.split(call.replace("\\\n", " "))


class Minimal(DemoCase):
    page = text_of("examples/minimal/README.md")

    def analyze(self, *words):
        done = subprocess.run([f"{BUILD}/bootforge-analyze", *words], stdout=subprocess.PIPE,
                              cwd=PROJECT, text=True, check=False, timeout=60,
                              env={**os.environ, "COLUMNS": "80"})
        return done.stdout.splitlines()

    def test_verify_says_what_the_page_shows(self):
        found = self.analyze("verify", "--root", "examples/minimal", "--owner", str(os.getuid()))
        first, dots, last = shown(self.page, "bootforge-analyze verify")
        self.assertEqual((found[0], dots, found[-1]), (first, "...", last))

    def test_plan_says_what_the_page_shows(self):
        self.assertEqual(self.analyze("plan", "--root", "examples/minimal"),
                         shown(self.page, "bootforge-analyze plan"))

    def test_it_boots_as_the_page_says(self):
        words = [f"{PROJECT}/{word}" if word.startswith("examples/") else word
                 for word in demo_words(self.page)]
        demo = self.demo(*words)
        self.assertEqual(demo.finish(), 0)
        self.assertIn("2 activated, 0 failed, 0 passed over", demo.text)
        kept, = glob.glob(f"{self.folder}/bootforge-demo.*/root/srv/greeting/hello")
        with open(kept, encoding="utf-8") as file:
            self.assertEqual(file.read().splitlines(), shown(self.page, "cat "))


class ContinuousIntegration(DemoCase):
    def boot(self, folder):
        words = demo_words(text_of("examples/ci/boot-plugins.yml"))
        return self.demo(*(word.replace("$IMAGE", folder) for word in words))

    def test_the_workflow_passes_an_image_whose_plugins_succeed(self):
        self.assertEqual(self.boot(MINIMAL).finish(), 0)

    def test_the_workflow_fails_for_a_plugin_that_fails(self):
        folder = f"{self.folder}/image"
        shutil.copytree(MINIMAL, folder)
        path = f"{folder}{PLUGINS}/greeting-folder.json"
        with open(path, encoding="utf-8") as file:
            text = file.read()
        with open(path, "w", encoding="utf-8") as file:
            file.write(text.replace("/srv/greeting", "/proc/greeting"))
        demo = self.boot(folder)
        self.assertEqual(demo.finish(), 1)
        self.assertIn("0 activated, 2 failed", demo.text)

    def test_the_page_shows_the_call_of_the_workflow(self):
        self.assertEqual([word.replace("$IMAGE", "image") for word in demo_words(
            text_of("examples/ci/boot-plugins.yml"))], demo_words(text_of("examples/ci/README.md")))

    def test_commands_without_plugins_are_refused(self):
        demo = self.demo("--commands", f"{MINIMAL}/usr/lib/nimbus/hypcli", makes_host=False)
        self.assertEqual(demo.finish(), 2)
        self.assertEqual(demo.text, "demo: --commands goes with --plugins: the sample host has no "
                                    "use for commands of yours\n")


class RustPlugin(HostCase):
    def host_with_plugin(self):
        path = f"{BUILD}/examples/native/libmount_report.so"
        if not os.path.exists(path):
            self.skipTest("it was not built: there is no rustc")
        host = self.host()
        for library in image.libraries(path):
            image.add_library(host.root, library)
        with open(path, "rb") as file:
            host.write(f"{PLUGINS}/libmount_report.so", file.read())
        return host

    def test_its_records_are_read_and_its_entry_runs(self):
        host = self.host_with_plugin()
        host.plugin("storage", provides=["storage-ready"])
        host.plugin("after", requires=["mounts-written"])
        boot = host.boot()
        self.assertEqual(boot.status, 0)
        order = [(level, text.partition("\n")[0]) for level, text in boot.messages]
        self.assertEqual([message for message in order if message[1].startswith("executing")],
                         [starting("storage"), starting("mount_report"), starting("after")])
        if b"No such file or directory" in boot.stderr:
            self.skipTest("no private mounts can be had here, so the host has no /proc")
        self.assertIn(b"mount_report: ", boot.stdout)
        self.assertIn(b"/proc proc\n", host.read("/var/lib/nimbus/mounts"))

    def test_an_error_is_told_and_fails_the_plugin(self):
        host = self.host_with_plugin()
        host.write("/var/lib/nimbus", "no folder")
        boot = host.boot()
        self.assertIn(("error", "Method invocation failed: mount_report->start() failed: "
                                "exited with code 1"), boot.messages)
        self.assertRegex(boot.stderr, rb"mount_report: .*\(os error \d+\)\n")

    def test_its_flag_leaves_it_out(self):
        host = self.host_with_plugin()
        boot = host.boot("--plugin-flags=no-inventory")
        self.assertIn(("warning", "ignoring plugin 'mount_report', disabled due to boot flags: "
                                  "no-inventory ."), boot.messages)


class SampleHost(unittest.TestCase):
    def test_every_file_says_what_it_is_for(self):
        page = text_of("examples/README.md")
        without = page[page.index("### Files without a comment"):].split("\n## ")[0]
        silent = []
        for folder, _, names in os.walk(f"{PROJECT}/examples/host"):
            for name in names:
                path = os.path.relpath(f"{folder}/{name}", f"{PROJECT}/examples/host")
                if os.path.islink(f"{folder}/{name}") or f"`{path}`" in without:
                    continue
                with open(f"{folder}/{name}", encoding="utf-8") as file:
                    head = [next(file, "") for _ in range(2)]
                # A first line that names an interpreter is no comment. "###" begins the header of
                # a distribution's init script, which has a description.
                if not any(re.match(r'(//|#|<!--|/\*) ?["\w]|### ', line) for line in head):
                    silent.append(path)
        self.assertEqual(silent, [])

    def test_files_in_the_table_without_comments_are_there(self):
        page = text_of("examples/README.md")
        table = page[page.index("### Files without a comment"):].split("\n## ")[0]
        for path in re.findall(r"^\| (`.*?) \|", table, re.M):
            for name in re.findall(r"`(.*?)`", path):
                self.assertTrue(os.path.isfile(f"{PROJECT}/examples/host/{name}"), name)


if __name__ == "__main__":
    host_case.main()
