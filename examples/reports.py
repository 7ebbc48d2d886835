#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints what the server tells the device, without any library: reports.py [COUNT]

One packet of the hub is a header of 40 bytes and its payload; docs/wire-formats.md has every field.
"""

import socket
import struct
import sys

HUB = "/var/run/mdxgate/hub"
HEADER = struct.Struct("=II12sIIiiI")
KINDS = {1: "service", 2: "notification", 3: "voice"}
LONGEST = HEADER.size + 8192


def subscription(service=b"*"):
    """A header of kind 0; "*" asks for everything."""
    return HEADER.pack(0, 0, service, 0, 0, 0, 0, 0)


def packets(hub):
    while packet := hub.recv(LONGEST):
        *fields, length = HEADER.unpack_from(packet)
        yield *fields, packet[HEADER.size:HEADER.size + length]


def main():
    left = int(sys.argv[1]) if len(sys.argv) > 1 else 0
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as hub:
        try:
            hub.connect(HUB)
        except OSError as error:
            sys.exit(f"{HUB}: {error.strerror}: is mdxgate running, and are you in its group?")
        hub.send(subscription())
        for number, kind, to, lost, module, a, b, payload in packets(hub):
            if lost:
                print(f"({lost} packets lost)")
            destination = to.rstrip(b"\0").decode() or f"module {module}"
            print(f"{KINDS.get(kind, kind)} to {destination}: {number}, a={a}, b={b},"
                  f" payload={payload.hex()}", flush=True)
            left -= 1
            if left == 0:
                return
    sys.exit("the server is gone")


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
