"""Turns what scripts/bench measured into tables and plots.

report.py RESULTS PAGE --disk DIR   rewrites PAGE behind its marker, and the plots beside it
report.py RESULTS --ratios          prints the ratios to the floor
RESULTS holds results.json, and for a page floor-check.txt, peaks.txt and contention.txt too.
"""
import os
import platform
import subprocess
import sys

import goals
from results import (CACHED, FLAVOURS, KEPT, NAMES, OPERATIONS, PEERS, READS, SIZES, UPDATES,
                     load_medians, operations_of, peers_of)

MARKER = "<!-- scripts/bench writes everything below this line -->"


def count(number):
    return f"{number:,}"


def micros(value):
    return ("" if value is None else f"{value:.2f}" if value < 10 else f"{value:.1f}"
            if value < 100 else f"{value:,.0f}")


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "| --- " * len(header) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def ratios(medians):
    """The library's times in the floor's, in memory, and the targets."""
    rows, met, asked = [], 0, 0
    for operation, flavours in goals.TARGETS.items():
        for flavour, targets in flavours.items():
            cells = []
            for size, target in zip(goals.TARGET_SIZES, targets):
                own = medians[flavour, operation, size, "memory"]
                floor = medians[flavour + "-floor", operation, size, "memory"]
                cell = f"{own / floor:.2f}"
                if target is not None:
                    asked += 1
                    met += own / floor <= target
                    cell += f", target {target} "
                    cell += "met" if own / floor <= target else "**missed**"
                cells.append(f"{cell} ({micros(own)} / {micros(floor)} µs)")
            rows.append([OPERATIONS[operation], FLAVOURS[flavour]] + cells)
    header = ["operation", "flavour"] + [count(size) + " records" for size in goals.TARGET_SIZES]
    return table(header, rows) + f"\n{met} of {asked} targets are met.\n"


def reads(medians, subjects):
    """A table for each operation that reads, of those subjects that have it."""
    text = ""
    for operation in READS:
        rows = [[name] + [micros(medians.get((subject, operation, size, "disk")))
                          for size in SIZES]
                for subject, name in subjects.items()
                if (subject, operation, SIZES[0], "disk") in medians]
        text += f"\n**{OPERATIONS[operation]}**, µs\n\n" + table([""] + list(map(count, SIZES)), rows)
    return text


def advantage(medians, kept):
    """How many times as long as the library's the fastest other way takes."""
    rows = []
    for flavour, name in FLAVOURS.items():
        own = flavour + "-cached" if kept else flavour
        for operation in operations_of(flavour):
            cells = []
            for size in SIZES:
                found = {peer: medians[peer, operation, size, "disk"]
                         for peer in peers_of(flavour, kept)
                         if (peer, operation, size, "disk") in medians}
                peer = min(found, key=found.get)
                ratio = found[peer] / medians[own, operation, size, "disk"]
                cell = f"{ratio:.2f}, {NAMES[peer].removesuffix(', kept open')}"
                cells.append(f"**{cell}**" if ratio < 1 else cell)
            rows.append([name, OPERATIONS[operation]] + cells)
    return table(["", "operation"] + list(map(count, SIZES)), rows)


def updates(medians, place):
    sizes = (10, 1000, 10000)
    rows = []
    for subject, name in {**FLAVOURS, **PEERS}.items():
        cells = [medians.get((subject, operation, size, place))
                 for operation in UPDATES for size in sizes]
        if any(cells):
            rows.append([name] + [micros(cell) for cell in cells])
    header = [f"{operation}, {count(size)}" for operation in UPDATES for size in sizes]
    return table([""] + header, rows)


def many(medians):
    """Many changes with one commit, on disk, beside one change and beside SQLite's transaction."""
    rows = []
    for subject, name in {**FLAVOURS, **PEERS}.items():
        changes = [medians.get((subject, op, 1000, "disk")) for op in ("Change", "ChangeMany")]
        if None in changes:
            continue
        imports = [medians.get((subject, "Import", size, "disk")) for size in (1000, 10000)]
        sqlite = [medians["sqlite", "Import", size, "disk"] for size in (1000, 10000)]
        cells = ["" if own is None else f"{micros(own)}, {own / peer:.2f}"
                 for own, peer in zip(imports, sqlite)]
        rows.append([name, *map(micros, changes), f"{changes[1] / changes[0]:.1f}", *cells])
    return table(["", "one change, µs", "1,000 changes, µs", "times one change",
                  "1,000 imported, µs, times SQLite", "10,000 imported, µs, times SQLite"], rows)


