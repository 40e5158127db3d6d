# SPDX-License-Identifier: Apache-2.0
"""The files that the comparisons work on, and what was written into them."""

import os
import re
import struct
import subprocess
from pathlib import Path

SAMPLES = Path(__file__).resolve().parent.parent / "samples"
MB = 1_000_000


def make_video(path, size):
    """The project's clip with a 'free' box behind it: as valid as before, and of any size."""
    clip = (SAMPLES / "clip.mp4").read_bytes()
    block = os.urandom(1 << 16)
    left = size - len(clip) - 8
    with open(path, "wb") as file:
        file.write(clip + struct.pack(">I4s", left + 8, b"free"))
        while left > 0:
            left -= file.write(block[:left])
    return path


def make_still(path, size):
    """The project's still with that many bytes of scan data."""
    still = (SAMPLES / "still.jpg").read_bytes()
    block = os.urandom(1 << 16).replace(b"\xff", b"\x7f")
    path.write_bytes(still[:-2] + (block * (size // len(block) + 1))[: size - len(still)] + still[-2:])
    return path


def bytes_written(command, trace):
    """Of regular files, from strace's record."""
    names = "write,pwrite64,writev,pwritev,copy_file_range,sendfile"
    done = subprocess.run(["strace", "-f", "-y", "-e", f"trace={names}", "-o", trace, *map(str, command)], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{command}: {done.stderr.strip()}")
    total = 0
    for line in trace.read_text(errors="replace").splitlines():
        call = re.match(r"\d+ +(\w+)\((.*) = (\d+)$", line)
        if call:
            files = re.findall(r"\d+<([^>]*)>", call[2])
            target = files[-1] if call[1] == "copy_file_range" else files[0]
            total += int(call[3]) if target.startswith("/") and not target.startswith(("/dev", "/proc")) else 0
    return total


def changed_bytes(before, after, video, block=1 << 16):
    """From the first to the last byte that differs in each block, and what is longer now; the video stays where it is."""
    place = before.index(video)
    assert after[place : place + len(video)] == video, "the video moved"
    count = max(len(after) - len(before), 0)
    for start in range(0, min(len(before), len(after)), block):
        old, new = before[start : start + block], after[start : start + block]
        if old != new:
            places = [i for i, (one, other) in enumerate(zip(old, new)) if one != other]
            count += places[-1] - places[0] + 1 if places else 0
    return count
