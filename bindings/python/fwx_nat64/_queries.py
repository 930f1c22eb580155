"""
Queries: statistics, the configuration, and sessions.

A query is sent from C and gets an id. The driver passes each reply to the _Pages of that id, from which the coroutine
takes it. A list that takes several queries continues with the cookie of the last reply.
"""

from __future__ import annotations

import asyncio
import struct
from collections import deque
from collections.abc import AsyncIterator, Callable
from datetime import timedelta
from typing import Any, NamedTuple, TypeVar

from ._commands import (
    BOOT_ENTRIES,
    COUNTS_ENTRIES,
    FULLSESSION_ENTRIES,
    INTERFACE_ENTRIES,
    LIMIT_ENTRIES,
    MAPPING_ENTRIES,
    POOL_ENTRIES,
    SESSION_ENTRIES,
    SYSTEM_ENTRIES,
    TOTALS_ENTRIES,
    Boot,
    Counts,
    FullSession,
    Interface,
    Limit,
    Mapping,
    Pool,
    Session,
    System,
    Totals,
)
from ._driver import driver
from ._native import ffi, lib
from ._sessions import Sessions, session_filter
from ._values import Address, Address4, Entries, Named, Timeout
from .errors import Error, error

Entry = TypeVar("Entry")
_CONFIG_PAGE = struct.Struct("<QIIQQ")  # magic, bytes, entries, boot id, changes
_CONFIG_ENTRY = struct.Struct("<HHI")  # number of the message, op code, bytes that follow
_READINGS = 3
_LONGEST_TIMEOUT_S = 0xFFFFFFFF // 1000


def milliseconds(timeout: Timeout) -> int:
    """Converts a timeout from seconds. Returns 0, which means none, if it exceeds 32 bits of milliseconds."""
    seconds: Any = timeout.total_seconds() if isinstance(timeout, timedelta) else timeout
    is_number = isinstance(seconds, (int, float)) and not isinstance(seconds, bool)
    if not is_number or not seconds > 0:  # a nan is not
        raise ValueError(f"timeout {timeout!r}: must be more than 0 seconds, a number or a timedelta")
    in_range = float(seconds)
    return max(1, round(in_range * 1000)) if in_range <= _LONGEST_TIMEOUT_S else 0


class Item(NamedTuple):
    """An item of the server's configuration, as the command that creates it."""

    number: int  # message number: 3 for a configuration command, 13 for a MAP-T rule
    op_code: int  # op code of the command; for a rule 0 (basic) or 1 (default)
    payload: bytes  # the message after its header; for a basic rule with the server's index appended


class Configuration(NamedTuple):
    """The configuration of a server, in an order in which it can be sent to another server."""

    boot_id: int  # random id of this run of the server
    changes: int  # number of configuration changes since the server's start
    items: list[Item]


def _read_page(data: bytes) -> Configuration:
    bad = Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server's configuration is not whole")
    if len(data) < _CONFIG_PAGE.size:
        raise bad
    magic, size, count, boot_id, changes = _CONFIG_PAGE.unpack_from(data)
    if magic != lib.FWX_NAT64_CONFIG_MAGIC:
        raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server does not tell its configuration")
    if size > len(data):
        raise bad
    items = []
    at = _CONFIG_PAGE.size
    for _ in range(count):
        begin = at + _CONFIG_ENTRY.size
        if begin > size:
            raise bad
        number, op_code, length = _CONFIG_ENTRY.unpack_from(data, at)
        at = begin + (length + 7) // 8 * 8
        if at > size:
            raise bad
        items.append(Item(number, op_code, data[begin : begin + length]))
    if at != size:
        raise bad
    return Configuration(boot_id, changes, items)


class _Page:
    """One reply to a query."""

    __slots__ = ("more", "cookie", "value2", "count", "data")

    def __init__(self, message: Any):
        self.more = message.more != 0
        self.cookie: int = message.cookie
        self.value2: int = message.value2
        self.count: int = message.count
        self.data = bytes(ffi.buffer(message.data, message.size))


