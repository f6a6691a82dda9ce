"""Turns what scripts/bench measured into tables and plots.

report.py RESULTS PAGE --disk DIR   rewrites PAGE behind its marker, and the plots beside it
report.py RESULTS --ratios          prints the ratios to the floor
RESULTS holds results.json, and for a page floor-check.txt and peaks.txt too.
"""
import json
import os
import platform
import subprocess
import sys

MARKER = "<!-- scripts/bench writes everything below this line -->"
FLAVOURS = {"binary": "binary variables", "global": "global registry",
            "profile": "profile variables", "services": "services"}
PEERS = {"sqlite": "SQLite", "sqlite-off": "SQLite, synchronous off", "tdb": "tdb",
         "tdb-nosync": "tdb, no sync", "key-file": "GLib key file", "augeas": "Augeas"}
OPERATIONS = {"GetLast": "Get of the last record", "GetMiss": "Get of a record that is not there",
              "Scan": "Scan of all records", "Add": "Add", "Change": "Change", "Delete": "Delete"}
UPDATES = ("Add", "Change", "Delete")
SIZES = (10, 100, 1000, 10000, 100000)
PLACES = {"disk": "On disk", "memory": "In memory"}

# The ratio to the floor that each flavour must not exceed, at 10, 1,000 and 10,000 records.
TARGET_SIZES = (10, 1000, 10000)
TEXT_UPDATE = (1.5, 3.2, 5.2)
TARGETS = {
    "Get": {"binary": (1.2, 2.5, 2.7), "global": (1.4, 3.3, 3.4),
            "profile": (1.3, 5.0, 6.0), "services": (1.3, 5.0, 6.0)},
    "Scan": {"binary": (1.2, 4.5, 10), "global": (1.4, 7.0, 8.5),
             "profile": (1.3, 8.5, 21), "services": (1.3, 8.5, 21)},
    "Update": {"binary": (1.5, 1.9, 2.3), "global": (1.6, 2.6, 2.9),
               "profile": TEXT_UPDATE, "services": TEXT_UPDATE},
}
TARGET_OF = {"GetLast": "Get", "Scan": "Scan", "Add": "Update", "Change": "Update",
             "Delete": "Update"}


def load_medians(directory):
    """Microseconds by (subject, operation, size, place)."""
    with open(os.path.join(directory, "results.json")) as file:
        found = json.load(file)
    medians = {}
    for row in found["benchmarks"]:
        if row.get("error_occurred"):
            sys.exit(f"{row['name']}: {row['error_message']}")
        if row.get("aggregate_name") == "median":
            subject, operation, size, place = row["run_name"].split("/")[:4]
            medians[subject, operation, int(size), place] = row["median_us"]
    return medians


def count(number):
    return f"{number:,}"


def micros(value):
    return "" if value is None else f"{value:.1f}" if value < 100 else f"{value:,.0f}"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "| --- " * len(header) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def ratio_rows(medians):
    """Rows of the table of ratios, and how many targets were met."""
    rows, met, asked = [], 0, 0
    for operation, group in TARGET_OF.items():
        for flavour, name in FLAVOURS.items():
            cells = []
            for size, target in zip(TARGET_SIZES, TARGETS[group][flavour]):
                own = medians[flavour, operation, size, "memory"]
                floor = medians[flavour + "-floor", operation, size, "memory"]
                asked += 1
                met += own / floor <= target
                verdict = "met" if own / floor <= target else "**missed**"
                cells.append(f"{own / floor:.2f}, target {target} {verdict} "
                             f"({micros(own)} / {micros(floor)} µs)")
            rows.append([OPERATIONS[operation], name] + cells)
    return rows, f"{met} of {asked} targets are met."


def ratios(medians):
    rows, verdict = ratio_rows(medians)
    header = ["operation", "flavour"] + [count(size) + " records" for size in TARGET_SIZES]
    return table(header, rows) + "\n" + verdict + "\n"


