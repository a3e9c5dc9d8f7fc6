"""Finds the library, the simulated device and the programs, and calls the library."""
from __future__ import annotations

import atexit
import ctypes
import os
import shutil
import sys
import sysconfig
import threading
from pathlib import Path
from typing import Any, Callable, Dict, List, Optional, Type

from . import _where
from ._records import Record, Result

__tracebackhide__ = True  # pytest shows where in a test it came to that
HERE = Path(os.path.abspath(__file__)).parent
PLATFORM = ["kv_common", "kv_forker", "kv_config", "kv_alarm", "kv_pmom", "kv_upgrade"]


class LibraryMissing(OSError):
    """The library, the simulated device or a program isn't there; the text says what to do."""


class CmiError(Exception):
    """An operation failed: its class (an Rc), the text that came with it, and its name."""

    def __init__(self, rc: Any, message: str, operation: str) -> None:  # pylint: disable=W0621
        super().__init__(rc, message, operation)
        self.rc = rc
        self.message = message
        self.operation = operation

    def __str__(self) -> str:
        return f"{self.operation}: failure {int(self.rc)}: {self.message}"


_lock = threading.RLock()
_operations: Dict[str, Any] = {}  # by their names, once the library is loaded
_kept: Dict[str, List[Any]] = {}  # callbacks that the library may still call, by their service


def beside(relative: str) -> Optional[Path]:
    """A part from where it was built or installed to; of a package that was installed alone, by pip,
    from where the loader looks."""
    own = HERE / relative
    folders = [own.parent, *map(Path, filter(None, os.environ.get("LD_LIBRARY_PATH", "").split(":"))),
               Path("/usr/local/lib"), Path("/usr/lib", sysconfig.get_config_var("MULTIARCH") or "")]
    return next((folder / own.name for folder in folders if (folder / own.name).exists()), None)


def program(relative: str, name: str) -> str:
    """A program, from beside this package or from PATH."""
    own = HERE / relative
    found = str(own) if own.exists() else shutil.which(name)
    if not found:
        raise LibraryMissing(f"{name} isn't there: install it, or put its folder into PATH")
    return found


def simulator() -> Optional[Path]:
    """The folder of the simulated device, unless the loader is to find it."""
    return beside(_where.SIMULATOR)


def library_folder() -> Optional[Path]:
    """The folder of the library, unless the loader is to find it."""
    library = beside(_where.LIBRARY)
    return library.parent if library else None


def _loadable(name: str, where: Optional[Path] = None) -> ctypes.CDLL:
    return ctypes.CDLL(str(where / name) if where else name)


def _load_simulator() -> ctypes.CDLL:
    """The simulated device, under the names of the platform's libraries."""
    for name in PLATFORM:
        _loadable(f"lib{name}.so", simulator())
    return _loadable("libkv_sim.so", simulator())


def _has_platform() -> bool:
    """Whether the loader finds any of the platform's libraries; all of them were wanted."""
    for name in PLATFORM:
        try:
            _loadable(f"lib{name}.so")
            return True
        except OSError:
            pass
    return False


def _load_library() -> ctypes.CDLL:
    """The library, on the platform's libraries that the loader finds; on the simulated device when
    one of its files is named, or when there are none, as vexoctl has it."""
    name = str(beside(_where.LIBRARY) or "libvexo_cmi.so.1")
    if not hasattr(ctypes.CDLL(None), "gorvGetVersion"):
        ctypes.CDLL(str(HERE / "libvexo_host.so"), ctypes.RTLD_GLOBAL)
    try:
        if not os.environ.get("KV_SIM_DEVICE"):
            try:
                return ctypes.CDLL(name)
            except OSError as error:
                if "libkv_" not in str(error) or _has_platform():
                    raise
        _load_simulator()
        return ctypes.CDLL(name)
    except OSError as error:
        raise LibraryMissing(
            f"the CMI library can't be loaded: {error}. Install libvexo-cmi1 and, where the device's "
            "own platform libraries (libkv_*.so) aren't there, libkv-simulator; or put the folders "
            "that have them into LD_LIBRARY_PATH before Python starts") from None


def _load() -> None:
    with _lock:
        if _operations:
            return
        library = _load_library()
        found = {}
        for name, declared in _declared.items():
            function = getattr(library, name)
            function.restype = None
            found[name] = function
            # From now on without a detour.
            if declared:
                setattr(sys.modules[declared], name.replace("vexo_cmi", "", 1), function)
        # Not when the interpreter, which the callbacks need, is gone.
        atexit.register(found["vexo_cmi_fini"])
        _operations.update(found)


_declared = {name: "" for name in (
    "vexo_cmi_init", "vexo_cmi_fini", "vexo_cmi_alarm_callback_register",
    "vexo_cmi_alarm_callback_unregister", "vexo_cmi_pm_callback_register",
    "vexo_cmi_pm_callback_unregister")}


def operation(name: str, module: str) -> Callable[..., None]:
    """An operation of the library, which is loaded when one is first called."""
    def first(*arguments: Any) -> None:
        _load()
        _operations[name](*arguments)
    _declared[name] = module
    return first


def operations() -> List[str]:
    """Names of the operations."""
    return [name.replace("vexo_cmi_", "", 1) for name, module in _declared.items() if module]


def call(name: str) -> None:
    """Calls a function that takes nothing and tells nothing."""
    _load()
    _operations[name]()
    if not name.endswith("init"):  # no callback is running, nor will one come
        for service in list(_kept):
            if service in name or name.endswith("fini"):
                del _kept[service]


_Callback = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


def callback(name: str, function: Optional[Callable[[Any], None]], record: Type[Record]) -> None:
    """Registers a callback."""
    if not (function is None or callable(function)):
        raise TypeError(f"{name.replace('vexo_cmi_', '', 1)}: expected a function, not {function!r}")
    _load()

    def deliver(place: int) -> None:
        told = record.read(ctypes.string_at(place, record.size))
        # The record is used again: which arrangement the next one has shows in what is written then.
        ctypes.memset(place, 0xFF, record.size)
        assert function
        function(told)

    taken = _Callback(deliver) if function else None
    # One that was replaced may still be running.
    _kept.setdefault(name.split("_")[2], []).append(taken)
    _operations[name](taken)


def failure(name: str, result: Result) -> CmiError:
    """The error of an operation that failed."""
    kind = sys.modules[__package__ + "._interface"].Rc
    return CmiError(kind(result.rc), result.message.decode(errors="replace"), name)


def control(prototypes: Dict[str, Any]) -> ctypes.CDLL:
    """The control of the simulated device."""
    with _lock:
        try:
            if _operations and not _runs_simulated():
                raise LibraryMissing("the library was loaded on this device's own platform libraries; "
                                     "use Device before the first operation, or set KV_SIM_DEVICE")
            library = _load_simulator()
        except OSError as error:
            if isinstance(error, LibraryMissing):
                raise
            raise LibraryMissing(
                f"the simulated device can't be loaded: {error}. Install libkv-simulator, or put its "
                "folder into LD_LIBRARY_PATH before Python starts") from None
        for name, (result, parameters) in prototypes.items():
            function = getattr(library, name)
            function.restype, function.argtypes = result, list(parameters.values())
        return library


def end_services() -> None:
    """Ends the callbacks' services, if there are any."""
    if _operations:
        call("vexo_cmi_fini")


def _runs_simulated() -> bool:
    with open("/proc/self/maps", encoding="utf-8", errors="replace") as maps:
        return any(line.rstrip().endswith("/libkv_sim.so") for line in maps)
