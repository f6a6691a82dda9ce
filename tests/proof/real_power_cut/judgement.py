"""Whether what a power cut has left of the registries is what was promised."""
from __future__ import annotations

import re
import subprocess
from pathlib import Path

import zorreg

from registries import Fault, Registry, Series

# What people find, and no update takes away: an interrupted update's new file, and a backup that
# nothing proves to be a commit's own.
FOR_PEOPLE = re.compile(r"\.cor|\.old\d*")


def check_by_tool(tool: Path, registry: Registry) -> None:
    if not registry.path.exists():
        return
    done = subprocess.run([tool, "check", registry.path, "--type", registry.kind],
                          capture_output=True, text=True)
    if done.returncode != 0:
        raise Fault("zorreg check", (done.stdout + done.stderr).strip())


def update_next(series: Series, number: int) -> None:
    """The next update works and leaves nothing behind but what people find."""
    try:
        series.update(number)
    except zorreg.Error as error:
        raise Fault("next update", str(error)) from error
    registry = series.registry(number)
    if not registry.holds(registry.scan(), series.values(number)):
        raise Fault("next update", f"{registry.scan()[:3]}")
    for leftover in registry.leftovers():
        if not FOR_PEOPLE.fullmatch(leftover):
            raise Fault("left over", leftover)
        aside = Registry(registry.path.with_name(registry.path.name + leftover), registry.kind)
        if leftover.startswith(".old") and not series.is_older(aside.scan(), number):
            raise Fault("set aside", f"{leftover} was never committed: {aside.scan()[:3]}")


def description(folder: Path) -> str:
    """The files of a folder with their first bytes."""
    lines = []
    for file in sorted(folder.rglob("*")):
        status = file.lstat()
        shown = file.read_bytes()[:64] if file.is_file() else b""
        lines.append(f"    {file.relative_to(folder)}: inode {status.st_ino}, {status.st_size} "
                     f"bytes {shown!r}")
    return "\n".join(lines)


def judge(series: Series, acknowledged: int, started: int, tool: Path) -> tuple[int, set[str]]:
    """The number that the series goes on from, and what an update had left; or a Fault."""
    registry = series.registry(started)
    leftovers = registry.leftovers()
    number = series.found(acknowledged, started)
    check_by_tool(tool, registry)
    update_next(series, number + 1)
    aside = series.registry(number + 1).leftovers()
    series.registry(number + 1).tidy()
    series.forget(number + 1)
    return number + 1, leftovers | aside
