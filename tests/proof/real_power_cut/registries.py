"""The registries on the file system: series of updates, of which each state is known beforehand."""
from __future__ import annotations

import shutil
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

import zorreg

Values = dict[str, int]  # of the records, by their names
Record = dict[str, str]


class Fault(Exception):
    """What a registry must not show: a kind, which is counted, and the particulars."""

    def __init__(self, kind: str, particulars: str):
        super().__init__(f"{kind}: {particulars}")
        self.kind = kind


def variable(name: str, value: int) -> Record:
    return {"Variable": name, "Value": str(value), "Comment": "counts"}


def service(name: str, value: int) -> Record:
    return {"Name": name, "Port": str(1 + value % 65535), "Protocol": "tcp", "Comment": str(value)}


def global_variable(name: str, value: int) -> Record:
    return {"Type": "variable", "Service": "count", "Variable": name, "Value": str(value)}


# How a record of a kind is made.
KINDS: dict[str, Callable[[str, int], Record]] = {
    "bin": variable, "var": variable, "services": service, "global": global_variable}


def fields(record: Record) -> list[tuple[str, str]]:
    return sorted(record.items())


def key_of(record: Record) -> Record:
    return {field: record[field] for field in ("Type", "Service", "Variable", "Name", "Protocol")
            if field in record}


class Registry:
    """One file of a kind, seen as names with values."""

    def __init__(self, path: Path, kind: str):
        self.path, self.kind = path, kind
        self._record = KINDS[kind]

    def open(self) -> zorreg.Registry:
        return zorreg.open(self.path, self.kind, lock_timeout=60)

    def put(self, opened: zorreg.Registry, name: str, value: int) -> None:
        opened.set(self._record(name, value))

    def add(self, opened: zorreg.Registry, name: str, value: int) -> None:
        opened.add(self._record(name, value))

    def delete(self, opened: zorreg.Registry, name: str) -> None:
        opened.delete(key_of(self._record(name, 0)))

    def holds(self, records: list[Record], values: Values) -> bool:
        expected = [self._record(name, value) for name, value in values.items()]
        return sorted(map(fields, records)) == sorted(map(fields, expected))

    def scan(self) -> list[Record]:
        try:
            with self.open() as opened:
                records = list(opened)
        except zorreg.Error as error:
            raise Fault("unreadable", str(error)) from error
        for record in records:
            record.pop("CheckSum", None)
        return records

    def leftovers(self) -> set[str]:
        """What stands beside it, without the registry's name: .lock, .bkp, .tmp, .cor, .old."""
        name = self.path.name
        if not self.path.parent.is_dir():
            return set()
        beside = [entry.name for entry in self.path.parent.iterdir()]
        return {found.lstrip(".").removeprefix(name) for found in beside
                if found.lstrip(".").startswith(name + ".")}

    def tidy(self) -> None:
        """What people do with that which they find."""
        for leftover in self.leftovers():
            (self.path.parent / (self.path.name + leftover)).unlink(missing_ok=True)


@dataclass(frozen=True)
class Series:
    """Updates with the numbers 1, 2, 3 ... of registries in a folder."""
    kind: str
    folder: Path

    def registry(self, number: int) -> Registry:
        """That which update `number` changes."""
        raise NotImplementedError

    def values(self, number: int) -> Values:
        """What that holds once update `number` is there."""
        raise NotImplementedError

    def update(self, number: int) -> None:
        raise NotImplementedError

    def found(self, acknowledged: int, started: int) -> int:
        """The number of the last update that is there, which is none but these."""
        registry = self.registry(started)
        records = registry.scan()
        for number in range(started, acknowledged - 1, -1):
            if registry.holds(records, self.values(number)):
                return number
        kind = "lost" if self.is_older(records, acknowledged) else "half"
        raise Fault(kind, f"acknowledged {acknowledged}, started {started}: {records[:3]} ... "
                          f"{records[-2:]}, {len(records)} records")

    def is_older(self, records: list[Record], number: int) -> bool:
        """Whether that is what was once committed, not long before update `number`."""
        once = range(max(0, number - 20), number + 1)
        return any(self.registry(number).holds(records, self.values(earlier)) for earlier in once)

    def begin(self) -> None:
        """Makes the state 0, which the numbers start from."""

    def forget(self, number: int) -> None:
        """Removes what is no longer needed once update `number` is acknowledged."""


