"""What the documents show, taken from them and run."""

import json
import os
import re
import shutil
import subprocess
import textwrap
import unittest

import host_case
from root_folder import COMMANDS, EXECUTOR_LOG, PLUGINS, PROFILE, RECORD

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
ESCAPES = {"-": "-", "(dq": '"', "(aq": "'", "e": "\\"}


def document(path):
    with open(f"{PROJECT}/{path}", encoding="utf-8") as file:
        return file.read()


def shown_by_page(path):
    """The examples of a manual page, as they are shown."""
    blocks = re.findall(r"^\.EX\n(.*?)^\.EE$", document(path), re.M | re.S)
    return [textwrap.dedent(re.sub(r"\\(-|\(dq|\(aq|e)", lambda found: ESCAPES[found[1]], block))
            for block in blocks]


def shown_in_json(path):
    """The examples of a page in Markdown that are JSON, without their comments."""
    blocks = re.findall(r"^```json\n(.*?)^```$", document(path), re.M | re.S)
    return [json.loads(re.sub(r"^\s*//.*$", "", block, flags=re.M)) for block in blocks]


def the_one_with(text, blocks):
    found = [block for block in blocks if text in block]
    assert len(found) == 1, f"{text!r} stands in {len(found)} examples"
    return found[0]


class DocumentsCase(host_case.HostCase):
    def shell(self, host, script):
        """What a recipe writes; it succeeds and complains of nothing."""
        done = host.run("/bin/sh", "-c", script)
        self.assertEqual((done.stderr, done.status), (b"", 0), script)
        return done.stdout.decode()

    def recipe(self, text):
        return the_one_with(text, shown_by_page("docs/bootforge.8"))


class RunOnceRecord(DocumentsCase):
    def host_that_counts(self):
        host = self.host()
        host.plugin("net", version=3, run_once=True, plugin_version="1.2",
                    start=["note add --text=net"])
        return host

    def test_the_recipe_takes_one_key_out_wherever_it_stands(self):
        again = self.recipe("sed 's/\\([=,]")
        for before, after in (("net1.2,ssh4,", "ssh4,"), ("subnet1.2,net1.2,ssh4,",
                                                          "subnet1.2,ssh4,"),
                              ("net1x2,net1.21,subnet1.2,", None), ("a1,net1.2,", "a1,"),
                              ("net1.2,", "")):
            with self.subTest(before):
                host = self.host()
                self.shell(host, f"printf 'bootforge.run-once={before}\\n' | gzip > {RECORD}")
                self.shell(host, again)
                self.assertEqual(host.record().strip(),
                                 f"bootforge.run-once={before if after is None else after}")

    def test_the_plugin_whose_key_is_out_runs_again(self):
        host = self.host_that_counts()
        invoke = ["--invoke", "--method=start", "--plugin=net.json"]
        for expected in (["net"], ["net"]):
            self.assertEqual(host.boot(*invoke).status, 0)
            self.assertEqual(host.notes(), expected)
        self.shell(host, self.recipe("sed 's/\\([=,]"))
        self.assertEqual(host.boot(*invoke).status, 0)
        self.assertEqual(host.notes(), ["net", "net"])

    def test_the_lines_for_init_hand_it_to_the_boot(self):
        host = self.host_that_counts()
        for _ in range(2):
            self.shell(host, self.recipe("keys=$(zcat"))
            host.wait_for_executor_end()
        self.assertEqual(host.notes(), ["net"])
        self.assertEqual(host.boot().status, 0)
        self.assertEqual(host.notes(), ["net", "net"], "a boot that is told nothing")

    def test_the_boot_script_of_the_sample_host_hands_it_on(self):
        host = self.host_that_counts()
        host.write("/etc/init.d/boot", document("examples/host/etc/init.d/boot"), 0o755)
        for _ in range(2):
            self.shell(host, "/etc/init.d/boot --trace")
            host.wait_for_executor_end()
        self.assertEqual(host.notes(), ["net"])

    def test_a_plain_run_of_one_plugin_forgets_the_others(self):
        host = self.host_that_counts()
        host.plugin("ssh", version=3, run_once=True, plugin_version="4")
        self.assertEqual(host.boot().status, 0)
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,ssh4,\n")
        self.assertEqual(host.boot("--dump-dependency-tree=/dev/null").status, 0)
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,ssh4,\n")
        self.assertEqual(host.boot("--invoke", "--method=start", "--plugin=ssh.json").status, 0)
        self.assertEqual(host.record(), "bootforge.run-once=net1.2,ssh4,\n")
        self.assertEqual(host.boot("--plugin=ssh.json").status, 0)
        self.assertEqual(host.record(), "bootforge.run-once=ssh4,\n")

    def test_the_sample_host_keeps_a_key_that_it_has(self):
        host = self.host()
        host.write("/bin/key-make", document("examples/host/usr/lib/nimbus/host/key-make"), 0o755)
        host.script("/usr/bin/openssl", 'echo "$*" >"$5"\n')
        for kind in ("ED25519", "RSA"):
            self.shell(host, f"/bin/key-make {kind} /tmp/key")
        self.assertEqual(host.read_lines("/tmp/key"),
                         ["genpkey -algorithm ED25519 -out /tmp/key.new"])
        self.assertEqual(os.stat(host.path("/tmp/key")).st_mode & 0o777, 0o600)


