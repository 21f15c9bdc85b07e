"""What a recorded boot means, worked out plainly: no cleverness, no care for speed.

Written apart from the program, against the definitions in docs/analysis.md, so that reference_test.py
can compare the two.
"""

import re
from datetime import datetime, timezone
from fractions import Fraction

TIME = r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6})"
LINE = re.compile(rf"\[{TIME} - {TIME}\] (sysboot|daemon): (.*)", re.DOTALL)
EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


def moment(text):
    delta = datetime.strptime(text + "+0000", "%Y-%m-%d %H:%M:%S.%f%z") - EPOCH
    return (delta.days * 86400 + delta.seconds) * 1000000 + delta.microseconds


def read_section(log, daemons):
    """The lines of the boot section, or of the last daemon section: (name, start, end)."""
    sections = []
    closing = True
    for line in log.split("\n")[:-1]:
        match = LINE.fullmatch(line)
        kind = None
        if match:
            kind = match[3]
        elif line.startswith("HVKernel Initialization Time: "):
            sections.append(("sysboot", []))
            closing = False
            continue
        elif line == "=== Bootforge configuration info ===":
            kind = "sysboot"
        elif line == "=== Daemon configuration info ===":
            kind = "daemon"
        if kind is None:
            continue
        if not sections or closing or sections[-1][0] != kind:
            sections.append((kind, []))
            closing = False
        if match:
            sections[-1][1].append((match[4], moment(match[1]), moment(match[2])))
        else:
            closing = True
    wanted = [lines for kind, lines in sections if kind == ("daemon" if daemons else "sysboot")]
    if not wanted:
        return None
    return wanted[-1] if daemons else wanted[0]


class Plugin:
    """One line of the log, with its description where there is one."""

    def __init__(self, name, start, end, description):
        self.name, self.description = name, description
        self.started = start != 0
        self.ran = start != 0 and end != 0
        self.start = start
        self.end = max(start, end)
        self.run = self.end - self.start

    def requires(self):
        return self.description["requires"] if self.description else []

    def provides(self):
        return self.description["provides"] if self.description else []

    def is_script(self):
        return bool(self.description) and self.description["kind"] == "script"

    def uses_executor(self):
        return (bool(self.description) and self.description["kind"] == "json"
                and self.description["commands"])


def links(after, before):
    """The names of what stands between two plugins, when `after` waits for `before`."""
    if after is before:
        return []
    names = [name for name in after.requires() if name in before.provides()]
    if after.is_script() and before.is_script():
        if before.description["level"] < after.description["level"]:
            names.append(f"_<->_priority_<->_{before.description['level']}")
    return names


