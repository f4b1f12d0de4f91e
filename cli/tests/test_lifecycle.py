"""uhfctl when the reader goes away mid-run, upgrades, and the demo."""
import socket
import struct
import threading
import time
import zlib

import pytest

from conftest import json_lines, uhfctl


def reads_after(out, event):
    """Tag reads after the first line with this event (all reads for None); 0 if it never came."""
    seen, n = event is None, 0
    for j in json_lines(out):
        seen = seen or j.get("event") == event
        n += seen and "epc" in j
    return n if seen else 0


def later(seconds, fn):
    t = threading.Timer(seconds, fn)
    t.start()
    return t


def test_a_vanished_reader_exits_three(sim):
    s = sim("--random-tags", 3, "--rate", 20)
    t = later(1.5, s.stop)
    r = s.ctl("inventory", "--format", "json", "--duration", "8")
    t.join()
    assert r.returncode == 3 and f"lost tcp {s.where}" in r.stderr, r.stderr
    assert reads_after(r.stdout, None) > 0


def test_reconnect_carries_on_once_the_reader_is_back(sim):
    s = sim("--random-tags", 3, "--rate", 20)

    def restart():
        s.stop()
        time.sleep(1)
        sim("--random-tags", 3, "--rate", 20, at=s.where)

    t = later(1.5, restart)
    r = s.ctl("inventory", "--format", "json", "--duration", "7", "--reconnect")
    t.join()
    assert r.returncode == 0, r.stderr
    assert reads_after(r.stdout, "reconnected") > 0, r.stdout


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return "127.0.0.1:%d" % s.getsockname()[1]


def test_a_reader_down_at_start_shows_in_the_table_and_the_others_read_on(sim):
    up, down = sim("--random-tags", 3, "--rate", 20), free_port()
    r = uhfctl("--tcp", up.where, "--tcp", down, "inventory", "--duration", "2")
    assert r.returncode == 3 and f"tcp {down} refused" in r.stderr, r.stderr
    assert f"-- tcp {down}: not connected" in r.stdout and "3 unique tags" in r.stdout, r.stdout


def test_reconnect_retries_a_reader_down_at_start(sim):
    up, down = sim("--random-tags", 3, "--rate", 20), free_port()
    t = later(1.5, lambda: sim("--random-tags", 3, "--rate", 20, at=down))
    r = uhfctl("--tcp", down, "--tcp", up.where, "inventory", "--format", "json", "--duration", "6", "--reconnect")
    t.join()
    assert r.returncode == 0, r.stderr
    assert {j["reader"] for j in json_lines(r.stdout) if "epc" in j} == {f"tcp {down}", f"tcp {up.where}"}


def image(version, payload, damage=None):
    """A firmware image as the virtual reader's boot loader takes it, padded to 64-byte blocks."""
    b = bytearray(struct.pack(">4s3BBII", b"UHFI", *version, 0, len(payload), zlib.crc32(payload)) + payload)
    if damage is not None:
        b[damage] ^= 0x40
    return bytes(b) + bytes(-len(b) % 64)


@pytest.mark.parametrize("damage,code,message", [
    (None, 0, "firmware V2.10.4 -> V3.0.0"),
    (16 + 5, 1, "refused the image: it still runs V2.10.4"),  # a payload byte: the CRC no longer holds
])
def test_upgrade(sim, tmp_path, damage, code, message):
    s = sim("--random-tags", 1)
    path = tmp_path / "fw.bin"
    path.write_bytes(image((3, 0, 0), bytes((i * 7 + 3) & 0xFF for i in range(1000)), damage))
    r = s.ctl("upgrade", str(path))
    assert r.returncode == code and message in (r.stdout if code == 0 else r.stderr), r.stdout + r.stderr


def test_demo_runs_and_summarises():
    r = uhfctl("demo", "--duration", "1", "--tags", "12")
    assert r.returncode == 0, r.stderr
    assert "\x1b" not in r.stdout  # stdout is a pipe here
    for text in ["a virtual reader with 12 tags", "Demo summary", " of 12\n", "reader stopped  yes, confirmed"]:
        assert text in r.stdout, r.stdout
