"""Random edits against a model: sequences of operations, made from seeds and run through the library by edit_driver, and
after each commit the file compared with the model by a reader that shares no code with the library.

    random_edit_test.py DRIVER [--sequences N] [--operations N] [--seed FIRST]

DRIVER may be "EMULATOR;ITS ARGUMENT;...;DRIVER". A failure prints its seed and the shortest list of operations that still
fails. Camera debug info is edited in HEIC alone: in a JPEG it makes segments that no other reader accepts, by design.
"""

import argparse
import copy
import os
import random
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent.parent / "support"))
from photo_reader import CAMERA, VIDEO, VIDEO_VERSION, Damaged, read_photo

STILLS = ["jpeg", "jpeg-xmp", "jpeg-xmps", "heic", "heic-xmp", "heic-last", "heic-single"]
TIFF = "{http://ns.adobe.com/tiff/1.0/}"
PROPERTIES = ["Make", "Model", "HostComputer"]
RECORDS = [(2817, "A"), (2900, "A"), (2900, "B"), (-7, "Note"), (2562, "MotionPhoto_Info")]
REMOVED_WITH_VIDEO = [b"MotionPhoto_Data", b"MotionPhoto_Version", b"MotionPhoto_Info", b"MotionPhoto_AutoPlay"]
VIDEOS = {"small": 60, "least": 125_001, "large": 190_000}  # a JPEG's record of 125,000 bytes or less is a pointer


class Failure(Exception):
    pass


def expect(condition, text):
    if not condition:
        raise Failure(text)


class Driver:
    def __init__(self, command, folder):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, cwd=folder, text=True)

    def ask(self, line):
        """The error's text, None when there was none."""
        try:
            self.process.stdin.write(line + "\n")
            self.process.stdin.flush()
            answer = self.process.stdout.readline()
        except BrokenPipeError:
            answer = ""
        expect(answer, f"the driver died of {line!r}")
        return None if answer == "ok\n" else answer.strip()

    def do(self, line):
        error = self.ask(line)
        expect(error is None, f"{line}: {error}")

    def close(self):
        self.process.stdin.close()
        self.process.wait()


@dataclass
class Model:
    """What the file must hold."""

    kind: str
    image: object
    records: list = field(default_factory=list)  # [type, name, data]; None as data stands for the video
    video: bytes = None
    properties: dict = field(default_factory=dict)
    time: str = ""  # None: whatever the video's duration is
    debug: bytes = None
    # Staged for one commit.
    primary: int = 0
    cut_when_empty: bool = False

    def put(self, kind, name, data):
        for record in self.records:
            if record[:2] == [kind, name]:
                record[2] = data
                return
        self.records.append([kind, name, data])

    def apply(self, operation, videos):
        what, *values = operation
        if what in ("video", "memory", "replace"):
            self.video, self.cut_when_empty = videos[values[0]], False
            self.put(VIDEO, b"MotionPhoto_Data", None)
            self.time = self.time or None
        elif what == "remove":
            self.records = [r for r in self.records if r[0] not in (VIDEO, VIDEO_VERSION) and r[1] not in REMOVED_WITH_VIDEO]
            self.video, self.time, self.cut_when_empty = None, "", True
        elif what == "record":
            self.put(values[0], values[1].encode(), values[3].encode() * values[2])
        elif what == "drop":
            named = [r for r in self.records if r[1] == values[0].encode()]
            if named:
                self.records.remove(named[0])
        elif what == "set":
            self.properties[TIFF + values[0]] = values[2] * values[1]
        elif what == "unset":
            self.properties.pop(TIFF + values[0], None)
        elif what == "time":
            self.time = str(values[0])
        elif what == "primary":
            self.primary = values[0]

    def commit(self, before):
        """What stands in the file in place of `before` once everything applied is committed."""
        if not self.records and not self.cut_when_empty:
            self.records = before.records  # a trailer is not written empty
        first = next((r for r in self.records if r[0] == self.primary), None)
        if self.primary > 0 and first:
            self.records = [r for r in self.records if r is not first] + [first]
        self.primary, self.cut_when_empty = 0, False

    def compare(self, data):
        try:
            photo = read_photo(data)
        except Damaged as damage:
            raise Failure(f"not readable: {damage}") from damage
        expect(photo.image == self.image, "the image has changed")
        expect(len(photo.xmp) == 1, f"{len(photo.xmp)} XMP packets")
        found = [[kind, name, None if kind == VIDEO else content] for kind, name, content in photo.records()]
        expect(found == self.records, f"records {brief(found)}, not {brief(self.records)}")
        expect(photo.video == self.video, "another video")
        expect(photo.debug_info == self.debug, "another debug info")
        others = {name: value for name, value in photo.properties.items() if not name.startswith("{http://ns.google")}
        expect(others == self.properties, f"properties {others.keys()}, not {self.properties.keys()}, or their values")
        time = photo.properties.get(CAMERA + "MotionPhotoPresentationTimestampUs", "")
        expect(self.time is None or time == self.time, f"time {time}, not {self.time}")
        if self.video:
            faults = photo.motion_photo_faults()
            expect(not faults, f"faults {faults}")


def brief(records):
    return [(kind, name, data and len(data)) for kind, name, data in records]


