"""Continuous inventory: the iterator ``Reader.inventory()`` returns.

The library keeps one tag queue for the whole process, filled by one receive
thread per inventorying link; each queued report carries its link's id. The
iterators share one dispatcher that takes reports off the queue and hands
each to the iterator of its link, holding the others' reports until their
iterator asks.
"""
from __future__ import annotations

import ctypes
import time
from collections import deque
from dataclasses import dataclass
from typing import TYPE_CHECKING, Deque, Dict, Iterator, Optional, Tuple

from ._lib import LOCK, lib
from .errors import ReaderLost

if TYPE_CHECKING:
    from .reader import Reader

# A reader that has sent nothing for this long is asked whether it is there:
# a dead link and an empty field look the same until then.
QUIET = 1.0
# Reports held per link for an iterator that is not asking; the oldest go first.
HELD_MAX = 100_000


@dataclass(frozen=True)
class TagRead:
    """One report of a tag: EPC and PC as upper-case hex, RSSI in dBm, antenna from 1,
    ``timestamp`` in Unix seconds; ``tid`` and ``user`` as hex when the mode adds them."""

    epc: str
    pc: str
    rssi: float
    antenna: int
    timestamp: float
    tid: Optional[str] = None
    user: Optional[str] = None

    @property
    def epc_bytes(self) -> bytes:
        """The EPC as bytes."""
        return bytes.fromhex(self.epc)

    @property
    def pc_bytes(self) -> bytes:
        """The PC word as two bytes."""
        return bytes.fromhex(self.pc)


def parse_report(report: bytes, stamp: float, mode: str, user_words: int) -> Optional[TagRead]:
    """A reader's tag report: PC+EPC, extra bank data, RSSI (0.1 dBm, signed), and an
    antenna byte when the length after PC+EPC is odd. None when it is not a real read."""
    n = len(report)
    if n < 4:
        return None
    uii = ((report[0] >> 3) + 1) * 2
    has_antenna = (n - uii) & 1
    if n < uii + has_antenna + 2:
        return None
    end = n - has_antenna - 2
    antenna = report[-1] if has_antenna else 1
    return make_read(report[:uii], report[uii:end], report[end : end + 2], antenna, stamp, mode, user_words)


def make_read(uii: bytes, data: bytes, rssi: bytes, antenna: int, stamp: float, mode: str,
              user_words: int) -> Optional[TagRead]:
    """A ``TagRead`` from a report's fields; None when the RSSI says it is not a real read."""
    dbm = int.from_bytes(rssi, "big", signed=True)
    if len(uii) < 2 or not -1200 <= dbm <= -250:  # -25.0..-120.0 dBm; anything else is noise
        return None
    tid = user = None
    if data and mode != "epc":
        cut = len(data) - 2 * user_words if mode == "epc+tid+user" else len(data)
        tid, user = data[:cut].hex().upper() or None, data[cut:].hex().upper() or None
    return TagRead(uii[2:].hex().upper(), uii[:2].hex().upper(), dbm / 10, antenna, stamp, tid, user)


class _Dispatcher:
    """Reports taken off the library's queue, per link; used under ``LOCK``."""

    def __init__(self) -> None:
        self.held: Dict[int, Deque[Tuple[bytes, float]]] = {}
        self._rec = (ctypes.c_uint8 * 256)()

    def _pull(self) -> Optional[Tuple[int, bytes]]:
        n = lib().getTagData(self._rec, len(self._rec))
        if n < 6 or n > 256:
            return None
        raw = bytes(self._rec[:n])
        return raw[0] << 8 | raw[1], raw[3:]  # link id, mode byte, report

    def drain(self) -> None:
        """Empties the library's queue into the held reports of inventorying links."""
        while (got := self._pull()) is not None:
            if got[0] in self.held:
                self.held[got[0]].append((got[1], time.time()))

    def take(self, link: int) -> Optional[Tuple[bytes, float]]:
        """The next report of ``link``, or None when none has arrived."""
        mine = self.held[link]
        while not mine and (got := self._pull()) is not None:
            if got[0] in self.held:
                self.held[got[0]].append((got[1], time.time()))
        return mine.popleft() if mine else None


_DISPATCH = _Dispatcher()


class Inventory(Iterator[TagRead]):
    """A running continuous inventory on one reader; iterate it for ``TagRead``s.

    It ends after ``duration`` seconds or ``count`` reads (neither: when the
    loop stops), and stops the reader however the loop ends (``break``, an
    exception, Ctrl-C, ``close()``, leaving a ``with`` block). A reader that
    dies ends it with ``uhfhost.ReaderLost`` about a second or two later.
    """

    def __init__(self, reader: "Reader", duration: Optional[float], count: Optional[int], poll: float) -> None:
        if duration is not None and (isinstance(duration, bool) or not isinstance(duration, (int, float))
                                     or not duration > 0):
            raise ValueError(f"duration must be more than 0 seconds, not {duration!r}")
        if count is not None and (isinstance(count, bool) or not isinstance(count, int) or count < 1):
            raise ValueError(f"count must be a whole number above 0, not {count!r}")
        if isinstance(poll, bool) or not isinstance(poll, (int, float)) or not 0 < poll <= 1:
            raise ValueError(f"poll must be 0..1 seconds, not {poll!r}")
        self._reader, self._link = reader, reader._link
        self._count, self._poll, self._got = count, poll, 0
        with LOCK:
            reader._claim_inventory(self)
            self._running = True
            try:
                self._mode, self._user_words = reader._mode()
                _DISPATCH.drain()  # the others' reports are kept; this link's are of an earlier run
                _DISPATCH.held[self._link] = deque(maxlen=HELD_MAX)
                reader._call("UHFInventory", doing="start an inventory")
            except BaseException:
                self._finish(stop=False)
                raise
        self._end = None if duration is None else time.monotonic() + duration
        self._heard = time.monotonic()

    def __iter__(self) -> "Inventory":
        return self

    def __next__(self) -> TagRead:
        while self._running:
            if self._end is not None and time.monotonic() >= self._end:
                break
            with LOCK:
                got = _DISPATCH.take(self._link) if self._running else None
            if got is not None:
                tag = parse_report(got[0], got[1], self._mode, self._user_words)
                if tag is None:
                    continue  # not a real read
                self._heard = time.monotonic()
                self._got += 1
                if self._count is not None and self._got >= self._count:
                    self.close()
                return tag
            if time.monotonic() - self._heard >= QUIET:
                self._check_alive()
            time.sleep(self._poll)
        self.close()
        raise StopIteration

    def _check_alive(self) -> None:
        # Stop, ask the version, start again; a hung-up link fails the exchange at once.
        with LOCK:
            alive = self._reader._answers_after_stop()
            if alive:
                _DISPATCH.drain()  # the restart empties the queue; keep what others had in it
                alive = lib().UHFInventory() == 0
        self._heard = time.monotonic()
        if not alive:
            self._finish(stop=False)
            raise ReaderLost(self._reader.uri, "the reader stopped sending and does not answer")

    def close(self) -> None:
        """Stops the inventory on the reader (once; later calls do nothing)."""
        self._finish(stop=True)

    def _finish(self, stop: bool) -> None:
        with LOCK:
            if not self._running:
                return
            self._running = False
            _DISPATCH.held.pop(self._link, None)
            self._reader._release_inventory(self, stop)

    def __enter__(self) -> "Inventory":
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_running", False):
            self.close()
