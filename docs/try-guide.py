"""Does literally what a guide says, in an empty folder: try-guide.py GUIDE BUILD FOLDER

The library is installed from BUILD into `$HOME/vexo`, and `$HOME/vexo_cmi` is the checkout: this is
where the guides expect them. A block ```LANGUAGE FILE is written to that file, a block ```sh is run,
and a block ```text behind one must be what that printed.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

BLOCK = re.compile(r"^```(\w+)(?: (\S+))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)
END = "==== end of block\n"


def main() -> None:
    guide, build, folder = Path(sys.argv[1]), sys.argv[2], Path(sys.argv[3]).resolve()
    shutil.rmtree(folder, ignore_errors=True)
    work = folder / "work"
    work.mkdir(parents=True)
    subprocess.run(["cmake", "--install", build, "--prefix", folder / "vexo"], check=True,
                   stdout=subprocess.DEVNULL)
    (folder / "vexo_cmi").symlink_to(Path(__file__).resolve().parent.parent)

    script, expected = "set -eu\nexec 2>&1\n", []
    for language, file, text in BLOCK.findall(guide.read_text()):
        if file:
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