def make_operation(rng, is_heic):
    kind = rng.choice(["video", "video", "remove", "record", "record", "drop", "set", "set", "unset", "time", "fast",
                       "primary", "debug" if is_heic else "record"])
    letter = rng.choice("abc")
    if kind == "video":
        return (rng.choice(["video", "memory", "replace"]), rng.choice(list(VIDEOS)[0 if is_heic else 1 :]))
    if kind == "record":
        return (kind, *rng.choice(RECORDS), rng.choice([1, 12, 700, 5000]), letter)
    if kind == "drop":
        return (kind, rng.choice(RECORDS)[1])
    if kind == "set":
        return (kind, rng.choice(PROPERTIES), rng.choice([1, 30, rng.randrange(1, 1500)]), letter)
    if kind == "unset":
        return (kind, rng.choice(PROPERTIES))
    if kind == "time":
        return (kind, rng.randrange(0, 5_000_000))
    if kind == "primary":
        return (kind, rng.choice(RECORDS)[0])
    if kind == "debug":
        return (kind, rng.choice([0, 1, 300, 9000]), letter)
    return (kind,)


def make_sequence(seed, length):
    """A still and its operations; a commit after some of them: in place or into a target, which the sequence goes on with
    or leaves, and with a fresh view or the same one."""
    rng = random.Random(seed)
    still = rng.choice(STILLS)
    operations = []
    for _ in range(length):
        operations.append(make_operation(rng, still.startswith("heic")))
        if rng.random() < 0.5:
            operations.append(("commit", rng.choice(["in place", "in place", "follow", "leave"]), rng.random() < 0.5))
    return still, operations + [("commit", "in place", False)]


class Run:
    """One sequence. Raises Failure."""

    def __init__(self, driver, folder, still):
        self.driver, self.current, self.other = driver, folder / "file1", folder / "file2"
        driver.do(f"still {still} {self.current}")
        photo = read_photo(self.bytes())
        self.model = Model(photo.kind, photo.image, properties=photo.properties, debug=photo.debug_info)
        self.staged = []
        self.view_is_fresh = False
        self.refusal_allowed = still == "heic-single"  # it cannot be written again for more room

    def bytes(self, path=None):
        return (path or self.current).read_bytes()

    def step(self, operation):
        if operation[0] == "commit":
            self.commit(*operation[1:])
        elif operation[0] == "debug":
            self.commit("in place", False)
            self.write_debug_info(*operation[1:])
        else:
            self.staged.append(operation)

    def write_debug_info(self, size, letter):
        self.driver.do(f"debug {self.current} {size} {letter}" if size else f"undebug {self.current}")
        self.model.debug = letter.encode() * size or None
        self.view_is_fresh = False  # the file changed behind it
        if self.model.video:  # its length, which runs to the file's end, is as it was
            expect(not read_photo(self.bytes()).motion_photo_faults(), "debug info broke the motion photo")

    def commit(self, way, keeps_view):
        if not self.staged:
            return
        if not (keeps_view and self.view_is_fresh):
            self.driver.do(f"parse {self.current}")
        self.driver.do("edit")
        before, source = copy.deepcopy(self.model), self.bytes()
        for operation in self.staged:
            self.driver.do(" ".join(map(str, operation)))
            self.model.apply(operation, VIDEO_BYTES)
        self.model.commit(before)
        self.staged = []
        target = self.current
        if way != "in place":
            target = self.other
            target.write_bytes(b"what stood there before" * 20_000)
        error = self.driver.ask(f"commit {target}" if way != "in place" else "commit")
        if error:
            expect(self.refusal_allowed and "not grid image" in error, f"commit {way}: {error}")
            expect(self.bytes() == source, f"refused, and the file changed: {error}")
            self.model, self.view_is_fresh = before, False
            return
        self.model.compare(self.bytes(target))
        if way != "in place":
            expect(self.bytes() == source, "the source has changed")
        self.view_is_fresh = way != "follow"
        if way == "follow":
            self.current, self.other = self.other, self.current
        elif way == "leave":
            self.model = before


VIDEO_BYTES = {name: b"\0\0\0\x10ftypmp42\0\0\0\0" + random.Random(name).randbytes(size) for name, size in VIDEOS.items()}


class Tester:
    def __init__(self, command, folder):
        self.command, self.folder = command, Path(folder)
        self.driver = Driver(command, folder)
        for name, content in VIDEO_BYTES.items():
            (self.folder / name).write_bytes(content)

    def failure(self, still, operations):
        """Its text, None when all went well."""
        try:
            run = Run(self.driver, self.folder, still)
            for operation in operations:
                run.step(operation)
        except Failure as failure:
            if self.driver.process.poll() is not None:
                self.driver = Driver(self.command, self.folder)
            return str(failure)
        return None

    def shrink(self, still, operations):
        """Drops operations, the larger runs of them first, while it still fails."""
        size = len(operations) // 2
        while size:
            at = 0
            while at < len(operations):
                fewer = operations[:at] + operations[at + size :]
                if self.failure(still, fewer):
                    operations = fewer
                else:
                    at += size
            size //= 2
        return operations

    def report(self, seed, still, operations):
        print(f"seed {seed}: {self.failure(still, operations)}")
        shortest = self.shrink(still, operations)
        print(f"shrunk, from {still}: {self.failure(still, shortest)}")
        for operation in shortest:
            print("   ", *operation)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("driver")
    parser.add_argument("--sequences", type=int, default=300)
    parser.add_argument("--operations", type=int, default=20)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    command = [str(Path(part).resolve()) if os.path.exists(part) else part for part in options.driver.split(";") if part]
    fast = "/dev/shm" if os.path.isdir("/dev/shm") else None
    failed = 0
    with tempfile.TemporaryDirectory(dir=fast) as folder:
        tester = Tester(command, folder)
        for seed in range(options.seed, options.seed + options.sequences):
            still, operations = make_sequence(seed, options.operations)
            if tester.failure(still, operations):
                tester.report(seed, still, operations)
                failed += 1
                if failed == 3:
                    break
        tester.driver.close()
    print(f"{seed + 1 - options.seed} sequences, {failed} failed")
    return failed > 0


if __name__ == "__main__":
    sys.exit(main())
