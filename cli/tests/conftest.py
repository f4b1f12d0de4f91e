"""uhfctl and uhfsim of the build under test, run as child processes."""
import json
import os
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("UHF_BUILD_DIR", ROOT / "build" / "dev"))
UHFCTL = os.environ.get("UHFCTL", str(BUILD / "cli" / "uhfctl"))
UHFSIM = os.environ.get("UHFSIM", str(BUILD / "sim" / "uhfsim"))


def uhfctl(*args, env=None):
    """uhfctl with UHF_READER unset unless env sets it; the timeout only guards the suite."""
    e = {k: v for k, v in os.environ.items() if k != "UHF_READER"}
    e.update(env or {})
    return subprocess.run([UHFCTL, *args], capture_output=True, text=True, env=e, timeout=60)


def json_lines(text):
    return [json.loads(line) for line in text.splitlines() if line]


class Sim:
    """A uhfsim on a free loopback port (or a pty) that logs every request it answers."""

    def __init__(self, *args, pty=False, at="127.0.0.1:0"):
        where = ["--pty"] if pty else ["--tcp", at]
        self.p = subprocess.Popen([UHFSIM, *where, "--verbose", *map(str, args)], stdout=subprocess.PIPE, text=True)
        kind, self.where = self.p.stdout.readline().split()
        self.option = ["--serial", self.where] if kind == "pty" else ["--tcp", self.where]
        self.log = None

    def ctl(self, *args):
        return uhfctl(*self.option, *args)

    def stop(self):
        """Ends the reader; the request log, one line per request ("0x8C stop inventory: ...")."""
        if self.log is None:
            self.p.terminate()
            self.log = self.p.communicate(timeout=15)[0]
        return self.log

    def count(self, code):
        return sum(line.startswith(code + " ") for line in self.stop().splitlines())


@pytest.fixture
def sim():
    made = []

    def make(*args, **kw):
        made.append(Sim(*args, **kw))
        return made[-1]

    yield make
    for s in made:
        s.stop()


@pytest.fixture
def tag_file(tmp_path):
    """A tag file of these tags (dicts, or EPCs for tags seen on antenna 1)."""

    def write(*tags):
        path = tmp_path / "tags.json"
        tags = [t if isinstance(t, dict) else {"epc": t, "rssi": {"1": -55.0}} for t in tags]
        path.write_text(json.dumps({"tags": tags}))
        return path

    return write
