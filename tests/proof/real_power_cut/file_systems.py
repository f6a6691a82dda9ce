"""The file systems on the disk: what each of them needs, and how it is made and mounted."""
from __future__ import annotations

import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

MIB = 1 << 20


def execute(*command: str | Path) -> None:
    """Runs a command; what it prints is only seen in an error."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if done.returncode != 0:
        raise OSError(f"{' '.join(map(str, command))}: {done.stderr.strip()}")


@dataclass(frozen=True)
class FileSystem:
    name: str
    size: int  # bytes; little more than it needs to be as it is when it is large
    superblock: int  # the offset of the block with it

    def is_usable(self) -> bool:
        """Whether it can be used here; says why not."""
        if (loader := shutil.which("modprobe")) is not None:
            subprocess.run([loader, "-q", self.name], check=False, stderr=subprocess.DEVNULL)
        missing = ""
        if shutil.which(f"mkfs.{self.name}") is None:
            missing = f"mkfs.{self.name} is not installed"
        elif self.name not in Path("/proc/filesystems").read_text().split():
            missing = f"the kernel has no {self.name}"
        if missing:
            print(f"{self.name}: skipped: {missing}", flush=True)
        return not missing

    def make(self, disk: Path) -> None:
        """Makes it on the file itself: no loop device outlives a program that dies meanwhile."""
        execute(f"mkfs.{self.name}", "-q", "-F" if self.name == "ext4" else "-f", disk)

    def mount(self, disk: Path, place: Path) -> None:
        """Mounts it on a loop device that is gone with the mount."""
        execute("mount", "-t", self.name, "-o", "loop", disk, place)


# ext4 has its usual blocks of 4 KiB from 512 MiB on.
FILE_SYSTEMS = [
    FileSystem("ext4", 640 * MIB, 0),
    FileSystem("xfs", 320 * MIB, 0),
    FileSystem("btrfs", 256 * MIB, 64 * 1024),
]
