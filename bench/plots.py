"""The plots of the page."""
import os

import matplotlib
from results import CACHED, FLAVOURS, KEPT, OPERATIONS, PEERS, SIZES

matplotlib.use("Agg")
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "bench", "font.size": 9})
from matplotlib import pyplot  # noqa: E402 behind the choice of how it draws


# A registry and its cached form have the same colour in every plot, as have a peer's forms; dotted
# is what is not as durable.
COLOURS = {"binary": "C0", "global": "C1", "profile": "C2", "services": "C3", "sqlite": "C4",
           "tdb": "C5", "lmdb": "C6", "c": "C7", "inih": "C8", "key": "C9", "augeas": "black"}


def style(subject):
    if subject in FLAVOURS or subject in CACHED:
        return "-o"
    return ":x" if subject in ("sqlite-off", "tdb-nosync") else "--x"


def draw(path, rows, subjects, value, unit, scale="log"):
    """A panel for each pair of operation and place in each of the rows."""
    height = 3 * len(rows) + 0.8
    figure, axes = pyplot.subplots(len(rows), len(rows[0]), squeeze=False, sharey="row",
                                   figsize=(10, height))
    drawn = {}
    for axis, (operation, place) in zip(axes.flat, sum(rows, [])):
        for subject, name in subjects.items():
            points = [(size, value(subject, operation, size, place)) for size in SIZES]
            points = [point for point in points if point[1] is not None]
            if points:
                line, = axis.plot(*zip(*points), style(subject), color=COLOURS[subject.split("-")[0]],
                                  label=name, markersize=4)
                drawn.setdefault(name, line)
        where = f", {place}" if len(rows) > 1 else ""
        axis.set(xscale="log", yscale=scale, title=OPERATIONS[operation] + where,
                 xlabel="records", ylabel=unit)
        sizes = [size for size in SIZES if size <= axis.dataLim.x1]
        axis.set_xticks(sizes, [f"{size:,}" for size in sizes])
        axis.minorticks_off()
        axis.grid(alpha=0.3)
    named = [name for name in subjects.values() if name in drawn]
    figure.legend([drawn[name] for name in named], named, loc="lower center", ncol=5)
    legend = 0.15 + 0.2 * -(-len(named) // 5)  # inches, of lines with five names each
    figure.tight_layout(rect=(0, legend / height, 1, 1))
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)


def draw_all(medians, directory):
    def micros(*case):
        return medians.get(case)

    def times_floor(subject, *rest):
        own, floor = medians.get((subject, *rest)), medians.get((subject + "-floor", *rest))
        return own / floor if own and floor else None

    reads = [[("GetLast", "disk"), ("GetPort", "disk"), ("Scan", "disk")]]
    updates = [[(operation, place) for operation in ("Add", "Change", "Delete")]
               for place in ("disk", "memory")]
    draw(os.path.join(directory, "cold.svg"), reads, {**FLAVOURS, **PEERS}, micros, "µs")
    draw(os.path.join(directory, "kept.svg"), reads, {**CACHED, **KEPT}, micros, "µs")
    draw(os.path.join(directory, "updates.svg"), updates, {**FLAVOURS, **PEERS}, micros, "µs")
    draw(os.path.join(directory, "floor.svg"),
         [[("GetLast", "memory"), ("Scan", "memory"), ("Change", "memory")]], FLAVOURS, times_floor,
         "times the floor", "linear")
