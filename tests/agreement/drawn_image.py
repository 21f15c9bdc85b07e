"""Drawn images: a folder of plugins, command files, debug injections and the options of a boot.

An image is told whole by a seed and its number. Most of one is good, so that the good of it can be
compared too: order, milestones, what runs.
"""

import os
import random

from drawn_text import Object, Raw, mutate_bytes, mutate_value, write

FLAGS = ["a", "b", "c"]
MILESTONES = [f"m{number}" for number in range(10)]
COMMAND_FOLDERS = ["", "/int", "/int/ext", "/ext"]
# Not mutated, and always run: so the executor reads the command files in every boot.
PROBE = "probe"
PROBE_COMMAND = "probe run"
BASE = "base"  # a milestone that it provides, besides others
PROBE_COMMANDS = ('{"namespace":"probe","commands":{"run":{"exec":["/bin/true"],"timeout":60},'
                  '"all":{"exec":["/bin/true"],"timeout":60,"parameters":{'
                  '"need":{"required":true,"short":"n"},"more":{},"flag":{"flag":true}}}}}')
ODD_NAMES = ["", ".", "a b", "é", "x\ty", "lib", "liblib", "-dash", "a.b", "tail.", "%s%n", "n\nl",
             "'q\"", "\\x41", "\x1b[31m", "\udcff", "b\udcc3d", "\u202e", "日本", "L" * 240,
             "lib\udcfe", "end\n", "a,b"]
PIECES = ["probe", "all", "run", "-n", "--need", "--need=x", "-n=1", "--flag", "--flag=no",
          "--more", "--", "-", "''", '"a b"', "\\", "'", '"', "1", "=", "é", "--x",
          "\t", "--more=-1", "--=1"]
COMMAND_LINES = ["probe all -n 1", "probe all --need=x --flag", "probe all --need=a --more b",
                 "\"probe\" 'all' -n=2", "probe run", "probe  run "]
BAD_LINES = ["", " ", "probe", "probe all", "probe all --need", "probe run --x", "no such command",
             "probe all -n 1 stray", "probe all -n 1 --flag=no", "\"open", "probe run \\", "run",
             "probe all --", "probe all -n 1 -", "probe run\u0000 --x", "PROBE RUN", "stop",
             "STOPPED now", "probe all -n " + "x" * 1020]


class Image:
    """What draw_image() drew. Entries of `plugins` are bytes, or a tuple of a kind and a value."""

    def __init__(self):
        self.plugins = {}   # name -> bytes, ("fifo",), ("folder",) or ("link", target)
        self.commands = {}  # path below the command folder -> bytes
        self.removed_command_folders = []
        self.debug = None
        self.options = []
        self.named = []     # with --plugin, the names
        self.has_folder = True

    def folder_order(self, listed):
        """The files of a boot, in its order; `listed` is the folder's."""
        return self.named or listed

    def write(self, host, plugins, commands, debug):
        """Puts it into a scratch host. What another image left there is removed."""
        for path in (plugins, debug, commands):
            host.remove(path)
        for folder in COMMAND_FOLDERS:
            if folder not in self.removed_command_folders:
                os.makedirs(host.path(commands + folder), exist_ok=True)
        host.write(f"{commands}/probe.json", PROBE_COMMANDS)
        for path, content in self.commands.items():
            if os.path.isdir(os.path.dirname(host.path(f"{commands}/{path}"))):
                host.write(f"{commands}/{path}", content)
        if self.debug is not None:
            host.write(debug, self.debug)
        if not self.has_folder:
            return
        os.mkdir(host.path(plugins))
        for name, entry in self.plugins.items():
            path = host.path(f"{plugins}/{name}")
            if isinstance(entry, bytes):
                with open(path, "wb") as file:
                    file.write(entry)
            elif entry[0] == "fifo":
                os.mkfifo(path)
            elif entry[0] == "folder":
                os.mkdir(path)
            else:
                os.symlink(entry[1], path)


