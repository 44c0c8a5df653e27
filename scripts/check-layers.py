#!/usr/bin/env python3
"""Fails when a file includes a header of a layer it may not use.

The layers, lowest first (docs/ARCHITECTURE.md, "Layers"):

    foundation <- platform <- log <- xml <- vast/errors <- vast/model <- vast
                                 log <- system <- net <------------------- vast <- tracking
    tools (tools/) above all of the library

A layer may include its own headers and those of the layers under it, nothing else: xml stands
beside system and net and includes neither, and vast/errors and vast/model do not use net.
A subsystem's internal/ folder is part of its layer. No file of the library includes tools/ or
tests/. Quoted includes ("rkv/...", "tools/...", "tests/...") are read; system headers are not.

  scripts/check-layers.py    prints each include that breaks the order, fails if there is one
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Each layer: the folder that holds it, and the layers it may include besides itself.
LAYERS = {
    "foundation": ("rkv/foundation/", []),
    "platform": ("rkv/platform/", ["foundation"]),
    "log": ("rkv/log/", ["foundation", "platform"]),
    "xml": ("rkv/xml/", ["foundation", "platform", "log"]),
    "system": ("rkv/system/", ["foundation", "platform", "log"]),
    "net": ("rkv/net/", ["foundation", "platform", "log", "system"]),
    "vast/errors": ("rkv/vast/errors/", ["foundation", "platform", "log", "xml"]),
    "vast/model": ("rkv/vast/model/", ["foundation", "platform", "log", "xml", "vast/errors"]),
    "vast": ("rkv/vast/", ["foundation", "platform", "log", "xml", "system", "net",
                           "vast/errors", "vast/model"]),
    "tracking": ("rkv/tracking/", ["foundation", "platform", "log", "xml", "system", "net",
                                   "vast/errors", "vast/model", "vast"]),
    "library root": ("rkv/", []),  # rkv/RKVExport.h and the generated rkv/RKVBuildInfo.h
    "tools": ("tools/", ["foundation", "platform", "log", "xml", "system", "net", "vast/errors",
                         "vast/model", "vast", "tracking", "library root"]),
}
# Every layer may include the headers at the library's root.
for name, (_, allowed) in LAYERS.items():
    if name != "library root":
        allowed.append("library root")

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def layer_of(path):
    """The layer of a path relative to the root: the longest folder that holds it."""
    best = None
    for name, (folder, _) in LAYERS.items():
        if path.startswith(folder) and (best is None or len(folder) > len(LAYERS[best][0])):
            best = name
    return best


def main():
    faults = []
    checked = 0
    for folder in ("rkv", "tools"):
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix not in (".h", ".cpp", ".in") or not path.is_file():
                continue
            rel = path.relative_to(ROOT).as_posix()
            layer = layer_of(rel)
            if layer is None:
                continue
            checked += 1
            allowed = {layer, *LAYERS[layer][1]}
            for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
                m = INCLUDE.match(line)
                if not m:
                    continue
                target = m.group(1)
                if target.startswith(("tests/", "bench/", "fuzz/")):
                    faults.append(f"{rel}:{number}: {layer} includes {target} (not library code)")
                    continue
                target_layer = layer_of(target)
                if target_layer is not None and target_layer not in allowed:
                    faults.append(f"{rel}:{number}: {layer} includes {target} ({target_layer})")
    for fault in faults:
        print(fault)
    if faults:
        print(f"check-layers: {len(faults)} include(s) against the layer order "
              "(docs/ARCHITECTURE.md, \"Layers\")", file=sys.stderr)
        return 1
    print(f"check-layers: {checked} files, layer order kept")
    return 0


if __name__ == "__main__":
    sys.exit(main())
