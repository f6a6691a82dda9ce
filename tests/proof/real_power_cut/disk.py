"""A disk with a write cache, from which the power may be taken: one file of a FUSE file system, for
a loop device to stand on.

What is written is in the cache until a flush, which reaches this file as an fsync. A cut keeps all
that was flushed, and of the rest what chance says, as a disk does that writes in any order. From
then on the disk only plays along, so that the file system above can be taken down without an error:
nothing that it writes survives the moment in which the power comes back.
"""
from __future__ import annotations

import errno
import mmap
import multiprocessing
import os
import random
import signal
import stat
import threading
from dataclasses import dataclass
from multiprocessing.connection import Connection
from pathlib import Path
from typing import Any, Iterator

import fusepy  # type: ignore

from board import Board, Numbers

BLOCK = 4096  # bytes; disks write so much as a whole
SECTOR = 512  # bytes; all that a disk with sectors of that size promises
LONGEST_WAIT = 0.4  # seconds, for the requests that a cut waits for
FILE = "disk"

Write = tuple[int, bytes]  # the offset and what was written there


@dataclass(frozen=True)
class When:
    """The instant of a cut: when that many more requests have found so much in the cache, and
    before the last of them is obeyed."""
    requests: int
    cached: int  # writes


@dataclass(frozen=True)
class Cut:
    """What a cut found and did."""
    acknowledged: Numbers  # as it was before the cut
    started: Numbers  # as it was after it
    cached: int  # blocks or sectors that no flush had made safe
    dropped: int  # of those


@dataclass
class Requests:
    writes: int = 0
    flushes: int = 0


def pieces(write: Write, size: int) -> Iterator[Write]:
    """The write, split at the multiples of `size`."""
    start, data = write
    at = start
    while at < start + len(data):
        end = min(at - at % size + size, start + len(data))
        yield at, data[at - start:end - start]
        at = end


def surviving(cached: list[Write], chance: random.Random) -> list[Write]:
    """What a cut leaves of the pieces in the cache, the oldest first."""
    way = chance.choices(["none", "all", "oldest", "any"], [1, 1, 2, 6])[0]
    if way == "none":
        return []
    if way == "all":
        return cached
    if way == "oldest":
        return cached[:chance.randint(0, len(cached))]
    share = chance.random()
    return [piece for piece in cached if chance.random() < share]


class Disk:
    def __init__(self, size: int, superblock: int, board: Board, seed: str):
        self.size = size
        self.requests = Requests()
        self._board = board
        self._chance = random.Random(seed)
        self._superblock = superblock
        self._seen = mmap.mmap(-1, size)  # what a read shows
        self._stable = mmap.mmap(-1, size)  # what a power cut leaves
        self._cached: list[Write] = []  # what differs between them, the oldest first
        self._tears = False  # blocks into sectors, at this cut
        self._is_off = False
        self._when: When | None = None
        self._cut: Cut | None = None
        self._turn = threading.Condition()

    def read(self, count: int, offset: int) -> bytes:
        with self._turn:
            return self._seen[offset:offset + count]

    def write(self, data: bytes, offset: int) -> None:
        with self._turn:
            self.requests.writes += 1
            self._count_down()
            self._seen[offset:offset + len(data)] = data
            self._cached.append((offset, data))

    def flush(self) -> None:
        with self._turn:
            self.requests.flushes += 1
            self._count_down()
            if not self._is_off:
                self._keep(self._cached)
                self._cached.clear()

    def cut(self, when: When) -> Cut:
        """Takes the power when it is time, or when the disk has nothing more to do."""
        with self._turn:
            self._cut = None
            self._when = when
            self._turn.wait_for(lambda: self._cut is not None, LONGEST_WAIT)
            if self._cut is None:
                self._take_power()
            assert self._cut is not None
            return self._cut

    def power_on(self) -> None:
        with self._turn:
            for offset, data in self._cached:
                end = offset + len(data)
                self._seen[offset:end] = self._stable[offset:end]
            self._cached.clear()
            self._is_off = False

    def _keep(self, writes: list[Write]) -> None:
        for offset, data in writes:
            self._stable[offset:offset + len(data)] = data

    def _count_down(self) -> None:
        if self._when is None or len(self._cached) < self._when.cached:
            return
        self._when = When(self._when.requests - 1, self._when.cached)
        if self._when.requests <= 0:
            self._take_power()
            self._turn.notify()

    # The superblocks of ext4 and btrfs are longer than a sector, and are written in place with one
    # checksum: whoever tears them finds no file system, whatever stands on it.
    def _torn(self, write: Write) -> Iterator[Write]:
        for offset, data in pieces(write, BLOCK):
            if self._tears and offset - offset % BLOCK != self._superblock:
                yield from pieces((offset, data), SECTOR)
            else:
                yield offset, data

    # The order matters: an update that is acknowledged meanwhile may be lost, one that is started
    # meanwhile may be there.
    def _take_power(self) -> None:
        acknowledged = self._board.acknowledged()
        self._tears = self._chance.random() < 0.25
        cached = [piece for write in self._cached for piece in self._torn(write)]
        kept = surviving(cached, self._chance)
        self._keep(kept)
        self._is_off = True
        self._when = None
        self._cut = Cut(acknowledged, self._board.started(), len(cached), len(cached) - len(kept))


