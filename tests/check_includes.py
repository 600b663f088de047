#!/usr/bin/env python3
"""Proves the order of the layers: every include goes downwards.

  check_includes.py [ROOT]   prints each include that breaks a rule; status 1 if there is one

Published headers stand lowest and see each other and the language's own headers. A folder sees the
published headers, itself and the folders named in LAYERS. Paths start at the project's root, and a
source includes its own header first.
"""
import os
import re
import sys

# Folder -> the folders that it may include besides itself and the published headers.
EVERYTHING = ["strings", "terminal", "vm", "frontend", "bytecode", "native", "mapcar"]
LAYERS = {
    "extension/include/kestrin": [],
    "extension": [],
    "strings": [],
    "terminal": ["strings"],
    "vm": ["strings", "terminal"],
    "frontend": ["strings", "vm"],
    "bytecode": ["strings", "vm", "frontend"],
    "native": ["strings", "vm", "frontend", "bytecode"],
    "mapcar": ["strings", "terminal", "vm", "frontend", "bytecode", "native"],
    "driver": EVERYTHING,
    "workshop": EVERYTHING + ["driver"],
    "editors": EVERYTHING + ["driver", "workshop"],
}
PUBLISHED = "extension/include/kestrin"
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]')


def layer_of(path):
    """The longest folder of LAYERS that the path lies in, or None."""
    found = [layer for layer in LAYERS if path.startswith(layer + "/")]
    return max(found, key=len) if found else None


def fault(layer, mark, target):
    """Why a file of that layer must not include the target, or None."""
    if target.startswith("kestrin/"):
        return None
    if mark == "<":
        return None if layer_of(target) is None else "own headers go in quotes"
    below = layer_of(target)
    if below is None:
        return "not a path from the project's root"
    if below == PUBLISHED:
        return 'published headers are included as "kestrin/..."'
    if below != layer and below not in LAYERS[layer]:
        return "%s may not include %s" % (layer, below)
    return None


def own_header_fault(root, path, includes):
    """A source whose header stands beside it includes that first."""
    header = os.path.splitext(path)[0] + ".h"
    if not path.endswith(".cpp") or not os.path.exists(os.path.join(root, header)):
        return None
    own = header.replace("extension/include/", "")
    return None if includes and includes[0][2] == own else "its own header %s goes first" % own


def check_file(root, path):
    with open(os.path.join(root, path), encoding="utf-8", errors="replace") as f:
        found = [(n, *m.groups()) for n, m in ((n, INCLUDE.match(l)) for n, l in enumerate(f, 1)) if m]
    layer = layer_of(path)
    faults = [(n, target, why) for n, mark, target in found if (why := fault(layer, mark, target))]
    why = own_header_fault(root, path, [(n, mark, target) for n, mark, target in found])
    if why:
        faults.append((found[0][0] if found else 1, found[0][2] if found else "", why))
    return ["%s:%d: %s: %s" % (path, n, target, why) for n, target, why in faults]


def sources(root):
    for top in sorted({layer.split("/")[0] for layer in LAYERS}):
        for folder, _, names in os.walk(os.path.join(root, top)):
            for name in sorted(names):
                if name.endswith((".cpp", ".h", ".def")):
                    yield os.path.relpath(os.path.join(folder, name), root)


def check(root):
    """All faults below the root, and how many files were looked at."""
    paths = list(sources(root))
    return [line for path in paths for line in check_file(root, path)], len(paths)


def main():
    here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    faults, files = check(sys.argv[1] if len(sys.argv) > 1 else here)
    print("\n".join(faults + ["includes: %d files, %d faults" % (files, len(faults))]))
    return 1 if faults or not files else 0


if __name__ == "__main__":
    sys.exit(main())
