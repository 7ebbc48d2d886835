# SPDX-License-Identifier: Apache-2.0
"""Brokers that refuse, stall and speak rubbish, and the two ways to encrypt what they hear."""

import os
import pathlib
import signal
import socket
import subprocess
import threading
import time
import unittest

from device import PATIENCE_S, ScriptedModem, wait_until
from fleet import OK_LINE, FleetTest, Subscriber

CONNACK = b"\x20\x03\x00\x00\x00"
CERTIFICATES = pathlib.Path("/tmp/certificates")


def openssl(*words):
    subprocess.run(("openssl", *words), check=True, cwd=CERTIFICATES, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def make_authority(name):
    openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
            "-subj", f"/CN={name}", "-keyout", f"{name}.key", "-out", f"{name}.crt")


def make_certificate(name, authority, subject, until="20400101000000Z"):
    """Signed by the authority, for this host name or address, valid up to then."""
    openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", f"/CN={subject}",
            "-keyout", f"{name}.key", "-out", f"{name}.csr")
    (CERTIFICATES / "names").write_text(f"subjectAltName=IP:{subject}\n" if subject[0].isdigit() else "")
    for new in ("index.txt", "index.txt.attr"):
        (CERTIFICATES / new).write_text("")
    (CERTIFICATES / "ca.conf").write_text(
        "[ca]\ndefault_ca=a\n[a]\ndatabase=index.txt\nnew_certs_dir=.\nrand_serial=yes\ndefault_md=sha256\n"
        "policy=p\n[p]\ncommonName=supplied\n")
    openssl("ca", "-batch", "-config", "ca.conf", "-cert", f"{authority}.crt", "-keyfile", f"{authority}.key",
            "-startdate", "20200101000000Z", "-enddate", until, "-extfile", "names", "-in", f"{name}.csr",
            "-out", f"{name}.crt")


class Rubbish(threading.Thread):
    """Takes connections one after the other, and answers each one's first bytes as it is told."""

    def __init__(self, answer, port):
        super().__init__(daemon=True)
        self.answer = answer
        self.connections = 0
        self.listener = socket.create_server(("127.0.0.1", port))
        self.start()

    def run(self):
        held = []
        while True:
            connection, _ = self.listener.accept()
            self.connections += 1
            connection.recv(4096)
            if self.answer is None:
                held.append(connection)
                continue
            connection.sendall(self.answer)
            time.sleep(0.2)
            connection.close()


