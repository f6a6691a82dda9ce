import os

import pytest

import zorreg


@pytest.fixture(autouse=True)
def in_a_directory_of_its_own(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    os.mkdir("plain")  # a path that no registry can have


@pytest.fixture
def settings():
    with zorreg.open("settings.reg", "var") as registry:
        registry["Timeout"] = {"Value": 30, "Comment": "seconds"}
        registry["Retries"] = {"Value": 5}
        yield registry


def content(path="settings.reg"):
    with open(path, "rb") as file:
        return file.read()
