# SPDX-License-Identifier: Apache-2.0
"""The tool ended before, in the middle of and after each call that changes a file: what it writes is whole or absent, and
of what it was writing nothing stays, whatever signal it was.

    kill_test.py SHIM TOOL SAMPLES   SHIM: kill_at.c, built to be preloaded
"""

import itertools
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SHIM, TOOL, SAMPLES = sys.argv[1], sys.argv[2], Path(sys.argv[3])
STILL, CLIP = (SAMPLES / "still.jpg").read_bytes(), (SAMPLES / "clip.mp4").read_bytes()
ANOTHER = CLIP + b"\0\0\0\x40free" + bytes(56)
ARGUMENTS = {"add": ["clip"], "replace": ["another"], "remove": [], "extract": []}
OUTPUTS = {
    "into a new file": (["-o", "out"], "out", None),
    "in place of a file": (["-o", "out", "--force"], "out", b"what was there"),
    "in place of the still": (["--in-place"], "photo", None),
    "into the still's bytes": (["--in-place=bytes"], "photo", None),
}
SIGNALS = ("TERM", "HUP", "INT", "QUIT", "PIPE", "XCPU", "ALRM", "USR1")


class KillTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir="/dev/shm" if Path("/dev/shm").is_dir() else None)
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_tool(self, photo, command, output, **kill):
        """Return code, what the output is, the still, and the names of further files."""
        options, name, old = OUTPUTS[output]
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        given = {"photo": photo, "clip": CLIP, "another": ANOTHER, **({"out": old} if old else {})}
        for each, content in given.items():
            (folder / each).write_bytes(content)
        environment = {**os.environ, "LD_PRELOAD": SHIM, **{key: str(value) for key, value in kill.items()}}
        call = [TOOL, command, "photo", *ARGUMENTS[command], *options]
        code = subprocess.run(call, cwd=folder, env=environment, capture_output=True, timeout=120).returncode
        held = {path.name: path.read_bytes() for path in folder.iterdir()}
        shutil.rmtree(folder)  # hundreds of them are more than some machines have memory for files
        return code, held.get(name), held["photo"], {*held} - {*given, name}

    def edited(self, photo, command):
        return self.run_tool(photo, command, "into a new file")[1]

    def end_everywhere(self, command, output, hows, signals, named):
        """Ends it at every call; the forms that have no temporary name leave nothing even after KILL."""
        before = STILL if command == "add" else self.edited(STILL, "add")
        after = CLIP if command == "extract" else self.edited(before, command)
        old = OUTPUTS[output][2] if OUTPUTS[output][1] == "out" else before

        def one_run(number, how):
            ending = signals[number % len(signals)]
            kill = {"KILL_AT": number, "KILL_HOW": how, "KILL_SIGNAL": int(getattr(signal, "SIG" + ending))}
            kill |= {"KILL_NAMED": 1} if named else {}
            code, content, still, left = self.run_tool(before, command, output, **kill)
            context = (command, output, how, number, ending, named)
            self.assertIn(content, (old, after), context)
            if OUTPUTS[output][1] == "out":
                self.assertEqual(still, before, context)
            unnamed = not named and output == "into a new file"
            may_stay = ending == "KILL" and not unnamed
            self.assertTrue(len(left) <= may_stay and all(name.startswith(".motionphoto-") for name in left), (context, left))
            if code >= 0:
                self.assertEqual((code, content), (0, after), context)
            return code < 0

        for how in hows:
            if signals == ["KILL"]:
                ended = next(number for number in itertools.count() if not one_run(number, how))
            else:  # which may be held back for a while
                ended = sum([one_run(number, how) for number in range(28)])
            if output != "into the still's bytes":  # where all is over before a signal counts, if the machine is slow
                self.assertGreater(ended, 0, ("no call was ended", command, output, how))

    def test_killed_output_is_whole_or_absent(self):
        for command, (output, named) in zip(
            itertools.cycle(ARGUMENTS), itertools.product([*OUTPUTS][:3], (False, True))
        ):
            if command == "extract" and output == "in place of the still":
                command = "remove"
            self.end_everywhere(command, output, ("before", "half", "after"), ["KILL"], named)

    def test_other_signals_leave_nothing_behind(self):
        for output in OUTPUTS:
            self.end_everywhere("replace", output, ("before", "after"), list(SIGNALS), named=True)

    def test_a_read_that_fails_is_the_fault_of_what_was_read(self):
        photo = self.edited(STILL, "add")
        for number in itertools.count():
            code, content, still, left = self.run_tool(photo, "extract", "in place of a file", READ_FAILS=number)
            if code == 0:
                break
            self.assertEqual((code, content, still, left), (3, b"what was there", photo, set()), number)
        self.assertGreater(number, 0, "no read failed")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
