"""One worker process per reader: a worker that dies or hangs is replaced, and
the other readers never notice."""
import os
import re
import signal
import time
from pathlib import Path

from uhfd_harness import BUILD, EPCS, Proc, Uhfd, free_port, wait_for, write_tags


def workers(pid):
    """The supervisor's workers by reader name."""
    found = {}
    for proc in Path("/proc").iterdir():
        try:
            stat = (proc / "stat").read_text()
            args = (proc / "cmdline").read_bytes().split(b"\0")
        except OSError:
            continue
        if proc.name.isdigit() and int(stat.rsplit(")", 1)[1].split()[1]) == pid and b"--worker" in args:
            found[args[3].decode()] = int(proc.name)
    return found


def test_a_dead_or_hung_worker_is_replaced_and_the_others_read_on(tmp_path):
    g = Uhfd(tmp_path, {"readers": [{"name": "a", "uri": "sim:3"}, {"name": "b", "uri": "sim:3"}]})
    reader = lambda name: next(r for r in g.json("/api/v1/readers") if r["name"] == name)
    wait_for(lambda: reader("a")["state"] == reader("b")["state"] == "running", what="both running")
    descriptors = len(os.listdir(f"/proc/{g.proc.p.pid}/fd"))
    # Killed six times, then stopped (a hang: no heartbeat), each time replaced.
    for sig, reason in [(signal.SIGKILL, "killed by signal 9")] * 6 + [(signal.SIGSTOP, "stopped answering")]:
        before_a, before_b = reader("a")["reconnects"], reader("b")["reads"]
        os.kill(workers(g.proc.p.pid)["a"], sig)
        wait_for(lambda: reason in reader("a").get("error", ""), 20, f"a reconnecting: {reason}")
        wait_for(lambda: reader("a")["state"] == "running" and reader("a")["reconnects"] == before_a + 1, 20,
                 "a running again")
        assert reader("b")["reads"] > before_b and reader("b")["reconnects"] == 0
    # Flat: no more than at the start (an HTTP connection of the test may
    # have been open then, and may be open for a moment now).
    wait_for(lambda: len(os.listdir(f"/proc/{g.proc.p.pid}/fd")) <= descriptors, 10, "the descriptors of the start")
    assert g.proc.stop() == 0
    assert workers(g.proc.p.pid) == {}


def test_a_supervisor_stopped_for_a_moment_costs_no_read(tmp_path):
    # At 20,000 reads/s the library's queue holds about 0.6 s and the
    # socket to the supervisor 0.3 s more: the worker keeps draining the
    # queue while the supervisor takes nothing for 1.5 s.
    port, tags = free_port(), tmp_path / "tags.json"
    write_tags(tags, EPCS)
    sim = Proc([BUILD / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{port}", "--tags", tags, "--rate", "20000"], ready="tcp ")
    g = Uhfd(tmp_path, {"readers": [{"name": "a", "uri": f"tcp:127.0.0.1:{port}"}]})
    try:
        metrics = lambda: g.request("GET", "/metrics")[1]
        overflows = lambda: int(re.search(r"uhfd_queue_overflow_reads_total\{[^}]*\} (\d+)", metrics())[1])
        wait_for(lambda: g.json("/api/v1/readers")[0]["reads"] > 20000, 20, "reads flowing")
        before = g.json("/api/v1/readers")[0]["reads"]
        os.kill(g.proc.p.pid, signal.SIGSTOP)
        time.sleep(1.5)
        os.kill(g.proc.p.pid, signal.SIGCONT)
        wait_for(lambda: g.json("/api/v1/readers")[0]["reads"] > before + 40000, 20, "the reads of the pause")
        time.sleep(1.2)  # a pass or two of the worker: any overflow would be told by now
        assert overflows() == 0
        assert g.json("/api/v1/readers")[0]["state"] == "running"
    finally:
        g.proc.stop()
        sim.stop()
