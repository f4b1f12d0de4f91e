"""The reader settings: name, meaning, unit and allowed range.

This mirrors the settings table that ``uhfctl`` and ``uhfd`` use (``uhfctl
settings --format json`` prints it); a test keeps the two equal. The Gen2
fields are named as Gen2 readers' users know them and listed in the order
the library takes them.
"""
from __future__ import annotations

from typing import Dict, NamedTuple, Optional, Tuple, TypeVar

T = TypeVar("T")


class Setting(NamedTuple):
    """One row: a number in ``low..high`` (``choices`` is None) or one of ``choices``."""

    meaning: str
    unit: str = ""
    low: int = 0
    high: int = 0
    choices: Optional[Tuple[str, ...]] = None


SETTINGS: Dict[str, Setting] = {
    "power": Setting("output power", "dBm", 1, 30),
    "antennas": Setting("antennas in use, numbered from 1", "", 1, 16),
    "region": Setting("regulatory region", choices=("fcc", "etsi", "china-920", "china-840")),
    "mode": Setting("what an inventory reports", choices=("epc", "epc+tid", "epc+tid+user")),
    "select_target": Setting("Select command's target", "", 0, 7),
    "select_action": Setting("Select command's action", "", 0, 7),
    "truncate": Setting("truncated reply after Select", "", 0, 1),
    "q_algorithm": Setting("Q algorithm: 0 fixed, 1 dynamic", "", 0, 1),
    "q": Setting("initial Q (2^Q slots)", "", 0, 15),
    "min_q": Setting("smallest Q of the dynamic algorithm", "", 0, 15),
    "max_q": Setting("largest Q of the dynamic algorithm", "", 0, 15),
    "dr": Setting("divide ratio: 0 is 8, 1 is 64/3", "", 0, 1),
    "coding": Setting("tag reply coding: FM0 or Miller 2, 4, 8", "", 0, 3),
    "trext": Setting("pilot tone before the tag's reply", "", 0, 1),
    "sel": Setting("which tags a Query addresses (Sel)", "", 0, 3),
    "session": Setting("inventory session S0..S3", "", 0, 3),
    "target": Setting("inventoried flag a Query targets: 0 A, 1 B", "", 0, 1),
    "link_frequency": Setting("backscatter link frequency code", "", 0, 7),
}

# The Gen2 fields in the order of the library's UHFGetGen2 and UHFSetGen2.
GEN2_FIELDS: Tuple[str, ...] = ("select_target", "select_action", "truncate", "q_algorithm", "q", "min_q", "max_q",
                                "dr", "coding", "trext", "sel", "session", "target", "link_frequency")


def check(name: str, value: T) -> T:
    """``value`` when setting ``name`` allows it, else ``ValueError`` naming the range."""
    row = SETTINGS[name]
    if row.choices is not None:
        if value not in row.choices:
            raise ValueError(f"{name} must be one of {', '.join(row.choices)}, not {value!r}")
        return value
    if isinstance(value, bool) or not isinstance(value, int) or not row.low <= value <= row.high:
        unit = f" {row.unit}" if row.unit else ""
        raise ValueError(f"{name} ({row.meaning}) must be a whole number {row.low}..{row.high}{unit}, not {value!r}")
    return value
