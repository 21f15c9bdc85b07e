#!/usr/bin/env python3
"""Installs a build into a scratch host and boots it, wherever the build's own places are.

usage: installed_boot.py BUILD BUSYBOX [--config CONFIGURATION]

Looks at what the programs say of their version and which libraries they need; then boots with a
description and a native plugin, which was compiled with the installed header. Where no host can be made
(neither root nor user namespaces) the boot is left out, and that is said.
"""

import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, f"{HERE}/../host")

PLUGIN = """
#include <bootforge/plugin.h>
#include <stdio.h>
static int start(void) { return puts("said by the native plugin") < 0; }
static const char* const requirements[] = {"described", NULL};
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1, .requires_ = requirements};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {.start = start};
"""
# With static Boost: the C library's own and what libelf needs.
SYSTEM = re.compile(r"lib(c|m|dl|pthread|elf|z|zstd|lzma|bz2|pgm)\.so|ld-linux|linux-vdso")


def fail(text):
    sys.exit(f"installed_boot: {text}")


def cache(build):
    with open(f"{build}/CMakeCache.txt", encoding="utf-8") as file:
        return dict(re.findall(r"^(\w+):\w+=(.*)$", file.read(), re.M))


def check_programs(root, places, static):
    """What can be seen of the programs without a host."""
    for program, name in ((f"{places.prefix}/bin/hypcli", "hypcli"),
                          (f"{places.prefix}/bin/bootforge-analyze", "bootforge-analyze")):
        said = subprocess.run([root + program, "--version"], stdout=subprocess.PIPE, text=True,
                              check=True).stdout
        if not re.fullmatch(name + r" \d+\.\d+\.\d+(\+[0-9a-z.]+)?\n", said):
            fail(f"{program} --version says {said!r}")
    bootforge = f"{root}{places.prefix}/sbin/bootforge"
    symbols = subprocess.run(["nm", "-D", bootforge], stdout=subprocess.PIPE, text=True,
                             check=True).stdout
    if not re.search(r" [TDRBV] __hypclic_magic$", symbols, re.M):
        fail("bootforge does not export __hypclic_magic")
    if static:
        needed = subprocess.run(["ldd", bootforge], stdout=subprocess.PIPE, text=True,
                                check=True).stdout
        foreign = [line.strip() for line in needed.splitlines() if not SYSTEM.search(line)]
        if foreign:
            fail(f"bootforge needs {', '.join(foreign)}")


class Places:
    def __init__(self, values):
        self.prefix = values["CMAKE_INSTALL_PREFIX"]
        self.helpers = values["BOOTFORGE_HELPER_DIR"] or f"{self.prefix}/lib/nimbus/bootforge"
        self.plugins = values["BOOTFORGE_PLUGIN_DIR"] or f"{self.prefix}/libexec/bootforge/plugins"
        self.commands = values["BOOTFORGE_COMMAND_DIR"] or f"{self.prefix}/lib/nimbus/hypcli"


def boot(places, image_folder):
    os.environ.update(BOOTFORGE_HOST_IMAGE=image_folder, BOOTFORGE_HOST_PLUGINS=places.plugins,
                      BOOTFORGE_HOST_COMMANDS=places.commands)
    import isolation  # these read where the places are
    import scratch_host
    try:
        isolation.isolation()
    except isolation.Unavailable as reason:
        print(f"installed_boot: no host can be made here, the boot is left out: {reason}")
        return
    host = scratch_host.ScratchHost()
    try:
        for folder in ("", "/int", "/int/ext", "/ext"):
            if not os.path.isdir(host.path(places.commands + folder)):
                fail(f"{places.commands}{folder} is not installed")
        host.plugin("described", provides=["described"], start=["note add --text=written"])
        with tempfile.TemporaryDirectory() as folder:
            with open(f"{folder}/native.c", "w", encoding="utf-8") as file:
                file.write(PLUGIN)
            subprocess.run(["cc", "-shared", "-fPIC", "-I", host.path(f"{places.prefix}/include"),
                            "-o", host.path(f"{places.plugins}/libnative.so"),
                            f"{folder}/native.c"], check=True)
        process = host.run(f"{places.prefix}/sbin/bootforge")
        host.wait_for(lambda: not host.processes(), "the executor to end")
        if process.status != 0 or host.notes() != ["written"] or \
                b"said by the native plugin\n" not in process.stdout or \
                any(level == "error" for level, _ in process.messages):
            fail(f"the boot did not do what it should\n{host.describe()}")
    finally:
        host.close()
        for point in reversed(isolation.mounts_below(image_folder)):
            isolation.unmount(point)


def main():
    build, busybox, *options = sys.argv[1:]
    import image
    values = cache(build)
    places = Places(values)
    with tempfile.TemporaryDirectory(prefix="installed-") as folder:
        root = f"{folder}/root"
        os.makedirs(root)
        os.mkdir(f"{folder}/hosts")
        image.install(build, root, "cmake", *options, prefix=places.prefix)
        check_programs(root, places, values["BOOTFORGE_STATIC_BOOST"] == "ON")
        image.complete(folder, busybox)
        boot(places, folder)


if __name__ == "__main__":
    main()
