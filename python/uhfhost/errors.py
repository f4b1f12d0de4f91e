"""Exceptions raised by the package."""
from __future__ import annotations


class UhfError(Exception):
    """A library call failed: ``code`` is its result, ``operation`` what was asked."""

    def __init__(self, code: int, operation: str, detail: str = "") -> None:
        self.code = code
        self.operation = operation
        text = f"{operation} failed (library result {code})"
        super().__init__(f"{text}: {detail}" if detail else text)


class ReaderConnectionError(ConnectionError):
    """A link to a reader could not be opened or was lost."""

    def __init__(self, uri: str, reason: str) -> None:
        self.uri = uri
        super().__init__(f"{uri}: {reason}")


class ReaderUnreachable(ReaderConnectionError):
    """Nothing answered at the reader's address or port."""


class ReaderNotFound(ReaderConnectionError):
    """No such serial port or no USB reader plugged in."""
