"""Who else is at work meanwhile: threads, other processes, other users; and on what systems."""
import ctypes
import errno
import gc
import os
import platform
import struct
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import zorreg


@pytest.fixture
def settings():
    Path("settings.reg").write_text("Timeout = 30\n")
    with zorreg.open("settings.reg", "var", lock_timeout=0) as registry:
        yield registry


@pytest.fixture
def threads():
    with ThreadPoolExecutor(4) as pool:
        yield pool


def test_threads_with_registries_of_their_own_lose_nothing(settings, threads):
    def count():
        with zorreg.open("settings.reg", "var") as mine:
            for _ in range(25):
                with mine.update():
                    mine["Timeout"] = {"Value": int(mine["Timeout"]["Value"]) + 1}

    for counted in [threads.submit(count) for _ in range(4)]:
        counted.result()
    assert settings["Timeout"]["Value"] == "130"


def test_a_thread_does_not_come_into_the_update_of_another(settings, threads):
    with settings.update():
        for use in (lambda: settings.set({"Variable": "A", "Value": 1}), lambda: list(settings),
                    lambda: settings["Timeout"]):
            with pytest.raises(zorreg.Busy, match="another thread"):
                threads.submit(use).result()
    assert threads.submit(lambda: settings["Timeout"]["Value"]).result() == "30"


def test_a_forgotten_update_lets_go_of_its_lock(settings):
    forgotten = zorreg.open("settings.reg", "var")
    update = forgotten.update()
    update.__enter__()
    with pytest.raises(zorreg.Busy):
        settings["A"] = {"Value": 1}
    del update, forgotten
    gc.collect()
    settings["A"] = {"Value": 1}


@pytest.mark.skipif(not hasattr(os, "fork"), reason="no fork here")
def test_a_fork_leaves_the_update_to_its_parent(settings):
    mine = zorreg.open("settings.reg", "var")
    child = None
    status = 1
    try:
        with mine.update():
            mine["A"] = {"Value": 1}
            child = os.fork()
            if child == 0:
                mine["B"] = {"Value": 2}
            assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    except RuntimeError:
        status = 0
    finally:
        if child == 0:  # neither this nor the collector ends what is the parent's
            mine.close()
            del mine
            gc.collect()
            os._exit(status)
    assert Path("settings.reg").read_text() == "Timeout = 30\nA = 1\n"


SYSTEM = ctypes.CDLL(None, use_errno=True)
RENAMEAT2, SETRESUID = {"x86_64": (316, 117), "aarch64": (276, 147)}.get(platform.machine(), (0, 0))


def refuse_flagged_renames(error):
    """From now on the system is to this thread one that knows renames without flags alone."""
    filters, no_new_privileges, seccomp, load, equal, answer = 2, 38, 22, 0x20, 0x15, 0x06
    steps = ctypes.create_string_buffer(struct.pack(
        "=" + 4 * "HBBI", load, 0, 0, 0, equal, 0, 1, RENAMEAT2,
        answer, 0, 0, 0x50000 | error, answer, 0, 0, 0x7FFF0000))
    program = ctypes.create_string_buffer(struct.pack("HP", 4, ctypes.addressof(steps)))
    assert SYSTEM.prctl(no_new_privileges, 1, 0, 0, 0) == 0
    assert SYSTEM.prctl(seccomp, filters, program) == 0


@pytest.mark.skipif(RENAMEAT2 == 0, reason="the call's number is not known")
@pytest.mark.parametrize("error", [errno.ENOSYS, errno.EINVAL])
def test_an_old_systems_renames_replace_nothing_either(settings, threads, error):
    left = {"settings.reg.tmp": "left over", ".settings.reg.bkp": "foreign",
            "settings.reg.old": "older"}
    for name, held in left.items():
        Path(name).write_text(held)

    def work():
        refuse_flagged_renames(error)
        settings["Timeout"] = {"Value": 6}

    threads.submit(work).result()
    assert {file.name: file.read_text() for file in Path(".").iterdir()} == {
        "settings.reg": "Timeout = 6\n", "settings.reg.cor": "left over",
        "settings.reg.old": "older", "settings.reg.old1": "foreign"}


@pytest.mark.skipif(SETRESUID == 0 or os.geteuid() != 0, reason="wants another user's file")
def test_another_users_file_in_a_sticky_directory_is_not_replaced(threads):
    def work():
        # To the system each thread has a user of its own.
        assert SYSTEM.syscall(SETRESUID, -1, 1234, -1) == 0
        with zorreg.open(path, "var") as registry:
            registry["A"] = {"Value": 2}

    # In a place of its own: others may not go through pytest's.
    with tempfile.TemporaryDirectory() as place:
        path = Path(place, "r")
        path.write_text("A = 1\n")
        path.chmod(0o666)
        os.chmod(place, 0o1777)
        with pytest.raises(zorreg.Error, match="sticky directory"):
            threads.submit(work).result()
        assert path.read_text() == "A = 1\n" and sorted(os.listdir(place)) == ["r", "r.tmp"]
