#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Keeps the last state of all devices at a broker, and shows a line whenever one changes.

usage: last_states.py MOSQUITTO_SUB_OPTION…, such as: last_states.py -h broker.example -u dashboard -P secret
"""

import json
import subprocess
import sys


def main():
    subscriber = subprocess.Popen(("mosquitto_sub", "-V", "5", "-q", "1", "-t", "mdxgate/+/state", "-F", "%t %p",
                                   *sys.argv[1:]), stdout=subprocess.PIPE, text=True)
    devices = {}
    for line in subscriber.stdout:
        topic, _, text = line.partition(" ")
        state = json.loads(text)
        modem = state.get("modem") or {}
        shown = ("offline" if not state["online"] else "no server" if not state["server"]["up"]
                 else "ready" if modem.get("up") else "no modem")
        device = topic.split("/")[-2]
        if devices.get(device) != shown:
            devices[device] = shown
            ready = sum(state == "ready" for state in devices.values())
            print(f"{device} {shown}; {ready} of {len(devices)} devices are ready", flush=True)
    return subscriber.wait()


if __name__ == "__main__":
    sys.exit(main())
