#!/usr/bin/env python3
"""What the verbs over an image have in common, and what only the whole program shows.

verbs_test.py ANALYZER [TEST...]
"""

import fcntl
import os
import pty
import re
import resource
import shutil
import signal
import stat
import struct
import subprocess
import tempfile
import termios

import image
from image import COMMANDS, PLUGINS, ImageCase

VERBS = ["verify", "plan", "why", "dot"]
ESCAPE = "\x1b["


class ExitStatus(ImageCase):
    def test_findings_decide_as_asked(self):
        cases = [(None, [0, 0, 0, 0]), ("note", [0, 0, 0, 0]), ("warning", [0, 0, 1, 0]),
                 ("error", [1, 1, 1, 0])]
        for severity, statuses in cases:
            if severity == "note":
                self.image.plugin("denied")
            elif severity == "warning":
                self.image.plugin("lonely", requires=["nothing"])
            elif severity == "error":
                self.image.put(PLUGINS + "/bad.json", "x")
            options = ["--disable-plugins", "denied"]
            found = [self.verify(*options, *more).status
                     for more in ([], ["--fail-on", "error"], ["--fail-on", "warning"],
                                  ["--fail-on", "never"])]
            self.assertEqual(found, statuses, severity)

    def test_usage_errors_are_two_and_print_nothing(self):
        for arguments in [[], ["unknown"], ["verify", "--unknown"], ["verify", "--format", "xml"],
                          ["verify", "--fail-on", "note"], ["verify", "--owner", "somebody"],
                          ["verify", "--owner", "-1"], ["verify", "more"], ["verify", "--root"],
                          ["plan", "--format", "sarif"], ["plan", "--reverse"], ["why"],
                          ["why", "a", "b", "c"], ["dot", "--depth", "1"]]:
            answer = self.run_plain(*arguments)
            self.assertEqual((answer.status, answer.bytes), (2, b""), arguments)
            self.assertNotEqual(answer.error, "", arguments)

    def test_depth_counts_edges(self):
        self.image.plugin("a", provides=["m"])
        for depth, status in [("0", 0), ("1", 0), ("-1", 2), ("1e3", 2), ("x", 2), ("", 2)]:
            answer = self.analyze("dot", "--around", "a", "--depth", depth)
            self.assertEqual(answer.status, status, depth)
            self.assertEqual(answer.bytes == b"", status == 2, depth)

    def test_root_that_cannot_be_read_is_two(self):
        self.image.put("/file", "")
        for root in ["/none", "/file"]:
            for verb in VERBS:
                answer = self.run_plain(verb, *(["a"] if verb == "why" else []),
                                        "--root", self.image.path(root))
                self.assertEqual((answer.status, answer.bytes), (2, b""), verb)
                self.assertIn(root, answer.error)

    def test_init_list_that_cannot_be_read_is_two(self):
        answer = self.analyze("plan", "--daemons", "--init-list", self.image.path("/none"))
        self.assertEqual((answer.status, answer.bytes), (2, b""))
        self.assertIn("No such file or directory", answer.error)

    def test_missing_plugin_folder_is_a_finding_not_a_failure(self):
        self.image.folder("/empty")
        answer = self.run_plain("verify", "--root", self.image.path("/empty"), "--format", "json")
        self.assertEqual(answer.status, 1)
        self.assertEqual({finding["rule"] for finding in answer.json["findings"]},
                         {"folder-unreadable"})

    def test_order_of_a_missing_plugin_folder_is_two(self):
        self.image.plugin("a")
        for verb, *more in [["plan"], ["why", "a"], ["dot"]]:
            for options in [[], ["--format", "json"]]:
                answer = self.analyze(verb, *more, *options, "--plugin-directory", "/none")
                self.assertEqual((answer.status, answer.bytes, answer.error),
                                 (2, b"", "bootforge-analyze: the plugin folder /none cannot be "
                                          "read: No such file or directory\n"), verb)
        # What is named is looked for in it one by one.
        self.assertEqual(self.analyze("plan", "--plugin-directory", "/none", "--plugin",
                                      "a.json").status, 0)

    def test_an_image_without_plugins_has_an_order_of_nothing(self):
        self.image.folder("/empty")
        for verb, key, value in [("plan", "order", []), ("dot", "dot", "digraph g {\n}\n")]:
            answer = self.run_plain(verb, "--root", self.image.path("/empty"), "--format", "json")
            self.assertEqual((answer.status, answer.json[key], answer.error),
                             (0, value, "bootforge-analyze: the image has no plugin folder: a boot "
                                        "would run nothing\n"))

    def test_bad_escape_is_told_by_each_verb(self):
        self.image.plugin("a")
        self.image.put("/etc/nimbus/bootforge/debug.conf", "p:a\\x:b:c\n")
        for verb, *more in [["plan"], ["why", "a"], ["dot"]]:
            answer = self.analyze(verb, *more)
            self.assertEqual((answer.status, answer.error),
                             (0, "bootforge-analyze: the debug configuration has a bad escape: a "
                                 "boot would run nothing\n"), verb)

    def test_standard_output_that_is_full_is_two(self):
        with open("/dev/full", "wb") as full:
            self.assertEqual(self.verify(stdout=full).status, 2)