def contention(directory):
    names = {"binary": "binary variables", "sqlite-kept": "SQLite, rollback journal",
             "sqlite-wal": "SQLite, write-ahead log", "tdb-kept": "tdb", "lmdb-kept": "LMDB"}
    rows = []
    with open(os.path.join(directory, "contention.txt")) as file:
        for subject, writers, rate, *times, fairness, failed in map(str.split, file):
            rows.append([names[subject], writers, f"{float(rate):,.0f}",
                         *(f"{float(each) / 1000:,.1f}" for each in times),
                         f"{float(fairness):.2f}", failed])
    return table(["", "writers", "updates a second", "median, ms", "99 of 100 within, ms",
                  "longest, ms", "fairness", "failed"], rows)


def memory(directory):
    with open(os.path.join(directory, "peaks.txt")) as file:
        peaks = {tuple(name.split("/")): int(size) for name, size in map(str.split, file)}
    operations, sizes = ("GetLast", "Scan", "Change"), ("1000", "10000", "100000")
    rows = []
    for subject, name in NAMES.items():
        cells = [peaks.get((subject, operation, size)) for operation in operations
                 for size in sizes]
        if any(cells):
            rows.append([name] + ["" if cell is None else f"{cell / 1024:,.1f}" for cell in cells])
    header = [f"{operation}, {count(int(size))}" for operation in ("Get", "Scan", "Change")
              for size in sizes]
    return table([""] + header, rows)


def environment(disk):
    def output(*command):
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()

    with open("/proc/cpuinfo") as file:
        processor = next(line.split(":")[1].strip() for line in file if "model name" in line)
    kernel = ".".join(platform.release().split(".")[:2])
    versions = [f"{package} {output('dpkg-query', '-W', '-f', '${Version}', package)}" for package
                in ("libsqlite3-0", "libtdb1", "liblmdb0", "libc6", "libinih1", "libglib2.0-0",
                    "libaugeas0")]
    return (f"{os.cpu_count()} processors {processor}, Linux {kernel}, disk: "
            f"{output('findmnt', '-n', '-o', 'FSTYPE', '-T', disk)}, "
            f"{output('c++', '--version').splitlines()[0]}; "
            + ", ".join(versions) + ".")


def floor_check(directory):
    with open(os.path.join(directory, "floor-check.txt")) as file:
        differing = file.read().split()
    if not differing:
        return ("The calls of floor and library were compared one by one before this run and are "
                "the same.")
    return "**The calls of floor and library differ in: " + ", ".join(differing) + ".**"


def page(medians, directory, path, disk):
    plots = os.path.splitext(path)[0]
    os.makedirs(plots, exist_ok=True)
    for old in os.listdir(plots):
        if old.endswith(".svg"):
            os.remove(os.path.join(plots, old))
    import plots as drawing  # --ratios works without the plotting library
    drawing.draw_all(medians, plots)
    base = os.path.basename(plots)
    fastest = ("How many times as long as the library's the fastest other way takes; bold where it "
               "is faster:")
    measured = {subject for subject, *_ in medians}
    parts = [
        MARKER, "## One run", environment(disk),
        "### Goals", goals.reached(medians),
        "### Reads, opened anew",
        "" if "c-library" in measured else
        "The C library was not measured: only root can mount a file of its own for it.",
        f"![Reads, opened anew]({base}/cold.svg)", fastest, advantage(medians, kept=False),
        reads(medians, {**FLAVOURS, **PEERS}),
        "### Reads, kept open",
        f"![Reads, kept open]({base}/kept.svg)", fastest, advantage(medians, kept=True),
        reads(medians, {**CACHED, **KEPT}),
        "### Updates", f"![Updates]({base}/updates.svg)",
        "**On disk**, µs, at 10, 1,000 and 10,000 records", updates(medians, "disk"),
        "**In memory**, µs, at 10, 1,000 and 10,000 records", updates(medians, "memory"),
        "### Many changes, one commit, on disk",
        "Changes of 1,000 among 1,000 records; 1,000 and 10,000 new records added to as many. "
        "Each is one update, transaction or file written.", many(medians),
        "### Several writers, on disk",
        "Each writer changes a record of its own among 1,000, again and again for three seconds. "
        "Fairness is 1 when all got the same number of updates done, and one part in as many as "
        "there are writers when one got them all. The times are those of updates that were done: a "
        "writer that waits to the end has one, its longest.", contention(directory),
        "### Beside the floor, in memory", floor_check(directory), ratios(medians),
        f"![times the floor]({base}/floor.svg)",
        "### Heap memory of one operation, KiB", memory(directory),
    ]
    with open(path) as file:
        written = file.read().split(MARKER)[0]
    with open(path, "w") as file:
        file.write("\n\n".join(part.strip("\n") for part in [written] + parts if part) + "\n")


def main(arguments):
    medians = load_medians(arguments[0])
    if arguments[1] == "--ratios":
        print(ratios(medians))
    else:
        page(medians, arguments[0], arguments[1], arguments[3])


main(sys.argv[1:])
