"""Compares what bootforge-analyze says of an image with what a boot of it did."""

import collections
import os
import re

from drawn_image import PROBE

REJECTING = {"description-unreadable", "description-syntax", "description-invalid",
             "native-unloadable", "native-symbol-missing", "native-record-invalid",
             "native-library-missing"}
# Levels of lines that may not come from a clean image.
LOUD = {"error", "warning"}
STARTING = "executing start plugin: "
LOADING = "exception occurred whilst loading plugin "
COMMAND_FAILURE = re.compile(r"Method invocation failed: (.*)->start\(\) failed: "
                             r"error while executing the cli", re.S)
UNPROVIDED = re.compile(r'Bootforge dependency error: Initialization barrier "(.*)" is not '
                        r'provided by any plugin but the following plugins require it: .*', re.S)
# An object that calls what nobody has is read, and cannot run.
UNRESOLVED = "->start() failed: exited with code 127"
REFUSALS = {"command-syntax", "command-unknown", "command-parameter-unknown",
            "command-parameter-missing", "command-is-stop", "command-program-missing"}


def plain(text):
    """A text without what logs and JSON show each in their own way: control characters as \\xNN,
    each run of bytes that are no UTF-8 as one replacement character."""
    text = text.encode("utf-8", "surrogateescape").decode("utf-8", "replace")
    text = re.sub("[\0-\x08\x0b-\x1f\x7f]", lambda match: f"\\x{ord(match[0]):02x}", text)
    return re.sub("\ufffd+", "\ufffd", text)


def name_of(file):
    """The plugin's name of a file, and its extension."""
    stem, dot, extension = file.rpartition(".")
    if not dot:
        return file, None
    return stem[3:] if stem.startswith("lib") else stem, extension