class Output(ImageCase):
    def setUp(self):
        super().setUp()
        self.folder = tempfile.mkdtemp(prefix="bootforge-output-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.file = os.path.join(self.folder, "answer")
        self.image.put(PLUGINS + "/bad.json", "x")

    def content(self):
        with open(self.file, encoding="utf-8") as file:
            return file.read()

    def test_file_takes_the_place_of_standard_output(self):
        expected = self.verify()
        with open(self.file, "w", encoding="utf-8") as file:
            file.write("old " * 10000)
        answer = self.verify("--output", self.file)
        self.assertEqual((answer.status, answer.bytes, answer.error), (1, b"", ""))
        self.assertEqual(self.content(), expected.text)
        self.assertEqual(os.listdir(self.folder), ["answer"])

    def test_file_that_cannot_be_written_whole_is_left_as_it_was(self):
        with open(self.file, "w", encoding="utf-8") as file:
            file.write("old")

        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))

        answer = self.verify("--output", self.file, preexec_fn=limit)
        self.assertEqual((answer.status, answer.bytes), (2, b""))
        self.assertEqual(self.content(), "old")
        self.assertEqual(os.listdir(self.folder), ["answer"])

    def test_folder_that_is_missing_is_two(self):
        for verb in VERBS:
            answer = self.analyze(verb, *(["bad"] if verb == "why" else []),
                                  "--output", self.folder + "/none/answer")
            self.assertEqual(answer.status, 2, verb)

    def test_device_is_written_to_and_stays_one(self):
        self.assertEqual(self.verify("--output", "/dev/null").status, 1)
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))

    def test_folder_in_its_place_is_named_with_the_reason(self):
        answer = self.verify("--output", self.folder)
        self.assertEqual((answer.status, answer.error),
                         (2, f"bootforge-analyze: {self.folder}: Is a directory\n"))

    def test_path_is_the_callers_not_the_images(self):
        self.verify("--output", "answer", cwd=self.folder)
        self.assertEqual(os.listdir(self.folder), ["answer"])


