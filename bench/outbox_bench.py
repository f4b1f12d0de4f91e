#!/usr/bin/env python3
"""The outbox under failure, measured with real processes: uhfsim streaming
500 tags at 10,000 reads/s into uhfd, QoS 1 into mosquitto, a subscriber with
a persistent session counting every seq. Rows, each against its target:

  broker down 60 s (outbox 200 MB)                  -> reads lost 0
  uhfd SIGKILLed mid-outage and restarted           -> reads lost 0 (duplicates allowed)
  broker SIGSTOPped 60 s                            -> uhfd RSS growth <= 20 MB
  outbox write, 100 reads a transaction (bench_outbox) -> <= 1 us CPU per read

    bench/outbox_bench.py [BUILD_DIR] [OUTAGE_SECONDS]
"""
import json
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "gateway" / "tests"))
import uhfd_harness  # noqa: E402  the tests' process helpers
from uhfd_harness import Broker, Proc, Uhfd, free_port, wait_for  # noqa: E402

import paho.mqtt.client as mqtt  # noqa: E402

BUILD = Path(sys.argv[1]) if len(sys.argv) > 1 else uhfd_harness.BUILD
OUTAGE = float(sys.argv[2]) if len(sys.argv) > 2 else 60.0
uhfd_harness.BUILD = BUILD
SEQ = re.compile(rb'"seq":(\d+)')


class SeqCounter:
    """Every seq that reaches the broker's subscriber, on a session that outlives a broker restart."""

    def __init__(self, port):
        self.seqs, self.messages, self.lock = set(), 0, threading.Lock()
        self.c = mqtt.Client("outbox-bench", clean_session=False)
        self.c.on_connect = lambda c, u, f, rc: c.subscribe("b/#", qos=1)
        self.c.on_message = self._add
        self.c.reconnect_delay_set(1, 2)  # back soon after the broker: the count waits for it
        self.c.connect("127.0.0.1", port)
        self.c.loop_start()

    def _add(self, c, u, m):
        found = [int(s) for s in SEQ.findall(m.payload)]
        with self.lock:
            self.seqs.update(found)
            self.messages += 1

    def count(self):
        with self.lock:
            return len(self.seqs)

    def lost(self):
        with self.lock:
            return max(self.seqs, default=0) - len(self.seqs), max(self.seqs, default=0)

    def stop(self):
        self.c.loop_stop()
        self.c.disconnect()


def metric(g, name):
    text = g.request("GET", "/metrics")[1]
    return sum(int(line.rsplit(" ", 1)[1]) for line in text.splitlines() if line.startswith(name + "{"))


def rss_mb(pid):
    status = Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", status).group(1)) / 1024


class Rig:
    def __init__(self, tmp):
        self.tmp = tmp
        self.broker = Broker(tmp, persistent=True)
        self.sim_port = free_port()
        self.sim = Proc([BUILD / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{self.sim_port}", "--random-tags", "500",
                         "--rate", "10000"], ready="tcp ")
        self.sub = SeqCounter(self.broker.port)
        self.config = {"readers": [{"name": "r", "uri": f"tcp:127.0.0.1:{self.sim_port}"}], "outbox_max_mb": 200,
                       "mqtt": {"host": "127.0.0.1", "port": self.broker.port, "prefix": "b", "qos": 1,
                                "batch_size": 200, "batch_ms": 20}}
        self.g = self.start_uhfd()

    def start_uhfd(self):
        g = Uhfd(self.tmp, self.config)
        wait_for(lambda: metric(g, "uhfd_reads_total") > 0, 30, "reads")
        return g

    def drain(self, limit=300):
        """Seconds until the backlog is delivered; then no new reads, so the count can settle."""
        t0 = time.monotonic()
        wait_for(lambda: metric(self.g, "uhfd_mqtt_connected") == 1, 60, "the broker again")
        wait_for(lambda: metric(self.g, "uhfd_outbox_rows") <= 2, limit, "the outbox drained")
        took = time.monotonic() - t0
        self.g.request("POST", "/api/v1/readers/r/inventory/stop", "")
        wait_for(lambda: metric(self.g, "uhfd_outbox_rows") == 0, 60, "the last rows delivered")
        wait_for(self.sub.c.is_connected, 30, "the subscriber back")
        count = -1
        while count != self.sub.count():  # the broker's queue for it emptied
            count = self.sub.count()
            time.sleep(3)
        return took

    def close(self):
        self.g.proc.stop()
        self.sub.stop()
        self.sim.stop()
        self.broker.proc.stop()