class OneFile:
    """The FUSE file system: what fusepy asks it for. It has no fallocate, so that a discard, or a
    range to be zeroed, is refused, and then written as zeros where it matters."""
    use_ns = True

    def __init__(self, disk: Disk):
        self._disk = disk

    def __call__(self, operation: str, *arguments: Any) -> Any:
        return getattr(self, operation)(*arguments)

    def getattr(self, path: str, _handle: int | None = None) -> dict[str, int]:
        if path == "/":
            return {"st_mode": stat.S_IFDIR | 0o700, "st_nlink": 2}
        if path != "/" + FILE:
            raise fusepy.FuseOSError(errno.ENOENT)
        return {"st_mode": stat.S_IFREG | 0o600, "st_nlink": 1, "st_size": self._disk.size}

    def open(self, _path: str, _flags: int) -> int:
        return 0

    def read(self, _path: str, count: int, offset: int, _handle: int) -> bytes:
        return self._disk.read(count, offset)

    def write(self, _path: str, data: bytes, offset: int, _handle: int) -> int:
        if offset + len(data) > self._disk.size:
            raise fusepy.FuseOSError(errno.ENOSPC)
        self._disk.write(data, offset)
        return len(data)

    def fsync(self, _path: str, _only_data: int, _handle: int) -> int:
        self._disk.flush()
        return 0


def _obey(disk: Disk, orders: Connection) -> None:
    while True:
        order = orders.recv()
        if isinstance(order, When):
            orders.send(disk.cut(order))
        elif order == "on":
            disk.power_on()
            orders.send(order)
        else:
            orders.send(disk.requests)


def _serve(disk: Disk, place: Path, orders: Connection) -> None:
    os.setsid()  # an interrupt from the keyboard is for those who then take the file system down
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    threading.Thread(target=_obey, args=(disk, orders), daemon=True).start()
    # direct_io: nothing of the file is kept above this program; big_writes: in 128 KiB, not in 4.
    fusepy.FUSE(OneFile(disk), str(place), foreground=True, nothreads=True, direct_io=True,
                big_writes=True, fsname="power-cut-disk")


class DiskProcess:
    """The disk in a process of its own, as the others have it."""

    def __init__(self, place: Path, disk: Disk):
        self.file = place / FILE
        context = multiprocessing.get_context("fork")
        self._orders, theirs = context.Pipe()
        self._process = context.Process(target=_serve, args=(disk, place, theirs), daemon=True)
        self._process.start()
        theirs.close()
        self._ask("requests")  # it answers, so it runs; the file comes a moment later
        while not self.file.exists():
            if not self._process.is_alive():
                raise OSError("the FUSE file system cannot be mounted")
            self._process.join(0.01)

    def cut(self, when: When) -> Cut:
        cut = self._ask(when)
        assert isinstance(cut, Cut)
        return cut

    def power_on(self) -> None:
        self._ask("on")

    def requests(self) -> Requests:
        requests = self._ask("requests")
        assert isinstance(requests, Requests)
        return requests

    def end(self) -> None:
        self._process.kill()
        self._process.join()

    def _ask(self, order: When | str) -> object:
        self._orders.send(order)
        answer: object = self._orders.recv()
        return answer