class Recipes(DocumentsCase):
    def test_the_longest_plugins_are_listed_without_those_that_did_not_run(self):
        host = self.host()
        times = {"quick": ("2026-03-05 07:04:09.000000", "2026-03-05 07:04:09.250000"),
                 "skipped": ("2026-03-05 07:04:09.000000", "1970-01-01 00:00:00.000000"),
                 "left out": ("1970-01-01 00:00:00.000000", "1970-01-01 00:00:00.000000"),
                 "over night": ("2026-03-05 23:59:59.000000", "2026-03-06 00:00:01.500000")}
        host.write(PROFILE, "HVKernel Initialization Time: 1000000\n" + "".join(
            f"[{start} - {end}] sysboot: {name}\n" for name, (start, end) in times.items()) +
            "=== Bootforge configuration info ===\n Start: 2026-03-05 07:04:08.000000\n")
        self.assertEqual(self.shell(host, self.recipe("awk")),
                         "    2.500 over night\n    0.250 quick\n")

    def test_a_description_is_checked_without_being_run(self):
        host = self.host()
        host.plugin("net", start=["note add --text=net"])
        self.shell(host, self.recipe("--dump-dependency-tree=/dev/null"))
        host.wait_for_executor_end()
        self.assertEqual((host.notes(), host.exists(PROFILE), host.exists(RECORD)),
                         ([], False, False))

    def test_the_reasons_of_a_failed_plugin_are_found(self):
        host = self.host()
        program = host.shell_command("fail now", "echo why >&2; exit 3\n")
        host.plugin("bad", start=["fail now"])
        self.assertEqual(host.boot().status, 0)
        found = self.shell(host, self.recipe(f"grep -e error {EXECUTOR_LOG}"))
        self.assertEqual([line.partition("]: ")[2] for line in found.splitlines()],
                         ["execution of 'fail now' failed : why",
                          f"execution of 'fail now' failed : {program} exited with code 3"])


