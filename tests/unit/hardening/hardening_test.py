"""The built programs are hardened.

hardening_test.py READELF OPTIMISED PROCESSOR COMPILE_COMMANDS CORE_LIBRARY PROGRAMS...
"""
import json
import re
import subprocess
import sys
import unittest

READELF, OPTIMISED, PROCESSOR, COMMANDS, LIBRARY, *PROGRAMS = sys.argv[1:]
OPTIMISED = OPTIMISED == "1"
IS_X86_64 = PROCESSOR in ("x86_64", "AMD64")


def readelf(option, path):
    return subprocess.run([READELF, "--wide", option, path], check=True, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


class Programs(unittest.TestCase):
    def each(self, option):
        for path in PROGRAMS:
            with self.subTest(program=path):
                yield readelf(option, path)

    def test_are_position_independent(self):
        for text in self.each("--dynamic"):
            self.assertRegex(text, r"FLAGS_1.*\bPIE\b")

    def test_bind_their_symbols_at_the_start(self):
        for text in self.each("--dynamic"):
            self.assertRegex(text, r"FLAGS_1.*\bNOW\b")

    def test_have_read_only_relocations(self):
        for text in self.each("--program-headers"):
            self.assertIn("GNU_RELRO", text)

    def test_have_no_executable_stack(self):
        for text in self.each("--program-headers"):
            stack = re.search(r"GNU_STACK\s+(?:0x\w+\s+){5}(\w+)", text)
            self.assertIsNotNone(stack)
            self.assertEqual(stack.group(1), "RW")

    def test_have_no_segment_that_is_written_and_executed(self):
        for text in self.each("--program-headers"):
            self.assertNotRegex(text, r"(?m)^\s*LOAD .* RWE ")


class Library(unittest.TestCase):
    def test_has_stack_protectors(self):
        self.assertIn("__stack_chk_fail", readelf("--symbols", LIBRARY))

    @unittest.skipUnless(OPTIMISED, "not optimised")
    def test_has_checked_calls(self):
        self.assertRegex(readelf("--symbols", LIBRARY), r"UND __\w+_chk\b")

    @unittest.skipUnless(IS_X86_64, "x86-64 only")
    def test_marks_where_calls_may_go_in_every_object(self):
        text = readelf("--notes", LIBRARY)
        objects = text.count("File: ")
        self.assertGreater(objects, 5)
        self.assertEqual(len(re.findall(r"x86 feature: IBT, SHSTK", text)), objects)


class Commands(unittest.TestCase):
    def test_protect_against_a_clash_of_stacks(self):
        with open(COMMANDS, encoding="utf-8") as file:
            commands = json.load(file)
        # The tests compile some of the sources for themselves.
        ours = [c for c in commands
                if re.search(r" -o CMakeFiles/(?!bootforge_platform_double)", c["command"])]
        self.assertGreater(len(ours), 30)
        for command in ours:
            with self.subTest(file=command["file"]):
                self.assertIn("-fstack-clash-protection", command["command"])
                self.assertEqual("-D_FORTIFY_SOURCE=2" in command["command"], OPTIMISED)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
