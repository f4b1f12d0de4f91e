#!/usr/bin/env python3
"""uhfd under load: uhfsim streaming at 1,000 and 10,000 reads/s, through uhfd
into mosquitto, measured at a subscriber: delivered, lost, read-to-subscriber
latency (uhfd's receive time to arrival) p50/p99, and uhfd's CPU.

    bench/gateway_bench.py [BUILD_DIR] [SECONDS]
"""
import json
import os
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "gateway" / "tests"))
import uhfd_harness  # noqa: E402  the tests' process helpers
from uhfd_harness import Broker, Proc, Uhfd, free_port, wait_for  # noqa: E402

BUILD = Path(sys.argv[1] if len(sys.argv) > 1 else uhfd_harness.BUILD)
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 10.0
TICK = os.sysconf("SC_CLK_TCK")


def cpu_seconds(pid):
    fields = Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def reads_total(g):
    text = g.request("GET", "/metrics")[1]
    return sum(int(line.rsplit(" ", 1)[1]) for line in text.splitlines() if line.startswith("uhfd_reads_total{"))


def run(rate, tmp):
    broker = Broker(tmp)
    sim_port = free_port()
    sim = Proc([BUILD / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{sim_port}", "--random-tags", "500", "--rate", rate],
               ready="tcp ")
    lat, lock = [], threading.Lock()
    import paho.mqtt.client as mqtt

    def on_message(c, u, m):
        now = time.time()
        batch = json.loads(m.payload)
        with lock:
            lat.extend((r["time"], now - r["time"]) for r in batch)

    sub = mqtt.Client()
    sub.on_message = on_message
    sub.on_connect = lambda c, u, f, rc: c.subscribe("b/+/reads", qos=1)
    sub.connect("127.0.0.1", broker.port)
    sub.loop_start()
    g = Uhfd(tmp, {"readers": [{"name": "r", "uri": f"tcp:127.0.0.1:{sim_port}"}],
                   "mqtt": {"host": "127.0.0.1", "port": broker.port, "prefix": "b", "qos": 1, "batch_size": 200,
                            "batch_ms": 20, "queue_max": 100000}})
    wait_for(lambda: reads_total(g) > 0, what="reads")
    time.sleep(1)
    with lock:
        lat.clear()
    start_reads, start_cpu, t0, w0 = reads_total(g), cpu_seconds(g.proc.p.pid), time.monotonic(), time.time()
    time.sleep(SECONDS)
    end_reads, end_cpu, elapsed, w1 = reads_total(g), cpu_seconds(g.proc.p.pid), time.monotonic() - t0, time.time()
    time.sleep(1)  # the last batches on their way
    with lock:
        got = sorted(d for t, d in lat if w0 <= t < w1)  # reads uhfd took in during the window
    produced = end_reads - start_reads
    g.proc.stop()
    sim.stop()
    broker.proc.stop()
    sub.loop_stop()
    p = lambda q: got[min(len(got) - 1, int(q * len(got)))] * 1000 if got else float("nan")
    delivered = len(got)
    return (f"| {rate} | {produced / elapsed:.0f} | {delivered} | {max(0, produced - delivered)} | {p(0.5):.1f} | "
            f"{p(0.99):.1f} | {100 * (end_cpu - start_cpu) / elapsed:.1f}% |")


if __name__ == "__main__":
    import tempfile

    print("| sim rate (reads/s) | reads/s into uhfd | delivered | lost | p50 ms | p99 ms | uhfd CPU |")
    print("|---|---|---|---|---|---|---|")
    for rate in ("1000", "10000"):
        with tempfile.TemporaryDirectory() as d:
            print(run(rate, Path(d)), flush=True)
