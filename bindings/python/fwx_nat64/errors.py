"""The errors of commands. Each has the code of the library, the platform or the server, and its text."""

from __future__ import annotations

from ._native import ffi, lib


class Error(Exception):
    """The library, the platform or the server refused a command."""

    def __init__(self, code: int, text: str = ""):
        self.code = code
        """The code, 32 bits wide."""
        self.text = text or ffi.string(lib.xerr_strerror(code)).decode()
        """The text for the code."""
        super().__init__(f"{self.text} ({code:#x})")


class Unreachable(Error):
    """There is no server, or it went away before it took the command. The command may be sent again."""


class ServerGone(Error):
    """The server went away before it answered. It may have carried the command out."""


class TimedOut(Error, TimeoutError):
    """The server did not answer in time. It may still carry the command out."""


class LoadFailed(Error):
    """Some commands of a batch failed. The code is that of the first one in the batch."""

    def __init__(self, failures: dict[int, Error], count: int):
        first = next(iter(failures))
        self.failures = failures
        """The error of each failed command, by its index in the batch."""
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
    """Makes the error for a code."""
    return _KINDS.get(code, Error)(code)
