"""
Runs the host platform's loop from asyncio. A process has one host loop, for its client and its models.

A turn runs the host's loop, takes the results, and plans the next turn. The loop's descriptor, a timer, or `wake`
starts a turn.
"""

from __future__ import annotations

import asyncio
from collections.abc import Callable
from threading import get_ident
from typing import Any

from ._native import ffi, lib


def _running_loop() -> asyncio.AbstractEventLoop | None:
    try:
        return asyncio.get_running_loop()
    except RuntimeError:
        return None


class Driver:
    """Runs turns of the host's loop while a client or a model uses it."""

    def __init__(self) -> None:
        self.host: Any = ffi.NULL
        self.is_awake = False
        """True if a turn is scheduled with call_soon."""
        self.take: Callable[[Any], None] | None = None
        """Called after each turn with the results of commands."""
        self._loop: asyncio.AbstractEventLoop | None = None
        self._thread = 0
        self._users = 0
        self._timer: asyncio.TimerHandle | None = None
        self._results = ffi.new("nat64_results_t *")

    def attach(self) -> Any:
        """Adds a user and returns the host's loop, which runs from the current event loop of asyncio."""
        loop = asyncio.get_running_loop()
        is_driven = self._loop is not None and not self._loop.is_closed()
        if is_driven and loop is not self._loop:
            raise RuntimeError("a client or a model is in use on another event loop")
        if self.host == ffi.NULL:
            self.host = lib.fwx_host_loop_create()
            if self.host == ffi.NULL:
                raise OSError("no descriptor or no memory left for a loop")
        if not is_driven:
            self._set_timer(None)
            self._loop = loop
            self._thread = get_ident()
            self.is_awake = False
            loop.add_reader(lib.fwx_host_loop_fd(self.host), self._turn)
        self._users += 1
        self.wake()
        return self.host

    def detach(self) -> None:
        """Removes a user; the counterpart of attach."""
        self._users -= 1
        if self._users or self._loop is None:
            return
        if not self._loop.is_closed():
            self._loop.remove_reader(lib.fwx_host_loop_fd(self.host))
        self._set_timer(None)
        self._loop = None

    def check(self) -> None:
        """Raises outside the event loop that runs the host's loop, because the library is not thread-safe."""
        if self._loop is not None and _running_loop() is not self._loop:
            raise RuntimeError("a client or a model is used outside the event loop that it belongs to")

    def hand_over(self, call: Callable[..., None], *arguments: Any) -> bool:
        """
        Schedules a call in the event loop's thread. Returns False, without scheduling it, if this is that thread or the
        loop is gone.
        """
        if self._loop is None or self._loop.is_closed() or get_ident() == self._thread:
            return False
        self._loop.call_soon_threadsafe(call, *arguments)
        return True

    def wake(self) -> None:
        """Schedules a turn. Needed after a call that leaves work for which the descriptor does not become ready."""
        if not self.is_awake and self._loop is not None:
            self.is_awake = True
            self._loop.call_soon(self._turn)

    def _turn(self) -> None:
        if self._loop is None:
            return
        self.is_awake = False
        timeout_ms = lib.nat64_turn(self.host, self._results)
        if self.take is not None:
            self.take(self._results)
        if timeout_ms == 0:
            self.wake()
        elif timeout_ms > 0:
            self._set_timer(self._loop.time() + timeout_ms / 1000)

    def _set_timer(self, when: float | None) -> None:
        """
        Sets the timer of the next turn, or cancels it. An earlier timer is kept, because its turn sets the next one.
        """
        timer = self._timer
        if timer is not None and (when is None or when < timer.when()):
            timer.cancel()
            timer = None
        if timer is None and when is not None and self._loop is not None:
            timer = self._loop.call_at(when, self._timer_turn)
        self._timer = timer

    def _timer_turn(self) -> None:
        self._timer = None
        self._turn()


driver = Driver()
