"""The cuts themselves, one file system after the other."""
from __future__ import annotations

import ctypes
import multiprocessing
import os
import random
import shutil
import subprocess
import time
from collections import Counter
from multiprocessing.process import BaseProcess
from pathlib import Path

from board import Board
from disk import Cut, Disk, DiskProcess, When
from judgement import description, judge
from registries import KINDS, Fault, Series, all_series
from volume import FILE_SYSTEMS, FileSystem, Volume, leave_namespace

SKIPPED = 77  # the exit status
SHOWN_FAULTS = 10  # of each file system, with all particulars
CACHED = [0, 1, 1, 2, 3, 8, 20]  # writes that a cut finds in the disk's cache, or more


class Round:
    """The cuts of one file system."""

    def __init__(self, system: FileSystem, place: Path, build: Path, seed: int):
        self.counts: Counter[str] = Counter()
        self.faults: Counter[str] = Counter()
        self._tool = build / "zorreg"
        self._chance = random.Random(f"{seed} {system.name}")
        (place / "disk").mkdir(parents=True)
        (place / "volume").mkdir()
        self._series = all_series(place / "volume")
        self._board = Board(len(self._series))
        disk = Disk(system.size, system.superblock, self._board, f"{seed} {system.name} disk")
        self._disk = DiskProcess(place / "disk", disk)
        leave_namespace()
        self._volume = Volume(system, self._disk.file, place / "volume")
        self._workers: list[BaseProcess] = []

    def run(self, cuts: int) -> None:
        self._make()
        for _ in range(cuts):
            self._work_until_cut()
        self._volume.unmount()
        requests = self._disk.requests()
        self.counts.update(writes=requests.writes, flushes=requests.flushes)

    def end(self) -> None:
        """Takes everything down, in whatever state it is."""
        self._kill_workers()
        subprocess.run(["umount", "-q", self._volume.place], check=False)
        subprocess.run(["umount", "-q", self._disk.file.parent], check=False)
        self._disk.end()

    def _make(self) -> None:
        self._volume.make()
        self._volume.mount()
        for index, series in enumerate(self._series):
            self._begin(index, series)

    def _begin(self, index: int, series: Series) -> None:
        series.begin()
        self._board.begin_at(index, 0)

    def _work_until_cut(self) -> None:
        begun = self._board.acknowledged()
        self._start_workers()
        time.sleep(self._chance.uniform(0.0, 0.2))
        cached = self._chance.choice(CACHED)
        cut = self._disk.cut(When(self._chance.randint(1, 4 if cached > 1 else 40), cached))
        self._kill_workers()
        self._volume.unmount()
        self._disk.power_on()
        self.counts["cuts"] += 1
        self.counts["dropping"] += cut.dropped > 0
        self.counts["dropped"] += cut.dropped
        self.counts["updates"] += sum(cut.acknowledged) - sum(begun)
        try:
            self._volume.mount()
        except OSError as error:
            self._report(Fault("not mounted", str(error)), "")
            self._make()
            return
        self._judge(cut)

    def _judge(self, cut: Cut) -> None:
        leftovers: set[str] = set()
        anew: set[Path] = set()
        for index, series in enumerate(self._series):
            if series.folder in anew:
                continue
            acknowledged, started = cut.acknowledged[index], cut.started[index]
            try:
                number, left = judge(series, acknowledged, started, self._tool)
                self._board.begin_at(index, number)
                leftovers |= left
            except Fault as fault:
                self._report(fault, f"{series}\n{description(series.folder)}")
                self._begin_anew(series.folder)
                anew.add(series.folder)
        for leftover in leftovers:
            self.counts[leftover.rstrip("0123456789")] += 1
        self.counts["recovering"] += bool(leftovers - {".lock"})

    def _begin_anew(self, folder: Path) -> None:
        shutil.rmtree(folder)
        for index, series in enumerate(self._series):
            if series.folder == folder:
                self._begin(index, series)

    def _report(self, fault: Fault, particulars: str) -> None:
        self.faults[fault.kind] += 1
        if self.faults.total() <= SHOWN_FAULTS:
            print(f"FAILED: cut {self.counts['cuts']} of {self._volume.kind.name}: {fault}\n"
                  f"{particulars}", flush=True)

    def _start_workers(self) -> None:
        context = multiprocessing.get_context("fork")
        for kind in KINDS:
            own = [(index, series) for index, series in enumerate(self._series)
                   if series.kind == kind]
            worker = context.Process(target=work, args=(own, self._board, self._chance.random()))
            worker.start()
            self._workers.append(worker)
        if self._chance.random() < 0.5:
            syncer = context.Process(target=sync_often, args=(self._volume.place,))
            syncer.start()
            self._workers.append(syncer)

    def _kill_workers(self) -> None:
        for worker in self._workers:
            if worker.exitcode is not None:
                self._report(Fault("update", "a worker has ended"), "")
            worker.kill()
        for worker in self._workers:
            worker.join()
        self._workers.clear()


def work(own: list[tuple[int, Series]], board: Board, seed: float) -> None:
    """Updates the registries of one kind, until it is killed."""
    chance = random.Random(seed)
    while True:
        index, series = chance.choice(own)
        number = board.acknowledged()[index] + 1
        board.start(index, number)
        series.update(number)
        board.acknowledge(index, number)
        series.forget(number)


def sync_often(place: Path) -> None:
    """Writes back what the file system has in memory, as the kernel does when it has it for long:
    also in the midst of updates, and in another order than theirs."""
    library = ctypes.CDLL(None)
    folder = os.open(place, os.O_RDONLY)
    while True:
        time.sleep(random.uniform(0, 0.03))
        library.syncfs(folder)


def shown(name: str, counts: Counter[str], faults: Counter[str]) -> str:
    failures = ", ".join(f"{kind} {count}" for kind, count in faults.items()) or "none"
    left = ", ".join(f"{name} {counts[name]}" for name in (".lock", ".bkp", ".tmp", ".cor", ".old"))
    return (f"{name}: {counts['cuts']} cuts while {counts['updates']} updates were acknowledged; "
            f"{counts['dropping']} dropped writes, {counts['dropped']} blocks or sectors; "
            f"{counts['recovering']} left something over ({left}); {counts['writes']} writes and "
            f"{counts['flushes']} flushes; failures: {failures}")


def usable(only: str | None) -> list[FileSystem]:
    systems = []
    for system in FILE_SYSTEMS:
        if only not in (None, system.name):
            continue
        reason = system.missing()
        if reason:
            print(f"{system.name}: skipped: {reason}", flush=True)
        else:
            systems.append(system)
    return systems


def all_rounds(cuts: int, seed: int, only: str | None, build: Path, place: Path) -> int:
    """The exit status."""
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", place], check=True)
    systems = usable(only)
    failures = 0
    for number, system in enumerate(systems):
        each = Round(system, place / system.name, build, seed)
        try:
            each.run(cuts // len(systems) + (number < cuts % len(systems)))
        finally:
            each.end()
        print(shown(system.name, each.counts, each.faults), flush=True)
        failures += each.faults.total()
    if not systems:
        return SKIPPED
    return 1 if failures else 0
