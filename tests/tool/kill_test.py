"""The tool killed before, in the middle of and after each call that changes a file. With -o nothing is ever lost; in
place only the states of docs/failure-states.md are found, by a reader that shares no code with the library.

    kill_test.py SHIM TOOL DRIVER DOCS   SHIM: kill_at.c, built to be preloaded; DRIVER: of the random edits, for stills
"""

import os
import signal
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent.parent / "support"))
from photo_reader import Damaged, boxes, find_video, heic_items, jpeg_segments, read_photo, read_trailer

SHIM, TOOL, DRIVER, DOCS = sys.argv[1:5]
KILLED = -signal.SIGKILL


def fake_video(size, seed):
    return b"\0\0\0\x18ftypmp42" + bytes((i * seed + i // 251) % 256 for i in range(size - 12))


VIDEOS = {"video.mp4": fake_video(126_000, 7), "other.mp4": fake_video(125_500, 11)}
ARGUMENTS = {"add": ["video.mp4"], "replace": ["other.mp4"], "remove": []}


def documented():
    """The states of each row of the document."""
    text = (Path(DOCS) / "failure-states.md").read_text()
    lines = [line.strip("| ").split(" | ") for line in text.splitlines() if "as before;" in line]
    return {row: set(states.split("; ")) for row, states in lines}


def picture_and_xmp(data):
    if data[:2] == b"\xff\xd8":
        segments = jpeg_segments(data)
        scan = segments[-1].payload
        segments[-1].payload = scan[: scan.index(b"\xff\xd9")]
        picture = [(each.code, each.payload) for each in segments if each.code != 0xE1 or each.payload[:4] == b"Exif"]
        return picture, b"".join(each.payload.rstrip(b" ") for each in segments if each.is_xmp())
    start = data.index(b"meta") - 4
    meta = boxes(data, start, start + int.from_bytes(data[start : start + 4], "big"))[0]
    items, primary = heic_items(data, meta)
    xmp = b"".join(item.data.rstrip(b" ") for item in items.values() if item.is_xmp())
    others = [item for item in items.values() if not item.is_xmp()]
    return (data[:start], primary, others), xmp if b"Description" in xmp else b""


def trailer_text(data):
    try:
        trailer = read_trailer(data)
        if trailer is None:
            return []
        video = find_video(data, "jpeg" if data[:2] == b"\xff\xd8" else "heic", trailer)
        return [(each.kind, each.name, len(each.data)) for each in trailer.records] + [video and video[1]]
    except Damaged:
        return []


def state(data, before, after):
    if data in (before, after):
        return "as before" if data == before else "complete"
    try:
        picture, xmp = picture_and_xmp(data)
        assert picture in (picture_and_xmp(before)[0], picture_and_xmp(after)[0])
    except (Damaged, AssertionError, KeyError, ValueError):
        return "picture damaged"
    words = []
    for name, part, old, new in (
        ("XMP", xmp, picture_and_xmp(before)[1], picture_and_xmp(after)[1]),
        ("trailer", trailer_text(data), trailer_text(before), trailer_text(after)),
    ):
        word = "old" if part == old else "new" if part == new else "none" if not part else "cut"
        words.append(f"{name} {word}")
    text = ", ".join(words)
    return {"XMP old, trailer old": "as before, unused bytes", "XMP new, trailer new": "complete, unused bytes"}.get(text, text)


class KillTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir="/dev/shm" if Path("/dev/shm").is_dir() else None)
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.states = documented()

    def still(self, kind):
        path = self.folder / kind
        subprocess.run([DRIVER], input=f"still {kind} {path}\n", text=True, check=True, stdout=subprocess.DEVNULL)
        return path.read_bytes()

    def tool(self, folder, *args, **kill):
        environment = {**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0", **kill}
        if kill:
            environment["LD_PRELOAD"] = SHIM
        run = subprocess.run([TOOL, *args], cwd=folder, env=environment, capture_output=True, timeout=120)
        return run.returncode

    def work(self, before, *extra):
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        for name, content in {**VIDEOS, "photo": before, **dict(extra)}.items():
            (folder / name).write_bytes(content)
        return folder

    def edited(self, before, command):
        folder = self.work(before)
        self.assertEqual(self.tool(folder, command, "photo", *ARGUMENTS[command], "--in-place"), 0)
        return (folder / "photo").read_bytes()

    def kill_everywhere(self, one_run):
        """one_run(number, how) tells whether the tool was killed."""
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            for how in ("before", "half", "after"):
                killed = [True]
                while all(killed):
                    first = len(killed) - 1
                    killed += pool.map(lambda number: one_run(number, how), range(first, first + 4))
                self.assertTrue(killed[1], "no call was killed")

    def test_in_place_only_documented_states_are_found(self):
        for kind in ("jpeg", "heic"):
            photo = self.still(kind)
            for command in ("add", "replace", "remove"):
                before, after = photo, self.edited(photo, command)
                row = f"{kind.upper()}: video or record, XMP {'room made' if command == 'add' else 'fits'}"

                def one_run(number, how):
                    folder = self.work(before)
                    call = [command, "photo", *ARGUMENTS[command], "--in-place"]
                    code = self.tool(folder, *call, KILL_AT=str(number), KILL_HOW=how)
                    found = (folder / "photo").read_bytes()
                    context = (kind, command, how, number)
                    if code != KILLED:
                        self.assertEqual((code, found == after), (0, True), context)
                        return False
                    word = state(found, before, after)
                    self.assertIn(word, self.states[row], context)
                    again = self.tool(folder, *call) if how == "half" else 0
                    self.assertIn(again, (0, 1, 3, 4), context)
                    return True

                self.kill_everywhere(one_run)
                photo = after if command != "remove" else photo
                self.assertEqual(read_photo(after).motion_photo_faults(), [])

    def test_output_file_is_whole_or_absent_and_the_still_untouched(self):
        for kind in ("jpeg", "heic"):
            photo = self.still(kind)
            for command in ("add", "replace", "remove", "extract"):
                before = photo if command == "add" else self.edited(photo, "add")
                expected = VIDEOS["video.mp4"] if command == "extract" else self.edited(before, command)

                def one_run(number, how):
                    old = {"out": b"what was there"} if number % 2 else {}
                    folder = self.work(before, *old.items())
                    call = [command, "photo", *ARGUMENTS.get(command, []), "-o", "out"]
                    code = self.tool(folder, *call, KILL_AT=str(number), KILL_HOW=how)
                    context = (kind, command, how, number)
                    out = (folder / "out").read_bytes() if (folder / "out").exists() else None
                    self.assertEqual((folder / "photo").read_bytes(), before, context)
                    if code != KILLED:
                        self.assertEqual((code, out == expected), (0, True), context)
                        return False
                    self.assertIn(out, (old.get("out"), expected), context)
                    names = {path.name for path in folder.iterdir()} - {*VIDEOS, "photo", "out"}
                    self.assertTrue(all(name.startswith(".motionphoto-") for name in names) and len(names) < 2, names)
                    return True

                self.kill_everywhere(one_run)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
