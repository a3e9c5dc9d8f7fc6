"""Checks the documents: check.py links | check.py figures | check.py manual VEXOCTL VEXOTRACE |
check.py values VEXOCTL"""
import json
import re
import subprocess
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent


def broken_links() -> list[str]:
    """Links of the project's Markdown files to files that aren't there."""
    documents = [*PROJECT.glob("*.md"), *(PROJECT / "docs").rglob("*.md")]
    return [f"{document.relative_to(PROJECT)}: {target}" for document in documents
            for target in re.findall(r"\]\(([^)#:\s]+)(?:#[^)]*)?\)", document.read_text())
            if not (document.parent / target).exists()]


def other_figures() -> list[str]:
    """Rows of the README's figures that aren't rows of the document that they are taken from."""
    rows = (PROJECT / "docs/performance.md").read_text().splitlines()
    figures = (PROJECT / "README.md").read_text().split("## What it costs")[1].split("\n## ")[0]
    return [f"README.md: {row}" for row in figures.splitlines()
            if row.startswith("|") and row not in rows]


def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def page_words(page: str) -> set[str]:
    """What a manual page names."""
    text = output("mandoc", "-T", "utf8", PROJECT / "packaging/man" / page)
    return set(re.findall(r"[\w-]+=?", re.sub(".\b", "", text)))  # no overstrikes


def options(*command: str) -> list[str]:
    return re.findall(r"^  (?:-\w,)?(--[\w-]+)", output(*command, "--help"), re.MULTILINE)


def missing_words(vexoctl: str, vexotrace: str) -> list[str]:
    """What mandoc complains of, and what the programs have that their manual pages don't name."""
    complaints = subprocess.run(
        ["mandoc", "-T", "lint", "-W", "warning", *sorted((PROJECT / "packaging/man").iterdir())],
        capture_output=True, text=True).stdout.splitlines()
    has = options(vexoctl)
    for words in ([""], ["watch", ""], ["follow", ""], ["follow", "upgrade", ""], ["metrics", ""],
                  ["config", ""], ["config", "save", "--"], ["config", "apply", "FILE", "--"], ["conform", "--"], ["report", "FILE", "--"], ["sim", "create", "--"],
                  ["pwe", "list", ""], ["ima", "list", ""]):
        has += output(vexoctl, "complete", *words).split()
    has_trace = options(vexotrace)
    for command in re.findall(r"^  (\w+) ", output(vexotrace, "--help").split("ubcommands:")[1],
                              re.MULTILINE):
        has_trace += [command, *options(vexotrace, command)]
    for page, words in (("vexoctl.1", has), ("vexotrace.1", has_trace)):
        named = page_words(page)
        complaints += [f"{page} does not name {word}" for word in words if word not in named]
    return complaints


def other_values(vexoctl: str) -> list[str]:
    """Settings of the simulated device that its document doesn't name, and the table of what values
    mean to it, unless the document has it."""
    rows = json.loads(output(vexoctl, "--json", "sim", "values"))["values"]
    table = "| of | value | meaning |\n| --- | --- | --- |\n" + "".join(
        f"| `{row['of']}` | {row['value']} | {row['meaning']} |\n" for row in rows)
    document = (PROJECT / "docs/simulated-device.md").read_text()
    settings = json.loads(output(vexoctl, "--json", "sim", "get"))["settings"]
    # Of those that are numbered, the first and the last.
    numbered = [re.sub(r"\d+$", "", name) for name in settings]
    lacks = [name for i, name in enumerate(settings)
             if f"`{name}`" not in document and (numbered[i - 1:i + 2].count(numbered[i]) < 3)]
    return lacks and ["docs/simulated-device.md lacks", *lacks] or (
        [] if f"\n\n{table}\n" in document else ["docs/simulated-device.md lacks", table])


checks = {"links": broken_links, "figures": other_figures, "manual": missing_words,
          "values": other_values}
sys.exit("\n".join(checks[sys.argv[1]](*sys.argv[2:])) or 0)
