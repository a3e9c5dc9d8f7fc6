"""What a device is set to, as `vexoctl config` keeps, compares and gives it back."""
from __future__ import annotations

import json
import os
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path
from typing import Any, List, Mapping, Optional, Tuple, Union

from . import _where
from ._library import program
from .device import VARIABLE, DeviceError

__tracebackhide__ = True  # pytest shows where in a test it came to that
LIMIT = 10  # seconds: as long as a call of the device may hang
Source = Union[str, "os.PathLike[str]", Mapping[str, Any]]


class DocumentError(Exception):
    """A document that can't be one."""


@dataclass
class Difference:
    """What two documents tell otherwise: a field of an object, or without one the whole object."""
    object: str
    field: Optional[str]
    ours: Any  # None: there is none
    theirs: Any

    def __str__(self) -> str:
        def shown(value: Any) -> str:
            return "none" if value is None else json.dumps(value)
        return (f"{self.object}{' ' + self.field if self.field else ''}: "
                f"{shown(self.ours)}, expected {shown(self.theirs)}")


def vexoctl(*words: str, device: Optional[str] = None) -> Tuple[int, str, str]:
    """Runs a command, and returns its status and what it printed."""
    environment = {**os.environ, **({VARIABLE: device} if device is not None else {})}
    environment.pop("LD_PRELOAD", None)  # its own calls are no agent's
    command = [program(_where.VEXOCTL, "vexoctl"), "--timeout", str(LIMIT), *words]
    done = subprocess.run(command, env=environment, text=True, capture_output=True, check=False,
                          errors="replace")
    return done.returncode, done.stdout, done.stderr


class Document:
    """A document of `vexoctl config save`, from a file or as a dictionary. Two are equal when they
    tell the same of all that both of them name: an expected one needs to have what matters only."""

    def __init__(self, source: Source) -> None:
        self.file = None if isinstance(source, Mapping) else os.fspath(source)
        self._content = source if isinstance(source, Mapping) else None

    @classmethod
    def of_device(cls, device: str) -> "Document":
        """Of a device, what it is set to now; a DeviceError when it doesn't tell."""
        status, output, error = vexoctl("config", "save", device=device)
        if status:
            raise DeviceError(error.strip())
        return cls(json.loads(output))

    @property
    def content(self) -> Mapping[str, Any]:
        """The document itself."""
        if self._content is None:
            self._content = json.loads(Path(str(self.file)).read_text(encoding="utf-8"))
        return self._content

    def save(self, file: Union[str, "os.PathLike[str]"]) -> None:
        """Writes it into a file."""
        Path(file).write_text(json.dumps(self.content, indent=2) + "\n", encoding="utf-8")

    def differences(self, expected: "Document") -> List[Difference]:
        """What this one tells otherwise than is expected."""
        with tempfile.TemporaryDirectory() as folder:
            files = []
            for name, document in (("ours", self), ("expected", expected)):
                # Its own file, which messages name.
                files.append(document.file or os.path.join(folder, name))
                if not document.file:
                    document.save(files[-1])
            status, output, error = vexoctl("--json", "config", "diff", *files)
        if status > 1:
            raise DocumentError(json.loads(output)["message"] if output else error.strip())
        return [Difference(row["object"], row["field"], row["a"], row["b"])
                for row in json.loads(output)]

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Document):
            return NotImplemented
        return not self.differences(other)

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return f"Document({self.file!r})" if self.file else "Document({...})"
