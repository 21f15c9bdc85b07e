#!/usr/bin/env python3
"""names: the names of an image, for other programs.

names_test.py ANALYZER [TEST...]
"""

import image
from image import PLUGINS, ImageCase


class Names(ImageCase):
    def setUp(self):
        super().setUp()
        self.image.plugin("net", ["early"], ["net-ready"], required_flags=["production", "a"])
        self.image.plugin("libold", ["net-ready"], disabling_flags=["a"], run_once=True,
                          plugin_version="1 b")
        self.image.plugin("keys", run_once=True, plugin_version="2")
        self.image.put(PLUGINS + "/bad.json", "{")
        self.image.put(PLUGINS + "/README", "")
        self.image.put(PLUGINS + "/probe.debug", "")
        self.image.put("/etc/nimbus/bootforge/debug.conf", "probe:probed:keys:true\n")

    def assert_names(self, kind, names, *options):
        answer = self.analyze("names", kind, *options)
        self.assertEqual((answer.status, answer.error), (0, ""))
        self.assertEqual(answer.text.splitlines(), names)
        self.assertEqual(self.analyze("names", kind, *options, "--format=json").json,
                         {"names": names})

    def test_plugins_that_can_be_read(self):
        self.assert_names("plugins", ["keys", "net", "old", "probe"])

    def test_plugins_that_are_left_out_are_listed_too(self):
        self.assert_names("plugins", ["keys", "net", "old", "probe"], "--plugin-flags=a",
                          "--disable-plugins=keys")

    def test_files_that_a_boot_would_take(self):
        self.assert_names("files", ["bad.json", "keys.json", "libold.json", "net.json",
                                    "probe.debug"])

    def test_milestones(self):
        self.assert_names("milestones", ["early", "keys", "net-ready", "probed"])

    def test_flags_each_once(self):
        self.assert_names("flags", ["a", "production"])

    def test_keys_as_the_record_holds_them(self):
        self.assert_names("keys", ["keys2", "old1b"])

    def test_scripts_and_their_levels(self):
        self.image.put("/etc/init.d/web", "#!/bin/sh\n# chkconfig: 3 30 70\n", 0o755)
        self.assert_names("plugins", ["web"], "--daemons")
        self.assert_names("milestones", ["_<->_priority_<->_30"], "--daemons")

    def test_a_name_is_one_line(self):
        self.image.plugin("two\nlines")
        self.assertIn("two\\x0alines", self.analyze("names", "plugins").text.splitlines())

    def test_a_kind_has_to_be_named(self):
        for words in ([], ["colours"]):
            answer = self.analyze("names", *words)
            self.assertEqual((answer.status, answer.bytes), (2, b""))


if __name__ == "__main__":
    image.main()
