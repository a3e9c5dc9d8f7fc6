"""The simulated device: faults, time, alarms, counters, and what it was asked.

What stands here in a few words, kv_sim.h and docs/simulated-device.md tell in full. Times are in
seconds. Objects are named by their kind, "system", "pdh", "pwe", "ima-group" or "ima-link", and
their number; services, "alarms" or "pm", and "both".

What can't be meant, a name that nothing has or a number out of its range, is a ValueError, and what
is of another type a TypeError, before the device is asked; what the device refuses, and what does
not come about, is a DeviceError.
"""
from __future__ import annotations

import ctypes
import difflib
import functools
import os
import re
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from typing import Any, Collection, Dict, Iterator, List, Mapping, Optional, Tuple, Union

from . import _control
from ._control import Effect, Ending
from ._library import control, operations
from ._records import LIMITS, NUMBER, text_bytes, whole

__tracebackhide__ = True  # pytest shows where in a test it came to that
KINDS = {"system": _control.SYSTEM, "pdh": _control.PDH, "ima-group": _control.GROUP, "pwe": _control.PW,
         "ima-link": _control.LINK}
COUNTS = {"system": 1, "pdh": _control.PORTS, "ima-group": _control.GROUPS, "pwe": _control.PWS,
          "ima-link": _control.LINKS}
# What a function's argument numbers.
OBJECTS = {"port": "pdh", "group": "ima-group", "pwId": "pwe", "link": "ima-link"}
SERVICES = {"any": 0, "alarms": _control.ALARMS, "pm": _control.REPORTS,
            "both": _control.ALARMS + _control.REPORTS}
# Of Device, in the order of the effects.
METHODS = ("fail", "slow", "hang", "garble", "lose", "ignore", "drop", "double", "late", "swap", "hold")
EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)
LATEST = 253402300799  # the end of the year 9999, where the device's clock stops
LETTERS = 255  # of a setting, at most
VARIABLE = "KV_SIM_DEVICE"
LONG = 10.0  # how long is waited for what should come at once, on whichever machine
PathLike = Union[str, "os.PathLike[str]"]


class DeviceError(Exception):
    """The device can't do it, or what was waited for has not come about; the text says why."""


def use(path: Optional[str]) -> Optional[str]:
    """Names the device that this process uses, and each that it starts."""
    if path is None:
        os.environ.pop(VARIABLE, None)
    else:
        os.environ[VARIABLE] = path
    return path


def _number(names: Mapping[str, int], name: str) -> int:
    if name not in names:
        raise ValueError(f"expected one of {', '.join(names)}, not {name!r}")
    return names[name]


def _kind(number: int) -> str:
    return next((name for name, value in KINDS.items() if value == number), str(number))


def known(what: str, name: str, names: Collection[str]) -> None:
    """The error of a name that nothing has, with those that are near."""
    if not isinstance(name, str):
        raise TypeError(f"{what}: expected a name, not {name!r}")
    if name not in names:
        near = " or ".join(map(repr, difflib.get_close_matches(name, names)))
        raise ValueError(f"there is no {what} {name!r}{near and f': did you mean {near}?'}")


def _object(name: str, kind: str, number: int) -> Tuple[int, int]:
    """An object as the device takes it."""
    of = _number(KINDS, kind)
    return of, whole(f"{name} ({kind})", number, COUNTS[kind], least=1)


def _real(name: str, value: float, least: float, most: float) -> float:
    if not isinstance(value, (int, float)):
        raise TypeError(f"{name}: expected a number, not {value!r}")
    if not least <= value <= most:
        raise ValueError(f"{name}: expected a number from {least:.15g} to {most:.15g}, not {value!r}")
    return value


def as_seconds(name: str, value: float) -> float:
    """A time as it can be given."""
    return _real(name, value, 0, NUMBER / 1000)


def _milliseconds(name: str, value: float) -> int:
    return round(as_seconds(name, value) * 1000)


