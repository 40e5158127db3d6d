# SPDX-License-Identifier: Apache-2.0
"""What the shared library exports: its own namespace, its C functions and the type of the toolkit's exception."""
import re
import subprocess
import sys

ALLOWED = re.compile(r"_ZT[VISTc]?N7android4lumo|_ZT[hv]\w*?N7android4lumo|_ZNK?7android4lumo|_ZT[IS]9XMP_Error$|mu_")
NEEDED = ["_ZTI9XMP_Error", "_ZTIN7android4lumo5ErrorE", "_ZTIN7android4lumo8XMPErrorE"]

lines = subprocess.run(["nm", "-D", "--defined-only", sys.argv[1]], check=True, capture_output=True, text=True).stdout
names = [line.split()[-1] for line in lines.splitlines()]
foreign = [name for name in names if not ALLOWED.match(name)]
missing = [name for name in NEEDED if name not in names]
if foreign or missing or len(names) < 50:
    sys.exit(f"{len(names)} symbols; not to be exported: {foreign}; missing: {missing}")
