"""A reader on one link: settings, inventory, tag access, sensor tags, upgrade.

The library's command calls act on a process-wide selected link. Every
method here selects its reader's link and makes its calls under one module
lock, so several ``Reader`` objects (and threads) can be used in turn; their
calls are serialised, never interleaved.
"""
from __future__ import annotations

import ctypes
import subprocess
import time
import weakref
from pathlib import Path
from typing import Callable, Dict, List, Optional, Sequence, Tuple, Union

from . import _args, settings
from ._args import U16, U32, Filter, TagMask, Hex, Password, buf, number, whole
from ._lib import LOCK, lib
from .errors import UhfError
from .inventory import Inventory, TagRead, make_read

REGIONS = {name: code for code, name in enumerate(settings.SETTINGS["region"].choices or (), start=1)}
MODES = {name: code for code, name in enumerate(settings.SETTINGS["mode"].choices or ())}
LOCK_AREAS = ("kill", "access", "epc", "tid", "user")
LOCK_ACTIONS = ("unlock", "permaunlock", "lock", "permalock")
BLOCK_WRITE_ROOM = 2048 - 14  # the block-write request buffer less its fixed fields
# What failed, in the user's words, by who failed to do it.
_TAG, _READER = "the tag did not answer or refused it", "the reader refused it or did not answer"