def _timeout(value: float) -> int:
    # What is left of a longer one may be less.
    return _milliseconds("timeout", max(0, value) if isinstance(value, (int, float)) else value)


def _microseconds(name: str, time: Union[datetime, float]) -> int:
    if isinstance(time, datetime):
        return (time.astimezone(timezone.utc) - EPOCH) // timedelta(microseconds=1)
    return round(_real(name, time, 0, LATEST) * 1000000)


def _time(microseconds: int) -> datetime:
    return EPOCH + timedelta(microseconds=microseconds)


@dataclass
class Call:
    """A call of a platform function, as the device's journal has it."""
    number: int
    function: str
    arguments: Dict[str, int]
    code: int
    operation: str  # of the library, where that is recorded
    process: int
    thread: int
    time: datetime  # of the device
    host_time: datetime
    duration: float
    pending: bool
    fault: int  # id of the one that met it; 0: none
    given: bytes  # the record that it was given
    filled: bytes  # what it filled

    def __str__(self) -> str:
        given = ", ".join(f"{name}={value}" for name, value in self.arguments.items())
        result = "pending" if self.pending else f"{self.code}{f', by fault {self.fault}' * (self.fault > 0)}"
        return f"{self.function}({given}) = {result}"


@dataclass
class Subscription:
    """A process that listens to the device."""
    process: int
    service: str
    waiting: int
    lost: int


@dataclass
class Rate:
    """By how much a counter grows."""
    kind: str
    number: int
    counter: int
    amount: int
    seconds: float
    om: bool = False
    burst: bool = False


@dataclass
class LogRecord:
    """A record of the platform's log."""
    number: int
    level: int
    module: int
    file: str
    line: int
    function: str
    text: str


class Fault:
    """A fault that was added, as it stands now."""

    def __init__(self, device: "Device", number: int) -> None:
        self._device = device
        self.id = number

    def _now(self) -> _control.Fault:
        found = _control.Fault()
        self._device.do("fault_find", self.id, found)
        return found

    @property
    def met(self) -> int:
        """How many calls or notifications it has met."""
        return int(self._now().met)

    @property
    def waiting(self) -> int:
        """How many calls hang by it, or how many notifications it keeps."""
        return int(self._now().waiting)

    @property
    def spent(self) -> bool:
        """Whether it has met all that it was to meet."""
        return bool(self._now().spent)

    def release(self) -> None:
        """Lets go what hangs by it and what it keeps; it stays."""
        self._device.do("fault_release", self.id)

    def end(self) -> None:
        """Ends it, and lets go what hangs by it."""
        self._device.do("fault_end", self.id)

    def __str__(self) -> str:
        """As it would be added, and how many it has met."""
        try:
            now = self._now()
        except DeviceError as error:
            return str(error)
        effect, value = Effect(now.effect), now.value
        told = {"code": value * (effect in (Effect.CODE, Effect.LOST)),
                "seconds": value / 1000 * (effect in (Effect.DELAY, Effect.LATE)),
                "seed": now.seed or value * (effect is Effect.GARBAGE),
                "object": now.object, "kind": _kind(now.type) if now.ofType else "",
                "process": now.process, "operation": now.operation.decode().replace("vexo_cmi_", "", 1),
                "where": {one.name.decode(): one.value for one in now.where if one.name},
                "skip": now.skip, "times": 0 if now.nth else now.times + now.met * (now.times > 0 or now.spent),
                "nth": now.nth, "chance": now.chance / 1000000}
        first = now.function.decode()
        if effect >= Effect.DROP:
            first = "pm" if now.service == _control.REPORTS else "alarms"
        words = [repr(first)] * (first != "") + [f"{name}={one!r}" for name, one in told.items() if one]
        waiting = f", {now.waiting} waiting" if now.waiting else ""
        return f"{METHODS[effect]}({', '.join(words)}): met {now.met or 'none'}{waiting}"

    def __repr__(self) -> str:
        return f"<fault {self.id}: {self}>"


