"""Records as dictionaries: by name, in loops, of each kind, and the texts in them."""
import doctest
import pathlib

import pytest

import zorreg
from conftest import content


def test_a_name_is_a_key(settings):
    assert settings["Timeout"] == {"Variable": "Timeout", "Value": "30", "Comment": "seconds"}
    assert settings["Retries"] == {"Variable": "Retries", "Value": "5"}
    settings["Retries"] = {"Value": True, "Comment": "#"}
    settings["Timeout"] = {"Comment": ""}
    assert content() == b"Timeout = 30\nRetries = 1 # #\n"
    assert "Timeout" in settings and "timeout" not in settings and "" not in settings
    assert settings.get("Retries")["Value"] == "1"
    assert settings.get("X") is None and settings.get("X", 7) == 7
    del settings["Timeout"]
    assert content() == b"Retries = 1 # #\n"
    with pytest.raises(KeyError, match="settings.reg.*no record matches the key: Variable='X'$"):
        del settings["X"]


def test_a_name_beside_another_key_is_refused(settings):
    before = content()
    with pytest.raises(ValueError, match="'A' as the key, 'Retries' in the record"):
        settings["A"] = settings["Retries"]
    assert content() == before
    settings["Retries"] = settings["Retries"]
    settings["A"] = {**settings["Retries"], "Variable": "A"}
    assert content() == before + b"A = 5\n"


def test_any_fields_are_a_key(settings):
    assert settings.find(Value=5) == settings["Retries"]
    assert settings.find(Value="30", Comment="seconds") == settings["Timeout"]
    assert settings.find(Comment="") == settings["Retries"]
    assert settings.find(Value=6) is None
    assert settings.change("Timeout", {"Value": 40}) is True
    assert settings.change({"Value": 40}, {"Variable": "Wait"}) is True
    assert settings.change("Wait", {"Value": 40}) is False
    settings.delete({"Comment": ""})
    assert content() == b"Wait = 40 # seconds\n"
    settings.add({"Variable": "Wait", "Value": 50})
    settings.change("Wait", {"Comment": ""})
    settings.delete("Wait")
    assert list(settings) == []


def test_a_loop_may_change_what_it_loops_over(settings):
    names = []
    for record in settings:
        names.append(record["Variable"])
        settings.change(record, {"Value": int(record["Value"]) + 1})
        settings.add({"Variable": "New", "Value": 1})
    assert names == ["Timeout", "Retries"]
    assert [record["Value"] for record in settings] == ["31", "6", "1", "1"]


@pytest.mark.parametrize("kind", ["bin", "var", "services", "global"])
def test_no_file_is_no_records(kind):
    with zorreg.open("none.reg", kind) as registry:
        assert list(registry) == []
        assert registry.find(**({"Type": "variable", "Service": "S"} if kind == "global" else
                                {"Comment": "x"})) is None
        if kind != "global":
            assert registry.get("A", 1) == 1 and "A" not in registry
            with pytest.raises(zorreg.NotFound, match="GENREG_RC_NO_FILE"):
                del registry["A"]
    assert not pathlib.Path("none.reg").exists()


def test_services_by_name():
    path = pathlib.Path("services")
    path.write_bytes(b"# ports\nftp 21/tcp fsp\n")
    with zorreg.open(path, "services") as services:
        services["web"] = {"Port": 80, "Protocol": "tcp", "Aliases": "www http"}
        services.add({"Name": "web", "Port": 80, "Protocol": "udp"})
        assert services["web"]["Aliases"] == "www http"
        assert services.find(Port=21)["Name"] == "ftp"
        with pytest.raises(zorreg.Error, match="GENREG_RC_AMBIGUOUS"):
            del services["web"]
        services.delete({"Name": "web", "Protocol": "udp"})
    assert content("services") == b"# ports\nftp 21/tcp fsp\nweb\t\t80/tcp\t\twww http\n"


