"""uhfd's HTTP front against careless and hostile clients: real uhfd processes
on free loopback ports, requests sent as raw bytes so every header is ours.
Which names, bytes and tokens pass is tabled in unit/http_guard_test.cpp;
here each check is shown to guard the requests it must."""
import os
import re
import selectors
import socket
import subprocess
import threading

import pytest

from uhfd_harness import BUILD, Uhfd, free_port, wait_for

TOKEN = "s3cret-token"
AUTH = f"Authorization: Bearer {TOKEN}"
START = "POST /api/v1/readers/sim/inventory/start"
SETTINGS = "PUT /api/v1/readers/sim/settings"
NO_HOST = "(no Host header)"


@pytest.fixture(scope="module")
def gateway(tmp_path_factory):
    tmp = tmp_path_factory.mktemp("http")
    (tmp / "token").write_text(f"  {TOKEN}  \nnot this line\n")
    g = Uhfd(tmp, {"readers": [{"name": "sim", "uri": "sim:5"}], "http": {"names": ["uhfd.example"]}},
             "--token-file", tmp / "token")
    yield g
    g.proc.stop()


def status_of(port, request_line, headers, body=b""):
    """The status code of the answer to these bytes; Host names 127.0.0.1 unless a header gives one."""
    if not any(h.lower().startswith("host:") for h in headers) and NO_HOST not in headers:
        headers = ["Host: 127.0.0.1", *headers]
    if body and not any(h.lower().startswith("content-length") for h in headers):
        headers = [*headers, f"Content-Length: {len(body)}"]
    head = "".join(f"{h}\r\n" for h in headers if h != NO_HOST)
    data = f"{request_line} HTTP/1.1\r\n{head}Connection: close\r\n\r\n".encode("latin-1") + body
    with socket.create_connection(("127.0.0.1", port), timeout=20) as s:
        s.sendall(data)
        answer = s.recv(4096)
    return int(re.match(rb"HTTP/1\.1 (\d{3}) ", answer).group(1))


RAW = [
    ("64 headers at most", "GET /api/v1/readers", [f"X-N{i}: 1" for i in range(65)], b"", 431),
    ("8 KB of headers at most", "GET /api/v1/readers", ["X-Big: " + "a" * 9000], b"", 431),
    ("100 KB of headers", "GET /api/v1/readers", [f"X-N{i}: " + "a" * 1000 for i in range(100)], b"", 431),
    ("64 KB of body at most", SETTINGS, [AUTH, "Content-Length: 70000"], b"", 413),
    ("%FF as a reader's name", "GET /api/v1/readers/%FF", [], b"", 400),
    ("%FF as the reader of a write", "PUT /api/v1/readers/%FF/settings", [AUTH], b"{}", 400),
    ("bad UTF-8 in the query", "GET /api/v1/tags?q=%FF", [], b"", 400),
    ("bad UTF-8 in a header", "GET /api/v1/readers", ["X-Name: caf\xe9"], b"", 400),
    ("bad UTF-8 in the body", START, [AUTH], b"\xff", 400),
    ("no Host", "GET /api/v1/readers", [NO_HOST], b"", 421),
    ("another site's name in Host", "GET /api/v1/readers", ["Host: evil.example"], b"", 421),
    ("a configured name in Host", "GET /api/v1/readers", ["Host: UHFD.example:8080"], b"", 200),
    ("a write from another site's page", START, [AUTH, "Origin: http://evil.example"], b"", 403),
    ("a write from this gateway's page", START, [AUTH, "Origin: http://localhost:8080"], b"", 200),
    ("a write without the token", START, [], b"", 401),
    ("a write with a wrong token", START, ["Authorization: Bearer wrong"], b"", 401),
    ("a POST without a body", START, [AUTH], b"", 200),
    ("settings the reader takes", SETTINGS, [AUTH], b'{"power": 20}', 200),
    ("an unknown path", "GET /api/v2/readers", [], b"", 404),
    ("a method the path does not take", "DELETE /api/v1/readers/sim", [], b"", 405),
]


@pytest.mark.parametrize("request_line,headers,body,expected", [r[1:] for r in RAW], ids=[r[0] for r in RAW])
def test_raw_requests(gateway, request_line, headers, body, expected):
    assert status_of(gateway.port, request_line, headers, body) == expected


def run_uhfd(tmp_path, *args):
    (tmp_path / "c.json").write_text('{"readers": [{"name": "sim", "uri": "sim"}]}')
    return subprocess.run([BUILD / "gateway" / "uhfd", "-c", tmp_path / "c.json", *map(str, args)],
                          capture_output=True, text=True, timeout=30, env={**os.environ, "UHFD_TOKEN": ""})


def test_startup_refusals(tmp_path):
    with socket.socket() as busy:
        busy.bind(("127.0.0.1", 0))
        busy.listen()
        port = busy.getsockname()[1]
        cases = [
            (["--http", f"127.0.0.1:{port}"], f"uhfd: cannot listen on 127.0.0.1:{port}: address in use\n"),
            (["--http", f"0.0.0.0:{free_port()}"], "without a token"),
            (["--token-file", tmp_path / "missing"], "cannot read a token"),
            (["--token", TOKEN], "--token"),  # gone: a token on the command line shows in ps
        ]
        for args, message in cases:
            done = run_uhfd(tmp_path, *args)
            assert done.returncode == 2 and message in done.stderr, (args, done.stderr)


def metric(g, name):
    return int(re.search(rf"^{name} (\d+)$", g.request("GET", "/metrics")[1], re.M).group(1))


def open_stream(port, rcvbuf=None):
    s = socket.socket()
    if rcvbuf:
        s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, rcvbuf)
    s.connect(("127.0.0.1", port))
    s.sendall(b"GET /api/v1/stream HTTP/1.1\r\nHost: localhost\r\n\r\n")
    return s


def drain(sockets, received, stop):
    sel = selectors.DefaultSelector()
    for s in sockets:
        s.setblocking(False)
        sel.register(s, selectors.EVENT_READ)
    while not stop.is_set():
        for key, _ in sel.select(0.2):
            received[key.fileobj] = received.get(key.fileobj, b"")[-200:] + key.fileobj.recv(65536)


def test_stream_clients_do_not_block_the_api_and_a_stalled_one_is_dropped(tmp_path):
    g = Uhfd(tmp_path, {"readers": [{"name": "sim", "uri": "sim:50"}]})
    readers = [open_stream(g.port) for _ in range(200)]
    stalled = open_stream(g.port, rcvbuf=4096)  # never reads
    received, stop = {}, threading.Event()
    drainer = threading.Thread(target=drain, args=(readers, received, stop))
    drainer.start()
    try:
        wait_for(lambda: metric(g, "uhfd_http_stream_clients") == 201, 30, "201 stream clients")
        assert g.request("GET", "/api/v1/readers")[0] == 200
        wait_for(lambda: metric(g, "uhfd_http_stream_dropped_total") == 1, 120, "the stalled client dropped")
        wait_for(lambda: metric(g, "uhfd_http_stream_clients") == 200, 30, "200 stream clients left")
        stalled.settimeout(20)
        with pytest.raises(ConnectionResetError):
            while stalled.recv(65536):  # what was sent before the drop, then the reset
                pass
        wait_for(lambda: len(received) == 200 and all(b"event: read\ndata: {" in r for r in received.values()),
                 30, "reads on every other stream")
    finally:
        stop.set()
        drainer.join()
        for s in readers + [stalled]:
            s.close()
    assert g.proc.stop() == 0
