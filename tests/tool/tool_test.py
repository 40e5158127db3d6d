"""What the tool promises on the command line: exit codes, outputs that are whole or absent, reports that agree with the
bytes. Run as: tool_test.py TOOL SAMPLES [unittest arguments]; TOOL may be "EMULATOR;ITS ARGUMENT;...;TOOL". Shares no
code with the library."""

import json
import os
import resource
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

TOOL, SAMPLES = list(filter(None, sys.argv[1].split(";"))), Path(sys.argv[2])
STILL = (SAMPLES / "still.jpg").read_bytes()
CLIP = (SAMPLES / "clip.mp4").read_bytes()


def trailer(*records):
    """(type, name, data) records and the tail that closes them."""
    stored = [struct.pack("<II", kind << 16, len(name)) + name + data for kind, name, data in records]
    tail = b"QRTH" + struct.pack("<II", 0, len(stored))
    for i, (kind, _, _) in enumerate(records):
        tail += struct.pack("<III", kind << 16, sum(map(len, stored[i:])), len(stored[i]))
    return b"".join(stored) + tail + struct.pack("<I", len(tail)) + b"QRTT"


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.write("still.jpg", STILL)
        self.write("clip.mp4", CLIP)

    def write(self, name, content):
        (self.folder / name).write_bytes(content)

    def read(self, name):
        return (self.folder / name).read_bytes()

    def tool(self, *args, limit=None, **options):
        def limited():
            if limit is not None:
                resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        return subprocess.run([*TOOL, *args], cwd=self.folder, preexec_fn=limited, text=True, timeout=120, **options)

    def done(self, *args):
        result = self.tool(*args)
        self.assertEqual((result.returncode, result.stderr), (0, ""), args)
        return result.stdout

    def info(self, name):
        return json.loads(self.done("info", "--json", name))

    def snapshot(self):
        small = (path for path in self.folder.iterdir() if path.is_file() and path.stat().st_size < 1 << 30)
        return {path.name: path.read_bytes() for path in small}

    def refused(self, code, reason, *args, **options):
        before = self.snapshot()
        result = self.tool(*args, **options)
        self.assertEqual(result.returncode, code, (args, result.stderr))
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertIn(reason, result.stderr)
        self.assertNotIn("metadata_utils/", result.stderr)
        self.assertEqual(self.snapshot(), before, args)

    def test_report_agrees_with_the_bytes_and_the_video_comes_back(self):
        self.done("add", "still.jpg", "clip.mp4", "-o", "photo.jpg")
        photo, report = self.read("photo.jpg"), self.info("photo.jpg")
        motion, video = report["motionPhoto"], report["motionPhoto"]["video"]
        self.assertEqual(photo[video["position"] :][: video["size"]], CLIP)
        self.assertEqual((report["mimeType"], report["fileSize"]), ("image/jpeg", len(photo)))
        self.assertEqual((motion["valid"], motion["format"], motion["xmpVersion"]), (True, "mpv1", 1))
        self.assertEqual((video["mimeType"], video["padding"]), ("video/mp4", video["position"] - report["imageSize"]))
        self.assertAlmostEqual(video["durationUs"], 2_500_000, delta=50_000)
        self.assertEqual(motion["presentationTimestampUs"], video["durationUs"])
        self.assertEqual(report["trailer"]["size"], len(photo) - report["imageSize"])
        self.assertIn(
            {"type": 2608, "name": "MotionPhoto_Data", "position": video["position"], "size": len(CLIP)},
            report["trailer"]["records"],
        )
        primary, item = report["xmp"]["items"]
        self.assertEqual((primary["semantic"], primary["mime"]), ("Primary", "image/jpeg"))
        self.assertEqual(primary["Padding"], str(video["padding"]))
        self.assertEqual((item["semantic"], item["Length"]), ("MotionPhoto", str(len(photo) - video["position"])))
        self.assertIn("GCamera:MotionPhoto", [entry["path"] for entry in report["xmp"]["properties"]])
        self.assertIsNone(report["debugInfo"])
        self.assertRegex(self.done("info", "photo.jpg"), r"(?m)^  video +219,772 bytes at [\d,]+, video/mp4, 2\.5\d* s$")

        self.done("extract", "photo.jpg", "-o", "again.mp4")
        self.assertEqual(self.read("again.mp4"), CLIP)
        self.done("remove", "photo.jpg", "-o", "bare.jpg")
        self.assertNotIn(b"ftypmp42", self.read("bare.jpg"))
        bare = self.info("bare.jpg")
        self.assertEqual((bare["motionPhoto"], bare["trailer"]), (None, None))
        self.assertEqual(self.read("still.jpg"), STILL)

    def test_timestamp_stays_through_other_videos(self):
        self.write("longer.mp4", CLIP + struct.pack(">I4s", 64, b"free") + bytes(56))
        for command in (
            ["add", "still.jpg", "clip.mp4", "--timestamp-us", "1234567"],
            ["add", "still.jpg", "longer.mp4"],
            ["replace", "still.jpg", "clip.mp4"],
        ):
            self.done(*command, "--in-place")
            report = self.info("still.jpg")["motionPhoto"]
            self.assertEqual(report["presentationTimestampUs"], 1234567, command)
            self.assertEqual(report["video"]["size"], len(self.read(command[2])), command)
            self.assertEqual(self.read("still.jpg").count(b"ftypmp42"), 1, command)

    def test_what_is_refused_changes_nothing(self):
        self.write("isom.mp4", CLIP.replace(b"ftypmp42", b"ftypisom", 1))
        self.write("short.mp4", CLIP[:125_000])
        self.write("text.txt", b"neither an image nor a video")
        self.write("damaged.jpg", STILL + struct.pack("<II", 999, 1) + b"QRTH" + struct.pack("<III", 0, 9, 12) + b"QRTT")
        self.write("out.jpg", b"what was there")
        self.done("add", "still.jpg", "clip.mp4", "-o", "photo.jpg")
        with open(self.folder / "huge.mp4", "wb") as huge:
            huge.write(CLIP)
            huge.truncate(2**32 - 1000)
        add = ["add", "still.jpg"]
        for code, reason, args in (
            (2, "subcommand", []),
            (2, "VIDEO", [*add, "-o", "out.jpg"]),
            (2, "either -o OUT or --in-place", [*add, "clip.mp4"]),
            (2, "either -o OUT or --in-place", [*add, "clip.mp4", "--in-place", "-o", "out.jpg"]),
            (2, "--timestamp-us", [*add, "clip.mp4", "--in-place", "--timestamp-us", "-1"]),
            (2, "--in-place", [*add, "clip.mp4", "-o", "./still.jpg"]),
            (2, "both input and output", [*add, "clip.mp4", "-o", "clip.mp4"]),
            (2, "both input and output", ["extract", "photo.jpg", "-o", "photo.jpg"]),
            (2, "both as the still and as the video", [*add, "still.jpg", "--in-place"]),
            (3, "ffmpeg -i IN -c copy -brand mp42 OUT.mp4", [*add, "isom.mp4", "--in-place"]),
            (3, "125,000", [*add, "short.mp4", "--in-place"]),
            (3, "125,000", ["replace", "photo.jpg", "short.mp4", "-o", "out.jpg"]),
            (3, "4 GiB", [*add, "huge.mp4", "--in-place"]),
            (3, "No such file", [*add, "absent.mp4", "-o", "out.jpg"]),
            (3, "No such file", ["info", "absent.jpg"]),
            (3, "regular file", ["info", "."]),
            (3, "file type", ["info", "text.txt"]),
            (3, "video/mp4", ["add", "clip.mp4", "still.jpg", "-o", "out.jpg"]),
            (3, "damaged.jpg", ["info", "--json", "damaged.jpg"]),
            (3, "damaged.jpg", ["add", "damaged.jpg", "clip.mp4", "--in-place"]),
            (1, "no motion photo", ["replace", "still.jpg", "clip.mp4", "--in-place"]),
            (1, "no motion photo", ["remove", "still.jpg", "--in-place"]),
            (1, "no motion photo", ["extract", "still.jpg", "-o", "out.jpg"]),
            (4, "No such file", [*add, "clip.mp4", "-o", "absent/out.jpg"]),
            (4, "regular file", [*add, "clip.mp4", "-o", "."]),
        ):
            with self.subTest(args=args):
                self.refused(code, reason, *args)

    def test_failed_write_leaves_the_output_as_it_was(self):
        self.done("add", "still.jpg", "clip.mp4", "-o", "photo.jpg")
        for command in (["add", "still.jpg", "clip.mp4"], ["remove", "photo.jpg"], ["extract", "photo.jpg"]):
            self.done(*command, "-o", "whole")
            size = len(self.read("whole"))
            (self.folder / "whole").unlink()
            # An emulator writes a file of its own, the 152 bytes it shows as /proc/self/auxv, before the tool starts.
            for limit in (*((0, 1) if len(TOOL) == 1 else (200,)), len(STILL) // 2, size - 1):
                for existing in (False, True):
                    with self.subTest(command=command[0], limit=limit, existing=existing):
                        if existing:
                            self.write("out", b"what was there")
                        self.refused(4, "", *command, "-o", "out", limit=limit)
                        (self.folder / "out").unlink(missing_ok=True)
        with open("/dev/full", "w") as full:
            self.assertEqual(self.tool("info", "still.jpg", stdout=full).returncode, 4)

    def test_output_keeps_mode_and_link_of_the_file_it_replaces(self):
        self.write("real.jpg", b"old")
        os.chmod(self.folder / "real.jpg", 0o640)
        os.symlink("real.jpg", self.folder / "link.jpg")
        self.done("add", "still.jpg", "clip.mp4", "-o", "link.jpg")
        self.assertTrue((self.folder / "link.jpg").is_symlink())
        self.assertEqual(stat.S_IMODE((self.folder / "real.jpg").stat().st_mode), 0o640)
        self.tool("extract", "real.jpg", "-o", "new.mp4", umask=0o027)
        self.assertEqual(stat.S_IMODE((self.folder / "new.mp4").stat().st_mode), 0o640)

    def test_signal_takes_the_temporary_file_along(self):
        with open(self.folder / "long.mp4", "wb") as video:
            video.write(CLIP)
            video.truncate(400 << 20)
        command = [*TOOL, "add", "still.jpg", "long.mp4", "--timestamp-us", "0", "-o", "out.jpg"]
        process = subprocess.Popen(command, cwd=self.folder)
        while process.poll() is None and not any(path.stat().st_size for path in self.folder.glob(".motionphoto-*")):
            time.sleep(0.001)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(60), -signal.SIGTERM)
        self.assertEqual({path.name for path in self.folder.iterdir()}, {"still.jpg", "clip.mp4", "long.mp4"})

    def test_info_goes_on_behind_a_file_that_fails(self):
        self.write("named.jpg", STILL + trailer((1, b"\xff\x1b[31m", b"abc"), (2608, b"MotionPhoto_Data", b"mpv2" + bytes(8))))
        self.write("text.txt", b"text")
        result = self.tool("info", "--json", "still.jpg", "text.txt", "named.jpg")
        self.assertEqual((result.returncode, result.stderr.count("\n")), (3, 1))
        plain, named = json.loads(result.stdout)
        self.assertEqual((plain["file"], named["file"]), ("still.jpg", "named.jpg"))
        self.assertEqual(plain["imageSize"], len(STILL))
        self.assertEqual([record["name"][1:] for record in named["trailer"]["records"]][0], "\x1b[31m")
        self.assertEqual(named["trailer"]["records"][0]["size"], 3)
        self.assertEqual((named["motionPhoto"]["valid"], named["motionPhoto"]["video"]["mimeType"]), (False, None))
        result = self.tool("info", "text.txt", "named.jpg", errors="replace")
        self.assertEqual(result.returncode, 3)
        self.assertIn("motion photo  damaged", result.stdout)
        self.assertNotIn("\x1b", result.stdout)
        self.refused(1, "no motion photo", "extract", "named.jpg", "-o", "out.mp4")
        self.done("remove", "named.jpg", "--in-place")
        self.assertEqual([record["type"] for record in self.info("named.jpg")["trailer"]["records"]], [1])

    def test_library_log_is_shown_when_asked_for(self):
        self.write("text.txt", b"text")
        self.assertIn("MediaFile", self.tool("-v", "info", "still.jpg").stderr)
        self.assertRegex(self.tool("info", "-v", "text.txt").stderr, r"text\.txt: \[metadata_utils/MediaFile:\d+\] ")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
