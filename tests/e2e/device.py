# SPDX-License-Identifier: Apache-2.0
"""A device in the box: modem, server and clients as real processes, and what tests ask of them.

Each test runs in a box of its own (see CMakeLists.txt), so paths and queue keys are the real ones and
nothing needs to be put back. MDX_E2E_SHORT in the environment makes the long tests short.
"""

import contextlib
import ctypes
import fcntl
import json
import os
import pathlib
import re
import select
import signal
import socket
import struct
import subprocess
import tempfile
import termios
import threading
import time
import tty
import unittest

READY_FLAG = pathlib.Path("/var/mdx_ready.flg")
SERVER_LINK = pathlib.Path("/var/run/mdxgate/queue.2")
CHANNEL = pathlib.Path("/dev/smd6")
CUTS = ("whole", "byte", "random:7")
SHORT = bool(os.environ.get("MDX_E2E_SHORT"))
# Ends a test that would wait for ever; nothing is promised within it, since the machine may be busy.
PATIENCE_S = 60

OK, REFUSED_BY_MODEM, USAGE, NO_ANSWER, NO_SERVER, REFUSED_BY_SERVER = range(6)


def scaled(full, short):
    return short if SHORT else full


@contextlib.contextmanager
def over_and_over(act):
    """Another process does it without pause meanwhile."""
    child = os.fork()
    if child == 0:
        while True:
            act()
    try:
        yield
    finally:
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)


def wait_until(condition, seconds, what):
    start = time.monotonic()
    while not condition():
        if time.monotonic() - start > seconds:
            raise AssertionError(f"{what}: not within {seconds} s")
        time.sleep(0.005)


class Queues:
    """The two queues as a program without the client library sees them: System V calls and bytes."""

    KEY = 0x4D445800
    REQUESTS = 2
    NOWAIT = 0o4000

    def __init__(self):
        self.libc = ctypes.CDLL(None, use_errno=True)
        self.libc.msgrcv.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_long, ctypes.c_int]

    def identifier(self, number):
        return self.libc.msgget(self.KEY + number, 0)

    def depth(self, number):
        """Messages on a queue."""
        for line in pathlib.Path("/proc/sysvipc/msg").read_text().splitlines()[1:]:
            key, _, _, _, messages, *_ = line.split()
            if int(key) == self.KEY + number:
                return int(messages)
        return 0

    def send(self, record, message_type=0x7FFFFFFF):
        """Puts bytes on the request queue and wakes the server; False when the queue is full."""
        message = ctypes.create_string_buffer(struct.pack("l", message_type) + record)
        sent = self.libc.msgsnd(self.identifier(self.REQUESTS), message, len(record), self.NOWAIT)
        self.wake()
        return sent == 0

    def answers(self, message_type):
        """The texts of the answers that wait for this task."""
        texts = []
        message = ctypes.create_string_buffer(8 + 1600)
        while self.libc.msgrcv(self.identifier(1), message, 1600, message_type, self.NOWAIT) > 0:
            texts.append(message.raw[8 + 28 + 64:8 + 28 + 64 + 1500].split(b"\0")[0].decode(errors="replace"))
        return texts

    @staticmethod
    def wake():
        fifo = os.open(SERVER_LINK, os.O_WRONLY | os.O_NONBLOCK)
        try:
            os.write(fifo, struct.pack("I", 1))
        finally:
            os.close(fifo)


def record(text, msg_type, req_type=0):
    """A request of 1600 bytes that waits a second for its answer."""
    return struct.pack("=iIiIIii64s1500sii", msg_type, req_type, 0, 0, 0, 0, 1, b"", text, 0, 0)


class SystemLog(threading.Thread):
    """Stands where the system's log would, and keeps what is written to it."""

    def __init__(self):
        super().__init__(daemon=True)
        self.lines = []
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        self.socket.bind("/dev/log")
        self.start()

    def run(self):
        while True:
            self.lines.append(self.socket.recv(4096).decode(errors="replace"))

    def has(self, pattern):
        return any(re.search(pattern, line) for line in list(self.lines))