class Clock:
    """The device's clock; the host's is never touched."""

    def __init__(self, device: "Device") -> None:
        self._device = device

    @property
    def now(self) -> datetime:
        """What it shows."""
        return _time(self._device.ask("clock_get"))

    def set(self, time: Union[datetime, float]) -> None:
        """Sets it, to seconds since 1970 or a datetime: no time passes by that, no interval ends."""
        self._device.do("clock_set", _microseconds("time", time))

    def advance(self, seconds: float = 0, *, minutes: float = 0, hours: float = 0, days: float = 0,
                anyway: bool = False) -> None:
        """Lets time pass. Every PM interval that is over meanwhile ends, one after the other, each
        as soon as the report of the one before is dealt with; anyway: a subscriber that gets no
        further is not waited for."""
        spans = {"seconds": (seconds, 1), "minutes": (minutes, 60), "hours": (hours, 3600),
                 "days": (days, 86400)}
        self._device.do("clock_advance_anyway" if anyway else "clock_advance",
                        sum(_microseconds(name, _real(name, value, 0, LATEST / unit) * unit)
                            for name, (value, unit) in spans.items()))

    def stop(self) -> None:
        """Stops it: time passes by advance() only."""
        self._device.do("clock_stop", 1)

    def run(self) -> None:
        """Lets it run on."""
        self._device.do("clock_stop", 0)

    @property
    def stopped(self) -> bool:
        """Whether it is stopped."""
        return bool(self._device.ask("clock_stopped"))


class Settings:
    """What the device is like, and does by itself: device.settings["temperature"] = 70."""

    def __init__(self, device: "Device") -> None:
        self._device = device

    def __getitem__(self, name: str) -> str:
        value = ctypes.create_string_buffer(LETTERS + 1)
        self._device.do("get", self._name(name), value, LETTERS + 1)
        return value.value.decode()

    def __setitem__(self, name: str, value: Union[str, int, bool]) -> None:
        text = ("off", "on")[value] if isinstance(value, bool) else str(value)
        self._device.do("set", self._name(name), text_bytes(name, text, LETTERS))

    @staticmethod
    def _name(name: str) -> bytes:
        return text_bytes("name of a setting", name, LETTERS)

    def __iter__(self) -> Iterator[str]:
        """Their names."""
        index = 0
        while True:
            name = self._device.ask("setting", index)
            if name is None:
                return
            yield name.decode()
            index += 1


