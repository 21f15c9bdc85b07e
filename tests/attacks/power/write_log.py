"""What a disk was asked to write, and what a power cut may leave of it.

The log has the format of the kernel's dm-log-writes
(https://docs.kernel.org/admin-guide/device-mapper/log-writes.html): a first sector about the log,
then for each request a sector with its place, its length in sectors and its flags, and its data.
"""

import collections
import struct

HEADER = struct.Struct("<QQQQ")
SECTOR = 512
ATOM = 4096  # what disks of today write whole or not at all; ext4 counts on it for its superblock
FLUSH, FUA, DISCARD, MARK = 1, 2, 4, 8

# data: None for a flush, or for sectors that are given back.
Request = collections.namedtuple("Request", "offset length data flags")


def read(path):
    """All requests of a log, in their order. A last one that is not whole yet is left out."""
    with open(path, "rb") as file:
        log = file.read()
    requests, at = [], SECTOR
    while at + SECTOR <= len(log):
        sector, count, flags, _ = HEADER.unpack_from(log, at)
        at += SECTOR
        length = count * SECTOR
        data = None
        if not flags & DISCARD:
            if at + length > len(log):
                break
            data = log[at:at + length] or None
            at += length
        requests.append(Request(sector * SECTOR, length, data, flags))
    return requests


def apply(image, request):
    if request.data is not None:
        image[request.offset:request.offset + request.length] = request.data


def cuts(image, requests, generator, drawn):
    """What may be on the disk after a power cut behind each request: (number of requests before the
    cut, image) for all of them written; for none since the last flush; for so many drawn parts of
    what came since then, atom by atom. The image, a bytearray, is what was there before."""
    synced, volatile = bytearray(image), []
    yield 0, bytes(synced)
    for number, request in enumerate(requests, 1):
        if request.flags & FLUSH:
            for each in volatile:
                apply(synced, each)
            volatile.clear()
        if request.flags & FUA:
            # It is on the disk when it is done; what was written there before must not come back.
            apply(synced, request)
        if request.data is not None:
            volatile.append(request)
        yield number, bytes(synced)
        if not volatile:
            continue
        whole = bytearray(synced)
        for each in volatile:
            apply(whole, each)
        yield number, bytes(whole)
        for _ in range(drawn):
            yield number, part_of(synced, volatile, generator)


def part_of(synced, volatile, generator):
    image, chance = bytearray(synced), generator.random()
    for each in volatile:
        start = 0
        while start < each.length:
            end = min(start + ATOM - (each.offset + start) % ATOM, each.length)
            if each.flags & FUA or generator.random() < chance:
                image[each.offset + start:each.offset + end] = each.data[start:end]
            start = end
    return bytes(image)
