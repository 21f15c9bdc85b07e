#!/usr/bin/env python3
"""scripts/bootstrap on releases that it knows and on one that it does not, with an archive that is played.

usage: bootstrap_test.py ROOT
"""

import os
import shutil
import sys
import tempfile
import unittest

import debian_root

SCRIPT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../scripts/bootstrap")
BOOST = "".join(f"libboost{part}1.99-dev\n" for part in
                ("", "-random", "-filesystem", "-iostreams", "-json", "-regex"))
# dpkg-query tells what /installed says, apt-get adds to it what is in /archive.
PLAYED = {
    "dpkg-query": 'sed "s/$/ installed/" /installed\n',
    "apt-cache": '[ "$1" = pkgnames ] && cat /archive || true\n',
    "apt-get": """for word; do
    if [ "$word" = update ]; then exit 0; fi
    if grep -qx -- "$word" /archive; then echo "$word" >>/installed; fi
done
"""}


class Bootstrap(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.empty = tempfile.mkdtemp(prefix="bootstrap-")
        self.addCleanup(os.rmdir, self.empty)
        self.root = debian_root.DebianRoot(LOWER, self.empty)
        self.addCleanup(self.root.__exit__)
        for name, text in PLAYED.items():
            self.root.write(f"/usr/local/bin/{name}", f"#!/bin/sh\n{text}", 0o755)
        shutil.copy(SCRIPT, f"{self.root.path}/bootstrap")
        self.root.write("/installed", "")

    def bootstrap(self, release, lacking=(), status=0):
        names = [name for name in self.wanted() if name not in lacking]
        identity, number = release
        self.root.write("/etc/os-release", f"ID={identity}\nVERSION_ID={number}\n")
        self.root.write("/archive", BOOST + "".join(f"{name}\n" for name in names))
        return self.root.run("/bootstrap", "--for=demo", status=status)

    def wanted(self):
        """What it asks for, by its own words on an archive without anything."""
        self.root.write("/etc/os-release", "ID=debian\nVERSION_ID=12\n")
        self.root.write("/archive", "")
        said = self.root.run("/bootstrap", "--for=demo", status=1)
        return [line.split()[1] for line in said.splitlines()
                if line.startswith("bootstrap:     ") and "libboost" not in line]

    def installed(self):
        return self.root.read("/installed").split()

    def test_a_known_release_that_lacks_a_package_is_refused(self):
        said = self.bootstrap(("debian", "13"), lacking=("esbuild",), status=1)
        self.assertIn("bootstrap: the package lists of debian 13 lack\nbootstrap:     esbuild\n", said)
        self.assertEqual(self.installed(), [])

    def test_a_known_release_gets_everything_without_a_warning(self):
        said = self.bootstrap(("debian", "13"))
        self.assertNotIn("warning", said)
        self.assertTrue(said.endswith("bootstrap: everything is there now\n"), said)
        self.assertIn("libboost-json1.99-dev", self.installed())

    def test_an_unknown_release_is_warned_about_and_tried(self):
        said = self.bootstrap(("debian", "99"))
        self.assertIn("bootstrap: warning: I know Debian 12, Debian 13 and Ubuntu 24.04. This is "
                      "'debian 99': I try the names that packages have there.\n", said)
        self.assertTrue(said.endswith("bootstrap: everything is there now\n"), said)

    def test_an_unknown_release_that_lacks_a_package_goes_on_without(self):
        said = self.bootstrap(("other", "1"), lacking=("esbuild",))
        self.assertIn("bootstrap: warning: the package lists of other 1 lack esbuild: I go on without, "
                      "and what needs them will say so\n", said)
        self.assertNotIn("everything is there", said)
        self.assertIn("g++", self.installed())
        self.assertNotIn("esbuild", self.installed())


if __name__ == "__main__":
    LOWER = sys.argv.pop()
    debian_root.need_root(LOWER)
    unittest.main()
