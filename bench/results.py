"""What scripts/bench measured, and the names of it."""
import json
import os
import sys

FLAVOURS = {"binary": "binary variables", "global": "global registry",
            "profile": "profile variables", "services": "services"}
CACHED = {flavour + "-cached": name + ", cached" for flavour, name in FLAVOURS.items()}
PEERS = {"sqlite": "SQLite", "sqlite-off": "SQLite, synchronous off", "tdb": "tdb",
         "tdb-nosync": "tdb, no sync", "lmdb": "LMDB", "c-library": "C library", "inih": "inih",
         "key-file": "GLib key file", "augeas": "Augeas"}
KEPT = {"sqlite-kept": "SQLite, kept open", "tdb-kept": "tdb, kept open",
        "lmdb-kept": "LMDB, kept open"}
NAMES = {**FLAVOURS, **CACHED, **PEERS, **KEPT}
# What a flavour is compared with: what keeps records of any kind, and what keeps such files.
ANY_KIND = ("sqlite", "tdb", "lmdb")
OF_KIND = {"profile": ("inih", "key-file"), "services": ("c-library", "augeas")}

OPERATIONS = {"GetLast": "Get of the last record", "GetMiss": "Get of a record that is not there",
              "GetPort": "Get of the last service by its port", "Scan": "Scan of all records",
              "Add": "Add", "Change": "Change", "Delete": "Delete"}
READS = ("GetLast", "GetMiss", "GetPort", "Scan")
UPDATES = ("Add", "Change", "Delete")
SIZES = (10, 100, 1000, 10000, 100000)


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


def peers_of(flavour, kept):
    """The subjects that the flavour is compared with, opened anew or kept open."""
    if kept:
        return tuple(KEPT)
    return ANY_KIND + OF_KIND.get(flavour, ())


def operations_of(flavour):
    return [each for each in READS if each != "GetPort" or flavour == "services"]
