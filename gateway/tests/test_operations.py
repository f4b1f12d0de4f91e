"""What an operator and systemd see: one logfmt line per state change, the
JSON-lines file reopened on SIGHUP, READY and watchdog pings."""
import json
import os
import signal
import socket
import subprocess

from test_workers import workers
from uhfd_harness import BUILD, Uhfd, wait_for


def test_state_lines_sighup_reopen_and_systemd_notifications(tmp_path):
    notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    notify.bind(str(tmp_path / "notify"))
    notify.settimeout(20)
    jsonl = tmp_path / "reads.jsonl"
    env = {**os.environ, "NOTIFY_SOCKET": str(tmp_path / "notify"), "WATCHDOG_USEC": "400000"}
    p = subprocess.Popen([BUILD / "gateway" / "uhfd", "--sim", "--http", "127.0.0.1:0", "--jsonl", jsonl],
                         env=env, stderr=subprocess.PIPE, text=True)
    try:
        assert [notify.recv(64) for _ in range(3)] == [b"READY=1", b"WATCHDOG=1", b"WATCHDOG=1"]
        wait_for(lambda: jsonl.exists() and jsonl.stat().st_size > 0, what="reads in the file")
        os.kill(wait_for(lambda: workers(p.pid).get("sim")), signal.SIGKILL)
        jsonl.rename(tmp_path / "reads.jsonl.1")  # what logrotate does
        p.send_signal(signal.SIGHUP)
        wait_for(lambda: jsonl.exists() and jsonl.stat().st_size > 0, what="reads in a new file")
    finally:
        p.send_signal(signal.SIGTERM)
        assert p.wait(20) == 0
    lines = p.stderr.read().splitlines()
    assert 'uhfd: level=warn reader=sim event=state state=reconnecting reason="the worker was killed by signal 9"' \
        in lines, lines
    assert lines[-1] == "uhfd: level=info reader=sim event=state state=stopped", lines


def test_sighup_reloads_the_readers_and_keeps_them_when_the_file_is_bad(tmp_path):
    config = {"readers": [{"name": "a", "uri": "sim:3"}, {"name": "gone", "uri": "sim:2"}]}
    g = Uhfd(tmp_path, config)
    names = lambda: {r["name"]: r for r in g.json("/api/v1/readers")}
    wait_for(lambda: all(r["state"] == "running" for r in names().values()) and len(names()) == 2, what="running")
    a = workers(g.proc.p.pid)["a"]
    config["readers"] = [{"name": "a", "uri": "sim:3"}, {"name": "new", "uri": "sim:2"}]
    (tmp_path / "uhfd.json").write_text(json.dumps(config | {"http": {"port": g.port}}))
    g.proc.p.send_signal(signal.SIGHUP)
    wait_for(lambda: set(names()) == {"a", "new"} and names()["new"]["state"] == "running", what="the new reader")
    (tmp_path / "uhfd.json").write_text('{"readers": [')
    g.proc.p.send_signal(signal.SIGHUP)
    assert workers(g.proc.p.pid)["a"] == a and names()["a"]["reconnects"] == 0  # untouched throughout
    assert g.proc.stop() == 0
    log = g.proc.p.stdout.read()
    assert "uhfd: level=error event=reload error=" in log, log
