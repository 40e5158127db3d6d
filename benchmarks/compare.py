#!/usr/bin/env python3
"""Puts the library beside libexiv2, libexempi and cat in one run, and prints the numbers as a Markdown table.

compare.py BUILD_FOLDER [--rounds N]: the folder is the one that the preset "benchmark" builds. Everything that is compared
takes turns, round by round, so that a busy machine is as busy for all; the numbers are medians over the rounds.
"""

import argparse
import json
import os
import re
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SAMPLES = ROOT / "samples"
SHARED = ROOT.parent / "shared" / "data"
MB = 1_000_000


def geometric_mean(numbers):
    return statistics.geometric_mean(numbers)


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


class Table:
    def __init__(self):
        self.missed = []
        print("| Measured | metadata_utils | Beside it | Ratio | Aim |\n|---|---:|---|---:|---|")

    def row(self, what, ours, beside="", ratio=None, aim="", met=True):
        print(f"| {what} | {ours} | {beside} | {'' if ratio is None else f'{ratio:.2f}'} | {aim}{'' if met else ', missed'} |")
        if not met:
            self.missed.append(what)


# Parsing. ---------------------------------------------------------------------------------------------------------------


def run_benchmark(program, arguments, min_time):
    """{(what, file): (CPU seconds, answers)} of one run of a Google Benchmark program; files that it refuses are left out."""
    command = [program, "--benchmark_format=json", f"--benchmark_min_time={min_time}", *map(str, arguments)]
    output = json.loads(subprocess.run(command, check=True, capture_output=True).stdout)
    scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}
    times = {}
    for each in output["benchmarks"]:
        what, _, file = each["name"].partition("/")
        if not each.get("error_occurred"):
            times[what, file] = each["cpu_time"] * scale[each["time_unit"]], each.get("label", "")
    return times


def compare_parsing(table, programs, groups, rounds):
    files = [file for group in groups.values() for file in group]
    runs = {}
    for _ in range(rounds):
        for program in programs:
            for key, (seconds, answers) in run_benchmark(program, files, 0.01).items():
                runs.setdefault(key, ([], answers))[0].append(seconds)
    median = {key: statistics.median(seconds) for key, (seconds, _) in runs.items()}
    libraries = "motionphoto", "xmp", "exiv2", "exempi"
    for what, text in ("motionphoto", "parse and query a motion photo"), ("xmp", "parse and query its XMP alone"):
        for group, members in groups.items():
            taken = [str(file) for file in members if all((library, str(file)) in median for library in libraries)]
            mean = {library: geometric_mean([median[library, file] for file in taken]) for library in libraries}
            best = min(mean["exiv2"], mean["exempi"])
            worst = max(median[what, file] / min(median["exiv2", file], median["exempi", file]) for file in taken)
            note = f" ({len(taken)} files, worst ratio {worst:.2f})" if len(taken) > 1 else ""
            beside = ", ".join(f"lib{peer} {mean[peer] * 1e6:.0f} µs" for peer in ("exiv2", "exempi"))
            ratio = mean[what] / best
            table.row(f"{text}: {group}{note}", f"{mean[what] * 1e6:.0f} µs", beside, ratio, "≤ 1", ratio <= 1)
    for file in map(str, files):
        answers = {library: runs[library, file][1] if (library, file) in runs else "refused" for library in libraries}
        if len(set(answers.values())) > 1:
            print(f"differs on {file}: {answers}", file=sys.stderr)


# Whole commands. --------------------------------------------------------------------------------------------------------


