#!/usr/bin/env python3
"""A daemon that keeps its settings: reads them, with defaults for those that nobody has set,
changes one of them, and reads again."""
import sys

import zorreg

STANDARDS = {"Interval": "30", "Retries": "3"}


def show(settings: zorreg.Registry) -> None:
    for name, standard in STANDARDS.items():
        setting = settings.get(name, {"Value": standard, "Comment": "default"})
        print(f"{name} is {setting['Value']} ({setting.get('Comment', 'set')})")


try:
    with zorreg.open("daemon.reg", "bin") as settings:
        show(settings)
        settings["Interval"] = {"Value": 60, "Comment": "by hand"}  # committed, or as it was
        show(settings)
except zorreg.Error as error:
    sys.exit(str(error))
