"""Records: dictionaries here, opaque objects on the library's side."""

from __future__ import annotations

import contextlib
from typing import Dict, Iterator, Mapping, Union

from ._errors import failure
from ._library import library

Record = Dict[str, str]
Fields = Mapping[str, Union[str, int]]


def encode(text: str) -> bytes:
    """The bytes of a text. What came out of a file as bytes that are no UTF-8 goes back as such."""
    if not isinstance(text, str):
        raise TypeError(f"a text is needed, not {type(text).__name__}")
    if "\0" in text:
        raise ValueError(f"a NUL byte is in {text!r}")
    return text.encode("utf-8", "surrogateescape")


def decode(text: bytes) -> str:
    return text.decode("utf-8", "surrogateescape")


def _value(value: str | int) -> bytes:
    # None is not taken for an absent field: a key would then match more than was meant.
    if not isinstance(value, (str, int)):
        raise TypeError(f"a value is a text or a whole number, not {type(value).__name__}")
    return encode(value if isinstance(value, str) else str(int(value)))


@contextlib.contextmanager
def stored(fields: Fields) -> Iterator[int]:
    """A record of the library's with these fields, which is freed at the end."""
    texts = [(encode(field), _value(value)) for field, value in fields.items()]
    record = library.zorreg_record_new()
    if record is None:
        raise MemoryError
    try:
        for field, value in texts:
            code = library.zorreg_record_set(record, field, value)
            if code != 0:
                raise failure(code, "" if field else "the name of a field is empty")
        yield record
    finally:
        library.zorreg_record_free(record)


def fields_of(record: int) -> Record:
    """The dictionary of a record of the library's."""
    fields: Record = {}
    while (field := library.zorreg_record_field(record, len(fields))) is not None:
        fields[decode(field)] = decode(library.zorreg_record_get(record, field))
    return fields
