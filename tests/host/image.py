#!/usr/bin/env python3
"""Builds the image from which the tests copy their hosts.

usage: image.py BUILD IMAGE BUSYBOX CMAKE

Installs the build tree BUILD below IMAGE/root, as `DESTDIR=... cmake --install` does, and adds the
shared libraries that the installed programs need and a static busybox.
"""

import os
import re
import shutil
import stat
import subprocess
import sys

APPLETS = ("sh", "awk", "cat", "echo", "false", "grep", "gzip", "head", "kill", "ls", "mkdir", "mv",
           "printf", "ps", "readlink", "rm", "sed", "sleep", "sort", "touch", "tr", "true", "yes",
           "zcat")


def main():
    build, image, busybox, cmake = sys.argv[1:]
    root = f"{image}/root"
    shutil.rmtree(image, ignore_errors=True)
    os.makedirs(root)
    os.mkdir(f"{image}/hosts")
    install(build, root, cmake)
    complete(image, busybox)


def complete(image, busybox):
    """Adds to the programs in the image what they need to run."""
    root = f"{image}/root"
    for program in programs(root):
        for library in libraries(program):
            add_library(root, library)
    add_busybox(root, busybox)
    with open(f"{image}/complete", "w") as mark:
        mark.write("\n".join(programs(root)) + "\n")


def install(build, root, cmake, *options, prefix="/usr"):
    environment = {**os.environ, "DESTDIR": root}
    done = subprocess.run([cmake, "--install", build, *options], env=environment, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if done.returncode != 0:
        sys.exit(f"{done.stdout}\ncannot install {build}")
    # A host is copied for every test, and no test boots with these.
    examples = f"{root}{prefix}/share/doc/bootforge/examples"
    for name in os.listdir(examples):
        if name != "run_folder" and os.path.isdir(f"{examples}/{name}"):
            shutil.rmtree(f"{examples}/{name}")


def programs(root):
    """The ELF files of a root, as host paths of this machine."""
    found = []
    for folder, _, names in os.walk(root):
        for name in names:
            path = os.path.join(folder, name)
            if not stat.S_ISREG(os.lstat(path).st_mode):
                continue
            with open(path, "rb") as file:
                if file.read(4) == b"\x7fELF":
                    found.append(path)
    return sorted(found)


def libraries(program):
    """The shared libraries of a program and its loader, as absolute paths; none when static."""
    listed = subprocess.run(["ldd", program], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, check=False)
    missing = re.findall(r"^\s*(\S+) => not found", listed.stdout, re.M)
    if missing:
        sys.exit(f"{program}: {' '.join(missing)} not found")
    return re.findall(r"^\s*(?:\S+ => )?(/\S+) \(0x", listed.stdout, re.M)


def add_library(root, library):
    target = root + library
    if not os.path.exists(target):
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy(os.path.realpath(library), target)


def add_busybox(root, busybox):
    if libraries(busybox):
        sys.exit(f"{busybox} is no static program")
    os.makedirs(f"{root}/bin", exist_ok=True)
    shutil.copy(busybox, f"{root}/bin/busybox")
    for applet in APPLETS:
        os.symlink("busybox", f"{root}/bin/{applet}")


if __name__ == "__main__":
    main()