class Examples(DocumentsCase):
    def check_command_file(self, text):
        """The command file that both pages show, and the line beside it."""
        host = self.host()
        host.write(f"{COMMANDS}/storage.json", text)
        host.script("/usr/bin/install", 'for word; do echo "$word"; done >/tmp/words\n')
        self.shell(host, "hypcli storage directory make -p /srv/data --mode=0750")
        self.assertEqual(host.read_lines("/tmp/words"),
                         ["--directory", "--mode=0750", "/srv/data"])
        self.assertIn("--owner=VALUE", self.shell(host, "hypcli storage directory make --help"))

    def test_the_command_file_of_the_page_about_hypcli_does_what_it_says(self):
        self.check_command_file(the_one_with('"namespace"', shown_by_page("docs/hypcli.1")))
        self.assertIn(r"hypcli storage directory make \-p /srv/data \-\-mode=0750",
                      document("docs/hypcli.1"))

    def test_the_command_file_of_the_page_about_plugins_does_what_it_says(self):
        shown = [block for block in shown_in_json("docs/plugins.md") if "namespace" in block]
        self.assertEqual(len(shown), 1)
        self.check_command_file(json.dumps(shown[0]))
        self.assertIn("`/usr/bin/install --directory --mode=0750 /srv/data`",
                      document("docs/plugins.md"))

    def test_the_descriptions_use_commands_of_the_sample_host_as_they_are(self):
        shown = [block for block in shown_in_json("docs/plugins.md") if "metadata" in block]
        self.assertEqual([block["metadata"]["version"] for block in shown], [1, 2, 3, 4])
        shown += [json.loads(re.sub(r"^//.*$", "", block, flags=re.M))
                  for block in shown_by_page("docs/bootforge-plugins.5") if '"metadata"' in block]
        host = self.host()
        shutil.copytree(f"{PROJECT}/examples/host{COMMANDS}", host.path(COMMANDS),
                        dirs_exist_ok=True)
        for number, block in enumerate(shown):
            host.write(f"{PLUGINS}/number{number}.json", json.dumps(block))
        done = host.run("/usr/bin/bootforge-analyze", "verify", "--format", "json",
                        "--plugin-flags=production")
        findings = json.loads(done.stdout)["findings"]
        here = [found for found in findings if "/plugins/" in found["file"]
                and found["rule"] not in ("milestone-unprovided", "plugin-left-out")]
        self.assertEqual(here, [])

    def check_native_plugin(self, source, build):
        """The plugin that both pages show, built as they say, takes part in a boot."""
        self.assertIn('puts("hello")', source)
        self.assertEqual(build, "cc -shared -fPIC -o libhello.so hello.c")
        host = self.host()
        host.write("/tmp/hello.c", source)
        done = subprocess.run([*build.split(), f"-I{PROJECT}/include"], cwd=host.path("/tmp"),
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        shutil.copy(host.path("/tmp/libhello.so"), host.path(PLUGINS))
        boot = host.boot()
        self.assertEqual(boot.status, 0)
        self.assertIn(b"hello\n", boot.stdout)
        self.assert_profiled(host, ["hello"])

    @unittest.skipUnless(shutil.which("cc"), "there is no C compiler here")
    def test_the_native_plugin_of_both_pages_says_hello(self):
        shown = re.findall(r"(?:^    .*\n|^\n)+", document("docs/native-plugins.md"), re.M)
        shown = [textwrap.dedent(block).strip("\n") for block in shown]
        build = the_one_with("cc -shared", shown).partition("\n")[0]
        self.check_native_plugin(the_one_with("puts(", shown), build)
        shown = shown_by_page("docs/bootforge-native.3")
        self.check_native_plugin(the_one_with("puts(", shown), the_one_with("cc -shared", shown).strip())


class Adoption(DocumentsCase):
    """The examples of bootforge-adopt(8), in their order, on a host of busybox's init."""

    INITTAB = "::sysinit:/etc/init.d/rcS\n::shutdown:/bin/umount -a -r\n"

    def test_each_example_of_the_page_does_what_it_says(self):
        look_and_adopt, after_scripts, back, rescue = shown_by_page("docs/bootforge-adopt.8")
        host = self.host()
        os.makedirs(host.path("/sbin"), exist_ok=True)
        os.symlink("/bin/busybox", host.path("/sbin/init"))
        host.write("/etc/inittab", self.INITTAB)
        host.write("/etc/init.d/cron", "#!/bin/sh\n# chkconfig: 2345 10 10\n", 0o755)
        told = self.shell(host, look_and_adopt)
        self.assertIn("\n+::sysinit:/usr/sbin/bootforge --daemon=wait --method=start", told)
        self.assertTrue(told.endswith("/init.d: 1 launcher in place\n"), told)
        host.write("/etc/init.d/web", "#!/bin/sh\n# chkconfig: 2345 20 10\n", 0o755)
        self.assertIn("made 1 launcher in ", self.shell(host, after_scripts))
        self.assertIn("2 launchers in place", self.shell(host, after_scripts))
        self.assertEqual(self.shell(host, "bootforge --daemon=wait --method=start | "
                                    "grep -c 'started\\.$'"), "2\n")
        self.shell(host, back)
        self.assertEqual(host.read("/etc/inittab").decode(), self.INITTAB)
        self.assertEqual(sorted(host.listing("/usr/lib/nimbus/bootforge")),
                         ["chkconfig", "launch", "nativeExecutor"])
        self.shell(host, look_and_adopt)
        self.shell(host, rescue)
        self.assertEqual(host.read("/etc/inittab").decode(), self.INITTAB)
        self.shell(host, back)
        self.assertFalse(host.exists("/bin/chkconfig"))

    def test_the_commands_of_the_guide_are_those_of_the_page(self):
        guide = document("docs/adopt.md")
        for block in shown_by_page("docs/bootforge-adopt.8"):
            for line in block.splitlines():
                if "||" not in line:
                    self.assertIn(f"    {line}\n", guide)


if __name__ == "__main__":
    host_case.main()