class Reader:
    """An open link to one reader; use ``with uhfhost.open(...) as reader``."""

    def __init__(self, link: int, uri: str, process: Optional[subprocess.Popen] = None) -> None:
        self._link = link
        self.uri = uri
        self._open = True
        # Weak, so that a loop left by ``break`` drops the last reference to its
        # iterator, which then stops the reader.
        self._inventory: Optional[weakref.ref[Inventory]] = None
        self._process = process  # a virtual reader started for this Reader
        if process is not None:  # stopped at close, or when the Reader or the interpreter goes
            self._stop_process = weakref.finalize(self, _stop, process)

    def __repr__(self) -> str:
        state = "inventorying" if self._running_inventory() else "open" if self._open else "closed"
        return f"<uhfhost.Reader {self.uri} link {self._link} {state}>"

    # ---- plumbing -------------------------------------------------------
    def _call(self, name: str, *args: object, doing: str, ok: Sequence[int] = (0,), tag: bool = False) -> int:
        if not self._open:
            raise ValueError(f"cannot {doing}: {self!r} is closed")
        with LOCK:
            if lib().LinkSelect(self._link) != 0:
                raise UhfError(-1, doing, "the link is gone", name)
            rc = getattr(lib(), name)(*args)
        if rc not in ok:
            reason = f"the tag reported error {rc}" if tag and rc > 0 else _TAG if tag else _READER
            raise UhfError(rc, doing, reason, name)
        return rc

    def _running_inventory(self) -> Optional[Inventory]:
        return self._inventory() if self._inventory is not None else None

    def _claim_inventory(self, inventory: Inventory) -> None:
        if self._running_inventory() is not None:
            raise RuntimeError(f"{self!r} is already inventorying: end or close that loop first")
        if not self._open:
            raise ValueError(f"cannot start an inventory: {self!r} is closed")
        self._inventory = weakref.ref(inventory)

    def _release_inventory(self, inventory: Inventory, stop: bool) -> None:
        if self._running_inventory() in (inventory, None):
            self._inventory = None
            if stop and self._open and lib().LinkSelect(self._link) == 0:
                lib().UHFStopGet()

    def _answers_after_stop(self) -> bool:
        if lib().LinkSelect(self._link) != 0:
            return False
        lib().UHFStopGet()
        return lib().UHFGetSoftwareVersion((ctypes.c_uint8 * 300)()) == 0

    def close(self) -> None:
        """Stops any inventory and releases the link (and a virtual reader started for it)."""
        if not self._open:
            return
        running = self._running_inventory()
        if running is not None:
            running.close()
        with LOCK:
            if lib().LinkSelect(self._link) == 0:
                lib().ClosePort()
        self._open = False
        if self._process is not None:
            self._stop_process()

    def __enter__(self) -> "Reader":
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    # ---- identity -------------------------------------------------------
    def _version(self, name: str, what: str) -> str:
        b = (ctypes.c_uint8 * 300)()
        self._call(name, b, doing=f"read the {what} version")
        n = b[0] - (1 if name == "UHFGetSoftwareVersion" else 0)  # that count includes itself
        return bytes(b[1 : 1 + n]).decode("latin-1")

    def info(self) -> Dict[str, object]:
        """Versions, device id and the main settings."""
        dev = ctypes.c_uint()
        self._call("UHFGetDeviceID", ctypes.byref(dev), doing="read the device id")
        return {"hardware": self._version("UHFGetHardwareVersion", "hardware"),
                "software": self._version("UHFGetSoftwareVersion", "software"), "device_id": f"{dev.value:08X}",
                "power": self.power, "antennas": self.antennas, "region": self.region, "mode": self.mode}

    # ---- settings -------------------------------------------------------
    def _byte(self, getter: str, what: str) -> int:
        v = ctypes.c_uint8()
        self._call(getter, ctypes.byref(v), doing=f"read the {what}")
        return v.value

    @property
    def power(self) -> int:
        """Output power of antenna 1 in dBm (1..30); assigning sets it without saving."""
        return self._byte("UHFGetPower", "output power")

    @power.setter
    def power(self, dbm: int) -> None:
        self.set_power(dbm)

    def set_power(self, dbm: int, save: bool = False) -> None:
        """Sets the output power of every antenna, 1..30 dBm; ``save`` keeps it across a power cycle."""
        settings.check("power", dbm)
        self._call("UHFSetPower", int(save), dbm, doing=f"set the output power to {dbm} dBm")

    def antenna_power(self) -> Dict[int, Tuple[int, int]]:
        """Read and write power per antenna, whole dBm: ``{antenna: (read, write)}``."""
        b, n = (ctypes.c_uint8 * 96)(), ctypes.c_uint16()
        self._call("UHFGetAntennaPower", b, ctypes.byref(n), doing="read the antenna power")
        return {b[i]: (b[i + 1], b[i + 2]) for i in range(0, min(n.value, 96), 3)}

    def set_antenna_power(self, antenna: int, read: float, write: Optional[float] = None, save: bool = False) -> None:
        """Sets one antenna's read and write power (0..33 dBm, in steps of 0.01); write defaults to read."""
        settings.check("antennas", antenna)
        read = number(read, "read power", 0, 33)
        write = read if write is None else number(write, "write power", 0, 33)
        self._call("UHFSetAntennaPower", int(save), antenna, round(read * 100), round(write * 100),
                   doing=f"set antenna {antenna}'s power")

    @property
    def antennas(self) -> List[int]:
        """Enabled antennas, numbered from 1."""
        b = (ctypes.c_uint8 * 2)()
        self._call("UHFGetANT", b, doing="read the antennas in use")
        mask = b[0] << 8 | b[1]
        return [i + 1 for i in range(16) if mask >> i & 1]

    def set_antennas(self, antennas: Sequence[int], save: bool = False) -> None:
        """Enables exactly these antennas (numbered 1..16; at least one)."""
        if not antennas:
            raise ValueError("name at least one antenna")
        mask = sum(1 << (settings.check("antennas", a) - 1) for a in set(antennas))
        self._call("UHFSetANT", int(save), buf(bytes([mask >> 8, mask & 0xFF])), doing="set the antennas in use")

    @property
    def region(self) -> str:
        """Regulatory region by name (or its code as text when unnamed)."""
        code = self._byte("UHFGetRegion", "region")
        return next((k for k, c in REGIONS.items() if c == code), str(code))

    def set_region(self, region: Union[str, int], save: bool = False) -> None:
        """Sets the region by name (fcc, etsi, china-920, china-840) or by code 1..255."""
        code = REGIONS[settings.check("region", region)] if isinstance(region, str) else whole(region, "region", 1, 255)
        self._call("UHFSetRegion", int(save), code, doing=f"set the region to {region}")

    @property
    def frequencies(self) -> List[int]:
        """The hopping table in kHz."""
        b = (ctypes.c_uint * 256)()
        self._call("UHFGetJumpFrequency", b, doing="read the hopping table")
        return list(b[1 : 1 + min(b[0], 255)])

    def set_frequencies(self, khz: Sequence[int]) -> None:
        """Sets the hopping table: 1..84 frequencies in kHz (100000..2000000)."""
        whole(len(khz), "the number of frequencies", 1, 84)
        values = [whole(f, "frequency (kHz)", 100000, 2000000) for f in khz]
        self._call("UHFSetJumpFrequency", len(values), (ctypes.c_uint * len(values))(*values),
                   doing="set the hopping table")

    def gen2(self) -> Dict[str, int]:
        """The Gen2 inventory parameters by name (``uhfhost.GEN2_FIELDS``: q, session, target, ...)."""
        vals = [ctypes.c_uint8() for _ in settings.GEN2_FIELDS]
        self._call("UHFGetGen2", *[ctypes.byref(v) for v in vals], doing="read the Gen2 parameters")
        return {k: v.value for k, v in zip(settings.GEN2_FIELDS, vals)}

    def set_gen2(self, **fields: int) -> None:
        """Changes the named Gen2 fields and keeps the others as the reader holds them,
        e.g. ``set_gen2(session=1, q=4, target=0)``; names and ranges in ``uhfhost.SETTINGS``."""
        unknown = set(fields) - set(settings.GEN2_FIELDS)
        if unknown:
            raise ValueError(f"unknown Gen2 fields {sorted(unknown)}; they are {', '.join(settings.GEN2_FIELDS)}")
        for name, value in fields.items():
            settings.check(name, value)
        current = self.gen2()
        current.update(fields)
        self._call("UHFSetGen2", *[current[k] for k in settings.GEN2_FIELDS], doing="set the Gen2 parameters")

    @property
    def mode(self) -> str:
        """What an inventory reports: epc, epc+tid or epc+tid+user."""
        return self._mode()[0]

    def _mode(self) -> Tuple[str, int]:
        b = (ctypes.c_uint8 * 4)()
        self._call("UHFGetEPCTIDUSERMode", 0, 0, b, ok=(3,), doing="read the inventory mode")
        return next((k for k, c in MODES.items() if c == b[0]), str(b[0])), b[2]

    def set_mode(self, mode: str, user_start: int = 0, user_words: int = 0, save: bool = False) -> None:
        """Sets what an inventory reports; with epc+tid+user, ``user_words`` USER words from ``user_start``."""
        settings.check("mode", mode)
        start, words = whole(user_start, "user_start", 0, 255), whole(user_words, "user_words", 0, 255)
        self._call("UHFSetEPCTIDUSERMode", int(save), MODES[mode], start, words, doing=f"set the mode to {mode}")

    @property
    def rflink(self) -> int:
        """The RF link profile number."""
        return self._byte("UHFGetRFLink", "RF link profile")

    def set_rflink(self, mode: int, save: bool = False) -> None:
        """Sets the RF link profile (0..255; the reader defines them)."""
        self._call("UHFSetRFLink", int(save), whole(mode, "rflink", 0, 255), doing=f"set the RF link to {mode}")

    @property
    def work_mode(self) -> int:
        """The work mode (0..2)."""
        return self._byte("UHFGetWorkMode", "work mode")

    def set_work_mode(self, mode: int) -> None:
        """Sets the work mode, 0..2."""
        self._call("UHFSetWorkMode", whole(mode, "work_mode", 0, 2), doing=f"set the work mode to {mode}")

    @property
    def beep(self) -> int:
        """The beeper mode."""
        return self._byte("UHFGetBeep", "beeper mode")

    def set_beep(self, mode: int) -> None:
        """Sets the beeper mode (0..255; the reader defines them)."""
        self._call("UHFSetBeep", whole(mode, "beep", 0, 255), doing=f"set the beeper mode to {mode}")

    # ---- inventory ------------------------------------------------------
    def inventory(self, duration: Optional[float] = None, count: Optional[int] = None,
                  poll: float = 0.005) -> Inventory:
        """Starts a continuous inventory and returns its iterator of ``TagRead``s: until
        ``duration`` seconds or ``count`` reads have passed (neither: until the loop stops).
        The reader is stopped however the loop ends. Several readers may inventory at
        once, each iterator yielding its own reader's tags; one inventory per reader."""
        return Inventory(self, duration, count, poll)

    def inventory_once(self) -> Optional[TagRead]:
        """One single-shot inventory: the tag found, or None."""
        mode, user_words = self._mode()
        out, n = (ctypes.c_uint8 * 4096)(), ctypes.c_uint8()
        if self._call("UHF_InventorySingleEPCTIDUSER", ctypes.byref(n), out, ok=(0, -1), doing="inventory once"):
            return None
        raw = bytes(out[: n.value])  # L, PC+EPC, data length d, data, RSSI, antenna
        if len(raw) < 6 or len(raw) < raw[0] + 2 or len(raw) < raw[0] + raw[1 + raw[0]] + 5:
            return None
        uii, data = raw[1 : 1 + raw[0]], raw[2 + raw[0] : 2 + raw[0] + raw[1 + raw[0]]]
        return make_read(uii, data, raw[-3:-1], raw[-1], time.time(), mode, user_words)

    # ---- tag access -----------------------------------------------------
    def _tag_call(self, name: str, sel: Filter, *args: object, doing: str, pwd: Password) -> int:
        return self._call(name, _args.password(pwd), *sel.args, *args, doing=doing, tag=True)

    def read(self, bank: Union[str, int], address: int, words: int, *, epc: Optional[Hex] = None,
             filter: Optional[TagMask] = None, password: Password = None) -> bytes:
        """Reads ``words`` 16-bit words (1..1000) of ``bank`` from word ``address`` (0..65535)
        of the tag named by ``epc=`` or ``filter=`` (any tag when neither)."""
        sel, code = Filter(epc, filter), _args.bank(bank)
        whole(address, "address", 0, U16)
        whole(words, "words", 1, 1000)
        out = (ctypes.c_uint8 * 2048)()
        self._tag_call("UHFReadData", sel, code, address, words, out, pwd=password,
                       doing=f"read {words} words of {_bank_name(bank)} memory at word {address}")
        return bytes(out[: 2 * words])

    def write(self, bank: Union[str, int], address: int, data: Hex, *, epc: Optional[Hex] = None,
              filter: Optional[TagMask] = None, password: Password = None) -> None:
        """Writes whole 16-bit words to ``bank`` from word ``address`` (0..65535); a block
        write when they do not fit one request."""
        sel, code, raw = Filter(epc, filter), _args.bank(bank), _args.hexbytes(data, "data")
        whole(address, "address", 0, U16)
        if not raw or len(raw) % 2 or len(raw) + len(sel.mask) > BLOCK_WRITE_ROOM:
            raise ValueError(f"data must be whole 16-bit words, at most {BLOCK_WRITE_ROOM - len(sel.mask)} bytes")
        fits = 14 + len(sel.mask) + len(raw) <= 100
        self._tag_call("UHFWriteData" if fits else "UHFBlockWriteData", sel, code, address, len(raw) // 2, buf(raw),
                       pwd=password, doing=f"write to {_bank_name(bank)} memory at word {address}")

    def erase(self, bank: Union[str, int], address: int, words: int, *, epc: Optional[Hex] = None,
              filter: Optional[TagMask] = None, password: Password = None) -> None:
        """Erases ``words`` words (1..255) of ``bank`` from word ``address`` (0..65535)."""
        sel, code = Filter(epc, filter), _args.bank(bank)
        whole(address, "address", 0, U16)
        whole(words, "words", 1, 255)
        self._tag_call("UHFBlockEraseData", sel, code, address, words, pwd=password,
                       doing=f"erase {words} words of {_bank_name(bank)} memory at word {address}")

    def lock(self, areas: Dict[str, str], *, epc: Optional[Hex] = None, filter: Optional[TagMask] = None,
             password: Password = None) -> None:
        """Locks areas (kill, access, epc, tid, user) with an action (unlock, permaunlock,
        lock, permalock), e.g. ``{"user": "lock", "epc": "permalock"}``."""
        if not areas:
            raise ValueError("name at least one area")
        mask = action = 0
        for area, act in areas.items():
            if area not in LOCK_AREAS or act not in LOCK_ACTIONS:
                raise ValueError(f"areas are {', '.join(LOCK_AREAS)}; actions {', '.join(LOCK_ACTIONS)}")
            shift = 8 - 2 * LOCK_AREAS.index(area)
            mask |= 3 << shift
            action |= LOCK_ACTIONS.index(act) << shift
        payload = buf((mask << 10 | action).to_bytes(3, "big"))
        self._tag_call("UHFLockTag", Filter(epc, filter), payload, pwd=password,
                       doing="lock " + ", ".join(f"{a} memory ({x})" for a, x in areas.items()))

    def kill(self, password: Password, *, epc: Optional[Hex] = None, filter: Optional[TagMask] = None) -> None:
        """Kills the tag for good; it needs its non-zero kill password and a named tag."""
        if epc is None and filter is None:
            raise ValueError("name the tag with epc= or filter=")
        self._tag_call("UHFKillTag", Filter(epc, filter), pwd=password, doing="kill the tag")

    # ---- sensor tags ----------------------------------------------------
    def start_logging(self, epc: Hex, low: float, high: float, delay: int, interval: int) -> None:
        """Starts a temperature-logging run on the sensor tag ``epc``: limits in degrees
        Celsius (-128..127.75), first reading after ``delay`` s, then every ``interval`` s
        (both 0..65535)."""
        sel = Filter(epc, None)
        low, high = number(low, "low", -128, 127.75), number(high, "high", -128, 127.75)
        whole(delay, "delay", 0, U16)
        whole(interval, "interval", 0, U16)
        self._call("UHFStartLogging", *sel.args, low, high, delay, interval, doing="start logging temperatures",
                   tag=True)

    def stop_logging(self, epc: Hex, password: int = 0) -> None:
        """Stops the logging run on the sensor tag ``epc`` (``password``: 0..2**32-1)."""
        sel = Filter(epc, None)
        self._call("UHFStopLogging", *sel.args, whole(password, "password", 0, U32), doing="stop logging temperatures",
                   tag=True)

    def temperatures(self, epc: Hex, start: int = 0, count: int = 255) -> List[float]:
        """Up to ``count`` (1..255) logged readings from index ``start`` (0..65535), in degrees Celsius."""
        sel = Filter(epc, None)
        whole(start, "start", 0, U16)
        whole(count, "count", 1, 255)
        total, got, temps = ctypes.c_ushort(), ctypes.c_ubyte(), (ctypes.c_float * 255)()
        self._call("UHFReadMultiTemp", *sel.args, start, count, ctypes.byref(total), ctypes.byref(got), temps,
                   doing=f"read logged temperatures from index {start}", tag=True)
        return [round(t, 2) for t in temps[: got.value]]

    # ---- firmware -------------------------------------------------------
    def upgrade(self, path: Union[str, Path], progress: Optional[Callable[[int, int], None]] = None,
                settle: float = 0.3) -> str:
        """Sends a firmware image in 64-byte blocks; returns the new software version.
        ``progress(bytes_sent, total)`` is called after every block; ``settle`` (0..10 s)
        is the pause the reader gets to switch to and from its boot loader."""
        settle = number(settle, "settle", 0, 10)
        image = Path(path).read_bytes()
        if not image:
            raise ValueError(f"{path}: empty image")
        if self._call("UHFJump2Boot", 0, ok=(0, -1), doing="switch to the boot loader") != 0:
            self._call("UHFJump2Boot", 0, doing="switch to the boot loader")  # a reader that refused an image refuses once
        time.sleep(settle)
        self._call("UHFStartUpd", doing="start the firmware transfer")
        for off in range(0, len(image), 64):
            block = image[off : off + 64].ljust(64, b"\xff")  # padded as erased flash
            self._call("UHFUpdating", buf(block), doing=f"send the firmware block at byte {off}")
            if progress:
                progress(min(off + 64, len(image)), len(image))
        self._call("UHFStopUpdate", doing="finish the firmware transfer")
        for _ in range(3):
            time.sleep(settle)
            try:
                return self._version("UHFGetSoftwareVersion", "software")
            except UhfError:
                pass
        raise UhfError(-1, "upgrade the firmware", "the reader did not come back after the transfer", "upgrade")


def _stop(process: subprocess.Popen) -> None:
    process.terminate()
    process.wait(10)


def _bank_name(bank: Union[str, int]) -> str:
    return bank if isinstance(bank, str) else next(k for k, v in _args.BANKS.items() if v == bank)
