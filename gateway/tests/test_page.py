"""The web page in a real headless Chromium against a real uhfd; page_check.mjs drives the page."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from uhfd_harness import Uhfd

HERE = Path(__file__).resolve().parent


@pytest.mark.skipif(not os.access("/usr/bin/chromium", os.X_OK) or not shutil.which("node"),
                    reason="needs Debian's chromium and Node.js (scripts/deps installs both)")
def test_the_page_live_settings_token_and_phone_layout(tmp_path, broker):
    assert (HERE / "node_modules" / "puppeteer-core").is_dir(), "run scripts/deps: it installs puppeteer-core"
    g = Uhfd(tmp_path, {"readers": [{"name": "sim", "uri": "sim:5"}], "http": {"token": "t0k"},
                        "presence": {"depart_after": 2}, "mqtt": {"host": "127.0.0.1", "port": broker.port}})
    try:
        run = subprocess.run(["node", HERE / "page_check.mjs", g.url + "/", tmp_path, "t0k"],
                             capture_output=True, text=True, timeout=240)
        assert run.returncode == 0, run.stdout + run.stderr
        # What the page set reached the reader, and the page started it again.
        details = g.json("/api/v1/readers/sim")
        assert details["settings"]["power"] == 20 and details["state"] == "running"
        shots = [Path(line[len("screenshot: "):]) for line in run.stdout.splitlines() if line.startswith("screenshot: ")]
        print("\n".join(map(str, shots)))
        assert len(shots) == 2 and all(s.read_bytes()[:8] == b"\x89PNG\r\n\x1a\n" for s in shots), shots
    finally:
        g.proc.stop()
