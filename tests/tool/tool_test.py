# SPDX-License-Identifier: Apache-2.0
"""What the tool promises on the command line: exit codes, outputs that are whole or absent, reports that agree with the
bytes. Run as: tool_test.py TOOL SAMPLES [unittest arguments]; TOOL may be "EMULATOR;ITS ARGUMENT;...;TOOL"."""

import base64
import contextlib
import json
import os
import pty
import re
import resource
import select
import stat
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from xml.etree import ElementTree

TOOL, SAMPLES = list(filter(None, sys.argv[1].split(";"))), Path(sys.argv[2])
STILL = (SAMPLES / "still.jpg").read_bytes()
CLIP = (SAMPLES / "clip.mp4").read_bytes()
FILES = {
    "still.jpg": STILL,
    "clip.mp4": CLIP,
    "isom.mp4": CLIP.replace(b"ftypmp42", b"ftypisom", 1),
    "damaged.jpg": STILL + struct.pack("<II", 999, 1) + b"QRTH" + struct.pack("<III", 0, 9, 12) + b"QRTT",
    "text.txt": b"neither an image nor a video",
}


def trailer(*records):
    """(type, name, data) records and the tail that closes them."""
    stored = [struct.pack("<II", kind << 16, len(name)) + name + data for kind, name, data in records]
    tail = b"QRTH" + struct.pack("<II", 0, len(stored))
    for i, (kind, _, _) in enumerate(records):
        tail += struct.pack("<III", kind << 16, sum(map(len, stored[i:])), len(stored[i]))
    return b"".join(stored) + tail + struct.pack("<I", len(tail)) + b"QRTT"


def box(kind, content):
    return struct.pack(">I4s", 8 + len(content), kind) + content


