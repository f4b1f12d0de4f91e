#!/usr/bin/env python3
"""The Python twin of inventory.c: connect to a reader over TCP, run a
continuous inventory for two seconds, print every EPC read, close.

    python3 inventory.py 192.168.1.50 8888
"""
import sys

import uhfhost


def main() -> int:
    if len(sys.argv) < 3:
        print(f"usage: {sys.argv[0]} HOST PORT", file=sys.stderr)
        return 2
    try:
        reader = uhfhost.open(f"tcp:{sys.argv[1]}:{sys.argv[2]}")
    except ConnectionError as e:
        print(f"cannot connect: {e}", file=sys.stderr)
        return 3
    reads = 0
    with reader:
        for tag in reader.inventory(duration=2):
            print(f"EPC {tag.epc}  RSSI {tag.rssi:.1f} dBm  antenna {tag.antenna}")
            reads += 1
    print(f"{reads} reads")
    return 0 if reads else 1


if __name__ == "__main__":
    sys.exit(main())
