#!/usr/bin/env python3
"""Each file is installed by one component, for everybody to read; and authors find what they need.

usage: components_test.py BUILD CMAKE
"""

import glob
import os
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
COMPONENTS = ("runtime", "analyze", "development", "documents")
# What each has at least, and where all that it has stands.
PROGRAMS = {"usr/sbin/bootforge", "usr/sbin/bootforge-adopt", "usr/bin/hypcli",
            "usr/lib/nimbus/bootforge/nativeExecutor", "usr/lib/nimbus/bootforge/launch",
            "usr/lib/nimbus/bootforge/chkconfig"}
FOLDERS = ("usr/libexec/bootforge/plugins", "usr/lib/nimbus/hypcli", "usr/lib/nimbus/hypcli/int",
           "usr/lib/nimbus/hypcli/int/ext", "usr/lib/nimbus/hypcli/ext")
DOCUMENTS = "usr/share/doc/bootforge/"


def run(*words, **options):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(words)}: {done.returncode}\n{done.stdout}")
    return done.stdout


def install(root, *options, umask=0o022):
    return run(CMAKE, "--install", BUILD, *options, env={**os.environ, "DESTDIR": root},
               umask=umask)


def entries(root):
    """Paths below a root: folders with a slash at the end."""
    found = set()
    for folder, folders, names in os.walk(root):
        place = os.path.relpath(folder, root)
        for name in folders + names:
            path = os.path.normpath(os.path.join(place, name))
            is_folder = os.path.isdir(f"{root}/{path}") and not os.path.islink(f"{root}/{path}")
            found.add(path + "/" * is_folder)
    return found


def files(root):
    return {path for path in entries(root) if not path.endswith("/")}


