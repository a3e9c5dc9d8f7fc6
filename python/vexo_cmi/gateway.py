"""A device of a test's own, and the agents that run on it."""
from __future__ import annotations

import fnmatch
import json
import os
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, List, Mapping, Optional, Sequence, Tuple, Union

from . import _library, _where
from .device import LONG, VARIABLE, Device, DeviceError, PathLike, as_seconds, known, use
from .document import Document, vexoctl

__tracebackhide__ = True  # pytest shows where in a test it came to that
RECORDING_SIZE = 2 << 20
QUIET = 0.05  # an agent that asks nothing and computes nothing for so long is idle
SUBSCRIBED = 1.0  # after which one that listens to one service, and is never idle, is ready
LOOK = 0.002  # how often that is looked at
LAST = 200  # letters of what it printed last, in an error
PATIENCE = 5.0  # how long an agent may take to end
# What is recorded besides operations and functions of the platform.
CALLBACKS = ["vexoAlarmCallback", "vexoPmCallback", "alarm_notification_handler", "pm_notification_handler",
             "alarm_callback_register", "pm_callback_register"]


class AgentError(AssertionError):
    """An agent that doesn't start, or ends otherwise than it should."""


@dataclass
class TraceCall:
    """A call of an operation, of a platform function or of a callback, as it was recorded."""
    name: str
    layer: str  # "operation", "platform" or "callback"
    arguments: Dict[str, Any]
    result: Optional[Dict[str, Any]]  # None: it has not returned
    duration: float
    thread: int
    children: List["TraceCall"] = field(default_factory=list)

    @classmethod
    def _of(cls, row: Mapping[str, Any]) -> "TraceCall":
        return cls(row["name"], row["layer"], row["arguments"], row.get("result"),
                   row.get("duration", 0.0), row["thread"],
                   [cls._of(child) for child in row.get("children", [])])

    def all(self) -> Iterator["TraceCall"]:
        """The call and all that were made within it."""
        yield self
        for child in self.children:
            yield from child.all()


class Trace:
    """What agents asked of the library, and that of the platform, as vexotrace tells it."""

    def __init__(self, gateway: "Gateway", files: Sequence[Path]) -> None:
        self._gateway = gateway
        self._files = [str(file) for file in files if file.exists()]

    def _show(self, *words: str) -> str:
        if not _recorder():  # of what was never recorded, nothing could be said to be missing
            raise _library.LibraryMissing(f"{os.path.basename(_where.RECORDER)}, which records, isn't there: "
                                          "install vexo-trace, or put its folder into LD_LIBRARY_PATH")
        if not self._files:
            return ""
        return subprocess.run([_library.program(_where.VEXOTRACE, "vexotrace"), "show", *words,
                               *self._files], capture_output=True, check=False, text=True,
                              errors="replace").stdout

    def __str__(self) -> str:
        return self._show()

    def __iter__(self) -> Iterator[TraceCall]:
        """The calls that were not made within another one."""
        for line in self._show("--json").splitlines():
            yield TraceCall._of(json.loads(line))

    def calls(self, name: str = "*") -> List[TraceCall]:
        """All calls of such a name, of both layers: "config_add_pw", "pwe_*". A ValueError when nothing
        is named like that."""
        found = [call for tree in self for call in tree.all() if fnmatch.fnmatch(call.name, name)]
        if not found:
            names = [*_library.operations(), *CALLBACKS, *self._gateway.functions]
            if not fnmatch.filter(names, name):
                known("operation, platform function or callback", name, names)
        return found