class Text(ImageCase):
    def in_terminal(self, columns=80, **environment):
        reader, writer = pty.openpty()
        fcntl.ioctl(writer, termios.TIOCSWINSZ, struct.pack("HHHH", 25, columns, 0, 0))
        names = ("NO_COLOR", "TERM")
        inherited = {key: value for key, value in os.environ.items() if key not in names}
        process = subprocess.Popen([image.ANALYZE, "verify", "--root", self.image.root],
                                   stdin=subprocess.DEVNULL, stdout=writer,
                                   env={**inherited, "TERM": "xterm", **environment})
        os.close(writer)
        text = b""
        try:
            while chunk := os.read(reader, 65536):
                text += chunk
        except OSError:
            pass
        os.close(reader)
        self.assertIn(process.wait(timeout=60), (0, 1))
        return text.decode()

    def test_colours_are_for_terminals_that_want_them(self):
        self.image.put(PLUGINS + "/bad.json", "x")
        self.assertIn(ESCAPE, self.in_terminal())
        self.assertIn(ESCAPE, self.in_terminal(NO_COLOR=""))
        self.assertNotIn(ESCAPE, self.in_terminal(NO_COLOR="1"))
        self.assertNotIn(ESCAPE, self.in_terminal(TERM="dumb"))
        self.assertNotIn(ESCAPE, self.verify().text)

    def test_terminals_width_is_kept(self):
        self.image.put(PLUGINS + "/bad.json", "x" * 200)
        for columns in [40, 60, 80, 120]:
            lines = self.in_terminal(columns=columns, NO_COLOR="1").splitlines()
            below = [line for line in lines if line.startswith("    ")]
            self.assertGreaterEqual(len(below), 3)
            self.assertLessEqual(max(map(len, below)), columns)
        self.assertIn("x" * 90 + "...\n", self.verify().text)

    def test_control_characters_are_shown_and_not_sent(self):
        name = b"evil\x1b[2J\x7f\n\xc2\x9b\xff"
        self.image.put(PLUGINS + "/x", "")
        os.rename(os.fsencode(self.image.path(PLUGINS + "/x")),
                  os.fsencode(self.image.path(PLUGINS + "/")) + name + b".json")
        with open(os.fsencode(self.image.path(PLUGINS + "/")) + name + b".json", "wb") as file:
            file.write(b'{"metadata": {"version": 1, "requires": ["m\\u001b"], "provides": []},'
                       b' "operations": {"start": ["\\u0007"]}, "\\u001bkey": 1}')
        shown = "evil\\x1b[2J\\x7f\\x0a\\x9b\ufffd"
        for answer in [self.verify(), self.analyze("plan"),
                       self.analyze("why", os.fsdecode(name)), self.analyze("dot")]:
            controls = [c for c in answer.text if c != "\n" and ord(c) < 0xa0 and not c.isprintable()]
            self.assertEqual(controls, [], answer.error)
            self.assertTrue(shown in answer.text or shown.replace("\\", "\\\\") in answer.text,
                            answer.text + answer.error)

    def test_json_is_utf8_with_replacement_characters(self):
        self.image.plugin("x", requires=["m"])
        os.rename(os.fsencode(self.image.path(PLUGINS + "/x.json")),
                  os.fsencode(self.image.path(PLUGINS)) + b"/\xff\x1b\xc3\xa9.json")
        name = "\ufffd\x1b\u00e9"
        finding = self.verify("--format", "json").json["findings"][0]
        self.assertEqual(finding["file"], f"{PLUGINS}/{name}.json")
        plan = self.analyze("plan", "--format", "json").json
        self.assertIn(name, [step["name"] for step in plan["order"]])
        why = self.analyze("why", "m", "--format", "json").json
        self.assertEqual(why["waited_for_by"], [{"milestone": "m", "plugins": [name]}])
        self.assertIn("\\\\x1b", self.analyze("dot", "--format", "json").json["dot"])

    def test_line_and_caret_are_shown(self):
        self.image.put(PLUGINS + "/bad.json", '{\n  "m\u00e9tadata": {},\n  x}')
        lines = self.verify().text.splitlines()
        at = lines.index("      x}")
        self.assertIn(f"{PLUGINS}/bad.json:3:3: error: plugin root is not an object", lines[at - 1])
        self.assertEqual(lines[at + 1], "      ^")

    def test_help_and_version(self):
        answer = self.run_plain("--help")
        self.assertEqual((answer.status, answer.error), (0, ""))
        for verb in VERBS:
            self.assertIn(verb, answer.text)
            own = self.run_plain(verb, "--help")
            self.assertEqual((own.status, own.error), (0, ""))
            for option in ["--root", "--plugin-directory", "--plugin-flags", "--disable-plugins",
                           "--plugin", "--run-once", "--daemons", "--init-list", "--format",
                           "--output", "--help"]:
                self.assertIn(option, own.text, verb)
            self.assertNotEqual(own.text, answer.text)
        for words in [["--version"], *([verb, "--version"] for verb in VERBS)]:
            answer = self.run_plain(*words)
            self.assertEqual(answer.status, 0, words)
            self.assertRegex(answer.text, r"^bootforge-analyze \d+\.\d+\.\d+(\+\S+)?\n$", words)


