"""A private host (private_host.py) as its starter sees it."""

import json
import os
import select
import socket
import subprocess


class Gone(Exception):
    """The host could not be made, and has said why itself, or ended before it was told to."""


class HostSession:
    """A host from its making to its end. `command` starts private_host.py in new namespaces."""

    def __init__(self, command):
        self.terminal = None  # the near end of the operator's terminal, in the host
        self.line, far = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with far:
            self.process = subprocess.Popen(command, stdin=far)

    def wait_until_ready(self):
        _, (self.terminal,) = self._answer()

    def close(self):
        """Ends the host, if it has not ended yet."""
        self.line.close()
        self.process.wait()

    def run(self, command, receive, keyboard=None):
        """Runs a command of the host to its end; the exit status. What it writes goes to receive()
        as it comes. With a keyboard (fileno(), ready(), and seconds() after which ready() has to be
        called although no key came) it runs on the operator's terminal."""
        if keyboard:
            self._ask(command, terminal=True)
            return self._attend(self.terminal, receive, keyboard)
        reader, writer = os.pipe()
        try:
            self._ask(command, writer)
            os.close(writer)
            return self._attend(reader, receive, None)
        finally:
            os.close(reader)

    def output(self, command):
        """What a command of the host writes, as a text; its exit status does not count."""
        parts = []
        self.run(command, parts.append)
        return b"".join(parts).decode(errors="replace")

    def _ask(self, command, *descriptors, terminal=False):
        message = json.dumps({"command": command, "terminal": terminal}).encode()
        try:
            socket.send_fds(self.line, [message], descriptors)
        except BrokenPipeError:
            raise Gone() from None

    def _answer(self):
        message, descriptors, _, _ = socket.recv_fds(self.line, 4096, 1)
        if not message:
            raise Gone()
        for fd in descriptors:
            os.set_inheritable(fd, False)
        return json.loads(message), descriptors

    def _attend(self, source, receive, keyboard):
        sources = [source, self.line] + [keyboard] * bool(keyboard)
        while True:
            ready = select.select(sources, [], [], keyboard and keyboard.seconds())[0]
            if keyboard and (keyboard in ready or not ready):
                keyboard.ready(keyboard in ready)
            if source in ready:
                data = os.read(source, 65536)
                if data:
                    receive(data)
                else:
                    sources.remove(source)  # nobody writes any more
            elif self.line in ready:  # all that was written before has been read
                return self._answer()[0]["status"]
