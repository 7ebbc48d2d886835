# SPDX-License-Identifier: Apache-2.0
"""A broker, a bridge and subscribers beside a device, all in the test's box."""

import json
import os
import pathlib
import subprocess

from device import PATIENCE_S, wait_until
from watching import WatchTest

OK_LINE = b"\r\nOK\r\n"
TOPIC = "mdxgate/dev1/"


class Subscriber:
    """What mosquitto_sub shows: (retained, topic, object) each."""

    def __init__(self, test, *options, topic="#", port=1883):
        self.process = test.start("mosquitto_sub", "-V", "5", "-p", str(port), "-q", "1", "-t", topic,
                                  "-F", "%r %t %p", *options)

    def all(self):
        messages = []
        for line in self.process.log.read_bytes().decode().split("\n")[:-1]:
            retained, topic, text = line.split(" ", 2)
            messages.append((retained == "1", topic, json.loads(text) if text else None))
        return messages

    def of(self, end):
        """The objects of the topics that end so."""
        return [thing for _, topic, thing in self.all() if topic.endswith(end)]

    def wait_for(self, end, what=lambda thing: True, seconds=PATIENCE_S):
        """The first object at such a topic that `what` takes."""
        found = []

        def there():
            found[:] = [thing for thing in self.of(end) if what(thing)]
            return found

        wait_until(there, seconds, f"{end} among {[topic for _, topic, _ in self.all()][-20:]}")
        return found[0]


class FleetTest(WatchTest):
    def start_broker(self, *lines, port=1883, name="broker"):
        """Returns when it takes connections."""
        path = pathlib.Path(f"/tmp/{name}.conf")
        path.write_text("\n".join(["user root", f"listener {port} 127.0.0.1", *lines]) + "\n")
        broker = self.start("mosquitto", "-c", str(path))
        wait_until(lambda: broker.poll() is not None or "running" in self.log_of(broker), PATIENCE_S,
                   "the broker runs")
        self.assertIsNone(broker.poll(), self.log_of(broker))
        return broker

    def start_open_broker(self, *lines, **options):
        return self.start_broker("allow_anonymous true", *lines, **options)

    def start_bridge(self, *options, pause=1):
        return self.start("mdxbridge", "--host", "127.0.0.1", "--id", "dev1", "--longest-pause", str(pause), *options)

    def wait_for_log(self, process, text):
        wait_until(lambda: text in self.log_of(process), PATIENCE_S, f"{text!r} in {self.log_of(process)}")

    @staticmethod
    def publish(topic, payload, *options):
        if isinstance(payload, dict):
            payload = json.dumps(payload)
        if isinstance(payload, str):
            payload = payload.encode()
        given = "-s" if payload else "-n"
        subprocess.run(("mosquitto_pub", "-V", "5", "-q", "1", "-t", topic, given, *options), input=payload,
                       check=True)

    def ask(self, payload, *options, topic=TOPIC + "command"):
        """Sends a request and returns the answer that comes to a topic of its own."""
        self.asked = getattr(self, "asked", 0) + 1
        answers = TOPIC + f"answer/{os.getpid()}-{self.asked}"
        subscriber = Subscriber(self, "-C", "1", topic=answers)
        # A subscriber says nothing of being subscribed, so the request is repeated under one name.
        name = ("-D", "publish", "correlation-data", f"ask-{self.asked}")
        while subscriber.process.poll() is None:
            self.publish(topic, payload, "-D", "publish", "response-topic", answers, *name, *options)
            try:
                subscriber.process.wait(1)
            except subprocess.TimeoutExpired:
                continue
        return subscriber.all()[0][2]
