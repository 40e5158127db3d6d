# SPDX-License-Identifier: Apache-2.0
"""Android.bp COMPILE_COMMANDS: the platform's build compiles the sources that CMake's build for a device does, with the
same definitions."""
import glob
import json
import os
import re
import sys

OURS, TOOLKIT = "libmetadata_utils", "metadata_utils_xmp_core"
text = open(sys.argv[1]).read()
commands = json.load(open(sys.argv[2]))
toolkit = os.path.realpath(glob.glob(".deps/xmp-toolkit/*/XMPCore")[0] + "/..")


def module(name):
    body = next(part for part in re.split(r"^}$", text, flags=re.M) if f'name: "{name}"' in part)
    return {key: re.findall(r'"([^"]*)"', value) for key, value in re.findall(r"(\w+): (\[[^\]]*\]|\".*\")", body)}


def sources(modules):
    found = set()
    for each in map(module, modules):
        for pattern in each["srcs"]:
            paths = glob.glob(re.sub("^xmp-toolkit", toolkit, pattern))
            if not paths:
                sys.exit(f"{pattern} names no file")
            found |= {os.path.realpath(path) for path in paths}
    return found


def definitions(flags):
    return {flag for flag in flags if flag.startswith("-D") and not flag.startswith("-D_FILE_OFFSET_BITS")}


failures = []
impl = TOOLKIT + "_impl"
for modules, flags, targets in [([OURS], module(OURS)["cflags"], ("metadata_utils_objects", "boxes")),
                                ([TOOLKIT, impl], module("metadata_utils_xmp_defaults")["cflags"], ("xmp_core",))]:
    built = {c["file"]: c["command"].split() for c in commands if any(f"/{t}.dir/" in c["command"] for t in targets)}
    difference = sources(modules) ^ set(map(os.path.realpath, built))
    failures += [f"not compiled by both builds: {path}" for path in sorted(difference)]
    for path, command in built.items():
        wanted = definitions(flags)
        wanted |= definitions(module(impl)["cflags"]) if path.endswith("XMPCore_Impl.cpp") else set()
        if "/boxes/" not in path and definitions(command) != wanted:
            failures.append(f"{path}: {definitions(command)} here, {wanted} in {sys.argv[1]}")
    print(f"{modules[0]}: {len(built)} files")
sys.exit("\n".join(failures) if failures else 0)
