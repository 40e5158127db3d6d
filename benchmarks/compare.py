#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Puts the library beside its peers or its limits in one run, and prints the numbers as Markdown tables.

compare.py BUILD_FOLDER [--rounds N] [--readme] [--only SECTION...]: the folder is the one that the preset "benchmark" builds. What is
compared takes turns, round by round, so that a busy machine is as busy for all; the numbers are medians over the rounds.
"""

import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.dont_write_bytecode = True
from files import MB, SAMPLES, bytes_written, changed_bytes, make_still, make_video  # noqa: E402
from report import Table, against, milliseconds, refused  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent
SHARED = ROOT.parent / "shared" / "data"
MIB = 1024  # in KiB, as the peaks are


class Setting:
    """The programs that are run, the folder they work in, and how often."""

    def __init__(self, build, folder, rounds):
        self.tool = str(build / "tools" / "motionphoto")
        self.parsers = [str(build / "benchmarks" / f"benchmark_{name}") for name in ("metadata_utils", "exiv2", "exempi", "toolkit")]
        self.operations = str(build / "benchmarks" / "operations")
        self.folder, self.rounds = folder, rounds
        self.still = SAMPLES / "still.jpg"

    def path(self, name):
        return self.folder / name

    def video(self, megabytes):
        path = self.path(f"video{megabytes}.mp4")
        return path if path.exists() else make_video(path, megabytes * MB)

    def heic(self, side, tile):
        path = self.path(f"still{side}x{tile}.heic")
        if not path.exists():
            self.run("make-heic", side, tile, path)
        return path

    def photo(self, still, megabytes):
        path = self.path(f"photo{megabytes}{still.stem}{still.suffix}")
        if not path.exists():
            self.run("add", still, self.video(megabytes), path)
        return path

    def run(self, *operation, count=1):
        """One dictionary a run: wall, cpu, peak."""
        command = [self.operations, str(count), *map(str, operation)]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: {done.stderr.strip()}")
        return [json.loads(line) for line in done.stdout.splitlines()]

    def turns(self, contenders, rounds=None):
        """{name: median CPU time} of operations that take turns, in a process that has done each of them for some 30 ms: the
        first time binds symbols and starts the toolkit, and a core takes 10 ms to come up to its speed."""
        runs = {name: [] for name in contenders}
        first = min(self.run(*each)[0]["cpu"] for each in contenders.values())
        count = min(max(3, int(0.03 / first)), 100)
        for i in range(rounds or self.rounds):
            for name in list(contenders) if i % 2 == 0 else reversed(list(contenders)):
                runs[name].append(self.run(*contenders[name], count=count)[-1]["cpu"])
        return {name: statistics.median(times) for name, times in runs.items()}


# Whole commands. --------------------------------------------------------------------------------------------------------


def run_command(command):
    """Wall time, CPU time."""
    start = time.monotonic()
    actions = [(os.POSIX_SPAWN_OPEN, fd, "/dev/null", os.O_WRONLY, 0) for fd in (1, 2)]
    child = os.posix_spawnp(command[0], command, os.environ, file_actions=actions)
    _, status, usage = os.wait4(child, 0)
    if os.waitstatus_to_exitcode(status) > 1:  # 1 is an answer: no motion photo
        sys.exit(f"failed: {' '.join(command)}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime


def take_turns(commands, rounds, before=lambda: None):
    runs = {name: [] for name in commands}
    for i in range(rounds):
        for name in list(commands) if i % 2 == 0 else reversed(list(commands)):
            before()
            runs[name].append(run_command(commands[name]))
    return [{name: statistics.median(each[i] for each in times) for name, times in runs.items()} for i in (0, 1)]


def adding(table, what, rounds, tool, still, video, out, limits):
    def begin_anew():  # with a disk that has nothing to do: not the result of the run before
        out.unlink(missing_ok=True)
        os.sync()

    wall, cpu = take_turns({
        "add": [tool, "add", str(still), str(video), "-o", str(out)],
        "cat": ["sh", "-c", f"exec cat '{still}' '{video}' > '{out}'"],
        "cat + sync": ["sh", "-c", f"cat '{still}' '{video}' > '{out}' && exec sync '{out}'"],
    }, rounds, begin_anew)
    against(table, what, wall, "add", limits)
    against(table, f"{what}, CPU time", cpu, "add", limits)


def commands(table, s):
    table.section("Whole commands")
    for size, rounds in (12, 5 * s.rounds), (60, s.rounds):  # a wait for the disk lasts 1 to 8 ms, whatever the size
        limits = {"cat + sync": 1.1, "cat": 1.6}
        adding(table, f"`motionphoto add`, {size} MB", rounds, s.tool, s.still, s.video(size), s.path("out.jpg"), limits)
    with tempfile.TemporaryDirectory(dir="/dev/shm") as memory:  # where there is no disk to wait for
        still, video = (Path(shutil.copy(path, memory)) for path in (s.still, s.video(12)))
        adding(table, "`motionphoto add`, 12 MB, all files in memory", s.rounds, s.tool, still, video, Path(memory) / "out.jpg",
               {"cat": 1.6})
    plain = SAMPLES / "still.jpg"
    wall, cpu = take_turns({"start": [s.tool, "info", str(plain)], "true": ["true"]}, 5 * s.rounds)
    against(table, "`info` of a plain still", wall, "start", {"true": 4})
    against(table, "`info` of a plain still, CPU time", cpu, "start", {"true": 4})

    trace = s.path("trace")
    for still, name in (s.still, "JPEG"), (s.heic(7, 20000), "HEIC, 49 tiles"):
        photo = s.photo(still, 12)
        subprocess.run(["strace", "-f", "-y", "-o", trace, s.tool, "info", photo], check=True, stdout=subprocess.DEVNULL)
        lines = [line for line in trace.read_text(errors="replace").splitlines() if re.match(r"\d+ +\w+\(", line)]
        own = next(i for i, line in enumerate(lines) if i > 0 and str(photo) in line)
        reads = re.compile(rf"^\d+ +p?read(?:v|64)?\(\d+<{re.escape(str(photo))}>.* = (\d+)$")
        read = sum(int(match[1]) for match in map(reads.match, lines) if match)
        note = f"{len(lines) - own} from the first touch of the photo on, which read {read:,} bytes of it"
        table.row(f"`info`, 12 MB, {name}: system calls", len(lines), note, None, "< 250", len(lines) < 250)

    for still, name in (s.still, "JPEG"), (s.heic(7, 2000), "HEIC"):
        folder = s.path("thousand")
        folder.mkdir()
        s.run("add", still, SAMPLES / "clip.mp4", folder / f"0{still.suffix}")
        for i in range(1, 1000):
            shutil.copy(folder / f"0{still.suffix}", folder / f"{i}{still.suffix}")
        files = sorted(map(str, folder.iterdir()))
        wall, cpu = take_turns({"info": [s.tool, "info", *files], "exiv2 -px": ["exiv2", "-px", *files]}, s.rounds)
        against(table, f"1,000 motion photos by one `info`, {name}", wall, "info", {"exiv2 -px": 0.6})
        against(table, f"1,000 motion photos by one `info`, {name}, CPU time", cpu, "info", {"exiv2 -px": 0.6})
        shutil.rmtree(folder)


# The library in a running process. ------------------------------------------------------------------------------------


def copying(table, s):
    table.section("In a running process, CPU time, beside a copy of what it reads")
    still = make_still(s.path("still4.jpg"), 4 * MB)
    video, out, peer = s.video(8), s.path("out"), s.path("peer")
    heic = s.heic(7, 80_000)
    moving = s.photo(heic, 8)
    cases = [
        ("JPEG: add 8 MB to 4 MB", ["add", still, video, out], ["copy", still, video, peer], 1.1),
        ("HEIC of 4 MB, 49 tiles: add 8 MB, making room for XMP", ["add", heic, video, out], ["copy", heic, video, peer], 1.3),
        ("HEIC of 4 MB: written again for XMP, in place", ["room", heic, out], ["copy", heic, peer], 1.3),
        ("the same with a video of 8 MB behind it", ["room", moving, out], ["copy", moving, peer], 1.3),
    ]
    for what, ours, beside, limit in cases:
        try:
            median = s.turns({"ours": ours, "copy": beside})
        except RuntimeError as error:
            refused(table, what, error)
            continue
        against(table, what, median, "ours", {"copy": limit})


def growth(table, s):
    table.section("Growth, CPU time")
    out, peer = s.path("out"), s.path("peer")
    for name, still, limit in ("JPEG", s.still, 1.1), ("HEIC of 4 MB", s.heic(7, 80_000), 1.3):
        for size in 1, 10, 100, 1000:
            contenders = {"ours": ["add", still, s.video(size), out], "copy": ["copy", still, s.video(size), peer]}
            median = s.turns(contenders, rounds=3 if size == 1000 else s.rounds)
            against(table, f"{name}: add {size:,} MB", median, "ours", {"copy": limit})
            photo = s.photo(still, size)
            if size == 1:
                first = s.turns({"parse": ["parse", photo]})["parse"]
            parse = s.turns({"parse": ["parse", photo]})["parse"]
            beside = f"1 MB {milliseconds(first)}"
            table.row(f"{name}: parse, {size:,} MB", milliseconds(parse), beside, parse / first, "≤ 2", parse / first <= 2)
            for path in out, peer, photo:
                path.unlink()
    s.video(1000).unlink()
    # Tiles as cameras write them, and so small that what is known of each is a good part of the file.
    for side, tile in (7, 80_000), (22, 80_000), (45, 80_000), (7, 2000), (22, 2000), (45, 2000):
        heic, what = s.heic(side, tile), f"HEIC: written again, {side * side:,} tiles of {tile // 1000} KB"
        try:
            median = s.turns({"ours": ["room", heic, out], "copy": ["copy", heic, peer]}, rounds=5 if side * tile > 10**6 else None)
        except RuntimeError as error:
            refused(table, what, error)
            continue
        finally:
            for path in out, peer, heic:
                path.unlink(missing_ok=True)
        against(table, what, median, "ours", {"copy": 1.3})


def records(table, s):
    table.section("Records in a trailer, CPU time")
    made = {}
    for count in 1, 10, 100, 1000, 10_000:
        photo, out = s.path(f"records{count}.jpg"), s.path("out")
        photo.unlink(missing_ok=True)
        s.run("records-make", s.still, count, photo)
        made[count] = s.turns({
            "put all": ["records-put", s.still, count, out],
            "get all": ["records-get", s.still, count, photo],
            "put one and commit": ["records-one", photo, out],
        })
    for what in made[1]:
        values = ", ".join(f"{count:,}: {milliseconds(times[what])}" for count, times in made.items())
        ratio = made[10_000][what] / made[1000][what]
        table.row(what, milliseconds(made[10_000][what]), values, ratio, "10,000 to 1,000 ≤ 11", ratio <= 11)


# Bytes and memory. ----------------------------------------------------------------------------------------------------


def written(table, s):
    table.section("Bytes written, beside the bytes that had to be")
    for still, kind in (s.still, "JPEG"), (s.heic(7, 20_000), "HEIC"):
        out, peer = s.path(f"out{still.suffix}"), s.path(f"peer{still.suffix}")
        for size in 12, 60:
            photo = s.photo(still, size)
            for name, arguments in {"remove": ["remove", photo], "replace": ["replace", photo, SAMPLES / "clip.mp4"]}.items():
                out.unlink(missing_ok=True)
                count = bytes_written([s.tool, *arguments, "-o", out], s.path("trace"))
                need = out.stat().st_size
                table.row(f"`{name} -o`, {kind} with {size} MB", f"{count:,}", f"{need:,}", count / need, "≤ 1.05", count <= 1.05 * need)
            out.unlink()
            count = bytes_written([s.operations, 1, "record-in-place", photo, out], s.path("trace"))
            count -= bytes_written([s.operations, 1, "copy", photo, peer], s.path("trace"))
            need = changed_bytes(photo.read_bytes(), out.read_bytes(), s.video(size).read_bytes())
            what = f"a record of 4 bytes in place, {kind} with {size} MB"
            table.row(what, f"{count:,}", f"{need:,}", count / need, "≤ 2", count <= 2 * need)


def memory(table, s):
    table.section("Peak memory above what the process had before, with a video of 12 and of 120 MB")
    heic, out = s.heic(7, 20_000), s.path("out")
    for what, form in {
        "JPEG: add": lambda size: ["add", s.still, s.video(size), out],
        "JPEG: replace": lambda size: ["replace", s.photo(s.still, size), s.video(size), out],
        "JPEG: replace in place": lambda size: ["replace-in-place", s.photo(s.still, size), s.video(size), out],
        "JPEG: remove": lambda size: ["remove", s.photo(s.still, size), out],
        "JPEG: a record in place": lambda size: ["record-in-place", s.photo(s.still, size), out],
        "HEIC: add": lambda size: ["add", heic, s.video(size), out],
        "HEIC: replace": lambda size: ["replace", s.photo(heic, size), s.video(size), out],
        "HEIC: replace in place": lambda size: ["replace-in-place", s.photo(heic, size), s.video(size), out],
        "HEIC: written again for XMP with a video behind": lambda size: ["room", s.photo(heic, size), out],
    }.items():
        try:
            small, large = (s.run(*form(size))[0]["peak"] for size in (12, 120))
        except RuntimeError as error:
            refused(table, what, error)
            continue
        met = large <= 40 * MIB and large - small <= 2 * MIB
        table.row(what, f"{small / MIB:.1f} / {large / MIB:.1f} MiB", aim="constant, ≤ 40 MiB", met=met)


def instructions(table, s):
    table.section("Work in user space")
    clip, out = SAMPLES / "clip.mp4", s.path("out")
    for still, kind, limit in (s.still, "JPEG", 1.3), (s.heic(7, 20_000), "HEIC, 49 tiles", None):
        counted = []
        for count in 1, 3:
            command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", s.operations, count, "add", still, clip, out]
            done = subprocess.run(list(map(str, command)), check=True, capture_output=True, text=True)
            counted.append(int(re.search(r"Collected : (\d+)", done.stderr)[1]))
        each = (counted[1] - counted[0]) / 2 / 1e6
        aim, met = (f"≤ {limit}", each <= limit) if limit else ("", True)
        table.row(f"{kind}: add, million instructions", f"{each:.2f}", aim=aim, met=met)


# Parsing. -------------------------------------------------------------------------------------------------------------


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


BOUND = 0.6  # of the faster peer's time, taken by the toolkit's parse alone: no caller of it can be much faster


def parsing(table, s):
    table.section("Parse and query, CPU time, geometric means")
    groups = {f"the sample with a video of {size} MB": [s.photo(s.still, size)] for size in (1, 12)}
    for name in "jpeg", "ultrahdr", "motionphoto":
        found = sorted(file for file in SHARED.glob(f"{name}/**/*") if file.suffix.lower() in (".jpg", ".jpeg", ".mpo"))
        if found:
            groups[f"shared {name}"] = found
    files = [file for group in groups.values() for file in group]
    runs = {}
    for _ in range(s.rounds):
        for program in s.parsers:
            for key, (seconds, answers) in run_benchmark(program, files, 0.01).items():
                runs.setdefault(key, ([], answers))[0].append(seconds)
    median = {key: statistics.median(seconds) for key, (seconds, _) in runs.items()}
    slow = []
    unread = {}
    libraries = "motionphoto", "xmp", "exiv2", "exempi"
    for what, text in ("motionphoto", "motion photo"), ("xmp", "XMP alone"):
        for group, members in groups.items():
            taken = [str(file) for file in members if all((library, str(file)) in median for library in libraries)]
            for library in libraries:
                unread.setdefault(library, set()).update(file.stem for file in members if (library, str(file)) not in median)
            mean = {library: statistics.geometric_mean([median[library, file] for file in taken]) for library in libraries}
            met = True
            for file in taken:
                peer = min(median["exiv2", file], median["exempi", file])
                ratio, bound = median[what, file] / peer, median.get(("toolkit", file), 0) / peer
                met &= ratio <= (0.85 if bound >= BOUND else 0.7)
                if ratio > 0.7:
                    over = "" if bound >= BOUND and ratio <= 0.85 else "**"
                    slow.append(f"`{Path(file).stem}` {over}{ratio:.2f}{over} ({text}; the toolkit's parse alone {bound:.2f})")
            note = f", mean of {len(taken)} files" if len(taken) > 1 else ""
            beside = ", ".join(f"lib{peer} {mean[peer] * 1e6:.0f} µs" for peer in ("exiv2", "exempi"))
            ratio = mean[what] / min(mean["exiv2"], mean["exempi"])
            table.row(f"{text}: {group}{note}", f"{mean[what] * 1e6:.0f} µs", beside, ratio, "≤ 0.7 each, 0.85 where the toolkit takes 0.6", met)
    if slow:
        table.say(f"\nAbove 0.7 of the faster peer: {'; '.join(slow)}.")
    out = [f"{', '.join(f'`{name}`' for name in sorted(names))} ({library})" for library, names in unread.items() if names]
    if out:
        table.say(f"\nLeft out, because one refuses the file: {'; '.join(out)}.")
    for file in map(str, files):
        answers = {library: runs[library, file][1] if (library, file) in runs else "refused" for library in libraries}
        if len(set(answers.values())) > 1:
            print(f"differs on {file}: {answers}", file=sys.stderr)


SECTIONS = {each.__name__: each for each in (commands, copying, growth, records, written, memory, instructions, parsing)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=Path)
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--readme", action="store_true", help="puts the tables into the README")
    parser.add_argument("--only", nargs="+", choices=SECTIONS, default=list(SECTIONS))
    arguments = parser.parse_args()
    if arguments.readme and set(arguments.only) != set(SECTIONS):
        parser.error("--readme takes all sections")
    table = Table()
    with tempfile.TemporaryDirectory() as temporary:
        setting = Setting(arguments.build.resolve(), Path(temporary), arguments.rounds)
        for name in arguments.only:
            SECTIONS[name](table, setting)
    print("\nMissed: " + ("; ".join(table.missed) or "nothing"))
    if arguments.readme:
        table.write(ROOT / "README.md", arguments.rounds)


if __name__ == "__main__":
    main()
