#!/usr/bin/env python3
"""uhfd's LLRP endpoint under load, each row beside its target.

    bench/llrp_bench.py [BUILD_DIR] [--seconds S] [--rate R]

BUILD_DIR (default build/release) gives uhfd, uhfsim and llrp_client. One
uhfsim reader (200 tags) behind one uhfd with an LLRP port; bench/llrp_client
is the LLRP client: it adds and enables one ROSpec (immediate start, all
antennas, a duration longer than the run) and reads as fast as the socket
gives.
- Throughput: the reader's field is empty while the ROSpec starts; then the
  tags are loaded (SIGHUP), stream at R reads/s (default 60,000) for S seconds
  (default 10), and the field is emptied again before the ROSpec ends, so
  every read the reader sent falls inside the ROSpec. Loss is the reads uhfsim
  says it sent minus the seen counts the client was reported (reports every
  100 tags). uhfd's CPU (supervisor and worker) is over the same window.
- Latency: 1,000 reads/s, a report per tag (N = 1); from a read's last-seen
  time (given when the worker takes it from the library, in whole ms) to the
  report's arrival at the client, so up to 1 ms of it is that rounding.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "gateway" / "tests"))
sys.path.insert(0, str(HERE))
import gateway_rig as rig  # noqa: E402


def log(text):
    print(text, flush=True)


class Rig:
    def __init__(self, build, tmp, rate):
        tmp.mkdir()
        self.build, self.http, self.llrp = build, rig.free_port(), rig.free_port()
        self.sims = rig.Sims(build, tmp, 1, rate, 200)
        self.full = self.sims.tags.read_text()
        self.sims.quiet()
        config = {"readers": self.sims.readers(), "http": {"port": self.http}, "state_dir": str(tmp / "state")}
        (tmp / "uhfd.json").write_text(json.dumps(config))
        self.uhfd = subprocess.Popen([str(build / "gateway" / "uhfd"), "-c", str(tmp / "uhfd.json"),
                                      "--llrp", str(self.llrp)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        rig.wait_for(lambda: self.state() == "running", 30, "the reader to run")

    def state(self):
        try:
            import urllib.request
            with urllib.request.urlopen(f"http://127.0.0.1:{self.http}/api/v1/readers/r0", timeout=5) as r:
                return json.loads(r.read()).get("state")
        except OSError:
            return None

    def field(self, on):
        self.sims.tags.write_text(self.full if on else '{"tags": []}')
        for p in self.sims.procs:
            p.p.send_signal(1)  # SIGHUP: uhfsim reloads its tags

    def client(self, seconds, n):
        return subprocess.Popen([str(self.build / "bench" / "llrp_client"), str(self.llrp), str(seconds), str(n)],
                                stdout=subprocess.PIPE, text=True)

    def cpu(self):
        return rig.cpu_seconds(self.uhfd.pid, reaped=True) + sum(rig.cpu_seconds(c) for c in rig.children(self.uhfd.pid))

    def stop(self):
        self.uhfd.terminate()
        self.uhfd.wait(20)
        return self.sims.stop()


def throughput(build, tmp, rate, seconds):
    r = Rig(build, tmp, rate)
    client = r.client(seconds + 4, 100)
    time.sleep(1.0)  # the ROSpec is active, the field still empty
    cpu0, t0 = r.cpu(), time.monotonic()
    r.field(True)
    time.sleep(seconds)
    r.field(False)
    cpu = (r.cpu() - cpu0) / (time.monotonic() - t0) * 100
    got = json.loads(client.communicate(timeout=seconds + 30)[0])
    sent, missed = r.stop()
    return sent, missed, got, cpu


def latency(build, tmp, seconds):
    r = Rig(build, tmp, 1000)
    r.field(True)
    got = json.loads(r.client(seconds, 1).communicate(timeout=seconds + 30)[0])
    r.stop()
    return got


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("build", nargs="?", default=str(HERE.parent / "build" / "release"))
    ap.add_argument("--seconds", type=float, default=10.0)
    ap.add_argument("--rate", type=int, default=60_000)
    a = ap.parse_args()
    build = Path(a.build).resolve()
    for exe in ("gateway/uhfd", "sim/uhfsim", "bench/llrp_client"):
        if not (build / exe).exists():
            sys.exit(f"llrp_bench: {build / exe} is missing (build uhfd, uhfsim and llrp_client)")
    log(f"{time.strftime('%Y-%m-%d %H:%M', time.gmtime())} UTC; load average {os.getloadavg()[0]:.2f}; {build}")
    with tempfile.TemporaryDirectory() as tmp:
        sent, missed, got, cpu = throughput(build, Path(tmp) / "t", a.rate, a.seconds)
        rate = got["tags"] / a.seconds
        log(f"throughput: {got['tags']:,} tags reported of {sent:,} sent ({missed:,} uhfsim could not send) in "
            f"{got['reports']:,} reports: {rate:,.0f}/s, lost {sent - got['tags']:,}; uhfd {cpu:.1f}% of a core"
            f"  [target >= 50,000/s, 0 lost: {'met' if rate >= 50_000 and sent == got['tags'] else 'NOT met'}]")
        lat = latency(build, Path(tmp) / "l", a.seconds)
        log(f"latency, a report per tag at 1,000/s: p50 {lat['p50_ms']:.2f} ms, p99 {lat['p99_ms']:.2f} ms over "
            f"{lat['tag_datas']:,} reports  [target p50 <= 5 ms: {'met' if lat['p50_ms'] <= 5 else 'NOT met'}]")
    log(f"load average at the end {os.getloadavg()[0]:.2f}")


if __name__ == "__main__":
    main()
