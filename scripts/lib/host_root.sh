# shellcheck shell=bash
# Lays out the file system of a small host under a directory, from what this machine has.
# For bash scripts to source. Nothing here needs to be root.

# Programs may stand where an ordinary user's PATH does not look.
host_root_find() {
    PATH=$PATH:/usr/local/sbin:/usr/sbin:/sbin command -v "$1"
}

# host_root_layout ROOT: the directories, with /bin, /sbin and /lib* below /usr.
host_root_layout() {
    local root=$1 name
    mkdir -p "$root"/{dev,etc,proc,sys,root,tmp,bootbank,home} "$root"/usr/{bin,sbin,lib,lib64} \
        "$root"/var/{log,lib,run/nimbus} "$root"/etc/nimbus
    for name in bin sbin lib lib64; do
        ln -s "usr/$name" "$root/$name"
    done
    chmod 1777 "$root/tmp"
    chmod 0755 "$root" "$root/var/run/nimbus"
}

# host_root_busybox ROOT: a static busybox and a link for each of its applets.
host_root_busybox() {
    local root=$1 busybox
    busybox=$(host_root_find busybox) || return 1
    cp "$busybox" "$root/usr/bin/busybox"
    # Hundreds of links: a process for each would take longer than all the rest.
    "$busybox" --list-full | python3 -c '
import os, sys
for name in sys.stdin.read().split():
    path = os.path.join(sys.argv[1], name)
    if "/" in name and not os.path.lexists(path):  # without "linuxrc", for another kind of boot
        os.makedirs(os.path.dirname(path), exist_ok=True)
        os.symlink("/bin/busybox", path)
' "$root"
}

# host_root_libraries ROOT PROGRAM...: the shared libraries that programs of ROOT or of this machine
# need, at the places where they are looked for.
host_root_libraries() {
    local root=$1 library
    shift
    ldd "$@" | awk '$2 == "=>" && $3 ~ "^/" { print $3 } NF == 2 && $1 ~ "^/" { print $1 }' |
        sort -u | while read -r library; do
            [ ! -e "$root$library" ] || continue
            mkdir -p "$root${library%/*}"
            cp -L "$library" "$root$library"
        done
}

# host_root_program ROOT PATH: a program of this machine, with its libraries, as PATH of the host.
# Fails when this machine has no program of that name.
host_root_program() {
    local root=$1 path=$2 program
    program=$(host_root_find "${path##*/}") || return 1
    rm -f "$root$path" # not through the link to busybox that may stand there
    cp -L "$program" "$root$path"
    host_root_libraries "$root" "$program"
}