def identified(still, clip, identifier, within=lambda meta: meta):
    """Both as the camera of a live pair leaves them: the identifier in the maker note, and in the movie's metadata."""
    value = identifier + b"\0"
    maker = b"Apple iOS\0\0\1MM" + struct.pack(">HHHII", 1, 0x11, 2, len(value), 28) + value
    directory = struct.pack(">HHHIII", 1, 0x8769, 4, 1, 26, 0) + struct.pack(">HHHIII", 1, 0x927C, 7, len(maker), 44, 0)
    exif = b"Exif\0\0MM\0*" + struct.pack(">I", 8) + directory + maker
    segment = b"\xff\xe1" + struct.pack(">H", 2 + len(exif)) + exif
    key = b"com.apple.quicktime.content.identifier"
    keys = box(b"keys", struct.pack(">III4s", 0, 1, 8 + len(key), b"mdta") + key)
    meta = box(b"meta", keys + box(b"ilst", box(b"\0\0\0\1", box(b"data", struct.pack(">II", 1, 0) + identifier))))
    meta = within(meta)
    moov = clip.rindex(b"moov") - 4
    size = struct.unpack_from(">I", clip, moov)[0] + len(meta)
    old = still.index(b"\xff\xe1")
    end = old + 2 + struct.unpack_from(">H", still, old + 2)[0]
    return still[:old] + segment + still[end:], clip[:moov] + struct.pack(">I", size) + clip[moov + 4 :] + meta


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name, content in FILES.items():
            self.write(name, content)
        self.done("add", "still.jpg", "clip.mp4", "-o", "photo.jpg")

    def write(self, name, content):
        (self.folder / name).write_bytes(content)

    def read(self, name):
        return (self.folder / name).read_bytes()

    def tool(self, *args, limit=resource.RLIM_INFINITY, front=(), **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True, "timeout": 120, **options}
        limited = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
        return subprocess.run([*front, *TOOL, *args], cwd=self.folder, preexec_fn=limited, **options)

    def done(self, *args):
        result = self.tool(*args)
        self.assertEqual((result.returncode, result.stderr), (0, ""), args)
        return result.stdout

    def info(self, name):
        return json.loads(self.done("info", "--json", name))

    def claimed(self, name):
        """What another reader sees in the XMP: whether a video is claimed, and the bytes from its begin to the file's end."""
        seen = subprocess.run(["exiv2", "-px", name], cwd=self.folder, stdout=-1, text=True).stdout
        return "GCamera.MotionPhoto " in seen, [int(size) for size in re.findall(r"Item:Length .* (\d+)\n", seen)]

    def snapshot(self):
        return {path.name: path.read_bytes() for path in self.folder.iterdir() if path.is_file()}

    def refused(self, code, reason, *args, **options):
        before = self.snapshot()
        result = self.tool(*args, **options)
        self.assertEqual(result.returncode, code, (args, result.stderr))
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertIn(reason, result.stderr)
        self.assertNotIn("metadata_utils/", result.stderr)
        self.assertEqual(self.snapshot(), before, args)

    def test_report_agrees_with_the_bytes_and_the_video_comes_back(self):
        self.done("add", "still.jpg", "clip.mp4", "--timestamp-us", "1234567", "-o", "photo.jpg", "--force")
        photo, report = self.read("photo.jpg"), self.info("photo.jpg")
        motion, video = report["motionPhoto"], report["motionPhoto"]["video"]
        at, size = video["position"], video["size"]
        self.assertEqual(photo[at:][:size], CLIP)
        self.assertEqual((report["mimeType"], report["fileSize"], video["mimeType"]), ("image/jpeg", len(photo), "video/mp4"))
        self.assertEqual((motion["valid"], motion["format"], motion["xmpVersion"]), (True, "mpv1", 1))
        self.assertEqual((motion["presentationTimestampUs"], report["debugInfo"]), (1234567, None))
        self.assertEqual(report["trailer"]["size"], len(photo) - report["imageSize"])
        record = {"type": 2608, "name": "MotionPhoto_Data", "position": at, "size": size}
        self.assertIn(record, report["trailer"]["records"])
        primary, item = report["xmp"]["items"]
        self.assertEqual((primary["Padding"], video["padding"]), (str(at - report["imageSize"]), at - report["imageSize"]))
        self.assertEqual((item["semantic"], item["Length"]), ("MotionPhoto", str(len(photo) - at)))
        self.assertRegex(self.done("info", "photo.jpg"), r"in front of the trailer(?s:.*)\n  video +219,772 bytes at [\d,]+, video/mp4, 2\.5\d* s\n")
        self.write("told.jpg", STILL[:2] + b"\xff\xe4\0\5abc" + STILL[2:])
        self.assertIn("debug info    3 bytes at 6", self.done("info", "told.jpg"))

    def test_what_is_refused_changes_nothing(self):
        self.write("short.mp4", CLIP[:125_000])
        self.write("out.jpg", b"what was there")
        self.write("empty.jpg", b"")
        self.write("-dash.jpg", STILL)
        os.symlink("still.jpg", self.folder / "link.jpg")
        os.symlink("absent.jpg", self.folder / "dangling.jpg")
        os.link(self.folder / "photo.jpg", self.folder / "twin.jpg")
        add = ["add", "still.jpg"]
        for code, reason, args in (
            (2, "give a command", []),
            (2, "'xmp gt', the nearest is 'xmp get'", ["xmp", "gt", "still.jpg"]),
            (2, "'inof', the nearest is 'info'", ["inof", "still.jpg"]),
            (2, "put -- in front", ["info", "-dash.jpg"]),
            (2, "one of -o OUT, -d DIR and --in-place", [*add, "clip.mp4"]),
            (2, "--in-place=bytes", [*add, "clip.mp4", "--in-place=all"]),
            (2, "is no time", [*add, "clip.mp4", "--in-place", "--timestamp-us", "99999999999999999999"]),
            (2, "is no time", [*add, "clip.mp4", "--in-place", "--at", "1.2 h"]),
            (2, "--in-place", [*add, "clip.mp4", "-o", "./still.jpg"]),
            (2, "both input and output", [*add, "clip.mp4", "-o", "clip.mp4"]),
            (2, "both as the still and as the video", [*add, "still.jpg", "--in-place"]),
            (3, "outside the video", [*add, "clip.mp4", "--in-place", "--at", "2.6s"]),
            (3, "isom", [*add, "isom.mp4", "--in-place", "--keep-brand"]),
            (3, "ffmpeg -i IN", [*add, "short.mp4", "--in-place"]),
            (3, "is a folder; -r", ["info", "."]),
            (3, "is a text,", ["info", "text.txt"]),
            (3, "is empty", ["info", "empty.jpg"]),
            (3, "is a movie,", ["add", "clip.mp4", "still.jpg", "-o", "new.jpg"]),
            (3, "damaged.jpg", ["add", "damaged.jpg", "clip.mp4", "--in-place"]),
            (1, "no motion photo", ["replace", "still.jpg", "clip.mp4", "--in-place"]),
            (4, "is there already; --force", [*add, "clip.mp4", "-o", "out.jpg"]),
            (4, "is a link;", ["add", "link.jpg", "clip.mp4", "--in-place"]),
            (4, "is a link to a file that is not there", [*add, "clip.mp4", "-o", "dangling.jpg"]),
            (4, "has 2 names", ["remove", "photo.jpg", "--in-place"]),
            (4, "no folder", [*add, "clip.mp4", "-o", "absent/new.jpg"]),
            (4, "regular file", [*add, "clip.mp4", "-o", "."]),
        ):
            self.refused(code, reason, *args)

    def test_failed_write_leaves_the_output_as_it_was(self):
        for command in (["add", "still.jpg", "clip.mp4"], ["remove", "photo.jpg"], ["extract", "photo.jpg"]):
            self.done(*command, "-o", "whole")
            size = len(self.read("whole"))
            (self.folder / "whole").unlink()
            # An emulator writes a file of its own, the 152 bytes it shows as /proc/self/auxv, before the tool starts.
            for limit in (*((0, 1) if len(TOOL) == 1 else (200,)), len(STILL) // 2, size - 1):
                self.write("out", b"what was there")
                self.refused(4, "", *command, "-o", "out", "--force", limit=limit)
        with open("/dev/full", "w") as full:
            self.assertEqual(self.tool("info", "still.jpg", stdout=full).returncode, 4)
        closed = subprocess.run(["sh", "-c", '"$@" >&-', "-", *TOOL, "info", "still.jpg"], cwd=self.folder, stderr=-1)
        self.assertEqual((closed.returncode, closed.stderr.count(b"fail to write")), (4, 1))

    def test_output_is_no_wider_than_the_still_and_what_it_replaces(self):
        for still, replaced, extra, expected in (
            (0o640, None, [], 0o640),
            (0o644, 0o640, [], 0o640),
            (0o600, 0o644, [], 0o600),
            (0o666, None, ["--no-preserve"], 0o640),
        ):
            os.chmod(self.folder / "still.jpg", still)
            (self.folder / "out.jpg").unlink(missing_ok=True)
            if replaced:
                self.write("out.jpg", b"old")
                os.chmod(self.folder / "out.jpg", replaced)
            self.tool("add", "still.jpg", "clip.mp4", "-o", "out.jpg", "--force", *extra, umask=0o027)
            self.assertEqual(stat.S_IMODE((self.folder / "out.jpg").stat().st_mode), expected, (still, replaced, extra))
        if os.geteuid() == 0:  # in the group of a still of somebody else, and without the right to give files away
            os.chown(self.folder / "still.jpg", 1, 4711)
            os.chmod(self.folder / "still.jpg", 0o640)
            front = ["setpriv", "--bounding-set=-chown", "--groups=4711"]
            self.tool("add", "still.jpg", "clip.mp4", "-o", "group.jpg", front=front, umask=0o027)
            kept = (self.folder / "group.jpg").stat()
            self.assertEqual((kept.st_uid, kept.st_gid, stat.S_IMODE(kept.st_mode)), (0, 4711, 0o640))

    def test_links_times_and_attributes_are_kept(self):
        os.symlink("still.jpg", self.folder / "link.jpg")
        os.utime(self.folder / "still.jpg", ns=(10**18, 10**18 + 7))
        entries = (1, 6, -1), (2, 4, 65534), (4, 4, -1), (16, 4, -1), (32, 0, -1)
        acl = struct.pack("<I", 2) + b"".join(struct.pack("<HHi", *entry) for entry in entries)
        attributes = lambda name: {each: os.getxattr(self.folder / name, each) for each in os.listxattr(self.folder / name)}
        with contextlib.suppress(OSError):  # where the file system has none
            os.setxattr(self.folder / "still.jpg", "system.posix_acl_access", acl)
        before = attributes("still.jpg")
        self.done("add", "link.jpg", "clip.mp4", "--in-place", "--force")
        self.assertTrue((self.folder / "link.jpg").is_symlink())
        for command in (["set", "still.jpg", "--at", "1s", "--in-place=bytes"], ["remove", "still.jpg", "-o", "out.jpg"]):
            self.done(*command)
            name = "out.jpg" if "-o" in command else "still.jpg"
            self.assertEqual(((self.folder / name).stat().st_mtime_ns, attributes(name)), (10**18 + 7, before))

    def test_folders_are_worked_through_whatever_one_file_is(self):
        photo = self.read("photo.jpg")
        for name in ("in/b.JPG", "in/deep/a.jpeg", "in/deep/\x1b[31m.jpg"):
            (self.folder / name).parent.mkdir(parents=True, exist_ok=True)
            self.write(name, photo)
        self.write("in/bad.jpg", FILES["damaged.jpg"])
        self.write("in/plain.jpg", STILL)
        self.write("in/notes.txt", b"text")
        call = ["extract", "-r", "in", "-d", "out", "-j", "3"]
        result = self.tool(*call)
        self.assertEqual((result.returncode, result.stderr.splitlines()[-1]), (3, "3 done, 1 without a video, 1 failed"))
        clips = sorted(str(path.relative_to(self.folder)) for path in (self.folder / "out").rglob("*") if path.is_file())
        self.assertEqual(clips, ["out/b.mp4", "out/deep/\x1b[31m.mp4", "out/deep/a.mp4"])
        self.assertEqual({self.read(clip) for clip in clips}, {CLIP})
        skipped = self.tool(*call, "--skip-existing").stderr.splitlines()[-1]
        self.assertEqual(skipped, "0 done, 3 skipped, 1 without a video, 1 failed")
        self.assertEqual(self.tool(*call, "-q").stderr.count("is there already"), 3)
        call[4:] = ["both", "-j", "1", "--skip-existing"]  # by two runs at the same time
        runs = [subprocess.Popen([*TOOL, *call], cwd=self.folder, stderr=-1, text=True) for _ in range(2)]
        self.assertNotIn("is there already", "".join([run.communicate()[1] for run in runs]))
        (self.folder / "other").mkdir()
        self.write("other/a.jpeg", photo)
        twins = self.tool("still", "-r", "other", "in/deep", "-d", "twins", "--skip-existing")
        self.assertEqual((twins.returncode, twins.stderr.count("of another file of this run")), (4, 1))
        listing = self.tool("info", "--list", "--files-from", "-", "-0", input="in/b.JPG\0in/deep/\x1b[31m.jpg\0")
        self.assertEqual((listing.returncode, listing.stdout.count("219,772")), (0, 2))
        self.assertNotIn("\x1b", listing.stdout)
        before = self.snapshot()
        self.assertEqual(self.done("remove", "photo.jpg", "--in-place", "--dry-run"), "would write photo.jpg\n")
        self.assertEqual(self.snapshot(), before)

    def test_parts_come_apart_and_together(self):
        self.done("add", "still.jpg", "clip.mp4", "--at", "1500ms", "-o", "photo.jpg", "--force")
        self.tool("split", "photo.jpg", "-d", "parts")
        self.assertEqual(self.read("parts/photo.mp4"), CLIP)
        self.done("xmp", "set", "GCamera:MotionPhoto", "0", "still.jpg", "-o", "no.jpg")
        for photo, still in (("photo.jpg", "alone.jpg"), ("still.jpg", "copy.jpg"), ("no.jpg", "bare.jpg")):
            self.done("still", photo, "-o", still)
            self.assertEqual(self.read(still), STILL)
        self.done("carry", "photo.jpg", "--into", "alone.jpg", "-o", "again.jpg")
        self.assertEqual(self.info("again.jpg")["motionPhoto"]["presentationTimestampUs"], 1_500_000)
        self.assertEqual(subprocess.run([*TOOL, "extract", "again.jpg", "-o", "-"], cwd=self.folder, stdout=-1).stdout, CLIP)

    def test_stills_and_clips_that_belong_together_are_joined(self):
        still, clip = identified(STILL, CLIP, b"0A1B-2C3D")
        (self.folder / "in/deep").mkdir(parents=True)
        self.done("set", "photo.jpg", "--at", "1s", "-o", "second.jpg")
        self.done("convert", "second.jpg", "--to", "published", "-o", "published.jpg")
        pairs = {
            "in/IMG_6.jpg": ("in/IMG_6.mp4", self.read("published.jpg").removesuffix(CLIP), CLIP),  # its clip was taken out
            "in/IMG_5.jpg": ("in/5.mp4", *identified(STILL, CLIP.replace(b"udta", b"free"), b"5", lambda meta: box(b"udta", meta))),
            "in/IMG_1.JPG": ("in/other name.mov", still, clip),
            "in/IMG_2(1).JPG": ("in/IMG_2(1).MP4", STILL, CLIP),
            "in/deep/PXL_3.MP.jpg": ("in/deep/PXL_3.MP", self.read("photo.jpg"), CLIP),  # left over: it has its clip
            "in/alone.jpg": ("in/IMG_2.MP4", STILL, CLIP),
            "in/IMG_4.jpg": ("in/IMG_4.mov", identified(STILL, CLIP, b"one")[0], identified(STILL, CLIP, b"another")[1]),
        }
        for name, (twin, image, movie) in pairs.items():
            self.write(name, image)
            self.write(twin, movie)
        result = self.tool("join", "-r", "in", "-d", "out")
        self.assertEqual((result.returncode, result.stderr.splitlines()[-1]), (0, "5 done"), result.stderr)
        self.assertEqual(self.info("out/IMG_6.jpg")["motionPhoto"]["presentationTimestampUs"], 1_000_000)
        self.assertIn("2 without a clip", result.stderr)
        self.assertEqual(self.read("out/deep/PXL_3.MP.jpg"), self.read("photo.jpg"))
        for name, (_, _, movie) in [*pairs.items()][:5]:
            self.assertEqual(self.read(name.replace("in", "out", 1)).count(movie), 1, name)
        self.assertNotIn("without a clip", self.tool("join", "in/IMG_1.JPG", "in/other name.mov", "-d", "one").stderr)
        self.write("in/IMG_2(1).MOV", CLIP)
        self.refused(3, "has 2 clips", "join", "-q", "in/IMG_2(1).JPG", "in/IMG_2(1).MOV", "in/IMG_2(1).MP4", "-d", "more")
        self.refused(1, "no still has a clip", "join", "-q", "still.jpg", "-d", "more")

    def test_map_accounts_for_every_byte(self):
        self.write("still.jpg", STILL[:2] + b"\xff\xff" + STILL[2:])
        self.write("clip.mp4", CLIP + box(b"free", bytes(800_000)))
        self.done("add", "still.jpg", "clip.mp4", "-o", "photo.jpg", "--force")
        self.done("trailer", "put", "<'&\">", "--type", "4000", "--text", "x", "photo.jpg", "--in-place")
        rows = re.findall(r"^ +([\d,]+) +([\d,]+)  . (.+)$", self.done("map", "photo.jpg"), re.M)
        places = [(int(at.replace(",", "")), int(size.replace(",", "")), name) for at, size, name in rows]
        self.assertEqual([at for at, _, _ in places[1:]], [at + size for at, size, _ in places[:-1]])
        self.assertEqual((places[0][0], sum(size for _, size, _ in places)), (0, len(self.read("photo.jpg"))))
        video = self.info("photo.jpg")["motionPhoto"]["video"]
        self.assertLessEqual({(2, 2, "fill bytes"), (video["position"], video["size"], "video (trailer)")}, {*places})
        self.done("map", "photo.jpg", "--html", "page.html")
        data = re.findall(rb"base64,([A-Za-z0-9+/=]+)", self.read("page.html"))
        self.assertEqual([base64.b64decode(each) for each in data], [self.read("photo.jpg")[: video["position"]], self.read("clip.mp4")])
        self.done("map", "photo.jpg", "--svg", "page.svg")
        drawing = ElementTree.fromstring(self.read("page.svg"))
        self.assertEqual((len(drawing), "".join(drawing.itertext()).count("<'&\">")), (5 * len(places), 2))

    def test_both_forms_carry_the_same_video(self):
        result = self.tool("add", "still.jpg", "isom.mp4", "--at", "1s", "-o", "photo.jpg", "--force")
        self.assertEqual((result.returncode, result.stderr.count("'isom' becomes 'mp42'")), (0, 1))
        self.done("trailer", "put", "Note", "--type", "4000", "--text", "by the sea", "photo.jpg", "--in-place")
        self.refused(3, "Note", "convert", "photo.jpg", "--to", "published", "-o", "published.jpg")
        self.tool("convert", "photo.jpg", "--to", "published", "--drop-records", "-o", "published.jpg")
        self.assertIn("becomes 'mp42'", self.tool("convert", "published.jpg", "--to", "trailer", "-o", "back.jpg").stderr)
        for name, source in (("photo.jpg", "trailer"), ("published.jpg", "directory"), ("back.jpg", "trailer")):
            motion = self.info(name)["motionPhoto"]
            self.assertEqual(self.claimed(name), (True, [len(self.read(name)) - motion["video"]["position"]]))
            self.assertEqual((motion["source"], motion["presentationTimestampUs"]), (source, 1_000_000))
            self.assertEqual(json.loads(self.done("check", "--json", name))["verdict"], "sound")
            self.done("extract", name, "-o", name + ".mp4")
            self.assertEqual(self.read(name + ".mp4"), self.read("isom.mp4") if source == "directory" else CLIP)
            self.done("set", name, "--at", "0.5s", "--in-place")
            self.done("replace", name, "clip.mp4", "--at", "700ms", "-o", "replaced.jpg", "--force")
            self.assertEqual(self.info("replaced.jpg")["motionPhoto"]["presentationTimestampUs"], 700_000)
        self.done("remove", "published.jpg", "-o", "bare.jpg")
        self.assertEqual(self.claimed("bare.jpg"), (False, []))
        self.write("orphan.jpg", STILL + CLIP)
        self.assertIn("orphan-movie", self.tool("check", "orphan.jpg").stdout)
        self.tool("repair", "orphan.jpg", "-o", "claimed.jpg")
        self.assertEqual(self.info("claimed.jpg")["motionPhoto"]["video"]["size"], len(CLIP))
        self.tool("repair", "orphan.jpg", "--drop-orphans", "--in-place")
        self.assertEqual((self.read("orphan.jpg"), self.tool("check", "orphan.jpg").returncode), (STILL, 1))

    def test_records_and_properties_go_in_and_out(self):
        self.write("data.bin", bytes(range(256)))
        for name in ("still.jpg", "photo.jpg"):
            for way in ("--in-place", "--in-place=bytes"):
                self.done("trailer", "put", "Note", "--type", "4000", "--data", "data.bin", name, way)
                self.done("trailer", "get", "Note", name, "-o", "again.bin", "--force")
                self.assertEqual(self.read("again.bin"), self.read("data.bin"))
                self.done("xmp", "set", "xmp:Rating", "5", name, way)
                self.assertEqual(self.done("xmp", "get", "xmp:Rating", name), "5\n")
                self.assertEqual(self.info(name)["motionPhoto"] is not None, name == "photo.jpg")
                self.done("xmp", "remove", "xmp:Rating", name, way)
                self.done("trailer", "remove", "Note", name, way)
                self.assertEqual(self.done("trailer", "list", name).count("\n"), name == "photo.jpg")
        for code, reason, args in (
            (2, "needs its type", ["trailer", "put", "New", "--text", "x", "photo.jpg", "--in-place"]),
            (2, "motionphoto remove", ["trailer", "remove", "MotionPhoto_Data", "photo.jpg", "--in-place"]),
            (1, "has no record 'New'", ["trailer", "get", "New", "photo.jpg"]),
            (2, "prefix 'nix'", ["xmp", "set", "nix:Rating", "5", "photo.jpg", "--in-place"]),
            (1, "has no property", ["xmp", "remove", "xmp:Rating", "photo.jpg", "--in-place"]),
            (3, "--force", ["debug-info", "put", "--data", "data.bin", "photo.jpg", "--in-place"]),
        ):
            self.refused(code, reason, *args)

    def test_info_goes_on_behind_a_file_that_fails(self):
        self.write("named.jpg", STILL + trailer((1, b"\xff\x1b[31m", b"abc"), (2608, b"MotionPhoto_Data", b"mpv2" + bytes(8))))
        result = self.tool("info", "--json", "still.jpg", "text.txt", "named.jpg")
        self.assertEqual((result.returncode, result.stderr.count("\n")), (3, 1))
        plain, bad, named = map(json.loads, result.stdout.splitlines())
        self.assertEqual((plain["schema"], plain["file"], plain["imageSize"]), (1, "still.jpg", len(STILL)))
        self.assertEqual((bad["file"], bad["error"]["exitCode"]), ("text.txt", 3))
        self.assertEqual(json.loads(self.tool("check", "--json", "text.txt").stdout), bad)
        record = named["trailer"]["records"][0]
        self.assertEqual((record["name"][1:], record["size"]), ("\x1b[31m", 3))
        self.assertEqual((named["motionPhoto"]["valid"], named["motionPhoto"]["video"]["mimeType"]), (False, None))
        result = self.tool("info", "text.txt", "named.jpg", errors="replace")
        self.assertIn("motion photo  damaged", result.stdout)
        self.assertNotIn("\x1b", result.stdout)
        self.write("cut.heic", bytes.fromhex("00000014667479706865696300000000686569630000009966726565"))
        for args in (["still", "--in-place"], ["remove", "--in-place"], ["xmp", "get", "xmp:Rating"], ["trailer", "list"]):
            self.refused(3, "do not add up", *args, "cut.heic")
        self.refused(3, "its video is damaged", "extract", "named.jpg", "-o", "out.mp4")
        self.write("claimless.jpg", STILL + trailer((2608, b"MotionPhoto_Data", CLIP)))
        self.assertIn("xmp-claim: expected", self.tool("check", "claimless.jpg").stdout)
        self.done("remove", "named.jpg", "--in-place")
        self.assertEqual([record["type"] for record in self.info("named.jpg")["trailer"]["records"]], [1])
        self.assertIn("MediaFile", self.tool("-v", "info", "still.jpg").stderr)
        self.assertRegex(self.tool("info", "-v", "damaged.jpg").stderr, r"damaged\.jpg: \[metadata_utils/\w+:\d+\] ")

    @unittest.skipUnless(os.path.exists("/dev/pts/ptmx"), "no terminal can be made here")
    def test_progress_counts_what_is_done(self):
        terminal, side = pty.openpty()
        call = [*TOOL, "info", "--list", "--files-from", "-", "-j", "1"]
        running = subprocess.Popen(call, cwd=self.folder, stdin=-1, stdout=-3, stderr=side, bufsize=0)
        self.addCleanup(running.kill)
        named = 0
        while named < 400 and not select.select([terminal], [], [], 0.25)[0]:
            named += running.stdin.write(b"still.jpg\n") // 10
        shown = re.match(rb"\r\x1b\[K(\d+)", os.read(terminal, 99))
        running.communicate(timeout=60)
        self.assertIn(int(shown[1]), range(1, named + 1))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