class BrokerFaults(FleetTest):
    def start_scripted_device(self):
        self.modem = ScriptedModem(lambda line: OK_LINE)
        self.start_server()

    def test_rubbish(self):
        """None of them ends or stops it: it goes on to look for a better one."""
        for port, answer, said in (
                (2001, b"HTTP/1.1 400 Bad Request\r\n\r\n", "127.0.0.1:2001"),
                (2002, b"\x20\x03\x00\x87\x00", "Not authorized"),
                (2003, b"\x20\x03\x00\x86\x00", "Bad User Name or Password"),
                (2004, CONNACK + b"\x30\xff\xff\xff\x7f" + b"\xff" * 1000, "127.0.0.1:2004"),
                (2005, CONNACK + b"\x30\x05\x00\x09abc", "127.0.0.1:2005"),
                (2006, CONNACK + bytes(range(256)), "127.0.0.1:2006"),
                (2007, b"", "127.0.0.1:2007"),
        ):
            with self.subTest(port):
                broker = Rubbish(answer, port)
                bridge = self.start_bridge("--port", str(port))
                wait_until(lambda: broker.connections >= 2, 20, "it tries again")
                self.wait_for_log(bridge, said)
                self.assertIsNone(bridge.poll())
                self.stop(bridge)
                self.assertEqual(bridge.returncode, 0, self.log_of(bridge))

    def test_broker_that_says_nothing(self):
        """It keeps no local client waiting, and is given up; so is one that takes no bytes back."""
        self.start_scripted_device()
        broker = Rubbish(None, 2001)
        bridge = self.start_bridge("--port", "2001")
        wait_until(lambda: broker.connections >= 1, PATIENCE_S, "it is connected")
        self.modem.say(b"".join(b"\r\n^SIMREFRESH:%d\r\n" % n for n in range(3000)))
        self.at("AT")
        wait_until(lambda: broker.connections >= 2, PATIENCE_S, "it gives up and tries again")
        self.assertIn("does not answer", self.log_of(bridge))

    def stand_in_for(self, path, text):
        """Another file in the place of one of the system's."""
        here = pathlib.Path("/tmp", pathlib.Path(path).name)
        here.write_text(text)
        if subprocess.run(("mount", "--bind", str(here), path), check=False).returncode != 0:
            self.skipTest("only root's world can have another " + path)

    def test_name_servers_that_say_nothing(self):
        """The look-up of the broker's name keeps nothing else waiting, and not the end of the program."""
        self.stand_in_for("/etc/resolv.conf", "nameserver 127.0.0.1\n")
        name_server = socket.socket(type=socket.SOCK_DGRAM)
        self.addCleanup(name_server.close)
        name_server.bind(("127.0.0.1", 53))
        os.environ["RES_OPTIONS"] = "timeout:30 attempts:5"
        self.addCleanup(os.environ.pop, "RES_OPTIONS")
        bridge = self.start("mdxbridge", "--host", "broker.example", "--id", "dev1")
        name_server.recv(512)
        self.start_scripted_device()
        self.wait_for_log(bridge, "the server is there")
        bridge.send_signal(signal.SIGTERM)
        self.assertEqual(bridge.wait(PATIENCE_S), 0)

    def test_name_with_two_addresses(self):
        """Nobody listens at the one that is tried first."""
        self.stand_in_for("/etc/hosts", "::1 broker.example\n127.0.0.1 broker.example\n")
        self.start_open_broker()
        bridge = self.start("mdxbridge", "--host", "broker.example", "--id", "dev1", "--longest-pause", "1")
        self.wait_for_log(bridge, "connected to")

    def start_secure_broker(self, certificate, port, *lines):
        return self.start_broker("allow_anonymous true", f"certfile {CERTIFICATES}/{certificate}.crt",
                                 f"keyfile {CERTIFICATES}/{certificate}.key", f"cafile {CERTIFICATES}/ours.crt",
                                 *lines, port=port, name=certificate)

    def test_certificates(self):
        """Of both sides: only what is signed by whom we trust, for this name, and not expired."""
        CERTIFICATES.mkdir()
        for authority in ("ours", "theirs"):
            make_authority(authority)
        make_certificate("good", "ours", "127.0.0.1")
        make_certificate("expired", "ours", "127.0.0.1", until="20210101000000Z")
        make_certificate("foreign", "theirs", "127.0.0.1")
        make_certificate("misnamed", "ours", "127.0.0.2")
        make_certificate("device", "ours", "dev1")
        trust = ("--ca-file", f"{CERTIFICATES}/ours.crt")
        own = ("--certificate", f"{CERTIFICATES}/device.crt", "--key", f"{CERTIFICATES}/device.key")
        self.start_scripted_device()
        for port, name, said in ((3001, "expired", "verify failed"), (3002, "foreign", "verify failed"), (3003, "misnamed", "is for this name")):
            self.start_secure_broker(name, port)
            bridge = self.start_bridge("--port", str(port), *trust)
            self.wait_for_log(bridge, f"127.0.0.1:{port}: ")
            self.assertIn(said, self.log_of(bridge))
            self.assertNotIn("connected to", self.log_of(bridge))
            self.stop(bridge)
        self.start_secure_broker("good", 3004, "require_certificate true", "use_identity_as_username true",
                                 "listener 1883 127.0.0.1", "allow_anonymous true")
        nobody = self.start_bridge("--port", "3004", *trust)
        self.wait_for_log(nobody, "127.0.0.1:3004: ")
        self.stop(nobody)
        self.assertNotIn("connected to", self.log_of(nobody))
        self.start_bridge("--port", "3004", *trust, *own)
        self.assertTrue(Subscriber(self).wait_for("dev1/state")["modem"]["up"])

    def test_shared_key_and_password(self):
        self.start_scripted_device()
        key, wrong, password = (pathlib.Path("/tmp", name) for name in ("key", "wrong", "password"))
        key.write_text("00112233445566778899aabbccddeeff\n")
        wrong.write_text("ff112233445566778899aabbccddeeff\n")
        password.write_text("secret\n")
        pathlib.Path("/tmp/keys").write_text("dev1:" + key.read_text())
        subprocess.run(("mosquitto_passwd", "-c", "-b", "/tmp/passwords", "dev1", "secret"), check=True)
        self.start_broker("allow_anonymous false", "password_file /tmp/passwords", "psk_file /tmp/keys",
                          "psk_hint fleet", port=3001)
        bridge = self.start_bridge("--port", "3001", "--psk-identity", "dev1", "--psk-file", str(wrong))
        self.wait_for_log(bridge, "127.0.0.1:3001: ")
        self.assertNotIn("connected to", self.log_of(bridge))
        self.stop(bridge)
        with_key = ("--port", "3001", "--psk-identity", "dev1", "--psk-file", str(key), "--username", "dev1")
        bridge = self.start_bridge(*with_key)
        self.wait_for_log(bridge, "refuses this client")
        self.stop(bridge)
        # A name without a slash is one of systemd's credentials.
        os.environ["CREDENTIALS_DIRECTORY"] = "/tmp"
        self.addCleanup(os.environ.pop, "CREDENTIALS_DIRECTORY")
        bridge = self.start_bridge(*with_key, "--password-file", "password")
        self.wait_for_log(bridge, "connected to")
        self.assertNotIn("secret", pathlib.Path(f"/proc/{bridge.pid}/cmdline").read_text())


if __name__ == "__main__":
    unittest.main()
