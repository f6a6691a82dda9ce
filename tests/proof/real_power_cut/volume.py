"""File systems on the disk: what each of them needs, and how it is made, mounted and taken down."""
from __future__ import annotations

import ctypes
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

KIB = 1 << 10
MIB = 1 << 20


@dataclass(frozen=True)
class FileSystem:
    name: str
    size: int  # bytes; little more than it needs to be as it is when it is large
    superblock: int  # the offset of the block with it

    def missing(self) -> str:
        """Why it cannot be used here; empty when it can."""
        maker = f"mkfs.{self.name}"
        if shutil.which(maker) is None:
            return f"{maker} is not installed"
        if (loader := shutil.which("modprobe")) is not None:
            subprocess.run([loader, "-q", self.name], check=False, stderr=subprocess.DEVNULL)
        known = Path("/proc/filesystems").read_text().split()
        return "" if self.name in known else f"the kernel has no {self.name}"


# ext4 has its usual blocks of 4 KiB from 512 MiB on.
FILE_SYSTEMS = [
    FileSystem("ext4", 640 * MIB, 0),
    FileSystem("xfs", 320 * MIB, 0),
    FileSystem("btrfs", 256 * MIB, 64 * KIB),
]


def run(*command: str | Path) -> None:
    """Runs a command; what it prints is only seen in an error."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if done.returncode != 0:
        raise OSError(f"{' '.join(map(str, command))}: {done.stderr.strip()}")


def leave_namespace() -> None:
    """What this process mounts from now on is in a namespace that those started before have no part
    in. The process below a file system must not be the last in its namespace: it would have to
    unmount, and for that to write to itself, when it has already ended."""
    new_mounts = 0x20000  # CLONE_NEWNS
    if ctypes.CDLL(None, use_errno=True).unshare(new_mounts) != 0:
        raise OSError(ctypes.get_errno(), "no namespace of mounts is to be had")


class Volume:
    def __init__(self, kind: FileSystem, disk: Path, place: Path):
        self.kind, self.place, self._disk = kind, place, disk

    def make(self) -> None:
        """Makes it on the file itself: no loop device outlives a program that dies meanwhile."""
        force = "-F" if self.kind.name == "ext4" else "-f"
        run(f"mkfs.{self.kind.name}", "-q", force, self._disk)

    def mount(self) -> None:
        """Mounts it on a loop device that is gone with the mount."""
        run("mount", "-t", self.kind.name, "-o", "loop", self._disk, self.place)

    def unmount(self) -> None:
        run("umount", self.place)
