"""A PEP 517 build backend for the pure-Python package, so that ``pip install
./python`` needs nothing from a package index: it zips uhfhost/ into a
py3-none-any wheel with its metadata. The version is the project's VERSION."""
from __future__ import annotations

import base64
import hashlib
import zipfile
from pathlib import Path
from typing import Dict, List, Optional

HERE = Path(__file__).resolve().parent
SUMMARY = "UHF RFID reader modules from Python, over libuhfhost"


def _version() -> str:
    for path in (HERE.parent / "VERSION", HERE / "uhfhost" / "VERSION"):
        if path.is_file():
            return path.read_text().strip()
    raise FileNotFoundError("VERSION: the project's version file is missing")


def _files(version: str) -> Dict[str, bytes]:
    files = {f"uhfhost/{p.name}": p.read_bytes() for p in sorted((HERE / "uhfhost").iterdir())
             if p.suffix == ".py" or p.name == "py.typed"}
    files["uhfhost/VERSION"] = f"{version}\n".encode()
    info = f"uhfhost-{version}.dist-info"
    files[f"{info}/METADATA"] = (f"Metadata-Version: 2.1\nName: uhfhost\nVersion: {version}\nSummary: {SUMMARY}\n"
                                 "Requires-Python: >=3.9\n").encode()
    files[f"{info}/WHEEL"] = b"Wheel-Version: 1.0\nGenerator: uhfhost build_backend\nRoot-Is-Purelib: true\nTag: py3-none-any\n"
    files[f"{info}/top_level.txt"] = b"uhfhost\n"
    return files


def _record_line(name: str, data: bytes) -> str:
    digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
    return f"{name},sha256={digest},{len(data)}"


def build_wheel(wheel_directory: str, config_settings: Optional[dict] = None,
                metadata_directory: Optional[str] = None) -> str:
    """Writes the wheel into ``wheel_directory`` and returns its file name."""
    version = _version()
    files = _files(version)
    record = f"uhfhost-{version}.dist-info/RECORD"
    lines: List[str] = [_record_line(n, d) for n, d in files.items()] + [f"{record},,"]
    files[record] = ("\n".join(lines) + "\n").encode()
    name = f"uhfhost-{version}-py3-none-any.whl"
    with zipfile.ZipFile(Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as whl:
        for path, data in files.items():
            whl.writestr(zipfile.ZipInfo(path, (1980, 1, 1, 0, 0, 0)), data, zipfile.ZIP_DEFLATED)
    return name
