import pytest


@pytest.fixture(autouse=True)
def in_a_directory_of_its_own(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
