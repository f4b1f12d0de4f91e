import json
import re
import signal
import subprocess
import time

from uhfd_harness import BUILD, EPCS, Proc, Subscriber, Uhfd, wait_for, write_tags


def gateway(tmp_path, sim, broker=None, **extra):
    config = {"readers": [{"name": "dock", "uri": f"tcp:127.0.0.1:{sim.port}", "settings": {"power": 25}}],
              "presence": {"depart_after": 1.0}, **extra}
    if broker:
        config["mqtt"] = {"host": "127.0.0.1", "port": broker.port, "prefix": "t", "qos": 1, "batch_ms": 50}
    return Uhfd(tmp_path, config)


def test_reads_and_presence_events_reach_the_broker(tmp_path, sim, broker):
    sub = Subscriber(broker.port)
    g = gateway(tmp_path, sim, broker)
    wait_for(lambda: sub.epcs("t/dock/reads") >= set(EPCS), what="every EPC on the reads topic")
    assert "running" in sub.on("t/dock/status")
    arrivals = {json.loads(p)["epc"] for p in sub.on("t/dock/events") if '"arrive"' in p}
    assert arrivals == set(EPCS)
    write_tags(sim.tags, EPCS[:2])  # the third tag leaves the field
    sim.p.send_signal(signal.SIGHUP)
    wait_for(lambda: any('"depart"' in p and EPCS[2] in p for p in sub.on("t/dock/events")), what="a depart")
    write_tags(sim.tags, EPCS)
    sim.p.send_signal(signal.SIGHUP)
    wait_for(lambda: sum('"arrive"' in p and EPCS[2] in p for p in sub.on("t/dock/events")) == 2, what="it again")
    assert g.proc.stop() == 0  # SIGTERM: the reader stopped, then offline
    assert sub.on("t/dock/status")[-2:] == ["stopped", "offline"]


def test_a_lost_reader_is_reconnected_and_settings_reapplied(tmp_path, sim):
    g = gateway(tmp_path, sim)
    wait_for(lambda: g.json("/api/v1/readers")[0]["state"] == "running", what="running")
    sim.stop()
    wait_for(lambda: g.json("/api/v1/readers")[0]["state"] == "reconnecting", what="reconnecting")
    again = Proc([BUILD / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{sim.port}", "--tags", sim.tags], ready="tcp ")
    try:
        reader = wait_for(lambda: (r := g.json("/api/v1/readers")[0])["state"] == "running" and r, 40, "running again")
        assert reader["reconnects"] == 1
        assert g.json("/api/v1/readers/dock")["settings"]["power"] == 25
        before = reader["reads"]
        wait_for(lambda: g.json("/api/v1/readers")[0]["reads"] > before + 50, what="reads resuming")
    finally:
        again.stop()
        g.proc.stop()


def test_rest_settings_bad_input_and_token(tmp_path, sim):
    g = gateway(tmp_path, sim, http={"token": "s3cret"})
    put = lambda body, token="s3cret": g.request("PUT", "/api/v1/readers/dock/settings", body, token)
    assert put('{"power": 20, "session": 2}')[0] == 200
    assert g.json("/api/v1/readers/dock")["settings"]["power"] == 20
    for body in ('{"power": 31}', '{"power": "high"}', "{power", '{"colour": 1}', '{"power": 22, "q": 16}', '{"target": 2}'):
        status, text = put(body)
        assert status == 400 and json.loads(text)["error"], body
    assert put('{"power": 21}', token=None)[0] == 401
    assert g.request("GET", "/api/v1/readers/nope")[0] == 404
    assert g.request("POST", "/api/v1/readers/dock/inventory/stop", "", "s3cret")[0] == 200
    assert g.json("/api/v1/readers/dock")["settings"]["power"] == 20  # nothing else applied
    g.proc.stop()


def test_gen2_settings_reach_the_fields_of_their_names(tmp_path):
    sim = Proc([BUILD / "sim" / "uhfsim", "--pty", "--random-tags", "1"], ready="pty ")
    pty = sim.first.split()[1]  # a reader on a pseudo-terminal keeps its state across opens
    g = Uhfd(tmp_path, {"readers": [{"name": "r", "uri": f"serial:{pty}",
                                     "settings": {"q": 7, "session": 2, "target": 1}}]})
    wait_for(lambda: g.json("/api/v1/readers")[0]["state"] == "running", what="running")
    g.proc.stop()
    raw = subprocess.run([BUILD / "cli" / "uhfctl", "--serial", pty, "raw", "0x22"], capture_output=True, text=True)
    sim.stop()
    # The factory block 01 40 FD 53 with StartQ 7, Session 2 and G (B) 1; Select's target untouched.
    assert raw.stdout == "0x23 0170FD6B\n", raw.stderr


def test_stream_and_metrics(tmp_path):
    g = Uhfd(tmp_path, {"readers": [{"name": "sim", "uri": "sim:5"}]})
    with __import__("urllib.request").request.urlopen(g.url + "/api/v1/stream", timeout=10) as s:
        lines = [s.readline().decode() for _ in range(2)]
    assert lines[0] in ("event: read\n", "event: arrive\n") and json.loads(lines[1][6:])["epc"]
    for line in g.request("GET", "/metrics")[1].splitlines():
        assert re.fullmatch(r'# (HELP|TYPE) \w+ .+|\w+(\{(\w+="[^"]*",?)+\})? \d+(\.\d+)?', line), line
    g.proc.stop()
