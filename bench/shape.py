#!/usr/bin/env python3
"""Size, needs and relocations of the library, against what they may be.

    shape.py LIBRARY               prints them
    shape.py LIBRARY --check       and fails where one is more
    shape.py LIBRARY --json FILE   writes them for other scripts
"""

import argparse
import json
import re
import subprocess
import sys

TEXT_LIMIT = 30 * 1024
PLATFORM = {"libkv_alarm.so", "libkv_common.so", "libkv_config.so", "libkv_forker.so",
            "libkv_pmom.so", "libkv_upgrade.so"}
# What allocates, locks or ends a thread is none of them.
C_LIBRARY = {"__cxa_atexit", "__cxa_finalize", "__errno_location", "__register_atfork",
             "__stack_chk_fail", "close", "fcntl", "gettimeofday", "memccpy", "memcpy", "memset", "pipe", "pipe2",
             "pthread_create", "pthread_join", "select", "settimeofday", "snprintf", "strcpy",
             "strerror", "strlen", "strncat", "strncpy", "strnlen", "write",
             "__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"}
# Of the start files: constructors and destructors. The handle of the library names itself.
START_SECTIONS = {".init_array", ".fini_array"}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def measure(library):
    sections = {}
    for name, address, size in re.findall(
            r"^\s*\[\s*\d+\] (\S+)\s+\S+\s+([0-9a-f]+) [0-9a-f]+ ([0-9a-f]+)",
            output("readelf", "-SW", library), re.M):
        sections[name] = (int(address, 16), int(size, 16))
    needed = re.findall(r"NEEDED.*\[(.*)\]", output("readelf", "-dW", library))
    imports, tables = set(), 0
    for offset, value, symbol in re.findall(
            r"^([0-9a-f]+)\s+[0-9a-f]+\s+R_\S+\s+([0-9a-f]+)(?: +([A-Za-z_]\w*))?",
            output("readelf", "-rW", library), re.M):
        if symbol:
            imports.add(symbol)
            continue
        address = int(offset, 16)
        section = next(name for name, (start, size) in sections.items()
                       if start and start <= address < start + size)
        if section not in START_SECTIONS and offset.lstrip("0") != value.lstrip("0"):
            tables += 1
    return {
        "text": sections[".text"][1],
        "foreign": sorted(name for name in needed
                          if name not in PLATFORM and not re.match(r"lib(c|pthread)\.so", name)),
        "imports": len(imports),
        "unexpected": sorted(name for name in imports
                             if name not in C_LIBRARY and not is_platforms(name)),
        "tables": tables,
    }


def is_platforms(name):
    return bool(re.match(r"(alarm|config|pmom|upgrade|forker|kv)_|GetObjectCount$|gorvGetVersion$",
                         name))


def faults(shape):
    if shape["text"] > TEXT_LIMIT:
        yield f".text has {shape['text']} bytes, at most {TEXT_LIMIT} allowed"
    for name in shape["foreign"]:
        yield f"{name} is needed besides the platform's and the C library"
    for name in shape["unexpected"]:
        yield f"{name} is imported"
    if shape["tables"]:
        yield f"{shape['tables']} relocations in tables"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--json")
    options = parser.parse_args()
    shape = measure(options.library)
    if options.json:
        with open(options.json, "w") as file:
            json.dump(shape, file, indent=1)
    for name, value in shape.items():
        print(f"{name:12} {value if value != [] else '-'}")
    found = list(faults(shape))
    for fault in found:
        print(fault)
    sys.exit(1 if options.check and found else 0)


if __name__ == "__main__":
    main()
