#!/usr/bin/env python3
"""What --version says is what was built: a release, a commit, or nobody knows what.

usage: version_test.py BUILD CMAKE
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
IDENTITY = {"GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null",
            "GIT_AUTHOR_NAME": "a", "GIT_AUTHOR_EMAIL": "a@b", "GIT_COMMITTER_NAME": "a",
            "GIT_COMMITTER_EMAIL": "a@b"}
ENVIRONMENT = {name: text for name, text in {**os.environ, **IDENTITY}.items()
               if name not in ("GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE")}


def run(*words, folder=None):
    return subprocess.run(words, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False, env=ENVIRONMENT)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


@unittest.skipUnless(shutil.which("git"), "git is missing")
class Version(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="version-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.source = f"{self.folder}/source"
        os.makedirs(f"{self.source}/cmake")
        for name in ("cmake/archive.txt", ".gitattributes"):
            shutil.copy(f"{PROJECT}/{name}", f"{self.source}/{name}")

    def git(self, *words):
        done = run("git", *words, folder=self.source)
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout.strip()

    def commit(self):
        """Makes a clone with one commit; returns the digits that a version has of it."""
        self.git("init", "--quiet")
        self.git("add", ".")
        self.git("commit", "--quiet", "--message=x")
        return self.git("rev-parse", "HEAD")[:10]

    def archive(self):
        there = f"{self.folder}/archive"
        os.mkdir(there)
        self.git("archive", f"--output={self.folder}/a.tar", "HEAD")
        subprocess.run(["tar", "-xf", f"{self.folder}/a.tar", "-C", there], check=True)
        return there

    def write(self, source, *options):
        output = f"{self.folder}/version.cpp"
        done = run(CMAKE, f"-DSOURCE={source}", "-DNUMBER=3.4.5", *options, f"-DOUTPUT={output}",
                   "-P", f"{PROJECT}/cmake/version.cmake")
        return done, output

    def version(self, *options, source=None):
        done, output = self.write(source or self.source, *options)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        return re.search(r'return "(.*)";', read(output)).group(1)

    def test_a_clone_says_its_commit(self):
        commit = self.commit()
        self.assertEqual(self.version(), f"3.4.5+g{commit}")

    def test_a_changed_clone_says_so(self):
        commit = self.commit()
        self.git("tag", "v3.4.5")
        with open(f"{self.source}/.gitattributes", "a", encoding="utf-8") as file:
            file.write("# more\n")
        self.assertEqual(self.version(), f"3.4.5+g{commit}.changed")

    def test_the_tagged_commit_is_the_release(self):
        self.commit()
        self.git("tag", "other")
        self.git("tag", "--annotate", "--message=x", "v3.4.5")
        with open(f"{self.source}/unknown", "w", encoding="utf-8") as file:
            file.write("nobody builds it\n")
        self.assertEqual(self.version(), "3.4.5")

    def test_the_tag_of_another_release_is_none(self):
        commit = self.commit()
        self.git("tag", "v3.4.4")
        self.assertEqual(self.version(), f"3.4.5+g{commit}")

    def test_an_archive_says_what_its_clone_would(self):
        commit = self.commit()
        there = self.archive()
        self.assertEqual(self.version(source=there), f"3.4.5+g{commit}")
        shutil.rmtree(there)
        self.git("tag", "v3.4.5")
        self.assertEqual(self.version(source=self.archive()), "3.4.5")

    def test_files_without_a_clone_are_unreleased(self):
        self.assertEqual(self.version(), "3.4.5+unreleased")

    def test_what_is_given_is_said(self):
        self.commit()
        self.assertEqual(self.version("-DGIVEN=3.4.5+git1~x-2"), "3.4.5+git1~x-2")

    def test_what_would_be_no_version_is_refused(self):
        for given in ("v1", '1"', "1 2", "1\n"):
            done, output = self.write(self.source, f"-DGIVEN={given}")
            self.assertNotEqual(done.returncode, 0, given)
            self.assertIn("is no version: a digit, then letters, digits and - . + ~",
                          " ".join(done.stdout.split()))
            self.assertFalse(os.path.exists(output))

    def test_the_same_version_is_not_compiled_again(self):
        _, output = self.write(self.source)
        os.utime(output, (1, 1))
        self.write(self.source)
        self.assertEqual(os.stat(output).st_mtime, 1)


class ThisBuild(unittest.TestCase):
    def test_the_programs_say_one_version(self):
        with open(f"{BUILD}/CMakeCache.txt", encoding="utf-8") as file:
            number = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", file.read(), re.M).group(1)
        said = {name: run(f"{BUILD}/{name}", "--version").stdout
                for name in ("hypcli", "bootforge-analyze")}
        version = said["hypcli"].split()[-1]
        self.assertEqual(said, {name: f"{name} {version}\n" for name in said})
        self.assertTrue(version == number or version.startswith(number + "+"), version)

    def test_changelogs_and_manual_pages_have_the_number(self):
        number = re.search(r"^project\(bootforge VERSION (\S+)",
                           read(f"{PROJECT}/CMakeLists.txt"), re.M).group(1)
        first = [line for line in read(f"{PROJECT}/CHANGELOG.md").splitlines()
                 if re.match(r"## \[\d", line)][0]
        self.assertRegex(first, rf"^## \[{re.escape(number)}\] - \d{{4}}-\d\d-\d\d$")
        self.assertIn(f"bootforge ({number}-", read(f"{PROJECT}/packaging/debian/changelog")[:40])
        for page in os.listdir(f"{PROJECT}/docs"):
            if re.search(r"\.[1-8]$", page):
                self.assertIn(f'"bootforge {number}"', read(f"{PROJECT}/docs/{page}"), page)


if __name__ == "__main__":
    CMAKE, BUILD = sys.argv.pop(), sys.argv.pop()
    unittest.main()
