"""What goes wrong with commands: each error has the code of the library, the platform or the server, and its text."""

from __future__ import annotations

from ._native import ffi, lib


class Error(Exception):
    """A command was refused, by the library or the server."""

    def __init__(self, code: int, text: str = ""):
        self.code = code
        """The code, 32 bits wide."""
        self.text = text or ffi.string(lib.xerr_strerror(code)).decode()
        """What the code says."""
        super().__init__(f"{self.text} ({code:#x})")


class Unreachable(Error):
    """There is no server, or it went away before it took the command, which may be sent again."""


class ServerGone(Error):
    """The server went away before it answered; nobody knows whether it carried the command out."""


class TimedOut(Error, TimeoutError):
    """No answer in time; the server may still carry the command out."""


class LoadFailed(Error):
    """Some commands of a batch failed; the code is the first one's."""

    def __init__(self, failures: dict[int, Error], count: int):
        first = next(iter(failures))
        self.failures = failures
        """What came of those that failed, by their place in the batch."""
        super().__init__(
            failures[first].code,
            f"{len(failures)} of {count} commands failed, the first at {first}: {failures[first].text}",
        )


_KINDS: dict[int, type[Error]] = {
    lib.FWX_NAT64_ERR_AGAIN: Unreachable,
    lib.FWX_HOST_ERR_NO_SERVER: Unreachable,
    lib.FWX_HOST_ERR_CHANNEL_DOWN: ServerGone,
    lib.FWX_HOST_ERR_NO_ANSWER: TimedOut,
}


def error(code: int) -> Error:
    """The error of a code."""
    return _KINDS.get(code, Error)(code)
