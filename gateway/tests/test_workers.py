"""One worker process per reader: a worker that dies or hangs is replaced, and
the other readers never notice."""
import os
import signal
from pathlib import Path

from uhfd_harness import Uhfd, wait_for


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
