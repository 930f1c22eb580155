"""
The session walk and its filter.

Each query of a walk asks for one page and continues with the cookie of the page before. So the server never sends more
than the reader has asked for.
"""

from __future__ import annotations

import struct
from collections import deque
from typing import TYPE_CHECKING, Any, Generic, TypeVar

from ._commands import PROTOCOL_NAMES
from ._native import lib
from ._values import Address, Address4, Entries, Named, address, named, number
from .errors import Error

if TYPE_CHECKING:
    from ._queries import Queries

Entry = TypeVar("Entry")
_protocol = named("protocol", 0, 255, PROTOCOL_NAMES)
_src, _dst, _pool_addr = address("src", 4, 6), address("dst", 4, 6), address("pool_addr", 4)
_port = number("port", 0, 65535)
# walk: protocol, source, pool address, destination, port; clear: the same with the destination before the pool address
_FILTERS = {"walk": struct.Struct("<I12x20s24x4s20sH2x"), "clear": struct.Struct("<I20s20s4s20xH34x")}


def session_filter(
    protocol: Named, src: Address | None, dst: Address | None, pool_addr: Address4 | None, port: int, use: str
) -> bytes:
    """Packs the filter of sessions to walk or to clear. An argument that is not given matches every session."""
    inside = b"" if src is None else _src(src)
    outside = b"" if dst is None else _dst(dst)
    pool = b"" if pool_addr is None else _pool_addr(pool_addr)[:3:-1]
    if use == "clear":
        return _FILTERS[use].pack(_protocol(protocol), inside, outside, pool, _port(port))
    if outside[:1] == b"\0":  # IPv4: the library converts the other addresses to network order, but not this one
        outside = outside[:4] + outside[:3:-1]
    return _FILTERS[use].pack(_protocol(protocol), inside, pool, outside, _port(port))


class Sessions(Generic[Entry]):
    """
    The sessions of a walk, one by one with `async for` or page by page with next_page. The walk ends when its object is
    deleted, as after a loop that is left early.
    """

    def __init__(
        self, client: Queries, chosen: bytes, page: int, timeout_ms: int, entries: Entries[Entry], walk_arg: int
    ):
        if page < 1:
            raise ValueError(f"page {page}: must be at least 1")
        self._client = client
        self._filter = chosen
        self._count = page
        self._timeout_ms = timeout_ms
        self._entries = entries
        self._walk_arg = walk_arg
        self._cookie = 0
        self._is_whole = False
        self._pages: Any = None
        self._ready: deque[Entry] = deque()

    def __aiter__(self) -> Sessions[Entry]:
        return self

    async def __anext__(self) -> Entry:
        while not self._ready:
            page = await self.next_page()
            if not page:
                raise StopAsyncIteration
            self._ready.extend(page)
        return self._ready.popleft()

    async def next_page(self) -> list[Entry]:
        """Returns the next sessions, at least one; an empty list at the end of the walk."""
        while not self._is_whole:
            if self._pages is None:
                self._pages = self._client._ask(
                    lib.nat64_walk, self._filter, self._cookie, self._count, self._walk_arg, self._timeout_ms
                )
            try:
                page = await self._pages.next()
            except BaseException:
                self.close()
                raise
            if not page.more:
                self._end_query()
                if page.cookie and page.cookie <= self._cookie:
                    raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server's walk does not advance")
                self._cookie = page.cookie
                self._is_whole = page.cookie == 0
            if page.value2 != self._walk_arg:
                self.close()
                raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server sends its sessions in another format")
            if found := self._entries.read(page.data):
                return found
            if page.more:
                self.close()
                raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server says that more follows, and sends nothing")
        return []

    def close(self) -> None:
        """Ends the walk. next_page then returns an empty list."""
        self._is_whole = True
        self._end_query()

    __del__ = close

    def _end_query(self) -> None:
        pages, self._pages = self._pages, None
        if pages is not None:
            self._client._forget(pages)