def reads_in(g, seconds):
    before = metric(g, "uhfd_reads_total")
    time.sleep(seconds)
    return (metric(g, "uhfd_reads_total") - before) / seconds


def broker_down(tmp):
    rig = Rig(tmp)
    try:
        rate = reads_in(rig.g, 3)
        rig.broker.proc.stop()
        time.sleep(OUTAGE)
        held = metric(rig.g, "uhfd_outbox_reads"), metric(rig.g, "uhfd_outbox_bytes") / 2 ** 20
        rig.broker.start()
        drained = rig.drain()
        lost, top = rig.sub.lost()
        dropped = metric(rig.g, "uhfd_reads_dropped_total")
        return (f"| broker down {OUTAGE:.0f} s, {rate:.0f} reads/s in, outbox 200 MB | reads lost {lost} of {top} "
                f"(dropped {dropped}; {held[0]} reads, {held[1]:.0f} MB held; back and drained {drained:.0f} s after the broker, reconnect backoff included) | 0 |")
    finally:
        rig.close()


def killed_mid_outage(tmp):
    rig = Rig(tmp)
    try:
        rate = reads_in(rig.g, 3)
        rig.broker.proc.stop()
        time.sleep(OUTAGE / 2)
        rig.g.proc.stop(signal.SIGKILL)
        rig.g = rig.start_uhfd()
        time.sleep(OUTAGE / 2)
        rig.broker.start()
        drained = rig.drain()
        lost, top = rig.sub.lost()
        return (f"| uhfd SIGKILLed {OUTAGE / 2:.0f} s into a {OUTAGE:.0f} s outage, restarted, {rate:.0f} reads/s | "
                f"reads lost {lost} of {top} (back and drained {drained:.0f} s after the broker, reconnect backoff included) | 0 |")
    finally:
        rig.close()


def broker_stopped(tmp):
    rig = Rig(tmp)
    try:
        rate = reads_in(rig.g, 3)
        pid = rig.g.proc.p.pid
        before, peak, noticed = rss_mb(pid), 0.0, None
        rig.broker.proc.p.send_signal(signal.SIGSTOP)
        t0 = time.monotonic()
        while time.monotonic() - t0 < OUTAGE:
            peak = max(peak, rss_mb(pid))
            if noticed is None and metric(rig.g, "uhfd_mqtt_connected") == 0:
                noticed = time.monotonic() - t0
            time.sleep(1)
        rig.broker.proc.p.send_signal(signal.SIGCONT)
        drained = rig.drain()
        lost, top = rig.sub.lost()
        said = f"{noticed:.0f} s" if noticed is not None else "never"
        return (f"| broker SIGSTOPped {OUTAGE:.0f} s, {rate:.0f} reads/s | RSS {before:.0f} -> peak {peak:.0f} MB, "
                f"growth {peak - before:.1f} MB; connected=0 after {said}; lost {lost} of {top} "
                f"(back and drained {drained:.0f} s after the broker, reconnect backoff included) | <= 20 MB |")
    finally:
        rig.close()


def write_cost():
    out = subprocess.run([BUILD / "bench" / "bench_outbox", "--benchmark_filter=/100$", "--benchmark_format=json"],
                         capture_output=True, text=True, check=True).stdout
    run = json.loads(out)["benchmarks"][0]
    return f"| outbox write, 100 reads a transaction | {run['cpu_per_read'] * 1e6:.2f} us CPU per read | <= 1 us |"


if __name__ == "__main__":
    print("| scenario | measured | target |\n|---|---|---|", flush=True)
    print(write_cost(), flush=True)
    for row in (broker_down, killed_mid_outage, broker_stopped):
        with tempfile.TemporaryDirectory() as tmp:
            print(row(Path(tmp)), flush=True)
