"""The registry itself."""

from __future__ import annotations

import contextlib
import ctypes
import math
import os
import threading
import weakref
from types import TracebackType
from typing import Any, Iterator, TypeVar, Union, overload

from ._errors import BUSY, END, NOT_FOUND, UNCHANGED, NotFound, failure
from ._library import library
from ._records import Fields, Record, decode, encode, fields_of, stored

Key = Union[str, Fields]
PathName = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
_Default = TypeVar("_Default")

_NAMES = {"bin": "Variable", "var": "Variable", "services": "Name"}  # what a plain key stands for


def _close(handle: ctypes.c_void_p, process: int) -> None:
    # What a fork has copied is not this process's to end: an update's files are its parent's.
    if os.getpid() == process:
        library.zorreg_close(handle)


def _milliseconds(seconds: float | None) -> int:
    """What the library takes for it: 0 is without end there, so the shortest wait is 1."""
    if seconds is None or seconds == math.inf:
        return 0
    if not seconds >= 0:
        raise ValueError(f"a lock timeout is 0 or more seconds, or None, not {seconds!r}")
    return min(max(1, math.ceil(seconds * 1000)), 2**63)


class Registry:
    """One registry; zorreg.open makes it, close or the end of a `with` ends it.

    A key is a text, which stands for Variable (kinds bin and var) or Name (services), or a
    dictionary of fields that must all be equal, where an empty value asks for a record without the
    field. The global registry has no plain keys.

    Each change is committed, or has failed and changed nothing, when the method returns, unless an
    update is open. Whatever fails raises an Error; TypeError and ValueError are for arguments that
    no registry takes: a text with a NUL, a value that is neither str nor int, a closed registry.

    >>> with zorreg.open("settings.reg", "bin") as settings:
    ...     settings["Timeout"] = {"Value": 30, "Comment": "seconds"}
    ...     settings["Timeout"]
    {'Variable': 'Timeout', 'Value': '30', 'Comment': 'seconds'}
    """

    def __init__(self, path: PathName | None, kind: str, *,
                 lock_timeout: float | None = None) -> None:
        """As zorreg.open."""
        name = None if path is None else encode(os.fsdecode(path))
        wait = _milliseconds(lock_timeout)
        handle = ctypes.c_void_p()
        code = library.zorreg_open(encode(kind), name, ctypes.byref(handle))
        if code != 0:
            raise failure(code, decode(library.zorreg_cause(None)))
        library.zorreg_set_lock_timeout(handle, wait)
        self._path = path
        self._kind = kind.partition(",")[0]
        self._lock_timeout = lock_timeout
        self._turn = threading.RLock()
        self._process = os.getpid()
        self._handle: ctypes.c_void_p | None = handle
        # Not at the interpreter's exit, when a thread of a daemon may be in the library yet.
        self._finalizer = weakref.finalize(self, _close, handle, self._process)
        self._finalizer.atexit = False

    # --- the handle ---

    @property
    def path(self) -> PathName | None:
        """The path that it was opened with."""
        return self._path

    @property
    def kind(self) -> str:
        """The kind that it was opened as: "bin", "var", "services" or "global"."""
        return self._kind

    @property
    def closed(self) -> bool:
        """Whether it is closed. Everything but close raises ValueError then."""
        return self._handle is None

    @property
    def lock_timeout(self) -> float | None:
        """For how many seconds an operation waits for another writer, or for another thread that
        uses this object; past that it raises Busy. None: without end; 0: for a millisecond. May be
        set."""
        return self._lock_timeout

    @lock_timeout.setter
    def lock_timeout(self, seconds: float | None) -> None:
        wait = _milliseconds(seconds)
        with self._alone() as handle:
            library.zorreg_set_lock_timeout(handle, wait)
            self._lock_timeout = seconds

    def close(self) -> None:
        """Ends it; an update that is open is abandoned. Closing again does nothing."""
        if os.getpid() == self._process:
            with self._turn:
                self._handle = None
                self._finalizer()
        self._handle = None

    def __enter__(self) -> Registry:
        with self._alone():
            return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        closed = " (closed)" if self.closed else ""
        return f"<zorreg.Registry {self._kind} {self._path!r}{closed}>"

    # --- reading ---

    def find(self, **fields: str | int) -> Record | None:
        """The first record with all of these fields, as find(Type="variable", Variable="V"); None
        when there is none, or no registry file."""
        try:
            return self._read(fields)
        except NotFound:
            return None

    def __getitem__(self, name: str) -> Record:
        """The first record of that name. NotFound, which is a KeyError, when there is none."""
        return self._read(self._named(name))

    @overload
    def get(self, name: str) -> Record | None: ...
    @overload
    def get(self, name: str, default: _Default) -> Record | _Default: ...

    def get(self, name: str, default: Any = None) -> Any:
        """The first record of that name, or the default when there is none."""
        try:
            return self[name]
        except NotFound:
            return default

    def __contains__(self, name: str) -> bool:
        """Whether there is a record of that name."""
        return self.get(name) is not None

    def __iter__(self) -> Iterator[Record]:
        """All records as they were when the loop began, which may therefore change them. Without a
        registry file there are none."""
        return iter(self._scan())

    # --- changing ---

    def add(self, record: Fields) -> None:
        """Adds a record behind the others; makes the registry file and its directory.

        Exists when services or global hold a record of that identity; bin and var may hold several.
        """
        with stored(record) as new:
            self._run(library.zorreg_add, new, writes=True)

    def set(self, record: Fields) -> None:
        """Makes it so: gives the record of that identity these fields, where fields that are not
        named stay, or adds it when there is none. Nothing is written when all is so already."""
        with stored(record) as new:
            self._run(library.zorreg_set, new, writes=True)

    def __setitem__(self, name: str, record: Fields) -> None:
        """Sets the record of that name; the record may hold the name, too, but no other one."""
        named = self._named(name)
        for field, value in named.items():
            if record.get(field, value) != value:
                raise ValueError(f"{field} is {name!r} as the key, {record[field]!r} in the record")
        self.set({**record, **named})

    def change(self, key: Key, changes: Fields) -> bool:
        """Gives what matches the key these fields; the others stay. False when all is so already.

        Of bin and var every record that matches is changed; of services and global more than one is
        an Error (GENREG_RC_AMBIGUOUS). NotFound when there is none; Exists when another record has
        the new identity. No other writer comes between the reading and the change.
        """
        fields = self._wanted(key)
        with stored(fields) as wanted, stored(changes) as new:
            code = self._run(library.zorreg_change, wanted, new, key=fields, writes=True)
            return code != UNCHANGED

    def delete(self, key: Key) -> None:
        """Deletes what matches the key, as change would change it. NotFound when there is none."""
        fields = self._wanted(key)
        with stored(fields) as wanted:
            self._run(library.zorreg_delete, wanted, key=fields, writes=True)

    def __delitem__(self, name: str) -> None:
        """Deletes the record of that name (bin and var: each of them)."""
        self.delete(self._named(name))

    @contextlib.contextmanager
    def update(self) -> Iterator[Registry]:
        """Many changes with one commit: `with registry.update():`.

        From its begin on nobody else changes the registry, and nobody else sees what is done in it.
        At the end of the block everything is committed, or nothing and an Error is raised; an
        exception that leaves the block abandons it. A second update within it is an Error
        (GENREG_RC_UPDATE_OPEN). Other writers wait meanwhile, so keep it short.
        """
        with self._alone() as handle:
            self._run(library.zorreg_begin)
            try:
                yield self
            except BaseException:
                if self._handle is not None and os.getpid() == self._process:
                    library.zorreg_abandon(handle)
                raise
            self._run(library.zorreg_commit, writes=True)

    # --- within ---

    @contextlib.contextmanager
    def _alone(self) -> Iterator[ctypes.c_void_p]:
        """The handle, which no other thread uses meanwhile: ctypes lets them run during a call, and
        one that came into another one's update would be abandoned with it."""
        if os.getpid() != self._process:
            raise RuntimeError("this registry was opened before a fork; open it anew")
        wait = -1 if self._lock_timeout is None else self._lock_timeout
        if not self._turn.acquire(timeout=min(wait, threading.TIMEOUT_MAX)):
            raise failure(BUSY, "another thread uses this registry object")
        try:
            if self._handle is None:
                raise ValueError("the registry is closed")
            yield self._handle
        finally:
            self._turn.release()

    def _run(self, operation: Any, *records: int, key: Fields | None = None,
             writes: bool = False) -> int:
        with self._alone() as handle:
            code: int = operation(handle, *records)
            if code in (0, UNCHANGED, END):
                return code
            cause = decode(library.zorreg_cause(handle))
            if code == NOT_FOUND and key is not None:
                cause += ": " + ", ".join(f"{field}={value!r}" for field, value in key.items())
            raise failure(code, cause, writes and library.zorreg_committed(handle) != 0)

    def _read(self, key: Fields) -> Record:
        with stored(key) as record:
            self._run(library.zorreg_get, record, record, key=key)
            return fields_of(record)

    def _scan(self) -> list[Record]:
        records = []
        with self._alone() as handle, stored({}) as record:
            try:
                self._run(library.zorreg_scan)
                while self._run(library.zorreg_next, record) != END:
                    records.append(fields_of(record))
            except NotFound:
                pass  # there is no registry file
            finally:
                library.zorreg_scan_end(handle)
        return records

    def _named(self, name: str) -> dict[str, str]:
        if self._kind not in _NAMES:
            raise TypeError("a global record has no plain key: see find(Type=...), set, delete")
        if not isinstance(name, str):
            raise TypeError(f"a key is a text, not {type(name).__name__}")
        return {_NAMES[self._kind]: name}

    def _wanted(self, key: Key) -> Fields:
        return self._named(key) if isinstance(key, str) else key
