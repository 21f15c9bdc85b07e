"""Which errors a system call may fail with, by its manual page, and which calls are left alone."""

ENTRY = "EACCES ENOENT ENOMEM EIO"
DESCRIPTOR = "EMFILE ENFILE ENOMEM"

ERRORS = {
    # files
    "open": f"{ENTRY} EMFILE ENFILE ENOSPC EROFS EINTR ELOOP",
    "openat": f"{ENTRY} EMFILE ENFILE ENOSPC EROFS EINTR ELOOP",
    "openat2": f"{ENTRY} EMFILE ENFILE EAGAIN",
    "read": "EIO EINTR EISDIR",
    "pread64": "EIO EINTR",
    "readv": "EIO EINTR",
    "write": "EIO ENOSPC EDQUOT EFBIG EINTR EPIPE",
    "writev": "EIO ENOSPC EDQUOT EFBIG EINTR EPIPE",
    "lseek": "EINVAL ESPIPE",
    "stat": ENTRY, "lstat": ENTRY, "fstat": "ENOMEM EIO", "newfstatat": ENTRY, "statx": ENTRY,
    "statfs": "ENOSYS EIO EINTR", "fstatfs": "ENOSYS EIO EINTR",
    "access": ENTRY, "faccessat": ENTRY, "faccessat2": ENTRY,
    "getdents64": "EIO ENOENT",
    "rename": "EIO ENOSPC EROFS EACCES EXDEV", "renameat2": "EIO ENOSPC EROFS EACCES",
    "fsync": "EIO ENOSPC EDQUOT EROFS EINTR", "fdatasync": "EIO ENOSPC EINTR",
    "unlink": "EACCES EBUSY EIO EROFS", "unlinkat": "EACCES EBUSY EIO EROFS",
    "rmdir": "EACCES EBUSY ENOTEMPTY EROFS",
    "mkdir": "EACCES ENOSPC EROFS", "mkdirat": "EACCES ENOSPC EROFS",
    "symlink": "EACCES ENOSPC EROFS", "symlinkat": "EACCES ENOSPC EROFS",
    "readlink": ENTRY, "readlinkat": ENTRY,
    "chmod": "EIO EPERM EROFS", "fchmod": "EIO EPERM EROFS", "fchmodat": "EIO EPERM EROFS",
    "chdir": "EACCES ENOENT ENOMEM EIO", "fchdir": "EACCES EIO", "getcwd": "ENOENT ENOMEM",
    "flock": "EINTR ENOLCK",
    "fcntl": "EMFILE EINVAL", "dup": "EMFILE", "dup2": "EMFILE EINTR EBUSY",
    "dup3": "EMFILE EINTR EBUSY",
    # sockets and pipes
    "socket": f"{DESCRIPTOR} ENOBUFS EAFNOSUPPORT",
    "socketpair": DESCRIPTOR, "pipe": "EMFILE ENFILE", "pipe2": "EMFILE ENFILE",
    "connect": "EACCES EAGAIN ECONNREFUSED EINTR ENOENT",
    "bind": "EACCES EADDRINUSE ENOMEM EROFS",
    "listen": "EADDRINUSE",
    "accept": f"{DESCRIPTOR} EAGAIN ECONNABORTED EINTR",
    "accept4": f"{DESCRIPTOR} EAGAIN ECONNABORTED EINTR",
    "sendto": "ECONNRESET EINTR ENOBUFS ENOMEM EPIPE", "sendmsg": "ECONNRESET EINTR ENOBUFS EPIPE",
    "recvfrom": "EAGAIN ECONNRESET EINTR ENOMEM", "recvmsg": "EAGAIN ECONNRESET EINTR",
    "getsockopt": "ENOBUFS ENOPROTOOPT", "setsockopt": "ENOBUFS ENOPROTOOPT",
    "getsockname": "ENOBUFS", "getpeername": "ENOBUFS", "shutdown": "ENOTCONN",
    # processes and threads
    "clone": "EAGAIN ENOMEM", "clone3": "EAGAIN ENOMEM ENOSYS", "fork": "EAGAIN ENOMEM",
    "vfork": "EAGAIN ENOMEM",
    "wait4": "EINTR", "waitid": "EINTR", "kill": "EPERM ESRCH",
    "pidfd_open": f"{DESCRIPTOR} ENODEV ESRCH", "pidfd_send_signal": "EPERM ESRCH",
    "setsid": "EPERM", "setpgid": "EACCES EPERM ESRCH", "prctl": "EINVAL EPERM",
    "sched_getaffinity": "EINVAL ESRCH", "close_range": "ENOSYS EMFILE",
    "sysinfo": "EFAULT", "setrlimit": "EPERM",
    # memory
    "mmap": "ENOMEM EAGAIN", "mremap": "ENOMEM", "mprotect": "ENOMEM EACCES",
    "madvise": "EAGAIN EINVAL",
    # terminals
    "ioctl": "EIO EINTR ENOTTY",
    "process_vm_readv": "EFAULT EPERM ESRCH",
    # waiting and clocks
    "poll": "EINTR ENOMEM", "ppoll": "EINTR ENOMEM", "select": "EINTR ENOMEM",
    "pselect6": "EINTR ENOMEM",
    "epoll_create1": DESCRIPTOR, "epoll_ctl": "ENOMEM ENOSPC", "epoll_wait": "EINTR",
    "epoll_pwait": "EINTR", "eventfd2": f"{DESCRIPTOR} ENODEV",
    "timerfd_create": f"{DESCRIPTOR} ENODEV", "timerfd_settime": "EINVAL",
    "nanosleep": "EINTR", "clock_nanosleep": "EINTR", "clock_gettime": "EINVAL",
    "gettimeofday": "EFAULT", "getrandom": "EAGAIN EINTR ENOSYS",
}
ERRORS = {call: names.split() for call, names in ERRORS.items()}

