import socket
from pathlib import Path

import pytest

import uhfhost
from uhfhost._decls import DECLS
from uhfhost._header import parse


def requests_seen(proc):
    """The codes of the requests the reader answered, once it has stopped."""
    proc.terminate()
    return [line.split()[0] for line in proc.communicate(timeout=10)[0].splitlines() if line.startswith("0x")]


def test_open_info_and_power_round_trip(reader):
    info = reader.info()
    assert info["software"].startswith("V") and info["power"] == 30 and info["region"] == "fcc"
    reader.set_power(20, save=True)
    assert reader.power == 20
    reader.set_gen2(session=2, q=0)
    assert reader.gen2()["session"] == 2


def test_inventory_yields_every_epc_and_stops_the_reader_on_break(reader, field, sim_proc):
    reader.set_antennas([1, 2])  # one tag answers on antenna 2 only
    seen = set()
    for tag in reader.inventory(duration=10):
        assert tag.rssi < 0 and tag.antenna >= 1
        seen.add(tag.epc)
        if seen >= set(field):
            break
    assert seen == set(field)
    assert reader.power == 30  # and it answers commands
    assert requests_seen(sim_proc[0])[-3:] == ["0x82", "0x8C", "0x12"]  # start, the stop on break, the query


def test_tag_write_read_and_lock(reader, field):
    epc, pwd = field[0], "12345678"
    reader.write("user", 0, "CAFE BEEF", epc=epc, password=pwd)
    assert reader.read("user", 0, 2, epc=epc) == bytes.fromhex("CAFEBEEF")
    reader.lock({"user": "lock"}, epc=epc, password=pwd)
    with pytest.raises(uhfhost.UhfError) as e:
        reader.write("user", 0, "0000", epc=epc)
    assert e.value.operation == "UHFWriteData"
    reader.write("user", 0, "0000", epc=epc, password=pwd)


def test_bad_input_raises_before_any_byte_is_sent(sim_proc):
    proc, where = sim_proc
    with uhfhost.open(where) as r:
        for bad in (lambda: r.set_power(31), lambda: r.set_region("mars"), lambda: r.set_gen2(q=2),
                    lambda: r.set_antennas([0]), lambda: r.read("flash", 0, 1), lambda: r.write("user", 0, "ABC"),
                    lambda: r.lock({"user": "seal"}), lambda: r.kill("00000001"),
                    lambda: r.read("tid", 0, 1, epc="E2", filter=("tid", 0, 8, "E2")),
                    lambda: next(r.inventory(duration=0))):
            with pytest.raises(ValueError):
                bad()
        assert r.power == 30
    assert requests_seen(proc) == ["0x12"]  # the power query alone reached the reader


def test_unreachable_reader_fails_naming_the_address():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()  # nothing listens there now
    with pytest.raises(uhfhost.ReaderUnreachable, match=f"127.0.0.1:{port}"):
        uhfhost.open(f"tcp:127.0.0.1:{port}")


def test_declarations_match_the_header():
    assert parse(Path(__file__).resolve().parents[2] / "source" / "inc") == DECLS