class _Pages:
    """The replies to an outstanding query, queued for the coroutine that reads them."""

    def __init__(self, query: int):
        self.query = query
        self._pages: deque[_Page | Error] = deque()
        self._waiter: asyncio.Future[None] | None = None

    def feed(self, page: _Page | Error) -> None:
        self._pages.append(page)
        if self._waiter is not None and not self._waiter.done():
            self._waiter.set_result(None)

    async def next(self) -> _Page:
        while not self._pages:
            self._waiter = asyncio.get_running_loop().create_future()
            await self._waiter
        page = self._pages.popleft()
        if isinstance(page, Error):
            raise page
        return page


class Queries:
    """The queries of a client."""

    def __init__(self, timeout: Timeout) -> None:
        self._timeout_ms = milliseconds(timeout)
        self._queries: dict[int, _Pages] = {}

    async def stats_system(self, *, timeout: Timeout | None = None) -> System:
        """Number of items of each kind that the server holds, and of messages that it has refused for each reason."""
        return await self._system(lib.FWX_NAT64_SEL_SYSTEM, SYSTEM_ENTRIES, timeout)

    async def stats_totals(self, *, timeout: Timeout | None = None) -> Totals:
        """Number of items of each kind that the server holds, in the form that every server supports."""
        return await self._system(0, TOTALS_ENTRIES, timeout)

    async def stats_counts(self, *, timeout: Timeout | None = None) -> Counts:
        """Counters of the server since its start."""
        return await self._system(lib.FWX_NAT64_SEL_COUNTS, COUNTS_ENTRIES, timeout)

    async def stats_boot(self, *, timeout: Timeout | None = None) -> Boot:
        """Random id of this run of the server, and the number of its configuration changes."""
        return await self._system(lib.FWX_NAT64_SEL_BOOT, BOOT_ENTRIES, timeout)

    async def configuration(self, *, timeout: Timeout | None = None) -> Configuration:
        """
        The whole configuration of the server. If it changes while it is read, it is read again, three times in all.

        :raises Error: also if the server does not report its configuration, or if it changes each time.
        """
        for _ in range(_READINGS):
            pages = [page async for page in self._configuration_pages(self._milliseconds(timeout))]
            if all(page[:2] == pages[0][:2] for page in pages):
                return Configuration(*pages[0][:2], [item for page in pages for item in page.items])
        raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server is changed again and again while it is read")

    async def _configuration_pages(self, timeout_ms: int) -> AsyncIterator[Configuration]:
        pages = self._ask(
            lib.nat64_query, lib.FWX_NAT64_MSG_STATS_SYS, lib.FWX_NAT64_SEL_CONFIG, 0, 0, 0, timeout_ms
        )
        try:
            more = True
            while more:
                page = await pages.next()
                more = page.more
                yield _read_page(page.data)
        finally:
            self._forget(pages)

    async def stats_interfaces(self, *, timeout: Timeout | None = None) -> list[Interface]:
        """Statistics of all interfaces."""
        return await self._list(lib.FWX_NAT64_MSG_STATS_INTF, INTERFACE_ENTRIES, timeout)

    async def stats_pools(self, *, timeout: Timeout | None = None) -> list[Pool]:
        """Statistics of all pools."""
        return await self._list(lib.FWX_NAT64_MSG_STATS_POOL_ALL, POOL_ENTRIES, timeout)

    async def stats_mappings(self, *, timeout: Timeout | None = None) -> list[Mapping]:
        """Statistics of all mappings."""
        return await self._list(lib.FWX_NAT64_MSG_STATS_MAPPING_ALL, MAPPING_ENTRIES, timeout)

    async def stats_limits(self, *, timeout: Timeout | None = None) -> list[Limit]:
        """All limits and their use."""
        return await self._list(lib.FWX_NAT64_MSG_STATS_LIMIT_ALL, LIMIT_ENTRIES, timeout)

    def sessions(
        self,
        *,
        protocol: Named = 0,
        src: Address | None = None,
        dst: Address | None = None,
        pool_addr: Address4 | None = None,
        port: int = 0,
        page: int = 1000,
        timeout: Timeout | None = None,
    ) -> Sessions[Session]:
        """
        Walks the sessions that match all given arguments: `async for session in client.sessions(protocol="tcp")`.

        :param protocol: number of an IP protocol, or a name such as udp.
        :param src: address of the inside host.
        :param dst: address of the destination.
        :param pool_addr: translated source address.
        :param port: source, translated source or destination port.
        :param page: sessions per reply.
        """
        chosen = session_filter(protocol, src, dst, pool_addr, port, "walk")
        return Sessions(self, chosen, page, self._milliseconds(timeout), SESSION_ENTRIES, 0)

    def sessions_full(
        self,
        *,
        protocol: Named = 0,
        src: Address | None = None,
        dst: Address | None = None,
        pool_addr: Address4 | None = None,
        port: int = 0,
        page: int = 1000,
        timeout: Timeout | None = None,
    ) -> Sessions[FullSession]:
        """Like sessions, but with both sides of each translation. Not every server supports this."""
        chosen = session_filter(protocol, src, dst, pool_addr, port, "walk")
        return Sessions(self, chosen, page, self._milliseconds(timeout), FULLSESSION_ENTRIES, lib.FWX_NAT64_WALK_FULL)

    def _milliseconds(self, timeout: Timeout | None) -> int:
        return self._timeout_ms if timeout is None else milliseconds(timeout)

    async def _system(self, selector: int, entry: Entries[Entry], timeout: Timeout | None) -> Entry:
        found = await self._list(lib.FWX_NAT64_MSG_STATS_SYS, entry, timeout, selector)
        return found[0]

    async def _list(self, number: int, entry: Entries[Entry], timeout: Timeout | None, selector: int = 0) -> list[Entry]:
        """Returns all entries of a list, which may take several queries with several replies each."""
        timeout_ms = self._milliseconds(timeout)
        count = 0xFFFFFFFF if number == lib.FWX_NAT64_MSG_STATS_LIMIT_ALL else 1000  # limits have no cookie to continue
        found: list[Entry] = []
        cookie = 0
        while True:
            pages = self._ask(lib.nat64_query, number, selector, cookie, count, 0, timeout_ms)
            try:
                while True:
                    page = await pages.next()
                    if page.more and page.count == 0:
                        raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server says that more follows, and sends nothing")
                    found += entry.read(page.data[: page.count * entry.size])
                    if not page.more:
                        break
            finally:
                self._forget(pages)
            if page.cookie == 0:
                return found
            if page.count == 0 or page.cookie <= cookie:
                raise Error(lib.FWX_HOST_ERR_BAD_ANSWER, "the server's list does not advance")
            cookie = page.cookie

    def _ask(self, send: Callable[..., int], *arguments: Any) -> _Pages:
        driver.check()
        query = send(*arguments)
        if query < 0:
            raise error(-query)
        pages = self._queries[query] = _Pages(query)
        driver.wake()
        return pages

    def _forget(self, pages: _Pages) -> None:
        """Drops a query. May be called in any thread, because the garbage collector may end a walk in any thread."""
        if pages.query in self._queries and not driver.hand_over(self._forget, pages):
            del self._queries[pages.query]
            lib.nat64_forget(pages.query)

    def _take_page(self, message: Any) -> None:
        """Passes a reply to its query."""
        pages = self._queries.get(message.id)
        if pages is not None:
            pages.feed(error(message.code) if message.code else _Page(message))

    def _end_queries(self, why: Error) -> None:
        for pages in self._queries.values():
            pages.feed(why)
        self._queries.clear()
