"""Exceptions raised by the package.

Bad arguments raise the built-in ``ValueError`` before anything is sent.
A call the reader or tag did not carry out raises ``UhfError``; a link that
cannot be opened, or that dies under a running inventory, raises a
``ReaderConnectionError`` (a ``ConnectionError``).
"""
from __future__ import annotations


class UhfError(Exception):
    """A library call failed.

    ``operation`` says what was asked in the user's words ("write to user
    memory at word 0"), ``function`` names the library call and ``code`` is
    its result.
    """

    def __init__(self, code: int, operation: str, reason: str, function: str = "") -> None:
        self.code = code
        self.operation = operation
        self.reason = reason
        self.function = function
        super().__init__(f"{operation} failed: {reason} (library result {code})")


class ReaderConnectionError(ConnectionError):
    """A link to a reader could not be opened or was lost; ``uri`` names the reader."""

    def __init__(self, uri: str, reason: str) -> None:
        self.uri = uri
        super().__init__(f"{uri}: {reason}")


class ReaderUnreachable(ReaderConnectionError):
    """Nothing answered at the reader's address or port."""


class ReaderNotFound(ReaderConnectionError):
    """No such serial port, no USB reader plugged in, or no virtual reader to start."""


class ReaderLost(ReaderConnectionError):
    """The reader stopped sending during an inventory and does not answer."""
