"""A drawn fleet: one image, and for each host the log and the messages of a boot of it."""

import json
import os
import random
import subprocess

FLAGS = " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n"
PLUGINS = "usr/libexec/bootforge/plugins"
BEGIN = 1772694250  # 2026-03-05 07:04:10
# name: (requires, provides, usual milliseconds)
IMAGE = {"volumes": ([], ["disk"], 900), "network": ([], ["net"], 1200),
         "accounts": (["disk"], ["accounts"], 150), "log rotation": (["disk"], [], 80),
         "web": (["net", "accounts"], ["web"], 600), "agent": (["net"], [], 300),
         'guest "a,b"': (["web"], [], 50)}


def stamp(microseconds):
    seconds = 10 + microseconds // 1000000
    return f"2026-03-05 07:{4 + seconds // 60:02d}:{seconds % 60:02d}.{microseconds % 1000000:06d}"


class FleetOfHosts:
    """Written below `folder`: image/, whose logs/HOST.log and logs/HOST.messages are the hosts'."""

    def __init__(self, program, folder, count, seed=7):
        self.program, self.root = program, f"{folder}/image"
        self.hosts = [f"host{number:03d}" for number in range(count)]
        draw = random.Random(seed)
        os.makedirs(f"{self.root}/{PLUGINS}")
        os.makedirs(f"{self.root}/logs")
        for name, (requires, provides, _) in IMAGE.items():
            description = {"metadata": {"version": 1, "requires": requires, "provides": provides},
                           "operations": {"start": ["do it"]}}
            with open(f"{self.root}/{PLUGINS}/{name}.json", "w", encoding="utf-8") as file:
                json.dump(description, file)
        for number, host in enumerate(self.hosts):
            self.write_host(draw, host, slow=number % 17 == 3, fails=number % 10 == 4)

    def write_host(self, draw, host, slow, fails):
        reached, log, messages = {}, "HVKernel Initialization Time: 7000000\n", ""
        for name, (requires, provides, usual) in IMAGE.items():
            start = max([reached[each] for each in requires], default=0) + draw.randint(20, 90)
            run = int(usual * 1000 * draw.uniform(0.9, 1.1))
            end = start + run * (9 if slow and name == "network" else 1)
            for each in provides:
                reached[each] = end
            log += f"[{stamp(start)} - {stamp(end)}] sysboot: {name}\n"
            has_failed = fails and name == "agent"
            messages += f"[    8.000000] bootforge: Activating Bootforge plugin {name}.\n"
            messages += f"[    9.000000] bootforge: Bootforge plugin {name} " + (
                f"activation failed: {name}->start() failed: no, \"really\"\n" if has_failed
                else "activated.\n")
        log += f"=== Bootforge configuration info ===\n Start: {stamp(0)}\n End: {stamp(1)}\n{FLAGS}"
        for kind, text in (("log", log), ("messages", messages)):
            with open(f"{self.root}/logs/{host}.{kind}", "w", encoding="utf-8") as file:
                file.write(text)

    def ask(self, *words):
        done = subprocess.run([self.program, *words], stdout=subprocess.PIPE, check=True)
        return done.stdout.decode()

    def export(self, host, form, *words):
        """One host's boot for other programs."""
        return self.ask("export", "--format", form, f"--root={self.root}", f"--log=/logs/{host}.log",
                        f"--messages={self.root}/logs/{host}.messages", *words)

    def told(self):
        """What the verb "fleet" says of all."""
        return json.loads(self.ask("fleet", "--format=json", "--by=host", f"{self.root}/logs"))
