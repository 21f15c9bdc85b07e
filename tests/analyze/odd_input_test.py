#!/usr/bin/env python3
"""Recorded boots whose logs, numbers or file names are odd.

odd_input_test.py PROGRAM [TEST...]. Every answer is worked out by hand.
"""

import image

FLAGS = " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n"
LOG = "/var/log/sysboot.log"
# "b" waits for "a".
BOOT = [("a", "07:04:10.000000", "07:04:10.000100"), ("b", "07:04:10.000100", "07:04:10.000300")]


def boot_log(lines, kernel=7000000):
    text = f"HVKernel Initialization Time: {kernel}\n"
    for name, start, end in lines:
        text += f"[2026-03-05 {start} - 2026-03-05 {end}] sysboot: {name}\n"
    return (text + "=== Bootforge configuration info ===\n Start: 2026-03-05 07:04:10.000000\n"
            " End: 2026-03-05 07:04:11.000000\n" + FLAGS)


class OddInput(image.ImageCase):
    def setUp(self):
        super().setUp()
        self.image.plugin("a", provides=["m"], start=["one"])
        self.image.plugin("b", requires=["m"], start=["two"])
        self.image.put(LOG, boot_log(BOOT))

    def refused(self, reason, verb, *arguments):
        answer = self.analyze(verb, *arguments)
        self.assertEqual((answer.status, answer.bytes), (2, b""), arguments)
        self.assertIn(reason, answer.error)

    def simulated(self, *arguments):
        answer = self.analyze("simulate", "--format", "json", *arguments)
        self.assertEqual((answer.status, answer.error), (0, ""))
        return answer.json["runs"]

    # ---- numbers on the command line

    def test_numbers_are_decimal(self):
        self.assertEqual(self.simulated("--workers", "1", "--set", "a=0100")[0]["makespan"], 300)
        self.assertEqual([run["workers"] for run in self.simulated("--workers", "010,2")], [10, 2])
        self.refused("there is no section 10:", "blame", "--section", "010")
        self.assertEqual(self.analyze("dot", "--around", "b", "--depth", "08").status, 0)
        self.assertNotEqual(self.analyze("verify", "--owner", "09").status, 2)
        slow = self.caller("slow", [("a", "07:04:10.000000", "07:04:10.000190")])
        fast = self.caller("fast", [("a", "07:04:10.000000", "07:04:10.000100")])
        for limits, status in (("5,089", 1), ("5,090", 0), ("089", 1), ("090", 0)):
            answer = self.run_plain("gate", "--max-regression", limits, fast, "--", slow)
            self.assertEqual(answer.status, status, limits)

    def test_what_is_no_number_is_refused(self):
        for text in ("-1", "", "x", "1.5", "0x1", " 1", "99999999999999999999999"):
            self.refused(f"--section: \"{text}\" is no whole number", "blame", "--section", text)
            self.refused(f"--workers: \"{text}\" is no whole number", "simulate", "--workers", text)
            self.refused("is no whole number", "verify", "--owner", text)
            self.refused("not of the form NAME=MICROSECONDS", "simulate", "--workers", "1", "--set",
                         f"a={text}")
        self.refused("not of the form NAME=MICROSECONDS", "simulate", "--workers", "1",
                     "--set", "=5")
        log = self.image.path(LOG)
        for text in ("5,0x10", "0x10", "5, 1", " 5", "5,99999999999999999999999"):
            answer = self.run_plain("gate", "--max-regression", text, log, "--", log)
            self.assertEqual(answer.status, 2, text)
            self.assertIn("is no limit", answer.error)

    def test_times_beyond_all_numbers_are_simulated(self):
        run = self.simulated("--workers", "1", "--set", "a=999999999999999999")[0]
        self.assertEqual(run["makespan"], 1000000000000000199)
        # Forty plugins, each of which ran for nearly as long as a log can tell.
        lines = "".join(f"[1970-01-01 00:00:00.000001 - 9999-12-31 23:59:59.999999] sysboot: p{n}\n"
                        for n in range(40))
        self.image.put(LOG, boot_log([]).replace("===", lines + "===", 1))
        answer = self.analyze("simulate", "--workers", "1")
        self.assertEqual((answer.status, answer.error != ""), (0, True))
        self.assertEqual(self.analyze("report").status, 0)

    # ---- files

    def caller(self, name, lines):
        self.image.put(f"/callers/{name}", boot_log(lines))
        return self.image.path(f"/callers/{name}")

    def test_file_without_a_name_is_refused(self):
        for option in ("--messages", "--output", "--init-list"):
            self.refused(f"{option}: the name of the file is empty", "blame", option, "")
        self.refused("--messages: the name of the file is empty", "stuck", "--messages", "")

    def test_output_into_a_folder_says_why_not(self):
        folder = self.image.path("/var")
        self.refused(f"{folder}: Is a directory", "blame", "--output", folder)

    def test_log_that_came_by_another_system_is_read(self):
        text = boot_log(BOOT)
        expected = self.analyze("blame", "--format", "json").json
        self.image.put(LOG, text.replace("\n", "\r\n"))
        answer = self.analyze("blame", "--format", "json")
        self.assertEqual((answer.status, answer.error, answer.json), (0, "", expected))
        self.image.put(LOG, text.replace("sysboot: a\n", "sysboot: a\r\n"))
        names = [row["name"] for row in self.analyze("blame", "--format", "json").json["plugins"]]
        self.assertEqual(names, ["a\r", "b"], "a name of an unharmed log stays as it is")

    def test_kernel_time_that_cannot_be_is_damage(self):
        self.image.put(LOG, boot_log(BOOT, kernel=2**64 - 1))
        answer = self.analyze("blame", "--format", "json")
        self.assertEqual((answer.status, answer.json["boot"]["kernel_us"]), (0, None))
        self.assertIn("line 1 cannot be read", answer.error)
        self.image.put(LOG, boot_log(BOOT, kernel=2**63 - 1))
        self.assertEqual(self.analyze("blame", "--format", "json").json["boot"]["kernel_us"],
                         2**63 - 1)
        self.assertIn("after 2562047788 h 0 min of kernel", self.analyze("blame").text)

    def test_capture_of_a_long_life_is_read(self):
        noise = "Mar  5 07:00:00 host cron[7]: (root) CMD (true)\n" * 400000
        begun = "Mar  5 07:04:10 host bootforge[9]: executing start plugin: a\n"
        self.image.put("/callers/syslog", noise + begun + noise)
        answer = self.analyze("stuck", "--format", "json", "--messages",
                              self.image.path("/callers/syslog"))
        self.assertEqual(answer.status, 1, answer.error)
        self.assertEqual(answer.json["running"],
                         [{"name": "a", "since": "Mar  5 07:04:10", "blocks": 1}])

    # ---- many boots

    def test_fleet_tells_why_a_file_counts_for_nothing(self):
        log = self.caller("host.log", BOOT)
        noise = self.image.path("/callers/noise")
        self.image.put("/callers/noise", "noise\n")
        missing = self.image.path("/callers/missing")
        answer = self.run_plain("fleet", "--format", "json", log, noise, missing)
        self.assertEqual((answer.status, answer.json["unreadable"]), (0, 2))
        self.assertEqual(answer.error,
                         f"bootforge-analyze: {noise}: this is no profiling log\n"
                         f"bootforge-analyze: {missing}: No such file or directory\n")
        answer = self.run_plain("fleet", "--section", "1", log)
        self.assertEqual(answer.error, f"bootforge-analyze: {log}: there is no section 1: the log has "
                         "1 section, counted from 0\n")

    def test_every_verb_takes_a_root(self):
        log = self.caller("host.log", BOOT)
        for words in (["diff", log, "--", log], ["fleet", log],
                      ["gate", "--max-regression", "5", log, "--", log]):
            plain = self.run_plain(*words)
            rooted = self.analyze(*words)
            self.assertEqual((rooted.status, rooted.error), (0, ""))
            self.assertEqual(rooted.bytes, plain.bytes)

    # ---- clocks

    def test_end_before_its_start_is_said_of_many_boots_too(self):
        stepped = self.caller("stepped", [("a", "07:04:10.000000", "07:04:10.000100"),
                                          ("b\x07", "07:04:10.000100", "07:04:09.000300")])
        plain = self.caller("plain", BOOT)
        told = (f"bootforge-analyze: {stepped}: b\\x07 ended before it started (was the clock set?);"
                " it counts as a run of 0\n")
        for verb in (["diff"], ["gate", "--max-regression", "5"]):
            for sides in ([stepped, "--", plain], [plain, "--", stepped]):
                answer = self.run_plain(*verb, "--format", "json", *sides)
                self.assertEqual(answer.error, told)
                run = next(row for row in answer.json["plugins"] if row["name"] == "b\x07")
                self.assertIn(0, (run["old"], run["new"]))
        answer = self.run_plain("fleet", "--format", "json", stepped, plain)
        self.assertEqual(answer.status, 0)
        self.assertEqual(answer.error, "bootforge-analyze: in 1 of the logs a plugin ended before it "
                         "started (was the clock set?); that counts as a run of 0\n")
        self.assertEqual(answer.json["damaged"], 0)
        self.assertEqual(self.run_plain("fleet", plain).error, "")


if __name__ == "__main__":
    image.main()
