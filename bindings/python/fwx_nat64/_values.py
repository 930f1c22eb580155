"""
Converters between Python values and the fields of records.

The functions address, named, number, octets, prefix and seconds each return a converter, which takes the value of an
argument and returns what struct packs. It raises a ValueError that names the argument and the values that it allows.
"""

from __future__ import annotations

import re
import socket
import struct
from collections.abc import Callable, Iterable, Mapping
from datetime import timedelta
from functools import partial
from ipaddress import IPv4Address, IPv4Network, IPv6Address, IPv6Network
from operator import index
from typing import Any, Generic, TypeVar, Union

from ._native import lib

Address4 = Union[str, IPv4Address]
Address = Union[str, IPv4Address, IPv6Address]
Prefix4 = Union[str, IPv4Network]
Prefix6 = Union[str, IPv6Network]
Named = Union[str, int]
Seconds = Union[str, int, timedelta]
Timeout = Union[float, timedelta]

_FAMILIES = {4: socket.AF_INET, 6: socket.AF_INET6}
_UNITS = re.compile(r"(?:(\d+)d)?(?:(\d+)h)?(?:(\d+)m)?(?:(\d+)s)?")
_IPV4_FAMILY, _IPV6_FAMILY = b"\0\0\0\0", b"\1\0\0\0"  # of an address record


def _wrong(name: str, value: object, allowed: str) -> ValueError:
    return ValueError(f"{name} {value!r}: must be {allowed}")


def number(name: str, low: int, high: int, allowed: str = "") -> Callable[[int], int]:
    """Accepts integers from low to high, also as text in decimal, hexadecimal, octal or binary."""
    allowed = allowed or f"{low} to {high}"

    def convert(value: Any) -> Any:
        if value.__class__ is not int:
            if value.__class__ is bool and high > 1:  # a bool is accepted for a flag only
                raise _wrong(name, value, allowed)
            try:
                value = int(value, 0) if isinstance(value, str) else index(value)
            except (TypeError, ValueError):
                raise _wrong(name, value, allowed) from None
        if low <= value <= high:
            return value
        raise _wrong(name, value, allowed)

    return convert


class _Names(dict[Any, int]):
    """Numbers by name. A key that is not a name is converted as a number."""

    otherwise: Callable[[Any], int]

    def __missing__(self, value: Any) -> int:
        return self.otherwise(value)


def named(name: str, low: int, high: int, names: Mapping[str, int]) -> Callable[[Named], int]:
    """Accepts names, and numbers from low to high."""
    table = _Names(names)
    allowed = f"{low} to {high}, or {', '.join(names)}"
    table.otherwise = number(name, low, high, allowed)

    def convert(value: Any) -> int:
        try:
            return table[value]
        except TypeError:  # not hashable
            raise _wrong(name, value, allowed) from None

    return convert


def seconds(name: str, low: int, high: int) -> Callable[[Seconds], int]:
    """Accepts a time in whole seconds, as a number, as text such as `5m` or `1d2h3m4s`, or as a timedelta."""
    in_range = number(name, low, high, f"{low} to {high} seconds, or a time such as 2h4m")

    def convert(value: Any) -> int:
        if isinstance(value, str) and value and (found := _UNITS.fullmatch(value)):
            days, hours, minutes, rest = (int(part or 0) for part in found.groups())
            value = ((days * 24 + hours) * 60 + minutes) * 60 + rest
        elif isinstance(value, timedelta) and value % timedelta(seconds=1) == timedelta(0):
            value = value // timedelta(seconds=1)
        return in_range(value)

    return convert


def _packed(value: Any, version: int) -> bytes | None:
    """Returns the bytes of an address of that IP version, or None for any other value."""
    if value.__class__ is str:
        try:
            return socket.inet_pton(_FAMILIES[version], value)
        except (OSError, ValueError):
            return None
    return value.packed if getattr(value, "version", 0) == version and hasattr(value, "packed") else None


