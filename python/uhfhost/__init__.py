"""UHF RFID reader modules from Python, over the libuhfhost C library.

Opening a reader
    ``uhfhost.open(uri)`` returns a ``Reader``; use it in a ``with`` block so
    the link is released however the block ends. URIs:

    - ``tcp:HOST[:PORT]``     a networked reader (port 8888 by default)
    - ``serial:PATH[@BAUD]``  a serial port, 300..230400 bit/s (115200 by default)
    - ``usb``                 the USB reader
    - ``sim``                 a virtual reader (``uhfsim``), started for the Reader and
                              stopped when it closes; found through ``UHFSIM``, ``PATH``
                              or the source tree's build directory

Example::

    import uhfhost

    with uhfhost.open("sim") as reader:          # or "tcp:192.168.1.50:8888", "usb", ...
        print(reader, reader.info())
        reader.set_power(25, save=True)
        reader.set_gen2(session=1, q=4)          # q: the initial Q, 0..15
        seen = {tag.epc: tag for tag in reader.inventory(duration=2)}
        epc = next(iter(seen))
        reader.write("user", 0, "CAFE", epc=epc)  # password="12345678" for a tag that has one
        print(reader.read("user", 0, 1, epc=epc))

Settings
    ``power``, ``antennas``, ``region``, ``mode``, ``frequencies``, ``gen2()``
    and the rest are properties or methods of ``Reader``; each ``set_*`` takes
    ``save=True`` where the reader can keep the value across a power cycle.
    ``SETTINGS`` holds every setting's meaning and range (the same table as
    ``uhfctl settings``); the Gen2 fields are named as Gen2 readers' users know
    them (``q`` the initial Q, ``q_algorithm`` fixed or dynamic, ``session``,
    ``target`` the inventoried flag A/B, ...): see ``GEN2_FIELDS``.

Inventory
    ``reader.inventory(duration=None, count=None)`` starts a continuous
    inventory and returns an iterator of ``TagRead`` (epc, pc, rssi in dBm,
    antenna, timestamp, tid, user). Breaking out of the loop, an exception or
    ``close()`` stops the reader. Several readers may inventory at once; each
    iterator yields its own reader's tags. A reader that dies mid-loop ends it
    with ``ReaderLost`` within about two seconds. ``inventory_once()`` runs a
    single-shot inventory.

Tag memory and sensor tags
    ``read``, ``write``, ``erase``, ``lock`` and ``kill`` address a tag by
    ``epc=`` or ``filter=(bank, bit_address, bit_length, mask)`` under an access
    ``password=`` (an int or 8 hex digits). Banks: reserved, epc, tid, user;
    addresses and counts are in 16-bit words. ``start_logging``,
    ``stop_logging`` and ``temperatures`` drive temperature-logging tags.

Errors
    Bad arguments raise ``ValueError`` before anything is sent. A call the
    reader or tag did not carry out raises ``UhfError``, whose message says
    what was asked and why it failed ("write to user memory at word 0 failed:
    the tag did not answer or refused it (library result -1)"). A link that
    cannot be opened raises ``ReaderUnreachable`` or ``ReaderNotFound``; one
    lost during an inventory raises ``ReaderLost``; all three are
    ``ReaderConnectionError``, a ``ConnectionError``.

Threads and the library
    The library's commands act on one process-wide selected link; this package
    runs them under one lock, so readers and threads take turns rather than
    interleave. It finds ``libuhfhost.so.1`` through ``UHFHOST_LIBRARY``, next
    to the package, or the system loader.
"""
from ._args import BANKS
from ._open import BAUDS, open
from ._version import __version__
from .errors import ReaderConnectionError, ReaderLost, ReaderNotFound, ReaderUnreachable, UhfError
from .inventory import Inventory, TagRead
from .reader import MODES, REGIONS, Reader
from .settings import GEN2_FIELDS, SETTINGS, Setting

__all__ = ["open", "Reader", "Inventory", "TagRead", "UhfError", "ReaderConnectionError", "ReaderUnreachable",
           "ReaderNotFound", "ReaderLost", "BANKS", "BAUDS", "GEN2_FIELDS", "MODES", "REGIONS", "SETTINGS", "Setting",
           "__version__"]
