# SPDX-License-Identifier: Apache-2.0
"""The shared library exports what its header declares and nothing else, under its name.

    check_abi.py NM HEADER LIBRARY SONAME
"""

import pathlib
import re
import subprocess
import sys

nm, header, library, soname = sys.argv[1:]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


declared = set(re.findall(r"^MDX_API [^;]*?(\w+)\(", pathlib.Path(header).read_text(), re.M))
# Sanitizers add names of their own, which begin with two underscores.
exported = {name for name in re.findall(r" (\w+)$", run(nm, "-D", "--defined-only", library), re.M)
            if not name.startswith("__")}
names = re.findall(r"\(SONAME\).*\[(.*)\]", run("readelf", "-d", library))
if not declared or exported != declared or names != [soname]:
    print("declared, not exported:", sorted(declared - exported))
    print("exported, not declared:", sorted(exported - declared))
    print("name:", names, "wanted:", soname)
    sys.exit(1)
