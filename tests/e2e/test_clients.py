# SPDX-License-Identifier: Apache-2.0
"""Programs of others that drive modems, on the living modem."""

import os
import pathlib
import shutil
import subprocess
import unittest

from device import DeviceTest, wait_until

MODEM = pathlib.Path("/tmp/modem")
GAMMU = "[gammu]\ndevice = /tmp/modem\nconnection = at115200\n"
RUNSCRIPT = """send "AT+CSQ"
expect {
  "+CSQ:" goto good
  timeout 20 goto bad
}
bad:
exit 1
good:
exit 0
"""
SERIAL = """import serial
with serial.Serial("/tmp/modem", 115200, timeout=20) as port:
    port.write(b"AT+CIMI\\r")
    print(port.read_until(b"OK\\r\\n"))
"""
MODEM_MANAGER = ("org.freedesktop.ModemManager1", "/org/freedesktop/ModemManager1",
                 "org.freedesktop.ModemManager1.Test.SetProfile")

GAMMU_HEARD_NOTHING = 114


class Clients(DeviceTest):
    def start_sim(self, *programs):
        for program in programs:
            if shutil.which(program) is None:
                self.skipTest(f"{program} is missing: scripts/install-packages check")
        os.environ["HOME"] = "/tmp"
        self.start("mdxsim", "--link", str(MODEM), "--quiet")
        wait_until(MODEM.is_symlink, 10, "mdxsim links its terminal")

    def run_client(self, *command, given="", through=None):
        done = subprocess.run(command, input=given, capture_output=True, text=True, timeout=120,
                              **({"stdin": through, "stdout": through, "input": None} if through else {}))
        self.assertEqual(done.returncode, 0, f"{command}\n{done.stdout}{done.stderr}")
        return done.stdout

    def gammu(self, *words, given="", tries=5):
        """It gives a modem a fixed time, also where the machine takes it."""
        command = ("gammu", "-c", "/tmp/gammurc", *words)
        done = subprocess.run(command, input=given, capture_output=True, text=True, timeout=120)
        if done.returncode == GAMMU_HEARD_NOTHING and tries > 1:
            return self.gammu(*words, given=given, tries=tries - 1)
        self.assertEqual(done.returncode, 0, f"{command}\n{done.stdout}{done.stderr}")
        return done.stdout

    def test_gammu(self):
        self.start_sim("gammu")
        pathlib.Path("/tmp/gammurc").write_text(GAMMU)
        self.assertIn("490154203237518", self.gammu("identify"))
        self.assertIn("home network", self.gammu("monitor", "1"))
        self.assertIn("reference=3", self.gammu("sendsms", "TEXT", "+15550100", given="Hello myself\n"))
        wait_until(lambda: "Hello myself" in self.gammu("getallsms"), 60, "the message comes back")
        self.gammu("deletesms", "1", "2")
        self.assertNotIn("Hello myself", self.gammu("getallsms"))
        self.assertIn("12.50 EUR", self.gammu("getussd", "*100#"))
        self.assertIn("Alice", self.gammu("getmemory", "SM", "1"))

    def chat(self, device):
        with device.open("r+b", buffering=0) as line:
            chat = ["chat", "-t", "20", "ABORT", "ERROR", "", "ATZ", "OK", 'AT+CGDCONT=1,"IP","internet"',
                    "OK", "ATDT*99***1#", "CONNECT", ""]
            self.assertEqual(subprocess.run(chat, stdin=line, stdout=line, timeout=120).returncode, 0)

    def test_chat(self):
        """It writes byte by byte, and goes when it has read CONNECT. Recorded, its modem is learnt and serves it."""
        self.start_sim("chat")
        port, script = pathlib.Path("/tmp/port"), pathlib.Path("/tmp/modem.script")
        tap = self.start("mdxtap", str(MODEM), "--link", str(port), "--record", "/tmp/log.txt", "--script", str(script),
                         "--plain")
        wait_until(port.is_symlink, 10, "mdxtap links its terminal")
        self.chat(port)
        self.stop(tap)
        learnt = script.read_text()
        self.assertNotIn("report", learnt)
        script.write_text(learnt + "expect ATDT*\nend when expected\n")
        modem = self.start("mdxsim", "--script", str(script), "--link", str(port))
        wait_until(port.is_symlink, 10, "mdxsim links its terminal")
        self.chat(port)
        self.assertEqual(modem.wait(60), 0, self.log_of(modem))

    def test_runscript_of_minicom(self):
        self.start_sim("runscript")
        script = pathlib.Path("/tmp/signal.run")
        script.write_text(RUNSCRIPT)
        with MODEM.open("r+b", buffering=0) as line:
            done = subprocess.run(["runscript", script], stdin=line, stdout=line, timeout=120,
                                  stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 0)

    def test_python_serial(self):
        self.start_sim()
        try:
            self.run_client("/usr/bin/python3", "-c", "import serial")
        except (AssertionError, FileNotFoundError):
            self.skipTest("python3-serial is missing: scripts/install-packages check")
        self.assertIn("001010123456789", self.run_client("/usr/bin/python3", "-c", SERIAL))

    def test_modem_manager(self):
        """By its test service: without udev it finds a modem behind a socket, which mdxtap makes."""
        self.start_sim("ModemManager", "mmcli", "dbus-daemon")
        port = pathlib.Path("/tmp/port")
        self.start("mdxtap", str(MODEM), "--listen", str(port), "--record", "/tmp/record.txt")
        wait_until(port.is_socket, 10, "mdxtap listens")
        bus = pathlib.Path("/tmp/bus")
        self.start("dbus-daemon", "--session", "--nofork", f"--address=unix:path={bus}")
        wait_until(bus.is_socket, 10, "there is a bus")
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={bus}"
        self.start("ModemManager", "--test-session", "--test-enable", "--test-no-suspend-resume")
        name, path, method = MODEM_MANAGER
        tell = ["dbus-send", "--session", "--print-reply", f"--dest={name}", path, method, "string:test",
                "string:generic", f"array:string:{port}"]
        wait_until(lambda: subprocess.run(tell, capture_output=True, timeout=60).returncode == 0, 30,
                   "ModemManager is there")
        mmcli = ["mmcli", "--test-session", "-m", "any"]

        def shows(text):
            return text in subprocess.run(mmcli, capture_output=True, text=True, timeout=60).stdout
        wait_until(lambda: shows("490154203237518"), 90, "it knows the modem")
        self.run_client(*mmcli, "--enable")
        wait_until(lambda: shows("operator name: Example Mobile"), 90, "it is registered")
        self.assertIn("12.50 EUR", self.run_client(*mmcli, "--3gpp-ussd-initiate=*100#"))
        made = self.run_client(*mmcli, "--messaging-create-sms=text='Hello myself',number='+15550100'")
        self.run_client("mmcli", "--test-session", "-s", made.split()[-1], "--send")
        wait_until(lambda: self.run_client(*mmcli, "--messaging-list-sms").count("(received)") == 2, 60,
                   "the message comes back and is told")


if __name__ == "__main__":
    unittest.main()
