"""Queries: what a server holds, as a whole or page by page."""

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
    """Of a timeout in seconds; one that is too long to matter is none."""
    seconds: Any = timeout.total_seconds() if isinstance(timeout, timedelta) else timeout
    is_number = isinstance(seconds, (int, float)) and not isinstance(seconds, bool)
    if not is_number or not seconds > 0:  # a nan is not
        raise ValueError(f"timeout {timeout!r}: must be more than 0 seconds, a number or a timedelta")
    in_range = float(seconds)
    return max(1, round(in_range * 1000)) if in_range <= _LONGEST_TIMEOUT_S else 0


class Item(NamedTuple):
    """Something that a server holds, as the command that makes it."""

    number: int  # of the message: 3 configures, 13 is a MAP-T rule
    op_code: int  # of the command; of a rule 0 for a basic and 1 for a default one
    payload: bytes  # behind the header of the command; of a basic rule, the server's index follows


class Configuration(NamedTuple):
    """What a server holds, in an order in which another server would take it."""

    boot_id: int
    changes: int  # of the configuration so far
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

    def __init__(self, news: Any):
        self.more = news.more != 0
        self.cookie: int = news.cookie
        self.value2: int = news.value2
        self.count: int = news.count
        self.data = bytes(ffi.buffer(news.data, news.size))


class _Pages:
    """The replies to a query that is under way."""

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
    """What a client can ask a server for."""

    def __init__(self, timeout: Timeout) -> None:
        self._timeout_ms = milliseconds(timeout)
        self._queries: dict[int, _Pages] = {}

    async def stats_system(self, *, timeout: Timeout | None = None) -> System:
        """How many the server holds of each kind, and what it has refused."""
        return await self._system(lib.FWX_NAT64_SEL_SYSTEM, SYSTEM_ENTRIES, timeout)

    async def stats_totals(self, *, timeout: Timeout | None = None) -> Totals:
        """How many the server holds of each kind, in the form that every server has."""
        return await self._system(0, TOTALS_ENTRIES, timeout)

    async def stats_counts(self, *, timeout: Timeout | None = None) -> Counts:
        """What the server has counted."""
        return await self._system(lib.FWX_NAT64_SEL_COUNTS, COUNTS_ENTRIES, timeout)

    async def stats_boot(self, *, timeout: Timeout | None = None) -> Boot:
        """Which run of the server it is."""
        return await self._system(lib.FWX_NAT64_SEL_BOOT, BOOT_ENTRIES, timeout)

    async def configuration(self, *, timeout: Timeout | None = None) -> Configuration:
        """
        What the server holds. A server that is changed meanwhile is read again, three times at most.

        :raises Error: also when the server does not tell, or is changed each time.
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
        """All interfaces."""
        return await self._list(lib.FWX_NAT64_MSG_STATS_INTF, INTERFACE_ENTRIES, timeout)

    async def stats_pools(self, *, timeout: Timeout | None = None) -> list[Pool]:
        """All pools."""
        return await self._list(lib.FWX_NAT64_MSG_STATS_POOL_ALL, POOL_ENTRIES, timeout)

    async def stats_mappings(self, *, timeout: Timeout | None = None) -> list[Mapping]:
        """All mappings."""
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
        Walks the sessions that match everything that is given: `async for session in client.sessions(protocol="tcp")`.

        :param protocol: number of an IP protocol, or a name such as udp.
        :param src: of the host inside.
        :param pool_addr: what the source is translated to.
        :param port: any of the three that a session has.
        :param page: sessions in a reply.
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
        """As sessions, with both sides of each translation, for which not every server has an answer."""
        chosen = session_filter(protocol, src, dst, pool_addr, port, "walk")
        return Sessions(self, chosen, page, self._milliseconds(timeout), FULLSESSION_ENTRIES, lib.FWX_NAT64_WALK_FULL)

    def _milliseconds(self, timeout: Timeout | None) -> int:
        return self._timeout_ms if timeout is None else milliseconds(timeout)

    async def _system(self, selector: int, entry: Entries[Entry], timeout: Timeout | None) -> Entry:
        found = await self._list(lib.FWX_NAT64_MSG_STATS_SYS, entry, timeout, selector)
        return found[0]

    async def _list(self, number: int, entry: Entries[Entry], timeout: Timeout | None, selector: int = 0) -> list[Entry]:
        """All entries of a query, however many replies and queries it takes."""
        timeout_ms = self._milliseconds(timeout)
        count = 0xFFFFFFFF if number == lib.FWX_NAT64_MSG_STATS_LIMIT_ALL else 1000  # that one cannot be gone on with
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
        """May be called from anywhere: a walk that nobody holds ends in whatever thread collects it."""
        if pages.query in self._queries and not driver.hand_over(self._forget, pages):
            del self._queries[pages.query]
            lib.nat64_forget(pages.query)

    def _hear_page(self, news: Any) -> None:
        """Takes a reply that the library has brought."""
        pages = self._queries.get(news.id)
        if pages is not None:
            pages.feed(error(news.code) if news.code else _Page(news))

    def _end_queries(self, why: Error) -> None:
        for pages in self._queries.values():
            pages.feed(why)
        self._queries.clear()
