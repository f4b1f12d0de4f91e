"""Loading libuhfhost and declaring every exported function from one table.

The library keeps one selected link and one tag queue for the whole process,
so every sequence of calls runs under ``LOCK``.
"""
from __future__ import annotations

import ctypes
import os
import threading
from pathlib import Path

from ._decls import DECLS

LOCK = threading.RLock()
_lib: ctypes.CDLL | None = None


def _candidates() -> list[str]:
    env = os.environ.get("UHFHOST_LIBRARY")
    if env:
        return [env]
    here = Path(__file__).resolve().parent
    local = [str(p) for p in (here / "libuhfhost.so.1", here.parent / "libuhfhost.so.1") if p.exists()]
    return local + ["libuhfhost.so.1"]


def _declare(lib: ctypes.CDLL) -> ctypes.CDLL:
    for name, (result, params, _variadic) in DECLS.items():
        fn = getattr(lib, name)
        fn.restype = getattr(ctypes, result) if result else None
        fn.argtypes = [getattr(ctypes, p) for p in params]
    return lib


def lib() -> ctypes.CDLL:
    """The loaded library (loaded and declared on first use)."""
    global _lib
    with LOCK:
        if _lib is None:
            errors = []
            for path in _candidates():
                try:
                    _lib = _declare(ctypes.CDLL(path))
                    break
                except OSError as e:
                    errors.append(f"{path}: {e}")
            else:
                raise OSError("libuhfhost not found (set UHFHOST_LIBRARY): " + "; ".join(errors))
        return _lib