def times(medians, place):
    text = ""
    for operation, title in OPERATIONS.items():
        sizes = [size for size in SIZES if ("binary", operation, size, place) in medians]
        rows = []
        floors = {flavour + "-floor": "floor of " + name for flavour, name in FLAVOURS.items()}
        for subject, name in {**FLAVOURS, **floors, **PEERS}.items():
            cells = [medians.get((subject, operation, size, place)) for size in sizes]
            if any(cells):
                rows.append([name] + [micros(cell) for cell in cells])
        text += f"\n**{title}**, µs\n\n" + table([""] + [count(size) for size in sizes], rows)
    return text


def fastest(medians, flavour, operation, size, place):
    """The fastest peer as safe as the library, and by how much it is slower than `flavour`."""
    peers = ["sqlite", "tdb"] + {"profile": ["key-file"], "services": ["augeas"]}.get(flavour, [])
    found = {peer: medians[peer, operation, size, place] for peer in peers
             if (peer, operation, size, place) in medians}
    peer = min(found, key=found.get)
    return peer, found[peer] / medians[flavour, operation, size, place]


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


def verdicts(medians):
    promises = {
        "Every Get up to 1,000 records (global registry: 100) is faster than the fastest of them":
            [(f, o, s, p) for f in FLAVOURS for o in ("GetLast", "GetMiss") for s in SIZES
             for p in PLACES if s <= (100 if f == "global" else 1000)],
        "Every scan is faster than the fastest of them":
            [(f, "Scan", s, p) for f in FLAVOURS for s in SIZES for p in PLACES],
    }
    text = ""
    for promise, cases in promises.items():
        misses = []
        for case in cases:
            peer, factor = fastest(medians, *case)
            if factor <= 1:
                misses.append((case, peer, 1 / factor))
        text += verdict(promise, len(cases), misses)
    cases = [(f, o, s) for f in FLAVOURS for o in UPDATES for s in SIZES if s <= 1000]
    misses = []
    for case in cases:
        factor = medians[(*case, "disk")] / medians[("sqlite", *case[1:], "disk")]
        if factor >= 1:
            misses.append(((*case, "disk"), "sqlite", factor))
    return text + verdict("Every update on disk up to 1,000 records is faster than SQLite, full "
                          "synchronous", len(cases), misses)


def verdict(promise, asked, misses):
    text = f"- {promise}: " + ("met" if not misses else "**missed**")
    text += f" ({asked - len(misses)} of {asked} cases)\n"
    for (flavour, operation, size, place), peer, factor in misses:
        text += (f"  - {FLAVOURS[flavour]}, {operation}, {count(size)} records, {place}: "
                 f"{PEERS[peer]} is {factor:.2f} times as fast\n")
    return text


def beyond(medians):
    """Who wins where no promise is made."""
    rows = []
    for operation in OPERATIONS:
        for flavour in FLAVOURS:
            cells = []
            for size in SIZES[2:]:
                if (flavour, operation, size, "disk") not in medians:
                    cells.append("")
                    continue
                peer, factor = fastest(medians, flavour, operation, size, "disk")
                cells.append(f"the library, {factor:.1f} times as fast as {PEERS[peer]}"
                             if factor > 1 else f"{PEERS[peer]}, {1 / factor:.1f} times as fast")
            rows.append([operation, FLAVOURS[flavour]] + cells)
    return table(["operation", "flavour"] + [count(size) for size in SIZES[2:]], rows)


def memory(directory):
    with open(os.path.join(directory, "peaks.txt")) as file:
        peaks = {tuple(name.split("/")): int(size) for name, size in map(str.split, file)}
    rows = []
    for subject, name in {**FLAVOURS, **PEERS}.items():
        for operation in OPERATIONS:
            cells = [peaks.get((subject, operation, str(size))) for size in SIZES[2:]]
            if None not in cells:
                rows.append([name, operation] + [f"{cell / 1024:,.1f}" for cell in cells])
    return table(["", "operation"] + [count(size) for size in SIZES[2:]], rows)


