# SPDX-License-Identifier: Apache-2.0
"""exports_test.py LIBRARY ORDER SYMBOLS [--write]: what the shared library exports (its own namespace, its C functions and the
type of the toolkit's exception; on this architecture exactly the list SYMBOLS, which debian/update-symbols writes), and that the
virtual functions of its interfaces stand in the order of the list ORDER, which --write writes."""
import re
import subprocess
import sys
from itertools import zip_longest

ALLOWED = re.compile(r"_ZT[VISTc]?N7android4lumo|_ZT[hv]\w*?N7android4lumo|_ZNK?7android4lumo|_ZT[IS]9XMP_Error$|mu_")
NEEDED = ["_ZTI9XMP_Error", "_ZTIN7android4lumo5ErrorE", "_ZTIN7android4lumo8XMPErrorE"]
# An interface without bodies has no names in its table: those of the class that fills it are read.
TABLES = {"MotionPhotoEdit": "MotionPhotoEditImpl", "QRTEdit": "QRTEditImpl", "XMPEdit": "XMPEditImpl",
          "ExifEdit": "ExifEditImpl", "ImageMetaReader": "JPEGMetaReader", "ImageMetaWriter": "JPEGMetaWriter"}
library = sys.argv[1]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()


def vtables():
    places, functions, pointers = {}, {}, {}
    for line in run("nm", "-S", "--defined-only", library):
        if match := re.match(r"(\w+) (\w+) \w _ZTVN7android4lumo\d+(\w+)E$", line):
            places[match[3]] = range(int(match[1], 16) + 16, int(match[1], 16) + int(match[2], 16), 8)
    for line in run("nm", "-C", "--defined-only", library):
        if match := re.match(r"(\w+) [TtWw] (android::lumo::.*)", line):
            functions.setdefault(int(match[1], 16), match[2])
    for line in run("readelf", "-rW", library):
        if match := re.match(r"(\w+) +\w+ R_X86_64_(?:RELATIVE|64) +(\w+)", line):
            pointers[int(match[1], 16)] = int(match[2], 16)
    for interface, filled in TABLES.items():
        for _, slot in zip(places[interface], places[filled]):
            text = functions.get(pointers.get(slot), "?").replace("android::lumo::", "").replace("[abi:cxx11]", "")
            text = re.sub(r"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> ?>", "std::string", text)
            yield f"{interface}: {text.removeprefix(filled + '::').replace(filled, interface)}"


names = [line.split()[-1] for line in run("nm", "-D", "--defined-only", library)]
foreign = [name for name in names if not ALLOWED.match(name)]
missing = [name for name in NEEDED if name not in names]
if foreign or missing or len(names) < 50:
    sys.exit(f"{len(names)} symbols; not to be exported: {foreign}; missing: {missing}")
if any("R_X86_64_RELATIVE" in line for line in run("readelf", "-rW", library)):
    listed = {match[2]: match[1] for match in re.finditer(r"^ (\(optional=\w+\))?(\w+)@", open(sys.argv[3]).read(), re.M)}
    unlisted = set(names) - set(listed)
    gone = {name for name, mark in listed.items() if not mark} - set(names)
    if unlisted or gone:
        sys.exit(f"exported, and not in {sys.argv[3]}: {unlisted}; in it, and no more exported: {gone}")
    order = list(vtables())
    if "--write" in sys.argv:
        open(sys.argv[2], "w").write("\n".join(order) + "\n")
    elif differing := [pair for pair in zip_longest(order, open(sys.argv[2]).read().splitlines()) if pair[0] != pair[1]]:
        sys.exit(f"a virtual function, and what the list has in its place: {differing[0]}")
