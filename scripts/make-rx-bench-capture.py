#!/usr/bin/env python3
"""Writes a pcap for timing the receive path at scale: ROUNDS rounds of NEIGHBOURS frames,
each neighbour the frame of a template capture with its own chassis MAC, sending every 30
seconds and changing its allocated power in one frame of twenty (back in the next).

  scripts/make-rx-bench-capture.py OUT [--neighbours 10000] [--rounds 100]
                                       [--template ../shared/captures/8023bt.pcap]
Then: /usr/bin/time -v lldp-neighbors -r OUT >/dev/null
"""
import argparse
import struct
import sys


def first_frame(path):
    with open(path, "rb") as f:
        data = f.read()
    magic = struct.unpack_from("<I", data)[0]
    endian = "<" if magic in (0xA1B2C3D4, 0xA1B23C4D) else ">"
    caplen = struct.unpack_from(endian + "I", data, 24 + 8)[0]
    return bytearray(data[24 + 16:24 + 16 + caplen])


def power_offset(frame):
    """Where the allocated power of the 802.3 Power via MDI TLV sits, or None."""
    at = 14
    while at + 2 <= len(frame):
        kind, length = frame[at] >> 1, (frame[at] & 1) << 8 | frame[at + 1]
        if kind == 0:
            break
        if kind == 127 and length >= 12 and frame[at + 2:at + 6] == b"\x00\x12\x0f\x02":
            return at + 12
        at += 2 + length
    return None


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("out")
    ap.add_argument("--neighbours", type=int, default=10000)
    ap.add_argument("--rounds", type=int, default=100)
    ap.add_argument("--template", default="../shared/captures/8023bt.pcap")
    a = ap.parse_args()
    if not 1 <= a.neighbours <= 0x10000:
        sys.exit("--neighbours: 1 to 65536")
    frame = first_frame(a.template)
    power = power_offset(frame)
    if power is None:
        sys.exit(f"{a.template}: no Power via MDI TLV")
    mac_end = 14 + 2 + 1 + 6  # the chassis ID TLV's MAC
    with open(a.out, "wb") as f:
        f.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        rec = struct.Struct("<IIII")
        for r in range(a.rounds):
            for n in range(a.neighbours):
                frame[mac_end - 1] = n & 0xFF
                frame[mac_end - 2] = n >> 8 & 0xFF
                frame[power + 1] = r & 0xFF if (r + n) % 20 == 0 else 0
                usec = (r * a.neighbours + n) * 3000  # 30 s per round
                f.write(rec.pack(1700000000 + usec // 1000000, usec % 1000000, len(frame), len(frame)))
                f.write(frame)


if __name__ == "__main__":
    main()
