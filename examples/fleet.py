#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Millions of photos: a map over partitions of a listing, on a Dask cluster. Started again it leaves out what is done.

fleet.py check|extract LISTING RESULTS [CLIPS]    LISTING: a folder, or a file of paths; RESULTS: a folder for a file of
JSON lines a partition; CLIPS: a folder for a folder of clips a partition. Settings: SCHEDULER (an address; else a cluster
on this machine), WORKERS (2), PARTITION (500 photos), MOTIONPHOTO (the tool)."""
import hashlib, itertools, json, os, subprocess, sys  # noqa: E401
from dask.distributed import Client, LocalCluster, as_completed

stem = lambda path: os.path.splitext(os.path.basename(path))[0]  # noqa: E731
get = os.environ.get

def listed(listing):
    if not os.path.isdir(listing):
        yield from (line.rstrip("\n") for line in open(listing, errors="surrogateescape"))
    for folder, folders, names in os.walk(listing):
        folders.sort()
        yield from (os.path.join(folder, name) for name in sorted(names))

def partitions(paths, size):
    """(name, paths): the same paths give the same name. No two have one stem, by which clips are named."""
    part = {}
    for path in itertools.chain(paths, [None]):
        if part and (path is None or len(part) == size or stem(path) in part):
            yield hashlib.sha256(os.fsencode("\0".join(part.values()))).hexdigest()[:24], [*part.values()]
            part = {}
        part[path and stem(path)] = path

def work(tool, command, name, paths, results, clips):
    clips = os.path.join(clips or "", name)
    how = ["--json"] if command == "check" else ["--skip-existing", "-d", clips]
    run = subprocess.run([tool, command, *how, "-q", "-j", "1", "-0", "--files-from", "-"], capture_output=True,
                         input=os.fsencode("\0".join(paths) + "\0"))
    if run.returncode not in (0, 1, 3):  # killed, or it could not write: that says nothing of the photos
        raise OSError(f"{run.returncode}: {run.stderr[-200:]}")
    lines = run.stdout.splitlines()
    if command == "extract":
        made = {stem(clip): clip for clip in os.listdir(clips)} if os.path.isdir(clips) else {}
        errors = os.fsdecode(run.stderr).split("\n")
        told = {path: line.partition(f": {path}: ")[2] for line in errors for path in paths if f": {path}: " in line}
        answers = ({"file": path, "clip": made.get(stem(path)), "message": told.get(path)} for path in paths)
        lines = [json.dumps(answer).encode() for answer in answers]
    if len(lines) != len(paths):
        raise OSError(f"{len(lines)} answers for {len(paths)} photos")
    with open(f"{results}/.{name}.{os.getpid()}", "wb") as out:
        out.write(b"\n".join(lines) + b"\n")
    os.replace(out.name, f"{results}/{name}.jsonl")

if __name__ == "__main__":
    command, listing, results, clips = (sys.argv[1:] + [None])[:4]
    os.makedirs(results, exist_ok=True)
    client = Client(get("SCHEDULER") or LocalCluster(n_workers=int(get("WORKERS", 2)), threads_per_worker=1))
    todo = (client.submit(work, get("MOTIONPHOTO", "motionphoto"), command, name, paths, results, clips, pure=False)
            for name, paths in partitions(listed(listing), int(get("PARTITION", 500)))
            if not os.path.exists(f"{results}/{name}.jsonl"))
    running = as_completed(itertools.islice(todo, 1000))
    failed = [0 for future in running if [running.update(itertools.islice(todo, 1))] and future.status == "error"]
    sys.exit(f"{len(failed)} partitions failed: start again" if failed else 0)
