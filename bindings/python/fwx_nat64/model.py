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

    bmr_index: int
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
    A server that answers every command and can be told to misbehave. It serves from its making, in a coroutine, until
    it is closed; `with` closes it.
    """

    def __init__(self, listen: str | None = None):
        """:param listen: name by which clients in other processes reach it too."""
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
        """Ends the server; its clients' channels go down."""
        if self._model != ffi.NULL:
            driver.check()
            self._destroy()

    def _destroy(self) -> None:
        lib.fwx_nat64_model_destroy(self._model)
        self._model = ffi.NULL
        driver.wake()
        driver.detach()

    def _use(self) -> Any:
        """The model, with a turn of the loop to follow."""
        if self._model == ffi.NULL:
            raise Error(lib.FWX_HOST_ERR_NO_SERVER, "the model is closed")
        driver.check()
        driver.wake()
        return self._model

    # --- Misbehaviour ---

    def fail_next(self, code: int, count: int = 1) -> None:
        """Answers the next commands with a code instead of carrying them out."""
        lib.fwx_nat64_model_fail_next(self._use(), code, count)

    def delay(self, seconds: float) -> None:
        """Sends each reply so long after its command."""
        lib.fwx_nat64_model_delay_set(self._use(), round(seconds * 1000))

    def hold(self) -> None:
        """Holds all replies back until release."""
        lib.fwx_nat64_model_hold(self._use())

    def release(self, order: str = "in-order") -> None:
        """Sends the held replies in-order, reverse or shuffled."""
        _check(lib.fwx_nat64_model_release(self._use(), _ORDERS[order]))

    def duplicate(self, copies: int) -> None:
        """Sends every reply so many times."""
        lib.fwx_nat64_model_duplicate_set(self._use(), copies)

    def silent(self, on: bool) -> None:
        """Carries commands out and answers nothing."""
        lib.fwx_nat64_model_silent_set(self._use(), on)

    def pause(self, on: bool) -> None:
        """Takes no messages, so that the channel fills."""
        lib.fwx_nat64_model_pause_set(self._use(), on)

    def drop_clients(self) -> None:
        """Ends the channels of all clients."""
        _check(lib.fwx_nat64_model_drop_clients(self._use()))

    def reply_limit(self, size: int) -> None:
        """Bytes of entries in one reply."""
        lib.fwx_nat64_model_reply_limit_set(self._use(), size)

    def order_cleanup(self, on: bool) -> None:
        """Whether the delete of the last basic rule empties the client's rule table."""
        lib.fwx_nat64_model_order_cleanup(self._use(), on)

    # --- Notifications ---

    def notify_record(self, operation: str, word1: int, word2: int, word3: int) -> None:
        """Tells of a record that was added (add) or deleted (del)."""
        _check(lib.fwx_nat64_model_notify_record(self._use(), operation == "add", word1, word2, word3))

    def notify_event(self) -> None:
        """Tells that something happened."""
        _check(lib.fwx_nat64_model_notify_event(self._use()))

    def notify_mapping(self, id: int, active: bool, sessions: int) -> None:
        """Tells that a mapping has changed."""
        _check(lib.fwx_nat64_model_notify_mapping(self._use(), id, active, sessions))

    # --- State ---

    def save(self) -> list[tuple[int, bytes]]:
        """The whole configuration, as op codes and payloads in an order in which they can be restored."""
        parts: list[tuple[int, bytes]] = []
        handle = ffi.new_handle(parts)
        _check(lib.fwx_nat64_model_save(self._use(), lib.nat64_saved_part, handle))
        return parts

    def restore(self, parts: list[tuple[int, bytes]]) -> None:
        """Sets what another model has saved."""
        for op_code, payload in parts:
            _check(lib.fwx_nat64_model_restore(self._use(), op_code, payload, len(payload)))

    def counts(self) -> Counts:
        """What the model has counted."""
        return self._read("counts", COUNTS_ENTRIES)

    def boot(self) -> Boot:
        """Which run it is, and how often its configuration has changed."""
        return self._read("boot", BOOT_ENTRIES)

    def totals(self) -> Totals:
        """How many it holds of each kind."""
        return self._read("totals", TOTALS_ENTRIES)

    def _read(self, what: str, entries: Entries[Entry]) -> Entry:
        record = ffi.new("char[]", entries.size)
        getattr(lib, f"fwx_nat64_model_{what}")(self._use(), ffi.cast("void *", record))
        return entries.read(ffi.buffer(record)[:])[0]

    def sessions_generate(self, count: int) -> None:
        """Makes sessions up, in the place of those that it has made up before."""
        _check(lib.fwx_nat64_model_sessions_generate(self._use(), count))

    def lookup(self, value: Address) -> Match | None:
        """The MAP-T rule of an address, looked up as the data plane does."""
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
        """How many lookups have found the rule of that index; None: there is none."""
        count = ffi.new("uint64_t *")
        return None if lib.fwx_nat64_model_lookups(self._use(), bmr_index, count) else int(count[0])
