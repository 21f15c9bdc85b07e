"""Plugin folders as they may be found: missing, unreadable, or full of what is no plugin."""

import json
import os
import shutil

import host_case
import isolation
from host_case import LAUNCHING, SETTING_UP, STOPPED, HostCase, alert, rejected, starting
from root_folder import PLUGINS


MISSING = object()
METADATA = {"version": 3, "requires": [], "provides": [], "run_once": False, "plugin_version": "1"}
OPERATIONS = {"start": []}


def description(metadata=None, operations=None, **root):
    """A sound description with these members changed, or taken out where they are MISSING."""
    def changed(members, changes):
        merged = {**members, **changes}
        return {key: value for key, value in merged.items() if value is not MISSING}
    return json.dumps(changed({"metadata": changed(METADATA, metadata or {}),
                               "operations": changed(OPERATIONS, operations or {})}, root))


UNPARSED = "metadata is corrupt (unable to parse {})".format
UNUSABLE = {
    "empty": ("", "plugin root is not an object"),
    "text": ("plugin", "plugin root is not an object"),
    "cut": (description()[:-3], "plugin root is not an object"),
    "array": ("[]", "plugin root is not an object"),
    "string": ('"metadata"', "plugin root is not an object"),
    "number": ("7", "plugin root is not an object"),
    "no-metadata": (json.dumps({"operations": OPERATIONS}), "invalid metadata interface"),
    "list-metadata": ('{"metadata": [], "operations": {}}', "invalid metadata interface"),
    "no-version": (description({"version": MISSING}), UNPARSED("version")),
    "text-version": (description({"version": "3"}), UNPARSED("version")),
    "version-0.5": (description({"version": 0.5}), "Unsupported API version"),
    "version-5": (description({"version": 5}), "Unsupported API version"),
    "version-negative": (description({"version": -1}), "Unsupported API version"),
    "version-huge": (description({"version": 1e300}), "Unsupported API version"),
    "no-requires": (description({"requires": MISSING}), UNPARSED("requires")),
    "text-requires": (description({"requires": "net"}), UNPARSED("requires")),
    "number-requires": (description({"requires": [1]}), "requires tag is not a string"),
    "no-provides": (description({"provides": MISSING}), UNPARSED("provides")),
    "number-provides": (description({"provides": ["a", 1]}), "provides tag is not a string"),
    "text-flags": (description({"required_flags": "x"}), UNPARSED("required_flags")),
    "number-flags": (description({"disabling_flags": [None]}),
                     "disabling_flags tag is not a string"),
    "no-run-once": (description({"run_once": MISSING}), UNPARSED("run_once")),
    "text-run-once": (description({"run_once": "true"}), UNPARSED("run_once")),
    "no-plugin-version": (description({"plugin_version": MISSING}), UNPARSED("plugin_version")),
    "number-plugin-version": (description({"plugin_version": 1}), UNPARSED("plugin_version")),
    "no-operations": (json.dumps({"metadata": METADATA}), "invalid operations interface"),
    "text-operations": (json.dumps({"metadata": METADATA, "operations": "start"}),
                        "invalid operations interface"),
    "no-start": (description(None, {"start": MISSING}),
                 "operations is corrupt (unable to parse start)"),
    "number-start": (description(None, {"start": ["a b", 3]}), "command is not a string"),
    "text-profile": (description(None, {"apply_host_profile": "x"}),
                     "operations is corrupt (unable to parse apply-host-profile)"),
    "number-profile": (description(None, {"apply_host_profile": [False]}),
                       "command is not a string"),
}