class Many(Series):
    """Changes, an add and a delete, from the first to the last record of a file of several blocks,
    all of them one update."""
    BALLAST, MEMBERS = 120, 4

    def registry(self, number: int) -> Registry:
        return Registry(self.folder / "many", self.kind)

    def values(self, number: int) -> Values:
        values = {"count": number}
        for i in range(self.BALLAST):
            values[f"ballast{i}"] = max(0, number - (number - i) % self.BALLAST)
        for member in range(max(1, number - self.MEMBERS + 1), number + 1):
            values[f"member{member}"] = member
        values["twin"] = number
        return values

    def begin(self) -> None:
        registry = self.registry(0)
        with registry.open() as opened, opened.update():
            for name, value in self.values(0).items():
                registry.add(opened, name, value)

    def update(self, number: int) -> None:
        registry = self.registry(number)
        with registry.open() as opened, opened.update():
            registry.put(opened, "count", number)
            registry.put(opened, f"ballast{number % self.BALLAST}", number)
            registry.add(opened, f"member{number}", number)
            if number > self.MEMBERS:
                registry.delete(opened, f"member{number - self.MEMBERS}")
            registry.put(opened, "twin", number)


class Single(Series):
    """One change an update: an add, two changes, a delete, and so on."""

    def registry(self, number: int) -> Registry:
        return Registry(self.folder / "single", self.kind)

    def values(self, number: int) -> Values:
        turn, phase = divmod(number, 4)
        return [{"count": turn}, {"count": turn, "extra": turn}, {"count": turn + 1, "extra": turn},
                {"count": turn + 1, "extra": turn + 2}][phase]

    def begin(self) -> None:
        with self.registry(0).open() as opened:
            self.registry(0).add(opened, "count", 0)

    def update(self, number: int) -> None:
        turn, phase = divmod(number, 4)
        registry = self.registry(number)
        with registry.open() as opened:
            if phase == 0:
                registry.delete(opened, "extra")
            elif phase == 1:
                registry.add(opened, "extra", turn)
            elif phase == 2:
                registry.put(opened, "count", turn + 1)
            else:
                registry.put(opened, "extra", turn + 2)


class Fresh(Series):
    """Each update makes a registry, and its folder."""
    KEPT = 4  # of which the newest are looked at

    def registry(self, number: int) -> Registry:
        return Registry(self.folder / f"fresh{number}" / "registry", self.kind)

    def values(self, number: int) -> Values:
        return {"count": number}

    def found(self, acknowledged: int, started: int) -> int:
        for number in range(max(1, acknowledged - self.KEPT + 1), acknowledged + 1):
            records = self.registry(number).scan()
            if not self.registry(number).holds(records, self.values(number)):
                raise Fault("half" if records else "lost", f"acknowledged {acknowledged}, started "
                            f"{started}: in that of update {number} {records}")
        records = self.registry(started).scan()
        if not records:
            return acknowledged
        if not self.registry(started).holds(records, self.values(started)):
            raise Fault("half", f"acknowledged {acknowledged}, started {started}: {records}")
        return started

    def is_older(self, records: list[Record], number: int) -> bool:
        return not records

    def update(self, number: int) -> None:
        registry = self.registry(number)
        with registry.open() as opened:
            registry.add(opened, "count", number)

    def forget(self, number: int) -> None:
        shutil.rmtree(self.folder / f"fresh{number - self.KEPT}", ignore_errors=True)


def all_series(place: Path) -> list[Series]:
    return [series(kind, place / kind) for kind in KINDS for series in (Many, Single, Fresh)]
