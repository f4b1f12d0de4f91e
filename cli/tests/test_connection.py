"""How readers are named and opened, and the exit code 3 messages when they cannot be."""
import json
import socket

import pytest

from conftest import uhfctl


def loopback(listening):
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    if listening:
        s.listen()  # the kernel accepts into the backlog; nobody answers
    return s, "127.0.0.1:%d" % s.getsockname()[1]


@pytest.mark.parametrize("listening,message", [
    (False, "tcp {} refused the connection"),
    (True, "no reply from tcp {} within 1.5 s: check address, port and power"),
])
def test_unreachable_tcp_reader_exits_three_naming_it(listening, message):
    s, where = loopback(listening)
    with s:
        r = uhfctl("--tcp", where, "info")
    assert r.returncode == 3 and message.format(where) in r.stderr, r.stderr


@pytest.mark.parametrize("args,message", [
    (["--serial", "/dev/uhfctl-no-such-port@9600"], "cannot open serial /dev/uhfctl-no-such-port@9600"),
    (["--usb"], "no USB reader (HID 2047:0301) is plugged in"),  # the test machines have none
])
def test_missing_port_or_device_exits_three(args, message):
    r = uhfctl(*args, "info")
    assert r.returncode == 3 and message in r.stderr, r.stderr


@pytest.mark.parametrize("form", ["tcp:127.0.0.1:{}", "tcp:localhost:{}", ",tcp:127.0.0.1:{},"])
def test_uhf_reader_names_the_reader(sim, form):
    s = sim("--random-tags", 2)
    r = uhfctl("get", "device-id", env={"UHF_READER": form.format(s.where.split(":")[1])})
    assert r.returncode == 0 and "device-id" in r.stdout, r.stderr


def test_options_win_over_the_environment():
    assert uhfctl("--sim", "get", "device-id", env={"UHF_READER": "tcp:127.0.0.1:1"}).returncode == 0


def test_serial_over_a_pseudo_terminal(sim):
    s = sim("--random-tags", 3, pty=True)
    r = uhfctl("--serial", s.where + "@115200", "info", "--format", "json")
    assert r.returncode == 0, r.stderr
    info = json.loads(r.stdout)
    assert (info["reader"], info["hardware"]) == (f"serial {s.where}@115200", "V1.2.0")


def test_links_json_is_one_object_per_line():
    r = uhfctl("--sim", "--sim", "links", "--format", "json")
    assert [json.loads(line)["connected"] for line in r.stdout.splitlines()] == [True, True]
