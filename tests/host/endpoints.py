"""The far ends of a scratch host's devices and sockets, held by the test."""

import os
import pty
import socket
import termios
import tty


def _socket_address(root, path):
    """An address for a socket file of the host, whatever the length of the root's own path."""
    folder = os.open(os.path.join(root, os.path.dirname(path).lstrip("/")),
                     os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
    return folder, f"/proc/self/fd/{folder}/{os.path.basename(path)}"


def _bind(endpoint, root, path):
    folder, address = _socket_address(root, path)
    try:
        endpoint.bind(address)
    finally:
        os.close(folder)


class KernelLog:
    """/dev/kmsg as a FIFO. Everything that was written stays in `text`."""

    def __init__(self, path):
        os.mkfifo(path, 0o600)
        self.fd = os.open(path, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
        self.text = b""

    def receive(self):
        try:
            self.text += os.read(self.fd, 65536)
            return True
        except BlockingIOError:
            return False

    def close(self):
        os.close(self.fd)


class SystemLog:
    """/dev/log as a datagram socket. Every datagram that arrived stays in `messages`."""

    def __init__(self, root):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)
        _bind(self.socket, root, "/dev/log")
        os.chmod(f"{root}/dev/log", 0o666)
        self.fd = self.socket.fileno()
        self.messages = []

    def receive(self):
        try:
            self.messages.append(self.socket.recv(65536))
            return True
        except BlockingIOError:
            return False

    def close(self):
        self.socket.close()

    def drain(self):
        """For one that nobody reads by itself."""
        while self.receive():
            pass


class Console:
    """The master of a pseudo-terminal whose slave can be shown as /dev/console."""

    def __init__(self):
        self.fd, slave = pty.openpty()
        self.slave_path = os.ttyname(slave)
        tty.setraw(slave, termios.TCSANOW)
        self._slave = slave  # while this is open, reading the master never fails
        os.set_blocking(self.fd, False)
        self.text = b""

    def receive(self):
        try:
            self.text += os.read(self.fd, 65536)
            return True
        except BlockingIOError:
            return False

    def close(self):
        os.close(self._slave)
        os.close(self.fd)


class Terminal:
    """A pseudo-terminal on which a newline stays one; what was written to it stays in `data`."""

    def __init__(self):
        self.fd, self.slave = pty.openpty()
        settings = termios.tcgetattr(self.slave)
        settings[1] &= ~termios.OPOST
        termios.tcsetattr(self.slave, termios.TCSANOW, settings)
        os.set_blocking(self.fd, False)
        self.data = b""

    def receive(self, most=65536):
        """False when there was nothing, or nobody is left to write."""
        try:
            self.data += os.read(self.fd, most)
            return True
        except OSError:
            return False

    def close(self):
        os.close(self.fd)
        os.close(self.slave)


class Stream:
    """The reading end of a pipe; what arrived is in `text`, `ended` tells of the last writer."""

    def __init__(self, fd):
        self.fd = fd
        os.set_blocking(fd, False)
        self.text = b""
        self.ended = False

    def receive(self):
        try:
            data = os.read(self.fd, 65536)
        except BlockingIOError:
            return False
        self.text += data
        self.ended = not data
        return True

    def close(self):
        os.close(self.fd)


class Stranger:
    """Somebody else who serves the control socket.

    For each connection it reads one request, unless `reads` is false, and calls
    `answer(connection, request)` or sends the bytes `answer`; then it hangs up.
    """

    def __init__(self, root, path, answer=b"", reads=True):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK)
        _bind(self.socket, root, path)
        self.socket.listen(16)
        self.fd = self.socket.fileno()
        self.answer = answer
        self.reads = reads
        self.requests = []

    def receive(self):
        try:
            connection, _ = self.socket.accept()
        except BlockingIOError:
            return False
        with connection:
            connection.settimeout(10)
            request = connection.recv(65536) if self.reads else b""
            if request:
                self.requests.append(request)
                connection.send(self.answer)
        return True

    def close(self):
        self.socket.close()


def leave_stale_socket(root, path):
    """A socket file that nobody listens on any more."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as gone:
        _bind(gone, root, path)
        gone.listen(1)