# What may go wrong without a word, or end otherwise than usual: (scenario, struck call, line that
# was told or "", why).
EXPLAINED = (
    (".*", r"debug\.conf", "", "a debug configuration that cannot be read is none, and not told"),
    ("invoke", r"bootfrge\.gz[\">]", "",
     "a record that cannot be read is none, and not told: plugins run once more"),
    (".*", r"(getdents64|open|unlink|stat|access).*ENOENT.*INJECTED", "",
     "what is not there any more has been removed by another"),
    ("daemon-.*", r'openat\(.*"/", ', "VERIFY DaemonPlugin:86",
     "without a descriptor for / no script can be started: the program stops at once"),
    ("native-executor", r"/tmp/notes", "", "the plugin's own call: its status says so"),
)

# What is told where the executor cannot be told to end. It stays; the next run uses and ends it.
NOT_STOPPED = (
    "Executor already gone.", "Failed to stop Executor",
    "Failed creating bootforge client socket",
    "Failed to read message from socket", "Refused a connection on the control socket",
    "Error accepting connection on contol socket",
)

# Why a call is never made to fail.
LEFT_ALONE = {
    "close": "Linux gives the descriptor back whatever close(2) returns; a call that is not made "
             "would not",
    "execve": "a program that cannot be started is what the tests of commands are about; the "
              "tracer leaves who has begun another program",
    "brk": "fails by giving the end of the heap as it was, which the tracer cannot; mmap fails in "
           "its place",
    "exit": "never returns", "exit_group": "never returns", "rt_sigreturn": "never fails",
    "futex": "fails with EINTR and EAGAIN only, which the C library repeats; it ends the process "
             "for any other",
    "set_robust_list": "fails for a wrong size only", "set_tid_address": "never fails",
    "rseq": "the C library goes without", "arch_prctl": "fails for a wrong address only",
    "prlimit64": "fails for wrong arguments only", "munmap": "fails for wrong arguments only",
    "rt_sigaction": "fails for wrong arguments only",
    "rt_sigprocmask": "fails for wrong arguments only", "umask": "never fails",
    "getpid": "never fails", "gettid": "never fails", "getuid": "never fails",
    "geteuid": "never fails", "getgid": "never fails", "getegid": "never fails",
    "getppid": "never fails", "getpgrp": "never fails", "sched_yield": "never fails",
    "restart_syscall": "the call that it goes on with has failed before",
    "uname": "fails for wrong arguments only", "tgkill": "sends what ends the process",
    "rt_sigtimedwait": "no process of ours waits so", "alarm": "never fails",
    "setresuid": "fails for other users only", "setresgid": "fails for other users only",
    "setuid": "fails for other users only", "setgid": "fails for other users only",
    "setreuid": "fails for other users only", "setregid": "fails for other users only",
    "setgroups": "fails for other users only",
}