class Agent:
    """An agent that runs on a gateway, which starts it by agent(); as a context manager it ends with
    the block."""

    def __init__(self, gateway: "Gateway", command: Union[str, Sequence[PathLike]], *,
                 cwd: Optional[PathLike] = None, env: Optional[Mapping[str, str]] = None,
                 ready: bool = True, timeout: float = LONG) -> None:
        self.gateway = gateway
        words = shlex.split(command) if isinstance(command, str) else [os.fspath(word) for word in command]
        if not words:
            raise ValueError(f"expected the command of an agent, not {command!r}")
        self.name = os.path.basename(words[0])
        number = len(gateway.agents) + 1
        self.recording = gateway.folder / f"{number}.trace"
        self._output = gateway.folder / f"{number}.output"
        self._told = False  # that it has ended, and how
        before, calls = {one.process for one in gateway.subscriptions}, gateway.last_call
        with open(self._output, "wb") as output:
            try:
                self._process = subprocess.Popen(  # pylint: disable=consider-using-with
                    words, stdin=subprocess.DEVNULL, stdout=output, stderr=output, cwd=cwd,
                    start_new_session=True, env={**gateway.environment(self.recording), **(env or {})})
            except OSError as error:
                raise AgentError(f"the agent can't be started: {error}") from None
        gateway.agents.append(self)
        if ready:
            self._wait_ready(before, calls, timeout)

    def _wait_ready(self, before: "set[int]", calls: int, timeout: float) -> None:
        """Until it listens to both services; or has asked something and is idle; or has ended
        well."""
        start = since = time.monotonic()
        last = calls
        while self.running:
            now = time.monotonic()
            services = sum(one.process not in before for one in self.gateway.subscriptions)
            latest = self.gateway.last_call
            if latest != last or self.busy:
                last, since = latest, now
            if services > 1 or (services and now - start > SUBSCRIBED) or (
                    last > calls and now - since > QUIET):
                return
            if now - start > timeout:
                raise AgentError(f"{self.name} has neither subscribed nor become idle for {timeout} "
                                 f"seconds{self._said()}")
            time.sleep(LOOK)
        self._expect(0)

    def _said(self) -> str:
        last = self.output.rstrip().rpartition("\n")[2]
        return last and f"; the last it printed: {last[:LAST]}{'...' * (len(last) > LAST)}"

    def _expect(self, *statuses: int) -> None:
        self._told = True
        if self._process.returncode not in statuses:
            status = self._process.returncode
            how = f"signal {signal.Signals(-status).name}" if status < 0 else f"status {status}"
            raise AgentError(f"{self.name} ended with {how}{self._said()}")

    @property
    def pid(self) -> int:
        """Number of its process."""
        return self._process.pid

    @property
    def running(self) -> bool:
        """Whether it runs."""
        return self._process.poll() is None

    @property
    def busy(self) -> bool:
        """Whether a thread of it, or of what it has started, has something to do."""
        return any(state in "RD" for _, state in _threads(self.pid))  # runs, or waits for a disk

    @property
    def status(self) -> Optional[int]:
        """With what it ended, a signal's number with a minus; None: it runs."""
        return self._process.poll()

    @property
    def output(self) -> str:
        """What it has printed."""
        return self._output.read_text(encoding="utf-8", errors="replace")

    @property
    def trace(self) -> Trace:
        """What it has asked of the library, and that of the platform."""
        return Trace(self.gateway, [self.recording])

    def send(self, number: int) -> None:
        """Sends it, and what it has started, a signal."""
        try:
            os.killpg(self.pid, number)
        except ProcessLookupError:
            pass

    def suspend(self) -> None:
        """Stops it, and what it has started, until resume(): never while it holds the device, which
        nobody else could use then."""
        while True:
            self.send(signal.SIGSTOP)
            self.gateway.wait_for(lambda: all(state not in "RSD" for _, state in _threads(self.pid)))
            if self.gateway.holder not in [thread for thread, _ in _threads(self.pid)]:
                return
            self.resume()

    def resume(self) -> None:
        """Lets it go on."""
        self.send(signal.SIGCONT)

    def kill(self) -> None:
        """Kills it, as a crash or a loss of power would end it."""
        self.send(signal.SIGKILL)
        self._process.wait()
        self._told = True

    def wait(self, timeout: float = LONG) -> int:
        """Waits until it ends by itself, and returns its status."""
        try:
            status = self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise AgentError(f"{self.name} has not ended within {timeout} seconds") from None
        self._told = True
        return status

    def stop(self) -> None:
        """Ends it as a system does, by SIGTERM. An AgentError when it had ended before, ends with
        another status than 0, or doesn't end."""
        if self._told:
            return
        early = not self.running
        if early:
            self._expect(0)
            return
        self.send(signal.SIGTERM)
        self.resume()
        try:
            self._process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.kill()
            raise AgentError(f"{self.name} has not ended {PATIENCE} seconds after SIGTERM"
                             f"{self._said()}") from None
        finally:
            self.send(signal.SIGKILL)  # what it left behind
        self._expect(0, -signal.SIGTERM, 128 + signal.SIGTERM)

    def __enter__(self) -> "Agent":
        return self

    def __exit__(self, kind: Any, *_: Any) -> None:
        if kind is None:
            self.stop()
        else:
            self.send(signal.SIGTERM)

    def __repr__(self) -> str:
        state = "runs" if self.running else f"ended: {self.status}"
        return f"<agent {self.name}, process {self.pid}, {state}>"


