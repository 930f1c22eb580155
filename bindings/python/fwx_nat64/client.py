"""
The client: a binding to a NAT64 server.

C keeps the results of commands until the driver has run a turn of the host's loop. The client then takes them in one
call, and completes the future of each command. A future is found by the number of the command's slot.
"""

from __future__ import annotations

import asyncio
import struct
from collections.abc import Callable
from typing import Any

from ._commands import MAPPING_ENTRIES, Commands, Mapping
from ._driver import driver
from ._native import ffi, lib
from ._queries import Queries, milliseconds
from ._sessions import session_filter
from ._values import Address, Address4, Named, Timeout, command
from .errors import Error, LoadFailed, error
from .model import Model

_SESSION_CLEAR = command("session", lib.FWX_NAT64_OP_DEL, "104s")
_IPALIAS_UPLOAD = command("ipalias", lib.FWX_NAT64_OP_ADD, "4x")
_RECORD = struct.Struct("<3I")


class Batch(Commands[None]):
    """Commands for Client.load. Each method appends its command instead of sending it."""

    def __init__(self) -> None:
        self.commands: list[bytes] = []

    def __len__(self) -> int:
        return len(self.commands)

    def _send(self, command: bytes, timeout: Timeout | None) -> None:
        self.commands.append(command)


