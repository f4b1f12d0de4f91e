"""UHF RFID reader modules from Python, over libuhfhost.

    import uhfhost
    with uhfhost.open("tcp:192.168.1.50:8888") as reader:
        for tag in reader.inventory(duration=2):
            print(tag.epc, tag.rssi, tag.antenna)

The library's command calls are process-wide (one selected link, one tag
queue); this package serialises them with one lock, so readers and threads
take turns rather than interleave.
"""
from .errors import ReaderConnectionError, ReaderNotFound, ReaderUnreachable, UhfError
from .reader import BANKS, GEN2_FIELDS, MODES, REGIONS, Reader, TagRead, open

__all__ = ["open", "Reader", "TagRead", "UhfError", "ReaderConnectionError", "ReaderUnreachable", "ReaderNotFound",
           "BANKS", "GEN2_FIELDS", "MODES", "REGIONS"]
from ._version import __version__  # noqa: E402 - the project's VERSION
