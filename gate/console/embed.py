#!/usr/bin/env python3
"""Writes a source with files in it, each compressed.

Usage: embed.py OUTPUT FILE...
"""

import gzip
import hashlib
import os
import sys

TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8",
         ".js": "text/javascript; charset=utf-8", ".svg": "image/svg+xml"}
BYTES_A_LINE = 24


def literal(data):
    lines = (data[start:start + BYTES_A_LINE] for start in range(0, len(data), BYTES_A_LINE))
    return "\n".join('    "' + "".join(f"\\{byte:03o}" for byte in line) + '"' for line in lines)


def entry(path):
    with open(path, "rb") as file:
        data = file.read()
    packed = gzip.compress(data, 9, mtime=0)
    name = os.path.basename(path)
    kind = TYPES[os.path.splitext(name)[1]]
    tag = hashlib.sha256(data).hexdigest()[:16]
    return (f'  {{"{name}", "{kind}", "\\"{tag}\\"",\n   std::string_view(\n'
            f"{literal(packed)},\n   {len(packed)})}},\n")


def main(output, paths):
    text = ('#include "gate/console/AssetList.h"\n\n#include <array>\n\nnamespace {\n\n'
            f"constexpr std::array<Asset, {len(paths)}> kAssets{{{{\n"
            + "".join(entry(path) for path in sorted(paths, key=os.path.basename))
            + "}};\n\n}  // namespace\n\n"
            "std::span<const Asset> AllAssets() { return kAssets; }\n")
    with open(output, "w", encoding="ascii") as file:
        file.write(text)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
