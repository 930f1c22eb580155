"""The server model: a server in this process, for tests."""

from __future__ import annotations

from typing import Any, NamedTuple, TypeVar

from ._commands import BOOT_ENTRIES, COUNTS_ENTRIES, TOTALS_ENTRIES, Boot, Counts, Totals
from ._driver import driver
from ._native import ffi, lib
from ._values import Address, Entries, address
from .errors import Error, error

Entry = TypeVar("Entry")
_address = address("address", 4, 6)
_ORDERS = {
    "in-order": lib.FWX_NAT64_MODEL_IN_ORDER,
    "reverse": lib.FWX_NAT64_MODEL_REVERSE,
    "shuffled": lib.FWX_NAT64_MODEL_SHUFFLED,
}


class Match(NamedTuple):
    """The MAP-T rule that an address belongs to."""

    bmr_index: int  # the server's index of the rule
    rule_id: int
    domain_id: int
    prefix_len: int


@ffi.def_extern()  # type: ignore[misc]
def nat64_saved_part(parts: Any, op_code: int, payload: Any, size: int) -> None:
    ffi.from_handle(parts).append((op_code, bytes(ffi.buffer(payload, size))))


def _check(code: int) -> None:
    if code:
        raise error(code)


class Model:
    """
    A server that answers every command and can be told to misbehave. It serves from its creation until it is closed, by
    `close` or at the end of a `with` block. Create it in a coroutine, because it runs on the current event loop.
    """

    def __init__(self, listen: str | None = None):
        """:param listen: name under which clients in other processes can connect too; None: this process only."""
        self._model: Any = ffi.NULL
        host = driver.attach()
        try:
            made = ffi.new("fwx_nat64_model_t **")
            _check(lib.fwx_nat64_model_create(host, lib.FWX_NAT64_CHANNEL_NAME, made))
            self._model = made[0]
            if listen is not None:
                server = lib.fwx_host_server_find(lib.FWX_NAT64_CHANNEL_NAME)
                _check(lib.fwx_host_server_listen(server, listen.encode()))
        except BaseException:
            self._destroy()
            raise

    def __enter__(self) -> Model:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends the server. The channels of its clients end with an error."""
        if self._model != ffi.NULL:
            driver.check()
            self._destroy()

    def _destroy(self) -> None:
        lib.fwx_nat64_model_destroy(self._model)
        self._model = ffi.NULL
        driver.wake()
        driver.detach()

    def _use(self) -> Any:
        """Returns the model and schedules a turn of the loop. Raises if the model is closed."""
        if self._model == ffi.NULL:
            raise Error(lib.FWX_HOST_ERR_NO_SERVER, "the model is closed")
        driver.check()
        driver.wake()
        return self._model

    # --- Misbehaviour ---

    def fail_next(self, code: int, count: int = 1) -> None:
        """Refuses the next `count` commands with a code."""
        lib.fwx_nat64_model_fail_next(self._use(), code, count)

    def delay(self, seconds: float) -> None:
        """Delays each reply by `seconds`."""
        lib.fwx_nat64_model_delay_set(self._use(), round(seconds * 1000))

    def hold(self) -> None:
        """Holds all replies back until release."""
        lib.fwx_nat64_model_hold(self._use())

    def release(self, order: str = "in-order") -> None:
        """Sends the held replies. `order` is in-order, reverse or shuffled."""
        _check(lib.fwx_nat64_model_release(self._use(), _ORDERS[order]))

    def duplicate(self, copies: int) -> None:
        """Sends every reply `copies` times."""
        lib.fwx_nat64_model_duplicate_set(self._use(), copies)

    def silent(self, on: bool) -> None:
        """If on, carries commands out without answering them."""
        lib.fwx_nat64_model_silent_set(self._use(), on)

    def pause(self, on: bool) -> None:
        """If on, reads no messages, so that the channel fills up."""
        lib.fwx_nat64_model_pause_set(self._use(), on)

    def drop_clients(self) -> None:
        """Ends the channels of all clients."""
        _check(lib.fwx_nat64_model_drop_clients(self._use()))

    def reply_limit(self, size: int) -> None:
        """Limits the size of the entries in one reply, in bytes."""
        lib.fwx_nat64_model_reply_limit_set(self._use(), size)

    def order_cleanup(self, on: bool) -> None:
        """If on, the reply to the delete of the last basic rule makes the client empty its rule table."""
        lib.fwx_nat64_model_order_cleanup(self._use(), on)

    # --- Notifications ---

    def notify_record(self, operation: str, word1: int, word2: int, word3: int) -> None:
        """Notifies the clients of a record. `operation` is add or del."""
        _check(lib.fwx_nat64_model_notify_record(self._use(), operation == "add", word1, word2, word3))

    def notify_event(self) -> None:
        """Notifies the clients of an event."""
        _check(lib.fwx_nat64_model_notify_event(self._use()))

    def notify_mapping(self, id: int, active: bool, sessions: int) -> None:
        """Notifies the clients that a mapping has become active or inactive."""
        _check(lib.fwx_nat64_model_notify_mapping(self._use(), id, active, sessions))

    # --- State ---

    def save(self) -> list[tuple[int, bytes]]:
        """Returns the whole configuration: pairs of op code and payload, in an order in which restore accepts them."""
        parts: list[tuple[int, bytes]] = []
        handle = ffi.new_handle(parts)
        _check(lib.fwx_nat64_model_save(self._use(), lib.nat64_saved_part, handle))
        return parts

    def restore(self, parts: list[tuple[int, bytes]]) -> None:
        """Restores the configuration that another model has saved."""
        for op_code, payload in parts:
            _check(lib.fwx_nat64_model_restore(self._use(), op_code, payload, len(payload)))

    def counts(self) -> Counts:
        """Counters of the model since its creation."""
        return self._read("counts", COUNTS_ENTRIES)

    def boot(self) -> Boot:
        """Random id of the model, and the number of its configuration changes."""
        return self._read("boot", BOOT_ENTRIES)

    def totals(self) -> Totals:
        """Number of items of each kind that the model holds."""
        return self._read("totals", TOTALS_ENTRIES)

    def _read(self, what: str, entries: Entries[Entry]) -> Entry:
        record = ffi.new("char[]", entries.size)
        getattr(lib, f"fwx_nat64_model_{what}")(self._use(), ffi.cast("void *", record))
        return entries.read(ffi.buffer(record)[:])[0]

    def sessions_generate(self, count: int) -> None:
        """Generates sessions, which replace those generated before."""
        _check(lib.fwx_nat64_model_sessions_generate(self._use(), count))

    def lookup(self, value: Address) -> Match | None:
        """Looks an address up as the data plane does. Returns its MAP-T rule, or None."""
        record = _address(value)
        if record[:1] == b"\0":
            record = record[:4] + record[:3:-1]
        at = ffi.new("fwx_nat64_addr_t *")
        ffi.buffer(at)[: len(record)] = record
        match = ffi.new("fwx_nat64_model_match_t *")
        if lib.fwx_nat64_model_lookup(self._use(), at, match):
            return None
        return Match(match.bmr_index, match.rule_id, match.domain_id, match.prefix_len)

    def lookups(self, bmr_index: int) -> int | None:
        """Number of lookups that have found the rule with that index; None: there is no such rule."""
        count = ffi.new("uint64_t *")
        return None if lib.fwx_nat64_model_lookups(self._use(), bmr_index, count) else int(count[0])