def plot(medians, directory):
    import matplotlib
    matplotlib.use("Agg")
    matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "bench", "font.size": 9})
    from matplotlib import pyplot

    def lines(file, subjects, operations, place, value, unit, scale="log"):
        figure, axes = pyplot.subplots(len(operations) // 3, 3, squeeze=False,
                                       figsize=(10, 2.9 * (len(operations) // 3) + 0.6))
        for axis, operation in zip(axes.flat, operations):
            for index, (subject, name) in enumerate(subjects.items()):
                points = [(size, value(subject, operation, size, place)) for size in SIZES
                          if (subject, operation, size, place) in medians]
                style = "-o" if subject in FLAVOURS else "--x"
                axis.plot(*zip(*points) if points else ([], []), style, color=f"C{index}",
                          label=name, markersize=4)
            axis.set(xscale="log", yscale=scale, title=OPERATIONS[operation], xlabel="records",
                     ylabel=unit)
            axis.minorticks_off()
            axis.grid(alpha=0.3)
        handles, labels = axes.flat[0].get_legend_handles_labels()
        figure.legend(handles, labels, loc="lower center", ncol=5)
        figure.tight_layout(rect=(0, 0.12 if len(operations) == 3 else 0.08, 1, 1))
        figure.savefig(os.path.join(directory, file), metadata={"Date": None})

    for place in PLACES:
        lines(f"{place}.svg", {**FLAVOURS, **PEERS}, list(OPERATIONS), place,
              lambda *key: medians[key], "µs")
    lines("floor.svg", FLAVOURS, ["GetLast", "Scan", "Change"], "memory",
          lambda subject, *key: medians[(subject, *key)] / medians[(subject + "-floor", *key)],
          "times the floor", "linear")


def environment(disk):
    def output(*command):
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()

    with open("/proc/cpuinfo") as file:
        processor = next(line.split(":")[1].strip() for line in file if "model name" in line)
    kernel = ".".join(platform.release().split(".")[:2])
    versions = [f"{package} {output('dpkg-query', '-W', '-f', '${Version}', package)}" for package
                in ("libsqlite3-0", "libtdb1", "libglib2.0-0", "libaugeas0")]
    return (f"{os.cpu_count()} processors {processor}, Linux {kernel}, disk: "
            f"{output('findmnt', '-n', '-o', 'FSTYPE', '-T', disk)}, "
            f"{output('c++', '--version').splitlines()[0]}; "
            + ", ".join(versions) + ".")


def page(medians, directory, path, disk):
    with open(os.path.join(directory, "floor-check.txt")) as file:
        differing = file.read().split()
    check = ("The calls of floor and library were compared one by one before this run and are the "
             "same." if not differing else
             "**The calls of floor and library differ in: " + ", ".join(differing) + ".**")
    plots = os.path.splitext(path)[0]
    os.makedirs(plots, exist_ok=True)
    plot(medians, plots)
    base = os.path.basename(plots)
    parts = [MARKER, "\n## One run", environment(disk), "### Beside the floor, in memory", check,
             ratios(medians), f"![times the floor]({base}/floor.svg)",
             "### Beside what else one could use", verdicts(medians),
             "Who wins from 1,000 records on, on disk, among the ways that are as durable:\n",
             beyond(medians)]
    parts += ["### Many changes, one commit, on disk",
              "Changes of 1,000 among 1,000 records; 1,000 and 10,000 new records added to as many. "
              "Each is one update, transaction or file written.", many(medians)]
    for place, title in PLACES.items():
        parts += [f"### {title}", f"![{title}]({base}/{place}.svg)", times(medians, place)]
    parts += ["### Heap memory of one operation, KiB", memory(directory)]
    with open(path) as file:
        written = file.read().split(MARKER)[0]
    with open(path, "w") as file:
        file.write("\n\n".join(part.strip("\n") for part in [written] + parts) + "\n")


def main(arguments):
    medians = load_medians(arguments[0])
    if arguments[1] == "--ratios":
        print(ratios(medians))
    else:
        page(medians, arguments[0], arguments[1], arguments[3])


main(sys.argv[1:])
