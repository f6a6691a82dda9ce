"""The registries on the file system: series of updates, of which each state is known beforehand."""
from __future__ import annotations

import contextlib
import functools
import shutil
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

import zorreg

Record = dict[str, str]
Values = dict[str, int]  # of the records of a registry, by their names
State = dict[Path, Values]  # of the registries of a series; the last is the one that changes

# The record of a name and a value, for each kind.
COUNT = {"Variable": "{name}", "Value": "{value}", "Comment": "counts"}
KINDS: dict[str, Record] = {
    "bin": COUNT, "var": COUNT,
    "services": {"Name": "{name}", "Port": "{port}", "Protocol": "tcp", "Comment": "{value}"},
    "global": {"Type": "variable", "Service": "count", "Variable": "{name}", "Value": "{value}"},
}


class Fault(Exception):
    """What a registry must not show: a kind, which is counted, and the particulars."""


def record(kind: str, name: str, value: int) -> Record:
    return {field: text.format(name=name, value=value, port=1 + value % 65535)
            for field, text in KINDS[kind].items()}


def leftovers(registry: Path) -> set[str]:
    """What stands beside it, without the registry's name: .lock, .bkp, .tmp, .cor, .old."""
    return {file.name.lstrip(".").removeprefix(registry.name)
            for file in registry.parent.glob(f"*{registry.name}.*")}


@dataclass(frozen=True)
class Series:
    """Updates with the numbers 1, 2, 3 ... from one state of registries of a kind to the next."""
    kind: str
    folder: Path
    state: Callable[[int], State]  # what is there, as far as it is kept, once update N is

    def registry(self, number: int) -> Path:
        """That which update `number` changes."""
        return list(self.state(number))[-1]

    def update(self, number: int) -> None:
        """Makes state `number` of the one before, or 0 of nothing: many changes in an update."""
        path = self.registry(number)
        before = self.state(number - 1).get(path, {}) if number > 0 else {}
        after = self.state(number)[path]
        changed = [name for name in after if after[name] != before.get(name)]
        gone = [name for name in before if name not in after]
        with zorreg.open(path, self.kind, lock_timeout=60) as registry:
            is_one = len(changed) + len(gone) == 1
            with contextlib.nullcontext() if is_one else registry.update():
                for name in changed:
                    change = registry.set if name in before else registry.add
                    change(record(self.kind, name, after[name]))
                for name in gone:
                    registry.delete(record(self.kind, name, before[name]))

    def forget(self, number: int) -> None:
        """Removes what is not kept once update `number` is acknowledged."""
        for registry in self.state(number - 1).keys() - self.state(number).keys():
            shutil.rmtree(registry.parent, ignore_errors=True)

    def found(self, acknowledged: int, started: int) -> int:
        """The number of the last update that is there, which is none but these."""
        numbers = range(started, acknowledged - 1, -1)
        registries = {registry for number in numbers for registry in self.state(number)}
        shown = {registry: self.scan(registry) for registry in registries}
        for number in numbers:
            expected: State = {self.registry(started): {}, **self.state(number)}
            if all(self.holds(shown[registry], expected[registry]) for registry in expected):
                return number
        is_older = all(self.was_committed(registry, records, acknowledged)
                       for registry, records in shown.items())
        particulars = "; ".join(
            f"{registry}: {records[:3]} ... {records[-2:]}, {len(records)} records"
            for registry, records in shown.items())
        raise Fault("lost" if is_older else "half",
                    f"acknowledged {acknowledged}, started {started}: {particulars}")

    def was_committed(self, registry: Path, records: list[Record], number: int) -> bool:
        """Whether the registry held that at update `number` or not long before it."""
        return any(self.holds(records, self.state(once).get(registry, {}))
                   for once in range(max(0, number - 20), number + 1))

    def holds(self, records: list[Record], values: Values) -> bool:
        expected = [record(self.kind, name, value) for name, value in values.items()]
        return sorted(records, key=str) == sorted(expected, key=str)

    def scan(self, registry: Path) -> list[Record]:
        try:
            with zorreg.open(registry, self.kind, lock_timeout=60) as opened:
                records = list(opened)
        except zorreg.Error as error:
            raise Fault("unreadable", str(error)) from error
        return [{field: text for field, text in found.items() if field != "CheckSum"}
                for found in records]


def many(folder: Path, number: int, ballast: int = 120, members: int = 4) -> State:
    """Changes, an add and a delete, from the first to the last record of a file of several blocks,
    all of them one update."""
    values = {"count": number}
    for i in range(ballast):
        values[f"ballast{i}"] = max(0, number - (number - i) % ballast)
    for member in range(max(1, number - members + 1), number + 1):
        values[f"member{member}"] = member
    values["twin"] = number
    return {folder / "many": values}


def single(folder: Path, number: int) -> State:
    """One change an update: an add, two changes, a delete, and so on."""
    turn, phase = divmod(number, 4)
    phases: list[Values] = [
        {"count": turn}, {"count": turn, "extra": turn}, {"count": turn + 1, "extra": turn},
        {"count": turn + 1, "extra": turn + 2}]
    return {folder / "single": phases[phase]}


def fresh(folder: Path, number: int, kept: int = 5) -> State:
    """Each update makes a registry, and its folder."""
    return {folder / f"fresh{made}" / "registry": {"count": made}
            for made in range(max(0, number - kept + 1), number + 1)}


def all_series(place: Path) -> list[Series]:
    states: list[Callable[[Path, int], State]] = [many, single, fresh]
    return [Series(kind, place / kind, functools.partial(state, place / kind))
            for kind in KINDS for state in states]
