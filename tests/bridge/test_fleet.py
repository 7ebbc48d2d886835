# SPDX-License-Identifier: Apache-2.0
"""The examples of a fleet at work: who may write what, and reports of which none is lost."""

import pathlib
import signal
import socket
import subprocess
import threading
import time
import unittest

from device import PATIENCE_S, ScriptedModem, scaled, wait_until
from fleet import OK_LINE, FleetTest, Subscriber

EXAMPLES = pathlib.Path(__file__).parent.parent.parent / "examples/fleet"
FLEET_PORT = 1884


class Cable(threading.Thread):
    """A way to a port that can be cut: what is under way is lost, and new connections are closed."""

    def __init__(self, port, to):
        super().__init__(daemon=True)
        self.to = to
        self.whole = True
        self.ends = []
        self.listener = socket.create_server(("127.0.0.1", port))
        self.start()

    def run(self):
        while True:
            near, _ = self.listener.accept()
            far = socket.socket()
            if not self.whole or far.connect_ex(("127.0.0.1", self.to)) != 0:
                near.close()
                far.close()
                continue
            self.ends += [near, far]
            for one, other in ((near, far), (far, near)):
                threading.Thread(target=self.carry, args=(one, other), daemon=True).start()

    def carry(self, one, other):
        try:
            while data := one.recv(65536):
                if self.whole:
                    other.sendall(data)
        except OSError:
            pass
        for end in (one, other):
            end.close()

    def cut(self):
        self.whole = False
        for end in self.ends:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        self.ends.clear()


class Fleet(FleetTest):
    def example(self, name, *replacements):
        """An example with what is of this test, in a file."""
        text = (EXAMPLES / name).read_text()
        for here, there in replacements:
            self.assertIn(here, text)
            text = text.replace(here, there)
        for folder in ("/etc/mosquitto/", "/etc/mdxgate/"):
            text = text.replace(folder, "/tmp/mosquitto/")
        path = pathlib.Path("/tmp", name)
        path.write_text(text)
        return path

    def start_example_broker(self, name, location, *replacements):
        """With the example beside a file of its own, as on Debian."""
        folder = pathlib.Path(location, "conf.d")
        folder.mkdir(parents=True, exist_ok=True)
        self.example(name, *replacements).rename(folder / name)
        path = pathlib.Path(location, "mosquitto.conf")
        path.write_text(f"user root\npersistence true\npersistence_location {location}/\ninclude_dir {folder}\n")
        broker = self.start("mosquitto", "-c", str(path))
        wait_until(lambda: broker.poll() is not None or "running" in self.log_of(broker), PATIENCE_S, "it runs")
        self.assertIsNone(broker.poll(), self.log_of(broker))
        return broker

    def start_fleet_broker(self):
        folder = pathlib.Path("/tmp/mosquitto")
        folder.mkdir(exist_ok=True)
        passwords = folder / "passwords"
        if not passwords.exists():
            (folder / "broker-password").write_text("secret\n")
            self.example("broker.acl").rename(folder / "broker.acl")
            passwords.write_text("".join(f"{name}:secret\n" for name in ("meter-17", "meter-18", "dashboard", "desk")))
            subprocess.run(("mosquitto_passwd", "-U", str(passwords)), check=True)
        return self.start_example_broker("broker.conf", "/tmp/fleet",
                                         ("listener 1883", f"listener {FLEET_PORT} 127.0.0.1"))

    @staticmethod
    def as_user(name):
        return ("-u", name, "-P", "secret")

    def test_rights(self):
        """Each role does what it may; what another one writes in its place reaches nobody."""
        self.modem = ScriptedModem(lambda line: b"\r\n+CSQ: 21,99\r\n" + OK_LINE if line == b"AT+CSQ" else OK_LINE)
        self.start_server()
        self.start_fleet_broker()
        port = ("-p", str(FLEET_PORT))
        states = self.start(str(EXAMPLES / "last_states.py"), *port, *self.as_user("dashboard"))
        seen = Subscriber(self, *self.as_user("dashboard"), port=FLEET_PORT)
        desk = Subscriber(self, *self.as_user("desk"), port=FLEET_PORT)
        self.start("mdxbridge", "--config", str(self.example("bridge.conf", ("broker.example", "127.0.0.1"))),
                   "--port", str(FLEET_PORT))
        self.wait_for_log(states, "meter-17 ready; 1 of 1 devices are ready")
        for user, topic in (("meter-18", "meter-17/state"), ("meter-18", "meter-17/command"), ("dashboard", "meter-17/command"),
                            ("desk", "meter-17/report/EVT_AT_HCSQ"), ("meter-17", "meter-18/report/X")):
            self.publish("mdxgate/" + topic, {"forged": True}, *port, *self.as_user(user))
        self.publish("mdxgate/meter-17/command", {"command": "AT+CSQ"}, *port, *self.as_user("desk"))
        self.assertEqual(desk.wait_for("meter-17/answer")["text"], "+CSQ: 21,99")
        self.modem.say(b"\r\n^SIMREFRESH:7\r\n")
        seen.wait_for("report/EVT_AT_SIM_REFRESH")
        self.assertNotIn("forged", str(seen.all()) + str(desk.all()))
        self.assertEqual(desk.of("command") + [thing for thing in desk.of("answer") if "error" in thing], [])

    def test_no_report_is_lost(self):
        """The fleet's broker is killed, the way to it cut, the device's own broker started anew."""
        count = scaled(10000, 1500)
        self.modem = ScriptedModem(lambda line: OK_LINE)
        self.start_server()
        fleet = self.start_fleet_broker()
        cable = Cable(1885, FLEET_PORT)
        def start_device_broker():
            return self.start_example_broker("device-broker.conf", "/tmp/device", ("broker.example:1883", "127.0.0.1:1885"))
        device = start_device_broker()
        consumer = Subscriber(self, "-c", "-i", "consumer", *self.as_user("dashboard"), port=FLEET_PORT)
        self.start("mdxbridge", "--config", str(self.example("device-bridge.conf")))
        consumer.wait_for("meter-17/state", lambda state: state["modem"])
        fleet.send_signal(signal.SIGUSR1)  # keeps the consumer's subscription
        wait_until(lambda: pathlib.Path("/tmp/fleet/mosquitto.db").exists(), PATIENCE_S, "it is kept")

        for number in range(count):
            self.modem.say(b"\r\n^SIMREFRESH:%d\r\n" % number)
            if number % 50 == 0:
                time.sleep(0.05)
            if number == count // 5:
                fleet.kill()
                fleet.wait()
            if number == count * 2 // 5:
                fleet = self.start_fleet_broker()
            if number == count * 3 // 5:
                cable.cut()
                self.stop(device)
            if number == count * 4 // 5:
                device = start_device_broker()
        time.sleep(scaled(30, 1))
        cable.whole = True

        # A broker that connects again may let one message overtake others, or send it twice.
        def arrived():
            return {report["number"]: report["fields"]["file_type"] for report in consumer.of("EVT_AT_SIM_REFRESH")}

        wait_until(lambda: len(arrived()) >= count, 2 * PATIENCE_S, "all reports arrive")
        self.assertEqual([value for _, value in sorted(arrived().items())], list(range(count)))


if __name__ == "__main__":
    unittest.main()
