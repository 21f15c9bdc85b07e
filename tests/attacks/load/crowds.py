"""Many plugins, long command lines, many workers, and readers that are slow or hang."""

import fcntl
import os
import random
import re
import signal
import socket
import subprocess
import tempfile
import time

import endpoints
import readings
import scratch_host
from host_case import LAUNCHING, SETTING_UP, STOPPED, refused, starting
from root_folder import BOOTFORGE, PLUGINS, SOCKET
from stage import expect

REQUEST = 1023  # bytes of a command line that the executor takes
BACKLOG = 16
F_SETPIPE_SZ = 1031
LOST = re.compile(r"(\d+) messages? (?:was|were) lost")
PROCESSORS = """
#define _GNU_SOURCE
#include <sched.h>
int sched_getaffinity(pid_t process, size_t size, cpu_set_t* set) {
  (void)process;
  CPU_ZERO_S(size, set);
  for (int processor = 0; processor < 32; ++processor) CPU_SET_S(processor, size, set);
  return 0;
}
"""


def finish(host, process, seconds, status=0):
    host.finish(process, seconds)
    expect(process.status == status, f"it ended with {process.status}", host)
    host.wait_for_emptiness()


def with_workers(host):
    """The environment in which `--parallel` has 64 workers: processors that are not there."""
    with tempfile.TemporaryDirectory(prefix="bootforge-load-") as folder:
        source, library = f"{folder}/processors.c", f"{folder}/processors.so"
        with open(source, "w", encoding="ascii") as file:
            file.write(PROCESSORS)
        subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)
        with open(library, "rb") as file:
            host.write("/usr/lib/processors.so", file.read(), 0o755)
    return {"LD_PRELOAD": "/usr/lib/processors.so"}


# Many plugins

def many_plugins(host, generator, plugins, *options):
    """A graph of that many plugins and twice as many milestones; each hundredth runs a command, and
    each thousandth one that fails."""
    folder = host.path(PLUGINS)
    commands = {}
    for number in range(plugins):
        requires = [f"m{generator.randrange(2 * number)}" for _ in range(2) if number]
        start = []
        if number % 100 == 0:
            commands[f"p{number}"] = number % 1000 != 500
            start = [f"note add --text=p{number}" if commands[f"p{number}"] else "no such"]
        names = ", ".join(f'"{name}"' for name in requires)
        words = ", ".join(f'"{word}"' for word in start)
        with open(f"{folder}/p{number}.json", "w", encoding="ascii") as file:
            file.write(f'{{"metadata": {{"version": 3, "requires": [{names}], "provides": '
                       f'["m{2 * number}", "m{2 * number + 1}"], "run_once": true, '
                       f'"plugin_version": "1"}}, "operations": {{"start": [{words}]}}}}')
    names = sorted(f"p{number}" for number in range(plugins))
    process = host.start(BOOTFORGE, "--init", *options)
    finish(host, process, 60 + plugins / 50)
    messages = [line.text for line in process.lines]
    begun = sorted(text.removeprefix("executing start plugin: ") for text in messages
                   if text.startswith("executing start plugin: "))
    expect(begun == names, f"{len(begun)} plugins ran, not {plugins}", host)
    failed = {name for name, works in commands.items() if not works}
    told = {match[1] for text in messages
            if (match := re.match(r"Method invocation failed: (\w+)->", text))}
    expect(told == failed, f"{told ^ failed} failed in silence, or did not fail", host)
    expect(sorted(host.notes()) == sorted(set(commands) - failed), "commands are missing", host)
    profile = host.profile()
    expect(sorted(node.name for node in profile.nodes) == names, "the profile is not whole", host)
    record = host.record().strip().removeprefix("bootforge.run-once=").split(",")
    wanted = {f"{name}1" for name in names}  # a plugin that failed has had its turn
    expect(set(record) - {""} == wanted, f"the record has {len(record)} entries", host)
    # A record for which the kernel's log has no room goes to the syslog.
    told = host.kernel.text + b"\n".join(host.system_log.messages)
    expect(told.count(b" activated.") == plugins - len(failed) and
           told.count(b" activation failed: ") == len(failed), "the kernel log is not whole", host)
    return f"{plugins} plugins, {2 * plugins} milestones"


# Long command lines

