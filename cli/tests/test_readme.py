"""The README's uhfctl walkthrough runs as printed against a uhfsim process."""
import os
import re
import subprocess

from conftest import ROOT, UHFCTL


def walkthrough():
    text = (ROOT / "README.md").read_text()
    block = text.split("## Using uhfctl", 1)[1].split("```sh", 1)[1].split("```", 1)[0]
    return [line for line in block.splitlines() if line.startswith("uhfctl ") and line != "uhfctl demo"]


def test_the_walkthrough_against_a_virtual_reader(sim, tmp_path):
    reader = sim()
    env = dict(os.environ, UHF_READER="tcp:" + reader.where,
               PATH=os.path.dirname(UHFCTL) + os.pathsep + os.environ["PATH"])
    out = {}
    for line in walkthrough():  # demo is left out: its own reader, for 10 s
        r = subprocess.run(line, shell=True, capture_output=True, text=True, env=env, cwd=tmp_path, timeout=60)
        assert r.returncode == 0, (line, r.stderr)
        out[" ".join(line.split()[1:3])] = r.stdout
    # Each run is a new connection to the same reader: what one saved or
    # wrote, the next one reads.
    assert re.search(r"\b25/25\b", out["get power"])
    assert "1234ABCD" in out["read user"]
    assert (tmp_path / "tags.jsonl").read_text().count('"epc"') > 0
