"""Checks and conversions of arguments, so that nothing out of range is sent.

ctypes cuts a Python int to the width of the C parameter without a word; every
number therefore passes through ``whole`` (or ``number``) with the range the
reader takes before it reaches the library.
"""
from __future__ import annotations

import ctypes
from typing import Optional, Tuple, Union

Hex = Union[str, bytes, bytearray]
Password = Union[Hex, int, None]
TagMask = Tuple[Union[str, int], int, int, Hex]

BANKS = {"reserved": 0, "epc": 1, "tid": 2, "user": 3}
U16 = 0xFFFF
U32 = 0xFFFFFFFF
# The longest mask a request has room for in every tag command (uhfctl's bound too).
MASK_BYTES = 62


def whole(value: object, name: str, low: int, high: int) -> int:
    """``value`` if it is an int in ``low..high``, else ``ValueError``."""
    if isinstance(value, bool) or not isinstance(value, int) or not low <= value <= high:
        raise ValueError(f"{name} must be a whole number {low}..{high}, not {value!r}")
    return value


def number(value: object, name: str, low: float, high: float) -> float:
    """``value`` as a float if it is a real number in ``low..high``, else ``ValueError``."""
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not low <= value <= high:
        raise ValueError(f"{name} must be a number {low}..{high}, not {value!r}")
    return float(value)


def hexbytes(text: Hex, name: str) -> bytes:
    """Bytes given as such or as hex text (spaces, ':' and '-' allowed between bytes)."""
    if isinstance(text, (bytes, bytearray)):
        return bytes(text)
    try:
        return bytes.fromhex(text.replace(":", " ").replace("-", " "))
    except (ValueError, AttributeError):
        raise ValueError(f"{name} must be hex bytes, not {text!r}") from None


def buf(data: bytes) -> ctypes.Array:
    """A C byte array holding ``data`` (one zero byte when empty: never a null pointer)."""
    return (ctypes.c_uint8 * max(1, len(data))).from_buffer_copy(data or b"\0")


def password(value: Password) -> ctypes.Array:
    """A 32-bit access or kill password: an int, or 8 hex digits; None is 0."""
    if value is None:
        return buf(bytes(4))
    if isinstance(value, int) and not isinstance(value, bool):
        return buf(whole(value, "password", 0, U32).to_bytes(4, "big"))
    raw = hexbytes(value, "password")
    if len(raw) != 4:
        raise ValueError("a password is 4 bytes (8 hex digits)")
    return buf(raw)


def bank(value: Union[str, int], name: str = "bank") -> int:
    """A memory bank by name (reserved, epc, tid, user) or number 0..3."""
    if isinstance(value, str):
        if value not in BANKS:
            raise ValueError(f"{value}: the banks are {', '.join(BANKS)}")
        return BANKS[value]
    return whole(value, name, 0, 3)


class Filter:
    """Which tag a call addresses: by EPC, or by (bank, bit address, bit length, mask)."""

    def __init__(self, epc: Optional[Hex], given: Optional[TagMask]) -> None:
        if epc is not None and given is not None:
            raise ValueError("give epc= or filter=, not both")
        self.bank, self.bit_addr, self.bits, self.mask = 1, 0, 0, b""
        if epc is not None:
            self.mask = hexbytes(epc, "epc")
            self.bit_addr, self.bits = 0x20, 8 * len(self.mask)  # the EPC starts after CRC and PC
        elif given is not None:
            if not isinstance(given, tuple) or len(given) != 4:
                raise ValueError("filter is (bank, bit address, bit length, mask)")
            fbank, self.bit_addr, self.bits, mask = given
            self.bank = bank(fbank, "filter bank")
            self.mask = hexbytes(mask, "filter mask")
            whole(self.bit_addr, "filter bit address", 0, U16)
            whole(self.bits, "filter bit length", 0, 8 * len(self.mask))
        if len(self.mask) > MASK_BYTES:
            raise ValueError(f"a mask or EPC is at most {MASK_BYTES} bytes")
        self.buf = buf(self.mask)

    @property
    def args(self) -> tuple:
        """Bank, bit address, bit length and mask, in the library's order."""
        return self.bank, self.bit_addr, self.bits, self.buf