def test_the_global_registry_has_no_plain_keys(monkeypatch):
    monkeypatch.setenv("ZOR_GLOBAL_REG_PATHNAME", "here.reg")
    with zorreg.open(None, "global") as registry:
        variable = {"Type": "variable", "Service": "S", "Variable": "V"}
        registry.set({**variable, "Value": 1})
        for use in (lambda: registry["V"], lambda: registry.get("V"), lambda: "V" in registry,
                    lambda: registry.delete("V"), lambda: registry.__setitem__("V", variable)):
            with pytest.raises(TypeError, match="find"):
                use()
        assert registry.find(**variable)["Value"] == "1"
        registry.change(variable, {"Value": 2})
        assert [record["Value"] for record in registry] == ["2"]
        registry.delete(variable)
        assert list(registry) == []
    assert pathlib.Path("here.reg").exists()


def test_bytes_that_are_no_utf_8_go_back_as_they_were(settings):
    pathlib.Path("settings.reg").write_bytes(b"A = \xe4 # \xff\xfe\nB = 1\n\xf6 = 2\n")
    records = list(settings)
    assert records[0] == {"Variable": "A", "Value": "\udce4", "Comment": "\udcff\udcfe"}
    assert records[2]["Variable"] == "\udcf6" and "\udcf6" in settings
    settings.change("A", {"Comment": "\u00e4"})
    settings.set(records[2])
    assert content() == b"A = \xe4 # \xc3\xa4\nB = 1\n\xf6 = 2\n"
    del settings["\udcf6"]
    assert content() == b"A = \xe4 # \xc3\xa4\nB = 1\n"


def test_the_manuals_example_runs(capsys):
    shown = zorreg.__doc__.split("    import zorreg\n")[1].split("\nThe order")[0]
    exec("import zorreg\nif True:\n" + shown)
    assert capsys.readouterr().out == "30\nTimeout 30\n"
    assert list(zorreg.open("settings.reg", "bin")) == [{"Variable": "Retries", "Value": "5"}]
    runner = doctest.DocTestRunner()
    for test in doctest.DocTestFinder().find(zorreg.Registry, globs={"zorreg": zorreg}):
        runner.run(test)
    assert runner.tries > 0 and runner.failures == 0


def test_options_stand_behind_the_kind():
    look = b"A  =  1\r\nL  =  a \\\r\n  b\r\nC  =  3 # x\r\n"
    with open("look.reg", "wb") as file:
        file.write(look)
    with zorreg.open("look.reg", "var,alike,joined,bytes") as registry:
        assert registry.kind == "var"
        assert registry["L"]["Value"] == "a b"
        registry["D"] = {"Value": "\udcff"}
        registry["C"] = {"Value": 4}
        del registry["L"]
    assert content("look.reg") == b"A  =  1\r\nC  =  4 # x\r\nD  =  \xff\r\n"
    with zorreg.open("look.reg", "var,compact") as registry:
        registry["E"] = {"Value": 5}
    assert content("look.reg").endswith(b"\nE=5\r\n")
    with zorreg.open("big.reg", "bin,big-endian") as registry:
        registry["A"] = {"Value": 1}
    assert content("big.reg")[:4] == b"\0\0\0\x24"
    with zorreg.open("big.reg", "bin") as registry, pytest.raises(zorreg.Error) as refused:
        registry["A"] = {"Value": 2}
    assert "high byte first" in refused.value.cause
    for kind in ("bin,joined", "var,like", "var alike"):
        with pytest.raises(zorreg.Error, match="options"):
            zorreg.open("x", kind)


def test_what_is_no_file_is_no_empty_registry(settings):
    with zorreg.open("plain", "var") as registry, pytest.raises(zorreg.Error, match="no plain file"):
        registry.get("A")
    with zorreg.open("missing/x", "var") as registry, pytest.raises(zorreg.NotFound):
        del registry["A"]
