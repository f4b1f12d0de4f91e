#!/usr/bin/env python3
"""uhfd under load, measured from outside, each row beside its target.

    bench/gateway_bench.py [BUILD_DIR] [--rows 1,2,...] [--seconds S]

BUILD_DIR (default build/release) gives uhfd, uhfsim and mqtt_ceiling; the
bench starts nothing from anywhere else. One mosquitto serves the whole run.
Readers are uhfsim over TCP; MQTT is QoS 1 in batches of up to 200 reads sent
at least every 20 ms, from an outbox of the default size in a fresh state
directory, in every row. S (default 10) is the measured window; the CPU rows
measure three windows back to back and report the median one with the range,
the runs of the MQTT search use min(S, 4) s each, the details row loads uhfd
for 2 S. All rows take about 10 minutes.

How it counts:
- Loss is end to end: the reads the uhfsim readers say they sent minus the
  reads a subscriber got. A run ends by emptying the readers' tag field (a
  SIGHUP reloads an empty tag file), waiting until nothing more arrives, and
  only then stopping the readers, so no read is in flight when they go. It
  needs nothing from uhfd's HTTP side and covers the library, the worker,
  the supervisor, the MQTT client and the broker at once.
- The subscriber counts the `"epc"` keys of each payload instead of parsing
  it; its thread's CPU at the ceiling's best rate is printed, to show it is
  not what limits either side. The broker holds any number of messages for
  it, so a subscriber that lags delays reads but never loses them.
- A rate is reads delivered per second over the window, after a warm-up; an
  acquisition rate is uhfd_reads_total's over the window (HTTP rows). A row
  whose readers did not hold 97% of the rate asked for says so and is not
  met: on a busy machine uhfsim is starved too.
- CPU is utime+stime from /proc of the supervisor and every worker over the
  window, as % of one core; a worker that exits meanwhile counts through the
  supervisor's reaped-children time. RSS is VmRSS of the same processes.
- MQTT row: each side's highest rate at which 3 runs of 3 lose nothing and
  deliver at least 97% of the rate asked for over the window (both sides get
  a second's warm-up and are measured the same way), by doubling from 100,000
  reads/s and then bisecting. uhfd takes one uhfsim reader per 100,000
  reads/s (uhfsim's limit), and those readers share the machine with it. The
  ceiling is bench/mqtt_ceiling: one libmosquitto client publishing reads of
  the same JSON shape in the same batches at the same QoS.
- "Unchanged" rates: within 2% of the same readers' rate without the load,
  which is the mean of a window before the load and one after it. The run's
  loss and the reads uhfsim missed (it skips reads it could not send in time,
  as a module does) tell a slower source from a slower uhfd.
- Every row notes the load average when it began and ended: on a shared
  machine other work moves these figures more than anything uhfd does.
"""
import argparse
import os
import platform
import signal
import subprocess
import sys
import tempfile
import time
from contextlib import contextmanager
from datetime import datetime, timezone
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "gateway" / "tests"))
sys.path.insert(0, str(HERE))
import gateway_rig as rig  # noqa: E402

MQTT = {"qos": 1, "batch_size": 200, "batch_ms": 20}
UNCHANGED = 0.02  # a rate within 2% of the one without the load, either way
RATE_KEPT = 0.97  # a search run must deliver this much of the rate asked for
WINDOWS = 3  # CPU rows: windows measured back to back, the median one reported


def unchanged(ratio):
    return abs(ratio - 1) <= UNCHANGED


def log(*a):
    print(*a, file=sys.stderr, flush=True)


class Bench:
    def __init__(self, build, tmp, seconds):
        self.build, self.tmp, self.seconds = build, tmp, seconds
        self.broker = rig.BenchBroker(tmp)
        self.sub = rig.Subscriber(self.broker.port)
        self.runs = 0
        self.table, self.notes = [], []
        self.load_at_start = os.getloadavg()[0]  # of the row running: the machine is shared

    def prefix(self):
        self.runs += 1
        return f"gb{self.runs}"

    def row(self, name, measured, target, met, note=None):
        self.table.append((name, measured, target, met))
        load = f"load average {self.load_at_start:.1f} when the row began, {os.getloadavg()[0]:.1f} at its end"
        self.notes.append(f"{name}: {note}; {load}" if note else f"{name}: {load}")
        log(f"  -> {name}: {measured} (target {target}) {'met' if met else 'NOT MET'}")

    def close(self):
        self.sub.close()
        self.broker.proc.stop()


