"""Makes the reference in HTML: reference.py VEXOCTL FOLDER

Its page of all operations joins the comments of the header with the description rows that
`vexoctl help` shows. Fails on a warning of doxygen, and when the exported names and the rows
disagree.
"""
import json
import os
import re
import subprocess
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent

# Exported, but called by hosts only: they have no result, so vexoctl has no row for them.
HOST_ONLY = ["vexo_cmi_init", "vexo_cmi_fini"] + [
    f"vexo_cmi_{service}_callback_{verb}"
    for service in ("alarm", "pm") for verb in ("register", "unregister")]

AREAS = {"sys": "System", "pdh": "PDH ports", "pwe": "Pseudowires", "ima": "IMA groups and links",
         "misc": "Maintenance"}

# A record in the description of the interface: its size, and its fields behind their offsets.
RECORD = re.compile(r"^((?:struct|union) (\w+), .*\n(?: .*\n)+)", re.MULTILINE)

INTRODUCTION = """\
# All operations {#operations}

What all of them share, from the result record to threads, is told under @ref conventions. Each may
be called from any thread, also from inside a callback; what holds for start, stop and callbacks is
told in notify.h.

The tables name arguments and fields as `vexoctl` does, and leave out the last argument, the result.
What is given goes by value, a record or a text by a pointer to const; what is returned goes by a
pointer. A number is unsigned, 32 bits wide. Every field with its offset is under @ref area_layout.

[TOC]
"""


def ask(vexoctl: str, questions: list[str]) -> list[dict]:
    answer = subprocess.run([vexoctl, "--json", "--script", "-"], input="\n".join(questions),
                            check=True, capture_output=True, text=True).stdout
    return [json.loads(line) for line in answer.splitlines()]


def values(row: dict) -> str:
    parts = []
    if "first" in row:
        parts.append(f"{row['first']} to {row['last']}")
    if "values" in row:
        parts += [f"{value} {name}" for name, value in row["values"].items()]
    if "limit" in row:
        parts.append(f"up to {row['limit']}")
    if "condition" in row:
        parts.append(f"only with `{row['condition']}`")
    if "applied" in row:
        parts.append(row["applied"])
    return ", ".join(parts)


def kind(row: dict) -> str:
    return row["type"] + (f" [{row['count']}]" if "count" in row else "")


def table(head: list[str], lines: list[list[str]]) -> str:
    rows = [head, ["---"] * len(head)] + lines
    return "\n".join(f"| {' | '.join(cells)} |" for cells in rows) + "\n"


def calls(page: dict) -> str:
    lines = []
    for case in page["calls"]:
        text = ", ".join(f"`{function}`" for function in case["calls"]) or "nothing"
        if case["callsPerLink"]:
            text += "; for each link " + ", ".join(f"`{name}`" for name in case["callsPerLink"])
        lines.append("Platform calls" + (f" ({case['when']})" if case["when"] else "") + f": {text}")
    return "\n\n".join(lines) + "\n\n"


def chapter(name: str, page: dict) -> str:
    arguments = [[f"`{row['name']}`", row["direction"], kind(row), values(row)]
                 for row in page["arguments"]]
    head = ["argument", "", "type", "values"]
    return (f"### {name}() {{#op_{name}}}\n\n@copydoc {name}()\n\n"
            f"Command: `vexoctl {page['usage']}`\n\n" + calls(page) + (table(head, arguments) if arguments else ""))


def page_of_operations(exported: list[str], pages: dict[str, dict], meanings: list[dict],
                       interface: str) -> str:
    text = [INTRODUCTION]
    for area, title in AREAS.items():
        text.append(f"## {title} {{#area_{area}}}\n")
        text += [chapter(name, page) for name, page in pages.items()
                 if name.startswith(f"vexo_cmi_{area}_")]

    text.append("## Start, stop and callbacks {#area_host}\n")
    text += [f"### {name}() {{#op_{name}}}\n\n@copydoc {name}()\n" for name in HOST_ONLY]

    records = {row["type"]: row["fields"] for page in pages.values() for row in page["arguments"]
               if "fields" in row}
    text.append("## Fields of the records {#area_records}\n")
    for record, fields in sorted(records.items()):
        lines = [[f"`{row['name']}`", kind(row), values(row)] for row in fields]
        text.append(f"### {record} {{#fields_{record}}}\n\n" +
                    table(["field", "type", "values"], lines))

    text.append("## Layout of the records {#area_layout}\n")
    text += [f"### {name} {{#layout_{name}}}\n\n```\n{lines}```\n"
             for lines, name in RECORD.findall(interface)]

    text.append("## Values to the simulated device {#area_simulated}\n\nWhere the meaning of a value "
                "is the platform's, the simulated device has chosen one. Another device may take it "
                "otherwise.\n")
    text.append(table(["of", "value", "meaning"],
                      [[f"`{row['of']}`", row["value"], row["meaning"]] for row in meanings]))

    others = [name for name in exported if not name.startswith("vexo_cmi_")]
    text.append("## Everything else that is exported {#area_others}\n")
    text.append(table(["function", ""], [[f"{name}()", f"@copydetails {name}()"] for name in others]))
    return "\n".join(text)


def main() -> None:
    vexoctl, folder = sys.argv[1], Path(sys.argv[2]).resolve()
    exports = (PROJECT / "src/exports.map").read_text()
    exported = re.findall(r"^    (\w+);", exports, re.MULTILINE)
    interface = (PROJECT / "tests/abi/interface.txt").read_text()
    listed, simulated = ask(vexoctl, ["list", "sim values"])
    spoken = listed["operations"]
    manuals = ask(vexoctl, [f"help {name}" for name in spoken])
    pages = {"vexo_cmi_" + re.sub("[ -]", "_", name): page for name, page in zip(spoken, manuals)}

    wanted = {name for name in exported if name.startswith("vexo_cmi_")}
    if missing := wanted - pages.keys() - set(HOST_ONLY):
        sys.exit("without a row in describe/operations.cpp: " + ", ".join(sorted(missing)))
    if missing := pages.keys() - wanted:
        sys.exit("not in src/exports.map, which scripts/abi writes: " + ", ".join(sorted(missing)))
    if silent := [name for name, page in pages.items() if not page["help"]]:
        sys.exit("without a comment in include/vexo_cmi: " + ", ".join(silent))

    folder.mkdir(parents=True, exist_ok=True)
    (folder / "operations.md").write_text(page_of_operations(exported, pages, simulated["values"], interface))
    subprocess.run(["doxygen", "docs/Doxyfile"], cwd=PROJECT, check=True,
                   env={**os.environ, "REFERENCE": str(folder)})


main()
