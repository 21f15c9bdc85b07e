"""The daemons' part of the demo: start, look at them, use one, stop, see that none is left."""

import collections
import re

SERVICES = "/usr/lib/nimbus/host/services"
PAGE = "http://127.0.0.1:8081/"
REQUEST = r"printf 'GET / HTTP/1.0\r\n\r\n' | /bin/nc -w 20 127.0.0.1 8081"
PAGE_HOLDS = "The daemons are up."

# group: the number of the first process of its group, or "-" when it does not run
Daemon = collections.namedtuple("Daemon", "priority name group")
Process = collections.namedtuple("Process", "number group command")


def list_daemons(host):
    """In the order of their priorities."""
    return [Daemon(*line.split()) for line in host.output([SERVICES]).splitlines()]


def list_processes(host):
    lines = host.output(["/bin/ps", "-o", "pid,pgid,args"]).splitlines()[1:]
    return [Process(*line.split(None, 2)) for line in lines]


def show_daemons(screen, daemons, processes):
    width = max((len(daemon.name) for daemon in daemons), default=0)
    print(screen.paint("dim", f"{'priority':>8}  {'daemon':{width}}  {'process':>7}  command"))
    for daemon in daemons:
        head = f"{daemon.priority:>8}  {daemon.name:{width}}"
        own = [process for process in processes if process.group == daemon.group]
        for process in own:
            print(f"{head}  {screen.paint('green', f'{process.number:>7}')}  {process.command}")
            head = " " * len(head)
        if not own:
            print(f"{head}  {screen.paint('yellow', 'does not run')}")


def use_one(host, screen):
    screen.title(f"One of them, asked for {PAGE}")
    page = host.output(["/bin/sh", "-c", REQUEST]).partition("\r\n\r\n")[2]
    print(page.rstrip("\n") or "no answer")
    return [] if PAGE_HOLDS in page else [f"{PAGE} does not answer with '{PAGE_HOLDS}'"]


def judge_start(daemons, expected_failed):
    running = {daemon.name for daemon in daemons if daemon.group != "-"}
    problems = [f"daemon {name} was expected to fail, and runs"
                for name in running & set(expected_failed)]
    problems += [f"daemon {daemon.name} does not run"
                 for daemon in daemons if daemon.name not in running.union(expected_failed)]
    return problems if daemons else ["the host has no daemons"]


def judge_stop(screen, daemons, stopped, processes):
    """daemons: as they were before; stopped: their names in that order; processes: of today."""
    owners = {daemon.group: daemon.name for daemon in daemons if daemon.group != "-"}
    problems = [f"process {process.number} of daemon {owners[process.group]} still lives: "
                f"{process.command}" for process in processes if process.group in owners]
    problems += [f"daemon {daemon.name} was not stopped"
                 for daemon in daemons if daemon.name not in stopped]
    priorities = {daemon.name: int(daemon.priority) for daemon in daemons}
    order = [priorities[name] for name in stopped if name in priorities]
    if order != sorted(order, reverse=True):
        problems.append(f"not stopped in reverse: {', '.join(stopped)}")
    if not problems:
        print(screen.paint("green", "None of their processes is left."), "Order:",
              ", ".join(stopped))
    return problems


def go_round(host, options, screen, follower):
    """Returns what was not as it should be, one sentence each."""
    program = [options.boot[0], "--daemon=wait"]
    program += [word for word in options.boot if word == "--parallel"]

    def run(method):
        begin = len(follower.lines)
        status = host.run([*program, f"--method={method}"], follower.receive)
        follower.finish()
        if status:
            problems.append(f"--daemon --method={method} ended with exit status {status}")
        return follower.lines[begin:]

    problems = []
    screen.title("The daemons start")
    run("start")
    screen.title("Which of them are alive")
    daemons = list_daemons(host)
    show_daemons(screen, daemons, list_processes(host))
    problems += judge_start(daemons, options.expect_daemon_failed)
    problems += use_one(host, screen)
    screen.title("The daemons stop, in reverse")
    stops = [re.search(r"executing stop for daemon (.*)\.", line) for line in run("stop")]
    screen.title("What is left of them")
    problems += judge_stop(screen, daemons, [match[1] for match in stops if match],
                           list_processes(host))
    return problems