class Boot:
    def __init__(self, lines, descriptions):
        rest = list(descriptions)
        self.plugins = []
        for name, start, end in lines:
            found = next((each for each in rest if each["name"] == name), None)
            if found:
                rest.remove(found)
            self.plugins.append(Plugin(name, start, end, found))
        self.ran = [plugin for plugin in self.plugins if plugin.ran]
        self.first = min((plugin.start for plugin in self.ran), default=0)
        self.last = max((plugin.end for plugin in self.ran), default=0)
        self.makespan = self.last - self.first
        self.before = {plugin: [other for other in self.ran if links(plugin, other)]
                       for plugin in self.ran}
        self.find_workers()
        for plugin in self.ran:
            ready = max([self.first] + [other.end for other in self.before[plugin]])
            plugin.wait_milestones = ready - self.first
            plugin.wait_worker = max(0, plugin.start - ready)
        self.contradicted = any(other.end > plugin.start
                                for plugin in self.ran for other in self.before[plugin])
        self.find_work()
        self.find_slack()

    def find_workers(self):
        free_from = []
        self.on_worker = {}
        for plugin in sorted(self.ran, key=lambda each: (each.start, each.name)):
            for worker, end in enumerate(free_from):
                if end <= plugin.start:
                    break
            else:
                worker = len(free_from)
                free_from.append(None)
            free_from[worker] = plugin.end
            plugin.worker = worker
            self.on_worker.setdefault(worker, []).append(plugin)
        self.workers = len(free_from)

    def find_work(self):
        moments = sorted({each.start for each in self.ran} | {each.end for each in self.ran})
        for plugin in self.ran:
            if not plugin.uses_executor():
                plugin.work = Fraction(plugin.run)
                continue
            plugin.work = Fraction(0)
            for begin, end in zip(moments, moments[1:]):
                if plugin.start <= begin and end <= plugin.end:
                    sharers = sum(1 for other in self.ran if other.uses_executor()
                                  and other.start <= begin and end <= other.end)
                    plugin.work += Fraction(end - begin, sharers)

    def find_slack(self):
        bounds = {plugin: [] for plugin in self.ran}  # who must not be pushed
        for plugin in self.ran:
            for other in self.before[plugin]:
                if plugin.start >= other.end:
                    bounds[other].append(plugin)
        for plugins in self.on_worker.values():
            for one, following in zip(plugins, plugins[1:]):
                bounds[one].append(following)
        latest = {plugin: self.last for plugin in self.ran}
        changed = True
        while changed:
            changed = False
            for plugin in self.ran:
                limit = min([latest[plugin]] + [latest[each] - each.run for each in bounds[plugin]])
                changed = changed or limit != latest[plugin]
                latest[plugin] = limit
        for plugin in self.ran:
            plugin.slack = latest[plugin] - plugin.end

    def blame(self):
        rows = []
        for plugin in self.plugins:
            row = {"name": plugin.name, "start": None, "end": None, "run": None,
                   "wait_milestones": None, "wait_worker": None, "wait_executor": None,
                   "work": None, "worker": None, "slack": None}
            if plugin.started:
                row["start"] = plugin.start - self.first
            if plugin.ran:
                work = whole(plugin.work)
                row.update(end=plugin.end - self.first, run=plugin.run,
                           wait_milestones=plugin.wait_milestones, wait_worker=plugin.wait_worker,
                           work=work, wait_executor=plugin.run - work, worker=plugin.worker,
                           slack=plugin.slack)
            rows.append(row)
        return rows

    def chain(self, name=None):
        last_first = lambda each: (-each.end, each.name)
        candidates = [each for each in self.ran if name is None or each.name == name]
        if not candidates:
            return []
        plugin = min(candidates, key=last_first)
        chain = []
        seen = []  # what takes no time may seem to follow itself: it is not taken twice
        while True:
            seen.append(plugin)
            step = {"name": plugin.name, "start": plugin.start - self.first, "run": plugin.run,
                    "gap": plugin.start - self.first, "after": None}
            chain.insert(0, step)
            on_worker = self.on_worker[plugin.worker]
            held = [each for each in on_worker[:on_worker.index(plugin)] if each not in seen]
            waited_for = [each for each in self.before[plugin] if each not in seen]
            if plugin.wait_worker > 50 and held:
                before = min(held, key=last_first)
                step["after"] = {"kind": "worker", "name": before.name, "milestone": None}
            elif waited_for:
                before = min(waited_for, key=last_first)
                step["after"] = {"kind": "milestone", "name": before.name,
                                 "milestone": min(links(plugin, before))}
            else:
                return chain
            step["gap"] = plugin.start - before.end
            plugin = before


