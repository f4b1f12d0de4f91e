"""uhfd's LLRP endpoint driven by sllurp, an independent LLRP client (beside the repository, never in it),
against a real uhfsim: inventory, antennas, power, tag access, one client at a time, a lost reader link."""
import json
import os
import socket
import struct
import subprocess
import sys
import time
from pathlib import Path

import pytest

from uhfd_harness import BUILD, ROOT, Proc, Uhfd, free_port, wait_for

SLLURP = Path(os.environ.get("SLLURP_DIR", ROOT.parent / "shared" / "third_party" / "sllurp"))
pytestmark = pytest.mark.skipif(not (SLLURP / "sllurp").is_dir(), reason="sllurp is not beside the repository")

# Three tags: one on both antennas, one on each. TIDs and USER words for the access tests.
TAGS = [
    {"epc": "E20000000000000000000B01", "tid": "E2801160200000000000B001", "user": "0000 0000",
     "rssi": {"1": -50.0, "2": -58.0}},
    {"epc": "E20000000000000000000B02", "tid": "E2801160200000000000B002", "user": "0000 0000", "rssi": {"2": -61.0}},
    {"epc": "E20000000000000000000B03", "tid": "E2801160200000000000B003", "user": "0000 0000", "rssi": {"1": -47.0}},
]
EPCS = {t["epc"] for t in TAGS}


def drive(port, **args):
    """What sllurp reported: every tag dict of every report, and whether it ended by itself."""
    env = dict(os.environ, PYTHONPATH=str(SLLURP))
    out = subprocess.run([sys.executable, str(Path(__file__).with_name("llrp_drive.py")),
                          json.dumps({"port": port, **args})], env=env, capture_output=True, text=True, timeout=90)
    assert out.returncode == 0, out.stderr[-3000:]
    return json.loads(out.stdout.strip().splitlines()[-1])


def epc_of(tag):
    return (tag.get("EPC-96") or tag.get("EPC") or tag.get("EPCData", {}).get("EPC", "")).upper()


@pytest.fixture
def rig(tmp_path, request):
    """uhfsim with TAGS (extra uhfsim options from the test's 'sim_args' mark), and uhfd with its LLRP port."""
    tags = tmp_path / "tags.json"
    tags.write_text(json.dumps({"tags": TAGS}))
    mark = request.node.get_closest_marker("sim_args")
    sim_port, llrp_port = free_port(), free_port()
    sim = Proc([BUILD / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{sim_port}", "--tags", tags, "--rate", "200",
                *(mark.args if mark else [])], ready="tcp ")
    d = Uhfd(tmp_path, {"readers": [{"name": "r1", "uri": f"tcp:127.0.0.1:{sim_port}"}]}, "--llrp", str(llrp_port))
    d.llrp = llrp_port
    wait_for(lambda: d.json("/api/v1/readers/r1").get("state") == "running", 20, "the reader to run")
    yield d
    assert d.proc.stop() == 0, "uhfd did not stop cleanly"
    sim.stop()


def test_inventory_reports_every_tag_with_antenna_and_rssi(rig):
    seen = drive(rig.llrp, time=2)
    assert seen["closed"], "sllurp could not close the connection politely"
    tags = seen["tags"]
    assert {epc_of(t) for t in tags} == EPCS
    for t in tags:
        assert t["AntennaID"] in (1, 2) and -70 <= t["PeakRSSI"] <= -40, t
        assert t["TagSeenCount"] >= 1 and t["LastSeenTimestampUTC"] >= t["FirstSeenTimestampUTC"], t
    # Antenna 0 is every antenna: the tag seen by antenna 2 only is there, and both antennas appear.
    assert {t["AntennaID"] for t in tags} == {1, 2}
    only = drive(rig.llrp, time=2, antennas=[2])
    assert {epc_of(t) for t in only["tags"]} == {TAGS[0]["epc"], TAGS[1]["epc"]}
    assert {t["AntennaID"] for t in only["tags"]} == {2}


