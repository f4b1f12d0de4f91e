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
    yield text
    subs = text.split("Subcommands:\n", 1)[1].split("\n\n")[0] if "Subcommands:" in text else ""
    for sub in re.findall(r"^  ([a-z][a-z0-9-]*)", subs, re.M):
        yield from helps(*path, sub)


EXAMPLE = re.compile(r"^ +((?:UHF_READER=\S+ )?uhfctl \S.*?)(?: {2,}(.*))?$", re.M)
EXAMPLES = sorted({m.groups("") for text in helps() for m in EXAMPLE.finditer(text)})


@pytest.mark.parametrize("line,note", EXAMPLES, ids=[line for line, _ in EXAMPLES])
def test_example_runs_against_the_virtual_reader(tmp_path, line, note):
    # Real readers become the virtual one; runs that last until Ctrl-C get one.
    env = dict(os.environ, UHF_READER="sim") if line.startswith("UHF_READER=") else None
    cmd = "exec " + re.sub(r"--(tcp|serial) \S+|--usb", "--sim", line[line.index("uhfctl"):]).replace("uhfctl", UHFCTL, 1)
    (tmp_path / "firmware.bin").write_bytes(image((3, 0, 0), bytes(1000)))
    p = subprocess.Popen(cmd, shell=True, cwd=tmp_path, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        p.wait(4)
    except subprocess.TimeoutExpired:
        p.send_signal(signal.SIGINT)
    expected = int(re.search(r"exit (\d)", note).group(1)) if "exit" in note else 0
    assert p.wait(30) == expected, p.stderr.read()
