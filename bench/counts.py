#!/usr/bin/env python3
"""Counts the instructions that the library adds to the platform calls of every operation.

    counts.py PROGRAM              prints the table
    counts.py PROGRAM --check      compares it with the budget; what is above it is a failure
    counts.py PROGRAM --update     writes the budget anew, and shows what changed
    counts.py PROGRAM --json FILE  writes the counts for other scripts

PROGRAM is bench_counts. With --exports MAP, an operation of the library's list of symbols that is
not measured is a failure, too.
"""

import argparse
import difflib
import json
import os
import re
import subprocess
import sys
import tempfile

BUDGET = os.path.join(os.path.dirname(os.path.abspath(__file__)), "budget.txt")
SLACK = 2  # so many instructions above the committed count pass
REPORTED_OBJECTS = 16 + 1024 + 8 + 64

# What a count of each kind must not exceed, whatever the committed count.
LIMITS = {
    "attribute": 40,
    "pwe part": 90,
    "pdh params": 100,
    "pwe params set": 280,
    "pwe params get": 230,
    "versions": 950,
    "inventory": 1800,
    "cross-connects": 600,
    "other": 300,
    "callback": 12,
    "alarm": 60,
    "report, part": 4000,
    "report": 45,  # per object
}
MEAN_LIMIT = 90


def run(program):
    """The instructions of every run: {(who, kind, name): total}."""
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "callgrind.out")
        subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", "--combine-dumps=yes",
             f"--callgrind-out-file={out}", program],
            check=True, stdout=subprocess.DEVNULL)
        with open(out) as file:
            text = file.read()
    totals = {}
    for name, total in re.findall(
            r"^desc: Trigger: Client Request: (\S[^\n]*)$.*?^summary: (\d+)$", text, re.M | re.S):
        totals[tuple(name.split("|"))] = int(total)
    return totals


def count(program):
    """[(kind, name, by hand, added)]"""
    totals = run(program)
    rows = []
    for (who, kind, name), total in totals.items():
        if who == "library":
            bare = totals["bare", kind, name]
            added = total - bare
            if kind == "report":
                added = -(-added // REPORTED_OBJECTS)
            rows.append((kind, name, bare, added))
    return rows


def mean(rows):
    """The mean over all operations, of each the dearest case."""
    dearest = {}
    for kind, name, _, added in rows:
        if kind in ("alarm", "report", "report, part", "callback"):
            continue
        operation = name.split(":")[0]
        dearest[operation] = max(added, dearest.get(operation, 0))
    return sum(dearest.values()) / len(dearest)


def read_budget():
    budget = {}
    with open(BUDGET) as file:
        for line in file:
            if not line.startswith("#"):
                added, name = line.split(maxsplit=1)
                budget[name.strip()] = int(added)
    return budget


def update_budget(rows):
    """Writes it anew; a count that hardly differs, as on another machine, stays what it was."""
    recorded = read_budget()
    counts = {name: added for _, name, _, added in rows}
    counts |= {name: recorded[name] for name in counts.keys() & recorded.keys()
               if abs(counts[name] - recorded[name]) <= SLACK}
    with open(BUDGET) as file:
        old = file.read()
    new = ("# Instructions that the library adds to an operation's platform calls; of a PM\n"
           "# report, per object. g++, RelWithDebInfo, x86-64. Written by scripts/bench --record.\n")
    new += "".join(f"{added:5} {name}\n" for name, added in counts.items())
    with open(BUDGET, "w") as file:
        file.write(new)
    sys.stdout.writelines(difflib.unified_diff(
        old.splitlines(True), new.splitlines(True), "bench/budget.txt, as recorded", "as measured", n=0))


def copies_texts_as_budgeted():
    with open("/proc/cpuinfo") as file:
        return re.search(r"^flags.*\bavx2\b", file.read(), re.M) is not None


def unmeasured(rows, exports):
    """Operations of the symbol list that have no row."""
    # What has no outcome is no operation.
    others = r"init$|fini$|\w+_callback_(un)?register$"
    with open(exports) as file:
        names = re.findall(r"^\s+vexo_cmi_(\w+);", file.read(), re.M)
    measured = {row[1].split(":")[0] for row in rows}
    for name in names:
        if name not in measured and not re.match(others, name):
            yield f"{name}: bench/operations.cpp has no row for it"


def faults(rows):
    budget = read_budget()
    for name in budget.keys() - {row[1] for row in rows}:
        yield f"{name}: in bench/budget.txt, but bench/operations.cpp has no such row"
    for kind, name, _, added in rows:
        if name not in budget:
            yield f"{name}: bench/budget.txt has no budget for it; scripts/bench --record measures one"
        elif added > budget[name] + SLACK:
            yield (f"{name}: {added} instructions added, {budget[name]} budgeted; what is meant to "
                   "cost more is recorded by scripts/bench --record")
        if added > LIMITS[kind]:
            yield f"{name}: {added} instructions added, at most {LIMITS[kind]} allowed"
    if mean(rows) > MEAN_LIMIT:
        yield f"the mean over all operations is {mean(rows):.1f}, at most {MEAN_LIMIT} allowed"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--update", action="store_true")
    parser.add_argument("--json")
    parser.add_argument("--exports")
    options = parser.parse_args()
    rows = count(options.program)
    if options.json:
        with open(options.json, "w") as file:
            json.dump({"mean": mean(rows), "rows": [
                dict(zip(("kind", "name", "bare", "added"), row)) for row in rows]}, file, indent=1)
    if options.update:
        if not copies_texts_as_budgeted():
            sys.exit("Not recorded: without AVX2, the C library copies texts in other ways.")
        update_budget(rows)
        found = list(unmeasured(rows, options.exports)) if options.exports else []
        sys.exit("\n".join(found) or 0)
    for kind, name, bare, added in rows:
        print(f"{added:6} {bare:6}  {kind:15} {name}")
    print(f"{mean(rows):6.1f}         mean over the operations")
    found = []
    if options.check and not copies_texts_as_budgeted():
        print("Not checked: without AVX2, the C library copies texts in other ways.")
    elif options.check:
        found += faults(rows)
    if options.exports:
        found += unmeasured(rows, options.exports)
    for fault in found:
        print(fault)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