def address(name: str, *versions: int) -> Callable[[Address], bytes]:
    """Accepts addresses. Returns address records, with IPv4 in host order."""
    allowed = "an IPv4 address" if versions == (4,) else "an address"

    def convert(value: Address) -> bytes:
        if (packed := _packed(value, 4)) is not None:
            return _IPV4_FAMILY + packed[::-1]
        if 6 in versions and (packed := _packed(value, 6)) is not None:
            return _IPV6_FAMILY + packed
        raise _wrong(name, value, allowed)

    return convert


def prefix(name: str, version: int, longest: int, width: int, size: int) -> Callable[[Prefix4 | Prefix6], bytes]:
    """Accepts prefixes. Returns `size` bytes: the first `width` bytes of the prefix, zeros, and in the last byte the
    length."""
    bits = 32 if version == 4 else 128
    allowed = f"an IPv{version} prefix of at most {longest} bits, with no bits set behind them"
    gap = bytes(size - width - 1)
    # the text of a length -> a mask of the bits after it, and the end of the record
    lengths = {str(length): ((1 << bits - length) - 1, gap + bytes([length])) for length in range(longest + 1)}

    def convert(value: Any) -> bytes:
        if value.__class__ is str:
            text, _, length = value.partition("/")
            packed = _packed(text, version)
        else:
            packed = _packed(getattr(value, "network_address", None), version)
            length = str(getattr(value, "prefixlen", None))
        found = lengths.get(length)
        if packed is None or found is None or int.from_bytes(packed, "big") & found[0]:
            raise _wrong(name, value, allowed)
        return packed[:width] + found[1]

    return convert


def octets(name: str, size: int) -> Callable[[bytes], bytes]:
    """Accepts exactly `size` bytes."""

    def convert(value: bytes) -> bytes:
        if isinstance(value, (bytes, bytearray, memoryview)) and len(value) == size:
            return bytes(value)
        raise _wrong(name, value, f"{size} bytes")

    return convert


def command(word: str, operation: int, layout: str) -> Callable[..., bytes]:
    """Returns a function that packs the fields of a record and puts the header of the command before them."""
    record_size = struct.calcsize("<" + layout)
    family = lib.nat64_family(word.encode(), record_size)
    if family < 0:
        raise ImportError(f"fwx_nat64._native has no command {word} with records of {record_size} bytes")
    return partial(struct.Struct("<HH" + layout).pack, family, operation)


Entry = TypeVar("Entry")


class Entries(Generic[Entry]):
    """Unpacks the entries in a reply to a query. `converters` are for the fields at these indices."""

    def __init__(self, kind: type[Entry], layout: str, converters: Mapping[int, Callable[[Any], Any]]):
        self.size = struct.calcsize("<" + layout)
        self._unpack = struct.Struct("<" + layout).iter_unpack
        self._make: Callable[[Iterable[Any]], Entry] = kind._make  # type: ignore[attr-defined]
        self._converters = tuple(converters.items())

    def read(self, data: bytes) -> list[Entry]:
        """Returns the entries. The size of `data` must be a multiple of `size`."""
        if not self._converters:
            return list(map(self._make, self._unpack(data)))
        columns: list[Iterable[Any]] = list(zip(*self._unpack(data)))
        for place, convert in self._converters if columns else ():
            columns[place] = map(convert, columns[place])
        return list(map(self._make, zip(*columns)))


def names_of(names: Mapping[str, int]) -> Callable[[int], int | str]:
    """Returns a converter from numbers to names. A number without a name stays a number."""
    table: dict[int, int | str] = {value: name for name, value in names.items()}
    return lambda value: table.get(value, value)


def read_address(record: bytes) -> IPv4Address | IPv6Address:
    """Reads an address record from a message, where IPv4 is in network order."""
    return IPv4Address(record[4:8]) if record[:4] == _IPV4_FAMILY else IPv6Address(record[4:])
