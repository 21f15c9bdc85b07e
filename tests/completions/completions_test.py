#!/usr/bin/env python3
"""Completion of the programs in bash, zsh and fish: what each offers for a line.

completions_test.py BUILD IMAGE: the folder of the programs, and the image of the scratch hosts.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import shells

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
SKIPPED = 77
BUILD = IMAGE = ""
PLUGINS = "usr/libexec/bootforge/plugins"
COMMANDS = "usr/lib/nimbus/hypcli"


def description(requires=(), provides=(), **metadata):
    metadata = {"version": 3, "requires": list(requires), "provides": list(provides),
                "run_once": False, "plugin_version": "1", **metadata}
    return json.dumps({"metadata": metadata, "operations": {"start": []}})


# A name that a shell must not run.
DANGEROUS = "$(touch came-to-pass)"

FILES = {
    f"{PLUGINS}/net.json": description(provides=["net-ready"], required_flags=["production"]),
    f"{PLUGINS}/libnews.json": description(["net-ready"], disabling_flags=["quiet", "no-news"]),
    f"{PLUGINS}/two words.json": description(run_once=True),
    f"{PLUGINS}/keys.json": description(["net-ready"], ["keys-ready"], run_once=True,
                                        plugin_version="2.0"),
    f"{PLUGINS}/{DANGEROUS}.json": description(provides=[DANGEROUS], required_flags=[DANGEROUS]),
    f"{COMMANDS}/network.json": json.dumps({"namespace": "network ip", "commands": {
        "set": {"summary": "Set: [an] address", "exec": ["/bin/touch", "/came-to-pass"],
                "parameters": {"interface": {"short": "i", "required": True},
                               "replace": {"flag": True, "short": "r"}, "mtu": {}}},
        "show": {"exec": ["/bin/touch", "/came-to-pass"], "parameters": {"help": {"flag": True}}},
    }}),
    f"{COMMANDS}/route.json": json.dumps({"namespace": "network", "commands": {
        "route": {"summary": DANGEROUS, "exec": ["/bin/true"]}}}),
    f"{COMMANDS}/int/boot.json": json.dumps({"namespace": "boot", "commands": {
        "log": {"exec": ["/bin/true"]}}}),
}


def help_of(program, *words):
    return subprocess.run([f"{BUILD}/{program}", *words, "--help"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=True, timeout=60).stdout


def options_in(text):
    """The long options at the heads of the lines of a help."""
    return set(re.findall(r"^ +(?:-h, *)?(--[a-z-]+)", text, re.M))


def options_of(words):
    return {word.rstrip("=") for word in words if word.startswith("--")}


class Completion:
    """Passed for each shell by a class below."""

    SHELL = None

    @classmethod
    def setUpClass(cls):
        if not shutil.which(cls.SHELL.NAME):
            raise unittest.SkipTest(f"there is no {cls.SHELL.NAME} here")
        cls.root = tempfile.mkdtemp(prefix="bootforge-completions.")
        cls.addClassCleanup(shutil.rmtree, cls.root)
        host = f"{cls.root}/host"
        shutil.copytree(f"{IMAGE}/root", host, symlinks=True)
        for name, text in FILES.items():
            os.makedirs(os.path.dirname(f"{host}/{name}"), exist_ok=True)
            with open(f"{host}/{name}", "w", encoding="utf-8") as file:
                file.write(text)
        os.makedirs(f"{cls.root}/bin")
        os.symlink(f"{BUILD}/bootforge-analyze", f"{cls.root}/bin/bootforge-analyze")
        os.symlink(f"{BUILD}/bootforge", f"{cls.root}/bin/bootforge")
        os.symlink(f"{BUILD}/bootforge-adopt", f"{cls.root}/bin/bootforge-adopt")
        # hypcli reads the commands of its own root only.
        chroot = shutil.which("chroot", path=f"{os.environ['PATH']}:/usr/sbin:/sbin")
        inside = chroot if os.geteuid() == 0 else f"unshare --map-root-user {chroot}"
        with open(f"{cls.root}/bin/hypcli", "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\nexec {inside} {host} /usr/bin/hypcli "$@"\n')
        os.chmod(f"{cls.root}/bin/hypcli", 0o755)
        cls.host = host
        cls.here = f"{cls.root}/here"
        os.makedirs(f"{cls.here}/folder")
        with open(f"{cls.here}/file", "w", encoding="utf-8"):
            pass
        environment = {"PATH": f"{cls.root}/bin:{os.environ['PATH']}:/usr/sbin:/sbin",
                       "HOME": cls.root, "TERM": "dumb", "LANG": "C.UTF-8", "LC_ALL": "C.UTF-8"}
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
            if name in os.environ:
                environment[name] = os.environ[name]
        shell = cls.SHELL(f"{host}/usr/share", environment, cls.here)
        cls.shell = cls.enterContext(shell)

    @classmethod
    def enterContext(cls, context):  # as Python has it from 3.11 on
        entered = context.__enter__()
        cls.addClassCleanup(context.__exit__, None, None, None)
        return entered

    def tearDown(self):
        for place in (self.host, self.here):
            self.assertFalse(os.path.exists(f"{place}/came-to-pass"), "completion ran something")

    def offered(self, line):
        return self.shell.complete(line)

    def assert_offered(self, line, expected):
        self.assertEqual(self.offered(line), set(expected), line)

    def assert_files(self, line, expected):
        self.assertEqual({word.rstrip("/") for word in self.offered(line)}, expected, line)

    def need_hypcli(self):
        done = subprocess.run([f"{self.root}/bin/hypcli", "--list"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False, timeout=60)
        if done.returncode != 0:
            self.skipTest(f"a root cannot be entered here: {done.stderr.strip()}")

    # bootforge-analyze

    def test_the_verbs_of_the_analyzer_are_those_of_its_help(self):
        _, _, table = help_of("bootforge-analyze").partition("Subcommands:")
        verbs = set(re.findall(r"^  ([a-z-]+) ", table, re.M))
        self.assertGreater(len(verbs), 10)
        offered = {word for word in self.offered("bootforge-analyze ") if not word.startswith("-")}
        self.assertEqual(offered, verbs)

    def test_the_options_of_each_verb_are_those_of_its_help(self):
        for verb in ("verify", "simulate", "export", "gate", "fleet", "names"):
            expected = options_in(help_of("bootforge-analyze", verb))
            offered = self.offered(f"bootforge-analyze {verb} --")
            self.assertEqual(options_of(offered), expected, verb)

    def test_values_of_choices_are_offered(self):
        self.assert_offered("bootforge-analyze verify --format ",
                            ["text", "json", "sarif", "github"])
        self.assert_offered("bootforge-analyze verify --fail-on=w", ["warning"])
        self.assert_offered("bootforge-analyze fleet --by ", ["host"])

    def test_plugin_flags_are_those_of_the_image(self):
        for form in ("--root ", "--root="):
            line = f"bootforge-analyze plan {form}{self.host} --plugin-flags="
            self.assert_offered(line, ["production", "quiet", "no-news", DANGEROUS])
        self.assert_offered(line + "production,q", ["production,quiet"])

    def test_plugins_files_and_keys_are_those_of_the_image(self):
        image = f"bootforge-analyze plan --root={self.host}"
        self.assert_offered(f"{image} --disable-plugins n", ["net", "news"])
        self.assert_offered(f"{image} --plugin n", ["net.json"])
        self.assert_offered(f"{image} --plugin=net.json,l", ["net.json,libnews.json"])
        self.assert_offered(f"{image} --run-once k", ["keys2.0"])

    def test_why_and_dot_take_plugins_and_milestones(self):
        image = f"--root={self.host}"
        self.assert_offered(f"bootforge-analyze why {image} ne", ["net", "news", "net-ready"])
        self.assert_offered(f"bootforge-analyze why {image} net k", ["keys", "keys-ready"])
        self.assert_offered(f"bootforge-analyze dot {image} --around ke", ["keys", "keys-ready"])
        self.assert_offered(f"bootforge-analyze critical-chain {image} ne", ["net", "news"])

    def test_a_simulated_change_names_a_plugin(self):
        line = f"bootforge-analyze simulate --root={self.host} --set k"
        self.assert_offered(line, ["keys="])

    def test_names_takes_the_kinds_of_its_help(self):
        kinds = re.search(r"KIND ([a-z|]+)", help_of("bootforge-analyze", "names")).group(1)
        self.assert_offered("bootforge-analyze names ", kinds.split("|"))

    def test_files_are_offered_where_files_are_meant(self):
        self.assert_files("bootforge-analyze diff f", {"file", "folder"})
        self.assert_files("bootforge-analyze plan --root f", {"folder"})

    # bootforge-adopt

    def test_the_verbs_of_the_adopter_are_those_of_its_help(self):
        _, _, table = help_of("bootforge-adopt").partition("Subcommands:")
        verbs = set(re.findall(r"^  ([a-z-]+) ", table, re.M))
        self.assertLessEqual({"enable", "disable", "status"}, verbs)
        offered = {word for word in self.offered("bootforge-adopt ") if not word.startswith("-")}
        self.assertEqual(offered, verbs)
        for verb in verbs:
            expected = options_in(help_of("bootforge-adopt", verb))
            self.assertEqual(options_of(self.offered(f"bootforge-adopt {verb} --")), expected, verb)

    def test_the_adopter_takes_a_folder_for_the_root(self):
        self.assert_files("bootforge-adopt enable --root f", {"folder"})
        self.assert_files("bootforge-adopt disable --force --root f", {"folder"})

    # bootforge

    def test_the_options_of_the_orchestrator_are_those_of_its_help(self):
        # Two options that the help does not tell.
        untold = {"--run-once", "--plugin-directory"}
        with open(f"{PROJECT}/docs/bootforge.8", encoding="utf-8") as page:
            text = page.read().replace("\\-", "-")
        for option in untold:
            self.assertIn(f".BI {option}=", text)
        self.assertEqual(options_of(self.offered("bootforge --")),
                         options_in(help_of("bootforge")) | untold)

    def test_the_orchestrator_takes_names_of_its_plugin_folder(self):
        line = f"bootforge --plugin-directory={self.host}/{PLUGINS}"
        self.assert_offered(f"{line} --plugin=ne", ["net.json"])
        self.assert_offered(f"{line} --disable-plugins=net,ne", ["net,net", "net,news"])
        self.assert_offered(f"{line} --plugin-flags=no", ["no-news"])
        self.assert_offered(f"{line} --run-once=key", ["keys2.0"])

    def test_methods_and_waits_are_offered(self):
        self.assertLessEqual({"start", "apply_host_profile"},
                             self.offered("bootforge --invoke --method="))
        self.assertLessEqual({"start", "stop"}, self.offered("bootforge --daemon --method="))
        self.assert_offered("bootforge --daemon=", ["wait", "nowait"])

    # hypcli

    def test_words_of_command_paths_are_offered(self):
        self.need_hypcli()
        words = {word for word in self.offered("hypcli ") if not word.startswith("-")}
        self.assertEqual(words, {"network", "boot"})
        self.assert_offered("hypcli network ", ["ip", "route"])
        self.assert_offered("hypcli network ip s", ["set", "show"])

    def test_parameters_of_a_command_are_offered(self):
        self.need_hypcli()
        self.assertEqual(options_of(self.offered("hypcli network ip set --")),
                         {"--interface", "--mtu", "--replace", "--help"})
        self.assertEqual(options_of(self.offered("hypcli network ip set --replace --in")),
                         {"--interface"})

    def test_a_value_may_be_a_file(self):
        self.need_hypcli()
        for line in ("hypcli network ip set --interface f", "hypcli network ip set -i f"):
            self.assert_files(line, {"file", "folder"})

    def test_a_command_with_a_parameter_help_is_not_run(self):
        self.need_hypcli()
        self.assertEqual(options_of(self.offered("hypcli network ip show --")), {"--help"})

    def test_options_of_hypcli_are_those_of_its_help(self):
        self.need_hypcli()
        told = set(re.findall(r"hypcli (--[a-z]+)", help_of("hypcli"))) | {"--version"}
        self.assertEqual(options_of(self.offered("hypcli --")), told)


class InBash(Completion, unittest.TestCase):
    SHELL = shells.Bash


class InZsh(Completion, unittest.TestCase):
    SHELL = shells.Zsh


class InFish(Completion, unittest.TestCase):
    SHELL = shells.Fish


if __name__ == "__main__":
    BUILD, IMAGE = (os.path.abspath(path) for path in sys.argv[1:3])
    del sys.argv[1:3]
    program = unittest.main(exit=False)
    ran = program.result.testsRun - len(program.result.skipped)
    sys.exit(1 if not program.result.wasSuccessful() else SKIPPED if ran <= 0 else 0)
