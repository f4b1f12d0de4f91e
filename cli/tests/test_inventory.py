"""uhfctl inventory: JSON lines, CSV, unique records, the table, and how a run ends."""
import re
import signal
import subprocess
import time

import pytest

from conftest import UHFCTL, json_lines

EPCS = {f"E2000000000000000000{n:04X}" for n in range(6)}


@pytest.fixture
def reader(sim, tag_file):
    return sim("--tags", tag_file(*sorted(EPCS)), "--rate", 400)


def test_json_lines_carry_every_tag_and_the_log_goes_to_stderr(reader):
    before = time.time()
    r = reader.ctl("--log", "transfer", "inventory", "--format", "json", "--duration", "1")
    assert r.returncode == 0 and "a5 5a" in r.stderr, r.stderr
    lines = json_lines(r.stdout)
    assert {j["epc"] for j in lines} == EPCS
    for j in lines:  # the virtual reader varies RSSI a little around -55 dBm
        assert (j["reader"], j["pc"], j["antenna"]) == ("tcp " + reader.where, "3000", 1) and -60 < j["rssi"] < -50
        assert before - 1 < j["time"] < time.time() + 1  # Unix seconds


def test_unique_gives_one_record_per_tag_with_statistics(reader):
    r = reader.ctl("inventory", "--format", "json", "--unique", "--duration", "1")
    assert r.returncode == 0, r.stderr
    lines = json_lines(r.stdout)
    assert sorted(j["epc"] for j in lines) == sorted(EPCS)
    for j in lines:
        assert j["reads"] >= 1 and j["rssi_last"] <= j["rssi_max"] and j["rssi_mean"] <= j["rssi_max"]
        assert j["first_seen"] <= j["last_seen"]


def test_csv_count_stops_the_reader(reader):
    r = reader.ctl("inventory", "--format", "csv", "--count", "10")
    assert r.returncode == 0, r.stderr
    header, *rows = r.stdout.splitlines()
    assert header == "time,reader,epc,pc,data,rssi,antenna"
    assert len(rows) == 10
    for row in rows:  # RSSI in dBm, one decimal, with its sign
        assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z,tcp [0-9.:]+,[0-9A-F]{24},3000,,-5\d\.\d,1", row), row
    assert reader.count("0x8C") >= 2  # one on opening, one when the count was reached


def test_table_off_a_terminal_has_no_escape_codes_and_a_summary(reader):
    r = reader.ctl("inventory", "--duration", "1")
    assert r.returncode == 0, r.stderr
    assert "\x1b" not in r.stdout and "EPC" in r.stdout and "6 unique tags" in r.stdout
    assert all(epc in r.stdout for epc in EPCS)


@pytest.mark.parametrize("end", ["ctrl-c", "closed pipe"])
def test_a_stopped_run_stops_the_reader_and_exits_zero(reader, end):
    p = subprocess.Popen([UHFCTL, *reader.option, "inventory", "--format", "json"], stdout=subprocess.PIPE, text=True)
    assert json_lines(p.stdout.readline())
    if end == "ctrl-c":
        p.send_signal(signal.SIGINT)
        json_lines(p.stdout.read())  # every line still whole JSON
    else:
        p.stdout.close()
    assert p.wait(30) == 0
    assert reader.count("0x8C") >= 2
