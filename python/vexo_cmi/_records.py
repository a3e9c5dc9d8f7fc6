"""Records between Python and C: what the generated interface is made of."""
from __future__ import annotations

import ctypes
import operator
import sys
from ctypes import Array, c_char, c_uint8, c_uint32, c_uint64, sizeof
from enum import IntEnum
from struct import unpack_from
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple, Type, TypeVar

__tracebackhide__ = True  # pytest shows where in a test it came to that
Word = c_uint32
NUMBER = 0xFFFFFFFF
# Written into what an operation may leave alone, to see whether it did.
UNTOUCHED = NUMBER
TEXT = "text"
MAC = "MAC address"


class Result(ctypes.Structure):
    """vexoResult: how an operation went."""
    _fields_ = [("rc", c_uint32), ("message", c_char * 128)]


class Enumeration(IntEnum):
    """A value that is no member is one without a name: it can be given, and is told as it is."""

    @classmethod
    def _missing_(cls, value: object) -> Any:
        if not isinstance(value, int) or not 0 <= value <= NUMBER:
            return None
        other: Any = int.__new__(cls, value)
        other._name_, other._value_ = str(value), value
        return cls._value2member_map_.setdefault(value, other)


class _MustBeGiven:
    def __repr__(self) -> str:
        return "must be given"


def whole(name: str, value: Any, limit: int, kind: Any = int, *, least: int = 0) -> Any:
    """A number as it can be given; the error of what is none, or an enumeration's other than its own."""
    numbers = f"a whole number from {least} to {limit}"
    if not hasattr(value, "__index__") or isinstance(value, Enumeration) and (
            kind is int or not isinstance(value, kind)):
        raise TypeError(f"{name}: expected {numbers if kind is int else kind.__name__}, not {value!r}")
    if not least <= value <= limit:
        raise ValueError(f"{name}: expected {numbers}, not {value!r}")
    return operator.index(value)


# Of C's types; ctypes itself would cut what is beyond.
LIMITS: Dict[Any, int] = {kind: (1 << 8 * sizeof(kind)) - 1 for kind in (c_uint8, c_uint32, c_uint64)}


class Structure(ctypes.Structure):
    """One that is filled by hand."""

    def __setattr__(self, name: str, value: Any) -> None:
        limit = LIMITS.get(dict(self._fields_)[name])
        super().__setattr__(name, value if limit is None else whole(name, value, limit))


# Of a field that is applied always: 0 would be a value, too.
MUST_BE_GIVEN: Any = _MustBeGiven()


class Field(NamedTuple):
    """A field of a record as it lies in memory."""
    name: str
    offset: int
    kind: Any  # int, an enumeration, a record, TEXT or MAC
    size: int = 4
    many: int = 0  # elements of a list, at most
    flag: Optional[int] = None  # where the word is that says whether it counts
    left_out: bool = False  # it may be, of a record that is given
    optional: bool = False  # an operation may leave it untouched
    written: bool = False  # of a list of words: those behind the last written one don't count
    counted: str = ""  # the field that says how many elements count
    by: str = ""  # the field whose value says whether there is this one
    values: Tuple[int, ...] = ()
    unless: Tuple[int, ...] = ()
    told: Optional[int] = None  # where the flag of this arrangement is
    alone: Tuple[int, ...] = ()  # the values with which nothing else is read
    limit: int = NUMBER
    needs: Tuple[str, ...] = ()  # of a record: what may not be left out of it here

    def is_there(self, other: Any) -> bool:
        """Whether there is this field, by the value of the one that it depends on."""
        return not self.by or (other in self.values if self.values else other not in self.unless)

    def places(self, data: Any, base: int, count: int) -> Iterator[Any]:
        """Reads so many elements."""
        for place in range(base + self.offset, base + self.offset + count * self.size, self.size):
            if self.kind is TEXT:
                yield data[place:place + self.size].split(b"\0")[0].decode(errors="surrogateescape")
            elif self.kind is MAC:
                yield mac_text(data[place:place + self.size])
            elif isinstance(self.kind, type) and issubclass(self.kind, Record):
                yield self.kind.read(data, place)
            else:
                make: Any = self.kind
                yield make(int.from_bytes(data[place:place + self.size], sys.byteorder))

    def put(self, data: bytearray, place: int, value: Any, name: str) -> None:
        """Writes one element."""
        if isinstance(self.kind, type) and issubclass(self.kind, Record):
            if not isinstance(value, self.kind):
                raise TypeError(f"{name}: expected {self.kind.__name__}, not {value!r}")
            value.write(data, place, name, self.needs)
            return
        if self.kind is TEXT:
            data_of = text_bytes(name, value, min(self.limit, self.size))
        elif self.kind is MAC:
            data_of = mac_bytes(name, value)
        else:
            data_of = whole(name, value, self.limit, self.kind).to_bytes(self.size, sys.byteorder)
        data[place:place + len(data_of)] = data_of


