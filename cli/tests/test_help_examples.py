"""Every example of every --help runs as printed against --sim, with the exit code it documents."""
import os
import re
import signal
import subprocess

import pytest

from conftest import UHFCTL, uhfctl
from test_lifecycle import image


def helps(*path):
    text = uhfctl(*path, "--help").stdout
    subs = text.split("Subcommands:\n", 1)[1].split("\n\n")[0] if "Subcommands:" in text else ""
    return [text] + [h for sub in re.findall(r"^  ([a-z][a-z0-9-]*)", subs, re.M) for h in helps(*path, sub)]


EXAMPLE = re.compile(r"^ +((?:UHF_READER=\S+ )?uhfctl \S.*?)(?: {2,}(.*))?$", re.M)
EXAMPLES = sorted({m.groups("") for text in helps() for m in EXAMPLE.finditer(text)})


@pytest.mark.parametrize("line,note", EXAMPLES, ids=[line for line, _ in EXAMPLES])
def test_example_runs_against_the_virtual_reader(tmp_path, line, note):
    # Real readers become the virtual one; a run that lasts until Ctrl-C gets one.
    env = dict(os.environ, UHF_READER="sim") if line.startswith("UHF_READER=") else None
    cmd = re.sub(r"--(tcp|serial) \S+|--usb", "--sim", line[line.index("uhfctl") + 6:])
    (tmp_path / "firmware.bin").write_bytes(image((3, 0, 0), bytes(1000)))
    p = subprocess.Popen(f"exec {UHFCTL} {cmd}", shell=True, cwd=tmp_path, env=env, stderr=subprocess.PIPE, text=True)
    try:
        p.wait(4)
    except subprocess.TimeoutExpired:
        p.send_signal(signal.SIGINT)
    assert p.wait(30) == int((re.findall(r"exit (\d)", note) or [0])[0]), p.stderr.read()