class Components(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="installation-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.whole = f"{cls.folder}/whole"
        install(cls.whole)
        cls.parts = {}
        for component in COMPONENTS:
            cls.parts[component] = f"{cls.folder}/{component}"
            install(cls.parts[component], "--component", component)

    def test_each_file_belongs_to_one_component(self):
        owners = {}
        for component, root in self.parts.items():
            for path in files(root):
                owners.setdefault(path, []).append(component)
        self.assertEqual({path: owner for path, owner in owners.items() if len(owner) > 1}, {})
        self.assertEqual(set(owners), files(self.whole))
        self.assertEqual(set().union(*(entries(root) for root in self.parts.values())),
                         entries(self.whole))

    def test_the_runtime_has_the_programs_their_pages_and_the_folders(self):
        have = entries(self.parts["runtime"])
        self.assertLessEqual(PROGRAMS, have)
        for folder in FOLDERS:
            self.assertIn(folder + "/", have)
        for page in ("bootforge.8", "bootforge-adopt.8", "launch.8", "chkconfig.8",
                     "nativeExecutor.8"):
            self.assertIn(f"usr/share/man/man8/{page}", have)
        self.assertFalse([path for path in have if path.startswith((DOCUMENTS, "usr/include"))])

    def test_the_analyzer_is_apart(self):
        have = files(self.parts["analyze"])
        self.assertLessEqual({"usr/bin/bootforge-analyze",
                              "usr/share/man/man1/bootforge-analyze.1"}, have)
        self.assertFalse([path for path in have if "analyze" not in path])

    def test_authors_of_plugins_get_what_depends_on_no_machine(self):
        schemas = {path for path in files(self.parts["development"])
                   if path.startswith("usr/share/bootforge/schemas/")}
        self.assertEqual(len(schemas), len(glob.glob(f"{PROJECT}/share/schemas/*.json")))
        self.assertEqual(files(self.parts["development"]) - schemas, {
            "usr/include/bootforge/plugin.h", "usr/share/man/man3/bootforge-native.3",
            "usr/share/cmake/bootforge/bootforgeConfig.cmake",
            "usr/share/cmake/bootforge/bootforgeConfigVersion.cmake",
            "usr/share/pkgconfig/bootforge.pc"})

    def test_documents_hold_nothing_else(self):
        have = files(self.parts["documents"])
        self.assertEqual([path for path in have if not path.startswith(DOCUMENTS)], [])
        for path in ("README.md", "docs/plugins.md", "examples/host/etc/init.d/boot"):
            self.assertIn(DOCUMENTS + path, have)

    def test_every_manual_page_is_installed(self):
        pages = {os.path.basename(page) for page in glob.glob(f"{PROJECT}/docs/*.[1-8]")}
        self.assertEqual({os.path.basename(path) for path in files(self.whole)
                          if path.startswith("usr/share/man/")}, pages)

    def test_a_narrow_umask_keeps_nothing_from_anybody(self):
        root = f"{self.folder}/narrow"
        install(root, umask=0o077)
        # Folders above, such as /usr, are the host's.
        for path in sorted(files(root) | {path for path in entries(root) if "/doc/bootforge/" in path}):
            mode = os.lstat(f"{root}/{path}").st_mode
            if stat.S_ISLNK(mode):
                continue
            for_owner = (mode >> 6) & 0o5
            self.assertEqual(stat.S_IMODE(mode) & 0o077, for_owner * 0o11, path)

    def test_another_prefix_at_the_installation_is_warned_of(self):
        said = install(f"{self.folder}/elsewhere", "--prefix", "/opt/y", "--component", "runtime")
        self.assertIn("bootforge will look for nativeExecutor in /usr/lib/nimbus/bootforge",
                      " ".join(said.split()))
        self.assertNotIn("will look for", install(f"{self.folder}/same"))

    def test_stripped_programs_run(self):
        root = f"{self.folder}/stripped"
        install(root, "--strip", "--component", "runtime")
        for path in PROGRAMS:
            sections = run("readelf", "-SW", f"{root}/{path}")
            self.assertNotIn(".debug_info", sections, path)
            self.assertNotIn(".symtab", sections, path)
        run(f"{root}/usr/bin/hypcli", "--version")

    # What authors do

    def environment(self):
        """As if the whole had been installed in "/"."""
        return {**os.environ, "PKG_CONFIG_PATH": f"{self.whole}/usr/share/pkgconfig",
                "PKG_CONFIG_SYSROOT_DIR": self.whole, "PKG_CONFIG_ALLOW_SYSTEM_CFLAGS": "1"}

    @unittest.skipUnless(shutil.which("pkg-config"), "pkg-config is missing")
    def test_pkg_config_tells_where_the_header_and_the_plugins_are(self):
        environment = self.environment()
        flags = run("pkg-config", "--cflags", "bootforge", env=environment).split()
        self.assertEqual(flags, [f"-I{self.whole}/usr/include"])
        run("make", "-C", self.example("c"), f"CPPFLAGS={flags[0]}")
        del environment["PKG_CONFIG_SYSROOT_DIR"]
        for name, place in (("plugindir", "/usr/libexec/bootforge/plugins"),
                            ("commanddir", "/usr/lib/nimbus/hypcli")):
            self.assertEqual(run("pkg-config", f"--variable={name}", "bootforge",
                                 env=environment).strip(), place)

    def example(self, name):
        """A copy of an installed example, for its author to build."""
        copy = tempfile.mkdtemp(prefix="example-", dir=self.folder)
        shutil.copytree(f"{self.whole}/{DOCUMENTS}examples/native", copy, dirs_exist_ok=True)
        return f"{copy}/{name}"

    def test_the_cmake_package_builds_and_installs_a_plugin(self):
        source, build = self.example("with_cmake"), f"{self.folder}/with_cmake"
        run(CMAKE, "-S", source, "-B", build, f"-DCMAKE_PREFIX_PATH={self.whole}/usr")
        run(CMAKE, "--build", build)
        root = f"{self.folder}/image"
        run(CMAKE, "--install", build, env={**os.environ, "DESTDIR": root})
        self.assertEqual(files(root), {"usr/libexec/bootforge/plugins/libswap_tuning.so"})
        symbols = run("nm", "-D", "--defined-only",
                      f"{root}/usr/libexec/bootforge/plugins/libswap_tuning.so")
        self.assertEqual(sorted(line.split()[-1] for line in symbols.splitlines()),
                         ["metadata", "operations"])

    def test_the_cmake_package_refuses_another_major_version(self):
        source = f"{self.folder}/newer"
        os.mkdir(source)
        with open(f"{source}/CMakeLists.txt", "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.22)\nproject(newer LANGUAGES NONE)\n"
                       "find_package(bootforge 1 REQUIRED)\n")
        with self.assertRaisesRegex(AssertionError, "compatible with requested version"):
            run(CMAKE, "-S", source, "-B", f"{source}/build",
                f"-DCMAKE_PREFIX_PATH={self.whole}/usr")


if __name__ == "__main__":
    CMAKE, BUILD = sys.argv.pop(), sys.argv.pop()
    unittest.main()
