#!/usr/bin/env python3
"""What people see of recorded boots: text, and the picture of "plot"."""

import shutil
import struct
import subprocess
import xml.dom.minidom
import zlib

import recorded_case
from recorded_case import RecordedCase, boot_log


def colours_of(png):
    """The colours of a picture of eight bits a colour, with or without opacity."""
    data, place, width, size_of_pixel = b"", 0, 0, 4
    while place < len(png):
        size, kind = struct.unpack(">I4s", png[place:place + 8])
        if kind == b"IHDR":
            width, _, _, form = struct.unpack(">IIBB", png[place + 8:place + 18])
            size_of_pixel = {2: 3, 6: 4}[form]
        elif kind == b"IDAT":
            data += png[place + 8:place + 8 + size]
        place += size + 12
    data, stride, colours = zlib.decompress(data), size_of_pixel * width, set()
    above = bytearray(size_of_pixel + stride)  # with a pixel to the left of the first one
    for start in range(0, len(data), stride + 1):
        row = bytearray(size_of_pixel) + data[start + 1:start + 1 + stride]
        for at in range(size_of_pixel, len(row)):
            left, up, corner = row[at - size_of_pixel], above[at], above[at - size_of_pixel]
            nearest = min((left, up, corner), key=lambda each, sum=left + up - corner:
                          abs(sum - each))
            row[at] = (row[at] + (0, left, up, (left + up) // 2, nearest)[data[start]]) % 256
        colours |= {bytes(row[at:at + 3]) for at in range(size_of_pixel, len(row), size_of_pixel)}
        above = row
    return colours


class TextForPeople(RecordedCase):
    def test_chain_is_told_in_words_first(self):
        told = self.run_verb("critical-chain").splitlines()
        self.assertEqual(told[2:4], ["web ended at 2.90 s: 3 steps that followed one another took "
                                     "2.90 s", "None of them waited for a worker"])
        told = self.run_verb("critical-chain", "disk").splitlines()
        self.assertEqual(told[2], "disk ended at 800 ms, and had to wait for no other")

    def test_worker_that_was_held_is_told_from_one_that_was_free(self):
        # "clock" was ready at once, and "disk" had the only worker.
        self.log.write_text(boot_log([("disk", 0, 1000), ("clock", 1100, 1200)]))
        told = self.run_verb("critical-chain")
        self.assertIn("\n1 of them waited for a worker\n", told)
        self.assertRegex(told, r"clock +worker 0, held by disk\n")
        # "web" was ready when "log" ended; the worker was free, and took a moment to see that.
        self.log.write_text(boot_log([("network", 0, 9000), ("disk", 0, 5000), ("log", 5000, 9100),
                                      ("web", 9180, 9500)]))
        told = self.run_verb("critical-chain")
        self.assertRegex(told, r"web +worker \d for 80 µs, free since \S+\n")
        self.assertIn("\nNone of them waited for a worker\n", told)

    def test_text_is_as_wide_as_it_may_be(self):
        for columns, width in (("", 80), ("0", 80), ("wide", 80), ("60", 60), ("100", 100)):
            told, table = self.run_verb("blame", COLUMNS=columns).split("\n\n")
            self.assertEqual(max(map(len, table.splitlines())), width, columns)
            self.assertIn("Boot of 2026-03-05 07:04:10 UTC: 2.90 s on 3 workers", told)

    def test_failure_is_told_without_what_everybody_knows(self):
        capture = self.file("kernel", "[    2.0] bootforge: Bootforge plugin web activation failed: "
                            "web->start() failed: no network\n")
        text = self.run_verb("blame", "--messages", capture)
        self.assertEqual(text.splitlines()[1], "failed web: no network")

    def draw(self, picture, *options):
        """A picture as a viewer draws it: a PNG, without its signature."""
        drawn = subprocess.run(["rsvg-convert", *options], input=picture.encode(), check=True,
                               stdout=subprocess.PIPE).stdout
        self.assertEqual(drawn[:8], b"\x89PNG\r\n\x1a\n")
        return drawn[8:]

    def test_plot_is_a_picture_for_every_viewer(self):
        capture = self.file("kernel", "bootforge: Bootforge plugin clock activation failed: "
                            "clock->start() failed: <&>\"'\n")
        picture = self.run_verb("plot", "--messages", capture)
        xml.dom.minidom.parseString(picture)
        for word in ("script", "var(", "http://", "https://", "url("):
            self.assertNotIn(word, picture.replace('xmlns="http://www.w3.org/2000/svg"', ""))
        self.assertIn(">100 µs, failed</text>", picture)
        self.assertIn(' class="on-chain" text-anchor="end"', picture)
        if not shutil.which("rsvg-convert"):
            self.skipTest("there is no rsvg-convert to draw it")
        colours = colours_of(self.draw(picture, "--zoom", "0.5"))
        for colour in ("ffffff", "3b7dd8", "d9622b", "b9c6d8"):
            self.assertIn(bytes.fromhex(colour), colours, "a viewer has to know all that it uses")

    def test_plot_is_the_same_for_a_few_plugins_and_for_many(self):
        pictures = {}
        for count in (20, 1000):
            lines = [(f"plugin-{number:04d}", number * 10, number * 10 + 900 + number)
                     for number in range(count)]
            lines[7] = ("odd \x1b ]]> & \uffff name that is much longer than any column has room for "
                        "in a picture", 70, 1000)
            self.log.write_text(boot_log(lines))
            picture = self.run_verb("plot")
            told = xml.dom.minidom.parseString(picture)
            rows = [text.firstChild.data for text in told.getElementsByTagName("text")
                    if text.getAttribute("text-anchor") == "end"]
            self.assertEqual(len(rows), count)
            self.assertEqual(rows[8:], [name for name, _, _ in lines[8:]], "text can be searched")
            # Every row as high, every column as wide.
            root = told.documentElement
            pictures[count] = (int(root.getAttribute("width")),
                               int(root.getAttribute("height")) - 18 * count)
            if shutil.which("rsvg-convert"):
                head = self.draw(picture)
                self.assertEqual(struct.unpack(">II", head[8:16]),
                                 (int(root.getAttribute("width")),
                                  int(root.getAttribute("height"))))
        self.assertEqual(pictures[20], pictures[1000])

    def test_fleet_tells_which_hosts_stand_out(self):
        def put(host, number, end):
            return self.file(f"fleet/{host}/{number}.log",
                             boot_log([("a", 0, end), ("left", None, None)]))

        for host, end in (("one", 100000), ("two", 110000), ("three", 120000), ("four", 130000)):
            put(host, 1, end)
        put("slow\x1b[2J", 1, 9000000)
        put("slow\x1b[2J", 2, 8000000)
        damaged = put("two", 2, 110000)
        damaged.write_text(damaged.read_text()[:-40])
        self.file("fleet/one/1.messages", "bootforge: Activating Bootforge plugin a.\n"
                  "bootforge: Bootforge plugin a activation failed: x\n")
        self.file("fleet/noise.log", "noise")
        head = ("7 boots of 5 hosts: half within 120 ms, 90 % within 9.00 s, 99 % within 9.00 s, "
                "the slowest 9.00 s\n"
                "1 log damaged, and read as far as possible\n"
                "1 file cannot be read\n"
                "\n"
                "1 host stands out:\n"
                "  boot  score  host\n"
                "8.50 s  565.2  slow\\x1b[2J\n")
        plugins = ("\n"
                   "boots    50 %    90 %    99 %  slowest  failed  plugin\n"
                   "    7  120 ms  9.00 s  9.00 s   9.00 s       1  a\n")
        self.assertEqual(self.run_verb("fleet", self.folder / "fleet", root=False), head + plugins)
        self.assertIn("noise.log: this is no profiling log\n", self.errors)
        hosts = ("\n"
                 "boots  median  slowest  score  host\n"
                 "    1  130 ms   130 ms    0.7  four\n"
                 "    1  100 ms   100 ms    1.3  one\n"
                 "    2  8.50 s   9.00 s  565.2  slow\\x1b[2J\n"
                 "    1  120 ms   120 ms    0.0  three\n"
                 "    2  110 ms   110 ms    0.7  two\n")
        self.assertEqual(self.run_verb("fleet", self.folder / "fleet", "--by", "host", root=False),
                         head + hosts + plugins)

    def test_fleet_of_equal_hosts_has_no_measure_for_one_that_differs(self):
        for host, end in (("one", 1000), ("two", 1000), ("three", 1000), ("slow", 2000),
                          ("slower", 3000), ("four", 1000)):
            self.file(f"fleet/{host}/1.log", boot_log([("a", 0, end)]))
        told = self.run_verb("fleet", self.folder / "fleet", root=False)
        self.assertIn("\n2 hosts stand out:\n"
                      "   boot  score  host\n"
                      "2.00 ms      -  slow\n"
                      "3.00 ms      -  slower\n", told)

    def test_names_cannot_reach_the_terminal(self):
        self.log.write_text(boot_log([("evil\x1b[2J\x07", 0, 100)]))
        for verb in (["blame"], ["critical-chain"], ["simulate", "--workers", "1"]):
            text = self.run_verb(*verb)
            self.assertNotIn("\x1b", text)
            self.assertNotIn("\x07", text)
        self.assertIn("evil\\x1b[2J\\x07", self.run_verb("blame"))


if __name__ == "__main__":
    recorded_case.main()
