"""The functions of zorreg.h in the shared library, with their types; importing this loads it."""

from __future__ import annotations

import ctypes
import os
import sys

_CODE = ctypes.c_uint
_TEXT = ctypes.c_char_p
_REGISTRY = ctypes.c_void_p
_RECORD = ctypes.c_void_p

_FUNCTIONS = {  # what each returns and takes
    "zorreg_open": (_CODE, _TEXT, _TEXT, ctypes.POINTER(_REGISTRY)),
    "zorreg_close": (None, _REGISTRY),
    "zorreg_record_new": (_RECORD,),
    "zorreg_record_free": (None, _RECORD),
    "zorreg_record_set": (_CODE, _RECORD, _TEXT, _TEXT),
    "zorreg_record_get": (_TEXT, _RECORD, _TEXT),
    "zorreg_record_field": (_TEXT, _RECORD, ctypes.c_size_t),
    "zorreg_get": (_CODE, _REGISTRY, _RECORD, _RECORD),
    "zorreg_add": (_CODE, _REGISTRY, _RECORD),
    "zorreg_change": (_CODE, _REGISTRY, _RECORD, _RECORD),
    "zorreg_set": (_CODE, _REGISTRY, _RECORD),
    "zorreg_delete": (_CODE, _REGISTRY, _RECORD),
    "zorreg_scan": (_CODE, _REGISTRY),
    "zorreg_next": (_CODE, _REGISTRY, _RECORD),
    "zorreg_scan_end": (_CODE, _REGISTRY),
    "zorreg_begin": (_CODE, _REGISTRY),
    "zorreg_commit": (_CODE, _REGISTRY),
    "zorreg_abandon": (_CODE, _REGISTRY),
    "zorreg_set_lock_timeout": (None, _REGISTRY, ctypes.c_uint64),
    "zorreg_committed": (ctypes.c_int, _REGISTRY),
    "zorreg_cause": (_TEXT, _REGISTRY),
    "zorreg_code_name": (_TEXT, _CODE),
    "zorreg_code_meaning": (_TEXT, _CODE),
}


def _load() -> ctypes.CDLL:
    standard = "zorgenreg64.dll" if sys.platform == "win32" else "libzorgenreg64.so.0"
    name = os.environ.get("ZORREG_LIBRARY") or standard
    try:
        library = ctypes.CDLL(name)
        for function, (result, *arguments) in _FUNCTIONS.items():
            prototype = getattr(library, function)
            prototype.restype = result
            prototype.argtypes = arguments
    except (OSError, AttributeError) as error:
        raise ImportError(f"zorreg needs the library {name} "
                          f"(ZORREG_LIBRARY names another file): {error}") from error
    return library


library = _load()
