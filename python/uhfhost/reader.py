"""A reader on one link: settings, inventory, tag access, sensor tags, upgrade.

The library's command calls act on a process-wide selected link. Every
method here selects its reader's link and makes its calls under one module
lock, so several ``Reader`` objects (and threads) can be used in turn; their
calls are serialised, never interleaved.
"""
from __future__ import annotations

import ctypes
import socket
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Dict, Iterator, List, Optional, Sequence, Tuple, Union

from ._lib import LOCK, lib
from .errors import ReaderNotFound, ReaderUnreachable, UhfError

BANKS = {"reserved": 0, "epc": 1, "tid": 2, "user": 3}
REGIONS = {"fcc": 1, "etsi": 2, "china-920": 3, "china-840": 4}
MODES = {"epc": 0, "epc+tid": 1, "epc+tid+user": 2}
GEN2_FIELDS = ("target", "action", "t", "q", "startq", "minq", "maxq", "d", "c", "p", "sel", "session", "g", "lf")
GEN2_LIMITS = (7, 7, 1, 1, 15, 15, 15, 1, 3, 1, 3, 3, 1, 7)
LOCK_AREAS = ("kill", "access", "epc", "tid", "user")
LOCK_ACTIONS = ("unlock", "permaunlock", "lock", "permalock")
_BAUDS = (9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600)


@dataclass(frozen=True)
class TagRead:
    """One report of a tag: EPC and PC as upper-case hex, RSSI in dBm."""

    epc: str
    pc: str
    rssi: float
    antenna: int
    timestamp: float
    tid: Optional[str] = None
    user: Optional[str] = None

    @property
    def epc_bytes(self) -> bytes:
        return bytes.fromhex(self.epc)

    @property
    def pc_bytes(self) -> bytes:
        return bytes.fromhex(self.pc)


def _u8(value: int, name: str, high: int = 255) -> int:
    if not isinstance(value, int) or isinstance(value, bool) or not 0 <= value <= high:
        raise ValueError(f"{name} must be a whole number 0..{high}, not {value!r}")
    return value


def _hex(text: Union[str, bytes], name: str) -> bytes:
    if isinstance(text, (bytes, bytearray)):
        return bytes(text)
    try:
        return bytes.fromhex(text.replace(":", " ").replace("-", " "))
    except (ValueError, AttributeError):
        raise ValueError(f"{name} must be hex bytes, not {text!r}") from None


def _buf(data: bytes) -> ctypes.Array:
    return (ctypes.c_uint8 * max(1, len(data))).from_buffer_copy(data or b"\0")


def _password(password: Union[str, bytes, int, None]) -> ctypes.Array:
    if password is None:
        return _buf(bytes(4))
    raw = password.to_bytes(4, "big") if isinstance(password, int) else _hex(password, "password")
    if len(raw) != 4:
        raise ValueError("a password is 4 bytes (8 hex digits)")
    return _buf(raw)


class _Filter:
    """Which tag a tag-access call addresses: by EPC, or bank/bit address/bit length/mask."""

    def __init__(self, epc: Union[str, bytes, None], filter: Optional[Tuple]) -> None:
        if epc is not None and filter is not None:
            raise ValueError("give epc= or filter=, not both")
        self.bank, self.bit_addr, self.bits, self.mask = 1, 0, 0, b""
        if epc is not None:
            self.mask = _hex(epc, "epc")
            self.bit_addr, self.bits = 0x20, 8 * len(self.mask)
        elif filter is not None:
            bank, self.bit_addr, self.bits, mask = filter
            self.bank = BANKS[bank] if bank in BANKS else _u8(bank, "filter bank", 3)
            self.mask = _hex(mask, "filter mask")
            if len(self.mask) * 8 < self.bits:
                raise ValueError("the filter mask is shorter than its bit length")
        self.buf = _buf(self.mask)


