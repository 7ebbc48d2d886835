# SPDX-License-Identifier: Apache-2.0
"""What tests see of `mdxctl watch --json` while it runs."""

import json
import os
import signal

from device import PATIENCE_S, DeviceTest, wait_until


def words(packet):
    """A packet as event, and fields by name: "EVT_AT_SYS_MODE sys_mode=5 sys_submode=4"."""
    return " ".join([packet["event"] or f"type {packet['type']}"] +
                    [f"{name}={value}" for name, value in packet["fields"].items()])


class Watcher:
    def __init__(self, *options):
        self.client = DeviceTest.start_client("watch", "--json", *options)

    def lines(self):
        """All whole lines shown so far, a packet each."""
        return os.pread(self.client.output[0].fileno(), 1 << 26, 0).decode().split("\n")[:-1]

    def packets(self):
        return list(map(json.loads, self.lines()))

    def words(self):
        return [words(packet) for packet in self.packets()]

    def wait_for(self, count):
        wait_until(lambda: len(self.lines()) >= count, PATIENCE_S,
                   f"{count} packets at a watcher")

    def end(self):
        """Ctrl-C: (exit code, stderr)."""
        self.client.send_signal(signal.SIGINT)
        code, _, err = DeviceTest.finish(self.client)
        return code, err


class WatchTest(DeviceTest):
    def stats(self):
        """The server's counters, by name."""
        code, out, err = self.ctl("console", "platform", "stats")
        self.assertEqual(code, 0, err)
        return {name: int(value) for name, value in map(str.split, out.splitlines())}

    def start_watchers(self, *options):
        """One watcher for each tuple of options; all of them are subscribed when this returns."""
        before = self.stats()["receivers"]
        watchers = [Watcher(*own) for own in options]
        wait_until(lambda: self.stats()["receivers"] == before + len(watchers), PATIENCE_S,
                   "the watchers are subscribed")
        return watchers

    def assert_numbered(self, watcher, field, count):
        """Reports with the numbers below `count`, in order; each gap is as long as the hub says it is."""
        following = 0
        for packet in watcher.packets():
            following += packet["lost"]
            self.assertEqual(packet["fields"][field], following)
            following += 1
        self.assertEqual(following, count)
