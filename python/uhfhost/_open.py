"""Opening a reader by URI, and starting a virtual reader for ``open("sim")``."""
from __future__ import annotations

import os
import shutil
import socket
import subprocess
import threading
from pathlib import Path
from typing import List, Optional

from ._lib import LOCK, lib
from .errors import ReaderNotFound, ReaderUnreachable
from .reader import Reader

# The line rates the library's serial ports support.
BAUDS = (300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400)
_SIM_HINT = "set UHFSIM to its path, put it on PATH, or build it (cmake --preset dev && cmake --build --preset dev)"


def _sim_candidates() -> List[Path]:
    found = shutil.which("uhfsim")
    builds = [Path(os.environ["UHF_BUILD_DIR"])] if os.environ.get("UHF_BUILD_DIR") else []
    builds += sorted((Path(__file__).resolve().parents[2] / "build").glob("*"))  # a source tree's builds
    return ([Path(found)] if found else []) + [b / "sim" / "uhfsim" for b in builds]


def _find_sim() -> Path:
    explicit = os.environ.get("UHFSIM")
    if explicit:
        if not os.access(explicit, os.X_OK):
            raise ReaderNotFound("sim", f"UHFSIM={explicit} is not an executable virtual reader")
        return Path(explicit)
    for path in _sim_candidates():
        if os.access(path, os.X_OK):
            return path
    raise ReaderNotFound("sim", "no virtual reader (uhfsim) found: " + _SIM_HINT)


def _start_sim() -> "tuple[subprocess.Popen, str]":
    """Starts uhfsim on a free loopback port: the process and its ``host:port``."""
    proc = subprocess.Popen([str(_find_sim()), "--tcp", "127.0.0.1:0"], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, text=True)
    first = proc.stdout.readline() if proc.stdout else ""
    if not first.startswith("tcp "):
        proc.kill()
        proc.wait()
        raise ReaderNotFound("sim", f"the virtual reader did not start (it said {first.strip()!r})")
    # Its later lines are read and dropped, so a full pipe never stalls it.
    threading.Thread(target=proc.stdout.read, daemon=True).start()  # type: ignore[union-attr]
    return proc, first.split()[1]


def _open_tcp(uri: str, rest: str) -> None:
    host, _, port = rest.rpartition(":") if ":" in rest else (rest, "", "8888")
    if not host or not port.isdigit() or not 1 <= int(port) <= 65535:
        raise ValueError(f"{uri}: expected tcp:HOST[:PORT] with a port 1..65535")
    try:
        addr = socket.gethostbyname(host)  # the library takes dotted quads only
    except OSError as e:
        raise ReaderUnreachable(uri, f"cannot resolve {host}: {e}") from None
    if lib().TCPConnect(addr.encode(), int(port)) != 0:
        raise ReaderUnreachable(uri, f"nothing answers at {addr}:{port}")


def _open_serial(uri: str, rest: str) -> None:
    path, _, baud_text = rest.partition("@")
    baud = int(baud_text) if baud_text.isdigit() else (115200 if not baud_text else -1)
    if not path or baud not in BAUDS:
        raise ValueError(f"{uri}: expected serial:PATH[@BAUD], BAUD one of {', '.join(map(str, BAUDS))}")
    if not Path(path).exists():
        raise ReaderNotFound(uri, "no such serial port")
    if lib().ComOpenWithBaud(path.encode(), baud) != 0:
        raise ReaderUnreachable(uri, "the serial port could not be opened")


def open(uri: str) -> Reader:  # noqa: A001 - the package's entry point mirrors the built-in on purpose
    """Opens a reader: ``tcp:HOST[:PORT]`` (port 8888 by default), ``serial:PATH[@BAUD]``
    (115200 bit/s by default; 300..230400), ``usb``, or ``sim`` (a virtual reader started
    for this Reader and stopped when it closes). Raises ``ValueError`` for a malformed
    URI and a ``ReaderConnectionError`` when the reader cannot be opened."""
    kind, _, rest = uri.partition(":")
    process: Optional[subprocess.Popen] = None
    if uri == "sim":
        process, rest = _start_sim()
        kind = "tcp"
    try:
        with LOCK:
            if kind == "tcp":
                _open_tcp(uri, rest)
            elif kind == "serial":
                _open_serial(uri, rest)
            elif uri == "usb":
                if lib().UsbOpen() != 0:
                    raise ReaderNotFound(uri, "no USB reader found (or no access to it: see the README)")
            else:
                raise ValueError(f"{uri}: expected tcp:HOST[:PORT], serial:PATH[@BAUD], usb or sim")
            return Reader(lib().LinkGetSelected(), uri, process)
    except BaseException:
        if process is not None:
            process.kill()
            process.wait()
        raise
