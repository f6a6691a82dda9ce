"""Small registries of configuration records in files, changed without ever losing one.

A registry is a file that several programs read and change at the same time. Each change is locked,
written to a new file, synced, verified and renamed into place: whatever happens, everyone finds the
old content or the new one. The shared library does that; this module is its Python face.

    import zorreg

    with zorreg.open("settings.reg", "bin") as settings:
        settings["Timeout"] = {"Value": 30, "Comment": "seconds"}    # adds it, or makes it so
        print(settings["Timeout"]["Value"])                          # 30
        for setting in settings:
            print(setting["Variable"], setting["Value"])
        with settings.update():                                      # all of it, or nothing
            settings["Retries"] = {"Value": 5}
            del settings["Timeout"]

The order of calls: open; any of [], get, find, in, a loop, add, set, change, delete, in any order
and singly or within `with registry.update():`; close, or the end of a `with`.

Records are dictionaries of texts with the fields that the record has; in type hints Record is one
that was read, Fields one that is given. There are four kinds:

    kind      fields                         a plain key, as in r[key], is
    bin       Variable Value Comment         Variable
    var       Variable Value Comment         Variable
    services  Name Port Protocol Aliases     Name: the first of that name; Name and Protocol are
              Comment                        what identifies a record
    global    Type, CheckSum, the fields     (none: use find, set, change, delete)
              of that type

    The types of kind global, each with what identifies a record first:
    variable  Service Variable; Value Comment
    instance  InstanceName; Service VersionCode InstancePath Usage StartAtBoot Maintenance
              InstallPath HostName Comment
    services  Service; VersionCode InstallPath Text2 Text3 Level Number1 Byte1 Number2 Number3

What is stored may be given as int, too: 30 and True are "30" and "1". Value of kind bin is a whole
number of 32 bits with a sign; Port goes from 1 to 65535; Aliases are words with a blank between
them; Variable and Comment of kind bin hold up to 15 bytes. A field that is not given stays as it
is, and so do fields of a newer version in a global record; an empty Comment or Aliases takes it
away. Bytes of a file that are no UTF-8 come out as surrogates ("surrogateescape", as in file names)
and go back as the bytes they were.

Failures raise Error, or NotFound (a KeyError), Exists, Busy (a TimeoutError). The exception says
which code, why, and whether the change is committed all the same.

    try:
        settings.change("Timeout", {"Value": 40})
    except zorreg.NotFound:
        settings.add({"Variable": "Timeout", "Value": 40})
    except zorreg.Error as error:
        print(error.name, error.cause, error.committed)

Threads: one thread at a time; threads open their own, and take turns by the file's lock, as
processes do. Threads that share one all the same wait for each other, in an update until its end.
Tasks of one thread do not: do not await in an update. After a fork only the process that opened a
registry uses it; the other opens its own. While an operation waits for another writer an interrupt
from the keyboard waits, too: give open a lock_timeout.

One registry has one spelling: use the same path everywhere, since the lock is found by it.

The library is libzorgenreg64.so.0 (Windows: zorgenreg64.dll), or the file that the environment
variable ZORREG_LIBRARY names when this module is imported.
"""

from __future__ import annotations

from ._errors import Busy, Error, Exists, NotFound
from ._records import Fields, Record
from ._registry import Key, PathName, Registry

__all__ = ["open", "Registry", "Error", "NotFound", "Exists", "Busy", "Record", "Fields"]


def open(path: PathName | None, kind: str, *, lock_timeout: float | None = None) -> Registry:
    """Opens the registry file at `path` as one of `kind`: "bin", "var", "services" or "global",
    and options behind commas: "big-endian" (bin), "joined" (var, services: a line that ends in a
    backslash goes on in the next one), "alike" (var, services: written lines look like the file's),
    "compact" (var: new lines are NAME=VALUE), "bytes" (values need not be UTF-8).

    The file need not exist: the first change makes it. A path is a text, bytes or a pathlib.Path,
    at most 253 bytes. None is the global registry's own path, which the environment variable
    ZOR_GLOBAL_REG_PATHNAME names, else "global.reg"; for the other kinds it is an Error.

    lock_timeout: for how many seconds an operation waits for another writer before it raises Busy;
    None: without end.
    """
    return Registry(path, kind, lock_timeout=lock_timeout)


for _public in (Registry, Error, NotFound, Exists, Busy):
    _public.__module__ = __name__  # tracebacks and help show the public name