class Root(ImageCase):
    def test_links_are_resolved_inside_the_root(self):
        self.image.plugin("a", requires=["nothing"])
        os.rename(self.image.path(PLUGINS), self.image.path("/moved"))
        self.image.link(PLUGINS, "/../../moved")
        self.image.link("/plugins", PLUGINS)
        for options in [[], ["--plugin-directory", "/plugins"], ["--plugin-directory", "plugins/"]]:
            findings = self.verify("--format", "json", *options).json["findings"]
            self.assertEqual([(f["rule"], f["line"], f["column"]) for f in findings],
                             [("milestone-unprovided", 1, 42)], options)

    def as_somebody(self, *words):
        """Runs the analyzer as a user who is not root. The build may be closed to others."""
        folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, folder)
        os.chmod(folder, 0o755)
        somebody = {"user": 65534, "group": 65534} if os.getuid() == 0 else {}
        return self.run_plain(*words, executable=shutil.copy(image.ANALYZE, folder), **somebody)

    def test_what_only_a_boot_may_read_is_told(self):
        debug = "/etc/nimbus/bootforge/debug.conf"
        self.image.put(debug, "p:a\\x:b:c\n", 0)
        self.image.put("/etc/init.d/s", "#!/bin/none\n# chkconfig: 1 2 3\n", 0o711)
        os.chmod(self.image.path("/etc/init.d/s"), 0o111)
        told = "bootforge-analyze: {}: Permission denied; a boot reads it, and what it says is " \
               "missing\n"
        with tempfile.NamedTemporaryFile("w") as file:
            file.write("/etc/init.d/s 4\n")
            file.flush()
            os.chmod(file.name, 0o644)
            for options in [[], ["--init-list", file.name]]:
                answer = self.as_somebody("verify", "--root", self.image.root, *options,
                                          "--owner", str(os.getuid()))
                self.assertEqual((answer.status, answer.text), (0, "no findings\n"), options)
                self.assertEqual(answer.error, told.format("/etc/init.d/s") + told.format(debug))
        os.chmod(self.image.path("/etc/init.d"), 0)
        self.addCleanup(os.chmod, self.image.path("/etc/init.d"), 0o755)
        answer = self.as_somebody("plan", "--daemons", "--root", self.image.root)
        self.assertEqual((answer.status, answer.error), (0, told.format("/etc/init.d")))

    def test_nothing_is_written_and_no_root_is_needed(self):
        self.image.plugin("a", requires=["m"])
        self.image.put("/etc/init.d/s", "#!/bin/sh\n# chkconfig: 1 2 3\n", 0o755)

        def stamps():
            found = {}
            for folder, folders, files in os.walk(self.image.root):
                for name in folders + files + ["."]:
                    status = os.lstat(os.path.join(folder, name))
                    found[os.path.join(folder, name)] = (status.st_mtime_ns, status.st_ctime_ns,
                                                         status.st_size)
            return found

        before = stamps()
        for verb in VERBS:
            answer = self.as_somebody(verb, "--root", self.image.root,
                                      *(["a"] if verb == "why" else []))
            self.assertIn(answer.status, (0, 1), answer.error)
        self.assertEqual(stamps(), before)

    def test_lists_are_taken_as_the_orchestrator_takes_them(self):
        for name in "abcd":
            self.image.plugin(name, required_flags=["f"] if name == "c" else [],
                              disabling_flags=["g"] if name == "d" else [])
        def names(*options):
            order = self.analyze("plan", "--format", "json", *options).json["order"]
            return sorted(step["name"] for step in order)

        self.assertEqual(names(), ["a", "b", "d"])
        self.assertEqual(names("--disable-plugins", "a,,b", "--disable-plugins=d"), [])
        self.assertEqual(names("--plugin-flags=f,g"), ["a", "b", "c"])
        self.assertEqual(names("--plugin-flags=g", "--plugin-flags=f"), ["a", "b", "c", "d"])
        self.assertEqual(names("--plugin", "b.json,a.json", "--plugin=d.json"), ["a", "b", "d"])
        self.image.plugin("e", run_once=True, plugin_version="1")
        self.assertEqual(names("--run-once", "x,e1"), ["a", "b", "d"])


