"""The outbox behind MQTT and the webhook: every seq arrives across broker and
uhfd restarts, a full outbox drops the oldest reads and counts them in reads,
status goes first on every connect, a webhook that fails is retried, and
readers a reload adds or removes get or lose their outputs."""
import hashlib
import hmac
import http.server
import json
import re
import signal
import threading
import time

from uhfd_harness import Broker, Subscriber, Uhfd, free_port, missing, wait_for


def dock(sim, broker_port, **extra):
    return {"readers": [{"name": "dock", "uri": f"tcp:127.0.0.1:{sim.port}"}],
            "mqtt": {"host": "127.0.0.1", "port": broker_port, "prefix": "t", "qos": 1, "batch_ms": 50}, **extra}


def metric(g, name, **labels):
    want = ",".join(f'{k}="{v}"' for k, v in labels.items())
    found = re.search(rf"^{name}(\{{{want}\}})? (\d+)$", g.request("GET", "/metrics")[1], re.M)
    return int(found.group(2)) if found else None


def boots_by_seq(sub, prefix):
    items = [r for p in sub.on(prefix + "reads") for r in json.loads(p)]
    items += [json.loads(p) for p in sub.on(prefix + "events")]
    seen = {}
    for item in items:
        seen.setdefault(item["seq"], set()).add(item["boot"])
    return seen


def test_every_seq_arrives_across_a_broker_restart_and_uhfd_killed(tmp_path, sim):
    broker = Broker(tmp_path, persistent=True)
    sub = Subscriber(broker.port, "seq-check")
    config = dock(sim, broker.port)
    g = Uhfd(tmp_path, config)
    try:
        wait_for(lambda: len(sub.seqs("t/dock/")) > 50, what="reads")
        broker.proc.stop()  # SIGTERM: the subscriber's session is saved
        time.sleep(2)  # reads wait in the outbox meanwhile
        broker.start()
        before_kill = max(sub.seqs("t/dock/"))
        wait_for(lambda: max(sub.seqs("t/dock/")) > before_kill + 100, 20, "reads after the broker's restart")
        g.proc.stop(signal.SIGKILL)
        g = Uhfd(tmp_path, config)  # the same state directory
        top = max(sub.seqs("t/dock/"))
        wait_for(lambda: max(sub.seqs("t/dock/")) > top + 100 and not missing(sub.seqs("t/dock/")), 30,
                 "every seq from 1 on")
        by_seq = boots_by_seq(sub, "t/dock/")
        assert len(set.union(*by_seq.values())) == 2  # a boot id per start
        assert all(len(boots) == 1 for boots in by_seq.values())  # the counter went on, never again from 1
    finally:
        g.proc.stop()
        broker.proc.stop()


def test_a_full_outbox_drops_the_oldest_reads_counted_in_reads_and_status_goes_first(tmp_path, sim):
    broker = Broker(tmp_path, persistent=True, log=True)
    sub = Subscriber(broker.port, "drops")
    g = Uhfd(tmp_path, dock(sim, broker.port, outbox_max_mb=0.02))  # room for about a hundred reads
    inventory = lambda on: g.request("POST", f"/api/v1/readers/dock/inventory/{on}", "")
    dropped = lambda: metric(g, "uhfd_reads_dropped_total", reader="dock", output="mqtt")
    try:
        wait_for(lambda: sub.seqs("t/dock/"), what="reads")
        # Nothing in flight when the broker goes: a read it took but never
        # acknowledged would be counted dropped and still arrive.
        assert inventory("stop")[0] == 200
        wait_for(lambda: metric(g, "uhfd_outbox_rows", reader="dock", output="mqtt") == 0, what="all delivered")
        broker.proc.stop()
        assert inventory("start")[0] == 200
        wait_for(lambda: metric(g, "uhfd_mqtt_connected", reader="dock") == 0, what="the broker missed")
        wait_for(lambda: dropped() > 100, what="drops")
        broker.start()
        # The client retries with backoff (up to 30 s between tries on a slow machine).
        wait_for(lambda: metric(g, "uhfd_mqtt_connected", reader="dock") == 1, 45, "the broker again")
        wait_for(lambda: sub.on("t/dock/status")[-1:] == ["running"], 20, "the status again")
        assert broker.published("uhfd-")[0] == "t/dock/status"  # before the backlog
        # Reads stop coming, so the count settles: every seq that never arrived
        # was counted dropped. A read dropped while in flight to the broker is
        # counted and may still arrive: at most the window of 32 batches of 50.
        assert inventory("stop")[0] == 200
        wait_for(lambda: metric(g, "uhfd_outbox_rows", reader="dock", output="mqtt") == 0, 30, "the backlog sent")
        wait_for(lambda: len(missing(sub.seqs("t/dock/"))) <= dropped(), 20, "every read delivered or counted")
        gaps = len(missing(sub.seqs("t/dock/")))
        assert dropped() <= gaps + 32 * 50, (gaps, dropped())
    finally:
        g.proc.stop()
        broker.proc.stop()


