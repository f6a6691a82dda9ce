"""A disk with a write cache, from which the power may be taken: one file of a FUSE file system, for
a loop device to stand on.

What is written is in the cache until a flush, which reaches this file as an fsync. A cut keeps all
that was flushed, and of the rest what chance says, as a disk does that writes in any order. From
then on the disk only plays along, so that the file system above can be taken down without an error:
nothing that it writes survives the moment in which the power comes back.
"""
from __future__ import annotations

import ctypes
import errno
import mmap
import multiprocessing
import os
import random
import signal
import stat
import threading
from collections import Counter
from multiprocessing.connection import Connection
from pathlib import Path
from typing import Any, Callable, Iterator, NamedTuple

import fusepy  # type: ignore

BLOCK = 4096  # bytes; disks write so much as a whole
SECTOR = 512  # bytes; all that a disk with sectors of that size promises
LONGEST_WAIT = 0.4  # seconds, for the requests that a cut waits for
FILE = "disk"

Write = tuple[int, bytes]  # the offset and what was written there


class Board:
    """What the workers have started and what was acknowledged to them, in memory that all share:
    the number of an update for each series."""

    def __init__(self, series: int):
        cells = memoryview(mmap.mmap(-1, mmap.PAGESIZE)).cast("q")
        self.started, self.acknowledged = cells[:series], cells[series:2 * series]


class Cut(NamedTuple):
    acknowledged: tuple[int, ...]  # as it was before the cut
    started: tuple[int, ...]  # as it was after it
    dropped: int  # blocks or sectors that no flush had made safe


def pieces(write: Write, size: int) -> Iterator[Write]:
    """The write, split at the multiples of `size`."""
    start, data = write
    end = start + len(data)
    edges = [start, *range(start - start % size + size, end, size), end]
    for at, to in zip(edges, edges[1:]):
        yield at, data[at - start:to - start]


def surviving(cached: list[Write], chance: random.Random) -> list[Write]:
    """What a cut leaves of the pieces in the cache, the oldest first."""
    way = chance.choices(["none", "all", "oldest", "any"], [1, 1, 2, 6])[0]
    if way == "oldest":
        return cached[:chance.randint(0, len(cached))]
    share = {"none": 0.0, "all": 1.0}.get(way, chance.random())
    return [piece for piece in cached if chance.random() < share]


