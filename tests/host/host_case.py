"""The base of the tests against scratch hosts, and the way to run a file of them."""

import os
import sys
import time
import unittest

import isolation
import readings
import scratch_host
from root_folder import PLUGINS

SKIPPED = 77  # what ctest takes for "could not be tried here"

LAUNCHING = ("info", "Launching Executor")
SETTING_UP = ("info", "Setting up Executor - Reset Requested")
POLLING = ("info", "Executor Reset - polling for commands")
SIGNALLED = ("info", "Bootforge executor signalled to stop")
STOPPED = ("info", "Executor has been Successfully Stopped")
ALREADY_GONE = ("info", "Executor already gone.")
CLI_FAILURE = "error while executing the cli"


def starting(name):
    return ("info", f"executing start plugin: {name}")


def failed(name, *reasons, operation="start"):
    """What a plugin with failing commands logs: a reason for each, then the whole."""
    return [("error", reason) for reason in reasons] + [
        ("error", f"Method invocation failed: {name}->{operation}() failed: {CLI_FAILURE}")]


def refused(command):
    return f"Executor failed executing hypcli command: {command}"


def activation(name, failure=None):
    """The kernel records of one plugin."""
    end = f"activation failed: {failure}" if failure else "activated."
    return [f"<6>bootforge: Activating Bootforge plugin {name}.",
            f"<6>bootforge: Bootforge plugin {name} {end}"]


def cli_failure(name, operation="start"):
    return f"{name}->{operation}() failed: {CLI_FAILURE}"


def rejected(file, reason):
    """The text of the alert and of the log line for a description that is unusable."""
    return (f"exception occurred whilst loading plugin {file}: plugin `{PLUGINS}/{file}' is "
            f"invalid: {reason}")


def unhandled(reason):
    return ("error", f"unhandled exception whilst enumerating plugins.\nDetails:\n {reason} ")


def alert(text):
    return f"<1>bootforge: {text}"


class HostCase(unittest.TestCase):
    """Tests get hosts from host(); each is closed, and looked at for leftovers, after the test."""

    maxDiff = None
    longMessage = True

    def setUp(self):
        self.hosts = []

    def host(self, **options):
        host = scratch_host.ScratchHost(**options)
        self.hosts.append(host)
        self.addCleanup(host.close)
        return host

    def describe(self):
        return "\n".join(f"=== host {host.root}\n{host.describe()}" for host in self.hosts)

    def need_mounts(self):
        if not isolation.isolation().mounts:
            self.skipTest("mounts are not allowed here")

    def need_proc(self):
        if not isolation.isolation().mounts:
            self.skipTest("/proc cannot be mounted here")

    def need_private_processes(self):
        if not isolation.isolation().pids:
            self.skipTest("pid namespaces are not allowed here")

    def need_restarts(self):
        """For tests in which a worker thread starts an executor anew."""
        if os.environ.get("BOOTFORGE_HOST_SANITIZE") == "thread":
            self.skipTest("ThreadSanitizer ends a process that was forked among threads when it "
                          "starts a thread itself")

    # Assertions

    def assert_boot(self, process, messages, status=0, stderr=b""):
        """The whole of what a run of bootforge tells its starter."""
        self.assertEqual(process.messages, messages)
        self.assertEqual(process.stderr, stderr)
        self.assertEqual(process.status, status)

    def assert_executor_log(self, host, *expected):
        """The executor's own log. Its first line is written beside the first commands, so it may
        stand anywhere before the end."""
        log = host.executor_log()
        self.assertEqual(log.count(POLLING), 1 if POLLING in expected or not expected else 0)
        self.assertEqual([line for line in log if line != POLLING],
                         [line for line in expected if line != POLLING])

    def assert_in_order(self, expected, sequence):
        """Each of the expected items, in that order, with anything between them."""
        rest = iter(sequence)
        for item in expected:
            self.assertTrue(any(item == other for other in rest),
                            f"{item!r} is missing or out of order in {list(sequence)!r}")

    def assert_syslog_holds(self, host, *logs):
        """The syslog got every message of these logs of (level, text) pairs, each log in its
        order, and nothing else. The executor's first line may come late, as in its own log."""
        got = [(message.priority, readings.without_numbers(message.text))
               for message in host.syslog()]
        wanted = [[(readings.PRIORITIES[level], text) for level, text in log] for log in logs]
        self.assertEqual(sorted(got), sorted(sum(wanted, [])))
        polling = (readings.PRIORITIES[POLLING[0]], POLLING[1])
        for log in wanted:
            self.assert_in_order([line for line in log if line != polling], got)

    def assert_profiled(self, host, names, **options):
        """The boot profile has these nodes in this order, and these options (others are off)."""
        profile = host.profile()
        self.assertEqual([node.name for node in profile.nodes], names)
        for name in ("verbose", "parallel", "randomize", "interactive"):
            self.assertEqual(profile.options[name], options.get(name, 0), name)
        return profile


class _Result(unittest.TextTestResult):
    """Prints the time of each test, and the hosts' state beside each failure."""

    def startTest(self, test):
        super().startTest(test)
        self._started = time.monotonic()

    def addSuccess(self, test):
        self.stream.write(f"{time.monotonic() - self._started:.2f} s ")
        super().addSuccess(test)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._add_state(self.failures, test)

    def addError(self, test, err):
        super().addError(test, err)
        self._add_state(self.errors, test)

    def _add_state(self, listed, test):
        if isinstance(test, HostCase):
            listed[-1] = (test, f"{listed[-1][1]}\n{test.describe()}")


def main():
    """Runs the tests of the calling file. Exit status 0, 1, or 77 when every test skipped."""
    reason = None
    image = os.environ.get("BOOTFORGE_HOST_IMAGE", "")
    if not os.path.exists(f"{image}/complete"):
        sys.exit(f"BOOTFORGE_HOST_IMAGE={image}: no image there; image.py makes one")
    try:
        print(f"hosts: {isolation.isolation()}", flush=True)
    except isolation.Unavailable as unavailable:
        reason = str(unavailable)
    if reason:
        print(f"skipped: no scratch host can be made here: {reason}")
        sys.exit(SKIPPED)
    program = unittest.main(module="__main__", exit=False, verbosity=2,
                            testRunner=unittest.TextTestRunner(resultclass=_Result, verbosity=2,
                                                               stream=sys.stdout))
    result = program.result
    for test, why in result.skipped:
        print(f"skipped: {test}: {why}")
    if not result.wasSuccessful():
        sys.exit(1)
    sys.exit(SKIPPED if result.testsRun == len(result.skipped) else 0)