class Agreement:
    """One image: `problems` says where the two programs disagree."""

    def __init__(self, image, files, verified, planned, boot):
        self.image, self.files, self.boot = image, files, boot
        self.findings, self.plan = verified, planned
        self.problems = []
        self.by_rule = collections.defaultdict(list)
        for finding in self.findings:
            self.by_rule[finding["rule"]].append(finding)
        self.is_enumerated = not self.by_rule["debug-invalid"] and \
            not self._plugin_folder_findings()
        self.started = [plain(text[len(STARTING):]) for level, text in boot.lines
                        if level == "info" and text.startswith(STARTING)]
        self.order = [plain(node["name"]).rstrip("\n") for node in self.plan["order"]
                      if node["kind"] == "plugin"]
        self.blocked = [plain(name).rstrip("\n") for name in self.plan["blocked"]]
        self.rejected = {}
        self._compare()

    @property
    def is_clean(self):
        return not self.by_rule["plugin-left-out"] and \
            all(finding["severity"] == "note" for finding in self.findings)

    def _plugin_folder_findings(self):
        return [finding for finding in self.by_rule["folder-unreadable"]
                if finding["file"].endswith("/plugins")]

    def _problem(self, text):
        self.problems.append(text)

    def _same(self, what, said, done):
        """Both as sequences of texts."""
        said, done = list(said), list(done)
        if said != done:
            self._problem(f"{what}\n      analyze: {said}\n      boot:    {done}")

    def _same_unordered(self, what, said, done):
        self._same(what, sorted(said), sorted(done))

    def _lines(self, level, pattern):
        return [match for found, text in self.boot.lines if found == level
                if (match := re.fullmatch(pattern, plain(text), re.S))]

    def _compare(self):
        if self.image.named and self.by_rule["debug-invalid"]:
            # Each file of a list is rejected for it; there is nothing else to compare.
            self._same("a boot that reads nothing", [[], []], [self.order, self.started])
            return
        gave_up = self._lines("error", r"unhandled exception whilst enumerating plugins.*")
        self._same("does the boot get past reading?", [self.is_enumerated], [not gave_up])
        if gave_up:
            self._same("a boot that reads nothing", [[], []], [self.order, self.started])
            self._same("exit status of the boot", [1], [self.boot.status])
            return
        self._compare_rejections()
        self._compare_types()
        self._compare_left_out()
        self._compare_order()
        self._compare_milestones()
        # The executor reads its command files at the first command. That of the probe runs in every
        # boot, but where there is no folder of plugins, or where it met an executor that was just
        # told to stop.
        failed = {match[1] for match in self._lines("error", COMMAND_FAILURE.pattern)}
        is_stopped = self.by_rule["command-is-stop"] and PROBE in failed
        if self.image.has_folder and not is_stopped:
            self._compare_command_files()
        self._compare_commands()
        if self.is_clean:
            loud = [(level, text) for level, text in self.boot.lines + self.boot.executor_lines
                    if level in LOUD and not text.endswith(UNRESOLVED)]
            self._same("messages of a clean image", [], loud)

    def _compare_rejections(self):
        for level, text in self.boot.lines:
            if not text.startswith(LOADING):
                continue
            rest = plain(text[len(LOADING):])
            files = [file for file in self.files if rest.startswith(plain(file) + ": ")]
            if level != "warning" or not files:
                self._problem(f"a rejection of no file: {level} {text!r}")
                continue
            file = max(files, key=len)
            self.rejected[file] = rest[len(plain(file)) + 2:]
        reasons = collections.defaultdict(list)
        for finding in self.findings:
            if finding["rule"] in REJECTING:
                reasons[plain(finding["file"].rpartition("/")[2])].append(finding)
        self._same_unordered("rejected files", reasons, map(plain, self.rejected))
        for file, reason in self.rejected.items():
            said = reasons.get(plain(file), [])
            if file.endswith(".json"):
                reason = reason.partition("' is invalid: ")[2]
                agrees = any(reason in plain(finding["message"]) for finding in said)
            else:
                agrees = any(self._tells_of(finding, reason) for finding in said)
            if said and not agrees:
                self._problem(f"the reason against {file!r}: {reason!r}, not "
                              f"{[finding['message'] for finding in said]}")

    @staticmethod
    def _tells_of(finding, reason):
        if finding["rule"] == "native-symbol-missing":
            return reason.startswith("Failed loading symbol: " + finding["message"].split('"')[1])
        if finding["rule"] == "native-record-invalid":
            return finding["message"] in reason
        return "is invalid: " in reason  # the loader has words of its own

    def _compare_types(self):
        self._same_unordered(
            "entries that are no plugins",
            (plain(finding["message"]) for finding in self.by_rule["plugin-unknown-type"]),
            (match[0] for match in self._lines("warning",
                                               r"ignoring plugin '.*' of un(known|specified) .*")))

    def _compare_left_out(self):
        done = {match[1] for level in ("warning", "info") for match in self._lines(
            level, r"ignoring plugin '(.*)'(?:, disabled due to| due to denylist| because version)"
                   r".*")}
        said = {plain(finding["subject"]) for finding in self.by_rule["plugin-left-out"]}
        self._same_unordered("plugins that are left out", said, done)

    def _compare_order(self):
        self._same("the order", self.order, self.started)
        self._same("does the boot hang?", [bool(self.blocked)], [self.boot.status is None])
        # Every plugin that was accepted runs, or waits for ever.
        accepted = collections.Counter()
        for file in self.files:
            name, extension = name_of(file)
            if extension in ("json", "so") and file not in self.rejected:
                accepted[plain(name).rstrip("\n")] += 1
        for finding in self.by_rule["plugin-left-out"]:
            accepted[plain(finding["subject"]).rstrip("\n")] -= 1
        known = collections.Counter(self.started) + collections.Counter(self.blocked)
        injections = known - accepted
        if accepted - known:
            self._problem(f"accepted, neither run nor blocked: {dict(accepted - known)}")
        text = plain((self.image.debug or b"").decode("utf-8", "surrogateescape"))
        for name in injections:
            if name not in text:
                self._problem(f"it runs or is blocked, and nothing asks for it: {name!r}")

    def _compare_milestones(self):
        # A milestone with a zero byte is shown up to there; those that wait for ever say nothing.
        said = {plain(finding["subject"]).partition("\\x00")[0].replace("\n", " ")
                for finding in self.by_rule["milestone-unprovided"]}
        done = {plain(match[1]).replace("\n", " ")
                for match in self._lines("warning", UNPROVIDED.pattern)}
        done |= {plain(text).partition('barrier "')[2].partition('"')[0].replace("\n", " ")
                 for level, text in self.boot.lines if level == "warning" and
                 text.startswith("Bootforge dependency error") and not UNPROVIDED.fullmatch(text)}
        self._same_unordered("milestones that nobody provides", said, done)

    def _compare_command_files(self):
        skipped, ignored, folders, shadowed = {}, [], [], 0
        # An executor that was told to stop is followed by another, which reads everything again.
        seen = set()
        for _, text in self.boot.executor_lines:
            text = plain(text)
            if self.by_rule["command-is-stop"] and text in seen:
                continue
            seen.add(text)
            if match := re.fullmatch(r"command file (.*?\.json) is skipped: (.*)", text, re.S):
                skipped[match[1]] = match[2]
            elif match := re.fullmatch(r"command file (.*?\.json): (.*)", text, re.S):
                ignored.append(f"{match[1]}: {match[2]}")
            elif text.startswith("unable to add external directory"):
                folders.append(text.rpartition("dispatcher: ")[2].partition(": ")[0])
            elif " takes the place of that of " in text:
                shadowed += 1
        reasons = collections.defaultdict(list)
        for finding in self.by_rule["command-file-invalid"]:
            reasons[plain(finding["file"])].append(plain(finding["message"]))
        self._same_unordered("command files that are skipped", reasons, skipped)
        for file, reason in skipped.items():
            if file in reasons and not any(reason == said or said in reason
                                           for said in reasons[file]):
                self._problem(f"the reason against {file}: {reason!r}, not {reasons[file]}")
        # A file that is skipped has no other messages.
        self._same_unordered(
            "keys of command files that are ignored",
            (f"{plain(finding['file'])}: {plain(finding['message'])}"
             for finding in self.by_rule["command-file-unknown-key"]
             if plain(finding["file"]) not in reasons), ignored)
        self._same_unordered("command folders that cannot be read",
                             (finding["file"] for finding in self.by_rule["folder-unreadable"]),
                             folders)
        self._same("commands that are defined twice", [len(self.by_rule["command-shadowed"])],
                   [shadowed])

    def _compare_commands(self):
        """Plugins whose start fails are those with a finding about a command line."""
        if self.by_rule["command-program-missing"]:
            return  # these stand in the command file
        done = {match[1].rstrip("\n") for match in self._lines("error", COMMAND_FAILURE.pattern)}
        # A line that is cut may be good or bad; what only a host profile would run is not run; a
        # request to stop may take the executor from other plugins too.
        uncertain, said = set(), set()
        for finding in self.findings:
            if not finding["rule"].startswith("command-") or not finding["file"]:
                continue
            name = plain(name_of(os.path.basename(finding["file"]))[0]).rstrip("\n")
            if finding["rule"] == "command-too-long":
                uncertain.add(name)
            elif finding["rule"] in REFUSALS:
                said.add(name)
        ran = set(self.started)
        beside = self.boot.with_host_profile | uncertain
        if self.by_rule["command-is-stop"]:
            beside |= done - said
        self._same_unordered("plugins with a command that is refused",
                             {name for name in said if name in ran} - beside, done - beside)