class Client(Commands["asyncio.Future[None]"], Queries):
    """
    A client of a server. It is bound inside its `async with` block. A process has one bound client at a time, and uses
    it from the thread of one event loop.

    Commands return futures, whose result is None or an Error as the exception. Cancelling a future does not cancel the
    command: it is sent, and its result is dropped. A command without an answer within `timeout` seconds fails with
    TimedOut. A command's own `timeout` replaces that of the client, and math.inf means no limit. Await the answer to a
    command for a MAP-T rule before you send the next one for the same rule.

    `on_record(operation, words)`, `on_event()` and `on_mapping(mapping)` are called for the server's unsolicited
    messages.
    """

    def __init__(
        self,
        server: str | None = None,
        *,
        client_id: bytes = b"pyth",
        timeout: Timeout = 5.0,
        on_record: Callable[[str, tuple[int, int, int]], None] | None = None,
        on_event: Callable[[], None] | None = None,
        on_mapping: Callable[[Mapping], None] | None = None,
    ):
        """
        :param server: name of a server in another process; None: the server in this process, which the client creates
            if there is none.
        :param client_id: four bytes that identify the client to the server.
        """
        super().__init__(timeout)
        if len(client_id) != 4:
            raise ValueError(f"client_id {client_id!r}: must be 4 bytes")
        self.server = server
        self.client_id = client_id
        self.is_throttled = False
        """True if the channel is full. Commands are still accepted then, but the sender should await may_send."""
        self.model: Model | None = None
        """The server, if the client has created it."""
        self._on_record, self._on_event, self._on_mapping = on_record, on_event, on_mapping
        self._futures: dict[int, asyncio.Future[None]] = {}
        self._loads: list[tuple[Any, asyncio.Future[None]]] = []
        self._room: asyncio.Future[None] | None = None
        self._create_future: Callable[[], asyncio.Future[None]] = self._not_bound

    # --- The binding ---

    def _not_bound(self) -> Any:
        raise Error(lib.FWX_NAT64_ERR_NOT_READY)

    @property
    def is_bound(self) -> bool:
        """True between entering and leaving or closing the client."""
        return self._create_future != self._not_bound

    @property
    def is_connected(self) -> bool:
        """True if a channel to the server is open. If not, the next command opens one."""
        return self.is_bound and lib.fwx_nat64_client_info_get().connected != 0

    @property
    def outstanding(self) -> int:
        """Number of commands and queries that wait for an answer, commands of batches included."""
        return len(self._futures) + len(self._queries) + sum(int(load.left) for load, _ in self._loads)

    async def __aenter__(self) -> Client:
        if self.is_bound:
            raise RuntimeError("this client has been entered already")
        host = driver.attach()
        try:
            if lib.fwx_nat64_client_info_get() != ffi.NULL:
                raise RuntimeError("there is another client in this process")
            if self.server is None and lib.fwx_host_server_find(lib.FWX_NAT64_CHANNEL_NAME) == ffi.NULL:
                self.model = Model()
            name = ffi.NULL if self.server is None else self.server.encode()
            if code := lib.nat64_open(name, self.client_id, host, self._timeout_ms):
                raise error(code)
        except BaseException:
            self._leave()
            raise
        self._set_throttled(False)
        driver.take = self._take
        self._create_future = asyncio.get_running_loop().create_future
        return self

    async def __aexit__(self, *exception: object) -> None:
        self.close()

    def close(self) -> None:
        """Unbinds. Outstanding commands and queries fail with the Error "client not bound"."""
        if not self.is_bound:
            return
        driver.check()
        self._create_future = self._not_bound
        driver.take = None
        lib.nat64_close()
        not_ready = Error(lib.FWX_NAT64_ERR_NOT_READY)
        waiting = [*self._futures.values(), *(future for _, future in self._loads)]
        for future in waiting:
            if not future.done():
                future.set_exception(not_ready)
        self._end_queries(not_ready)
        self._futures.clear()
        self._loads.clear()
        self._set_throttled(False)
        self._leave()

    def _leave(self) -> None:
        if self.model is not None:
            self.model.close()
            self.model = None
        driver.detach()

    # --- Commands ---

    def _send(self, command: bytes, timeout: Timeout | None) -> asyncio.Future[None]:
        driver.check()
        future = self._create_future()
        slot = lib.nat64_send(command, len(command), self._timeout_ms if timeout is None else milliseconds(timeout))
        if slot >= 0:
            self._futures[slot] = future
        else:
            future.set_exception(error(-slot))
        if not driver.is_awake:
            driver.wake()
        return future

    def ipalias_upload(self, *, timeout: Timeout | None = None) -> asyncio.Future[None]:
        """Asks the server to upload its IP aliases."""
        return self._send(_IPALIAS_UPLOAD(), timeout)

    def session_clear(
        self,
        *,
        protocol: Named = 0,
        src: Address | None = None,
        dst: Address | None = None,
        pool_addr: Address4 | None = None,
        port: int = 0,
        timeout: Timeout | None = None,
    ) -> asyncio.Future[None]:
        """Clears the sessions that match all given arguments, which are those of sessions()."""
        return self._send(_SESSION_CLEAR(session_filter(protocol, src, dst, pool_addr, port, "clear")), timeout)

    async def load(self, batch: Batch, *, window: int = 1024, timeout: Timeout | None = None) -> None:
        """
        Sends a batch in order, with at most `window` commands outstanding, and waits for all answers. A batch must not
        contain two commands for the same MAP-T rule, because its commands do not wait for each other.

        :raises LoadFailed: some commands failed; the others were carried out.
        """
        if window < 1:
            raise ValueError(f"window {window}: must be at least 1")
        if not batch.commands:
            return
        data = b"".join(batch.commands)
        buffer = ffi.from_buffer(data)
        codes = ffi.new("uint32_t[]", len(batch))
        driver.check()
        load = ffi.new("nat64_load_t *")
        load.commands, load.size, load.codes, load.left, load.window = buffer, len(data), codes, len(batch), window
        load.timeout_ms = self._milliseconds(timeout)
        future = self._create_future()
        entry = (load, future)
        self._loads.append(entry)
        lib.nat64_load_start(load)
        driver.wake()
        try:
            await future
        finally:
            lib.nat64_load_stop(load)
            if entry in self._loads:
                self._loads.remove(entry)
        if any(answers := ffi.unpack(codes, len(batch))):
            raise LoadFailed({place: error(code) for place, code in enumerate(answers) if code}, len(batch))

    async def may_send(self) -> None:
        """Waits until the channel has room. Returns at once if it has."""
        while self.is_throttled:
            if self._room is None:
                self._room = self._create_future()
            await asyncio.shield(self._room)

    def _set_throttled(self, is_throttled: bool) -> None:
        self.is_throttled = is_throttled
        if not is_throttled and self._room is not None:
            self._room.set_result(None)
            self._room = None

    # --- Results and messages of a turn of the host's loop ---

    def _take(self, results: Any) -> None:
        pop = self._futures.pop
        if results.done_count:
            for slot in ffi.unpack(results.done, results.done_count):
                future = pop(slot)
                if not future.done():
                    future.set_result(None)
        if count := results.failed_count:
            for slot, code in zip(ffi.unpack(results.failed, count), ffi.unpack(results.codes, count)):
                future = pop(slot)
                if not future.done():
                    future.set_exception(error(code))
        for load, future in self._loads:
            if load.left == 0 and not future.done():
                future.set_result(None)
        while (message := lib.nat64_message_take()) != ffi.NULL:
            try:
                self._take_message(message)
            finally:
                lib.nat64_message_free(message)

    def _take_message(self, message: Any) -> None:
        if message.kind == lib.NAT64_PAGE:
            self._take_page(message)
        elif message.kind == lib.NAT64_THROTTLE:
            self._set_throttled(message.more == 0)
        else:
            self._call_handler(message, bytes(ffi.buffer(message.data, message.size)))

    def _call_handler(self, message: Any, data: bytes) -> None:
        """Schedules the handler of an unsolicited message; so the event loop reports an exception of the handler."""
        loop = asyncio.get_running_loop()
        if message.kind == lib.NAT64_RECORD and self._on_record is not None:
            operation = "add" if message.more == lib.FWX_NAT64_OP_ADD else "del"
            loop.call_soon(self._on_record, operation, _RECORD.unpack(data))
        elif message.kind == lib.NAT64_EVENT and self._on_event is not None:
            loop.call_soon(self._on_event)
        elif message.kind == lib.NAT64_MAPPING and self._on_mapping is not None:
            loop.call_soon(self._on_mapping, MAPPING_ENTRIES.read(data)[0])
