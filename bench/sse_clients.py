#!/usr/bin/env python3
"""Many clients of uhfd's event stream, in a process of their own so that
their reading does not slow the bench's timing.

    sse_clients.py PORT COUNT

Opens COUNT connections to GET /api/v1/stream, prints "connected N" once
every one has its response headers, then reads and discards what comes until
SIGTERM, and prints "received BYTES". Ready sockets are read in rounds a few
milliseconds apart so that each read takes what has piled up, as a browser's
would, instead of one system call per event.
"""
import resource
import select
import signal
import socket
import sys
import time

REQUEST = b"GET /api/v1/stream HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: text/event-stream\r\n\r\n"


def open_clients(port, count):
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, min(hard, count + 64)), hard))
    socks = []
    for _ in range(count):
        s = socket.create_connection(("127.0.0.1", port), timeout=30)
        s.sendall(REQUEST)
        s.setblocking(False)
        socks.append(s)
    return socks


def main():
    port, count = int(sys.argv[1]), int(sys.argv[2])
    stop = []
    signal.signal(signal.SIGTERM, lambda *_: stop.append(1))
    socks = open_clients(port, count)
    ep = select.epoll()
    for s in socks:
        ep.register(s.fileno(), select.EPOLLIN)
    by_fd = {s.fileno(): s for s in socks}
    answered, received, announced = set(), 0, False
    while not stop:
        for fd, _ in ep.poll(0.05):
            try:
                data = by_fd[fd].recv(1 << 18)
            except BlockingIOError:
                continue
            except OSError:
                data = b""
            if not data:
                ep.unregister(fd)
                continue
            received += len(data)
            if fd not in answered and data.startswith(b"HTTP/1.") and data[9:12] == b"200":
                answered.add(fd)
        if not announced and len(answered) == count:
            print(f"connected {count}", flush=True)
            announced = True
        time.sleep(0.005)
    print(f"received {received} answered {len(answered)}", flush=True)


if __name__ == "__main__":
    main()
