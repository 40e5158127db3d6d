# SPDX-License-Identifier: Apache-2.0
"""fleet.py TOOL SAMPLES: what docs/at-scale.md says of examples/fleet.py, tried over 10,000 photos and two workers. Deaths and
restarts are judged; times are told."""

import json
import os
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

TOOL, SAMPLES = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
FLEET = Path(__file__).resolve().parent.parent / "examples" / "fleet.py"
PHOTOS, FOLDERS = 10_000, 10


def cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def told(what, *command, **settings):
    before, started = cpu(), time.monotonic()
    done = subprocess.run(command, env={**os.environ, **settings}, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    print(f"{what}: {cpu() - before:.1f} s CPU, {time.monotonic() - started:.0f} s", flush=True)
    return done


def fleet(*arguments, partition=500, tool=TOOL):
    """The command line, and the settings it needs. Debian's own interpreter has the engine."""
    return ["/usr/bin/python3", FLEET, *arguments], {"MOTIONPHOTO": str(tool), "PARTITION": str(partition)}


def mapped(what, *arguments, **how):
    command, settings = fleet(*arguments, **how)
    return told(what, *command, **settings)


def lines(results):
    files = [path for path in Path(results).iterdir() if not path.name.startswith(".")]
    return [json.loads(line)["file"] for path in files for line in path.read_text().splitlines()]


def whole(results, expected=PHOTOS):
    found = lines(results)
    assert len(found) == len(set(found)) == expected, f"{len(found)} lines, {len(set(found))} photos, expected {expected}"


def interrupted(share, partitions, victims, *arguments, **how):
    """Starts a run, and kills what `victims` names of it when a share of its results is there."""
    command, settings = fleet(*arguments, **how)
    process = subprocess.Popen(command, env={**os.environ, **settings}, stderr=subprocess.PIPE, text=True, start_new_session=True)
    while len(os.listdir(arguments[2]) if os.path.isdir(arguments[2]) else []) < share * partitions:
        assert process.poll() is None, process.stderr.read()
        time.sleep(0.02)
    victims(process)
    message = process.communicate()[1]
    return process.returncode, message


def one_worker(process):
    for name in filter(str.isdecimal, os.listdir("/proc")):
        try:
            parent = int(Path("/proc", name, "stat").read_text().rpartition(")")[2].split()[1])
            if parent == process.pid and b"spawn_main" in Path("/proc", name, "cmdline").read_bytes():
                return os.kill(int(name), signal.SIGKILL)
        except (FileNotFoundError, ProcessLookupError):
            pass  # it has ended meanwhile
    sys.exit("no worker was found")


def everything(process):
    os.killpg(process.pid, signal.SIGKILL)


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    subprocess.run([TOOL, "add", SAMPLES / "still.jpg", SAMPLES / "clip.mp4", "-o", "photo.jpg"], check=True)
    for i in range(PHOTOS):
        os.makedirs(f"photos/{i % FOLDERS}", exist_ok=True)
        os.link("photo.jpg", f"photos/{i % FOLDERS}/{i}.jpg")
    print(f"{PHOTOS} names of one motion photo of {os.path.getsize('photo.jpg')} bytes")

    for jobs in "1", "2":
        told(f"check, one process, {jobs} threads", TOOL, "check", "-q", "--json", "-r", "photos", "-j", jobs)
    for partition in 500, 50:
        mapped(f"check, two workers, partitions of {partition}", "check", "photos", f"checked{partition}", partition=partition)
        whole(f"checked{partition}")
    mapped("nothing left to do", "check", "photos", "checked500")
    told("extract, one process, 2 threads", TOOL, "extract", "-q", "-r", "photos", "-d", "one", "-j", "2")
    shutil.rmtree("one")
    mapped("extract, two workers, partitions of 500", "extract", "photos", "extracted", "clips")
    whole("extracted")
    shutil.rmtree("clips")
    mapped("a tool that does nothing, partitions of 50", "extract", "photos", "nothing", "clips", partition=50, tool="true")

    code, message = interrupted(0.25, 100, one_worker, "check", "photos", "killed", partition=100)
    assert code == 0, message
    whole("killed")
    print("a worker killed: every photo once")

    Path("deadly").write_text(f'#!/bin/sh\nnames=$(mktemp)\ncat >"$names"\ngrep -aq "/1234.jpg" "$names" && kill -9 $PPID && sleep 9\n'
                              f'exec "{TOOL}" "$@" <"$names"\n')
    os.chmod("deadly", 0o755)
    done = mapped("a partition that kills its workers", "check", "photos", "deaths", partition=100, tool=Path(folder, "deadly"))
    deaths = done.stderr.count("Restarting worker")
    assert done.returncode == 1 and "1 partitions failed" in done.stderr, done.stderr[-500:]
    whole("deaths", PHOTOS - 100)
    mapped("the next start, with a sound tool", "check", "photos", "deaths", partition=100)
    whole("deaths")
    print(f"given up after {deaths} deaths, done by the next start")

    interrupted(0.4, 100, everything, "extract", "photos", "restarted", "clips", partition=100)
    made = {path: path.stat().st_ino for path in Path("clips").rglob("*.mp4") if not path.name.startswith(".")}
    assert all(path.stat().st_size == (SAMPLES / "clip.mp4").stat().st_size for path in made), "a part of a clip under its name"
    done = mapped("extract, started again", "extract", "photos", "restarted", "clips", partition=100)
    assert done.returncode == 0, done.stderr[-500:]
    whole("restarted")
    clips = [path for path in Path("clips").rglob("*") if path.is_file()]
    again = [path for path, inode in made.items() if path.stat().st_ino != inode]
    assert len(clips) == PHOTOS and not again, f"{len(clips)} files, {len(again)} of {len(made)} clips made twice"
    print(f"all killed after {len(made)} clips: none made twice, none missing, nothing left")