class Gateway(Device):
    """A simulated device of its own, in a folder of its own, with the agents that run on it."""

    def __init__(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="gateway-"))
        self.agents: List[Agent] = []
        self._before = os.environ.get(VARIABLE)
        try:
            super().__init__(self.folder / "device")
        except BaseException:
            shutil.rmtree(self.folder, ignore_errors=True)
            raise

    @property
    def file(self) -> Path:
        """The device's file, for whatever else is to use it: KV_SIM_DEVICE."""
        return self.folder / "device"

    def environment(self, recording: Path) -> Dict[str, str]:
        """What a process needs that is to use this device, and is recorded."""
        folders = [_library.simulator(), os.environ.get("LD_LIBRARY_PATH"), _library.library_folder()]
        recorder = _recorder()
        preloaded = [recorder, os.environ.get("LD_PRELOAD")] if recorder else [os.environ.get("LD_PRELOAD")]
        return {**os.environ, VARIABLE: str(self.file),
                "LD_LIBRARY_PATH": ":".join(str(one) for one in folders if one),
                "LD_PRELOAD": ":".join(one for one in preloaded if one),
                "VEXO_TRACE": str(recording), "VEXO_TRACE_SIZE": str(RECORDING_SIZE)}

    @property
    def config(self) -> Document:
        """What the device is set to now."""
        return Document.of_device(str(self.file))

    @property
    def trace(self) -> Trace:
        """What its agents have asked of the library, and that of the platform."""
        return Trace(self, [agent.recording for agent in self.agents])

    def agent(self, command: Union[str, Sequence[PathLike]], *, cwd: Optional[PathLike] = None,
              env: Optional[Mapping[str, str]] = None, ready: bool = True, timeout: float = LONG) -> Agent:
        """Starts an agent, and waits until it has subscribed or is idle.

        command: a text, which is split into words as by a shell, or the words; no shell runs it
        cwd: folder that it runs in; that of the test, if not given
        env: variables of its environment, besides those of the test and of the device
        ready: whether to wait until it has subscribed to both services, or has called something of
            the platform and then neither calls nor computes for 50 ms, or has ended with status 0. One
            that sleeps longer between two tries is taken for ready meanwhile
        timeout: seconds of that waiting, after which there is an AgentError
        """
        return Agent(self, command, cwd=cwd, env=env, ready=ready, timeout=timeout)

    def wait_idle(self, quiet: float = QUIET, timeout: float = LONG) -> None:
        """Waits until no function of the platform has been called for `quiet` seconds in which no agent
        had something to do: also where the machine has other work, and lets an agent wait for its
        turn. One that sleeps longer than that between two tries is idle meanwhile: let `quiet` be
        more, or wait_for() what is to come about."""
        as_seconds("quiet", quiet)
        since = now = start = time.monotonic()
        last = self.last_call
        while now - since < quiet:
            if now - start > timeout:
                raise DeviceError(f"not idle for {quiet} seconds within {timeout}")
            time.sleep(LOOK)
            now, latest = time.monotonic(), self.last_call
            if latest != last or any(agent.busy for agent in self.agents):
                since, last = now, latest

    def wait_for(self, condition: Callable[[], Any], timeout: float = LONG) -> Any:
        """Waits until a condition holds, and returns what it gave. It doesn't while what it asks of the
        device fails, as when that restarts."""
        end = time.monotonic() + timeout
        while True:
            late = time.monotonic() > end
            try:
                given = condition()
                if given:
                    return given
                if late:
                    raise AssertionError(f"what was waited for has not come about in {timeout} seconds")
            except (_library.CmiError, DeviceError):
                if late:
                    raise
            time.sleep(LOOK)

    def changes(self) -> str:
        """What the device is set to otherwise than a new one, a line each."""
        new = self.folder / "new.json"
        Document.of_device("").save(new)
        _, output, error = vexoctl("config", "diff", str(new), ".", device=str(self.file))
        return output + error

    def end(self) -> None:
        """Ends its agents and removes it."""
        used = self.in_use
        try:
            for agent in self.agents:
                if agent.running:
                    agent.kill()
            if self.agents:
                _kill_all(self.file)
            if used:
                self.clear_faults()
                _library.end_services()
                self.close()
        finally:  # the next test is to have a device of its own whatever became of this one
            if used:
                use(self._before)
            shutil.rmtree(self.folder, ignore_errors=True)