def line_of(words, length, text=None):
    text = text or "0123456789abcdef"
    return (words + text * (length // len(text) + 1))[:length]


def long_lines(host, _generator, *options):
    """A line up to the limit arrives whole, one above it is cut there: to the byte."""
    env = with_workers(host)
    head = "note add --text="
    lines = {f"n{length}": line_of(head, length)
             for length in (*range(REQUEST - 8, REQUEST + 9), 2 * REQUEST, 65536)}
    for name, line in lines.items():
        host.plugin(name, start=[line])
    # The closing quote is the last byte: at 1,024 it is cut off, and the line is no line.
    for length in (REQUEST - 1, REQUEST, REQUEST + 1):
        quoted = line_of(f"{head}'", length - 1, "quoted ") + "'"
        host.plugin(f"q{length}", start=[quoted])
        host.plugin(f"f{length}", start=[line_of("no such ", length)])
        # A character of two bytes across the limit.
        host.plugin(f"u{length}", start=[line_of(head, length - 2) + "\u00e4"])
    process = host.start(BOOTFORGE, "--init", *options, env=env)
    finish(host, process, 60)
    notes = [line for line in (host.read("/tmp/notes") or b"").split(b"\n") if line]
    wanted = [line.encode()[:REQUEST].removeprefix(head.encode()) for line in lines.values()]
    for length in (REQUEST - 1, REQUEST):
        wanted.append((line_of(f"{head}'", length - 1, "quoted "))[len(head) + 1:].encode())
    for length in (REQUEST - 1, REQUEST, REQUEST + 1):
        line = (line_of(head, length - 2) + "\u00e4").encode()
        wanted.append(line[:REQUEST].removeprefix(head.encode()))
    expect(sorted(notes) == sorted(wanted), f"{set(notes) ^ set(wanted)}", host)
    failed = {f"q{REQUEST + 1}", *(f"f{REQUEST + place}" for place in (-1, 0, 1))}
    told = {match[1] for line in process.lines
            if (match := re.match(r"Method invocation failed: (\w+)->", line.text))}
    expect(told == failed, f"{told} failed, not {failed}", host)
    for length in (REQUEST - 1, REQUEST, REQUEST + 1):
        line = line_of("no such ", length)
        expect(("error", refused(line)) in process.messages, f"{line} is not named whole", host)
        cut = line[:REQUEST]
        expect(("error", f"execution of '{cut}' failed : unknown command '{cut}'")
               in host.executor_log(), f"the executor does not name {cut}", host)
    return f"{len(wanted) + len(failed)} lines"


# Many workers, and a queue that is full

def many_workers(host, _generator, kills):
    """64 workers for one executor that runs one command at a time: more than can wait in its queue;
    meanwhile it is killed, and further runs look whether it is there."""
    env = with_workers(host)
    plugins = 200
    for number in range(plugins):
        host.plugin(f"p{number}", start=[f"note add --text=p{number}"])
    host.plugin("gate", start=["wait here"])
    host.shell_command("wait here", "read x </tmp/gate; echo gate >>/tmp/notes\n")
    host.gate("/tmp/gate")
    process = host.start(BOOTFORGE, "--init", "--parallel", env=env)

    def waiting():
        main, = [found for found in host.processes() if found.inner_pid == process.pid]
        return len(os.listdir(f"/proc/{main.pid}/task")) == 65 and \
            host.processes("/usr/bin/wait-here")

    host.wait_for(waiting, "64 workers and a command that runs")
    host.wait_for(lambda: sum(starting(f"p{number}") in process.messages
                              for number in range(plugins)) >= 63, "63 more plugins to begin")
    # With the queue full, another run sees that somebody serves, and starts no executor.
    other = None
    if kills == 0:
        host.plugin("alone")
        other = host.start(BOOTFORGE, "--invoke", "--method=start", "--plugin=alone.json")
        host.wait_for(lambda: starting("alone") in other.messages, "the other run")
    for _ in range(kills):
        count = process.stdout.count(SETTING_UP[1].encode())
        for found in host.executors():
            found.signal(signal.SIGKILL)
        for found in host.processes("/usr/bin/wait-here"):
            found.signal(signal.SIGKILL)
        host.wait_for(lambda: process.status is not None or
                      process.stdout.count(SETTING_UP[1].encode()) > count, "a new executor")
    host.open_gate("/tmp/gate")
    finish(host, process, 60)
    messages = process.messages
    failed = {match[1] for _, text in messages
              if (match := re.match(r"Method invocation failed: (\w+)->", text))}
    notes = host.notes()
    expect(len(notes) == len(set(notes)), "a command has run twice", host)
    names = {"gate", *(f"p{number}" for number in range(plugins))}
    expect(names - set(notes) <= failed, f"{names - set(notes) - failed} are lost", host)
    started = sum(message == SETTING_UP for message in messages)
    # The other run stops the executor when it is done, and the first run starts another.
    expect(started <= 1 + max(kills, 1), f"{started} executors for {kills} kills", host)
    if other:
        expect(not failed, f"{failed} failed", host)
        expect(other.status == 0 and other.messages == [LAUNCHING, starting("alone"), STOPPED],
               "the other run", host)
    return f"{kills} kills, {len(failed)} failed and said so"


def silent_clients(host, _generator, clients):
    """Root's own clients fill the queue and say nothing: each is left after its 10 s."""
    host.plugin("only", start=["note add --text=only"])
    host.debug("look:seen:any:read x </tmp/gate")
    host.gate("/tmp/gate")
    host.plugin("only", requires=["seen"], start=["note add --text=only"])
    process = host.start(BOOTFORGE)
    host.wait_for(lambda: starting("look") in process.messages, "the injection")
    folder = os.open(host.path(os.path.dirname(SOCKET)), os.O_PATH)
    silent = []
    for _ in range(clients):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK)
        client.connect(f"/proc/self/fd/{folder}/{os.path.basename(SOCKET)}")
        silent.append(client)
    os.close(folder)
    host.open_gate("/tmp/gate")
    finish(host, process, 30 + 10 * clients)
    for client in silent:
        client.close()
    expect(host.notes() == ["only"], "the command has not run", host)
    expect(STOPPED in process.messages, "the executor was not stopped", host)
    return f"{clients} clients"


# Slow readers

def told_of_losses(texts):
    return sum(int(match[1]) for text in texts if (match := LOST.search(text)))


def hung_syslog(host, generator, plugins):
    """The daemon stops to read from the beginning, and reads again at some moment."""
    host.detach(host.system_log)
    os.unlink(host.path("/dev/log"))
    hung = endpoints.SystemLog(host.root)
    for number in range(plugins):
        host.plugin(f"p{number:04}", requires=[f"m{number - 1}"] if number else [],
                    provides=[f"m{number}"])
    again = generator.randrange(plugins // 4, plugins // 2)
    host.debug(f"pause:paused:m{again}:read x </tmp/gate",
               f"pause2:paused2:m{plugins - 1}:read x </tmp/gate2")
    host.plugin(f"p{again + 1:04}", requires=[f"m{again}", "paused"], provides=[f"m{again + 1}"])
    host.plugin("last", requires=["paused2"])
    for gate in ("/tmp/gate", "/tmp/gate2"):
        host.gate(gate)
    started = time.monotonic()
    process = host.start(BOOTFORGE, "--init")
    host.wait_for(lambda: starting("pause") in process.messages, "the pause", 60)
    expect(time.monotonic() - started < 15, "a hung syslog daemon holds the boot up", host)
    host.attach(hung)
    host.drain()  # else the boot may be over before this reader has its turn
    host.open_gate("/tmp/gate")
    # Whoever reads late loses messages again. There is room for the last ones, which tell of them.
    host.wait_for(lambda: starting("pause2") in process.messages, "the second pause", 60)
    host.drain()
    host.open_gate("/tmp/gate2")
    finish(host, process, 60)
    host.drain()
    got = [readings.syslog_message(message).text for message in hung.messages]
    lost = told_of_losses(got)
    sent = [text for _, text in process.messages] + [text for _, text in host.executor_log()]
    expect(lost > 0 and told_of(got) == len(sent),
           f"{len(sent)} messages, {told_of(got) - lost} arrived, {lost} are told as lost", host)
    expect(len(process.messages) > plugins, "standard output has lost something", host)
    return f"{len(sent)} messages, {lost} told as lost"


def told_of(texts):
    """How many messages there were, of which some were lost and that told."""
    return sum(not LOST.search(text) for text in texts) + told_of_losses(texts)


class SlowTerminal(endpoints.Terminal):
    """A terminal whose reader takes some bytes now and then, or nothing at all."""

    next = 0.0

    def read(self, most, pause):
        """False when there was nothing, or not yet."""
        if time.monotonic() < self.next:
            return False
        self.next = time.monotonic() + pause
        return self.receive(most)


def terminal(host, _generator, plugins, hangs):
    """A terminal that is slow, or one that takes nothing until a certain moment; the screen for the
    progress takes nothing at all."""
    for number in range(plugins):
        host.plugin(f"p{number}", provides=["all"])
    host.debug("pause:paused:all:read x </tmp/gate")
    host.plugin("last", requires=["paused"])
    host.gate("/tmp/gate")
    host.ignore(host.console)
    screen = SlowTerminal()
    started = time.monotonic()
    process = host.start(BOOTFORGE, "--init", stdout=screen.slave)

    def said(text):
        if not hangs:
            screen.read(60, 0.005)
        return any(message.endswith(text.encode()) for message in reversed(
            host.system_log.messages))

    host.wait_for(lambda: said(starting("pause")[1]), "the pause", 120)
    expect(time.monotonic() - started < 30, "the terminal holds the boot up", host)
    while screen.read(65536, 0):
        pass
    host.open_gate("/tmp/gate")

    def ended():
        screen.read(65536, 0)
        return process.status is not None

    host.wait_for(ended, "the boot", 60)
    host.wait_for_emptiness()
    expect(process.status == 0, f"it ended with {process.status}", host)
    # One for each plugin and for the two behind them, two of the executor's start, the reload that
    # finds no daemon, and the executor's end.
    sent = plugins + 6

    def shown():
        while screen.read(65536, 0):
            pass
        return [line for line in readings.text_of(screen.data).split("\n")
                if readings.HEAD.fullmatch(line)]

    # The kernel hands on what has been written when it finds time: a reader may find nothing before.
    host.wait_for(lambda: told_of(shown()) >= sent, f"{sent} messages on the terminal", 20)
    lost = told_of_losses(shown())
    whole = told_of(shown()) - lost
    screen.close()
    # A line of which the terminal took the beginning is shown, and lost as well.
    expect(sent <= whole + lost <= sent + hangs and bool(lost) == hangs,
           f"{sent} messages, {whole} shown, {lost} told as lost", host)
    expect(sorted(node.name for node in host.profile().nodes) ==
           sorted(["last", "pause", *(f"p{number}" for number in range(plugins))]),
           "plugins are missing", host)
    return f"{sent} messages, {whole} shown, {lost} told as lost"


def slow_pipe(host, generator, plugins):
    """A pipe is waited for: every line arrives, whatever the pace."""
    for number in range(plugins):
        host.plugin(f"p{number}")
    reader, writer = os.pipe()
    fcntl.fcntl(writer, F_SETPIPE_SZ, 4096)
    process = host.start(BOOTFORGE, "--init", stdout=writer)
    os.close(writer)
    os.set_blocking(reader, False)
    text = bytearray()

    def ended():
        try:
            text.extend(os.read(reader, generator.randrange(1, 400)))
        except BlockingIOError:
            pass
        return process.status is not None

    host.wait_for(ended, "the boot", 120)
    host.wait_for_emptiness()
    while piece := os.read(reader, 65536):
        text.extend(piece)
    os.close(reader)
    expect(process.status == 0, f"it ended with {process.status}", host)
    begun = [line.text for line in readings.log_lines(bytes(text))
             if line.text.startswith("executing")]
    expect(sorted(begun) == sorted(starting(f"p{number}")[1] for number in range(plugins)),
           f"{len(begun)} of {plugins} plugins are shown", host)
    return f"{plugins} plugins"


# (family, name, for samples too, function, arguments)
CASES = [
    ("plugins", "50,000 serial", False, many_plugins, (50_000,)),
    ("plugins", "50,000 parallel", False, many_plugins, (50_000, "--parallel")),
    ("plugins", "1,500 parallel", True, many_plugins, (1_500, "--parallel")),
    ("lines", "serial", True, long_lines, ()),
    ("lines", "64 workers", True, long_lines, ("--parallel",)),
    ("workers", "64, full queue", True, many_workers, (0,)),
    ("workers", "64, full queue, 1 kill", True, many_workers, (1,)),
    ("workers", "64, full queue, 4 kills", False, many_workers, (4,)),
    ("workers", "silent clients", False, silent_clients, (BACKLOG + 1,)),
    ("console", "slow terminal", True, terminal, (60, False)),
    ("console", "hung terminal", True, terminal, (300, True)),
    ("console", "slow pipe", True, slow_pipe, (200,)),
    ("syslog", "hung daemon", True, hung_syslog, (400,)),
]


def attempt(case, seed):
    """Returns what happened; raises Failure or Timeout."""
    _, name, _, function, arguments = case
    host = scratch_host.ScratchHost()
    try:
        return function(host, random.Random(f"{seed} {name}"), *arguments)
    finally:
        for process in host.processes():
            process.signal(signal.SIGKILL)
        host.close()