class Planning(ImageCase):
    def setUp(self):
        super().setUp()
        self.image.plugin("first", provides=["m"])
        self.image.plugin("second", requires=["m"])
        self.image.plugin("loop", requires=["l"], provides=["l"])

    def test_plan_in_json_and_text(self):
        answer = self.analyze("plan", "--format", "json", "--plugin", "first.json,second.json")
        self.assertEqual(answer.status, 0)
        order = answer.json["order"]
        self.assertEqual([(s["name"], s["kind"], s["tied"]) for s in order],
                         [("first", "plugin", 0), ("m", "milestone", 0), ("second", "plugin", 0)])
        self.assertTrue(all(isinstance(s["class"], int) and isinstance(s["weight"], int)
                            for s in order))
        answer = self.analyze("plan", "--format", "json")
        self.assertEqual((answer.status, answer.json["blocked"]), (0, ["loop"]))
        text = self.analyze("plan").text
        self.assertEqual(text, "1 wait for ever: loop\n"
                               "1  plugin     first\n2  milestone  m\n3  plugin     second\n")
        self.image.plugin("second-too", requires=["m"])
        self.assertEqual(re.findall(r"  \(.*\)\n", self.analyze("plan").text),
                         ["  (first of 2 that are equally good)\n"])

    def test_stop_goes_backwards(self):
        for name, priority in [("early", 5), ("late", 20)]:
            self.image.put(f"/etc/init.d/{name}",
                           f"#!/bin/sh\n# chkconfig: 345 {priority} 80\n", 0o755)

        def scripts(*options):
            order = self.analyze("plan", "--daemons", "--format", "json", *options).json["order"]
            return [step["name"] for step in order if step["kind"] == "script"]

        self.assertEqual(scripts(), ["early", "late"])
        self.assertEqual(scripts("--reverse"), ["late", "early"])
        answer = self.analyze("plan", "--daemons", "--format", "json").json["order"]
        self.assertEqual({step["kind"] for step in answer}, {"script", "level"})
        with tempfile.NamedTemporaryFile("w", suffix=".list") as file:
            file.write("/etc/init.d/late 1\n/etc/init.d/early 2\n")
            file.flush()
            self.assertEqual(scripts("--init-list", file.name), ["late", "early"])

    def test_why_in_json_and_its_statuses(self):
        answer = self.analyze("why", "second", "first", "--format", "json")
        self.assertEqual((answer.status, answer.json["chains"]), (0, [["second", "m", "first"]]))
        answer = self.analyze("why", "first", "second", "--format", "json")
        self.assertEqual((answer.status, answer.json["chains"]), (1, []))
        answer = self.analyze("why", "second", "--format", "json")
        self.assertEqual(answer.status, 0)
        self.assertEqual(answer.json, {
            "name": "second", "runs": True, "reason": None,
            "waits_for": [{"milestone": "m", "plugins": ["first"]}], "waited_for_by": []})
        answer = self.analyze("why", "loop", "--format", "json")
        self.assertEqual((answer.status, answer.json["runs"]), (0, False))
        self.assertIn("loop -> l -> loop", answer.json["reason"])

    def test_why_tells_each_chain_in_a_line(self):
        self.image.plugin("third", requires=["n"])
        self.image.plugin("between", requires=["m"], provides=["n"])
        self.image.plugin("beside", requires=["m"], provides=["n"])
        answer = self.analyze("why", "third", "first")
        self.assertEqual((answer.status, sorted(answer.text.splitlines())),
                         (0, ["third -> n -> beside -> m -> first",
                              "third -> n -> between -> m -> first"]))
        answer = self.analyze("why", "first", "third")
        self.assertEqual((answer.status, answer.text), (1, "first does not wait for third\n"))

    def test_why_names_what_is_listed_twice_once(self):
        self.image.plugin("twice", requires=["m", "n", "m"], provides=["z", "z"])
        self.image.plugin("last", requires=["z"])
        answer = self.analyze("why", "twice", "--format", "json").json
        self.assertEqual(answer["waits_for"], [{"milestone": "m", "plugins": ["first"]},
                                               {"milestone": "n", "plugins": []}])
        self.assertEqual(answer["waited_for_by"], [{"milestone": "z", "plugins": ["last"]}])
        self.assertEqual(self.analyze("why", "twice").text,
                         "twice runs\n"
                         "waits for\n  m: first\n  n: (nobody provides it)\n"
                         "is waited for by\n  z: last\n")
        answer = self.analyze("why", "last", "--format", "json").json
        self.assertEqual(answer["waits_for"], [{"milestone": "z", "plugins": ["twice"]}])
        self.assertEqual(self.analyze("why", "z", "--format", "json").json["waits_for"],
                         [{"milestone": "z", "plugins": ["twice"]}])

    def test_why_a_milestone_is_not_reached(self):
        for requires, provides in [("l", "behind"), ("behind", "far")]:
            self.image.plugin("to-" + provides, requires=[requires], provides=[provides])
        for milestone, reason in [
                ("l", "it waits for itself: loop -> l -> loop"),
                ("behind", "it waits behind a cycle: loop -> l -> loop"),
                ("far", "it waits behind a cycle: loop -> l -> loop")]:
            answer = self.analyze("why", milestone, "--format", "json").json
            self.assertEqual((answer["runs"], answer["reason"]), (False, reason))
            self.assertEqual(self.analyze("why", milestone).text.splitlines()[0],
                             f"{milestone} is not reached: {reason}")
        self.assertTrue(self.analyze("why", "m").text.startswith("m is reached\n"))

    def test_unknown_names_are_two_with_the_nearest(self):
        for arguments in [["why", "frist"], ["why", "first", "frist"],
                          ["dot", "--around", "frist"]]:
            answer = self.analyze(*arguments)
            self.assertEqual((answer.status, answer.bytes), (2, b""))
            self.assertIn('"first"', answer.error)
        for arguments in [["why", ""], ["why", "first", ""], ["dot", "--around="]]:
            self.assertEqual(self.analyze(*arguments).status, 2, arguments)

    def test_graphviz_accepts_the_drawing(self):
        graphviz = shutil.which("dot")
        if not graphviz:
            self.skipTest("Graphviz is not installed")
        self.image.put(PLUGINS + "/a\"b\\c\nd\\.json", '{"metadata": {"version": 1, "requires":'
                       ' ["\\\\N \\" -> x; }"], "provides": []}, "operations": {"start": []}}')
        drawing = self.analyze("dot", "--disable-plugins", "second").bytes
        result = subprocess.run([graphviz, "-Tplain"], input=drawing, capture_output=True,
                                timeout=60, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        nodes = [line for line in result.stdout.splitlines() if line.startswith(b"node ")]
        self.assertEqual(len(nodes), 7)


if __name__ == "__main__":
    image.main()
