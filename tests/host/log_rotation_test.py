"""The executor's log is rotated by logrotate(8) while the executor and others write into it."""

import gzip
import os
import shutil
import subprocess

import host_case
from host_case import HostCase
from root_folder import EXECUTOR_LOG

EXAMPLE = os.path.join(os.path.dirname(__file__), "../../examples/logrotate/bootforge")
LOGROTATE = shutil.which("logrotate", path=f"{os.environ.get('PATH', '')}:/usr/sbin:/sbin")


class LogRotation(HostCase):
    def rotate(self, host):
        with open(EXAMPLE, encoding="utf-8") as file:
            text = file.read()
        self.assertIn(f"\n{EXECUTOR_LOG} {{\n", text)
        host.write("/etc/logrotate.conf", text.replace(EXECUTOR_LOG, host.path(EXECUTOR_LOG)))
        done = subprocess.run([LOGROTATE, "--force", "--state", host.path("/tmp/rotated"),
                               host.path("/etc/logrotate.conf")], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_what_is_written_afterwards_stands_in_the_new_log(self):
        if LOGROTATE is None:
            self.skipTest("logrotate is missing")
        host = self.host()
        # The first leaves a process behind, which writes when everything else is over.
        host.shell_command("say first", "echo first\n(read x </tmp/late; echo last) &\n")
        host.shell_command("say second", "read x </tmp/gate; echo second\n")
        host.plugin("speaker", start=["say first", "say second"])
        host.gate("/tmp/gate")
        host.gate("/tmp/late")
        boot = host.start("/usr/sbin/bootforge")
        host.wait_for(lambda: host.processes("/usr/bin/say-second"), "the second command")
        before = host.read(EXECUTOR_LOG)
        mode = os.stat(host.path(EXECUTOR_LOG)).st_mode
        self.assertIn(b"first\n", before)

        self.rotate(host)
        self.assertEqual(host.read(EXECUTOR_LOG + ".1"), before)
        self.assertEqual(host.read(EXECUTOR_LOG), b"")
        self.assertEqual(os.stat(host.path(EXECUTOR_LOG)).st_mode, mode)

        gates = [host.open_gate("/tmp/gate")]
        host.finish(boot)
        host.wait_for_executor_end()
        again = host.read(EXECUTOR_LOG)
        self.assertTrue(again.startswith(b"second\n"), again)
        self.rotate(host)
        self.assertEqual(host.read(EXECUTOR_LOG + ".1"), again)
        self.assertEqual(gzip.decompress(host.read(EXECUTOR_LOG + ".2.gz")), before)

        gates.append(host.open_gate("/tmp/late"))
        host.wait_for_emptiness()
        self.assertEqual(host.read(EXECUTOR_LOG), b"last\n")
        for gate in gates:
            os.close(gate)


if __name__ == "__main__":
    host_case.main()