def test_uhfd_started_while_the_broker_is_down_connects_when_it_comes_up(tmp_path):
    port = free_port()
    g = Uhfd(tmp_path, {"readers": [{"name": "sim", "uri": "sim:5"}], "mqtt": {"host": "127.0.0.1", "port": port}})
    broker = None
    try:
        time.sleep(3)
        broker = Broker(tmp_path, port)
        sub = Subscriber(port)
        wait_for(lambda: sub.on("uhfd/sim/reads"), 20, "reads")
        assert sub.on("uhfd/sim/status")[0] == "running"
    finally:
        g.proc.stop()
        if broker:
            broker.proc.stop()


class Receiver(http.server.ThreadingHTTPServer):
    """Answers 500 to the first `failures` POSTs, then 200, keeping what it accepted."""

    def __init__(self, failures):
        self.failures, self.calls, self.accepted, self.lock = failures, 0, [], threading.Lock()
        receiver = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                with receiver.lock:
                    receiver.calls += 1
                    ok = receiver.calls > receiver.failures
                    if ok:
                        receiver.accepted.append((body, self.headers.get("X-Uhfd-Signature")))
                self.send_response(200 if ok else 500)
                self.send_header("Content-Length", "0")
                self.end_headers()

            def log_message(self, *args):
                pass

        super().__init__(("127.0.0.1", free_port()), Handler)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def items(self, reader=None):
        with self.lock:
            return [i for body, _ in self.accepted for i in json.loads(body) if reader in (None, i["reader"])]

    def seqs(self, reader=None):
        return {item["seq"] for item in self.items(reader)}


def test_the_webhook_retries_until_accepted_and_signs_every_body(tmp_path):
    receiver = Receiver(failures=2)
    url = f"http://127.0.0.1:{receiver.server_address[1]}/hook"
    g = Uhfd(tmp_path, {"readers": [{"name": "sim", "uri": "sim:5"}],
                        "webhook": {"url": url, "secret": "s3cret", "batch_size": 100, "batch_ms": 200}})
    try:
        wait_for(lambda: len(receiver.seqs()) > 300 and not missing(receiver.seqs()), 30, "every seq from 1 on")
        assert metric(g, "uhfd_webhook_failures_total") == 2
        with receiver.lock:
            for body, signature in receiver.accepted:
                assert signature == "sha256=" + hmac.new(b"s3cret", body, hashlib.sha256).hexdigest()
    finally:
        g.proc.stop()
        receiver.shutdown()


def mqtt_items(sub, name):
    return [i for p in sub.on(f"t/{name}/reads") for i in json.loads(p)] + \
        [json.loads(p) for p in sub.on(f"t/{name}/events")]


def every_seq_once(items):
    """Seqs from 1 on without a gap, none given to two different reads."""
    seqs = {i["seq"] for i in items}
    return len(seqs) > 20 and not missing(seqs) and len({json.dumps(i, sort_keys=True) for i in items}) == len(seqs)


def test_a_reload_gives_added_readers_their_outputs_and_removed_ones_say_offline(tmp_path):
    broker, receiver = Broker(tmp_path), Receiver(failures=0)
    sub = Subscriber(broker.port)
    jsonl = tmp_path / "reads.jsonl"  # every seq the hub gives, past the outbox
    config = {"mqtt": {"host": "127.0.0.1", "port": broker.port, "prefix": "t", "qos": 1, "batch_ms": 50},
              "webhook": {"url": f"http://127.0.0.1:{receiver.server_address[1]}/", "batch_ms": 50},
              "jsonl": str(jsonl)}

    def readers(*names):
        config["readers"] = [{"name": n, "uri": "sim:3"} for n in names]
        return config

    g = Uhfd(tmp_path, readers("a", "b"))

    def reload(*names):
        (tmp_path / "uhfd.json").write_text(json.dumps(readers(*names)))
        g.proc.p.send_signal(signal.SIGHUP)

    def delivered(name):
        given = [i for i in map(json.loads, jsonl.read_text().splitlines()) if i["reader"] == name]
        return all(every_seq_once(items) for items in (given, mqtt_items(sub, name), receiver.items(name)))

    try:
        wait_for(lambda: delivered("b"), 20, "b's reads")
        reload("a", "c")
        wait_for(lambda: sub.on("t/b/status")[-1:] == ["offline"], what="b offline")
        wait_for(lambda: delivered("c"), 20, "c's reads from seq 1 on")
        with sub.lock:
            assert next(t for t, _ in sub.messages if t.startswith("t/c/")) == "t/c/status"
        top = max(i["seq"] for i in mqtt_items(sub, "b"))
        reload("a", "b")  # back under its name: its seqs go on, not from 1 again
        wait_for(lambda: max(i["seq"] for i in mqtt_items(sub, "b")) > top + 50 and delivered("b"), 20,
                 "b's reads again")
        assert delivered("a")
        assert metric(g, "uhfd_mqtt_connected", reader="b") == 1 and metric(g, "uhfd_mqtt_connected", reader="c") is None
        assert g.proc.stop() == 0
    finally:
        g.proc.stop()
        broker.proc.stop()
        receiver.shutdown()
