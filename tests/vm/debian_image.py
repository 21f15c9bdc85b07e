"""A disk with a real Debian, whose init is sysvinit, and the initramfs that leads to it."""

import glob
import lzma
import os
import shutil
import subprocess

import guest_image

# Where the kernel has them as modules; in the order in which they need each other.
MODULES = ("lib/crc16", "crypto/crc32c_generic", "fs/mbcache", "fs/jbd2/jbd2", "fs/ext4/ext4")
FIRST_PROGRAM = """#!/bin/sh
mount -t devtmpfs devtmpfs /dev
for module in /lib/modules/[0-9]*; do [ ! -e "$module" ] || insmod "$module"; done
mount -t ext4 /dev/nvme0n1 /root || exec sh
mount --move /dev /root/dev
exec switch_root /root /sbin/init
"""
# The network that daemons listen on, and the tests' shell, once a level's scripts have been run.
LINES = """lo::sysinit:/usr/local/bin/busybox ifconfig lo 127.0.0.1 up
ts:2345:respawn:/usr/local/bin/test-shell
"""
# What is sent while nobody has the line open is lost.
TEST_SHELL = """#!/bin/sh
exec </dev/null >/dev/ttyS1 2>&1
stty -F /dev/ttyS1 raw -echo
export PATH=/usr/sbin:/usr/bin:/sbin:/bin:/usr/local/bin
echo '=== 0 ==='
exec sh /dev/ttyS1
"""
DISK_SIZE = "600M"


def make_initramfs(folder, kernel, busybox):
    root = f"{folder}/first"
    shutil.rmtree(root, ignore_errors=True)
    for name in ("dev", "root", "lib/modules", "sbin", "bin"):
        os.makedirs(f"{root}/{name}")
    shutil.copy(busybox, f"{root}/bin/busybox")
    for applet in ("sh", "mount", "insmod", "switch_root"):
        os.symlink("busybox", f"{root}/bin/{applet}")
    write(f"{root}/sbin/init", FIRST_PROGRAM, 0o755)
    write(f"{root}/init", "")  # switch_root looks for it before it removes everything
    modules, = glob.glob(f"{kernel}/lib/modules/*") + glob.glob(f"{kernel}/usr/lib/modules/*")
    for number, module in enumerate(MODULES):
        for path in glob.glob(f"{modules}/kernel/{module}.ko*"):
            with (lzma.open if path.endswith(".xz") else open)(path, "rb") as file:
                with open(f"{root}/lib/modules/{number}", "wb") as copy:
                    copy.write(file.read())
    return guest_image.pack(folder, root, busybox)


def make_disk(folder, debian, package, busybox):
    """A copy of the root with our package in /root, as a file system."""
    root, disk = f"{folder}/root", f"{folder}/disk"
    subprocess.run(["cp", "-a", debian, root], check=True)
    shutil.copy(package, f"{root}/root")
    shutil.copy(busybox, f"{root}/usr/local/bin/busybox")
    os.symlink("busybox", f"{root}/usr/local/bin/usleep")
    write(f"{root}/usr/local/bin/test-shell", TEST_SHELL, 0o755)
    write(f"{root}/etc/fstab", "/dev/nvme0n1 / ext4 defaults 0 0\n")
    with open(f"{root}/etc/inittab", encoding="utf-8") as file:
        # Nobody is at the screens.
        lines = [line for line in file if "getty" not in line]
    write(f"{root}/etc/inittab", "".join(lines) + LINES)
    subprocess.run(["mkfs.ext4", "-q", "-d", root, disk, DISK_SIZE], check=True)
    shutil.rmtree(root)
    return disk


def write(path, text, mode=0o644):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)
