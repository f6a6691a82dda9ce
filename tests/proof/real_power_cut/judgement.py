"""Whether what a power cut has left of the registries is what was promised."""
from __future__ import annotations

import re
import subprocess
from pathlib import Path

import zorreg

from registries import Fault, Series, leftovers

# What people find, and no update takes away: an interrupted update's new file, and a backup that
# nothing proves to be a commit's own.
FOR_PEOPLE = re.compile(r"\.cor|\.old\d*")


def judge(series: Series, acknowledged: int, started: int, tool: Path) -> tuple[int, set[str]]:
    """The number that the series goes on from, and what an update had left; or a Fault."""
    registry = series.registry(started)
    left = leftovers(registry)
    number = series.found(acknowledged, started)
    if registry.exists():
        done = subprocess.run([tool, "check", registry, "--type", series.kind],
                              capture_output=True, text=True)
        if done.returncode != 0:
            raise Fault("zorreg check", (done.stdout + done.stderr).strip())
    left |= update_next(series, number + 1)
    series.forget(number + 1)
    return number + 1, left


def update_next(series: Series, number: int) -> set[str]:
    """The next update works and leaves nothing behind but what people find, and tidy away."""
    try:
        series.update(number)
    except zorreg.Error as error:
        raise Fault("next update", str(error)) from error
    registry = series.registry(number)
    records = series.scan(registry)
    if not series.holds(records, series.state(number)[registry]):
        raise Fault("next update", f"{records[:3]}")
    left = leftovers(registry)
    for leftover in left:
        if not FOR_PEOPLE.fullmatch(leftover):
            raise Fault("left over", leftover)
        aside = registry.with_name(registry.name + leftover)
        is_old = leftover.startswith(".old")
        if is_old and not series.was_committed(registry, series.scan(aside), number):
            raise Fault("set aside", f"{leftover} was never committed: {series.scan(aside)[:3]}")
        aside.unlink()
    return left
