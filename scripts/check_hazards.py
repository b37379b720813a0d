#!/usr/bin/env python3
"""Checks that each test named in doc/guarded-hazards.md exists, and that each row names one."""
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
page = root / "doc/guarded-hazards.md"

sources = subprocess.run(["git", "ls-files", "*_test.cpp", "fuzz/*_fuzz.cpp"], cwd=root, capture_output=True, text=True, check=True)
tests = set()
for name in sources.stdout.split():
    path = root / name
    if name.startswith("fuzz/"):
        tests.add(path.stem)
    elif path.exists():
        tests.update(f"{suite}.{test}" for suite, test in re.findall(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", path.read_text(), re.M))

faults = []
for number, line in enumerate(page.read_text().splitlines(), 1):
    cells = [cell.strip() for cell in line.split(" | ")]
    if len(cells) != 3 or cells[2].startswith(("Tests", "---")):
        continue
    named = re.findall(r"`([^`]+)`", cells[2])
    if not named:
        faults.append(f"{number}: no test is named")
    for test in named:
        if test not in tests and not (root / test).is_file():
            faults.append(f"{number}: there is no test {test}")

for fault in faults:
    print(f"doc/guarded-hazards.md:{fault}")
sys.exit(1 if faults else 0)
