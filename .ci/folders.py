# SPDX-License-Identifier: Apache-2.0
"""folders.py TOOL SAMPLES: what the tool promises for folders of thousands of photos."""

import os
import random
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

TOOL, SAMPLES = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
GOOD, BAD, MANY = 990, 10, 10_000
ROUNDS = 5
SHARE = 0.9  # of a worker's rate that every further core has to bring
OF_CEILING = 0.95


def run(*args, cwd):
    started = time.monotonic()
    process = subprocess.Popen([TOOL, *args], cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    message = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    return os.waitstatus_to_exitcode(status), message, usage.ru_maxrss, time.monotonic() - started


def fill(folder, photo, bad):
    folder.mkdir()
    for i in range(GOOD):
        (folder / f"{i:04}.jpg").write_bytes(photo)
    for i in range(BAD):
        (folder / f"bad {i}.jpg").write_bytes(bad)


def goes_on_where_it_stopped(work, photo, clip):
    damaged = photo + bytes(8) + b"QRTH" + struct.pack("<III", 0, 9, 12) + b"QRTT"
    fill(work / "in", photo, damaged)
    call = ["extract", "-r", "in", "-d", "out", "--skip-existing"]
    _, _, _, whole = run("extract", "-r", "in", "-d", "first", cwd=work)
    process = subprocess.Popen([TOOL, *call], cwd=work, stderr=subprocess.DEVNULL)
    time.sleep(random.uniform(0.1, 0.8) * whole)
    process.kill()
    process.wait()
    done = {path.name: path.stat().st_mtime_ns for path in (work / "out").iterdir()}
    inodes = {path.name: path.stat().st_ino for path in (work / "out").iterdir()}
    code, message, _, _ = run(*call, cwd=work)
    made = sorted((work / "out").iterdir())
    assert code == 3 and [f"bad {i}.jpg" in message for i in range(BAD)] == [True] * BAD, message[-300:]
    assert [path.name for path in made] == [f"{i:04}.mp4" for i in range(GOOD)], "something is left, or missing"
    assert all(path.read_bytes() == clip for path in made)
    assert all((work / "out" / name).stat().st_ino == inode for name, inode in inodes.items()), "done twice"
    print(f"killed after {len(inodes)} of {GOOD}, then {message.splitlines()[-1]}")


def memory_does_not_grow(work):
    folder = work / "many"
    folder.mkdir()
    source = work / "in" / "0000.jpg"
    peaks = []
    for first, last in ((0, MANY // 10), (MANY // 10, MANY)):
        for i in range(first, last):
            os.link(source, folder / f"{i}.jpg")
        code, _, peak, _ = run("info", "--json", "-r", "many", cwd=work)
        assert code == 0
        peaks.append(peak)
    print(f"peak memory: {peaks[0]} KiB for {MANY // 10} photos, {peaks[1]} KiB for {MANY}")
    assert peaks[1] < peaks[0] + 4096, "memory grows with the number of files"


def seconds(work, lists, jobs):
    """Of processes side by side, one a list of names, each with so many workers."""
    started = time.monotonic()
    processes = [subprocess.Popen([TOOL, "info", "--json", "--files-from", names, "-j", str(jobs)], cwd=work, stdout=subprocess.DEVNULL)
                 for names in lists]
    assert [process.wait() for process in processes] == [0] * len(lists)
    return time.monotonic() - started


def workers_share_the_work(work):
    cores = len(os.sched_getaffinity(0))
    names = [f"many/{i}.jpg" for i in range(MANY)]
    shares = [work / f"share{i}" for i in range(cores)]
    for i, share in enumerate([names] + [names[i::cores] for i in range(cores)]):
        ([work / "all"] + shares)[i].write_text("\n".join(share) + "\n")
    best = [min(times) for times in zip(*((seconds(work, [work / "all"], 1), seconds(work, [work / "all"], cores),
                                           seconds(work, shares, 1)) for _ in range(ROUNDS)))]
    ratio, ceiling = best[0] / best[1], best[0] / best[2]
    print(f"{MANY / best[0]:.0f} files/s by one worker, {MANY / best[1]:.0f} by {cores}: {ratio:.2f} times as many; "
          f"{cores} processes that share nothing: {ceiling:.2f} times")
    # Cores that share caches and clocks give less than their number even to programs that have nothing to do with each other.
    needed = SHARE * cores
    if ceiling < needed:
        needed = OF_CEILING * ceiling
        print(f"(that is this machine's ceiling: {OF_CEILING} of it is asked for)")
    busy = os.getloadavg()[0] > cores
    assert ratio >= needed or busy, "the workers stand in each other's way"
    if busy:
        print("(the machine was busy with other work: the ratio is not judged)")


with tempfile.TemporaryDirectory() as folder:
    work = Path(folder)
    clip = (SAMPLES / "clip.mp4").read_bytes()
    subprocess.run([TOOL, "add", SAMPLES / "still.jpg", SAMPLES / "clip.mp4", "-o", work / "photo.jpg"], check=True)
    goes_on_where_it_stopped(work, (work / "photo.jpg").read_bytes(), clip)
    memory_does_not_grow(work)
    workers_share_the_work(work)
