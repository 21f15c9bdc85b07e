#!/usr/bin/env python3
"""The models of tests/attacks/models fit the sources, and a change of the sources is noticed."""

import os
import sys
import unittest

HERE = os.path.dirname(os.path.realpath(__file__))
PROJECT = os.path.realpath(f"{HERE}/../..")
sys.path.insert(0, f"{HERE}/models")

import protocol

SOURCE = """
class Gate { public: Gate() : open_(false) {} bool open_; };
void Door::open(int turns) {  // as often as told
  for (int turn = 0; turn < turns; ++turn) knock("x;}");
}
void Door::close() { Door::open(0); }
"""
MODEL = "protocol: door.cpp Door::open {}\nprotocol: door.cpp Gate {}\n"


class Protocol(unittest.TestCase):
    def differences(self, source):
        model = MODEL.format(protocol.digest(SOURCE, "Door::open"), protocol.digest(SOURCE, "Gate"))
        return protocol.differences(model, lambda _: source)

    def test_every_model_fits_the_sources(self):
        for name in ("executor", "restart"):
            with open(f"{HERE}/models/{name}.pml", encoding="utf-8") as file:
                model = file.read()
            found = protocol.differences(model, self.read)
            self.assertEqual(found, [], "tests/attacks/models/run --check tells what to do")

    @staticmethod
    def read(path):
        with open(f"{PROJECT}/{path}", encoding="utf-8") as file:
            return file.read()

    def test_a_source_as_it_was_fits(self):
        self.assertEqual(self.differences(SOURCE), [])

    def test_comments_layout_and_other_functions_do_not_count(self):
        changed = SOURCE.replace("// as often as told", "/* { */\n\n").replace("open(0)", "open(7)")
        self.assertEqual(self.differences(changed), [])

    def test_a_changed_token_is_noticed(self):
        for old, new in (("turn < turns", "turn <= turns"), ("x;}", "x;)"), ("++turn", "turn++")):
            with self.subTest(new):
                self.assertEqual(self.differences(SOURCE.replace(old, new)),
                                 ["door.cpp: Door::open has changed"])

    def test_a_changed_class_is_noticed(self):
        self.assertEqual(self.differences(SOURCE.replace("open_(false)", "open_(true)")),
                         ["door.cpp: Gate has changed"])

    def test_a_function_that_is_gone_is_named(self):
        self.assertEqual(self.differences(SOURCE.replace("::open(int", "::push(int")),
                         ["door.cpp: Door::open: it is not there"])

    def test_a_model_that_names_no_function_is_told(self):
        self.assertEqual(protocol.differences("byte x;", self.read), ["it names no function"])


if __name__ == "__main__":
    unittest.main()
