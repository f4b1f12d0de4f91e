"""The processes gateway_bench.py measures, all from one build directory:
uhfsim readers, uhfd, the plain MQTT publisher, a counting subscriber, and
what /proc says of uhfd's supervisor and workers."""
import json
import math
import os
import random
import re
import signal
import subprocess
import threading
import time
import urllib.request
from collections import Counter, defaultdict
from pathlib import Path

import paho.mqtt.client as mqtt

from uhfd_harness import Broker, Proc, free_port, wait_for  # noqa: F401  (re-exported for the bench)

TICK = os.sysconf("SC_CLK_TCK")
SIM_MAX_RATE = 100_000  # uhfsim's --rate limit: faster totals take more readers


# ---- /proc ----------------------------------------------------------------

def stat_fields(pid):
    return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()


def cpu_seconds(pid, reaped=False):
    """utime + stime; with reaped, also that of the children it has waited for."""
    f = stat_fields(pid)
    ticks = int(f[11]) + int(f[12]) + (int(f[13]) + int(f[14]) if reaped else 0)
    return ticks / TICK


def thread_cpu_seconds(tid):
    f = Path(f"/proc/self/task/{tid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(f[11]) + int(f[12])) / TICK


def children(pid):
    """Every child, whichever thread started it (the supervisor spawns from its loop thread)."""
    out = []
    for task in Path(f"/proc/{pid}/task").iterdir():
        try:
            out += [int(c) for c in (task / "children").read_text().split()]
        except OSError:
            pass
    return out


def rss_mb(pid):
    for line in Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024
    return 0.0


def open_fds(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


class CpuMeter:
    """CPU of the supervisor and its workers over a window, as % of one core.
    A worker that exits during the window is counted through the supervisor's
    reaped-children time, less what it had used before the window began."""

    def __init__(self, sup_pid):
        self.sup = sup_pid
        self.t0, self.start = time.monotonic(), self._snapshot()

    def _snapshot(self):
        workers = {}
        for pid in children(self.sup):
            try:
                workers[pid] = cpu_seconds(pid)
            except OSError:
                pass
        return cpu_seconds(self.sup, reaped=True), workers

    def stop(self):
        elapsed = time.monotonic() - self.t0
        sup0, w0 = self.start
        sup1, w1 = self._snapshot()
        workers = sum(v - w0.get(pid, 0.0) for pid, v in w1.items())
        reaped_before = sum(v for pid, v in w0.items() if pid not in w1)
        sup = sup1 - sup0 - reaped_before
        return {"sup": 100 * sup / elapsed, "workers": 100 * workers / elapsed,
                "total": 100 * (sup + workers) / elapsed}


# ---- MQTT -----------------------------------------------------------------

class BenchBroker(Broker):
    """mosquitto with no limit on the messages it holds for a subscriber that
    lags: the bench's own subscriber falling behind on a busy machine must
    show as a delay, not as reads the gateway lost."""

    def __init__(self, tmp):
        self.port, self.conf, self.log = free_port(), tmp / "mosquitto.conf", tmp / "mosquitto.log"
        self.conf.write_text(f"listener {self.port} 127.0.0.1\nallow_anonymous true\npersistence false\n"
                             "max_queued_messages 0\n")
        self.start()


SEQ = re.compile(rb'"seq":(\d+)')


class Subscriber:
    """Counts what arrives on every topic: reads by the `"epc"` keys in each
    payload (no JSON parsing, so the subscriber stays cheap), events by kind,
    and the status values in order. A topic's reads come in seq order, so an
    array that starts at or below the highest seq seen is a redelivery (QoS 1
    after a reconnect): its reads seen before count once, not twice."""

    def __init__(self, port):
        self.lock = threading.Lock()
        self.reads, self.bytes, self.duplicates = Counter(), Counter(), Counter()
        self.top_seq = {}
        self.events = Counter()
        self.status = defaultdict(list)
        self.tid = None
        self.c = mqtt.Client()
        self.c.max_inflight_messages_set(1000)
        self.c.on_message = self._on_message
        self.c.on_connect = self._on_connect
        self.c.connect("127.0.0.1", port)
        self.c.loop_start()
        wait_for(lambda: self.tid, what="the subscriber")

    def _on_connect(self, c, u, f, rc):
        c.subscribe("#", qos=1)
        self.tid = threading.get_native_id()

    def _on_message(self, c, u, m):
        topic, payload = m.topic, m.payload
        with self.lock:
            if topic.endswith("/reads"):
                again = self._seen_before(topic, payload)
                self.reads[topic] += payload.count(b'"epc"') - again
                self.duplicates[topic] += again
                self.bytes[topic] += len(payload)
            elif topic.endswith("/events"):
                self.events[topic.rsplit("/", 2)[0], "arrive" if b'"arrive"' in payload[:20] else "depart"] += 1
            elif topic.endswith("/status"):
                self.status[topic].append(payload.decode())

    def _seen_before(self, topic, payload):
        """Reads of this array at or below the topic's highest seq so far; two searches when there are none."""
        first = SEQ.search(payload)
        if not first:
            return 0
        top, last = self.top_seq.get(topic, 0), SEQ.search(payload, payload.rfind(b'"seq":'))
        self.top_seq[topic] = max(top, int(last[1]))
        if int(first[1]) > top:
            return 0
        return sum(1 for s in SEQ.findall(payload) if int(s) <= top)

    def duplicated(self, prefix):
        with self.lock:
            return sum(n for t, n in self.duplicates.items() if t.startswith(prefix + "/"))

    def delivered(self, prefix):
        with self.lock:
            return sum(n for t, n in self.reads.items() if t.startswith(prefix + "/"))

    def delivered_bytes(self, prefix):
        with self.lock:
            return sum(n for t, n in self.bytes.items() if t.startswith(prefix + "/"))

    def per_reader(self, prefix):
        with self.lock:
            return {t.split("/")[1]: n for t, n in self.reads.items() if t.startswith(prefix + "/")}

    def present(self, prefix):
        """Arrivals less departures of one uhfd run."""
        with self.lock:
            return self.events[prefix, "arrive"] - self.events[prefix, "depart"]

    def statuses(self, prefix, reader):
        with self.lock:
            return list(self.status[f"{prefix}/{reader}/status"])

    def wait_settled(self, prefix, quiet=1.0, limit=60.0):
        """Until no read has arrived for `quiet` seconds: everything sent is in."""
        end, last, since = time.monotonic() + limit, -1, time.monotonic()
        while time.monotonic() < end:
            n = self.delivered(prefix)
            if n != last:
                last, since = n, time.monotonic()
            elif time.monotonic() - since >= quiet:
                return n
            time.sleep(0.1)
        return last

    def cpu_seconds(self):
        return thread_cpu_seconds(self.tid)

    def close(self):
        self.c.loop_stop()
        self.c.disconnect()


class Ceiling:
    """The plain publisher at a rate for a time, in the background; finish()
    gives (reads published, every message acked)."""

    def __init__(self, build, broker_port, topic, rate, seconds, batch, qos):
        self.seconds = seconds
        self.proc = subprocess.Popen([build / "bench" / "mqtt_ceiling", "--port", str(broker_port), "--topic", topic,
                                      "--rate", str(rate), "--seconds", str(seconds), "--batch", str(batch),
                                      "--qos", str(qos)], stdout=subprocess.PIPE, text=True)

    def finish(self):
        out = self.proc.communicate(timeout=self.seconds * 4 + 30)[0]
        m = re.search(r"published (\d+) reads in ([\d.]+) s, acked (\d+) messages of (\d+)", out)
        if not m:
            raise RuntimeError(f"mqtt_ceiling said: {out!r}")
        return int(m[1]), m[3] == m[4]


# ---- readers --------------------------------------------------------------

def write_tag_file(path, count, seed=1):
    """count tags with random 96-bit EPCs, each seen on antenna 1 only, so a tag is one presence entry."""
    rng = random.Random(seed)
    tags = [{"epc": "%024X" % rng.getrandbits(96), "rssi": {"1": round(rng.uniform(-75, -45), 1)}}
            for _ in range(count)]
    path.write_text(json.dumps({"tags": tags}))


class Sims:
    """uhfsim readers streaming the tags of one file. quiet() empties their
    field (a SIGHUP reloads the file) so every stream ends without a broken
    link, and stop() then gives the reads they sent: the source count loss is
    measured against."""

    def __init__(self, build, tmp, count, rate, tags):
        self.tags = tmp / f"tags-{free_port()}.json"
        write_tag_file(self.tags, tags)
        self.procs, self.ports = [], []
        for _ in range(count):
            port = free_port()
            self.procs.append(Proc([build / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{port}", "--tags", self.tags,
                                    "--rate", str(rate)], ready="tcp "))
            self.ports.append(port)

    def readers(self, first=0):
        return [{"name": f"r{first + i}", "uri": f"tcp:127.0.0.1:{p}"} for i, p in enumerate(self.ports)]

    def cpu_seconds(self):
        return sum(cpu_seconds(p.p.pid) for p in self.procs)

    def quiet(self):
        self.tags.write_text('{"tags": []}')
        for p in self.procs:
            p.p.send_signal(signal.SIGHUP)

    def stop(self):
        """(reads sent, reads missed) over all readers."""
        sent = missed = 0
        for p in self.procs:
            p.stop()
            m = re.search(r"(\d+) tag reports, \d+ unknown codes, (\d+) reads missed", p.p.stdout.read())
            if m:
                sent, missed = sent + int(m[1]), missed + int(m[2])
        return sent, missed


def sims_for(total_rate):
    """As few readers as carry a total rate: (readers, rate each)."""
    n = max(1, math.ceil(total_rate / SIM_MAX_RATE))
    return n, round(total_rate / n)


# ---- uhfd -----------------------------------------------------------------

class NoHttp(Exception):
    pass


class Gateway:
    """uhfd of the build under test: its readers, MQTT into the bench's broker
    under its own prefix, and HTTP when asked for."""

    def __init__(self, build, tmp, readers, broker_port, prefix, mqtt_conf, presence=None, http=False):
        self.prefix, self.names = prefix, [r["name"] for r in readers]
        self.port = free_port() if http else 0
        # A fresh outbox per run: one left by an earlier run would be delivered again.
        config = {"readers": readers, "http": {"port": self.port}, "state_dir": str(tmp / f"state-{prefix}"),
                  "mqtt": {"host": "127.0.0.1", "port": broker_port, "prefix": prefix, **mqtt_conf}}
        if presence:
            config["presence"] = presence
        path = tmp / f"uhfd-{prefix}.json"
        path.write_text(json.dumps(config))
        self.proc = subprocess.Popen([str(build / "gateway" / "uhfd"), "-c", str(path)],
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.pid = self.proc.pid
        if http:
            try:
                wait_for(lambda: self.get("/metrics", check=False), timeout=5, what="uhfd's HTTP")
            except AssertionError:
                self.stop()
                raise NoHttp("this uhfd serves no HTTP") from None

    def get(self, path, check=True, timeout=20):
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{self.port}{path}", timeout=timeout) as r:
                return r.read().decode()
        except OSError:
            if check:
                raise
            return None

    def reads_total(self):
        """uhfd_reads_total by reader, from /metrics."""
        out = Counter()
        for line in self.get("/metrics").splitlines():
            if line.startswith("uhfd_reads_total{"):
                m = re.search(r'reader="([^"]*)"', line)
                out[m[1] if m else ""] += int(float(line.rsplit(" ", 1)[1]))
        return out

    def gauges(self):
        """The /metrics lines without labels, by name."""
        out = {}
        for line in self.get("/metrics").splitlines():
            if line and not line.startswith("#") and "{" not in line:
                name, value = line.rsplit(" ", 1)
                out[name] = float(value)
        return out

    def wait_running(self, sub, timeout=30):
        wait_for(lambda: all(sub.statuses(self.prefix, n)[-1:] == ["running"] for n in self.names),
                 timeout=timeout, what="every reader running")

    def worker(self, name):
        for pid in children(self.pid):
            try:
                if Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[3].decode() == name:
                    return pid
            except (OSError, IndexError):
                pass
        return None

    def rss_mb(self):
        return rss_mb(self.pid) + sum(rss_mb(p) for p in children(self.pid))

    def cpu_meter(self):
        return CpuMeter(self.pid)

    def stop(self):
        if self.proc.poll() is None:
            self.proc.terminate()
        try:
            self.proc.wait(15)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