class PluginFiles(HostCase):
    def assert_rejected(self, host, reasons, rest=(), **options):
        """Each file of (name -> reason) is one alert and one warning; then the rest runs."""
        boot = host.boot(**options)
        texts = [rejected(name, reasons[name]) for name in host.listing() if name in reasons]
        self.assertEqual(len(texts), len(reasons))
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *(("warning", text) for text in texts),
                                *rest, STOPPED])
        alerts = [record for record in host.kernel_log() if record.startswith("<1>")]
        self.assertEqual(alerts, [alert(text) for text in texts])

    def test_every_defect_of_a_description_is_told_and_the_others_run(self):
        host = self.host()
        host.plugin("sound", start=["note add --text=ran"])
        for name, (content, _) in UNUSABLE.items():
            host.write(f"{PLUGINS}/{name}.json", content)
        self.assert_rejected(host, {f"{name}.json": reason
                                    for name, (_, reason) in UNUSABLE.items()},
                             [starting("sound")])
        self.assertEqual(host.notes(), ["ran"])

    def test_odd_descriptions_that_are_right_run(self):
        host = self.host()
        odd = {"comments": "/* what */ " + description() + " // why\n",
               "truncated": description({"version": 4.99}),
               "low": description({"version": 1.9, "run_once": MISSING, "plugin_version": MISSING,
                                   "required_flags": 7}, {"apply_host_profile": "ignored"}),
               "more": description({"color": "red"}, {"stop": 7}, future=[1]),
               "twice": description({"required_flags": []}, {"start": []}),
               "a.b": description()}
        for name, content in odd.items():
            host.write(f"{PLUGINS}/{name}.json", content)
        order = [name.removesuffix(".json") for name in host.listing()]
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *map(starting, order), STOPPED])

    def test_a_deep_description_is_no_danger(self):
        host = self.host()
        host.write(f"{PLUGINS}/deep.json", description(future="?").replace(
            '"?"', "[" * 1000 + "]" * 1000))
        host.write(f"{PLUGINS}/bottomless.json", "[" * 1_000_000)
        self.assert_rejected(host, {"bottomless.json": "plugin root is not an object"},
                             [starting("deep")])

    def test_what_is_no_file_counts_as_one_that_cannot_be_opened(self):
        host = self.host()
        host.plugin("sound")
        os.mkdir(host.path(f"{PLUGINS}/folder.json"))
        os.mkfifo(host.path(f"{PLUGINS}/fifo.json"))
        os.symlink("/no/such/file", host.path(f"{PLUGINS}/dangling.json"))
        os.symlink("loop.json", host.path(f"{PLUGINS}/loop.json"))
        os.symlink("/dev/console", host.path(f"{PLUGINS}/device.json"))
        os.symlink("/dev/log", host.path(f"{PLUGINS}/socket.json"))
        names = ("folder", "fifo", "dangling", "loop", "device", "socket")
        self.assert_rejected(host, {f"{name}.json": "no such file or directory" for name in names},
                             [starting("sound")])

    def test_a_link_to_a_description_is_one(self):
        host = self.host()
        host.plugin("sound")
        os.symlink("sound.json", host.path(f"{PLUGINS}/alias.json"))
        boot = host.boot()
        order = [name.removesuffix(".json") for name in host.listing()]
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, *map(starting, order), STOPPED])

    def test_an_unreadable_description_counts_as_one_that_cannot_be_opened(self):
        host = self.host()
        host.plugin("sound")
        host.plugin("secret")
        os.chmod(host.path(f"{PLUGINS}/secret.json"), 0)
        self.assert_rejected(host, {"secret.json": "no such file or directory"},
                             [starting("sound")],
                             dropped=[isolation.CAP_DAC_OVERRIDE, isolation.CAP_DAC_READ_SEARCH])

    def assert_no_folder(self, host, reason, **options):
        boot = host.boot(**options)
        (level, text), = boot.messages[2:-1]
        self.assertEqual(level, "error")
        self.assertRegex(text, "^unhandled exception whilst enumerating plugins.\nDetails:\n .*"
                               f"{reason}.* $")
        self.assertIn(PLUGINS, text)
        self.assertEqual(boot.messages[:2] + boot.messages[-1:], [LAUNCHING, SETTING_UP, STOPPED])
        self.assertEqual((boot.status, boot.stderr), (1, b""))
        self.assert_profiled(host, [])
        self.assertEqual(host.listing("/bootbank"), [])

    def test_a_missing_folder_ends_the_gathering_and_the_rest_is_still_done(self):
        host = self.host()
        shutil.rmtree(host.path(PLUGINS))
        host.write("/var/run/nimbus/configstore/autoconf", "")
        self.assert_no_folder(host, "No such file or directory")
        self.assertFalse(host.exists("/var/run/nimbus/configstore/autoconf"))

    def test_a_file_in_the_place_of_the_folder_does_too(self):
        host = self.host()
        shutil.rmtree(host.path(PLUGINS))
        host.write(PLUGINS, "")
        self.assert_no_folder(host, "Not a directory")

    def test_an_unreadable_folder_does_too(self):
        host = self.host()
        os.chmod(host.path(PLUGINS), 0)
        self.assert_no_folder(host, "Permission denied",
                              dropped=[isolation.CAP_DAC_OVERRIDE, isolation.CAP_DAC_READ_SEARCH])

    def test_an_empty_folder_is_a_boot_of_nothing(self):
        host = self.host()
        boot = host.boot()
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, STOPPED])
        self.assertEqual(host.record(), "bootforge.run-once=\n")
        self.assert_profiled(host, [])


if __name__ == "__main__":
    host_case.main()
