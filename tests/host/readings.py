"""What the tests read: log lines, kernel records, syslog datagrams, the profile, the run-once
record, dependency dumps and the program file itself. Everything that is no such thing raises."""

import collections
import datetime
import gzip
import re
import struct

LogLine = collections.namedtuple("LogLine", "level text pid time")
Syslog = collections.namedtuple("Syslog", "priority text")
Vertex = collections.namedtuple("Vertex", "label attributes")
Profile = collections.namedtuple("Profile", "kernel nodes head options")
ProfileNode = collections.namedtuple("ProfileNode", "name start end")

HEAD = re.compile(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z) (error|warning|notice|info|debug) "
                  r"bootforge\[(\d+)\]: (.*)")
STAMP = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}"
PRIORITIES = {"error": 27, "warning": 28, "notice": 29, "info": 30}  # facility daemon


def text_of(data):
    return data.decode("utf-8", "surrogateescape")


def log_lines(data):
    """The messages of a log. Lines without a prefix belong to the message above them."""
    text = text_of(data)
    if not text:
        return []
    if not text.endswith("\n"):
        raise ValueError(f"the log ends inside a line: {text[-80:]!r}")
    lines = []
    for line in text[:-1].split("\n"):
        head = HEAD.fullmatch(line)
        if head:
            time = datetime.datetime.strptime(head[1], "%Y-%m-%dT%H:%M:%S.%fZ")
            lines.append(LogLine(head[2], head[4], int(head[3]),
                                 time.replace(tzinfo=datetime.timezone.utc)))
        elif lines:
            lines[-1] = lines[-1]._replace(text=lines[-1].text + "\n" + line)
        else:
            raise ValueError(f"no log line: {line!r}")
    return lines


def kernel_records(data):
    text = text_of(data)
    if text and not text.endswith("\n"):
        raise ValueError(f"the kernel log ends inside a record: {text[-80:]!r}")
    return text.split("\n")[:-1]


def syslog_message(datagram, identity="bootforge"):
    head = re.fullmatch(rf"<(\d+)>\w{{3}} [ \d]\d \d\d:\d\d:\d\d {re.escape(identity)}"
                        r"(?:\[\d+\])?: (.*?)\n?", text_of(datagram).rstrip("\0"), re.S)
    if not head:
        raise ValueError(f"no syslog message: {datagram!r}")
    return Syslog(int(head[1]), head[2])


def without_numbers(text):
    """A message with its measured time masked."""
    return re.sub(r"\(took \d+ us\)", "(took N us)", text)


def profile_time(text):
    return datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S.%f").replace(
        tzinfo=datetime.timezone.utc)


def read_profile(data):
    """The boot section, whole: a line more, less or different raises."""
    text = text_of(data)
    shape = re.fullmatch(
        r"HVKernel Initialization Time: (\d+)\n"
        rf"((?:\[{STAMP} - {STAMP}\] sysboot: .*\n)*)"
        r"=== Bootforge configuration info ===\n"
        rf" Start: ({STAMP})\n End: ({STAMP})\n"
        r" Verbose: ([01])\n Parallel: ([01])\n Randomize: ([01])\n Interactive Mode: ([01])\n"
        r" Random Seed: (-?\d+)\n", text)
    if not shape:
        raise ValueError(f"no boot profile:\n{text}")
    nodes = [ProfileNode(name, profile_time(start), profile_time(end)) for start, end, name in
             re.findall(rf"\[({STAMP}) - ({STAMP})\] sysboot: (.*)\n", shape[2])]
    return Profile(int(shape[1]), nodes, (profile_time(shape[3]), profile_time(shape[4])),
                   dict(zip(("verbose", "parallel", "randomize", "interactive", "seed"),
                            map(int, shape.groups()[4:]))))


def read_record(data):
    """The content of a run-once record."""
    return text_of(gzip.decompress(data))


def read_dot(text):
    """A dependency dump as (vertices in order of appearance, edges in order as label pairs)."""
    lines = text.split("\n")
    if lines[0] != "digraph g {" or lines[-2:] != ["}", ""]:
        raise ValueError(f"no digraph: {text}")
    vertices, edges = {}, []
    for line in lines[1:-2]:
        vertex = re.fullmatch(r'(\d+) \[label="(.*)"(| shape=box| shape=trapezium)\];', line)
        edge = re.fullmatch(r"(\d+) -> (\d+);", line)
        if vertex and vertex[1] not in vertices:
            vertices[vertex[1]] = Vertex(vertex[2], vertex[3])
        elif edge:
            edges.append(edge.groups())
        else:
            raise ValueError(f"no vertex or edge, or a vertex twice: {line!r}")
    return (list(vertices.values()),
            [(vertices[first].label, vertices[second].label) for first, second in edges])


class ElfFile:
    """A 64-bit little-endian ELF file, as far as its exported data symbols are concerned."""

    RELATIVE = (8, 1027)  # the relocation type on x86-64 and on AArch64

    def __init__(self, path):
        with open(path, "rb") as file:
            self.data = file.read()
        if self.data[:6] != b"\x7fELF\x02\x01":
            raise ValueError(f"{path}: no 64-bit little-endian ELF file")
        offset, = struct.unpack_from("<Q", self.data, 0x28)
        size, count = struct.unpack_from("<HH", self.data, 0x3A)
        # name, type, flags, address, offset, size, link, info, align, entry size
        self.sections = [struct.unpack_from("<IIQQQQIIQQ", self.data, offset + index * size)
                         for index in range(count)]
        offset, = struct.unpack_from("<Q", self.data, 0x20)
        size, count = struct.unpack_from("<HH", self.data, 0x36)
        # type, flags, offset, address, physical address, file size, memory size, align
        self.segments = [struct.unpack_from("<IIQQQQQQ", self.data, offset + index * size)
                         for index in range(count)]

    def exported(self, name):
        """(address, size, type) of a symbol of the dynamic symbol table."""
        for section in self.sections:
            if section[1] != 11:  # SHT_DYNSYM
                continue
            names = self.sections[section[6]][4]
            for at in range(section[4], section[4] + section[5], 24):
                word, info, _, index, address, size = struct.unpack_from("<IBBHQQ", self.data, at)
                start = names + word
                if index != 0 and self.data[start:self.data.index(b"\0", start)] == name.encode():
                    return address, size, info & 15
        raise KeyError(name)

    def at(self, address, layout):
        for segment in self.segments:
            if segment[0] == 1 and segment[3] <= address < segment[3] + segment[5]:
                return struct.unpack_from(layout, self.data, segment[2] + address - segment[3])[0]
        raise KeyError(hex(address))

    def pointer_at(self, address):
        """The pointer that the loader leaves at an address, relative to the load address."""
        for section in self.sections:
            if section[1] != 4:  # SHT_RELA
                continue
            for at in range(section[4], section[4] + section[5], 24):
                place, info, addend = struct.unpack_from("<QQq", self.data, at)
                if place == address and info & 0xFFFFFFFF in self.RELATIVE:
                    return addend
        return self.at(address, "<Q")
