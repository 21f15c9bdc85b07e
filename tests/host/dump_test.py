"""The dependency dump of the installed program, compared as a graph.

    net --> [network] --> web --> [site]      [nobody] --> alone
    dns --> [network] --> probe (an injection) --> [probed]
"""

import shutil
import subprocess
import unittest

import host_case
import readings
from host_case import LAUNCHING, SETTING_UP, STOPPED, HostCase
from readings import Vertex
from root_folder import RECORD

BOX = " shape=box"
BARRIERS = ["network", "nobody", "probed", "site"]
EDGES = [("dns", "network"), ("net", "network"), ("network", "probe"), ("network", "web"),
         ("nobody", "alone"), ("probe", "probed"), ("web", "site")]


class Dump(HostCase):
    def graph_host(self):
        host = self.host()
        host.plugin("net", provides=["network"], start=["note add --text=net"])
        host.plugin("dns", provides=["network"], version=3)
        host.plugin("web", requires=["network"], provides=["site"])
        host.plugin("alone", requires=["nobody"])
        host.debug("probe:probed:network:echo probe >>/tmp/notes")
        return host

    def plugins_of(self, host):
        return [name.removesuffix(".json") for name in host.listing()] + ["probe"]

    def check_graph(self, host, text):
        vertices, edges = readings.read_dot(text)
        plugins = self.plugins_of(host)
        self.assertEqual(vertices, [Vertex(name, "") for name in plugins] +
                         [Vertex(name, BOX) for name in BARRIERS])
        self.assertEqual(sorted(edges), EDGES)
        # Each edge stands with its source, sources as above, targets in the order of linking.
        order = plugins + BARRIERS
        self.assertEqual(edges, sorted(edges, key=lambda edge: order.index(edge[0])))
        from_network = [target for source, target in edges if source == "network"]
        self.assertEqual(from_network, ["web", "probe"])

    def assert_nothing_ran(self, host):
        self.assertEqual((host.notes(), host.kernel_log(), host.read(RECORD)), ([], [], None))

    def test_a_file_gets_the_graph_and_no_plugin_runs(self):
        host = self.graph_host()
        boot = host.boot("--dump-dependency-tree=/tmp/tree.dot")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP, STOPPED])
        self.check_graph(host, host.read("/tmp/tree.dot").decode())
        self.assert_nothing_ran(host)
        profile = self.assert_profiled(host, self.plugins_of(host))
        self.assertEqual({node.start.timestamp() for node in profile.nodes}, {0})

    def test_the_console_gets_it_between_the_log_lines(self):
        host = self.graph_host()
        boot = host.boot("--dump-dependency-tree")
        text = boot.stdout.decode()
        begin, end = text.index("digraph g {\n"), text.index("\n}\n") + 3
        self.check_graph(host, text[begin:end])
        log = readings.log_lines((text[:begin] + text[end:]).encode())
        self.assertEqual([(line.level, line.text) for line in log],
                         [LAUNCHING, SETTING_UP, STOPPED])
        self.assertEqual((boot.status, boot.stderr), (0, b""))
        self.assert_nothing_ran(host)

    def test_an_old_dump_is_replaced(self):
        host = self.graph_host()
        host.write("/tmp/tree.dot", "x" * 100_000)
        host.boot("--dump-dependency-tree=/tmp/tree.dot")
        self.check_graph(host, host.read("/tmp/tree.dot").decode())

    @unittest.skipUnless(shutil.which("dot"), "Graphviz is not installed")
    def test_graphviz_draws_it(self):
        host = self.graph_host()
        host.boot("--dump-dependency-tree=/tmp/tree.dot")
        drawn = subprocess.run(["dot", "-Tsvg"], input=host.read("/tmp/tree.dot"),
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        self.assertEqual((drawn.returncode, drawn.stderr), (0, b""))
        for name in self.plugins_of(host) + BARRIERS:
            self.assertIn(f">{name}</text>".encode(), drawn.stdout)
        self.assertEqual(drawn.stdout.count(b'class="edge"'), len(EDGES))

    def test_a_path_that_cannot_be_opened_is_exit_1_and_nothing_runs(self):
        host = self.graph_host()
        boot = host.boot("--dump-dependency-tree=/nonexistent/dir/x")
        self.assertEqual((boot.status, boot.stderr), (1, b""))
        self.assertNotIn(b"digraph", boot.stdout)
        self.assertEqual(boot.messages[:2] + boot.messages[-1:], [LAUNCHING, SETTING_UP, STOPPED])
        self.assertFalse(host.exists("/nonexistent"))
        self.assert_nothing_ran(host)
        self.assert_profiled(host, self.plugins_of(host))

    def test_a_dump_that_does_not_fit_is_exit_1(self):
        self.need_mounts()
        host = self.graph_host()
        host.tmpfs("/tmp/small")
        host.fill("/tmp/small")
        boot = host.boot("--dump-dependency-tree=/tmp/small/tree.dot")
        self.assertEqual((boot.status, boot.stderr), (1, b""))
        (level, text), = boot.messages[2:-1]
        self.assertEqual(level, "error")
        self.assertIn("/tmp/small/tree.dot", text)
        self.assertIn("No space left on device", text)

    def test_a_host_without_plugins_gives_an_empty_graph(self):
        host = self.host()
        host.boot("--dump-dependency-tree=/tmp/tree.dot")
        self.assertEqual(host.read("/tmp/tree.dot"), b"digraph g {\n}\n")

    def test_names_are_written_as_they_are(self):
        host = self.host()
        host.plugin('say "hi"', provides=["a\\b"])
        host.boot("--dump-dependency-tree=/tmp/tree.dot")
        vertices, _ = readings.read_dot(host.read("/tmp/tree.dot").decode())
        self.assertEqual(vertices, [Vertex('say "hi"', ""), Vertex("a\\b", BOX)])

    def test_init_mode_starts_and_reloads_the_log_daemon_all_the_same(self):
        host = self.graph_host()
        host.script("/etc/init.d/evtd", "echo evtd >>/tmp/started\n")
        boot = host.boot("--init", "--dump-dependency-tree=/tmp/tree.dot")
        self.assert_boot(boot, [LAUNCHING, SETTING_UP,
                                ("warning", "unable to open hvksyslogd pid file."), STOPPED])
        self.assertEqual(host.read_lines("/tmp/started"), ["evtd"])
        self.assert_nothing_ran(host)

    def test_a_cycle_can_be_dumped(self):
        host = self.host()
        host.plugin("hen", requires=["egg"], provides=["chicken"])
        host.plugin("nest", requires=["chicken"], provides=["egg"])
        boot = host.boot("--dump-dependency-tree=/tmp/tree.dot")
        self.assertEqual(boot.status, 0)
        _, edges = readings.read_dot(host.read("/tmp/tree.dot").decode())
        self.assertEqual(sorted(edges), [("chicken", "nest"), ("egg", "hen"), ("hen", "chicken"),
                                         ("nest", "egg")])


if __name__ == "__main__":
    host_case.main()