class Disk:
    """Also what fusepy asks: without fallocate, so that a discard, or a range to be zeroed, is
    refused, and then written as zeros where it matters."""
    use_ns = True

    def __init__(self, size: int, superblock: int, board: Board, seed: str):
        self.requests: Counter[str] = Counter()
        self._board = board
        self._chance = random.Random(seed)
        self._superblock = superblock
        self._seen = mmap.mmap(-1, size)  # what a read shows
        self._stable = mmap.mmap(-1, size)  # what a power cut leaves
        self._cached: list[Write] = []  # what differs between them, the oldest first
        self._left = 0  # requests before a cut; 0: none is wanted
        self._fullness = 0  # writes in the cache, without which a request does not count for it
        self._cut: Cut | None = None  # once the power is off
        self._turn = threading.Condition()

    def serve(self, place: Path, orders: Connection) -> None:
        """Until it is killed: the file system at that place, and who gives orders."""
        os.setsid()  # an interrupt from the keyboard is for those who take the file system down
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        threading.Thread(target=self._obey, args=(orders,), daemon=True).start()
        # direct_io: nothing of the file is kept above this program; big_writes: 128 KiB, not 4.
        fusepy.FUSE(self, str(place), foreground=True, nothreads=True, direct_io=True,
                    big_writes=True, fsname="power-cut-disk")

    def _obey(self, orders: Connection) -> None:
        while True:
            function, arguments = orders.recv()
            orders.send(function(self, *arguments))

    def __call__(self, operation: str, *arguments: Any) -> Any:
        return getattr(self, operation)(*arguments)

    def getattr(self, path: str, _handle: int | None = None) -> dict[str, int]:
        if path == "/":
            return {"st_mode": stat.S_IFDIR | 0o700, "st_nlink": 2}
        if path != "/" + FILE:
            raise fusepy.FuseOSError(errno.ENOENT)
        return {"st_mode": stat.S_IFREG | 0o600, "st_nlink": 1, "st_size": len(self._seen)}

    def read(self, _path: str, count: int, offset: int, _handle: int) -> bytes:
        return self._seen[offset:offset + count]

    def write(self, _path: str, data: bytes, offset: int, _handle: int) -> int:
        with self._turn:
            self._count("writes")
            self._seen[offset:offset + len(data)] = data
            self._cached.append((offset, data))
        return len(data)

    def fsync(self, _path: str, _only_data: int, _handle: int) -> int:
        with self._turn:
            self._count("flushes")
            if self._cut is None:
                self._keep(self._cached)
                self._cached.clear()
        return 0

    def cut(self, requests: int, fullness: int) -> Cut:
        """Takes the power before the last of that many requests that find so much in the cache is
        obeyed, or when the disk has nothing more to do."""
        with self._turn:
            self._left, self._fullness = requests, fullness
            self._turn.wait_for(lambda: self._cut is not None, LONGEST_WAIT)
            return self._cut or self._take_power()

    def power_on(self) -> None:
        with self._turn:
            for offset, data in self._cached:
                end = offset + len(data)
                self._seen[offset:end] = self._stable[offset:end]
            self._cached.clear()
            self._cut = None

    def _keep(self, writes: list[Write]) -> None:
        for offset, data in writes:
            self._stable[offset:offset + len(data)] = data

    def _count(self, request: str) -> None:
        self.requests[request] += 1
        if self._left > 0 and len(self._cached) >= self._fullness:
            self._left -= 1
            if self._left == 0:
                self._take_power()
                self._turn.notify()

    # The order matters: an update that is acknowledged meanwhile may be lost, one that is started
    # meanwhile may be there.
    def _take_power(self) -> Cut:
        acknowledged = tuple(self._board.acknowledged)
        size = BLOCK if self._chance.random() < 0.75 else SECTOR
        cached: list[Write] = []
        for block in (block for write in self._cached for block in pieces(write, BLOCK)):
            # The superblocks of ext4 and btrfs are longer than a sector, and are written in place
            # with one checksum: whoever tears them finds no file system, whatever stands on it.
            is_superblock = block[0] - block[0] % BLOCK == self._superblock
            cached += [block] if is_superblock else pieces(block, size)
        kept = surviving(cached, self._chance)
        self._keep(kept)
        self._left = 0
        self._cut = Cut(acknowledged, tuple(self._board.started), len(cached) - len(kept))
        return self._cut


class DiskProcess:
    """The disk in a process of its own, as the others have it."""

    def __init__(self, place: Path, disk: Disk):
        self.file = place / FILE
        context = multiprocessing.get_context("fork")
        self._orders, theirs = context.Pipe()
        self._process = context.Process(target=disk.serve, args=(place, theirs), daemon=True)
        self._process.start()
        theirs.close()
        while not self.file.exists():
            if not self._process.is_alive():
                raise OSError("the FUSE file system cannot be mounted")
            self._process.join(0.01)
        # What this process mounts from now on is in a namespace that the disk has no part in. Were
        # the disk the last in that, it would have to unmount, and for that to write to itself, when
        # it has already ended.
        new_mounts = 0x20000  # CLONE_NEWNS
        if ctypes.CDLL(None, use_errno=True).unshare(new_mounts) != 0:
            raise OSError(ctypes.get_errno(), "no namespace of mounts is to be had")

    def ask(self, function: Callable[..., Any], *arguments: int) -> Any:
        """What the function returns there, for the disk and the arguments."""
        self._orders.send((function, arguments))
        return self._orders.recv()

    def end(self) -> None:
        self._process.kill()
        self._process.join()
