#!/usr/bin/env python3
"""Counts the lines that are not blank, and holds the tests to their share.

  count.py [ROOT]   prints the table; status 1 if a share is above a third

Product is the engine, its tools, the extension kit and the files for editors: sources, tables, the
kit's programs and build files. Test code is what tests/ holds, whatever its language, but for the golden cases: line cases,
programs and the files beside them, and the records of what programs answer. Manual, documents,
benches and packaging are not counted.
"""
import os
import sys

PRODUCT = ("strings", "terminal", "vm", "frontend", "bytecode", "mapcar", "native",
           "driver", "extension", "workshop", "editors")
RECORDS = (".out", ".err", ".status")
GOLDEN = os.path.join("tests", "golden", "")
RUNNER = GOLDEN + "run.py"


def kind_of(path):
    """The row of the table that counts this file, or None."""
    if path.endswith(RECORDS):
        return "records"
    if path.endswith(("README", "README.md", ".pyc", "package-lock.json")):
        return None
    if path.startswith(GOLDEN) and path != RUNNER:
        return "cases and programs"
    return "test code" if path.startswith("tests" + os.sep) else "product"


def files(root):
    for top in PRODUCT + ("tests",):
        for folder, _, leaves in os.walk(os.path.join(root, top)):
            for leaf in leaves:
                yield os.path.relpath(os.path.join(folder, leaf), root)


def count(root):
    """{row: lines that are not blank}"""
    rows = dict.fromkeys(("product", "test code", "cases and programs", "records"), 0)
    for path in files(root):
        if kind := kind_of(path):
            with open(os.path.join(root, path), "rb") as file:
                rows[kind] += sum(1 for line in file if line.strip())
    return rows


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    rows = count(sys.argv[1] if len(sys.argv) > 1 else root)
    product, code = rows["product"], rows["test code"]
    tests = code + rows["cases and programs"] + rows["records"]
    shares = (("test code to product", code, product), ("tests to all", tests, product + tests))
    for name, lines in rows.items():
        print("%-22s %6d" % (name, lines))
    for name, part, whole in shares:
        print("%-22s %5.1f %%, at most 33.3" % (name, 100 * part / max(whole, 1)))
    return 1 if not product or any(3 * part > whole for _, part, whole in shares) else 0


if __name__ == "__main__":
    sys.exit(main())