R = TypeVar("R", bound="Record")


class Record:
    """A record of the interface."""
    size = 0
    fields: Tuple[Field, ...] = ()

    @classmethod
    def read(cls: Type[R], data: Any, base: int = 0) -> R:
        """What is in memory from a place on."""
        found: Dict[str, Any] = {}
        told = False
        for field in cls.fields:
            count = field.many or 1
            there = field.is_there(found.get(field.by))
            if field.told is not None:  # the first whose flag is one
                there = not told and _word(data, base + field.told) <= 1
                told |= there
            if field.flag is not None:
                there = there and _word(data, base + field.flag) != 0
            if field.optional:
                there = _word(data, base + field.offset) != UNTOUCHED
            if field.counted:
                count = min(count, found[field.counted])
            values = list(field.places(data, base, count)) if there else None
            while field.written and values and values[-1] == UNTOUCHED:
                values.pop()
            found[field.name] = values if field.many or values is None else values[0]
        return cls(**found)

    def write(self, data: bytearray, base: int, name: str, needs: Sequence[str] = ()) -> None:
        """Puts the record into memory from a place on, which is all zeros; it is named in errors."""
        alone = any(getattr(self, field.name) in field.alone for field in self.fields)
        for field in self.fields:
            value = getattr(self, field.name)
            own = f"{name}.{field.name}"
            there = field.is_there(getattr(self, field.by) if field.by else None)
            if value is None or value is MUST_BE_GIVEN:
                if there and not alone and (not field.left_out or field.name in needs):
                    raise TypeError(f"{own} must be given")
                continue
            if not there:
                raise ValueError(f"{own}: there is none with {field.by} {getattr(self, field.by)!r}")
            if field.many and not isinstance(value, (list, tuple)):
                raise TypeError(f"{own}: expected a list, not {value!r}")
            for i, one in enumerate(value if field.many else [value]):
                if i >= max(field.many, 1):
                    raise ValueError(f"{own}: expected at most {field.many} elements")
                field.put(data, base + field.offset + i * field.size, one, f"{own}[{i}]" if field.many else own)
            if field.flag is not None:
                data[base + field.flag:base + field.flag + 4] = (1).to_bytes(4, sys.byteorder)


def layout(size: int, *fields: Field) -> Callable[[Type[R]], Type[R]]:
    """Says how a record lies in memory."""
    def apply(record: Type[R]) -> Type[R]:
        record.size, record.fields = size, fields
        return record
    return apply


def _word(data: Any, place: int) -> int:
    return int(unpack_from("I", data, place)[0])


def given(name: str, value: Any, kind: Type[Record]) -> bytes:
    """A record as an operation takes it."""
    if not isinstance(value, kind):
        raise TypeError(f"{name}: expected {kind.__name__}, not {value!r}")
    data = bytearray(kind.size)
    value.write(data, 0, name)
    return bytes(data)


def mac_bytes(name: str, value: str) -> bytes:
    """A MAC address, which stands in text as 02:00:5e:00:00:11."""
    if not isinstance(value, str):
        raise TypeError(f"{name}: expected a MAC address as text, not {value!r}")
    try:
        data = bytes(int(part, 16) for part in value.split(":") if 0 < len(part) <= 2)
    except ValueError:
        data = b""
    if len(data) != 6 or value.count(":") != 5:
        raise ValueError(f"{name}: expected a MAC address such as 02:00:5e:00:00:11, not {value!r}")
    return data


def mac_text(data: bytes) -> str:
    """A MAC address as text."""
    return ":".join(f"{byte:02x}" for byte in data)


def text_bytes(name: str, value: str, limit: int) -> bytes:
    """A text as an operation takes it."""
    if not isinstance(value, str):
        raise TypeError(f"{name}: expected a text, not {value!r}")
    data = value.encode(errors="surrogateescape")
    if len(data) > limit or b"\0" in data:
        raise ValueError(f"{name}: expected at most {limit} bytes, none of them 0, not {value!r}")
    return data


def untouched(size: int) -> Array[c_char]:
    """Memory for an operation to fill."""
    return (c_char * size).from_buffer_copy(b"\xff" * size)


def words(data: bytes, count: int) -> List[int]:
    """The first words of those that were filled."""
    return list(unpack_from(f"{count}I", data))


def records(kind: Type[R], data: bytes, count: int) -> List[R]:
    """The first records of those that were filled."""
    return [kind.read(data, i * kind.size) for i in range(count)]
