"""What the workers have started and what was acknowledged to them, in memory that all share."""
from __future__ import annotations

import mmap

Numbers = tuple[int, ...]  # one for each series of updates


class Board:
    def __init__(self, series: int):
        self._series = series
        self._cells = memoryview(mmap.mmap(-1, mmap.PAGESIZE)).cast("q")

    def start(self, series: int, number: int) -> None:
        self._cells[series] = number

    def acknowledge(self, series: int, number: int) -> None:
        self._cells[self._series + series] = number

    def begin_at(self, series: int, number: int) -> None:
        self.start(series, number)
        self.acknowledge(series, number)

    def started(self) -> Numbers:
        return tuple(self._cells[:self._series])

    def acknowledged(self) -> Numbers:
        return tuple(self._cells[self._series:2 * self._series])
