"""uhfd's configuration as its users meet it: broken files given to
`uhfd --check-config` and to start-up, each refused with the same message
and exit 2."""
import json
import subprocess

import pytest

from uhfd_harness import BUILD, ROOT

UHFD = BUILD / "gateway" / "uhfd"
READER = {"name": "a", "uri": "sim"}


def conf(**sections):
    return json.dumps({"readers": [READER], **sections})


def settings(**values):
    return json.dumps({"readers": [{**READER, "settings": values}]})


# (file text, extra arguments, what the refusal says after "FILE: ")
BROKEN = [
    (conf(mqqt={}), [], "mqqt: unknown key (known: readers, mqtt, http, presence, jsonl, state_dir, outbox_max_mb, webhook, llrp)"),
    (conf(mqtt={"hots": "x"}), [], "mqtt.hots: unknown key (known: host, port, prefix, qos, user, password,"),
    (json.dumps({"readers": [{**READER, "url": "sim"}]}), [], "readers[0].url: unknown key (known: name, uri, settings, llrp)"),
    (json.dumps({"readers": [{**READER, "llrp": {"port": 0}}]}), [], "readers[0].llrp.port: must be 1..65535"),
    (json.dumps({"readers": [{**READER, "llrp": {"antennas": 17}}]}), [], "readers[0].llrp.antennas: must be 1..16"),
    (json.dumps({"readers": [{**READER, "llrp": {"port": 5085}}, {"name": "b", "uri": "sim", "llrp": {"port": 5085}}]}),
     [], "llrp: port 5085 is both a's and b's LLRP port"),
    (json.dumps({"readers": [READER, {"name": "b", "uri": "sim"}], "llrp": {"port": 65535}}), [],
     "llrp: b's LLRP port would be 65536"),
    (settings(colour=1), [], "readers[0].settings.colour: unknown key (known: power, antennas, region,"),
    (conf(http={"tokn": "x"}), [], "http.tokn: unknown key (known: bind, port, token, names)"),
    (conf(presence={"depart": 1}), [], "presence.depart: unknown key (known: depart_after,"),
    (settings(power=4294967297), [], "readers[0].settings.power: must be 1..30 dBm"),
    (settings(power=True), [], "readers[0].settings.power: must be a whole number, not true"),
    (settings(power=20.5), [], "readers[0].settings.power: must be a whole number, not 20.5"),
    (settings(antennas=[1, -18446744073709551615]), [], "readers[0].settings.antennas[1]: must be 1..16"),
    (settings(antennas=[]), [], "readers[0].settings.antennas: give at least one"),
    (settings(region="mars"), [], "readers[0].settings.region: must be one of fcc, etsi, china-920, china-840"),
    (conf(mqtt=5), [], "mqtt: must be a JSON object, not 5"),
    (conf(mqtt={"host": 5}), [], "mqtt.host: must be a string, not 5"),
    (conf(mqtt={"port": 65536}), [], "mqtt.port: must be 1..65535"),
    (conf(outbox_max_mb=0), [], "outbox_max_mb: must be 0.001..100000 MB"),
    (conf(webhook={"url": "ftp://x"}), [], "webhook.url: give an http:// or https:// URL"),
    (conf(mqtt={"prefix": "plant/#"}), [], "mqtt.prefix: no '+' or '#' (MQTT wildcards)"),
    (conf(mqtt={"prefix": "plant//rfid"}), [], "mqtt.prefix: no empty levels"),
    (conf(mqtt={"prefix": "a\0b"}), [], "mqtt.prefix: no NUL characters"),
    (conf(mqtt={"prefix": "p" * 257}), [], "mqtt.prefix: at most 256 bytes"),
    (conf(http={"port": -1}), [], "http.port: must be 0..65535"),
    (conf(http={"names": "gw.example"}), [], 'http.names: must be an array, not "gw.example"'),
    (conf(http={"names": ["gw.example", "gw example"]}), [], 'http.names[1]: "gw example" is not a host name'),
    (conf(http={"token": "two words"}), [], "http.token: use visible ASCII characters, no spaces"),
    (conf(presence={"depart_after": 0}), [], "presence.depart_after: must be 0.001..86400 s"),
    (conf(presence={"rssi_floor": -121}), [], "presence.rssi_floor: must be -120..0 dBm"),
    (conf(presence={"epc_prefix": "E2G"}), [], "presence.epc_prefix: must be hex digits"),
    ("{}", [], "readers: give at least one reader"),
    ('{"readers": [], "readers": [{"name": "a", "uri": "sim"}]}', [], "readers: given twice"),
    ('{"readers": [{"name": "a", "uri": "sim"}, {"name": "b", "uri": "sim", "settings": {"q": 4, "q": 5}}]}', [],
     "readers[1].settings.q: given twice"),
    ("[]", [], "must be a JSON object, not an array"),
    (json.dumps({"readers": [{"name": "a b", "uri": "sim"}]}), [], "readers[0].name: give a name without spaces"),
    (json.dumps({"readers": [READER, READER]}), [], "readers[1].name: a is used twice"),
    (json.dumps({"readers": [{"name": f"r{i}", "uri": "sim"} for i in range(65)]}), [], "readers: at most 64 readers"),
    (json.dumps({"readers": [{"name": "a"}]}), [], "readers[0].uri: missing"),
    (json.dumps({"readers": [{"name": "sim", "uri": "sim"}]}), ["--sim"], "readers[0].name: sim is the name of --sim's"),
    ('{\n  "readers": [\n    {"näme": "a", x', [], "line 3, column 19: syntax error while parsing object key"),
    ('{\n  "readers": [\n    {"name": "a", "uri": ', [], "line 3, column 26: syntax error while parsing value - "
     "unexpected end of input"),
    ('{"readers": [\n {"name": "a", "uri": "sim", "settings": {"power": 1e400}}]}', [],
     "line 2, column 52: number overflow parsing '1e400'"),
]


def run(*args):
    return subprocess.run([UHFD, *map(str, args)], capture_output=True, text=True, timeout=20)


@pytest.mark.parametrize("text,args,message", BROKEN, ids=[m[:40] for _, _, m in BROKEN])
def test_a_broken_file_is_refused_the_same_way_by_the_check_and_at_start_up(tmp_path, text, args, message):
    path = tmp_path / "uhfd.json"
    path.write_text(text)
    check, start = run("--check-config", path, *args), run("-c", path, "--http", "127.0.0.1:0", *args)
    assert (check.returncode, start.returncode) == (2, 2)
    assert f"uhfd: {path}: {message}" in check.stderr
    assert start.stderr == check.stderr


GOOD = [((ROOT / "gateway" / "uhfd.example.json").read_text(), [], 3), ("{}", ["--sim"], 1)]


@pytest.mark.parametrize("text,args,readers", GOOD)
def test_a_good_file_passes(tmp_path, text, args, readers):
    path = tmp_path / "uhfd.json"
    path.write_text(text)
    check = run("--check-config", path, *args)
    assert (check.returncode, check.stdout) == (0, f"{path}: {readers} readers, good\n")
