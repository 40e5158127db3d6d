#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Motion photos from Python, without a compiler: the library's C interface by ctypes.

folder.py info FOLDER             what each photo carries
folder.py extract FOLDER OUT      the video of each photo into OUT
folder.py add STILL CLIP OUT      a still with a clip into a new file
"""
import ctypes
import os
import sys

lib = ctypes.CDLL(os.environ.get("METADATA_UTILS", "libmetadata_utils.so.1"))
lib.mu_last_error.restype = ctypes.c_char_p


class Video(ctypes.Structure):
    _fields_ = [("source", ctypes.c_int32), ("status", ctypes.c_int32), ("position", ctypes.c_uint32), ("size", ctypes.c_uint32),
                ("moment_us", ctypes.c_int64), ("mime_type", ctypes.c_char_p), ("reason", ctypes.c_char_p)]


class Photo:
    def __init__(self, path):
        self.handle = ctypes.c_void_p()
        self.call("mu_open_path", os.fsencode(path), 0, ctypes.byref(self.handle), own=False)

    def call(self, function, *arguments, own=True):
        if getattr(lib, function)(*([self.handle] if own else []), *arguments) != 0:
            raise OSError(lib.mu_last_error().decode())

    __enter__ = lambda self: self

    def __exit__(self, *exception):
        lib.mu_close(self.handle)


def main(command, first, *more):
    if command == "add":
        with Photo(first) as still, Photo(more[0]) as clip:
            still.call("mu_stage_video", clip.handle, ctypes.c_int64(-1))
            open(more[1], "xb").close()
            if lib.mu_commit_to_path(still.handle, os.fsencode(more[1])) != 0:
                os.unlink(more[1])  # so that it can be tried again
                sys.exit(lib.mu_last_error().decode())
        return
    for entry in sorted(filter(os.DirEntry.is_file, os.scandir(first)), key=lambda entry: entry.name):
        try:
            with Photo(entry.path) as photo:
                photo.call("mu_locate_video", ctypes.byref(video := Video()))
                print(f"{entry.name}: {video.size} bytes at {video.position}, {video.mime_type.decode()}"
                      if video.status == 1 else f"{entry.name}: no video")
                if command == "extract" and video.status == 1:
                    with open(os.path.join(more[0], entry.name + ".mp4"), "xb") as out:
                        photo.call("mu_copy_video_to_descriptor", out.fileno())
        except OSError as error:
            print(f"{entry.name}: {error}")


main(*sys.argv[1:])
