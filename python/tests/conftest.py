"""uhfsim on a free loopback port and the library of the build under test."""
import json
import os
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("UHF_BUILD_DIR", ROOT / "build" / "dev"))
TAGS = ROOT / "sim" / "examples" / "tags.json"
os.environ.setdefault("UHFHOST_LIBRARY", str(BUILD / "source" / "libuhfhost.so.1"))
sys.path.insert(0, str(ROOT / "python"))


@pytest.fixture
def start_sim():
    """Starts uhfsim on a free loopback port, logging each request it answers; returns
    (process, 'tcp:HOST:PORT'). Every one started is stopped after the test."""
    procs = []

    def start(*args):
        args = args or ("--tags", str(TAGS))
        proc = subprocess.Popen([str(BUILD / "sim" / "uhfsim"), "--tcp", "127.0.0.1:0", "--verbose", *args],
                                stdout=subprocess.PIPE, text=True)
        procs.append(proc)
        line = proc.stdout.readline()
        assert line.startswith("tcp "), line
        return proc, "tcp:" + line.split()[1]

    yield start
    for proc in procs:
        proc.terminate()
        proc.wait(10)


@pytest.fixture
def sim_proc(start_sim):
    return start_sim()


@pytest.fixture
def sim(sim_proc):
    return sim_proc[1]


@pytest.fixture
def reader(sim):
    import uhfhost

    with uhfhost.open(sim) as r:
        yield r


@pytest.fixture
def field():
    return [t["epc"].replace(" ", "").upper() for t in json.loads(TAGS.read_text())["tags"]]
