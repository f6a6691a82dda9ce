"""What is raised when the system fails, and that the manual names everything."""
import ctypes
import inspect
import os
import pydoc
import tempfile
from pathlib import Path

import pytest

import zorreg


@pytest.mark.skipif(not hasattr(os, "seteuid"), reason="no such rights here")
def test_a_right_that_lacks_is_no_missing_record():
    user = os.geteuid()
    with tempfile.TemporaryDirectory() as directory:
        path = Path(directory, "r.reg")
        path.write_text("A = 1\n")
        path.chmod(0)
        os.chmod(directory, 0o555)
        registry = zorreg.open(path, "var")
        try:
            if user == 0:
                os.seteuid(61001)
            for use in (lambda: registry.set({"Variable": "A", "Value": 2}), lambda: list(registry),
                        lambda: registry.delete("A"), lambda: registry.get("A")):
                with pytest.raises(zorreg.Error) as caught:
                    use()
                assert type(caught.value) is zorreg.Error
        finally:
            os.seteuid(user)
            os.chmod(directory, 0o700)
        path.chmod(0o600)
        assert registry["A"]["Value"] == "1"


def test_an_error_knows_that_the_change_is_committed_all_the_same():
    mapped = [line.split()[-1] for line in open("/proc/self/maps") if "libzorosse64.so" in line]
    install = getattr(ctypes.CDLL(mapped[0]), "_Z15ossSetFaultHookPFiPKcS0_PvES1_")
    registry = zorreg.open("r", "var")
    calls, last = [], 0

    @ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_void_p)
    def fail_last(operation, _path, _context):
        calls.extend([operation] * (operation == b"unlink"))
        return 5 if last and len(calls) == last and operation == b"unlink" else 0

    registry["A"] = {"Value": 0}
    try:
        install(fail_last, None)
        registry["A"] = {"Value": 1}
        last = len(calls)  # the lock's
        calls.clear()
        with pytest.raises(zorreg.Error, match="but it is committed") as caught:
            registry["B"] = {"Value": 2}
        assert caught.value.committed and registry["B"]["Value"] == "2"
        with pytest.raises(zorreg.NotFound) as caught:  # a reading commits nothing
            registry["C"]
        assert not caught.value.committed
    finally:
        install(None, None)


def test_everything_public_is_documented():
    manual = pydoc.plain(pydoc.render_doc(zorreg))
    for name in zorreg.__all__:
        public = getattr(zorreg, name)
        assert name in manual
        if not inspect.isclass(public) and not inspect.isfunction(public):
            continue  # a name for type hints
        assert inspect.getdoc(public) and public.__module__ == "zorreg"
        for member, value in vars(public).items():
            if not member.startswith("_") and not isinstance(value, str):
                assert inspect.getdoc(value), f"{name}.{member}"