class _Drawing:
    def __init__(self, draw, objects):
        self.draw, self.objects = draw, objects
        self.image = Image()
        self.is_cyclic = draw.random() < 0.12
        # How much of an image is bad: many are all good.
        self.badness = draw.choice([0, 0, 0.05, 0.3])

    def is_bad(self):
        return self.draw.random() < self.badness

    def edges(self):
        """What a plugin requires and provides; without cycles where the image is to have none."""
        draw = self.draw
        level = draw.randrange(len(MILESTONES))
        before = MILESTONES if self.is_cyclic else MILESTONES[:level]
        behind = MILESTONES if self.is_cyclic else MILESTONES[level:]
        required = draw.sample(before, min(len(before), draw.choice([0, 0, 1, 1, 2])))
        provided = draw.sample(behind, min(len(behind), draw.choice([0, 1, 1, 2, 3])))
        if self.is_bad():
            required.append(draw.choice(["", "nobody", "m 1", "ü", "m1\u0000", "M1", "%s", "a\nb",
                                         required[0] if required else "m9"]))
        return required, provided

    def command_lines(self):
        draw = self.draw
        lines = [draw.choice(COMMAND_LINES) for _ in range(draw.choice([0, 0, 0, 0, 1, 2]))]
        if self.is_bad():
            pieces = [draw.choice(PIECES) for _ in range(draw.randint(1, 5))]
            drawn = draw.choice(["", "probe all -n 1 "]) + " ".join(pieces)
            lines.insert(draw.randint(0, len(lines)), draw.choice([draw.choice(BAD_LINES), drawn]))
        return lines

    def description(self):
        draw = self.draw
        version = draw.choice([1, 2, 3, 4, 4, 3, Raw("1.9"), Raw("4.99"), Raw("2e0")])
        required, provided = self.edges()
        metadata = Object([("version", version), ("requires", required), ("provides", provided)])
        operations = Object([("start", self.command_lines())])
        if float(version) >= 3:
            metadata.append(("run_once", draw.random() < 0.3))
            metadata.append(("plugin_version", draw.choice(["1", "2.0", "1", "", "v 1" if
                                                            self.is_bad() else "3"])))
            for key in ("required_flags", "disabling_flags"):
                if draw.random() < 0.25:
                    metadata.append((key, draw.sample(FLAGS, draw.randint(0, 2))))
        if float(version) >= 2 and draw.random() < 0.2:
            operations.append(("apply_host_profile", self.command_lines()))
        root = Object([("metadata", metadata), ("operations", operations)])
        if draw.random() < 0.3:
            for each in (root, metadata, operations):
                draw.shuffle(each)
        if self.is_bad():
            for _ in range(draw.choice([1, 1, 1, 2, 3])):
                mutate_value(root, draw)
        text = write(root, draw, decorated=draw.random() < 0.3).encode("utf-8", "surrogatepass")
        if self.is_bad():
            text = mutate_bytes(text, draw)
        return text

    def native(self):
        draw = self.draw
        good = [name for name in self.objects if name.startswith("good")]
        name = draw.choice(sorted(self.objects)) if self.is_bad() else draw.choice(sorted(good))
        data = self.objects[name]
        required, provided = self.edges()
        for mark, names in ((b"<require>", required), (b"<provide>", provided)):
            text = (names or [BASE if mark == b"<require>" else "own"])[0]
            text = text.encode()[:len(mark) - 1] if "\0" not in text else b"zero"
            data = data.replace(mark + b"\0", text.ljust(len(mark) + 1, b"\0"))
        if not self.is_bad():
            return data
        what = draw.randrange(6)
        if what == 0:
            return data[:draw.choice([0, 1, 4, 15, 16, 40, 63, 64, 100, 500, len(data) // 2,
                                      draw.randrange(len(data)), len(data) - 1])]
        if what == 1:  # of the machines of plugins most must be ours: see below
            return data[:18] + draw.choice([b"\xb7\0", b"\x03\0", b"\0\0"]) + data[20:]
        if what == 2:
            return draw.choice([b"", b"\x7fELF", b"#!/bin/sh\n", b"\0" * 100, data[:4] * 40])
        if what == 3:  # a program, an object file, a core
            return data[:16] + draw.choice([b"\2\0", b"\1\0", b"\4\0", b"\0\0"]) + data[18:]
        if what == 4:  # class, byte order, version
            place = draw.choice([4, 5, 6])
            return data[:place] + bytes([draw.choice([0, 1, 2, 3])]) + data[place + 1:]
        return data + draw.choice([b"\0", b"tail" * 100])

    def add(self, name, entry):
        if "/" in name or name in (".", "..", "") or len(os.fsencode(name)) > 250:
            return
        self.image.plugins.setdefault(name, entry)

    def plugins(self):
        draw = self.draw
        is_complete = draw.random() < 0.7
        provided = [BASE] + (MILESTONES if is_complete else [])
        self.add(f"{PROBE}.json", write(Object([
            ("metadata", Object([("version", 1), ("requires", []), ("provides", provided)])),
            ("operations", Object([("start", [PROBE_COMMAND])]))]), draw).encode())
        for number in range(draw.choice([1, 3, 5, 8, 12])):
            # A small number makes two of one name likely.
            number = draw.randrange(number + 1 if self.is_bad() else 1000)
            stem = draw.choice(["", "", "", "lib"]) + f"p{number}"
            if self.is_bad():
                stem = draw.choice(ODD_NAMES)
            kind = draw.random()
            if kind < 0.72:
                self.add(stem + ".json", self.description())
            elif kind < 0.9:
                self.add(stem + ".so", self.native())
            elif kind < 0.94:
                self.add(draw.choice(["inject0", "inject1", stem]) + ".debug", b"")
            elif self.is_bad():
                self.add(stem + draw.choice(["", ".JSON", ".so.1", ".txt", ".", ".json~"]),
                         self.description())
            elif self.badness:
                suffix = draw.choice([".json", ".so", ".debug", ".d"])
                first = next(iter(self.image.plugins))
                self.add(stem + suffix, draw.choice([
                    ("fifo",), ("folder",), ("link", "no such file"), ("link", first),
                    ("link", "/usr/libexec/bootforge/plugins/" + first),
                    ("link", "../../../../../../../../usr/libexec/bootforge/plugins/" + first),
                    ("link", stem + suffix), ("link", "/dev/null"), ("link", "/tmp/../..")]))
        if any(isinstance(entry, bytes) and name.endswith(".so") and entry[18:20] != b"\x3e\0"
               for name, entry in self.image.plugins.items()):
            ours = [name for name in self.objects if name.startswith("good")]
            for number in range(len(self.image.plugins)):
                self.add(f"ours{number}.so", self.objects[draw.choice(sorted(ours))])

    def command_files(self):
        draw = self.draw
        for _ in range(draw.choice([0, 0, 1, 2])):
            parameters = Object([("p", Object([("required", draw.random() < 0.3), ("short", "q")])),
                                 ("summary", Object([("flag", True)]))])
            command = Object([("exec", ["/bin/true", "{p}", "x{{y}}"]), ("timeout", 5),
                              ("parameters", parameters), ("summary", "does nothing")])
            name_space = draw.choice(["probe", "other", "other deep", "probe run"])
            commands = Object([(draw.choice(["run", "all", "more"]), command),
                               ("again", Object([("exec", ["/bin/true"])]))])
            file = Object([("namespace", name_space), ("commands", commands)])
            if self.is_bad():
                mutate_value(file, draw)
            text = write(file, draw, draw.random() < 0.3).encode("utf-8", "surrogatepass")
            if self.is_bad():
                text = mutate_bytes(text, draw)
            folder = draw.choice(COMMAND_FOLDERS)
            name = draw.choice(["a", "z", ".hidden", "b c", "é"])
            self.image.commands[f"{folder}/{name}{draw.choice(['.json'] * 4 + ['.txt'])}"[
                0 if not folder else 1:]] = text
        if self.is_bad() and draw.random() < 0.2:
            self.image.removed_command_folders = [draw.choice(COMMAND_FOLDERS[2:])]

    def debug(self):
        draw = self.draw
        if draw.random() > 0.1:
            return
        lines = []
        for number in range(draw.randint(0, 3)):
            required, provided = self.edges()
            line = f"inject{number}:{','.join(provided) or 'p'}:{','.join(required) or BASE}:true"
            if self.is_bad():
                line = draw.choice(["", "# comment", "a:b:c", "a::c:true", "a:b:c:d:e", " " + line,
                                    line.replace(":m", ': "m', 1), f'q:"m1,m2",x:\\":true',
                                    "bad:\\x:m1:true", "cut:m1\\:m2:true", line + "\r"])
            lines.append(line)
        self.image.debug = "\n".join(lines + [""] * draw.randint(0, 1)).replace("\0", "").encode()

    def options(self):
        draw = self.draw
        options = self.image.options
        if draw.random() < 0.3:
            options.append("--plugin-flags=" + ",".join(draw.sample(FLAGS, draw.randint(1, 3))))
        names = [name.rsplit(".", 1)[0] for name in self.image.plugins
                 if "," not in name and name != f"{PROBE}.json"]
        if names and draw.random() < 0.2:
            options.append("--disable-plugins=" + ",".join(draw.sample(names, 1)))
        if names and draw.random() < 0.2:
            options.append("--run-once=" + ",".join(name + draw.choice(["1", "2.0", ""])
                                                    for name in draw.sample(names, 1)))
        if draw.random() < 0.05:
            files = [name for name in self.image.plugins
                     if "," not in name and name.strip() == name]
            chosen = draw.sample(files, draw.randint(1, len(files)))
            self.image.named = list(dict.fromkeys([f"{PROBE}.json", *chosen]))
            if self.is_bad():
                self.image.named.append("no-such.json")
            options.append("--plugin=" + ",".join(self.image.named))


def draw_image(seed, number, objects):
    """Image `number` of a seed; `objects` are the compiled shared objects by name."""
    drawing = _Drawing(random.Random(f"{seed}/{number}"), objects)
    drawing.plugins()
    drawing.command_files()
    drawing.debug()
    drawing.options()
    if drawing.badness and drawing.draw.random() < 0.01:
        drawing.image.has_folder = False
    return drawing.image