class Reader:
    """An open link to one reader; use ``with uhfhost.open(...) as reader``."""

    def __init__(self, link: int, uri: str) -> None:
        self._link = link
        self.uri = uri
        self._open = True
        self._inventory = False

    # ---- plumbing -------------------------------------------------------
    def _call(self, name: str, *args, ok: Sequence[int] = (0,)) -> int:
        if not self._open:
            raise UhfError(-1, name, "the reader is closed")
        with LOCK:
            if lib().LinkSelect(self._link) != 0:
                raise UhfError(-1, name, "the link is gone")
            rc = getattr(lib(), name)(*args)
        if rc not in ok:
            raise UhfError(rc, name)
        return rc

    def close(self) -> None:
        """Stops any inventory and releases the link."""
        if not self._open:
            return
        self._stop_inventory()
        with LOCK:
            if lib().LinkSelect(self._link) == 0:
                lib().ClosePort()
        self._open = False

    def __enter__(self) -> "Reader":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    # ---- identity -------------------------------------------------------
    def _version(self, name: str) -> str:
        b = (ctypes.c_uint8 * 300)()
        self._call(name, b)
        n = b[0] - (1 if name == "UHFGetSoftwareVersion" else 0)  # that count includes itself
        return bytes(b[1 : 1 + n]).decode("latin-1")

    def info(self) -> Dict[str, object]:
        """Versions, device id and the main settings."""
        dev = ctypes.c_uint()
        self._call("UHFGetDeviceID", ctypes.byref(dev))
        return {"hardware": self._version("UHFGetHardwareVersion"), "software": self._version("UHFGetSoftwareVersion"),
                "device_id": f"{dev.value:08X}", "power": self.power, "antennas": self.antennas,
                "region": self.region, "mode": self.mode}

    # ---- settings -------------------------------------------------------
    @property
    def power(self) -> int:
        """Output power of antenna 1 in dBm (1..30)."""
        v = ctypes.c_uint8()
        self._call("UHFGetPower", ctypes.byref(v))
        return v.value

    def set_power(self, dbm: int, save: bool = False) -> None:
        if isinstance(dbm, bool) or not isinstance(dbm, int) or not 1 <= dbm <= 30:
            raise ValueError(f"power must be a whole number of dBm 1..30, not {dbm!r}")
        self._call("UHFSetPower", int(save), dbm)

    @power.setter
    def power(self, dbm: int) -> None:
        self.set_power(dbm)

    def antenna_power(self) -> Dict[int, Tuple[int, int]]:
        """Read and write power per antenna, whole dBm."""
        b, n = (ctypes.c_uint8 * 96)(), ctypes.c_uint16()
        self._call("UHFGetAntennaPower", b, ctypes.byref(n))
        return {b[i]: (b[i + 1], b[i + 2]) for i in range(0, min(n.value, 96), 3)}

    def set_antenna_power(self, antenna: int, read: float, write: Optional[float] = None, save: bool = False) -> None:
        write = read if write is None else write
        for v in (read, write):
            if not 0 <= v <= 33:
                raise ValueError(f"power must be 0..33 dBm, not {v!r}")
        self._call("UHFSetAntennaPower", int(save), _u8(antenna, "antenna", 16), round(read * 100), round(write * 100))

    @property
    def antennas(self) -> List[int]:
        """Enabled antennas, numbered from 1."""
        b = (ctypes.c_uint8 * 2)()
        self._call("UHFGetANT", b)
        mask = b[0] << 8 | b[1]
        return [i + 1 for i in range(16) if mask >> i & 1]

    def set_antennas(self, antennas: Sequence[int], save: bool = False) -> None:
        if not antennas or any(not 1 <= a <= 16 for a in antennas):
            raise ValueError("antennas are numbered 1..16; give at least one")
        mask = sum(1 << (a - 1) for a in set(antennas))
        self._call("UHFSetANT", int(save), _buf(bytes([mask >> 8, mask & 0xFF])))

    @property
    def region(self) -> str:
        """Regulatory region by name (or its code as text when unnamed)."""
        v = ctypes.c_uint8()
        self._call("UHFGetRegion", ctypes.byref(v))
        return next((k for k, c in REGIONS.items() if c == v.value), str(v.value))

    def set_region(self, region: Union[str, int], save: bool = False) -> None:
        code = REGIONS.get(region) if isinstance(region, str) else _u8(region, "region")
        if not code:
            raise ValueError(f"region must be one of {', '.join(REGIONS)} or a code 1..255")
        self._call("UHFSetRegion", int(save), code)

    @property
    def frequencies(self) -> List[int]:
        """The hopping table in kHz."""
        b = (ctypes.c_uint * 256)()
        self._call("UHFGetJumpFrequency", b)
        return list(b[1 : 1 + b[0]])

    def set_frequencies(self, khz: Sequence[int]) -> None:
        if not 1 <= len(khz) <= 84 or any(not 100000 <= f <= 2000000 for f in khz):
            raise ValueError("give 1..84 frequencies in kHz")
        self._call("UHFSetJumpFrequency", len(khz), (ctypes.c_uint * len(khz))(*khz))

    def gen2(self) -> Dict[str, int]:
        """The Gen2 inventory parameters by name (target, q, session, ...)."""
        vals = [ctypes.c_uint8() for _ in GEN2_FIELDS]
        self._call("UHFGetGen2", *[ctypes.byref(v) for v in vals])
        return {k: v.value for k, v in zip(GEN2_FIELDS, vals)}

    def set_gen2(self, **fields: int) -> None:
        """Changes the named Gen2 fields and keeps the others as the reader holds them."""
        unknown = set(fields) - set(GEN2_FIELDS)
        if unknown:
            raise ValueError(f"unknown Gen2 fields {sorted(unknown)}; they are {', '.join(GEN2_FIELDS)}")
        for k, hi in zip(GEN2_FIELDS, GEN2_LIMITS):
            if k in fields:
                _u8(fields[k], k, hi)
        current = self.gen2()
        current.update(fields)
        self._call("UHFSetGen2", *[current[k] for k in GEN2_FIELDS])

    @property
    def mode(self) -> str:
        """What an inventory reports: epc, epc+tid or epc+tid+user."""
        return self._mode()[0]

    def _mode(self) -> Tuple[str, int]:
        b = (ctypes.c_uint8 * 4)()
        self._call("UHFGetEPCTIDUSERMode", 0, 0, b, ok=(3,))
        return next((k for k, c in MODES.items() if c == b[0]), str(b[0])), b[2]

    def set_mode(self, mode: str, user_start: int = 0, user_words: int = 0, save: bool = False) -> None:
        if mode not in MODES:
            raise ValueError(f"mode must be one of {', '.join(MODES)}")
        self._call("UHFSetEPCTIDUSERMode", int(save), MODES[mode], _u8(user_start, "user_start"),
                   _u8(user_words, "user_words"))

    def _byte(self, getter: str) -> int:
        v = ctypes.c_uint8()
        self._call(getter, ctypes.byref(v))
        return v.value

    @property
    def rflink(self) -> int:
        return self._byte("UHFGetRFLink")

    def set_rflink(self, mode: int, save: bool = False) -> None:
        self._call("UHFSetRFLink", int(save), _u8(mode, "rflink"))

    @property
    def work_mode(self) -> int:
        return self._byte("UHFGetWorkMode")

    def set_work_mode(self, mode: int) -> None:
        self._call("UHFSetWorkMode", _u8(mode, "work_mode"))

    @property
    def beep(self) -> int:
        return self._byte("UHFGetBeep")

    def set_beep(self, mode: int) -> None:
        self._call("UHFSetBeep", _u8(mode, "beep"))

    # ---- inventory ------------------------------------------------------
    def inventory(self, duration: Optional[float] = None, count: Optional[int] = None,
                  poll: float = 0.005) -> Iterator[TagRead]:
        """Continuous inventory: yields each report until ``duration`` seconds or
        ``count`` reports have passed (neither: until the loop stops). The reader
        is stopped however the loop ends: ``break``, an exception or Ctrl-C.
        One inventory at a time per process: the library has one tag queue."""
        if duration is not None and not duration > 0:
            raise ValueError("duration must be more than 0 seconds")
        if count is not None and (not isinstance(count, int) or count < 1):
            raise ValueError("count must be a whole number above 0")
        mode, user_words = self._mode()
        with LOCK:
            out, n = (ctypes.c_uint8 * 512)(), ctypes.c_int()
            while lib().UHF_GetReceived_EX(ctypes.byref(n), out) == 0:
                pass  # reports of an earlier run are not this one's
            self._call("UHFInventory")
            self._inventory = True
        return self._reads(mode, user_words, duration, count, poll)

    def _reads(self, mode: str, user_words: int, duration, count, poll) -> Iterator[TagRead]:
        end = None if duration is None else time.monotonic() + duration
        out, n, got = (ctypes.c_uint8 * 512)(), ctypes.c_int(), 0
        try:
            while end is None or time.monotonic() < end:
                with LOCK:
                    rc = lib().UHF_GetReceived_EX(ctypes.byref(n), out)
                tag = _parse_report(bytes(out[: n.value]), mode, user_words) if rc == 0 and 0 < n.value <= 512 else None
                if tag is None:
                    time.sleep(poll)
                    continue
                yield tag
                got += 1
                if count is not None and got >= count:
                    return
        finally:
            self._stop_inventory()

    def _stop_inventory(self) -> None:
        if self._inventory:
            self._inventory = False
            with LOCK:
                if lib().LinkSelect(self._link) == 0:
                    lib().UHFStopGet()

    def inventory_once(self) -> Optional[TagRead]:
        """One single-shot inventory: the tag found, or None."""
        mode, user_words = self._mode()
        out, n = (ctypes.c_uint8 * 4096)(), ctypes.c_uint8()
        with LOCK:
            lib().LinkSelect(self._link)
            rc = lib().UHF_InventorySingleEPCTIDUSER(ctypes.byref(n), out)
        return _parse_report(bytes(out[: n.value]), mode, user_words) if rc == 0 else None

    # ---- tag access -----------------------------------------------------
    def read(self, bank: str, address: int, words: int, *, epc=None, filter=None, password=None) -> bytes:
        """Reads ``words`` 16-bit words of ``bank`` from word ``address``."""
        sel, pwd = _Filter(epc, filter), _password(password)
        if not 1 <= words <= 1000:
            raise ValueError("words must be 1..1000")
        out = (ctypes.c_uint8 * 2048)()
        self._call("UHFReadData", pwd, sel.bank, sel.bit_addr, sel.bits, sel.buf, _bank(bank), address, words, out)
        return bytes(out[: 2 * words])

    def write(self, bank: str, address: int, data: Union[str, bytes], *, epc=None, filter=None, password=None) -> None:
        """Writes whole 16-bit words (a block write when they do not fit one request)."""
        sel, pwd, raw = _Filter(epc, filter), _password(password), _hex(data, "data")
        if not raw or len(raw) % 2:
            raise ValueError("data must be whole 16-bit words")
        words = len(raw) // 2
        args = (pwd, sel.bank, sel.bit_addr, sel.bits, sel.buf, _bank(bank), address, words, _buf(raw))
        fits = 14 + len(sel.mask) + len(raw) <= 100
        self._call("UHFWriteData" if fits else "UHFBlockWriteData", *args)

    def erase(self, bank: str, address: int, words: int, *, epc=None, filter=None, password=None) -> None:
        sel, pwd = _Filter(epc, filter), _password(password)
        self._call("UHFBlockEraseData", pwd, sel.bank, sel.bit_addr, sel.bits, sel.buf, _bank(bank), address,
                   _u8(words, "words"))

    def lock(self, areas: Dict[str, str], *, epc=None, filter=None, password=None) -> None:
        """Locks areas, e.g. ``{"user": "lock", "epc": "permalock"}``."""
        if not areas:
            raise ValueError("name at least one area")
        mask = action = 0
        for area, act in areas.items():
            if area not in LOCK_AREAS or act not in LOCK_ACTIONS:
                raise ValueError(f"areas are {', '.join(LOCK_AREAS)}; actions {', '.join(LOCK_ACTIONS)}")
            shift = 8 - 2 * LOCK_AREAS.index(area)
            mask |= 3 << shift
            action |= LOCK_ACTIONS.index(act) << shift
        payload = (mask << 10 | action).to_bytes(3, "big")
        sel, pwd = _Filter(epc, filter), _password(password)
        self._call("UHFLockTag", pwd, sel.bank, sel.bit_addr, sel.bits, sel.buf, _buf(payload))

    def kill(self, password, *, epc=None, filter=None) -> None:
        """Kills the tag for good; it needs its non-zero kill password."""
        if epc is None and filter is None:
            raise ValueError("name the tag with epc= or filter=")
        sel, pwd = _Filter(epc, filter), _password(password)
        self._call("UHFKillTag", pwd, sel.bank, sel.bit_addr, sel.bits, sel.buf)

    # ---- sensor tags ----------------------------------------------------
    def start_logging(self, epc, low: float, high: float, delay: int, interval: int) -> None:
        """Starts a temperature-logging run on the sensor tag ``epc``: limits in
        degrees Celsius, first reading after ``delay`` s, then every ``interval`` s."""
        sel = _Filter(epc, None)
        self._call("UHFStartLogging", sel.bank, sel.bit_addr, sel.bits, sel.buf, float(low), float(high),
                   delay, interval)

    def stop_logging(self, epc, password: int = 0) -> None:
        sel = _Filter(epc, None)
        self._call("UHFStopLogging", sel.bank, sel.bit_addr, sel.bits, sel.buf, password)

    def temperatures(self, epc, start: int = 0, count: int = 255) -> List[float]:
        """The logged readings from index ``start``, in degrees Celsius."""
        sel = _Filter(epc, None)
        total, got, temps = ctypes.c_ushort(), ctypes.c_ubyte(), (ctypes.c_float * 255)()
        self._call("UHFReadMultiTemp", sel.bank, sel.bit_addr, sel.bits, sel.buf, start, _u8(count, "count"),
                   ctypes.byref(total), ctypes.byref(got), temps)
        return [round(t, 2) for t in temps[: got.value]]

    # ---- firmware -------------------------------------------------------
    def upgrade(self, path: Union[str, Path], progress: Optional[Callable[[int, int], None]] = None,
                settle: float = 0.3) -> str:
        """Sends a firmware image in 64-byte blocks; returns the new software version.
        ``progress(bytes_sent, total)`` is called after every block."""
        image = Path(path).read_bytes()
        if not image:
            raise ValueError(f"{path}: empty image")
        if self._call("UHFJump2Boot", 0, ok=(0, -1)) != 0:
            self._call("UHFJump2Boot", 0)  # a reader that refused an image refuses once
        time.sleep(settle)
        self._call("UHFStartUpd")
        for off in range(0, len(image), 64):
            block = image[off : off + 64].ljust(64, b"\xff")  # padded as erased flash
            self._call("UHFUpdating", _buf(block))
            if progress:
                progress(min(off + 64, len(image)), len(image))
        self._call("UHFStopUpdate")
        for _ in range(3):
            time.sleep(settle)
            try:
                return self._version("UHFGetSoftwareVersion")
            except UhfError:
                pass
        raise UhfError(-1, "upgrade", "the reader did not come back after the transfer")


