"""Usage errors exit 2 with a message that names the problem; --help and --version."""
import re
import subprocess
from pathlib import Path

import pytest

from conftest import UHFCTL, UHFSIM, uhfctl

USAGE = [
    ([], "subcommand"),
    (["frobnicate"], "frobnicate"),
    (["--sim", "inventory", "--duration", "-1"],
     "uhfctl: inventory: --duration: must be more than 0 seconds, not -1 (uhfctl inventory --help)"),
    (["--sim", "get"], "uhfctl: get: name is required (uhfctl get --help)"),
    (["--serial", "/dev/null@1234", "info"], "baud rate must be one of"),
    (["info"], "no reader given"),
    (["--sim", "raw", "0x100"], "code must be 0..255"),
    (["--sim", "get", "colour"], "get colour: no such setting"),
    (["--sim", "set", "hardware", "1"], "set hardware: read-only"),
    (["--sim", "set", "ip", "1.2.3"], "1.2.3: expected A.B.C.D[:PORT]"),
    (["--sim", "read", "tid", "0", "2", "--epc", "E2", "--filter", "tid:0:8:E2"], "give --epc or --filter, not both"),
    (["--sim", "read", "tid", "0", "2", "--filter", "tid:0:16:E2"], "--filter takes BANK:BITADDR:BITLEN:HEX"),
    (["--sim", "read", "flash", "0", "2"], "flash: the banks are"),
    (["--sim", "kill", "-p", "0BADCAFE"], "name the tag with --epc or --filter"),
    (["--sim"] * 21 + ["links"], "at most 20 readers"),
    (["--sim", "sensor", "log", "start", "--min", "30", "--max", "2"], "--min is above --max"),
    (["--sim", "sensor", "temp"], "--epc is required"),
    (["--sim", "sensor", "temp", "--epc", "00112233445566778899AABBCCDDEEFF00"], "1..16 bytes"),
]


@pytest.mark.parametrize("args,message", USAGE, ids=[" ".join(a[-3:]) for a, _ in USAGE])
def test_usage_error_exits_two_with_a_message(args, message):
    r = uhfctl(*args)
    assert (r.returncode, r.stdout) == (2, ""), r.stderr
    assert message in r.stderr


def test_help_lists_exit_codes_and_the_environment_variable():
    out = uhfctl("--help").stdout
    assert "0 ok, 1 the reader reported a failure, 2 usage, 3 connection" in out and "UHF_READER" in out


def test_version_names_tool_and_library():
    r = uhfctl("--version")
    assert r.returncode == 0 and r.stdout.startswith("uhfctl ")
    assert "(commit " in r.stdout and "libuhfhost.so.1" in r.stdout


@pytest.mark.parametrize("tool,page", [(UHFCTL, "uhfctl.1"), (UHFSIM, "uhfsim.1"), ("../gateway/uhfd", "uhfd.8")])
def test_man_page_examples_one_a_line_and_no_stray_version(tool, page):
    path, tool = Path(UHFCTL).parent / page, Path(UHFCTL).parent / tool
    if not path.exists() or not tool.exists():
        pytest.skip("built without help2man or without " + tool.name)
    roff = path.read_text()
    shown = roff.split(".SH EXAMPLES\n")[1].split(".SH")[0].replace("\\&", "").replace("\\-", "-")
    printed = re.search(r"^Examples:\n((?:  .*\n)+)", help_of(tool), re.M).group(1)
    assert [line.split() for line in shown.splitlines()[1:-1]] == [line.split() for line in printed.splitlines()]
    assert not re.search(r"libuhfhost \d", roff)


def help_of(tool):
    return subprocess.run([tool, "--help"], capture_output=True, text=True).stdout
