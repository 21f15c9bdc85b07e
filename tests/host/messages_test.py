"""The logs that docs/messages.md shows, healthy and sick, as boots write them today."""

import os
import re
import signal

import host_case
import readings
from host_case import POLLING
from root_folder import BOOTFORGE, EXECUTOR_LOG, SYSLOGD, SYSLOGD_PID

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
STAMP = re.compile(r"^\S+Z (\w+) bootforge\[\d+\]: ")
KINDS = ("Standard output", "The executor's log", "The kernel's log", "The analyzer")


def shown(heading):
    """The logs of a section: (kind, lines), without remarks, times and process ids."""
    with open(f"{PROJECT}/docs/messages.md", encoding="utf-8") as file:
        section = file.read().partition(f"\n### {heading}\n")[2].partition("\n### ")[0]
    blocks = re.findall(rf"^({'|'.join(KINDS)})[^\n]*:\n\n```\n(.*?)^```$", section, re.M | re.S)
    assert 2 * len(blocks) == section.count("```"), f"a log of {heading} is not introduced"
    return [(kind, plain([line for line in text.splitlines()
                          if not line.startswith("    # ")])) for kind, text in blocks]


def plain(lines):
    """What two runs have in common. When the executor's first line comes is chance, and so is what
    a connection ends with whose other end was killed."""
    lines = [STAMP.sub(r"\1 ", line).rstrip() for line in lines]
    lines = [re.sub(r"(Failed to recieve .* Executor: ).*", r"\1...", line) for line in lines]
    return [line for line in lines if line and line != " ".join(POLLING)]


class Logs(host_case.HostCase):
    def boot_host(self):
        host = self.host()
        host.script("/usr/bin/mount", "exit 0\n")
        host.script("/usr/sbin/ip", "exit 0\n")
        host.script("/usr/sbin/service", "exit 0\n")
        required = {"required": True}
        host.command("boot mount", ["/usr/bin/mount", "{device}", "{at}"], device=required,
                     at=required)
        host.command("network ip set", ["/usr/sbin/ip", "address", "replace", "{address}", "dev",
                                        "{interface}"], address=required, interface=required)
        host.command("system service start", ["/usr/sbin/service", "{name}"], name=required)
        host.plugin("state-mount", provides=["fs-ready"],
                    start=["boot mount --device=/dev/vda2 --at=/state"])
        host.plugin("uplink", requires=["fs-ready"], provides=["network-ready"],
                    start=["network ip set --interface=eth0 --address=192.0.2.17/24"])
        host.plugin("web", requires=["network-ready"], start=["system service start --name=web"])
        # A daemon that nobody minds being told to read its configuration again.
        host.script(SYSLOGD, f"trap '' USR1\nsleep 3600 >/dev/null 2>&1 &\necho $! >{SYSLOGD_PID}\n")
        return host

    def logs(self, host, process):
        host.drain()
        executor = readings.text_of(host.read(EXECUTOR_LOG) or b"")
        return {"Standard output": plain(readings.text_of(process.stdout).splitlines()),
                "The executor's log": plain(executor.splitlines()),
                "The kernel's log": [record.removeprefix("<6>") for record in host.kernel_log()]}

    def assert_shown(self, heading, *moments):
        """The page shows these logs, each kind at the first moment that it has not shown yet."""
        blocks = shown(heading)
        self.assertTrue(blocks, heading)
        for kind, lines in blocks:
            said = [moment[kind] for moment in moments if kind in moment]
            self.assertIn(lines, said, f"{heading}: {kind}")

    def test_a_healthy_boot(self):
        host = self.boot_host()
        boot = host.boot("--init")
        self.assertEqual(boot.status, 0)
        self.assert_shown("A healthy boot", self.logs(host, boot))

    def test_a_boot_that_hangs(self):
        host = self.boot_host()
        host.script("/usr/sbin/ip", "exec sleep 1800\n")
        boot = host.start(BOOTFORGE, "--init")
        program, = host.wait_for(lambda: host.processes("sleep", "1800"), "the program")
        hanging = self.logs(host, boot)
        program.signal(signal.SIGTERM)
        self.assertEqual(host.finish(boot).status, 0)
        host.wait_for_executor_end()
        self.assert_shown("A boot that hangs", hanging, self.logs(host, boot))

    def test_a_cycle(self):
        host = self.boot_host()
        host.plugin("state-mount", requires=["network-ready"], provides=["fs-ready"])
        host.plugin("clock", start=["system service start --name=clock"])
        boot = host.start(BOOTFORGE, "--init")
        host.wait_for(lambda: b"clock activated" in host.kernel.text, "the other plugin")
        hanging = self.logs(host, boot)
        host.write("/tmp/kernel.log", host.kernel.text)
        told = host.run("/usr/bin/bootforge-analyze", "stuck", "--messages", "/tmp/kernel.log")
        self.assertEqual(told.status, 1)
        hanging["The analyzer"] = plain(readings.text_of(told.stdout).splitlines())
        self.assertIsNone(boot.status)
        self.assert_shown("A cycle", hanging)

    def test_a_plugin_that_fails(self):
        host = self.boot_host()
        host.script("/usr/sbin/ip", "echo 'Cannot find device \"eth0\"' >&2; exit 1\n")
        boot = host.boot("--init")
        self.assertEqual(boot.status, 0)
        self.assert_shown("A plugin that fails", self.logs(host, boot))

    def test_a_dead_executor(self):
        self.need_restarts()
        # The next command may come while the kernel still closes what the executor had open, and
        # then fails, too; the page says so and shows the other case.
        for _ in range(100):
            host = self.boot_host()
            host.script("/usr/sbin/ip", "kill -9 $PPID\n")
            boot = host.boot("--init")
            self.assertEqual(boot.status, 0)
            if b"web->start() failed" not in boot.stdout:
                break
            self.assertIn(b"from Executor: Connection reset by peer", boot.stdout)
        self.assert_shown("A dead executor", self.logs(host, boot))

    def test_a_full_disk(self):
        self.need_mounts()
        host = self.boot_host()
        host.plugin("keys", version=3, run_once=True)
        for folder in ("/var/log", "/bootbank"):
            host.tmpfs(folder)
            host.fill(folder)
        boot = host.boot("--init")
        self.assertEqual(boot.status, 1)
        self.assert_shown("A full disk", self.logs(host, boot))


if __name__ == "__main__":
    host_case.main()
