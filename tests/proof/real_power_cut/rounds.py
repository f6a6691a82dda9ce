"""The cuts themselves, one file system after the other."""
from __future__ import annotations

import ctypes
import multiprocessing
import os
import random
import subprocess
import time
from collections import Counter
from multiprocessing.process import BaseProcess
from operator import attrgetter
from pathlib import Path

from disk import Board, Cut, Disk, DiskProcess
from file_systems import FILE_SYSTEMS, FileSystem, execute
from judgement import judge
from registries import KINDS, Fault, Series, all_series

SKIPPED = 77  # the exit status
SHOWN_FAULTS = 10  # of each file system, with all particulars
LEFTOVERS = [".lock", ".bkp", ".tmp", ".cor", ".old"]
CACHED = [0, 1, 1, 2, 3, 8, 20]  # writes that a cut finds in the disk's cache, or more


class Round:
    """The cuts of one file system."""

    def __init__(self, system: FileSystem, place: Path, build: Path, seed: int):
        self.counts: Counter[str] = Counter()
        self.faults: Counter[str] = Counter()
        self._system, self._place = system, place / "volume"
        self._tool = build / "zorreg"
        self._chance = random.Random(f"{seed} {system.name}")
        (place / "disk").mkdir(parents=True)
        self._place.mkdir()
        self._series = all_series(self._place)
        self._board = Board(len(self._series))
        disk = Disk(system.size, system.superblock, self._board, f"{seed} {system.name} disk")
        self._disk = DiskProcess(place / "disk", disk)
        self._workers: list[BaseProcess] = []

    def run(self, cuts: int) -> None:
        self._make()
        for _ in range(cuts):
            self._work_until_cut()
        execute("umount", self._place)
        self.counts += self._disk.ask(attrgetter("requests"))

    def end(self) -> None:
        """Takes everything down, in whatever state it is."""
        self._kill_workers()
        subprocess.run(["umount", "-q", self._place, self._disk.file.parent], check=False)
        self._disk.end()

    def __str__(self) -> str:
        counts = self.counts
        failures = ", ".join(f"{kind} {count}" for kind, count in self.faults.items()) or "none"
        left = ", ".join(f"{name} {counts[name]}" for name in LEFTOVERS)
        return (f"{self._system.name}: {counts['cuts']} cuts while {counts['updates']} updates "
                f"were acknowledged; {counts['dropping']} dropped writes, {counts['dropped']} "
                f"blocks or sectors; {counts['recovering']} left something over ({left}); "
                f"{counts['writes']} writes and {counts['flushes']} flushes; failures: {failures}")

    def _make(self) -> None:
        self._system.make(self._disk.file)
        self._system.mount(self._disk.file, self._place)
        for index, series in enumerate(self._series):
            series.update(0)
            self._board.started[index] = self._board.acknowledged[index] = 0

    def _work_until_cut(self) -> None:
        begun = sum(self._board.acknowledged)
        self._start_workers()
        time.sleep(self._chance.uniform(0.0, 0.2))
        cached = self._chance.choice(CACHED)
        requests = self._chance.randint(1, 4 if cached > 1 else 40)
        cut: Cut = self._disk.ask(Disk.cut, requests, cached)
        self._kill_workers()
        execute("umount", self._place)
        self._disk.ask(Disk.power_on)
        self.counts.update(cuts=1, dropping=cut.dropped > 0, dropped=cut.dropped,
                           updates=sum(cut.acknowledged) - begun)
        try:
            self._system.mount(self._disk.file, self._place)
        except OSError as error:
            self._report(Fault("not mounted", str(error)))
            self._make()
        else:
            self._judge(cut)

    def _judge(self, cut: Cut) -> None:
        leftovers: set[str] = set()
        failures = self.faults.total()
        for index, series in enumerate(self._series):
            try:
                last, left = judge(series, cut.acknowledged[index], cut.started[index], self._tool)
                self._board.started[index] = self._board.acknowledged[index] = last
                leftovers |= left
            except Fault as fault:
                self._report(fault, series.folder)
        self.counts.update(leftover.rstrip("0123456789") for leftover in leftovers)
        self.counts["recovering"] += bool(leftovers - {".lock"})
        if self.faults.total() > failures:
            execute("umount", self._place)
            self._make()

    def _report(self, fault: Fault, folder: Path | None = None) -> None:
        kind, particulars = fault.args
        self.faults[kind] += 1
        if self.faults.total() > SHOWN_FAULTS:
            return
        lines = [f"FAILED: cut {self.counts['cuts']} of {self._system.name}: {kind}: {particulars}"]
        for file in sorted(folder.rglob("*")) if folder else ():
            content = file.read_bytes() if file.is_file() else b""
            lines.append(f"    {file.relative_to(self._place)}: inode {file.lstat().st_ino}, "
                         f"{len(content)} bytes {content[:64]!r}")
        print("\n".join(lines), flush=True)

    def _start_workers(self) -> None:
        context = multiprocessing.get_context("fork")
        for kind in KINDS:
            arguments = self._series, kind, self._board, self._chance.random()
            self._workers.append(context.Process(target=work, args=arguments))
        if self._chance.random() < 0.5:
            self._workers.append(context.Process(target=sync_often, args=(self._place,)))
        for worker in self._workers:
            worker.start()

    def _kill_workers(self) -> None:
        for worker in self._workers:
            if worker.exitcode is not None:
                self._report(Fault("update", "a worker has ended"))
            worker.kill()
            worker.join()
        self._workers.clear()


def work(all_of_them: list[Series], kind: str, board: Board, seed: float) -> None:
    """Updates the registries of one kind, until it is killed."""
    chance = random.Random(seed)
    own = [index for index, series in enumerate(all_of_them) if series.kind == kind]
    while True:
        index = chance.choice(own)
        number = board.acknowledged[index] + 1
        board.started[index] = number
        all_of_them[index].update(number)
        board.acknowledged[index] = number
        all_of_them[index].forget(number)


def sync_often(place: Path) -> None:
    """Writes back what the file system has in memory, as the kernel does when it has it for long:
    also in the midst of updates, and in another order than theirs."""
    library = ctypes.CDLL(None)
    folder = os.open(place, os.O_RDONLY)
    while True:
        time.sleep(random.uniform(0, 0.03))
        library.syncfs(folder)


def all_rounds(cuts: int, seed: int, only: str | None, build: Path, place: Path) -> int:
    """The exit status."""
    execute("mount", "-t", "tmpfs", "tmpfs", place)
    chosen = [system for system in FILE_SYSTEMS if only in (None, system.name)]
    systems = [system for system in chosen if system.is_usable()]
    failures = 0
    for number, system in enumerate(systems):
        each = Round(system, place / system.name, build, seed)
        try:
            each.run(cuts // len(systems) + (number < cuts % len(systems)))
        finally:
            each.end()
        print(each, flush=True)
        failures += each.faults.total()
    return int(failures > 0) if systems else SKIPPED
