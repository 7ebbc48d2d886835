# SPDX-License-Identifier: Apache-2.0
"""The shared library exports what its headers declare and nothing else, each name in a version node, and
every struct of theirs that can be filled begins with its size.

    check_abi.py LIBRARY SONAME HEADER…
"""

import pathlib
import re
import subprocess
import sys

library, soname, *headers = sys.argv[1:]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


text = "".join(pathlib.Path(header).read_text() for header in headers)
declared = set(re.findall(r"^MDX_API [^;]*?(\w+)\(", text, re.M))
symbols = run("readelf", "--dyn-syms", "--wide", library)
versions = dict(re.findall(r" (?:FUNC|OBJECT) .* DEFAULT +\d+ (\w+)(?:@@(\w+))?$", symbols, re.M))
exported = set(versions)
without_node = sorted(name for name, node in versions.items() if not node.startswith("MDXCLIENT_"))
names = re.findall(r"\(SONAME\).*\[(.*)\]", run("readelf", "-d", library))
structs = re.findall(r"^typedef struct (\w+) \{\n( *\w.*)", text, re.M)
fixed = [name for name, first in structs if not first.startswith("  uint32_t size;")]
if not declared or exported != declared or without_node or names != [soname] or fixed or not structs:
    print("declared, not exported:", sorted(declared - exported))
    print("exported, not declared:", sorted(exported - declared))
    print("exported without a version node:", without_node)
    print("name:", names, "wanted:", soname)
    print("structs that cannot grow:", fixed)
    sys.exit(1)
