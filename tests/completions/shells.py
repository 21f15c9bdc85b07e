"""Shells that complete a line, as somebody at a terminal sees it.

Each is a context manager with complete(line), which gives the set of what may stand in the place of
the line's last word. bash and zsh run at a terminal and insert all that they would offer. The files
are those that are installed below a folder SHARE.
"""

import os
import pty
import re
import select
import shlex
import signal
import subprocess
import time

TIMEOUT = 20.0


def words_of(before, after):
    """The words behind what stood in front of the last word of a line."""
    kept = before[:len(before) - len(last_word(before))]
    if not after.startswith(kept):
        raise AssertionError(f"{before!r} became {after!r}")
    return shlex.split(after[len(kept):])


def last_word(line):
    return re.search(r"[^ ]*$", line).group()


def front_of(line):
    """What a shell may leave out of the further words: the option that the value is for."""
    return re.match(r"(--[^=]*=)?", last_word(line)).group()


class Terminal:
    """A shell at a terminal. What it prints between two marks is an answer."""

    def __init__(self, words, environment, folder):
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execvpe(words[0], words, environment)
        self.output = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.kill(self.pid, signal.SIGKILL)
        os.close(self.descriptor)
        os.waitpid(self.pid, 0)

    def send(self, text):
        os.write(self.descriptor, text.encode())

    def answer(self):
        deadline = time.monotonic() + TIMEOUT
        while True:
            found = re.search(rb"\x02(.*?)\x03", self.output, re.S)
            if found:
                self.output = self.output[found.end():]
                return found.group(1).decode().replace("\r\n", "\n")
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.descriptor], [], [], left)[0]:
                raise AssertionError(f"no answer from the shell: {self.output!r}")
            self.output += os.read(self.descriptor, 65536)

    def set_up(self, script):
        """Reads a file of commands; the last of them prints an answer."""
        self.send(f". {shlex.quote(script)}\n")
        self.answer()

    def complete(self, line):
        # All that is offered is inserted; then the line is shown and emptied.
        self.send(line + "\x18a\x18s")
        after = self.answer()
        if after == line:
            return set()
        front = front_of(line)
        # Behind the last one zsh leaves a comma that the next key takes away.
        return {word.removeprefix(front).removesuffix(",") for word in words_of(line, after)}


class Bash(Terminal):
    NAME = "bash"

    def __init__(self, share, environment, folder):
        script = f"{folder}/bash.rc"
        with open(script, "w", encoding="utf-8") as file:
            file.write(f"""
                PS1= PS2=
                for name in bootforge bootforge-analyze hypcli; do
                    . {shlex.quote(share)}/bash-completion/completions/$name
                done
                show() {{
                    printf '\\002%s\\003' "$READLINE_LINE"
                    READLINE_LINE= READLINE_POINT=0
                }}
                bind '"\\C-xa": insert-completions'
                bind -x '"\\C-xs": show'
                printf '\\002\\003'
            """)
        super().__init__(["bash", "--norc", "--noprofile", "-i"], environment, folder)
        self.set_up(script)


class Zsh(Terminal):
    NAME = "zsh"

    def __init__(self, share, environment, folder):
        script = f"{folder}/zsh.rc"
        with open(script, "w", encoding="utf-8") as file:
            file.write(f"""
                PS1= PS2= RPS1=
                fpath=({shlex.quote(share)}/zsh/vendor-completions $fpath)
                autoload -Uz compinit
                compinit -u -D
                zle -C all-matches complete-word _generic
                zstyle ':completion:all-matches:*' completer _all_matches _complete
                zstyle ':completion:all-matches:*' insert true
                show() {{ printf '\\002%s\\003' "$BUFFER"; BUFFER=; }}
                zle -N show
                bindkey '^Xa' all-matches
                bindkey '^Xs' show
                printf '\\002\\003'
            """)
        super().__init__(["zsh", "-f", "-i"], environment, folder)
        self.set_up(script)


class Fish:
    """Answers without a terminal: "complete -C" is what it does at one."""

    NAME = "fish"

    def __init__(self, share, environment, folder):
        self.share = share
        self.environment = environment
        self.folder = folder

    def __enter__(self):
        return self

    def __exit__(self, *_):
        pass

    def complete(self, line):
        name = os.path.basename(line.split(" ")[0])
        done = subprocess.run(
            ["fish", "--no-config", "-c", "source $argv[1]; complete -C $argv[2]",
             f"{self.share}/fish/vendor_completions.d/{name}.fish", line],
            env=self.environment, cwd=self.folder, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=True, timeout=TIMEOUT)
        if done.stderr:
            raise AssertionError(done.stderr)
        front = front_of(line)
        words = [word.split("\t")[0] for word in done.stdout.splitlines()]
        return {word.removeprefix(front) for word in words}


ALL = (Bash, Zsh, Fish)
