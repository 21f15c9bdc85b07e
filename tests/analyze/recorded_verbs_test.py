#!/usr/bin/env python3
"""The verbs of recorded boots. Everything is written below a folder of its own."""

import gzip
import json
import os
import stat

import recorded_case
from recorded_case import BEGIN, BOOT, boot_log, daemon_log, RecordedCase


class RecordedVerbs(RecordedCase):
    # ---- one boot

    def test_blame_tells_times_from_the_image_and_the_log(self):
        told = self.ask("blame")
        self.assertEqual(told["boot"], {"start": BEGIN, "makespan": 2900000, "workers": 3,
                                        "kernel_us": 7000000})
        self.assertEqual(
            self.row("log"),
            {"name": "log", "start": 800100, "end": 1500000, "run": 699900,
             "wait_milestones": 800000, "wait_worker": 100, "wait_executor": 199950,
             "work": 499950, "worker": 1, "slack": 20, "result": "unknown", "reason": None})
        self.assertEqual(self.row("clock")["work"], 100, "no commands, no executor")
        self.assertEqual(self.row("left")["result"], "never")
        self.assertIsNone(self.row("left")["start"])
        self.assertEqual(self.errors, "")

    def test_results_come_from_the_messages(self):
        capture = self.file("kernel", "[    1.0] bootforge: Activating Bootforge plugin web.\n"
                            "[    2.0] bootforge: Bootforge plugin web activation failed: "
                            "web->start() failed: no\n"
                            "[    2.0] bootforge: Bootforge plugin log activated.\n")
        web = self.row("web", "--messages", capture)
        self.assertEqual((web["result"], web["reason"]), ("failed", "web->start() failed: no"))
        self.assertEqual(self.row("log", "--messages", capture)["result"], "activated")
        self.file("kernel", "nothing of ours\n")
        self.run_verb("blame", "--messages", capture, status=2)
        self.run_verb("blame", "--messages", self.folder / "missing", status=2)

    def test_damaged_log_is_read_as_far_as_it_goes(self):
        whole = self.log.read_bytes()
        for length in range(0, len(whole), 17):
            self.log.write_bytes(whole[:length])
            readable = length > whole.index(b"\n")
            text = self.run_verb("blame", "--format", "json", status=0 if readable else 2)
            self.assertTrue(self.errors, f"cut after {length} bytes, and nothing said")
            if readable:
                names = {each["name"] for each in json.loads(text)["plugins"]}
                self.assertLessEqual(names, {name for name, _, _ in BOOT})

    def test_log_that_cannot_be_read_is_an_error(self):
        for content in (b"", b"noise\n", bytes(range(256))):
            self.log.write_bytes(content)
            self.run_verb("blame", status=2)
        self.log.unlink()
        self.run_verb("blame", status=2)
        os.mkfifo(self.log)
        self.run_verb("blame", status=2)

    def test_compressed_log_is_read(self):
        with gzip.open(self.root / "var/log/old.gz", "wt") as packed:
            packed.write(boot_log(BOOT))
        told = self.ask("blame", "--log", "/var/log/old.gz")
        self.assertEqual(told["boot"]["makespan"], 2900000)
        packed = (self.root / "var/log/old.gz").read_bytes()
        (self.root / "var/log/old.gz").write_bytes(packed[:-20])
        self.ask("blame", "--log", "/var/log/old.gz")
        self.assertIn("damaged", self.errors)

    def test_log_and_links_stay_inside_the_root(self):
        (self.root / "elsewhere").write_text(boot_log([("network", 0, 5)]))
        self.log.unlink()
        self.log.symlink_to("/elsewhere")
        self.assertEqual(self.ask("blame")["boot"]["makespan"], 5)

    def test_log_of_another_image_is_refused(self):
        self.describe("clock", ["net"], [], [])
        self.run_verb("blame", status=2)
        self.assertIn("clock started 1.20 s".replace("1.20 s", "1199100 us") + " before the end of "
                      "network", self.errors)
        self.assertEqual(self.ask("blame", "--force")["boot"]["makespan"], 2900000)

    def test_sections_are_counted_from_zero(self):
        scripts = self.root / "etc/init.d"
        scripts.mkdir(parents=True)
        for name, level in (("sshd", 10), ("cron", 20)):
            (scripts / name).write_text(f"#!/bin/sh\n# chkconfig: 345 {level} 90\n")
            (scripts / name).chmod(0o755)
        first, last = [("sshd", 1, 2)], [("sshd", 10, 30), ("cron", 40, 50)]
        self.log.write_text(boot_log(BOOT) + daemon_log(first) + daemon_log(last))
        self.assertEqual(self.ask("blame")["boot"]["makespan"], 2900000)
        self.assertEqual(self.ask("blame", "--section", 1)["boot"]["makespan"], 1)
        for words in (["--daemons"], ["--section", 2]):
            chain = self.ask("critical-chain", *words)["chain"]
            self.assertEqual(chain[1]["after"], {"kind": "milestone", "name": "sshd",
                                                 "milestone": "_<->_priority_<->_10"})
        self.run_verb("blame", "--section", 3, status=2)

    def test_chain_to_a_plugin_that_did_not_run_is_bad(self):
        chain = self.ask("critical-chain")["chain"]
        self.assertEqual([each["name"] for each in chain], ["disk", "log", "web"])
        self.assertEqual(chain[2]["after"], {"kind": "milestone", "name": "log", "milestone": "log"})
        self.assertEqual(self.ask("critical-chain", "left", status=1), {"chain": []})
        self.run_verb("critical-chain", "nobody", status=1)

    def test_stuck_needs_no_log(self):
        self.log.unlink()
        capture = self.file("kernel", "[    1.0] bootforge: Activating Bootforge plugin disk.\n")
        told = self.ask("stuck", "--messages", capture, status=1)
        self.assertEqual(told["running"], [{"name": "disk", "since": "1.0", "blocks": 2}])
        self.assertEqual(self.errors, "")
        self.file("kernel", "Mar  5 07:04:09 h bootforge[1]: executing start plugin: disk\n")
        self.ask("stuck", "--messages", capture, status=1)
        self.assertIn("--trace", self.errors)
        self.run_verb("stuck", status=2)

    def test_what_the_image_does_not_describe_is_said(self):
        self.log.write_text(boot_log(BOOT + [("a", 1, 2)]))
        self.run_verb("blame")
        told = "bootforge-analyze: /var/log/sysboot.log: nothing in the image describes {}: what " \
               "they waited for is not known, and counts as nothing\n"
        self.assertEqual(self.errors, told.format("a"))
        self.log.write_text(boot_log(BOOT + [(name, 1, 2) for name in ("a", "b\a", "c", "d", "e")]))
        self.run_verb("blame")
        self.assertEqual(self.errors, told.format("a, b\\x07, c and 2 more"))

    def test_capture_may_come_through_standard_input(self):
        log = "[    1.0] bootforge: Activating Bootforge plugin disk.\n"
        told = self.ask("stuck", "--messages", "-", status=1, given=log)
        self.assertEqual(told["running"], [{"name": "disk", "since": "1.0", "blocks": 2}])
        self.run_verb("stuck", "--messages", "-", status=2, given="nothing of ours\n")
        self.assertEqual(self.errors, "bootforge-analyze: standard input: there is no message of a "
                         "boot in it\n")

    def test_one_simulated_worker_runs_as_planned(self):
        for number in range(30):
            self.describe(f"p{number}", [f"m{number // 4}"], [f"m{number // 4 + 1}"], ["x y"])
        planned = [each["name"] for each in self.ask("plan")["order"] if each["kind"] == "plugin"]
        told = self.ask("simulate", "--workers", "1,3")
        self.assertEqual(told["runs"][0]["order"], planned)
        self.assertEqual(told["recorded"], {"makespan": 2900000, "workers": 3})
        self.assertEqual(told["runs"][0]["makespan"], 600300 + 399750 + 499950 + 1399980 + 100)

    def test_what_is_left_out_is_neither_simulated_nor_awaited(self):
        self.describe("extra", ["net"], [], ["x y"])
        order = lambda *words: self.ask("simulate", "--workers", 1, *words)["runs"][0]["order"]
        self.assertIn("extra", order())
        self.assertNotIn("extra", order("--disable-plugins", "extra"))
        self.assertNotIn("extra", order("--without", "extra"))
        capture = self.file("kernel", "".join(
            f"bootforge: Activating Bootforge plugin {name}.\n"
            f"bootforge: Bootforge plugin {name} activated.\n" for name, _, _ in BOOT))
        told = self.ask("stuck", "--messages", capture, status=1)
        self.assertEqual(told["waiting"], [{"name": "extra", "for": []}])
        self.ask("stuck", "--messages", capture, "--disable-plugins=extra")

    def test_commands_are_those_that_the_boot_would_carry_out(self):
        (self.plugins / "log.json").write_text(json.dumps(
            {"metadata": {"version": 2, "requires": ["disk"], "provides": ["log"]},
             "operations": {"start": ["log start"], "apply_host_profile": []}}))
        self.assertEqual(self.row("log")["work"], 499950)
        (self.root / "etc/nimbus").mkdir(parents=True)
        (self.root / "etc/nimbus/hostprofile.xml").write_text("")
        self.assertEqual(self.row("log")["work"], 699900, "a host profile asks for no command")

    def test_injections_are_plugins_of_the_boot(self):
        configuration = self.root / "etc/nimbus/bootforge/debug.conf"
        configuration.parent.mkdir(parents=True)
        configuration.write_text("probe:probed:net:/bin/true\n")
        self.log.write_text(boot_log(BOOT + [("probe", 1300000, 1300005)]))
        self.assertEqual(self.row("probe")["wait_milestones"], 1200000)

    def test_simulation_says_what_it_cannot_use(self):
        for words in ([], ["--workers", "0"], ["--workers", "two"],
                      ["--workers", "1", "--set", "web"], ["--workers", "1", "--set", "web=-1"],
                      ["--workers", "1", "--set", "wbe=1"], ["--workers", "1", "--without", "x"]):
            self.run_verb("simulate", *words, status=2)
            self.assertTrue(self.errors)
        for change in ("web", "=5", "web="):
            self.run_verb("simulate", "--workers", "1", "--set", change, status=2)
            self.assertIn(f"--set {change}: not of the form NAME=MICROSECONDS", self.errors)

    def test_exports_are_what_they_say(self):
        self.assertEqual(len(json.loads(self.run_verb("export", "--format", "trace"))["traceEvents"]),
                         1 + 3 + 5)
        self.assertIn("resourceSpans", self.run_verb("export", "--format", "otlp"))
        self.assertEqual(len(self.run_verb("export", "--format", "csv").splitlines()), 1 + 6)
        self.assertEqual(len(self.run_verb("export", "--format", "jsonl").splitlines()), 6)
        self.assertIn("\nbootforge_boot_seconds 2.900000\n",
                      self.run_verb("export", "--format", "prometheus"))
        self.run_verb("export", status=2)

    def test_output_file_can_be_read_by_others(self):
        mask = os.umask(0o022)
        self.addCleanup(os.umask, mask)
        metrics = self.folder / "boot.prom"
        self.assertEqual(self.run_verb("export", "--format", "prometheus", "--output", metrics), "")
        self.assertIn("bootforge_boot_seconds", metrics.read_text())
        self.assertEqual(stat.S_IMODE(metrics.stat().st_mode), 0o644)
        self.run_verb("blame", "--output", self.folder / "missing/file", status=2)

    # ---- many boots

    def logs(self, side, ends):
        return [self.file(f"{side}/{number}.log", boot_log([("a", 0, end), ("b", 0, 10)]))
                for number, end in enumerate(ends)]

    def test_gate_fails_for_a_regression(self):
        old = self.logs("old", [1000, 1010, 1020, 1030, 1040])
        new = self.logs("new", [1200, 1210, 1220, 1230, 1240])
        told = self.ask("diff", *old, "--", *new, root=False)
        self.assertEqual(told["regressions"], ["boot", "a"])
        self.assertEqual(told["boot"]["difference"], 200)
        self.assertAlmostEqual(told["boot"]["p"], 2 / 252)
        self.assertTrue(told["boot"]["significant"])
        for limits, status in (("5", 1), ("19", 1), ("20", 0), ("5,199", 1), ("5,200", 0)):
            self.ask("gate", "--max-regression", limits, *old, "--", *new, root=False, status=status)
        self.ask("gate", "--max-regression", "0", *new, "--", *old, root=False)
        text = self.run_verb("diff", *old, "--", *new, root=False)
        self.assertIn("2 regressions", text.splitlines()[1])
        self.assertRegex(text, r"significant \(p = 0.0079\)  regression  a\n")

    def test_comparison_wants_two_sides(self):
        log = self.logs("old", [1000])[0]
        for words in ([log], [log, "--"], ["--", log], [log, "--", log, "--", log],
                      [log, "--", self.folder / "missing"]):
            self.run_verb("diff", *words, root=False, status=2)
        self.run_verb("gate", log, "--", log, root=False, status=2)
        for limits in ("x", "", "-1", "5,", "5,1.5", "nan"):
            self.run_verb("gate", f"--max-regression={limits}", log, "--", log, root=False, status=2)

    def test_fleet_reads_every_log_below_a_folder(self):
        self.logs("fleet/rack", [100, 200, 300])
        self.file("fleet/rack/2.messages", "bootforge: Activating Bootforge plugin a.\n"
                  "bootforge: Bootforge plugin a activation failed: x\n")
        self.file("fleet/noise.log", "noise")
        told = self.ask("fleet", self.folder / "fleet", "--by", "host", root=False)
        self.assertEqual((told["boots"], told["unreadable"]), (3, 1))
        self.assertEqual(told["boot"], {"count": 3, "p50": 200, "p90": 300, "p99": 300, "most": 300})
        self.assertEqual(told["plugins"][0]["name"], "a")
        self.assertEqual(told["plugins"][0]["failures"], 1)
        self.assertEqual([each["host"] for each in told["hosts"]], ["rack"])
        self.assertEqual(told["hosts"][0]["value"], 200)
        self.run_verb("fleet", self.folder / "missing", root=False, status=2)

    def test_every_verb_has_help(self):
        for verb in ("blame", "critical-chain", "stuck", "plot", "simulate", "diff", "gate", "export",
                     "fleet"):
            self.assertIn(verb, self.run_verb(verb, "--help", root=False))

    def test_nothing_in_the_root_is_written(self):
        before = {path: path.lstat().st_mtime_ns for path in self.root.rglob("*")}
        for verb in (["blame"], ["plot"], ["simulate", "--workers", "2"], ["critical-chain"]):
            self.run_verb(*verb)
        self.assertEqual(before, {path: path.lstat().st_mtime_ns for path in self.root.rglob("*")})


if __name__ == "__main__":
    recorded_case.main()
