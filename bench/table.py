#!/usr/bin/env python3
"""Prints the table of docs/performance.md from what the measurements wrote into a folder."""

import json
import os
import re
import statistics
import sys

FOLDER = sys.argv[1]
BESIDE = 1.15
LIMITS = [
    # what, kind, pattern of the name, to reach
    ("single attribute, set or get, the dearest", "attribute", "", 40),
    ("`vlan`, `psn`, `rtp`, the dearest", "pwe part", "", 90),
    ("`pdh params`, the dearer of set and get", "pdh params", "", 100),
    ("`pwe params` set, the dearest", "pwe params set", "", 280),
    ("`pwe params` get, the dearest", "pwe params get", "", 230),
    ("20 cross-connects", "cross-connects", "20", 600),
    ("`sys version`, `status`, texts of 127 characters", "versions", "", 950),
    ("`inventory`, full texts", "inventory", "", 1800),
    ("any other operation, the dearest", "other", "", 300),
    ("a callback replaced while its service runs", "callback", "", 12),
    ("one alarm event", "alarm", "", 60),
    ("PM report of 16 ports", "report, part", "ports", 4000),
    ("PM report of 8 groups of 8 links", "report, part", "groups", 4000),
    ("PM report, per object", "report", "", 45),
]


def load(name):
    with open(os.path.join(FOLDER, name)) as file:
        return json.load(file)


def times(name):
    """Medians of CPU time by benchmark, in nanoseconds."""
    return {row["run_name"]: row["cpu_time"] for row in load(name)["benchmarks"]
            if row["aggregate_name"] == "median"}


def row(what, limit, measured):
    print(f"| {what} | {limit} | {measured} |")


def counts():
    data = load("counts.json")
    for what, kind, pattern, limit in LIMITS:
        found = [r for r in data["rows"] if r["kind"] == kind and pattern in r["name"]]
        dearest = max(found, key=lambda r: r["added"])
        name = f" (`{dearest['name']}`)" if len(found) > 1 else ""
        row(f"instructions added: {what}", limit, f"{dearest['added']}{name}")
    singles = [r["added"] for r in data["rows"] if r["kind"] == "attribute"]
    under = sum(added <= 30 for added in singles)
    row("single attributes that add at most 30", "aim", f"{under} of {len(singles)} cases, "
        f"median {statistics.median(singles):.0f}")
    row("instructions added: mean over all operations, the dearest case of each", 90,
        f"{data['mean']:.1f}")


def resources():
    with open(os.path.join(FOLDER, "resources.txt")) as file:
        text = file.read()
    state = {name: outcome for outcome, name in
             re.findall(r"\[ +(OK|FAILED|SKIPPED) +\] (\w+\.\w+) \(", text)}
    beyond = re.search(r"at most (\d+) bytes beyond", text)
    report = re.search(r"^(\d+) bytes$", text, re.M)
    words = {"OK": "0", "FAILED": "more", "SKIPPED": "not measured"}
    row("heap allocations, locks taken by an operation, on success, failure and refusal", 0,
        words[state["AnOperation.AllocatesNothingAndTakesNoLock"]])
    row("system calls added", 0, words[state["AnOperation.MakesNoSystemCallOfItsOwn"]])
    row("stack of an operation", "records + 256 B", f"records + {beyond[1]} B")
    row("stack of a PM report", "under 4096 B", f"{report[1]} B")


def shape():
    data = load("shape.json")
    row("machine code (.text)", "30 KB", f"{data['text'] / 1024:.1f} KB")
    row("shared objects needed besides the platform's and the C library", 0, len(data["foreign"]))
    row("relocations in tables", 0, data["tables"])


def ratios():
    load_times = times("load.json")
    row("time to load, against an empty shared object", 1.3,
        f"{load_times['load/library'] / load_times['load/empty']:.2f}")
    operations = times("times.json")
    beside = {name.split("/", 1)[1]: value / operations["alone/" + name.split("/", 1)[1]]
              for name, value in operations.items() if name.startswith("beside/")}
    row("an operation while another core makes PM reports without end, against alone", BESIDE,
        f"{statistics.median(beside.values()):.2f} (highest {max(beside.values()):.2f})")
    delivery = load("delivery.json")
    row("platform's descriptor to callback, against a bare `select` and read", 1.05,
        f"{delivery['library_us'] / delivery['bare_us']:.2f} "
        f"({delivery['library_us']:.1f} against {delivery['bare_us']:.1f} µs)")
    added = [value - operations["bare/" + name.split("/", 1)[1]]
             for name, value in operations.items() if name.startswith("library/")]
    row("time that the library adds to an operation, the median of all", "-",
        f"{statistics.median(added):.1f} ns")


def million():
    for name, what in (("memory", "in memory"), ("file", "in a file"),
                       ("recorded", "in memory and recorded")):
        path = os.path.join(FOLDER, f"million-{name}.txt")
        if os.path.exists(path):
            with open(path) as file:
                row(f"a million operations on the simulated device, {what}", "a few s",
                    f"{float(file.read()):.2f} s")


def recorder():
    if not os.path.exists(os.path.join(FOLDER, "recorder.json")):
        return
    data = load("recorder.json")
    row("a call with the recorder before it that records nothing, more than without", "2 ns",
        f"{data['off'] - data['without']:.1f} ns")
    row("a call that is recorded, more than without and than two readings of the clock", "27 ns",
        f"{data['on'] - data['without'] - 2 * data['clock']:.1f} ns")
    row("two readings of the clock", "-", f"{2 * data['clock']:.1f} ns")
    for name, what, limit, unit in (
            ("record.txt", "bytes of a record, in the mean over the million", 200, ""),
            ("cover.txt", "`vexotrace cover` of the million", "2 s", " s")):
        path = os.path.join(FOLDER, name)
        if os.path.exists(path):
            with open(path) as file:
                row(what, limit, f"{float(file.read()):.3g}{unit}")
    path = os.path.join(FOLDER, "million-replayed.txt")
    if os.path.exists(path):
        with open(path) as file:
            # Of the platform's, of which the mix of operations has 7 in 4.
            row("calls a second that are replayed, the library's part of the million included", "1 000 000",
                f"{1.75e6 / float(file.read()):,.0f}".replace(",", " "))


def python():
    if not os.path.exists(os.path.join(FOLDER, "python-operations.json")):
        return
    found = load("python-operations.json")
    dearest = max(found, key=found.get)
    row("an operation of numbers from Python, its bare call included: the dearest", "2 µs",
        f"{found[dearest]:.2f} µs (`{dearest}`)")
    row("the same, the median of all", "-", f"{statistics.median(found.values()):.2f} µs")
    if os.path.exists(os.path.join(FOLDER, "python-fixtures.json")):
        found = load("python-fixtures.json")
        row("a test's device in Python, made and removed", "3 ms", f"{found['device']:.1f} ms")
        row("a device compared with a document in Python", "-", f"{found['compare']:.0f} ms")


row("what", "to reach", "measured")
row("---", "---", "---")
counts()
resources()
shape()
ratios()
million()
recorder()
python()
