import itertools
import socket
from pathlib import Path

import pytest

import uhfhost
from uhfhost._decls import DECLS
from uhfhost._header import parse

EPC = "E20034120123456789ABCDEF"


def requests_seen(proc):
    """The codes of the requests the reader answered, once it has stopped."""
    proc.terminate()
    return [line.split()[0] for line in proc.communicate(timeout=10)[0].splitlines() if line.startswith("0x")]


def test_open_info_and_power_round_trip(reader):
    info = reader.info()
    assert info["software"].startswith("V") and info["power"] == 30 and info["region"] == "fcc"
    reader.set_power(20, save=True)
    assert reader.power == 20
    reader.set_gen2(session=1, q=4)  # the README's example: q is the initial Q
    assert (reader.gen2()["session"], reader.gen2()["q"]) == (1, 4)


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


def test_two_readers_inventory_at_once_each_gets_its_own_tags(start_sim, field):
    with uhfhost.open(start_sim()[1]) as a, uhfhost.open(start_sim("--random-tags", "5", "--seed", "9")[1]) as b:
        reads_a, reads_b = a.inventory(count=200), b.inventory(count=200)
        with pytest.raises(RuntimeError, match="already inventorying"):
            a.inventory()
        pairs = list(itertools.zip_longest(reads_a, reads_b))
        assert {p[0].epc for p in pairs if p[0]} <= set(field) and len(pairs) == 200
        assert len({p[1].epc for p in pairs if p[1]} - set(field)) == 5


def test_a_reader_that_dies_mid_inventory_ends_the_loop(start_sim):
    proc, where = start_sim()
    with uhfhost.open(where) as r, pytest.raises(uhfhost.ReaderLost, match=where):
        for n, _ in enumerate(r.inventory(duration=60)):
            if n == 10:
                proc.kill()


def test_tag_write_read_and_lock(reader):
    reader.write("user", 0, "CAFE BEEF", epc=EPC, password="12345678")
    assert reader.read("user", 0, 2, epc=EPC) == bytes.fromhex("CAFEBEEF")
    reader.lock({"user": "lock"}, epc=EPC, password=0x12345678)
    with pytest.raises(uhfhost.UhfError) as e:
        reader.write("user", 0, "0000", epc=EPC)
    assert (e.value.function, str(e.value)) == (
        "UHFWriteData", "write to user memory at word 0 failed: the tag did not answer or refused it (library result -1)")
    reader.write("user", 0, "0000", epc=EPC, password="12345678")


# Every numeric argument of every public method, just out of its range (or of its C type).
BAD_CALLS = [
    ("set_power", (31,), {}), ("set_power", (0,), {}), ("set_antenna_power", (17, 20), {}),
    ("set_antenna_power", (1, 20, 34), {}), ("set_antennas", ([0],), {}), ("set_region", ("mars",), {}),
    ("set_region", (256,), {}), ("set_frequencies", ([2**32 + 902750],), {}), ("set_gen2", (), {"q": 16}),
    ("set_gen2", (), {"target": 2}), ("set_gen2", (), {"startq": 4}), ("set_mode", ("epc+tid+user", 0, 256), {}),
    ("set_rflink", (256,), {}), ("set_work_mode", (3,), {}), ("set_beep", (-1,), {}),
    ("inventory", (), {"duration": 0}), ("inventory", (), {"count": 0}),
    ("read", ("user", 2**32 + 3, 1), {}), ("read", ("user", 0, 1001), {}), ("read", ("flash", 0, 1), {}),
    ("read", ("user", 0, 1), {"password": 2**32}), ("read", ("user", 0, 1), {"filter": ("epc", 2**16, 8, "E2")}),
    ("read", ("user", 0, 1), {"filter": ("epc", 32, 9, "E2")}), ("read", ("tid", 0, 1), {"epc": "E2", "filter": ()}),
    ("write", ("user", 2**32, "CAFE"), {}), ("write", ("user", 0, "ABC"), {}), ("write", ("user", 0, "00" * 2040), {}),
    ("erase", ("user", 2**32 + 1, 1), {}), ("erase", ("user", 0, 256), {}), ("lock", ({"user": "seal"},), {}),
    ("kill", (-1,), {"epc": EPC}), ("kill", ("00000001",), {}),
    ("start_logging", (EPC, 0, 30, 70000, 1), {}), ("start_logging", (EPC, -129, 30, 1, 1), {}),
    ("stop_logging", (EPC, -1), {}), ("temperatures", (EPC, 70000), {}), ("temperatures", (EPC, 0, 256), {}),
    ("upgrade", (__file__,), {"settle": -1}),
]


def test_bad_input_raises_before_any_byte_is_sent(sim_proc):
    proc, where = sim_proc
    with uhfhost.open(where) as r:
        for method, args, kwargs in BAD_CALLS:
            with pytest.raises(ValueError):
                getattr(r, method)(*args, **kwargs)
    assert requests_seen(proc) == []


@pytest.mark.parametrize("uri, error", [
    ("serial:/no/such/tty@300", uhfhost.ReaderNotFound), ("serial:/no/such/tty@230400", uhfhost.ReaderNotFound),
    ("serial:/no/such/tty@460800", ValueError), ("serial:/no/such/tty@1800", ValueError),
    ("tcp:127.0.0.1:65536", ValueError), ("bluetooth", ValueError)])
def test_open_checks_the_uri_and_the_library_baud_rates(uri, error):
    with pytest.raises(error):
        uhfhost.open(uri)


def test_unreachable_reader_fails_naming_the_address():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()  # nothing listens there now
    with pytest.raises(uhfhost.ReaderUnreachable, match=f"127.0.0.1:{port}"):
        uhfhost.open(f"tcp:127.0.0.1:{port}")


def test_declarations_match_the_header():
    assert parse(Path(__file__).resolve().parents[2] / "source" / "inc") == DECLS