class Device:
    """The simulated device that this process uses, and with it the operations that it calls: in the
    file of this path, which is made if it isn't there; without one, in that which KV_SIM_DEVICE
    names, or else in memory. `clock` is its time, and `settings` has what it is like."""

    def __init__(self, path: Optional[PathLike] = None) -> None:
        self._control = control(_control.PROTOTYPES)
        before = self.path = os.environ.get(VARIABLE)
        self.clock = Clock(self)
        self.settings = Settings(self)
        self.added: List[Fault] = []  # all of its faults, also those that have ended
        if path is not None:
            self.do("close")
            self.path = use(os.fspath(path))
        try:
            self.do("open")
        except DeviceError:
            use(before)
            raise

    @property
    def in_use(self) -> bool:
        """Whether this process uses it; it uses one at a time."""
        return os.environ.get(VARIABLE) == self.path

    def ask(self, name: str, *arguments: Any) -> Any:
        """What the function of this name returns, "clock_get" for kv_sim_clock_get()."""
        if not self.in_use:
            raise DeviceError(f"{self.path or 'the device in memory'} isn't in use any more: a process uses "
                              "one device at a time")
        _, parameters = _control.PROTOTYPES["kv_sim_" + name]
        return getattr(self._control, "kv_sim_" + name)(*(
            whole(own, one, LIMITS[kind]) if kind in LIMITS
            else one if one is None or isinstance(one, (int, bytes, ctypes.Array)) else ctypes.byref(one)
            for one, (own, kind) in zip(arguments, parameters.items())))

    def do(self, name: str, *arguments: Any) -> int:
        """The same, of one that can fail."""
        result = self.ask(name, *arguments)
        if result < 0:
            raise DeviceError(self.ask("error").decode(errors="replace"))
        return int(result)

    def _each(self, name: str, kind: Any, *before: Any) -> Iterator[Any]:
        """What a function tells by an index from 0."""
        index, found = 0, kind()
        while self.ask(name, *before, index, found) == 0:
            yield found
            index, found = index + 1, kind()

    def close(self) -> None:
        """Lets the device go, so that another one can be used."""
        self.do("close")

    def reset(self) -> None:
        """Puts it back to its factory defaults: everything, faults, journal, log and clock."""
        self.do("reset")

    # ---- Faults ----

    def fault(self, effect: Effect, value: int = 0, *,  # pylint: disable=too-many-locals
              function: str = "",
              object: Optional[int] = None,  # pylint: disable=redefined-builtin
              kind: Optional[str] = None, service: Optional[str] = None, skip: int = 0, times: int = 0,
              nth: Optional[int] = None, chance: Optional[float] = None, seed: int = 0, process: int = 0,
              operation: str = "", where: Optional[Mapping[str, int]] = None) -> Fault:
        """Adds a fault: what befalls the calls of a platform function, or notifications. It meets
        those that fit: about the object with this number and of this kind, by this process, in this
        operation, where the arguments or fields have these values, three at most
        ({"params.clockMode": 2}). It lets `skip` pass first, meets `times` of them, 0: all; or only
        the nth, from 1; or each with this chance, from 0.000001 to 1."""
        wanted = _control.Fault(
            skip=skip, times=times, effect=effect, value=value, process=process, seed=seed,
            nth=0 if nth is None else whole("nth", nth, NUMBER, least=1),
            chance=0 if chance is None else round(_real("chance", chance, 0.000001, 1) * 1000000),
            service=_number(SERVICES, service) if service else 0)
        if function:
            self._check_function(function)
            wanted.function = function.encode()
        if kind is not None:
            wanted.ofType, wanted.type = 1, _number(KINDS, kind)
        if object is not None:
            of = kind or "".join([OBJECTS[name] for name in self._arguments(function) if name in OBJECTS][:1])
            wanted.object = whole(f"object{of and f' ({of})'}", object, COUNTS.get(of, NUMBER), least=1)
        if operation:
            name = operation.removeprefix("vexo_cmi_") if isinstance(operation, str) else operation
            known("operation of the library", name, operations())
            wanted.operation = f"vexo_cmi_{name}".encode()
        self._put_where(wanted, where or {})
        number = self.ask("fault_arm", wanted)
        if number == 0:
            raise DeviceError(self.ask("error").decode())
        self.added.append(Fault(self, number))
        return self.added[-1]

    def _put_where(self, wanted: _control.Fault, where: Mapping[str, int]) -> None:
        if not isinstance(where, Mapping):
            raise TypeError(f"where: expected numbers by their names, not {where!r}")
        if len(where) > len(wanted.where):
            raise ValueError(f"where: expected at most {len(wanted.where)} numbers")
        function = wanted.function.decode()
        for place, (name, value) in zip(wanted.where, where.items()):
            place.name = text_bytes("where", name, type(place).name.size - 1)
            if function:  # of lists the names are told for index 0
                known(f"number in {function}", re.sub(r"\.\d+\b", ".0", name), self._arguments(function))
            place.value = whole(f"where: {name}", value, NUMBER)

    def fail(self, function: str = "", code: int = 1, **fits: Any) -> Fault:
        """Lets the calls of a platform function fail with a code."""
        return self.fault(Effect.CODE, whole("code", code, NUMBER, least=1), function=function, **fits)

    def lose(self, function: str = "", code: int = 1, **fits: Any) -> Fault:
        """Loses answers: what was called is carried out, and fails with a code."""
        return self.fault(Effect.LOST, whole("code", code, NUMBER, least=1), function=function, **fits)

    def ignore(self, function: str = "", **fits: Any) -> Fault:
        """Calls succeed and change nothing."""
        return self.fault(Effect.NOTHING, function=function, **fits)

    def hang(self, function: str = "", **fits: Any) -> Fault:
        """Calls do not return until the fault is released or ended."""
        return self.fault(Effect.HANG, function=function, **fits)

    def slow(self, function: str = "", seconds: float = 1, **fits: Any) -> Fault:
        """Calls take so much longer."""
        return self.fault(Effect.DELAY, _milliseconds("seconds", seconds), function=function, **fits)

    def garble(self, function: str = "", seed: int = 1, **fits: Any) -> Fault:
        """Calls succeed with outputs of random bytes."""
        return self.fault(Effect.GARBAGE, whole("seed", seed, NUMBER), function=function, **fits)

    def drop(self, service: str = "alarms", **fits: Any) -> Fault:
        """Notifications are not sent."""
        return self.fault(Effect.DROP, service=service, **fits)

    def double(self, service: str = "alarms", **fits: Any) -> Fault:
        """Notifications are sent twice."""
        return self.fault(Effect.DOUBLE, service=service, **fits)

    def late(self, service: str = "alarms", seconds: float = 1, **fits: Any) -> Fault:
        """Notifications are sent so much later, by the device's time."""
        return self.fault(Effect.LATE, _milliseconds("seconds", seconds), service=service, **fits)

    def swap(self, service: str = "alarms", **fits: Any) -> Fault:
        """Notifications are sent after the next one."""
        return self.fault(Effect.SWAP, service=service, **fits)

    def hold(self, service: str = "alarms", **fits: Any) -> Fault:
        """Notifications are kept until the fault is released or ended."""
        return self.fault(Effect.HOLD, service=service, **fits)

    @property
    def faults(self) -> List[Fault]:
        """Those that can still meet something, or keep something."""
        return [Fault(self, found.id) for found in self._each_fault()]

    def _each_fault(self) -> Iterator[_control.Fault]:
        return self._each("fault_get", _control.Fault)

    def clear_faults(self) -> None:
        """Ends all of them, and lets go what hangs by them."""
        self.do("fault_clear")

    @property
    def hanging(self) -> int:
        """How many calls hang."""
        return int(self.ask("hanging"))

    @property
    def functions(self) -> Dict[str, List[str]]:
        """The platform's functions, and the names of what each is given."""
        return {name: self._arguments(name) for name in self._functions}

    @functools.cached_property
    def _functions(self) -> List[str]:
        found: List[str] = []
        while True:
            name = self.ask("function", len(found))
            if name is None:
                return found
            found.append(name.decode())

    def _arguments(self, function: str) -> List[str]:
        return [] if not function else [argument.name.decode()
                for argument in self._each("argument_get", _control.Argument, function.encode())]

    def _check_function(self, name: str) -> None:
        if name in operations():
            raise ValueError(f"{name!r} is an operation, not a platform function")
        known("platform function", name, self._functions)

    # ---- Restart ----

    def reboot(self, seconds: float = 0, *, keep_configuration: bool = True,
               keep_faults: bool = False, keep_journal: bool = True,
               clock: Union[datetime, float, None] = None) -> None:
        """Restarts the device, which is away for so long, by its own time: each call fails then, and
        all subscriptions end. Without its configuration it comes back with factory defaults."""
        self.do("reboot", _control.Reboot(
            milliseconds=_milliseconds("seconds", seconds), keepConfiguration=keep_configuration,
            keepFaults=keep_faults, keepJournal=keep_journal, setClock=clock is not None,
            clock=0 if clock is None else _microseconds("clock", clock)))

    @property
    def away(self) -> float:
        """Seconds until the device is back; 0: it is there."""
        return float(self.ask("away")) / 1000

    @property
    def holder(self) -> int:
        """The thread that holds the device at this moment, or was stopped while it did; 0: none."""
        return int(self.ask("holder"))

    # ---- Journal ----

    def calls(self, function: str = "", after: int = 0) -> List[Call]:
        """The calls of the platform's functions that the journal holds, of all or of one function,
        that came after the one with this number."""
        if function:
            self._check_function(function)
        return [call for call in self.follow(_control.Cursor(next=after + 1) if after else None)
                if function in ("", call.function)]

    @property
    def last_call(self) -> int:
        """Number of the latest call; 0: none yet."""
        return int(self.ask("journal_last"))

    def end_of_journal(self) -> _control.Cursor:
        """A place for follow(), behind the latest call. Its `lost` counts the calls that the journal
        dropped before they were read."""
        cursor = _control.Cursor()
        self.do("journal_end", cursor)
        return cursor

    def follow(self, cursor: Optional[_control.Cursor] = None, timeout: float = 0) -> Iterator[Call]:
        """Each call from a place on, until none has come for so long."""
        cursor = cursor or _control.Cursor()
        found = _control.Call()
        while self.do("journal_next", cursor, found, _timeout(timeout)):
            yield self._call(found)

    def call(self, number: int) -> Call:
        """The call with this number, as it stands now."""
        found = _control.Call()
        self.do("journal_get", number, found)
        return self._call(found)

    @staticmethod
    def _call(found: _control.Call) -> Call:
        arguments = {found.argNames[i].decode(): found.args[i] for i in range(found.argCount)}
        return Call(found.number, found.function.decode(), arguments, found.code,
                    found.operation.decode().replace("vexo_cmi_", "", 1), found.process, found.thread,
                    _time(found.deviceTime), _time(found.hostTime), found.duration / 1e9,
                    bool(found.pending), found.fault, bytes(found.record[:found.recordSize]),
                    bytes(found.out[:found.outSize]))

    def races(self) -> List[Tuple[int, int, int]]:
        """Lost updates among the calls that the journal holds: the numbers of a read, of another
        thread's write in between, and of the write that undoes it."""
        count = self.do("journal_races", None, 0)
        found = (_control.Race * count)()
        self.do("journal_races", found, count)
        return [(race.read, race.between, race.write) for race in found]

    # ---- Waiting ----

    def wait_subscribed(self, process: int = 0, service: str = "any", timeout: float = LONG) -> None:
        """Waits until a process (0: any) has subscribed."""
        self.do("wait_subscribed", process, _number(SERVICES, service), _timeout(timeout))

    def wait_handled(self, timeout: float = LONG) -> None:
        """Waits until all subscribers have dealt with all notifications that have been sent."""
        self.do("wait_handled", _timeout(timeout))

    def wait_idle(self, quiet: float = 0.05, timeout: float = LONG) -> None:
        """Waits until no function of the platform has been called for a while."""
        self.do("wait_idle", _milliseconds("quiet", quiet), _timeout(timeout))

    def wait_hanging(self, calls: int = 1, timeout: float = LONG) -> None:
        """Waits until so many calls hang."""
        self.do("wait_hanging", calls, _timeout(timeout))

    # ---- Alarms ----

    def alarm(self, kind: str, number: int, bits: int, event: bool = True) -> None:
        """Sets the alarm bits that are active on an object; an event tells of it, or does not."""
        self.do("alarm_set" if event else "alarm_alter", *_object("number", kind, number), bits)

    def send_alarm(self, kind: Union[str, int], number: int, status: int, delta: int, *,
                   count: int = 1, pause: float = 0) -> None:
        """Sends an event as it is, whatever the device's state, or the same one many times."""
        of = kind if isinstance(kind, int) else _number(KINDS, kind)
        if count == 1:
            self.do("alarm_send", of, number, status, delta)
        else:
            self.do("alarm_burst", of, number, status, delta, count, _milliseconds("pause", pause))

    def alarm_bits(self, kind: str, number: int) -> int:
        """The alarm bits that are active on an object."""
        bits = ctypes.c_uint32()
        self.do("alarm_get", *_object("number", kind, number), bits)
        return bits.value

    # ---- Counters and PM intervals ----

    def end_interval(self, interval: int, *, only_tell: bool = False) -> None:
        """Ends a PM interval now; or only sends the report notification."""
        self.do("interval_send" if only_tell else "interval_end", interval)

    def set_period(self, interval: int, seconds: int) -> None:
        """Sets how long an interval lasts; 0: it only ends by end_interval()."""
        self.do("interval_period", interval, seconds)

    def set_pm(self, kind: str, number: int, interval: int, word: int, value: int) -> None:
        """Sets a word of an object's PM counters in the running interval."""
        self.do("pm_set", *_object("number", kind, number), interval, word, value)

    def pm(self, kind: str, number: int, interval: int, word: int) -> int:
        """Reads such a word."""
        value = ctypes.c_uint32()
        self.do("pm_get", *_object("number", kind, number), interval, word, value)
        return value.value

    def set_om(self, kind: str, number: int, counter: int, value: int) -> None:
        """Sets an OM counter of an object."""
        self.do("om_set", *_object("number", kind, number), counter, value)

    def om(self, kind: str, number: int, counter: int) -> int:
        """Reads one."""
        value = ctypes.c_uint64()
        self.do("om_get", *_object("number", kind, number), counter, value)
        return value.value

    def grow(self, rate: Rate) -> None:
        """Lets a counter grow from now on; an amount of 0 ends that."""
        if not isinstance(rate, Rate):
            raise TypeError(f"expected a Rate, not {rate!r}")
        self.do("rate_set", _control.Rate(*_object("number", rate.kind, rate.number), rate.om, rate.counter,
                                          rate.amount, _milliseconds("seconds", rate.seconds), rate.burst))

    @property
    def rates(self) -> List[Rate]:
        """The counters that grow."""
        return [Rate(_kind(found.type), found.number, found.counter, found.amount,
                     found.milliseconds / 1000, bool(found.om), bool(found.burst))
                for found in self._each("rate_get", _control.Rate)]

    # ---- Subscriptions ----

    @property
    def pending(self) -> Tuple[int, int]:
        """How many notifications have been sent that subscribers have not dealt with yet, and how
        many were lost."""
        waiting, lost = ctypes.c_uint32(), ctypes.c_uint64()
        self.do("pending", waiting, lost)
        return waiting.value, lost.value

    @property
    def subscriptions(self) -> List[Subscription]:
        """Who listens."""
        return [Subscription(found.process, "pm" if found.pm else "alarms", found.waiting, found.lost)
                for found in self._each("subscription_get", _control.Subscription)]

    def end_subscriptions(self, process: int = 0, service: str = "both",
                          ending: Ending = Ending.HANGUP) -> None:
        """Ends the subscriptions of a process (0: of all)."""
        self.do("subscription_end", process, _number(SERVICES, service), ending)

    # ---- Software upgrade and log ----

    def fail_upgrade(self, state: int) -> None:
        """Makes software loads fail when they reach this state (2 to 5); 0: none fails."""
        self.do("upgrade_fail", state)

    @property
    def log(self) -> List[LogRecord]:
        """What the platform's log holds."""
        found = []
        for number in range(1, self.ask("log_last") + 1):
            record = _control.Log()
            if self.ask("log_get", number, record) == 0:
                found.append(LogRecord(record.number, record.level, record.module,
                                       record.file.decode(errors="replace"), record.line,
                                       record.function.decode(errors="replace"),
                                       record.text.decode(errors="replace")))
        return found
