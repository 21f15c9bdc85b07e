"""The guest of the emulated machine: its initramfs and its disk."""

import glob
import gzip
import lzma
import os
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, f"{PROJECT}/tests/host")

import image  # noqa: E402 (needs the path)

# For the boot bank, a FAT volume, and for images of others; in the order in which they need each
# other.
MODULES = ("fs/nls/nls_cp437", "fs/nls/nls_ascii", "fs/fat/fat", "fs/fat/vfat",
           "drivers/block/loop", "drivers/virtio/virtio_ring", "drivers/virtio/virtio",
           "drivers/virtio/virtio_pci_modern_dev", "drivers/virtio/virtio_pci_legacy_dev",
           "drivers/virtio/virtio_pci", "drivers/block/virtio_blk")
# From the sample host: the system's own daemons, and what init scripts have in common.
SAMPLES = ("usr/lib/nimbus/hvsyslog", "usr/lib/nimbus/host/service.sh", "etc/init.d/evtd",
           "etc/syslog.conf")
FOLDERS = ("bootbank", "dev", "proc", "run", "sys", "tmp", "var/log", "root", "etc/nimbus")
DISK_SIZE = 4 << 20


def make_initramfs(folder, kernel, build, busybox, cmake):
    """Builds the initramfs of the build tree in a folder. Returns its path."""
    root = f"{folder}/root"
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(root)
    image.install(build, root, cmake, "--strip")
    for program in image.programs(root):
        for library in image.libraries(program):
            image.add_library(root, library)
    image.add_busybox(root, busybox)
    add_applets(root, busybox)
    for name in FOLDERS:
        os.makedirs(f"{root}/{name}", exist_ok=True)
    os.symlink("../run", f"{root}/var/run")
    for name in SAMPLES:
        add(f"{PROJECT}/examples/host/{name}", f"{root}/{name}")
    add(f"{HERE}/guest", root)
    subprocess.run([f"{root}/usr/sbin/bootforge-adopt", "enable", f"--root={root}"], check=True)
    add_modules(root, kernel)
    return pack(folder, root, busybox)


def add_applets(root, busybox):
    """A link for each applet, where it belongs: also /sbin/init."""
    listed = subprocess.run([busybox, "--list-full"], capture_output=True, text=True, check=True)
    for name in listed.stdout.split():
        path = f"{root}/{name}"
        if "/" in name and not os.path.lexists(path):
            os.makedirs(os.path.dirname(path), exist_ok=True)
            os.symlink("/bin/busybox", path)


def add(source, target):
    if os.path.isdir(source):
        shutil.copytree(source, target, dirs_exist_ok=True)
    else:
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy(source, target)


def add_modules(root, kernel):
    # Packages since Debian 13 have them below /usr, and compressed.
    modules, = glob.glob(f"{kernel}/lib/modules/*") + glob.glob(f"{kernel}/usr/lib/modules/*")
    for module in MODULES:
        path, = glob.glob(f"{modules}/kernel/{module}.ko*")
        with (lzma.open if path.endswith(".xz") else open)(path, "rb") as file:
            content = file.read()
        os.makedirs(os.path.dirname(f"{root}/lib/modules/{module}"), exist_ok=True)
        with open(f"{root}/lib/modules/{module}.ko", "wb") as file:
            file.write(content)
    with open(f"{root}/lib/modules/load", "w", encoding="utf-8") as file:
        file.write("\n".join(MODULES) + "\n")


def pack(folder, root, busybox):
    names = [os.path.relpath(os.path.join(parent, name), root)
             for parent, folders, files in os.walk(root) for name in sorted(folders) + files]
    packed = subprocess.run([busybox, "cpio", "-o", "-H", "newc", "-R", "0:0"], cwd=root,
                            input="\n".join(names).encode(), capture_output=True, check=True).stdout
    path = f"{folder}/initramfs.gz"
    with gzip.open(path, "wb", compresslevel=1) as file:
        file.write(packed)
    return path


def make_disk(path, busybox, kind="vfat"):
    """An empty volume, of the kind "vfat" or "ext4"."""
    with open(path, "wb") as file:
        file.truncate(DISK_SIZE)
    command = [busybox, "mkdosfs"] if kind == "vfat" else ["/sbin/mkfs.ext4", "-q", "-b", "1024"]
    subprocess.run([*command, path], check=True, capture_output=True)
    return path