def run_command(command):
    """Wall time, CPU time of the command and its children."""
    start = time.monotonic()
    child = os.posix_spawnp(command[0], command, os.environ, file_actions=[(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)])
    _, status, usage = os.wait4(child, 0)
    if status != 0:
        sys.exit(f"failed: {' '.join(command)}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime


def shown(times):
    return f"{times[0] * 1e3:.1f} ms ({times[1] * 1e3:.1f} CPU)"


def compare_adding(table, tool, program, still, video, size, folder, rounds):
    out = str(folder / "out.jpg")
    commands = {
        "start": [tool, "--version"],
        "add": [tool, "add", str(still), str(video), "-o", out],
        "cat": ["sh", "-c", f"exec cat '{still}' '{video}' > '{out}'"],
        "cat + sync": ["sh", "-c", f"cat '{still}' '{video}' > '{out}' && exec sync '{out}'"],
    }
    runs = {name: [] for name in commands}
    inside = {"add": [], "concatenate": []}
    for i in range(rounds):
        order = list(commands.items())
        for name, command in order if i % 2 == 0 else reversed(order):
            Path(out).unlink(missing_ok=True)
            runs[name].append(run_command(command))
        for (what, _), (seconds, _) in run_benchmark(program, ["--add", still, video, out], 0.05).items():
            inside[what].append(seconds)
    median = {name: tuple(map(statistics.median, zip(*times))) for name, times in runs.items()}
    for peer in "cat", "cat + sync":
        ratio = median["add"][0] / median[peer][0]
        table.row(f"`add`, {size} MB video, beside `{peer}`", shown(median["add"]), shown(median[peer]), ratio, "≤ 1.25", ratio <= 1.25)
    add, copy = (statistics.median(inside[what]) for what in ("add", "concatenate"))
    table.row("the same in a running process, CPU time", f"{add * 1e3:.2f} ms", f"plain copy {copy * 1e3:.2f} ms", add / copy, "≤ 1.25", add / copy <= 1.25)
    return median["start"]


def peak_memory(command, scratch):
    """In KiB. GNU time starts the command from a small process: a child's peak includes that of the one it was forked from."""
    subprocess.run(["time", "-f", "%M", "-o", scratch, *command], check=True, stdout=subprocess.DEVNULL)
    return int(scratch.read_text())


def compare_memory(table, tool, still, videos, folder):
    peaks = {"add": [], "info": []}
    out = folder / "memory.jpg"
    for video in videos.values():
        peaks["add"].append(peak_memory([tool, "add", still, video, "-o", out], folder / "peak"))
        peaks["info"].append(peak_memory([tool, "info", out], folder / "peak"))
    out.unlink()
    sizes = " / ".join(map(str, videos))
    for name, peak in peaks.items():
        grown = peak[-1] - peak[0]
        table.row(f"peak memory of `{name}`, {sizes} MB video", " / ".join(f"{each / 1024:.1f}" for each in peak) + " MiB",
                  "", max(peak) / min(peak), "the same for all", grown < 1024)


def count_calls(table, tool, photo, folder):
    """From strace's record of `info`: all calls, those from the first touch of the photo on, and the bytes read of it."""
    trace = folder / "trace"
    subprocess.run(["strace", "-f", "-y", "-o", trace, tool, "info", photo], check=True, stdout=subprocess.DEVNULL)
    lines = trace.read_text(errors="replace").splitlines()
    calls = [line for line in lines if re.match(r"\d+ +\w+\(", line)]
    own = next(i for i, line in enumerate(calls) if i > 0 and str(photo) in line)
    reads = re.compile(rf"^\d+ +p?read(?:v|64)?\(\d+<{re.escape(str(photo))}>.* = (\d+)$")
    read = sum(int(match[1]) for match in map(reads.match, calls) if match)
    mapped = sum(1 for line in calls if f"<{photo}>" in line and "mmap(" in line)
    table.row("`info`, 12 MB video: system calls", len(calls), "", None, "< 300", len(calls) < 300)
    table.row("of these behind the start of the process", len(calls) - own, "", None, "< 300", len(calls) - own < 300)
    table.row("bytes it reads of the photo", f"{read:,}", "", None, "headers and packet only", read < 256 * 1024 and not mapped)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=Path)
    parser.add_argument("--rounds", type=int, default=9)
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    tool = str(build / "tools" / "motionphoto")
    programs = [str(build / "benchmarks" / f"benchmark_{name}") for name in ("metadata_utils", "exiv2", "exempi")]
    still = SAMPLES / "still.jpg"
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary)
        videos = {size: make_video(folder / f"video{size}.mp4", size * MB) for size in (1, 12, 60, 120)}
        photos = {size: folder / f"photo{size}.jpg" for size in (1, 12)}
        for size, photo in photos.items():
            run_command([tool, "add", str(still), str(videos[size]), "-o", str(photo)])
        groups = {f"the sample with a video of {size} MB": [photo] for size, photo in photos.items()}
        for name in "jpeg", "ultrahdr", "motionphoto":
            found = sorted(file for file in SHARED.glob(f"{name}/**/*") if file.suffix.lower() in (".jpg", ".jpeg", ".mpo"))
            if found:
                groups[f"shared {name}"] = found
        table = Table()
        compare_parsing(table, programs, groups, arguments.rounds)
        for size in 12, 60:
            start = compare_adding(table, tool, programs[0], still, videos[size], size, folder, arguments.rounds)
        table.row("starting the process, in each command", shown(start))
        compare_memory(table, tool, still, {size: videos[size] for size in (1, 12, 120)}, folder)
        count_calls(table, tool, photos[12], folder)
    if table.missed:
        print("\nMissed: " + "; ".join(table.missed))


if __name__ == "__main__":
    main()