def _kill_all(device: Path) -> None:
    """Kills whoever was started to use this device, in whichever session it runs now."""
    mark = os.fsencode(f"{VARIABLE}={device}") + b"\0"
    limit = time.monotonic() + 0.2
    again = True
    while again and time.monotonic() < limit:
        again = False
        for process in filter(str.isdigit, os.listdir("/proc")):
            try:
                environment = Path(f"/proc/{process}/environ").read_bytes()
                if mark in environment:
                    os.kill(int(process), signal.SIGKILL)
                    again = True  # it may have started another meanwhile
                elif not environment:
                    os.readlink(f"/proc/{process}/exe")
                    again = True  # it becomes another program just now, and has none yet
            except OSError:  # has ended, or is somebody else's
                pass


def _threads(process: int) -> Iterator[Tuple[int, str]]:
    """The threads of a process, and of what it has started, and the states of these."""
    try:
        for thread in os.listdir(f"/proc/{process}/task"):
            folder = f"/proc/{process}/task/{thread}"
            with open(f"{folder}/stat", encoding="utf-8", errors="replace") as stat:
                yield int(thread), stat.read().rpartition(")")[2].split()[0]
            with open(f"{folder}/children", encoding="ascii") as children:
                for child in children.read().split():
                    yield from _threads(int(child))
    except (FileNotFoundError, ProcessLookupError):  # has just ended
        pass


def _recorder() -> Optional[str]:
    """The recorder as it can be preloaded: not by a path with a blank or colon."""
    path = _library.beside(_where.RECORDER)
    if not path:
        return None
    if not any(one in str(path) for one in " :"):
        return str(path)
    return _linked(path)


_links: Dict[Path, tempfile.TemporaryDirectory] = {}  # type: ignore[type-arg]


def _linked(path: Path) -> Optional[str]:
    if path not in _links:
        _links[path] = tempfile.TemporaryDirectory(prefix="vexo-")  # pylint: disable=consider-using-with
        (Path(_links[path].name) / path.name).symlink_to(path)
    return str(Path(_links[path].name) / path.name)