def _bank(bank: Union[str, int]) -> int:
    if isinstance(bank, str):
        if bank not in BANKS:
            raise ValueError(f"{bank}: the banks are {', '.join(BANKS)}")
        return BANKS[bank]
    return _u8(bank, "bank", 3)


def _parse_report(raw: bytes, mode: str, user_words: int) -> Optional[TagRead]:
    """L, PC+EPC, d, data, RSSI (tenths of dBm, signed), antenna."""
    if len(raw) < 6 or raw[0] < 2 or raw[0] + 2 > len(raw):
        return None
    uii = raw[1 : 1 + raw[0]]
    d = raw[1 + raw[0]]
    if raw[0] + 2 + d + 3 > len(raw):
        return None
    data = raw[2 + raw[0] : 2 + raw[0] + d]
    rssi = int.from_bytes(raw[-3:-1], "big", signed=True) / 10
    tid = user = None
    if data and mode != "epc":
        cut = len(data) - 2 * user_words if mode == "epc+tid+user" else len(data)
        tid, user = data[:cut].hex().upper() or None, data[cut:].hex().upper() or None
    return TagRead(uii[2:].hex().upper(), uii[:2].hex().upper(), rssi, raw[-1], time.time(), tid, user)


def open(uri: str) -> Reader:  # noqa: A001 - the package's entry point mirrors the built-in on purpose
    """Opens ``tcp:HOST[:PORT]``, ``serial:PATH[@BAUD]`` or ``usb``."""
    kind, _, rest = uri.partition(":")
    with LOCK:
        if kind == "tcp":
            host, _, port = rest.rpartition(":") if ":" in rest else (rest, "", "8888")
            if not host or not port.isdigit() or not 1 <= int(port) <= 65535:
                raise ValueError(f"{uri}: expected tcp:HOST[:PORT] with a port 1..65535")
            try:
                addr = socket.gethostbyname(host)  # the library takes dotted quads only
            except OSError as e:
                raise ReaderUnreachable(uri, f"cannot resolve {host}: {e}") from None
            if lib().TCPConnect(addr.encode(), int(port)) != 0:
                raise ReaderUnreachable(uri, f"nothing answers at {addr}:{port}")
        elif kind == "serial":
            path, _, baud = rest.partition("@")
            baud = int(baud) if baud.isdigit() else (115200 if not baud else -1)
            if not path or baud not in _BAUDS:
                raise ValueError(f"{uri}: expected serial:PATH[@BAUD], BAUD one of {_BAUDS}")
            if not Path(path).exists():
                raise ReaderNotFound(uri, "no such serial port")
            if lib().ComOpenWithBaud(path.encode(), baud) != 0:
                raise ReaderUnreachable(uri, "the serial port could not be opened")
        elif uri == "usb":
            if lib().UsbOpen() != 0:
                raise ReaderNotFound(uri, "no USB reader found")
        else:
            raise ValueError(f"{uri}: expected tcp:HOST[:PORT], serial:PATH[@BAUD] or usb")
        return Reader(lib().LinkGetSelected(), uri)
