"""Writes fuzz_llrp's seeds: scripts of one connection, its client's messages (as sllurp sends
them) among the reader's answers, tag reads and time passing."""
import os
import sys


def msg(mtype, mid, body="", version=1):
    body = bytes.fromhex(body)
    return bytes([version << 2 | mtype >> 8, mtype & 0xFF]) + (10 + len(body)).to_bytes(4, "big") + mid.to_bytes(
        4, "big") + body


set_config = ("00 00F4 0043" + "".join("00F5 0007 %04X %s" % (t, "80" if t == 2 else "00") for t in range(9))
              + " 00DC 0009 01 0000EA60")
set_antennas = ("00 00DE 002F 0002 00E0 000A 0001 0001 0003 014A 001F 00 014B 000F 00 014C 000A 40 0020 0008 E2"
                " 0150 000B 80 0004 00000000 00ED 0012 01 0001 00EE 000B 1400 015C 0005 40")
add_rospec = ("00b100a600000001000000b2001200b300050100b6000901000007d000b7007800020001000200b8000901000007d000ba0065"
              "00010100de002f000100e0000a00010001000a014a001f00014b000f00014c000a4000200008e20150000b80000400000000"
              "00de002f000200e0000a00010001000a014a001f00014b000f00014c000a4000200008e20150000b8000040000000000ed00"
              "1201000000ee000b1f80015c000500")
add_read = ("00cf004200000001000001000000000000d0000701000100d10026015200130153000f6000200010ffff0010e2800155000f00"
            "0100000000c00000000200ef000501")
add_write = ("00cf004400000001000001000000000000d0000701000100d10028015200130153000f6000200010ffff0010e2800156001100"
             "0200000000c000000001123400ef000501")


def client(data):
    return b"\x00" + len(data).to_bytes(2, "big") + data


ANSWER, FAIL, DEADLINE = b"\x01", b"\x02", b"\x07"
epc = bytes(range(0xE0, 0xEC))
read = b"\x04\x01\x0c" + epc + b"\x3c"  # antenna 1, RSSI -60 dBm
seeds = [
    client(msg(1, 1, "00") + msg(2, 2, "0000 00 0000 0000") + msg(64, 3) + msg(3, 4, set_config)),
    client(msg(3, 5, set_antennas)) + ANSWER + client(msg(2, 6, "0002 03 0000 0000") + msg(3, 7, "80")) + FAIL,
    client(msg(46, 8, version=2) + msg(47, 9, "02", version=2) + msg(1, 10, "03")),
    client(msg(20, 11, add_rospec) + msg(24, 12, "00000001")) + ANSWER + read + read
    + b"\x05\x10" + DEADLINE + client(msg(60, 15) + msg(26, 16) + msg(23, 17, "00000001"))
    + client(msg(25, 18, "00000001") + msg(21, 19, "00000000") + msg(14, 26)),
    client(msg(20, 11, add_rospec) + msg(40, 20, add_read) + msg(42, 21, "00000001") + msg(24, 12, "00000001")
           + msg(22, 13, "00000001")) + ANSWER + ANSWER + read + b"\x03\x00\x04\x12\x34\x56\x78" + FAIL
    + DEADLINE + b"\x06\x00" + client(msg(40, 22, add_write) + msg(44, 23) + msg(43, 24, "00000001")),
]
out = sys.argv[1]
os.makedirs(out, exist_ok=True)
for i, data in enumerate(seeds):
    with open(os.path.join(out, "seed%d" % i), "wb") as f:
        f.write(data)
