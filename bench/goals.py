"""What the library is to reach, and whether it does."""
from results import FLAVOURS, NAMES, SIZES, UPDATES, operations_of, peers_of

# The ratio to the floor that each flavour must not exceed, at 10, 1,000 and 10,000 records.
TARGET_SIZES = (10, 1000, 10000)
GET_SMALL = 1.25
GET_PORT = 2.5
TEXT_UPDATE = (1.5, 3.2, 5.2)
UPDATE = {"binary": (1.5, 1.9, 2.3), "global": (1.6, 2.6, 2.9), "profile": TEXT_UPDATE,
          "services": TEXT_UPDATE}
TARGETS = {
    "GetLast": {flavour: (GET_SMALL, None, None) for flavour in FLAVOURS},
    "GetMiss": {flavour: (GET_SMALL, None, None) for flavour in FLAVOURS},
    "GetPort": {"services": (None, GET_PORT, None)},
    "Scan": {"binary": (1.2, 4.5, 10), "global": (1.4, 7.0, 8.5),
             "profile": (1.3, 8.5, 21), "services": (1.3, 8.5, 21)},
    "Add": UPDATE, "Change": UPDATE, "Delete": UPDATE,
}

GETS = ("GetLast", "GetMiss", "GetPort")


def cached_gets(peers):
    """Pairs of a cached Get and the peer's."""
    return [((flavour + "-cached", operation, size, "disk"), (peer, operation, size, "disk"))
            for flavour in FLAVOURS for operation in operations_of(flavour) if operation in GETS
            for size in SIZES for peer in peers]


def scans(flavours, sizes):
    return [((flavour, "Scan", size, "disk"), (peer, "Scan", size, "disk"))
            for flavour, peers in flavours.items() for size in sizes for peer in peers]


def early_gets():
    return [((flavour, operation, size, "disk"), (peer, operation, size, "disk"))
            for flavour in FLAVOURS for operation in operations_of(flavour) if operation in GETS
            for size in SIZES if size <= (100 if flavour == "global" else 1000)
            for peer in peers_of(flavour, kept=False)]


# What is to be reached, how many times as long as the other it may take, and the pairs of cases.
# Exactly as long as the other is too long where it is to be faster.
GOALS = [
    ("A cached Get, by name and by port, is faster than tdb and SQLite kept open, at every size",
     1, cached_gets(("tdb-kept", "sqlite-kept"))),
    ("A cached Get, by name and by port, takes at most twice as long as LMDB kept open, at every "
     "size", 2, cached_gets(("lmdb-kept",))),
    ("Opened anew, a Get by name takes at most 1.25 times the floor at 10 records", GET_SMALL,
     [((flavour, operation, 10, "memory"), (flavour + "-floor", operation, 10, "memory"))
      for flavour in FLAVOURS for operation in ("GetLast", "GetMiss")]),
    ("A Get by port takes at most 2.5 times the floor at 1,000 records", GET_PORT,
     [(("services", "GetPort", 1000, "memory"), ("services-floor", "GetPort", 1000, "memory"))]),
    ("A Get by port takes at most twice as long as one by name at 10,000 records", 2,
     [(("services", "GetPort", 10000, "disk"), ("services", "GetLast", 10000, "disk"))]),
    ("Scans of services and of profile variables are faster than those of the C library and of "
     "inih, at every size", 1,
     scans({"services": ("c-library",), "profile": ("inih",)}, SIZES)),
    ("Scans of the global registry and of binary variables are faster than those of LMDB and tdb, "
     "to 10,000 records", 1,
     scans({"global": ("lmdb", "tdb"), "binary": ("lmdb", "tdb")}, SIZES[:-1])),
    ("Opened anew, a Get up to 1,000 records (global registry: 100) is faster than every other way",
     1, early_gets()),
    ("An update on disk up to 1,000 records is faster than SQLite's", 1,
     [((flavour, operation, size, "disk"), ("sqlite", operation, size, "disk"))
      for flavour in FLAVOURS for operation in UPDATES for size in SIZES if size <= 1000]),
]


def name_of(subject):
    return NAMES.get(subject, "the floor")


def reached(medians):
    """A list of the goals, met or missed, and where they are missed by how much."""
    text = ""
    for title, factor, pairs in GOALS:
        asked = [pair for pair in pairs if all(case in medians for case in pair)]
        misses = {}
        for own, other in asked:
            ratio = medians[own] / medians[other]
            if ratio > factor or factor == 1 == ratio:
                group = (own[0], own[1], other[0], other[1])
                misses.setdefault(group, []).append(f"{ratio:.2f} at {own[2]:,}")
        missed = sum(map(len, misses.values()))
        verdict = "met" if asked and not misses else "not measured" if not asked else "**missed**"
        text += f"- {title}: {verdict} ({len(asked) - missed} of {len(asked)})\n"
        for (own, operation, other, beside), ratios in misses.items():
            against = "" if beside == operation else f" {beside}"
            text += (f"  - {name_of(own)}, {operation}, times {name_of(other)}{against}: "
                     + ", ".join(ratios) + "\n")
    return text
