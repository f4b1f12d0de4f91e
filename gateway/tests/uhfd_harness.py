"""Real components on free loopback ports: mosquitto, uhfsim and uhfd (used by the tests and bench/)."""
import json
import os
import re
import socket
import subprocess
import threading
import time
import urllib.request
from pathlib import Path

import paho.mqtt.client as mqtt

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("UHF_BUILD_DIR", ROOT / "build" / "dev"))
EPCS = ["E20000000000000000000A01", "E20000000000000000000A02", "E20000000000000000000A03"]


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(cond, timeout=10.0, what="condition"):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        value = cond()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError(f"timed out waiting for {what}")


def write_tags(path, epcs):
    path.write_text(json.dumps({"tags": [{"epc": e, "rssi": {"1": -55.0}} for e in epcs]}))


class Proc:
    def __init__(self, args, ready=None):
        self.p = subprocess.Popen([str(a) for a in args], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.first = self.p.stdout.readline() if ready else ""
        if ready:
            assert self.first.startswith(ready), self.first

    def stop(self, sig=15):
        if self.p.poll() is None:
            self.p.send_signal(sig)
        return self.p.wait(15)


class Broker:
    """persistent: sessions and their queued messages survive a restart (stopped with SIGTERM).
    log: every packet in self.log, in order of arrival."""

    def __init__(self, tmp, port=None, persistent=False, log=False):
        self.port, self.conf, self.log = port or free_port(), tmp / "mosquitto.conf", tmp / "mosquitto.log"
        keep = f"persistence true\npersistence_location {tmp}/\nmax_queued_messages 0\n" if persistent else \
            "persistence false\n"
        if persistent and os.geteuid() == 0:
            keep += "user root\n"  # else mosquitto drops to its own user, which cannot write tmp
        if log:
            keep += f"log_type debug\nlog_dest file {self.log}\n"
        self.conf.write_text(f"listener {self.port} 127.0.0.1\nallow_anonymous true\n{keep}")
        self.start()

    def start(self):
        self.proc = Proc(["/usr/sbin/mosquitto", "-c", self.conf])
        self.started_at = self.log.stat().st_size if self.log.exists() else 0
        wait_for(lambda: socket.socket().connect_ex(("127.0.0.1", self.port)) == 0, what="the broker")


    def published(self, client_prefix):
        """Topics a client published to since the last start, in order."""
        text = self.log.read_text()[self.started_at:]
        return re.findall(rf"Received PUBLISH from {client_prefix}\S* \(d\d, q\d, r\d, m\d+, '([^']+)'", text)


class Subscriber:
    """Every message of every topic, in order of arrival."""

    def __init__(self, port, client_id=""):
        """With a client_id the session outlives a disconnect: the broker keeps what comes meanwhile."""
        self.lock, self.messages = threading.Lock(), []
        self.c = mqtt.Client(client_id, clean_session=not client_id)
        self.c.on_message = lambda c, u, m: self._add(m.topic, m.payload.decode())
        self.c.on_connect = lambda c, u, f, rc: c.subscribe("#", qos=1)
        subscribed = threading.Event()
        self.c.on_subscribe = lambda c, u, mid, qos: subscribed.set()
        self.c.connect("127.0.0.1", port)
        self.c.loop_start()
        assert subscribed.wait(10), "no SUBACK from the broker"

    def _add(self, topic, payload):
        with self.lock:
            self.messages.append((topic, payload))

    def on(self, topic):
        with self.lock:
            return [p for t, p in self.messages if t == topic]

    def epcs(self, topic):
        return {r["epc"] for p in self.on(topic) for r in json.loads(p)}

    def seqs(self, prefix):
        """The seqs of every read and event under PREFIX/READER/ (duplicates once)."""
        reads = [r["seq"] for p in self.on(prefix + "reads") for r in json.loads(p)]
        return set(reads) | {json.loads(p)["seq"] for p in self.on(prefix + "events")}


def missing(seqs):
    """The seqs from 1 to the newest one that never arrived."""
    return set(range(1, max(seqs, default=0) + 1)) - set(seqs)


class Uhfd:
    def __init__(self, tmp, config, *args):
        self.port = free_port()
        config.setdefault("http", {})["port"] = self.port
        config.setdefault("state_dir", str(tmp / "state"))
        path = tmp / "uhfd.json"
        path.write_text(json.dumps(config))
        self.proc = Proc([BUILD / "gateway" / "uhfd", "-c", path, *args])
        self.url = f"http://127.0.0.1:{self.port}"
        wait_for(lambda: self.request("GET", "/api/v1/readers", check=False), what="uhfd's HTTP")

    def request(self, method, path, body=None, token=None, check=True):
        req = urllib.request.Request(self.url + path, method=method, data=body if body is None else body.encode())
        if token:
            req.add_header("Authorization", "Bearer " + token)
        try:
            with urllib.request.urlopen(req, timeout=20) as r:
                return r.status, r.read().decode()
        except urllib.error.HTTPError as e:
            return e.code, e.read().decode()
        except OSError:
            if check:
                raise
            return None

    def json(self, path):
        return json.loads(self.request("GET", path)[1])
