"""The package's version: the project's one VERSION file, which the wheel and
``cmake --install`` copy next to the package and a source tree holds at its top."""
from __future__ import annotations

from pathlib import Path


def _read() -> str:
    here = Path(__file__).resolve().parent
    for path in (here / "VERSION", here.parents[1] / "VERSION"):
        if path.is_file():
            return path.read_text().strip()
    from importlib.metadata import version

    return version("uhfhost")


__version__: str = _read()
