"""Updates, and who else is at work meanwhile: threads, other processes."""
import ctypes
import errno
import gc
import os
import platform
import struct
import tempfile
import threading

import pytest

import zorreg
from conftest import content


def in_thread(work):
    """What the work raised, or None."""
    outcome = []

    def run():
        try:
            work()
            outcome.append(None)
        except Exception as error:
            outcome.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    return outcome[0]


def test_an_update_is_committed_as_a_whole(settings):
    before = content()
    with settings.update() as pending:
        assert pending is settings
        settings["A"] = {"Value": 1}
        del settings["Timeout"]
        for record in settings:
            settings.change(record, {"Comment": "seen"})
        with pytest.raises(zorreg.NotFound):
            settings.delete("Timeout")
        assert content() == before
    assert content() == b"Retries = 5 # seen\nA = 1 # seen\n"


@pytest.mark.parametrize("leave", [ZeroDivisionError, KeyboardInterrupt, SystemExit])
def test_an_exception_abandons_the_update(settings, leave):
    before = content()
    with pytest.raises(leave), settings.update():
        settings["A"] = {"Value": 1}
        raise leave
    assert content() == before and os.listdir(".").count("settings.reg") == 1
    settings["B"] = {"Value": 2}
    assert content() == before + b"B = 2\n"


def test_an_update_within_an_update_is_refused(settings):
    before = content()
    with settings.update():
        settings["A"] = {"Value": 1}
        with pytest.raises(zorreg.Error, match="GENREG_RC_UPDATE_OPEN"), settings.update():
            pass
        settings["B"] = {"Value": 2}
    assert content() == before + b"A = 1\nB = 2\n"


def test_closing_within_an_update_abandons_it(settings):
    before = content()
    with pytest.raises(ValueError, match="closed"), settings.update():
        settings["A"] = {"Value": 1}
        settings.close()
    with pytest.raises(ZeroDivisionError), zorreg.open("settings.reg", "var") as other:
        with other.update():
            other["A"] = {"Value": 1}
            other.close()
            raise ZeroDivisionError
    assert content() == before


def test_what_others_commit_meanwhile_makes_the_update_fail(settings):
    with pytest.raises(zorreg.Error) as caught, settings.update():
        settings["A"] = {"Value": 1}
        with open("other", "wb") as file:
            file.write(b"Other = 1\n")
        os.rename("other", "settings.reg")
    assert content() == b"Other = 1\n" and not caught.value.committed
    settings["A"] = {"Value": 1}
    assert content() == b"Other = 1\nA = 1\n"


def test_another_writer_is_waited_for_as_long_as_is_said(settings):
    with zorreg.open("settings.reg", "var", lock_timeout=0) as other:
        with settings.update():
            with pytest.raises(zorreg.Busy) as caught:
                other["A"] = {"Value": 1}
            other.lock_timeout = 0.001
            with pytest.raises(TimeoutError), other.update():
                pass
            assert other["Retries"]["Value"] == "5"
        assert caught.value.name == "GENREG_RC_BUSY"
        other["A"] = {"Value": 1}
    for wrong in (-1, float("nan")):
        with pytest.raises(ValueError):
            settings.lock_timeout = wrong
    for fine in (None, 0, 1e300, float("inf")):
        settings.lock_timeout = fine
        assert settings.lock_timeout == fine


def test_threads_with_registries_of_their_own_lose_nothing(settings):
    settings["Total"] = {"Value": 0}

    def count():
        with zorreg.open("settings.reg", "var") as mine:
            for _ in range(25):
                with mine.update():
                    mine["Total"] = {"Value": int(mine["Total"]["Value"]) + 1}

    threads = [threading.Thread(target=count) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert settings["Total"]["Value"] == "100"


def test_a_thread_does_not_come_into_the_update_of_another(settings):
    settings.lock_timeout = 0
    with settings.update():
        for use in (lambda: settings.set({"Variable": "A", "Value": 1}), lambda: list(settings),
                    lambda: settings["Timeout"]):
            assert isinstance(in_thread(use), zorreg.Busy)
    assert in_thread(lambda: settings["Timeout"]) is None


@pytest.mark.skipif(not hasattr(os, "fork"), reason="no fork here")
def test_a_fork_leaves_the_update_to_its_parent(settings):
    before = content()
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
    assert content() == before + b"A = 1\n"


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
def test_an_old_systems_renames_replace_nothing_either(settings, error):
    left = {"settings.reg.tmp": b"left over", ".settings.reg.bkp": b"foreign",
            "settings.reg.old": b"older"}
    for name, held in left.items():
        with open(name, "wb") as file:
            file.write(held)

    def work():
        refuse_flagged_renames(error)
        settings["Retries"] = {"Value": 6}

    assert in_thread(work) is None
    assert content() == b"Timeout = 30 # seconds\nRetries = 6\n"
    assert sorted(os.listdir(".")) == [
        "plain", "settings.reg", "settings.reg.cor", "settings.reg.old", "settings.reg.old1"]
    assert content("settings.reg.cor") == b"left over"
    assert content("settings.reg.old") == b"older"
    assert content("settings.reg.old1") == b"foreign"


@pytest.mark.skipif(SETRESUID == 0 or os.geteuid() != 0, reason="wants another user's file")
def test_another_users_file_in_a_sticky_directory_is_not_replaced():
    # In a place of its own: others may not go through pytest's.
    with tempfile.TemporaryDirectory() as place:
        path = os.path.join(place, "r")
        with open(path, "wb") as file:
            file.write(b"A = 1\n")
        os.chmod(path, 0o666)
        os.chmod(place, 0o1777)

        def work():
            # To the system each thread has a user of its own.
            assert SYSTEM.syscall(SETRESUID, -1, 1234, -1) == 0
            with zorreg.open(path, "var") as registry:
                registry["A"] = {"Value": 2}

        with pytest.raises(zorreg.Error, match="sticky directory"):
            raise in_thread(work)
        assert content(path) == b"A = 1\n" and sorted(os.listdir(place)) == ["r", "r.tmp"]