def test_a_power_index_sets_the_readers_power_while_it_runs(rig):
    before = rig.json("/api/v1/readers/r1")["settings"]["power"]
    want = 12 if before != 12 else 13  # the table's index i is the module's i dBm
    seen = []

    def power_now():
        p = rig.json("/api/v1/readers/r1")["settings"].get("power")
        seen.append(p)
        return p == want

    runner = subprocess.Popen([sys.executable, str(Path(__file__).with_name("llrp_drive.py")),
                               json.dumps({"port": rig.llrp, "time": 4, "tx_power": want})],
                              env=dict(os.environ, PYTHONPATH=str(SLLURP)), stdout=subprocess.PIPE, text=True)
    try:
        wait_for(power_now, 15, f"power {want} (seen {seen[-5:]})")
    finally:
        runner.wait(60)
    # The client gone, the reader has the power it had before.
    wait_for(lambda: rig.json("/api/v1/readers/r1")["settings"].get("power") == before, 15, "the power put back")


def test_access_reads_tid_and_writes_user_memory(rig):
    tids = {t["epc"]: t["tid"][:8] for t in TAGS}
    read = drive(rig.llrp, time=3, access={"op": "read", "bank": 2, "ptr": 0, "words": 2})
    results = [(epc_of(t), t["C1G2ReadOpSpecResult"]) for t in read["tags"] if "C1G2ReadOpSpecResult" in t]
    assert results, "no read results reported"
    for epc, r in results:
        assert r["Result"] == 0 and r["ReadData"] == tids[epc], (epc, r)
    wrote = drive(rig.llrp, time=3, access={"op": "write", "bank": 3, "ptr": 1, "data": "BEEF", "count": 1})
    written = [epc_of(t) for t in wrote["tags"] if t.get("C1G2WriteOpSpecResult", {}).get("Result") == 0]
    assert len(written) == 1, wrote["tags"]
    again = drive(rig.llrp, time=3, access={"op": "read", "bank": 3, "ptr": 0, "words": 2})
    words = {epc_of(t): t["C1G2ReadOpSpecResult"]["ReadData"] for t in again["tags"] if "C1G2ReadOpSpecResult" in t}
    assert words.get(written[0]) == "0000BEEF", words


def llrp_message(sock):
    head = sock.recv(10, socket.MSG_WAITALL)
    if len(head) < 10:
        return None
    kind, length, mid = struct.unpack(">HII", head)
    return kind & 0x3FF, sock.recv(length - 10, socket.MSG_WAITALL)


def connection_status(body):
    """The ConnectionAttemptEvent's status in a READER_EVENT_NOTIFICATION's body."""
    at = body.find(struct.pack(">HH", 256, 6))
    assert at >= 0, body.hex()
    return struct.unpack(">H", body[at + 4:at + 6])[0]


def test_one_client_at_a_time_and_a_vanished_one_frees_the_endpoint(rig):
    first = socket.create_connection(("127.0.0.1", rig.llrp), timeout=10)
    kind, body = llrp_message(first)
    assert kind == 63 and connection_status(body) == 0
    second = socket.create_connection(("127.0.0.1", rig.llrp), timeout=10)
    kind, body = llrp_message(second)
    assert kind == 63 and connection_status(body) == 2  # a client-initiated connection already exists
    assert second.recv(1) == b"", "the second client was not closed"
    # The first is still served: GET_READER_CAPABILITIES (all) is answered.
    first.sendall(struct.pack(">HIIB", 1 << 10 | 1, 11, 7, 0))
    while True:
        kind, body = llrp_message(first)
        if kind == 11:
            break
    kind, _, code = struct.unpack(">HHH", body[:6])
    assert (kind & 0x3FF, code) == (287, 0)  # LLRPStatus first: Success
    first.close()  # no CLOSE_CONNECTION: the client just vanishes
    third = socket.create_connection(("127.0.0.1", rig.llrp), timeout=10)
    kind, body = llrp_message(third)
    assert kind == 63 and connection_status(body) == 0
    third.close()


@pytest.mark.sim_args("--close-after", "600")
def test_a_lost_reader_link_ends_the_rospec_and_it_runs_again_after_the_reconnect(rig):
    """The virtual reader hangs up after 600 replies (about 3 s of reads): mid-ROSpec."""
    lost = drive(rig.llrp, time=6)
    wait_for(lambda: rig.json("/api/v1/readers/r1")["reconnects"] >= 1, 30, "uhfd to reconnect the reader")
    wait_for(lambda: rig.json("/api/v1/readers/r1")["state"] == "running", 30, "the reader back")
    again = drive(rig.llrp, time=1)
    assert {epc_of(t) for t in again["tags"]} & EPCS, "no reads after the reconnect"
    assert lost["tags"], "no reads before the link was lost"
