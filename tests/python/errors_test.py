"""What is raised, and that the manual names everything."""
import ctypes
import gc
import inspect
import os
import pathlib
import pickle
import pydoc
import tempfile

import pytest

import zorreg
from conftest import content


def service(registry):
    registry.add({"Name": "ftp", "Port": 21, "Protocol": "tcp"})


def opened(path, kind):
    return lambda: zorreg.open(path, kind)


def on(path, kind, work):
    def run():
        with zorreg.open(path, kind) as registry:
            work(registry)
    return run


RAISED = [
    (on("settings.reg", "var", lambda r: r["X"]), zorreg.NotFound, "GENREG_RC_NOT_FOUND"),
    (on("none.reg", "var", lambda r: r["X"]), zorreg.NotFound, "GENREG_RC_NO_FILE"),
    (on("none.reg", "var", lambda r: r.change("X", {"Value": 1})), zorreg.NotFound,
     "GENREG_RC_NO_FILE"),
    (on("serve", "services", lambda r: (service(r), service(r))), zorreg.Exists,
     "GENREG_RC_DUPLICATE"),
    (on("settings.reg", "var", lambda r: r.find()), zorreg.Error, "GENREG_RC_KEY_EMPTY"),
    (on("settings.reg", "var", lambda r: r.find(Port=1)), zorreg.Error, None),
    (on("settings.reg", "var", lambda r: r.set({"Variable": "A", "Value": 1, "": 1})),
     zorreg.Error, None),
    (on("new.reg", "bin", lambda r: r.set({"Variable": "A", "Value": 2**31})), zorreg.Error, None),
    (on("new.reg", "bin", lambda r: r.set({"Variable": "", "Value": 1})), zorreg.Error, None),
    (on("new.reg", "bin", lambda r: r.set({"Variable": "A"})), zorreg.Error, None),
    # not a registry: damage is nothing that a default may hide
    (on("text", "bin", list), zorreg.Error, "GENREG_RC_READ_FAILED"),
    (on("text", "bin", lambda r: r.get("A")), zorreg.Error, None),
    (on("text", "bin", lambda r: r.set({"Variable": "A", "Value": 1})), zorreg.Error, None),
    (on("plain", "var", list), zorreg.Error, None),
    (on("plain", "var", lambda r: r.set({"Variable": "A", "Value": 1})), zorreg.Error, None),
    (opened("r", "ini"), zorreg.Error, None),
    (opened(None, "bin"), zorreg.Error, None),
    (opened("", "bin"), zorreg.Error, "GENREG_RC_NO_ARGUMENT"),
    (opened("x" * 254, "bin"), zorreg.Error, "GENREG_RC_PATH_TOO_LONG"),
    # arguments that are no matter of the registry
    (on("settings.reg", "var", lambda r: r["A\0"]), ValueError, None),
    (on("settings.reg", "var", lambda r: r.set({"Variable": "A", "Value": "\0"})), ValueError,
     None),
    (on("settings.reg", "var", lambda r: r.find(**{"Value\0": "30"})), ValueError, None),
    (on("settings.reg", "var", lambda r: r["\ud800"]), ValueError, None),
    (opened("a\0b", "bin"), ValueError, None),
    (on("settings.reg", "var", lambda r: r[5]), TypeError, None),
    (on("settings.reg", "var", lambda r: r[b"A"]), TypeError, None),
    (on("settings.reg", "var", lambda r: r.delete({"Value": None})), TypeError, None),
    (on("settings.reg", "var", lambda r: r.set({"Variable": "A", "Value": 1.5})), TypeError, None),
    (opened(5, "bin"), TypeError, None),
]


@pytest.mark.parametrize("number", range(len(RAISED)))
def test_what_is_raised(settings, number):
    work, kind, name = RAISED[number]
    pathlib.Path("text").write_bytes(b"This is no registry.\n" * 9)
    with pytest.raises(kind) as caught:
        work()
    error = caught.value
    assert type(error) is kind or kind is ValueError
    if isinstance(error, zorreg.Error):
        assert error.code != 0 and not error.committed and error.cause
        assert name in (error.name, None) and str(error) == f"{error.name}: {error.cause}"
        again = pickle.loads(pickle.dumps(error))
        assert type(again) is kind and vars(again) == vars(error) and str(again) == str(error)
    assert content() == b"Timeout = 30 # seconds\nRetries = 5\n"
    assert content("text") == b"This is no registry.\n" * 9 and not os.path.exists("new.reg")


@pytest.mark.skipif(not hasattr(os, "seteuid"), reason="no such rights here")
def test_a_right_that_lacks_is_no_missing_record():
    def refused(work):
        with pytest.raises(zorreg.Error) as caught:
            work()
        assert not isinstance(caught.value, (KeyError, TimeoutError))

    user = os.geteuid()
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "r.reg")
        with zorreg.open(path, "var") as registry:
            registry["A"] = {"Value": 1}
            os.chmod(path, 0)
            os.chmod(directory, 0o555)
            try:
                if user == 0:
                    os.seteuid(61001)
                refused(lambda: registry.set({"Variable": "A", "Value": 2}))
                refused(lambda: registry.delete("A"))
                refused(lambda: list(registry))
                refused(lambda: registry.get("A"))
            finally:
                os.seteuid(user)
                os.chmod(directory, 0o700)
            os.chmod(path, 0o600)
            assert registry["A"]["Value"] == "1"


def test_an_error_knows_that_the_change_is_committed_all_the_same(settings):
    mapped = [line.split()[-1] for line in open("/proc/self/maps") if "libzorosse64.so" in line]
    install = getattr(ctypes.CDLL(mapped[0]), "_Z15ossSetFaultHookPFiPKcS0_PvES1_")
    calls = []

    @ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_void_p)
    def fail_last(operation, _path, _context):
        calls.extend([operation] * (operation == b"unlink"))
        return 5 if last and len(calls) == last and operation == b"unlink" else 0

    last = 0
    try:
        install(fail_last, None)
        settings["A"] = {"Value": 1}
        last = len(calls)  # the lock's
        calls.clear()
        with pytest.raises(zorreg.Error, match="but it is committed") as caught:
            settings["B"] = {"Value": 2}
        assert caught.value.committed and settings["B"]["Value"] == "2"
        with pytest.raises(zorreg.NotFound) as caught:  # a reading commits nothing
            settings["C"]
        assert not caught.value.committed
    finally:
        install(None, None)


def test_a_closed_registry_is_not_used(settings):
    settings.close()
    settings.close()
    for use in (lambda: settings["A"], lambda: settings.get("A"), lambda: "A" in settings,
                lambda: list(settings), lambda: settings.find(Value=1),
                lambda: settings.set({"Variable": "A", "Value": 1}), settings.__enter__,
                settings.update().__enter__, lambda: setattr(settings, "lock_timeout", 1)):
        with pytest.raises(ValueError, match="closed"):
            use()
    assert settings.closed and "closed" in repr(settings)
    with zorreg.open(b"settings.reg", "var") as other:
        assert other.kind == "var" and other.path == b"settings.reg" and not other.closed
    assert other.closed


def test_a_forgotten_update_lets_go_of_its_lock(settings):
    forgotten = zorreg.open("settings.reg", "var")
    update = forgotten.update()
    update.__enter__()
    settings.lock_timeout = 0
    with pytest.raises(zorreg.Busy):
        settings["A"] = {"Value": 1}
    del update, forgotten
    gc.collect()
    settings["A"] = {"Value": 1}


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
