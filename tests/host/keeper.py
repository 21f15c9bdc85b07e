"""Process 1 of a scratch host: starts programs on request, buries what dies, ends with the test.

The keeper is a fork of the test process. A request is one message on a socket pair, a JSON object
with the descriptors of the program's standard streams beside it; the answers are {"id", "pid"}
and {"id", "status"} (a signal is a negative status, as in subprocess). When the far end of the
socket closes, the keeper ends, and with it the kernel ends whatever else lives in its namespace.
"""

import json
import os
import resource
import select
import signal
import socket
import traceback

import isolation

MESSAGE = 1 << 17
HIGH = 400  # where descriptors wait until their numbers are free


def start_keeper(root, private_pids):
    """Forks the keeper of a root. Returns a child to wait for, the keeper's pid, the socket to it.

    The child stands between because a pid namespace is only for the children of who asks for it.
    """
    near, far = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    child = os.fork()
    if child == 0:
        try:
            isolation.prctl(isolation.PR_SET_PDEATHSIG, signal.SIGKILL)
            near.close()
            if private_pids:
                isolation.unshare(isolation.CLONE_NEWPID)
            pid = os.fork()
            if pid == 0:
                _keep(root, far.fileno(), private_pids)
            far.send(json.dumps({"keeper": pid}).encode())
            os.closerange(3, 4 * HIGH)
            os.waitpid(pid, 0)
            os._exit(0)
        except BaseException:  # whatever it is, this child does not go on with the test
            traceback.print_exc()
        finally:
            os._exit(70)
    far.close()
    keeper = None
    for _ in range(2):  # the two of them tell their part in any order
        answer = json.loads(near.recv(MESSAGE) or "null")
        if answer is None:
            raise RuntimeError("the host's first process did not start")
        keeper = answer.get("keeper", keeper)
    return child, keeper, near


def _keep(root, channel, private_pids):
    isolation.prctl(isolation.PR_SET_PDEATHSIG, signal.SIGKILL)
    os.dup2(channel, 3, inheritable=False)
    os.closerange(4, 4 * HIGH)  # the ends of the host's devices are the test's alone
    channel = socket.socket(fileno=3)
    if not private_pids:
        isolation.prctl(isolation.PR_SET_CHILD_SUBREAPER, 1)
    _mount_proc(f"{root}/proc", private_pids)
    os.setsid()
    wake_up, bell = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
    signal.set_wakeup_fd(bell)
    signal.signal(signal.SIGCHLD, lambda *_: None)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    running = {}
    channel.send(b'{"ready": true}')
    while True:
        ready = select.select([channel, wake_up], [], [])[0]
        if wake_up in ready:
            os.read(wake_up, 4096)
            _bury(channel, running)
        if channel in ready:
            try:
                message, fds, _, _ = socket.recv_fds(channel, MESSAGE, 8)
            except ConnectionResetError:  # the test has ended without reading every answer
                os._exit(0)
            if not message:
                os._exit(0)
            request = json.loads(message)
            pid = _start(root, request, fds)
            running[pid] = request["id"]
            channel.send(json.dumps({"id": request["id"], "pid": pid}).encode())


def _mount_proc(proc, private_pids):
    try:
        if private_pids:
            isolation.mount("proc", proc, "proc")
            return
    except OSError:
        pass  # a container may hide parts of /proc, and then no new one may be mounted
    if isolation.isolation().mounts:
        isolation.mount("/proc", proc, None, isolation.MS_BIND | isolation.MS_REC)


def _bury(channel, running):
    while True:
        try:
            pid, status = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return
        if pid == 0:
            return
        if pid in running:
            answer = {"id": running.pop(pid), "status": os.waitstatus_to_exitcode(status)}
            channel.send(json.dumps(answer).encode())


def _start(root, request, fds):
    pid = os.fork()
    if pid == 0:
        try:
            _become(root, request, fds)
        except OSError as error:
            os.write(2, f"scratch host: {request['program']}: {error}\n".encode())
        finally:
            os._exit(126)
    for fd in fds:
        os.close(fd)
    return pid


def _become(root, request, fds):
    """Turns this child into the requested program; "streams" are its descriptors' numbers."""
    signal.set_wakeup_fd(-1)
    for group in request["groups"]:
        with open(group, "w", encoding="ascii") as file:
            file.write("0")  # stands for the writer
    for number in (signal.SIGPIPE, signal.SIGXFSZ, signal.SIGCHLD, signal.SIGINT):
        signal.signal(number, signal.SIG_DFL)
    os.chroot(root)
    os.chdir(request["cwd"])
    os.umask(0o022)
    for capability in request["dropped"]:
        isolation.prctl(isolation.PR_CAPBSET_DROP, capability)
    if request["group_leader"]:
        os.setpgid(0, 0)
    waiting = []
    for place, fd in enumerate(fds):
        waiting.append(os.dup2(fd, HIGH + place, inheritable=False))
    os.closerange(0, HIGH)
    for number, fd in zip(request["streams"], waiting):
        os.dup2(fd, number)
    program = os.fsencode(request["program"])
    words = [os.fsencode(word) for word in request["argv"]]
    environment = {os.fsencode(key): os.fsencode(value) for key, value in request["env"].items()}
    if request["user"]:
        os.setgroups([])
        os.setgid(request["user"])
        os.setuid(request["user"])
    # Last of all: with these, nothing may work any more.
    for name, value in request["limits"].items():
        resource.setrlimit(getattr(resource, f"RLIMIT_{name}"), (value, value))
    os.execve(program, words, environment)