class ScriptedModem(threading.Thread):
    """A modem on a pseudo terminal that answers each line as `answer(line)` says.

    `answer` gets the line without its CR and returns the bytes to send back.
    """

    def __init__(self, answer):
        super().__init__(daemon=True)
        self.answer = answer
        self.heard = []
        self.reading = True
        self.rests = threading.Event()
        self.master, self.slave = os.openpty()
        tty.setraw(self.slave, termios.TCSANOW)
        CHANNEL.unlink(missing_ok=True)
        CHANNEL.symlink_to(os.ttyname(self.slave))
        self.start()

    def run(self):
        pending = b""
        while self.master >= 0:
            if not self.reading:
                self.rests.set()
                time.sleep(0.001)
                continue
            if not select.select([self.master], [], [], 0.1)[0]:
                continue
            pending += os.read(self.master, 4096)
            *lines, pending = pending.split(b"\r")
            for line in lines:
                self.heard.append(line)
                os.write(self.master, self.answer(line))

    def say(self, text):
        while text:
            text = text[os.write(self.master, text):]

    def stop_reading(self):
        """The terminal is full, as if much had been sent; blanks mean nothing to a modem.

        The kernel moves bytes on in its own time, so there may be room again a moment later.
        """
        self.reading = False
        self.rests.wait()
        os.set_blocking(self.slave, False)
        full = 0
        while full < 20:
            try:
                os.write(self.slave, b" ")
                full = 0
            except BlockingIOError:
                full += 1
                time.sleep(0.01)

    def unplug(self):
        master, self.master = self.master, -1
        self.join()
        os.close(master)


class DeviceTest(unittest.TestCase):
    """Starts and ends processes; a server that ended by itself fails the test."""

    maxDiff = None

    def setUp(self):
        self.server = None
        self.modem = None
        self.processes = []
        self.queues = Queues()

    def tearDown(self):
        crashed = self.server is not None and self.server.poll() is not None
        for process in self.processes:
            self.stop(process)
        self.assertFalse(crashed, "the server ended by itself")

    def run(self, result=None):
        bad = len(result.failures) + len(result.errors)
        super().run(result)
        if len(result.failures) + len(result.errors) > bad:
            for process in self.processes:
                print(f"── {' '.join(process.args)}: {process.returncode}\n{self.log_of(process)}")

    # Processes

    def start(self, *command, stdout=None):
        path = pathlib.Path(f"/tmp/{len(self.processes)}.log")
        with path.open("w") as log:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=stdout or log,
                                       stderr=log)
        process.log = path
        self.processes.append(process)
        return process

    def stop(self, process, how=signal.SIGTERM):
        if process.poll() is None:
            process.send_signal(how)
            if process is self.server:
                self.server = None
        try:
            process.wait(PATIENCE_S)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    @staticmethod
    def log_of(process):
        return process.log.read_text(errors="replace")

    def start_modem(self, *options):
        self.modem = self.start("mdxsim", *options)
        wait_until(CHANNEL.is_symlink, PATIENCE_S, "mdxsim links its terminal")

    def start_server(self, ready=True, stdout=None):
        READY_FLAG.unlink(missing_ok=True)
        if isinstance(self.modem, ScriptedModem):
            # A server that is gone has left it exclusive; a real device forgets that when it is closed.
            fcntl.ioctl(self.modem.slave, termios.TIOCNXCL)
        self.server = self.start("mdxgate", stdout=stdout)
        wait_until(self.server_is_reachable, PATIENCE_S, "mdxgate can be reached")
        if ready:
            wait_until(READY_FLAG.exists, PATIENCE_S, "mdxgate is ready")

    @staticmethod
    def server_is_reachable():
        """True when the link leads to a FIFO that somebody reads."""
        try:
            fifo = os.open(SERVER_LINK, os.O_WRONLY | os.O_NONBLOCK)
        except OSError:
            return False
        os.close(fifo)
        return True

    def start_device(self, *modem_options):
        self.start_modem(*(modem_options or ("--quiet",)))
        self.start_server()

    # Clients

    def console(self, *words):
        return self.ctl("console", *words)[1]

    @staticmethod
    def start_client(*arguments, stdin=""):
        """Starts mdxctl. Its streams are files, so that no client ever waits for the test."""
        out, err = (tempfile.TemporaryFile("w+", errors="replace") for _ in range(2))
        with tempfile.TemporaryFile("w+") as given:
            given.write(stdin)
            given.seek(0)
            client = subprocess.Popen(("mdxctl", *arguments), stdin=given, stdout=out, stderr=err)
        client.output = (out, err)
        return client

    @staticmethod
    def finish(client, seconds=PATIENCE_S):
        """Waits for a client: (exit code, stdout, stderr)."""
        try:
            code = client.wait(seconds)
        finally:
            client.kill()
        texts = []
        for stream in client.output:
            with stream:
                stream.seek(0)
                texts.append(stream.read())
        return code, *texts

    def ctl(self, *arguments, stdin="", seconds=PATIENCE_S):
        return self.finish(self.start_client(*arguments, stdin=stdin), seconds)

    def at(self, command, *options, expect=OK):
        """Runs one command and returns the object that `mdxctl --json` prints for it."""
        code, out, err = self.ctl("at", "--json", *options, command)
        self.assertEqual(code, expect, f"{command!r}: {out}{err}")
        return json.loads(out) if out else {}

    def assert_serves(self):
        """A fresh client gets an answer within its budget."""
        self.assertIn("+CSQ:", self.at("AT+CSQ")["text"])