class Run:
    """One uhfd with its readers; finish() ends the stream and counts the loss."""

    def __init__(self, bench, sims, gateway):
        self.b, self.sims, self.g = bench, sims, gateway

    def delivered(self):
        return self.b.sub.delivered(self.g.prefix)

    def finish(self):
        self.sims.quiet()
        delivered = self.b.sub.wait_settled(self.g.prefix)
        sent, missed = self.sims.stop()
        return {"sent": sent, "delivered": delivered, "loss": sent - delivered, "missed": missed,
                "duplicates": self.b.sub.duplicated(self.g.prefix)}


@contextmanager
def running(b, readers, rate, tags=500, presence=None, http=False):
    sims = rig.Sims(b.build, b.tmp, readers, rate, tags)
    g = None
    try:
        g = rig.Gateway(b.build, b.tmp, sims.readers(), b.broker.port, b.prefix(), MQTT, presence, http)
        g.wait_running(b.sub)
        yield Run(b, sims, g)
    finally:
        if g:
            g.stop()
        sims.stop()


def window(b, run, seconds, during=None):
    """Rate, CPU and RSS over a window; `during` runs in it instead of a sleep."""
    meter, n0, t0 = run.g.cpu_meter(), run.delivered(), time.monotonic()
    sim_cpu0 = run.sims.cpu_seconds()
    extra = during() if during else time.sleep(seconds)
    elapsed = time.monotonic() - t0
    cpu = meter.stop()
    return {"rate": (run.delivered() - n0) / elapsed, "cpu": cpu, "rss": run.g.rss_mb(),
            "sim_cpu": 100 * (run.sims.cpu_seconds() - sim_cpu0) / elapsed, "extra": extra}


