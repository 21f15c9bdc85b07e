"""Small images in a folder of their own, and the analyzer over them."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ANALYZE = ""
PLUGINS = "/usr/libexec/bootforge/plugins"
COMMANDS = "/usr/lib/nimbus/hypcli"


class Image:
    """A root with the folders that every image has."""

    def __init__(self):
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="bootforge-image-"))
        os.chmod(self.root, 0o755)
        for folder in [PLUGINS, COMMANDS + "/int/ext", COMMANDS + "/ext"]:
            self.folder(folder)

    def remove(self):
        shutil.rmtree(self.root)

    def path(self, inside):
        return self.root + inside

    def folder(self, inside):
        """Made with all above it, whatever the umask is."""
        path = self.root
        for name in inside.strip("/").split("/"):
            path = os.path.join(path, name)
            if not os.path.isdir(path):
                os.mkdir(path)
                os.chmod(path, 0o755)

    def put(self, inside, content, mode=0o644):
        self.folder(os.path.dirname(inside))
        with open(self.path(inside), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        os.chmod(self.path(inside), mode)

    def link(self, inside, target):
        self.folder(os.path.dirname(inside))
        os.symlink(target, self.path(inside))

    def plugin(self, name, requires=(), provides=(), start=(), **metadata):
        """A description; flags and run-once keys among `metadata` make it one of version 3."""
        version = 3 if metadata else 1
        if metadata:
            metadata = {"run_once": False, "plugin_version": "", **metadata}
        description = {"metadata": {"version": version, "requires": list(requires),
                                    "provides": list(provides), **metadata},
                       "operations": {"start": list(start)}}
        self.put(f"{PLUGINS}/{name}.json", json.dumps(description))


class Answer:
    def __init__(self, result):
        self.status = result.returncode
        self.bytes = result.stdout
        self.error = result.stderr.decode()

    @property
    def text(self):
        return self.bytes.decode()

    @property
    def json(self):
        return json.loads(self.text)


class ImageCase(unittest.TestCase):
    def setUp(self):
        self.image = Image()
        self.addCleanup(self.image.remove)

    def run_plain(self, *arguments, **options):
        options.setdefault("stdout", subprocess.PIPE)
        result = subprocess.run([ANALYZE, *arguments], stdin=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, timeout=60, check=False, **options)
        return Answer(result)

    def analyze(self, verb, *arguments, **options):
        return self.run_plain(verb, "--root", self.image.root, *arguments, **options)

    def verify(self, *arguments, **options):
        """Whoever runs the tests owns the image."""
        return self.analyze("verify", "--owner", str(os.getuid()), *arguments, **options)


def main():
    global ANALYZE
    ANALYZE = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=1)
