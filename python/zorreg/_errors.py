"""What is raised when an operation fails."""

from __future__ import annotations

from typing import Any

from ._library import library

NO_MEMORY = 0x9000000D
END = 0x900001BE
BUSY = 0x900001C4
DUPLICATE = 0x900001F1
NOT_FOUND = 0x900001F6
UNCHANGED = 0x900001F7
NO_FILE = 0x90000513


class Error(Exception):
    """An operation that failed, and, unless `committed` says so, changed nothing.

    code       the library's code, an int
    name       the code's name, as "GENREG_RC_AMBIGUOUS"; decide on this one or on the class
    cause      why, in words, with the name of the file or field
    committed  True when the change is on the disk all the same: only something behind the commit
               failed, and to do it again would do it twice
    """

    code: int
    name: str
    cause: str
    committed: bool

    def __init__(self, code: int, name: str, cause: str, committed: bool = False) -> None:
        text = f"{name}: {cause}"
        super().__init__(f"{text} (but it is committed)" if committed else text)
        self.code = code
        self.name = name
        self.cause = cause
        self.committed = committed

    def __str__(self) -> str:
        return str(self.args[0])  # KeyError would show it in quotes

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.code, self.name, self.cause, self.committed)


class NotFound(Error, KeyError):
    """No record matches the key, or there is no registry file."""


class Exists(Error):
    """The registry holds a record of that identity already."""


class Busy(Error, TimeoutError):
    """Another writer held the registry for longer than the lock timeout."""


_CLASSES = {NOT_FOUND: NotFound, NO_FILE: NotFound, DUPLICATE: Exists, BUSY: Busy}


def failure(code: int, cause: str = "", committed: bool = False) -> Error:
    """The exception for a code; without a cause it has the code's meaning."""
    name = library.zorreg_code_name(code).decode()
    meaning = library.zorreg_code_meaning(code).decode()
    return _CLASSES.get(code, Error)(code, name, cause or meaning, committed)