def steady(b, readers, rate, tags=500, presence=None, present=None, warm=2.0):
    """WINDOWS windows back to back: the one of median CPU, with the lowest and
    highest CPU of them all (the machine is shared, so one window can mislead),
    the most RSS seen, and the loss of the whole run."""
    with running(b, readers, rate, tags, presence) as run:
        time.sleep(warm)
        if present:
            rig.wait_for(lambda: b.sub.present(run.g.prefix) >= present, timeout=120, what=f"{present} tags present")
        ws = sorted((window(b, run, b.seconds) for _ in range(WINDOWS)), key=lambda w: w["cpu"]["total"])
        w = ws[len(ws) // 2]
        w["cpu_range"] = (ws[0]["cpu"]["total"], ws[-1]["cpu"]["total"])
        w["rss"] = max(x["rss"] for x in ws)
        w["present"] = b.sub.present(run.g.prefix)
        w["asked"] = readers * rate
        w.update(run.finish())
    return w


def short(w):
    """A warning when the readers did not hold the rate asked for (a busy machine starves them too)."""
    if w["rate"] >= RATE_KEPT * w["asked"]:
        return ""
    return f" [only {w['rate']:,.0f} of {w['asked']:,} reads/s]"


def cpu_text(w):
    c = w["cpu"]
    return f"{c['total']:.1f}% (supervisor {c['sup']:.1f}, workers {c['workers']:.1f})"


def cpu_range(w, per=1.0, digits=1):
    lo, hi = w["cpu_range"]
    return f"{lo / per:.{digits}f}-{hi / per:.{digits}f} over {WINDOWS} windows"


# ---- MQTT throughput against the plain publisher -----------------------------

def ceiling_once(b, rate, seconds):
    """As uhfd_once: a second's warm-up, then the window, the publisher going on a second past it."""
    prefix = b.prefix()
    pub = rig.Ceiling(b.build, b.broker.port, f"{prefix}/ceiling/reads", rate, seconds + 2, MQTT["batch_size"],
                      MQTT["qos"])
    time.sleep(1)
    n0, t0, sub_cpu0 = b.sub.delivered(prefix), time.monotonic(), b.sub.cpu_seconds()
    time.sleep(seconds)
    elapsed = time.monotonic() - t0
    achieved = (b.sub.delivered(prefix) - n0) / elapsed
    sub_cpu = 100 * (b.sub.cpu_seconds() - sub_cpu0) / elapsed
    sent, acked = pub.finish()
    delivered = b.sub.wait_settled(prefix)
    return {"ok": acked and delivered == sent and achieved >= RATE_KEPT * rate, "rate": achieved,
            "loss": sent - delivered, "sub_cpu": sub_cpu,
            "bytes_per_read": b.sub.delivered_bytes(prefix) / max(1, delivered)}


def uhfd_once(b, rate, seconds):
    readers, each = rig.sims_for(rate)
    with running(b, readers, each) as run:
        time.sleep(1)
        broker_cpu0 = rig.cpu_seconds(b.broker.proc.p.pid)
        w = window(b, run, seconds)
        w["broker_cpu"] = 100 * (rig.cpu_seconds(b.broker.proc.p.pid) - broker_cpu0) / seconds
        w["bytes_per_read"] = b.sub.delivered_bytes(run.g.prefix) / max(1, run.delivered())
        w.update(run.finish())
    w["ok"] = w["loss"] == 0 and w["rate"] >= RATE_KEPT * rate
    return w


def three_of_three(once, rate):
    runs = []
    for _ in range(3):
        runs.append(once(rate))
        r = runs[-1]
        again = f", {r['duplicates']} delivered twice" if r.get("duplicates") else ""
        verdict = "ok" if r["ok"] else "FAIL"
        log(f"    {rate:>9,} reads/s: delivered {r['rate']:,.0f}/s, loss {r['loss']}{again}, {verdict}")
        if not r["ok"]:
            return False, runs
    return True, runs


def highest(once, start, cap, steps=3):
    """The highest rate passing 3 of 3: doubling from start, then a few bisections."""
    best, best_runs, lo, hi, rate = 0, [], 0, None, start
    while hi is None:
        ok, runs = three_of_three(once, rate)
        if not ok:
            hi = rate
        else:
            best, best_runs, lo = rate, runs, rate
            if rate * 2 > cap:
                break
            rate *= 2
    for _ in range(steps if hi else 0):
        mid = int(round((lo + hi) / 2, -4))
        if mid in (lo, hi):
            break
        ok, runs = three_of_three(once, mid)
        if ok:
            best, best_runs, lo = mid, runs, mid
        else:
            hi = mid
    return best, best_runs, hi is None


def row_mqtt(b):
    s = min(b.seconds, 4)
    log("  the plain publisher:")
    ceiling, c_runs, c_capped = highest(lambda r: ceiling_once(b, r, s), 100_000, 6_400_000)
    log("  uhfd:")
    best, u_runs, u_capped = highest(lambda r: uhfd_once(b, r, s), 100_000, 1_600_000)
    ratio = best / ceiling if ceiling else 0
    note = (f"plain publisher {ceiling:,} reads/s{' (the search cap)' if c_capped else ''}, "
            f"uhfd {best:,} reads/s{' (the search cap)' if u_capped else ''}")
    if c_runs:
        c = c_runs[-1]
        note += f"; subscriber thread {c['sub_cpu']:.0f}% of a core at the ceiling, {c['bytes_per_read']:.0f} B/read"
    if u_runs:
        u = u_runs[-1]
        note += (f"; at uhfd's best: {cpu_text(u)}, its uhfsim readers {u['sim_cpu']:.0f}%, "
                 f"mosquitto {u['broker_cpu']:.0f}%, {u['bytes_per_read']:.0f} B/read")
    b.row("reads/s into MQTT, 0 loss in 3 of 3, vs the plain publisher", f"{ratio:.2f} ({best:,} / {ceiling:,})",
          ">= 0.6", ratio >= 0.6, note)


# ---- CPU and memory ----------------------------------------------------------------

def row_cpu_10k(b):
    w = steady(b, 1, 10_000)
    per_k = w["cpu"]["total"] / (w["rate"] / 1000)
    b.row("CPU per 1,000 reads/s at 10k/s", f"{per_k:.3f}% of a core ({cpu_range(w, w['rate'] / 1000, 3)}){short(w)}",
          "<= 0.5%", per_k <= 0.5 and not short(w),
          f"{cpu_text(w)} at {w['rate']:,.0f} reads/s, loss {w['loss']}")


def row_20_readers(b):
    w = steady(b, 20, 500)
    ok = w["cpu"]["total"] <= 15 and w["loss"] == 0 and not short(w)
    b.row("20 readers x 500 reads/s: CPU, loss",
          f"{w['cpu']['total']:.1f}% ({cpu_range(w)}), {w['loss']} lost of {w['sent']:,}{short(w)}",
          "<= 15%, 0", ok, f"{cpu_text(w)} at {w['rate']:,.0f} reads/s")


def row_10k_tags(b):
    w = steady(b, 1, 2_000, tags=10_000, presence={"depart_after": 30}, present=10_000)
    b.row("10,000 tags present at 2k reads/s: CPU", f"{w['cpu']['total']:.1f}% ({cpu_range(w)}){short(w)}", "<= 5%",
          w["cpu"]["total"] <= 5 and not short(w),
          f"{cpu_text(w)}, {w['present']:,} present (depart_after 30 s), {w['rate']:,.0f} reads/s, loss {w['loss']}; "
          f"the uhfsim reader {w['sim_cpu']:.0f}%")


def row_100k_tags(b):
    w = steady(b, 1, 10_000, tags=100_000, presence={"depart_after": 60, "max_tags": 200_000}, present=100_000)
    ok = w["cpu"]["total"] <= 10 and w["rss"] <= 100 and w["loss"] == 0 and not short(w)
    b.row("100,000 tags present at 10k reads/s: CPU, RSS, loss",
          f"{w['cpu']['total']:.1f}% ({cpu_range(w)}), {w['rss']:.0f} MB, {w['loss']} lost of {w['sent']:,}{short(w)}",
          "<= 10%, <= 100 MB, 0", ok,
          f"{cpu_text(w)}, {w['present']:,} present (max_tags 200,000, depart_after 60 s), "
          f"{w['rate']:,.0f} reads/s; the uhfsim reader {w['sim_cpu']:.0f}%")


# ---- HTTP --------------------------------------------------------------------------

def paced_gets(g, path, per_s, seconds):
    """GETs at a steady pace: (latencies in ms, requests made)."""
    lat, t0 = [], time.monotonic()
    for i in range(int(per_s * seconds)):
        delay = t0 + i / per_s - time.monotonic()
        if delay > 0:
            time.sleep(delay)
        s = time.monotonic()
        g.get(path)
        lat.append(1000 * (time.monotonic() - s))
    return lat


def p99(values):
    v = sorted(values)
    return v[min(len(v) - 1, int(0.99 * len(v)))] if v else float("nan")


def acquisition(g, seconds, during=None):
    """Reads/s per reader by uhfd_reads_total over a window; `during` replaces the sleep."""
    n0, t0 = g.reads_total(), time.monotonic()
    extra = during() if during else time.sleep(seconds)
    n1, elapsed = g.reads_total(), time.monotonic() - t0
    return {r: (n1[r] - n0[r]) / elapsed for r in n1}, extra


def normal(before, after):
    """The rate without the load: the mean of a window before it and one after,
    so that the machine's drift over the row is not charged to the load."""
    return {r: (before[r] + after.get(r, 0)) / 2 for r in before}


def kept(loaded, before, after):
    """Each reader's rate under the load as a share of its normal rate."""
    base = normal(before, after)
    return {r: loaded.get(r, 0) / v for r, v in base.items() if v}


def rates_text(before, loaded, after):
    return "; ".join(f"{r} {before[r]:.0f}/{loaded.get(r, 0):.0f}/{after.get(r, 0):.0f}" for r in sorted(before))


def source_text(end):
    return f"run loss {end['loss']}, reads the uhfsim readers missed {end['missed']}"


def row_sse(b):
    clients = 1000
    with running(b, 1, 500, http=True) as run:
        g = run.g
        time.sleep(1)
        before, base_lat = acquisition(g, b.seconds, lambda: paced_gets(g, "/metrics", 20, b.seconds))
        proc = subprocess.Popen([sys.executable, str(HERE / "sse_clients.py"), str(g.port), str(clients)],
                                stdout=subprocess.PIPE, text=True)
        t_connect = time.monotonic()
        first = proc.stdout.readline()  # "connected N", or nothing when some never got an answer
        connect_s = time.monotonic() - t_connect
        meter = g.cpu_meter()
        loaded, lat = acquisition(g, b.seconds, lambda: paced_gets(g, "/metrics", 20, b.seconds))
        cpu = meter.stop()
        stream = {k: v for k, v in g.gauges().items() if k.startswith("uhfd_http_stream")}
        proc.send_signal(signal.SIGTERM)
        last = proc.communicate(timeout=30)[0]
        after, _ = acquisition(g, b.seconds)
        end = run.finish()
    ratio = max(kept(loaded, before, after).values(), key=lambda v: abs(v - 1))
    connected = first.startswith("connected")
    ok = connected and p99(lat) < 50 and unchanged(ratio)
    b.row(f"{clients:,} event-stream clients: /metrics p99, acquisition rate",
          f"{p99(lat):.1f} ms, {ratio:.1%} of without" + ("" if connected else " (not all clients answered)"),
          "< 50 ms, unchanged", ok,
          f"/metrics p99 {p99(base_lat):.1f} ms without the clients; uhfd CPU with them "
          f"{cpu['total']:.0f}% (supervisor {cpu['sup']:.0f}); clients connected in {connect_s:.1f} s; "
          f"{last.strip()}; " + ", ".join(f"{k} {v:g}" for k, v in stream.items()) +
          f"; 1 reader at 500 reads/s, reads/s before/with/after {rates_text(before, loaded, after)}; "
          + source_text(end))


def row_details(b):
    seconds = 2 * b.seconds
    with running(b, 4, 500, http=True) as run:
        g = run.g
        time.sleep(1)
        before, _ = acquisition(g, seconds)
        loaded, lat = acquisition(g, seconds, lambda: paced_gets(g, "/api/v1/readers/r0", 100, seconds))
        after, _ = acquisition(g, seconds)
        end = run.finish()
    ratios = kept(loaded, before, after)
    worst = min(ratios.values())
    b.row(f"GET /api/v1/readers/NAME 100/s for {seconds:.0f} s: acquisition of every reader",
          f"lowest {worst:.1%} of normal", ">= 95% of normal", worst >= 0.95,
          f"4 readers x 500 reads/s; GET p99 {p99(lat):.1f} ms, {len(lat) / seconds:.0f} requests/s made; "
          f"reads/s before/with/after {rates_text(before, loaded, after)}; " + source_text(end))


# ---- reconnects ----------------------------------------------------------------------

def reconnect_once(run, sub):
    before = run.g.worker("r0")
    seen = sub.statuses(run.g.prefix, "r0").count("running")
    os.kill(before, signal.SIGKILL)
    rig.wait_for(lambda: sub.statuses(run.g.prefix, "r0").count("running") > seen and
                 run.g.worker("r0") not in (None, before), timeout=60, what="r0 running again")


def others_rate(b, run, others, seconds=None, during=None):
    """Reads/s of some readers at the subscriber over a sleep or over `during`: (rate, what during returned)."""
    count = lambda: sum(b.sub.per_reader(run.g.prefix).get(r, 0) for r in others)  # noqa: E731
    n0, t0 = count(), time.monotonic()
    extra = during() if during else time.sleep(seconds)
    return (count() - n0) / (time.monotonic() - t0), extra


def row_reconnect(b, times=100, limit_s=300):
    others = ("r1", "r2", "r3")
    with running(b, 4, 500) as run:
        time.sleep(1)
        before, _ = others_rate(b, run, others, b.seconds)
        fds0 = rig.open_fds(run.g.pid)
        t0 = time.monotonic()

        def reconnects():
            done, fds_max = 0, 0
            while done < times and time.monotonic() - t0 < limit_s:
                reconnect_once(run, b.sub)
                fds_max = max(fds_max, rig.open_fds(run.g.pid))
                done += 1
            return done, fds_max

        during, (done, fds_max) = others_rate(b, run, others, during=reconnects)
        took = time.monotonic() - t0
        fds1 = rig.open_fds(run.g.pid)
        after, _ = others_rate(b, run, others, b.seconds)
        end = run.finish()
    ratio = during / ((before + after) / 2)
    ok = done == times and unchanged(ratio) and fds1 <= fds0
    b.row(f"reconnect one reader {times} times: others' reads, supervisor descriptors",
          f"{ratio:.1%} of without, {fds0} -> {fds1} descriptors" + ("" if done == times else f" ({done} done)"),
          "unchanged, flat", ok,
          f"{done} SIGKILLs of r0's worker, each waited for until r0 runs again, took {took:.0f} s; "
          f"most descriptors meanwhile {fds_max}; 4 readers x 500 reads/s, the other three's reads/s "
          f"before/during/after {before:.0f}/{during:.0f}/{after:.0f}; reads the uhfsim readers missed {end['missed']}")


ROWS = {1: row_mqtt, 2: row_cpu_10k, 3: row_20_readers, 4: row_10k_tags, 5: row_100k_tags, 6: row_sse,
        7: row_details, 8: row_reconnect}


def machine():
    model = next((line.split(":", 1)[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                  if line.startswith("model name")), platform.machine())
    return f"{model}, {os.cpu_count()} cores, Linux {platform.release()}"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("build", nargs="?", default=str(HERE.parent / "build" / "release"), help="the build directory")
    ap.add_argument("--rows", default=",".join(map(str, ROWS)), help="rows to run, e.g. 2,3 (default all)")
    ap.add_argument("--seconds", type=float, default=10.0, help="the measured window (default 10)")
    a = ap.parse_args()
    build = Path(a.build).resolve()
    for exe in ("gateway/uhfd", "sim/uhfsim", "bench/mqtt_ceiling"):
        if not (build / exe).exists():
            sys.exit(f"gateway_bench: {build / exe} is missing (build uhfd, uhfsim and mqtt_ceiling)")
    started = time.monotonic()
    load0 = os.getloadavg()[0]
    log(f"{datetime.now(timezone.utc):%Y-%m-%d %H:%M} UTC; {machine()}; load average {load0:.2f}; {build}")
    with tempfile.TemporaryDirectory() as tmp:
        b = Bench(build, Path(tmp), a.seconds)
        try:
            for n in (int(x) for x in a.rows.split(",")):
                b.load_at_start = os.getloadavg()[0]
                log(f"row {n}: {ROWS[n].__name__} (load average {b.load_at_start:.2f})")
                t = time.monotonic()
                try:
                    ROWS[n](b)
                except rig.NoHttp as e:
                    b.row(f"row {n} ({ROWS[n].__name__[4:]})", f"not measured: {e}", "-", False)
                except Exception as e:  # one row that breaks does not cost the others
                    b.row(f"row {n} ({ROWS[n].__name__[4:]})", f"not measured: {type(e).__name__}: {e}", "-", False)
                log(f"  ({time.monotonic() - t:.0f} s)")
        finally:
            b.close()
    print(f"\n{datetime.now(timezone.utc):%Y-%m-%d} - {machine()} - load average {load0:.2f} at the start, "
          f"{os.getloadavg()[0]:.2f} at the end - {time.monotonic() - started:.0f} s\n")
    print("| row | measured | target | met |\n|---|---|---|---|")
    for name, measured, target, met in b.table:
        print(f"| {name} | {measured} | {target} | {'yes' if met else 'no'} |")
    if b.notes:
        print()
        for n in b.notes:
            print(f"- {n}")


if __name__ == "__main__":
    main()
