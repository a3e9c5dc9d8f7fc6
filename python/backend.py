"""Builds the wheel for pip, by the project's own build: what `cmake --install --component python`
puts into a prefix, with a list of it. So pip needs no network, but cmake and a C++ compiler."""
from __future__ import annotations

import base64
import hashlib
import subprocess
import sys
import sysconfig
import tempfile
import zipfile
from pathlib import Path
from typing import Any

PROJECT = Path(__file__).resolve().parent.parent


def _run(*words: Any) -> None:
    # pip shows what is printed when it fails.
    subprocess.run([str(word) for word in words], check=True, stdout=sys.stderr)


def _hash(data: bytes) -> str:
    return "sha256=" + base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()


def build_wheel(wheel_directory: str, *_: Any, **__: Any) -> str:
    """What pip calls."""
    tag = f"py3-none-{sysconfig.get_platform().replace('-', '_').replace('.', '_')}"
    with tempfile.TemporaryDirectory() as work:
        build, prefix = Path(work, "build"), Path(work, "prefix")
        _run("cmake", "-S", PROJECT, "-B", build, "-DBUILD_TESTING=OFF", "-DCMAKE_BUILD_TYPE=Release",
             "-DVEXO_CMI_PYTHON_DIR=.")
        _run("cmake", "--build", build, "--parallel", "2", "--target", "vexo_cmi_python")
        _run("cmake", "--install", build, "--component", "python", "--prefix", prefix)
        metadata = next(prefix.glob("*.dist-info"))
        (metadata / "WHEEL").write_text(
            f"Wheel-Version: 1.0\nGenerator: vexo_cmi\nRoot-Is-Purelib: false\nTag: {tag}\n", "utf-8")
        wheel = f"{metadata.stem}-{tag}.whl"
        files = {str(path.relative_to(prefix)): path.read_bytes()
                 for path in sorted(prefix.rglob("*")) if path.is_file()}
        record = f"{metadata.name}/RECORD"
        listed = "".join(f"{name},{_hash(data)},{len(data)}\n" for name, data in files.items())
        with zipfile.ZipFile(Path(wheel_directory, wheel), "w", zipfile.ZIP_DEFLATED) as archive:
            for name, data in {**files, record: f"{listed}{record},,\n".encode()}.items():
                archive.writestr(name, data)
    return wheel
