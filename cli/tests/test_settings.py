"""uhfctl info, get, set, settings, reset and raw."""
import re

import pytest

from conftest import json_lines, uhfctl

INFO_ITEMS = ["reader", "library", "hardware", "software", "module", "device-id", "temperature", "power", "antennas",
              "region", "frequencies", "rflink", "gen2", "fastid", "tagfocus", "mode", "work-mode", "beep", "outputs",
              "ip", "dest-ip"]


def test_info_text_has_one_line_per_item():
    r = uhfctl("--sim", "info")
    assert r.returncode == 0, r.stderr
    assert [line.split()[0] for line in r.stdout.splitlines() if line.split()[0] in INFO_ITEMS] == INFO_ITEMS
    assert "(no answer)" not in r.stdout


# set on one run, get on the next: a reader on a pseudo-terminal keeps its
# session across opens. `after` runs before the get: a reset shows what was saved.
ROUND_TRIPS = [
    (["outputs", "2", "high"], [], "1 low, 2 high"),
    (["ip", "192.0.2.10:5000", "255.255.0.0", "192.0.2.1"], [], "192.0.2.10:5000  mask 255.255.0.0  gateway 192.0.2.1"),
    (["user-params", "00 11 aa", "BB"], [], "0011AABB"),
    (["power", "25", "--save"], ["reset"], "1: 25/25, 2: 25/25, 3: 25/25, 4: 25/25 dBm"),
    (["antennas", "1,3", "--save"], ["reset"], " 1,3\n"),
    (["frequencies", "903250", "904250"], [], " 903250 904250 kHz\n"),
    (["gen2", "--session", "2", "--q", "7", "--target", "1"], [],
     "q_algorithm=1 q=7 min_q=0 max_q=15 dr=1 coding=2 trext=1 sel=1 session=2 target=1 link_frequency=3"),
    (["fastid", "on"], [], " on\n"),
    (["mode", "epc+tid+user", "1", "2"], [], "epc+tid+user (USER from word 1, 2 words)"),
]


@pytest.mark.parametrize("setting,after,shown", ROUND_TRIPS, ids=[r[0][0] for r in ROUND_TRIPS])
def test_set_then_get(sim, setting, after, shown):
    s = sim("--random-tags", 2, pty=True)
    r = s.ctl("set", *setting)
    assert (r.returncode, r.stdout) == (0, setting[0] + " set\n"), r.stderr
    if after:
        assert s.ctl(*after).returncode == 0
    g = s.ctl("get", setting[0])
    assert g.returncode == 0 and shown in g.stdout, g.stdout + g.stderr


def test_get_answers_every_name_its_help_lists_or_refuses_it():
    listed = uhfctl("get", "--help").stdout.split("Names:\n")[1].split("\n\n")[0]
    names = re.findall(r"^  ([a-z][a-z0-9-]*) .*?( \[set only\])?$", listed, re.M)
    readable = [n for n, only_set in names if not only_set]
    r = uhfctl("--sim", "get", *readable, "--format", "json")
    assert r.returncode == 0, r.stderr
    assert [n for n in readable if json_lines(r.stdout)[0].get(n) is None] == []
    for n in [n for n, only_set in names if only_set]:
        r = uhfctl("--sim", "get", "power", n)  # refused before anything is read
        assert (r.returncode, r.stdout) == (2, "") and f"get {n}: " in r.stderr


# Out-of-range values, refused with the shared table's range.
REFUSED = [
    (["power", "31"], "power must be 1..30 dBm"),
    (["power", "2=0.5"], "power must be 1..30 dBm"),
    (["gen2", "--q", "16"], "q must be 0..15"),
    (["gen2", "q_algorithm=2"], "q_algorithm must be 0..1"),
    (["region", "mars"], "region must be one of fcc, etsi, china-920, china-840"),
    (["fastid", "yes"], "fastid must be one of off, on"),
]


@pytest.mark.parametrize("setting,message", REFUSED, ids=[" ".join(r[0]) for r in REFUSED])
def test_set_refuses_values_outside_the_table(sim, setting, message):
    s = sim("--random-tags", 1)
    r = s.ctl("set", *setting)
    assert (r.returncode, r.stdout) == (2, "") and message in r.stderr
    assert not [line for line in s.stop().splitlines() if " set " in line]


def test_settings_table_is_one_json_object_per_line():
    r = uhfctl("settings", "--format", "json")
    rows = {j["name"]: j for j in json_lines(r.stdout)}
    assert r.returncode == 0 and len(rows) == len(r.stdout.splitlines())
    assert {tuple(sorted(j)) for j in rows.values()} == {("max", "meaning", "min", "name", "unit"),
                                                         ("choices", "meaning", "name")}
    assert [(rows[n]["min"], rows[n]["max"]) for n in ("power", "q", "q_algorithm", "target")] == [
        (1, 30), (0, 15), (0, 1), (0, 1)]


def test_address_bytes_on_the_reader(sim):
    s = sim("--random-tags", 1, pty=True)
    assert s.ctl("set", "ip", "192.0.2.10:5000", "255.255.0.0", "192.0.2.1").returncode == 0
    # Address, port 5000 = 0x1388 big-endian, mask, gateway.
    assert s.ctl("raw", "0xA1", "02").stdout == "0xA2 02C000020A1388FFFF0000C0000201\n"


def test_refused_set_exits_one(sim):
    s = sim("--random-tags", 1, "--ignore", "0xA1")
    r = s.ctl("set", "beep", "1")
    assert r.returncode == 1
    assert f"set beep: tcp {s.where}" in r.stderr and "refused it or did not answer" in r.stderr


def test_get_json_with_several_names_and_readers():
    r = uhfctl("--sim", "--sim", "get", "hardware", "beep", "--format", "json")
    assert r.returncode == 0, r.stderr
    lines = json_lines(r.stdout)
    assert [(j["hardware"], j["beep"]) for j in lines] == [("V1.2.0", 1)] * 2
    assert all(j["reader"].startswith("sim 127.0.0.1:") for j in lines) and lines[0]["reader"] != lines[1]["reader"]


def test_raw_prints_reply_code_and_data():
    assert uhfctl("--sim", "raw", "0x02").stdout == "0x03 020A04\n"
    r = uhfctl("--sim", "raw", "0x77", "--timeout", "200")
    assert r.returncode == 1 and "no reply" in r.stderr