def whole(number):
    """To whole microseconds, up at the half."""
    return int((2 * number + 1) // 2)


class Node:
    def __init__(self, name, scheduling_class):
        self.name, self.scheduling_class = name, scheduling_class
        self.before, self.after = [], []
        self.state = "idle"
        self.work, self.shares, self.is_plugin = Fraction(0), False, False

    def wait_for(self, other):
        self.before.append(other)
        other.after.append(self)

    def height(self, above=()):
        """The longest chain behind it; what closes a cycle counts for nothing."""
        behind = [each.height(above + (self,)) for each in self.after
                  if each is not self and each not in above]
        return 1 + max(behind) if behind else 0


class Simulation:
    """The orchestrator's way to run a graph, with a clock of its own."""

    def __init__(self, boot, descriptions, workers, changed, without, scripts):
        self.milestones = {}
        self.levels = {}
        self.nodes = []
        described = {id(each.description): each for each in boot.plugins if each.description}
        for description in descriptions:
            node = Node(description["name"], 3 if description["kind"] == "script" else 1)
            node.is_plugin = True
            recorded = described.get(id(description))
            if recorded and recorded.ran:
                node.work = recorded.work
            node.shares = description["kind"] == "json" and description["commands"]
            for name in description["requires"]:
                node.wait_for(self.milestone(name))
            for name in description["provides"]:
                self.milestone(name).wait_for(node)
            if description["left_out"]:
                node.state = "done"
            node.level = description["level"] if description["kind"] == "script" else None
            self.nodes.append(node)
        self.link_levels()
        for plugin in boot.plugins:
            if plugin.description is None and plugin.ran:
                node = Node(plugin.name, 3 if scripts else 1)
                node.is_plugin, node.work = True, plugin.work
                self.nodes.append(node)
        for node in self.nodes:
            if node.name in changed:
                node.work = Fraction(changed[node.name])
            if node.name in without:
                node.state = "done"
        self.workers = [None] * workers  # [node, what is left]
        self.queue = []
        self.order = []
        self.now = self.busy = self.executor_busy = Fraction(0)

    def milestone(self, name):
        if name not in self.milestones:
            self.milestones[name] = Node(name, 1)
        return self.milestones[name]

    def link_levels(self):
        """Levels ascend in a list as the init scripts are listed, so a level has its place already
        when the scripts above it come."""
        scripts = [node for node in self.nodes if getattr(node, "level", None) is not None]
        levels = sorted({node.level for node in scripts})
        barriers = {level: Node(f"level {level}", 1) for level in levels}
        for below, above in zip(levels, levels[1:]):
            barriers[above].wait_for(barriers[below])
        for node in scripts:
            place = levels.index(node.level)
            if place > 0:
                node.wait_for(barriers[levels[place - 1]])
            barriers[node.level].wait_for(node)

    def schedule(self, node):
        if node.state in ("queued", "done"):
            return
        if node.state == "idle":
            node.state = "waiting"
        ready = True
        for before in node.before:
            if before.state in ("waiting", "queued"):
                ready = False
            elif before.state == "idle":
                self.schedule(before)
                ready = False
        if ready:
            node.state = "queued"
            self.queue.append(node)

    def take(self):
        if not self.queue:
            return None
        lowest = min(node.scheduling_class for node in self.queue)
        candidates = [node for node in self.queue if node.scheduling_class == lowest]
        highest = max(node.height() for node in candidates)
        node = next(node for node in candidates if node.height() == highest)
        self.queue.remove(node)
        return node

    def complete(self, node):
        node.state = "done"
        for after in node.after:
            if after.state == "waiting":
                self.schedule(after)

    def run(self):
        for node in self.nodes:
            self.schedule(node)
        while True:
            for worker, busy in enumerate(self.workers):
                while self.workers[worker] is None:
                    node = self.take()
                    if node is None:
                        break
                    if node.is_plugin:
                        self.order.append(node.name)
                    if node.work <= 0:
                        self.complete(node)
                    else:
                        self.workers[worker] = [node, node.work]
            running = [each for each in self.workers if each]
            if not running:
                return
            sharers = sum(1 for node, _ in running if node.shares)
            lasts = {id(each): each[1] * (sharers if each[0].shares else 1) for each in running}
            passed = min(lasts.values())
            self.now += passed
            self.busy += passed * len(running)
            self.executor_busy += passed if sharers else 0
            for worker, each in enumerate(self.workers):
                if each is None:
                    continue
                node = each[0]
                each[1] -= passed / (sharers if node.shares else 1)
                if lasts[id(each)] <= passed + Fraction(1, 1000):
                    self.workers[worker] = None
                    self.complete(node)


def stuck(descriptions, begun, ended):
    """What runs, what waits and for what, by the sets of what has begun and what has ended."""
    def waits_for(one, other):
        if one["kind"] == "script":
            return other["level"] < one["level"]
        return any(name in other["provides"] for name in one["requires"])

    ended = set(ended)
    for one in descriptions:
        if one["name"] in begun or one["name"] in ended:
            ended |= {other["name"] for other in descriptions
                      if waits_for(one, other) and other["name"] in begun}
    running = {each["name"] for each in descriptions if each["name"] in begun} - ended
    waiting = {each["name"] for each in descriptions
               if each["name"] not in begun and each["name"] not in ended and not each["left_out"]}
    missing = {}
    for one in descriptions:
        if one["name"] not in waiting:
            continue
        reasons = {}
        for other in descriptions:
            if other["name"] not in running | waiting or not waits_for(one, other):
                continue
            if one["kind"] == "script":
                reasons.setdefault(f"_<->_priority_<->_{other['level']}", set()).add(other["name"])
            for name in one["requires"]:
                if name in other["provides"]:
                    reasons.setdefault(name, set()).add(other["name"])
        missing[one["name"]] = reasons
    blocks = {}
    for name in running:
        behind = {name}
        grew = True
        while grew:
            grew = False
            for one in descriptions:
                if one["name"] in waiting - behind and any(
                        waits_for(one, other) for other in descriptions if other["name"] in behind):
                    behind.add(one["name"])
                    grew = True
        blocks[name] = len(behind) - 1
    return blocks, missing
