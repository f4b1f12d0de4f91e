"""uhfctl read, write, lock and sensor against a virtual reader on a pseudo-terminal,
whose tags keep what one run did for the next."""
import json

import pytest

EPC_A, EPC_B = "E20034120123456789ABCDEF", "300000000000000000000001"
TAG_A = {"epc": EPC_A, "tid": "E280 1160 2000 7A1B 0C3D 4E5F", "user": "0011 2233 4455 6677 8899 AABB CCDD EEFF",
         "kill_password": "0BADCAFE", "access_password": "12345678", "rssi": {"1": -50.0}}
TAG_B = {"epc": EPC_B, "tid": "E280 1160 2000 0000 0000 0002", "rssi": {"1": -60.0}}


@pytest.fixture
def tags(sim, tag_file):
    return sim("--tags", tag_file(TAG_A, TAG_B), pty=True)


@pytest.mark.parametrize("args,words", [
    (["tid", "0", "6", "--epc", EPC_A], "E280116020007A1B0C3D4E5F"),
    (["epc", "2", "6", "--filter", "tid:0:96:E28011602000000000000002"], EPC_B),
    (["user", "0", "1", "--filter", "user:8:4:10"], "0011"),  # a filter of 4 bits from bit 8
    (["3", "7", "1", "--epc", EPC_A], "EEFF"),  # a bank by its number
])
def test_read_prints_the_words(tags, args, words):
    r = tags.ctl("read", *args)
    assert (r.returncode, r.stdout) == (0, words + "\n"), r.stderr


def test_read_json(tags):
    r = tags.ctl("read", "tid", "0", "2", "--epc", EPC_B, "--format", "json")
    assert r.returncode == 0 and (json.loads(r.stdout)["bank"], json.loads(r.stdout)["data"]) == ("tid", "E2801160")


def test_no_matching_tag_exits_one(tags):
    r = tags.ctl("read", "tid", "0", "2", "--epc", "ABCD")
    assert r.returncode == 1 and f"read: serial {tags.where}" in r.stderr


def test_write_then_read_back(tags):
    w = tags.ctl("write", "user", "1", "CAFE", "BABE", "--epc", EPC_A, "-p", "12345678")
    assert (w.returncode, w.stdout) == (0, "wrote 2 words\n"), w.stderr
    assert tags.ctl("read", "user", "0", "4", "--epc", EPC_A).stdout == "0011CAFEBABE6677\n"


def test_lock_payload_covers_several_areas(tags):
    r = tags.ctl("lock", "access", "permalock", "epc", "lock", "--epc", EPC_A, "-p", "12345678")
    assert r.returncode == 0 and "payload 03C0E0" in r.stdout, r.stdout + r.stderr
    assert tags.ctl("write", "epc", "7", "CDEF", "--epc", EPC_A).returncode == 1  # EPC now needs the password
    assert tags.ctl("write", "epc", "7", "CDEF", "--epc", EPC_A, "-p", "12345678").returncode == 0


def test_sensor_stop_without_a_run_shows_the_readers_error_code(sim, tag_file):
    s = sim("--tags", tag_file({"epc": EPC_A, "sensor": {"temperature": 23.75}}), pty=True)
    r = s.ctl("sensor", "log", "stop")
    assert r.returncode == 1 and "refused it with error 0x0C" in r.stderr, r.stderr
