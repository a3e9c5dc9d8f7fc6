"""Does literally what a guide says: try-guide.py GUIDE BUILD FOLDER

By default in an empty folder: the library is installed from BUILD into `$HOME/vexo`, and
`$HOME/vexo_cmi` is the checkout, as the guides expect them. Where BUILD is "sources", in a copy of
the checkout. A block ```LANGUAGE FILE is written to that file, a block ```diff FILE changes it, a
block ```sh is run, and a block ```text behind one must be what that printed.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

BLOCK = re.compile(r"^( *)```(\w+)(?: (\S+))?\n(.*?)^ *```$", re.MULTILINE | re.DOTALL)
CHECKOUT = Path(__file__).resolve().parent.parent
END = "==== end of block\n"


def change(file: str, lines: list[str]) -> None:
    """Puts the lines with a + next to those that are there, and takes out those with a -.

    What is replaced already stays: a version may have been raised since the last release.
    """
    old, new = ("".join(line[1:] for line in lines if line[0] in kind) for kind in (" -", " +"))
    text = Path(file).read_text()
    if old not in text and new in text:
        return
    if text.count(old) != 1:
        sys.exit(f"The guide changes these lines of {file}, which has them {text.count(old)} times; "
                 f"bring the guide up to date:\n{old}")
    Path(file).write_text(text.replace(old, new))


def copy_sources(to: Path) -> None:
    """Without what was built from them."""
    shutil.copytree(CHECKOUT, to, ignore=lambda folder, names: [
        name for name in names if name in (".git", "build")
        or Path(folder, name, "CMakeCache.txt").exists()])


def main() -> None:
    if sys.argv[1] == "change":
        change(sys.argv[2], sys.stdin.read().splitlines(keepends=True))
        return
    guide, build, folder = Path(sys.argv[1]), sys.argv[2], Path(sys.argv[3]).resolve()
    shutil.rmtree(folder, ignore_errors=True)
    work = folder / "work"
    if build == "sources":
        copy_sources(work)
    else:
        work.mkdir(parents=True)
        subprocess.run(["cmake", "--install", build, "--prefix", folder / "vexo"], check=True,
                       stdout=subprocess.DEVNULL)
        (folder / "vexo_cmi").symlink_to(CHECKOUT)

    script, expected = "set -eu\nexec 2>&1\n", []
    for indent, language, file, text in BLOCK.findall(guide.read_text()):
        text = re.sub(f"^{indent}", "", text, flags=re.MULTILINE)
        if language == "diff":
            script += f"python3 {Path(__file__).resolve()} change {file} <<'{END.strip()}'\n"
            script += text + END
        elif file:
            script += f"mkdir -p $(dirname {file})\ncat >{file} <<'{END.strip()}'\n{text}{END}"
        elif language == "sh":
            script += f"{text}echo '{END.strip()}'\n"
            expected.append(None)
        elif language == "text":
            expected[-1] = text
    environment = {key: value for key, value in os.environ.items() if key != "KV_SIM_DEVICE"}
    done = subprocess.run(["bash"], input=script, cwd=work, capture_output=True, text=True,
                          env={**environment, "HOME": str(folder)})
    printed = done.stdout.split(END)
    if done.returncode:
        sys.exit(f"status {done.returncode} in block {len(printed)}, which printed:\n{printed[-1]}")
    for number, (wanted, got) in enumerate(zip(expected, printed), 1):
        if wanted not in (None, got):
            sys.exit(f"block {number} was to print:\n{wanted}but printed:\n{got}")


main()
