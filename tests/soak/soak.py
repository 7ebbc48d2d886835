# SPDX-License-Identifier: Apache-2.0
"""Server, modem, 20 clients and 5 watchers for as long as asked, with disturbances at random; then the balance.

  scripts/box python3 tests/soak/soak.py [--minutes N] [--seed N]

Clients run out of time, put two commands into one, leave the modem in its prompt and are killed; the server is
killed, the modem unplugged, late or mute. Nobody may get another's answer, no command may run behind its client's
end or become the text of a message, and no command and no report may disappear without a word. What goes down
with a killed client or server or an unplugged device is told apart from what is lost.
"""

import argparse
import collections
import json
import os
import pathlib
import random
import re
import struct
import subprocess
import sys
import time

from modem import NUMBERS_A_LIFE, reference

HERE = pathlib.Path(__file__).parent
sys.path.append(str(HERE.parent / "e2e"))
from device import Queues, SystemLog, record  # noqa: E402

LEDGER = pathlib.Path("/tmp/ledger")
NOTES = pathlib.Path("/tmp/notes")
CLIENTS, WATCHERS = 20, 5
TIMEOUTS_S = (1, 1, 2, 3, 5, 10)
TURN_S = 60
# A command that the device took with it waits for its time-out, and the others wait behind it.
AFTERMATH_S = max(TIMEOUTS_S) + 3
# Who has so much time gets an answer that comes so soon.
ENOUGH_S, SOON_S = 5, 0.3
# A process that ends has ended, and the server knows.
END_S = 1
WARM_UP_S = 20
# Of what the server traced before and behind an answer that was lost.
LOG_S = 3
KILL_EVERY_S = {"client": 0.7, "watcher": 7, "modem": 40, "stalled watcher": 60, "server": 30, "raw client": 6}
RAW_TEXTS = (("AT+TAG={0}\rAT+TAG={0}", 0), ("AT\rAT+TAG={0}", 0), ("AT+CMGS={0}", 5), ("at+cmgs={0}", 0))

class Run:
    """A client with a batch of commands, or a watcher."""

    def __init__(self, *command, given=""):
        self.path = pathlib.Path(f"/tmp/run.{id(self)}.{time.monotonic_ns()}")
        stdin = subprocess.DEVNULL
        if given:
            self.path.write_text(given)
            stdin = open(self.path)
        out = open(f"{self.path}.out", "w")
        self.began, self.killed_at = time.monotonic(), None
        self.process = subprocess.Popen(command, stdin=stdin, stdout=out, stderr=subprocess.DEVNULL)
        out.close()
        if given:
            stdin.close()

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.killed_at = time.monotonic()

    def lines(self):
        """The objects it wrote; a kill may have cut the last."""
        text = pathlib.Path(f"{self.path}.out").read_text()
        for path in (self.path, f"{self.path}.out"):
            pathlib.Path(path).unlink(missing_ok=True)
        return [json.loads(line) for line in text.split("\n")[:-1]]

class TimedLog(SystemLog):
    """Traces, each with the time at which it came."""

    def run(self):
        while True:
            line = self.socket.recv(4096).decode(errors="replace")
            self.lines.append((time.monotonic(), line))

    def around(self, begin, end):
        return [f"  {at:.3f} {line}" for at, line in self.lines if begin - LOG_S < at < end + LOG_S]

class Soak:
    def __init__(self, seed):
        self.log = TimedLog()
        self.dice = random.Random(seed)
        self.start = time.monotonic()
        self.count = collections.Counter()
        self.oddities = []
        self.faults = []  # when the device was away
        self.life = 0
        self.modem = None
        self.batch = 0
        self.queues = Queues()
        self.unanswered, self.ended = [], []
        self.start_server()
        self.watchers = [self.new_watcher() for _ in range(WATCHERS)]
        self.joined_late = set()  # watchers that were not there when a life began
        time.sleep(2)  # they are there before the first report
        self.start_modem()
        self.wait_for(lambda: os.path.exists("/var/mdx_ready.flg"))
        self.clients = [self.new_client() for _ in range(CLIENTS)]

    @staticmethod
    def wait_for(condition):
        deadline = time.monotonic() + 15
        while not condition():
            if time.monotonic() > deadline:
                sys.exit("soak: the device does not come up")
            time.sleep(0.01)

    def start_server(self):
        self.server = subprocess.Popen(["mdxgate"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        self.wait_for(self.is_served)

    @staticmethod
    def is_served():
        return subprocess.run(["mdxctl", "stats"], capture_output=True).returncode == 0

    def start_modem(self):
        self.modem = subprocess.Popen([sys.executable, "-B", HERE / "modem.py", str(self.life),
                                       str(self.dice.getrandbits(32)), LEDGER, NOTES])
        self.life += 1
        self.wait_for(lambda: os.path.exists("/dev/smd6"))

    def new_watcher(self):
        return Run("mdxctl", "watch", "--json", "--follow", "--module", "55")

    def new_client(self):
        self.batch += 1
        timeout = self.dice.choice(TIMEOUTS_S)
        options = ["--json", "--timeout", str(timeout)]
        if self.dice.random() < 0.8:
            options += ["--wait", str(TURN_S)]
        if self.dice.random() < 0.2:
            run = self.new_sender(options)
        else:
            commands = [f"AT+TAG={self.batch}.{n}" for n in range(self.dice.randint(1, 40))]
            run = Run("mdxctl", "at", *options, "-", given="".join(command + "\n" for command in commands))
            run.expected = {command: command.replace("AT+TAG=", "+TAG: ") for command in commands}
        run.timeout = timeout
        return run

    def new_sender(self, options):
        pdu = f"0001000B91{self.dice.randrange(10**12):012d}0000A054747A0E4ACF41"
        run = Run("mdxctl", "sms-pdu", *options, "AT+CMGS=20", pdu)
        run.expected = {"AT+CMGS=20": f"+CMGS: {reference(pdu.encode())}"}
        return run

    def be_reachable(self):
        fifo = pathlib.Path(f"/var/run/mdxgate/tasks/{os.getpid()}")
        if not fifo.exists():  # a server that starts takes those of the one before away
            os.mkfifo(fifo)
            self.fifo = os.open(fifo, os.O_RDWR | os.O_NONBLOCK)

    def send_raw(self):
        """What no tool would send: from a program that knows nothing of the library."""
        self.batch += 1
        text, kind = self.dice.choice(RAW_TEXTS)
        request = record(text.format(f"{self.batch}.raw").encode(), os.getpid(), kind)
        try:
            self.be_reachable()
            for _ in range(200):  # the queue is mostly full
                if self.queues.send(request):
                    return
                time.sleep(0.002)
            self.count["raw: no room"] += 1
        except OSError:
            self.count["raw: no server"] += 1

    def settle_raw(self):
        for text in self.queues.answers(os.getpid()):
            tags = re.findall(r"\+TAG: ?([\w.]+)", text)
            self.count["raw"] += 1
            if any(not tag.endswith(".raw") for tag in tags) or len(set(tags)) > 1:
                self.oddity("misdelivered", f"raw: {text!r}")

    # Accounts

    def oddity(self, kind, what):
        self.count[kind] += 1
        self.oddities.append(f"{kind}: {what}")

    def is_excused(self, began, ended):
        return any(began < fault + AFTERMATH_S and fault - 1 < ended for fault in self.faults[-20:])

    def settle_client(self, run):
        answers = run.lines()
        self.count["sent"] += len(answers)
        ended = run.began
        for (command, expected), answer in zip(run.expected.items(), answers):
            began, ended = ended, ended + answer["seconds"]
            self.settle_answer(command, expected, answer, began, ended, run.timeout)
        if run.killed_at is not None:
            self.count["killed under way"] += len(answers) < len(run.expected)
            self.ended += [(command, run.killed_at) for command in run.expected]
        elif len(answers) != len(run.expected):
            self.oddity("lost", f"{list(run.expected)[-1]}: only {len(answers)} came back")

    def settle_answer(self, command, expected, answer, began, ended, timeout):
        what = f"{began - self.start:.1f} to {ended - self.start:.1f} s: {answer}"
        text = (answer.get("text") or "").strip()
        result = answer["result"]
        excused = self.is_excused(began, ended)
        if text == expected and result and result["number"] == 2:
            self.count["answered"] += 1
        elif text.endswith(expected) and text != expected and excused:
            self.count["torn"] += 1  # a hang-up may take a piece out of its echo
        elif text not in (expected, ""):
            self.oddity("misdelivered", what)
        elif result and result["number"] == 2 and not excused and "error" not in answer:
            self.oddity("misdelivered", what)  # somebody else's OK
        elif result and "CMS" in str(result["name"]):
            self.count["refused by the modem"] += 1
        elif answer.get("error", "").startswith(("no server", "refused: the server could not write")):
            self.count["nobody there"] += 1  # a whole batch of them takes a millisecond
        else:
            self.count["timed out" if result else "refused"] += 1
            if not excused and timeout >= ENOUGH_S:
                self.unanswered.append((command, what))

    def settle_notes(self):
        """What the modem was asked, against what became of it."""
        heard, answered = {}, {}
        for line in NOTES.read_text().splitlines():
            at, what, tag = line.split(" ", 2)
            if what == "swallowed":
                self.oddity("swallowed as text", f"{float(at) - self.start:.1f} s: {tag}")
                continue
            if what == "heard" and tag in heard and not tag.endswith(".raw"):
                self.oddity("run twice", tag)
            (heard if what == "heard" else answered)[tag] = float(at)
        for command, what in self.unanswered:
            tag = command.partition("=")[2]
            if tag in answered and answered[tag] < heard[tag] + SOON_S:
                self.oddity("lost", f"{what}, heard at {heard[tag]:.3f}, answered at {answered[tag]:.3f}")
                self.oddities += self.log.around(heard[tag], answered[tag])
        for command, killed_at in self.ended:
            if heard.get(command.partition("=")[2], 0) > killed_at + END_S:
                self.oddity("run after its client's end", command)

    def settle_watcher(self, run):
        """Within a life of the modem numbers go up by one, but for those counted as lost."""
        before = None
        for packet in run.lines():
            number, lost = packet["fields"]["value"], packet["lost"]
            begins_anew = before is None or number // NUMBERS_A_LIFE != before // NUMBERS_A_LIFE
            # Only the first watcher, which nobody kills, was there when a life began.
            missed = number % NUMBERS_A_LIFE if begins_anew else number - before - 1
            wrong = lost < missed if begins_anew else lost != missed
            was_there = run is self.watchers[0] and (before is not None or run not in self.joined_late)
            if wrong and (was_there or not begins_anew):
                self.oddity("lost or misordered", f"{before}, {number}, {lost} counted as lost")
            self.count["counted as lost"] += lost
            self.count["delivered"] += 1
            if run is self.watchers[0]:
                self.count["told of"] += lost + 1
            before = number

    def server_size(self):
        status = pathlib.Path(f"/proc/{self.server.pid}/status").read_text()
        rss = int(status.partition("VmRSS:")[2].split()[0])
        return rss, len(os.listdir(f"/proc/{self.server.pid}/fd"))

    # Faults

    def strike(self, victim):
        self.count[f"kills: {victim}"] += 1
        if "client" not in victim:
            print(f"{time.monotonic() - self.start:.1f} s: {victim}", file=sys.stderr)
        if victim == "client":
            self.dice.choice(self.clients).kill()
        elif victim == "watcher":
            place = self.dice.randrange(1, WATCHERS)
            self.watchers[place].kill()
            self.settle_watcher(self.watchers[place])
            self.watchers[place] = self.new_watcher()
        elif victim == "server":
            self.kill_server()
        elif victim == "raw client":
            self.send_raw()
        elif victim == "stalled watcher":
            self.stall(self.dice.choice(self.watchers[1:]).process.pid)
        else:
            self.faults.append(time.monotonic())
            self.modem.kill()
            self.modem.wait()
            os.unlink("/dev/smd6")
            time.sleep(self.dice.choice((0, self.dice.random())))
            self.start_modem()

    def kill_server(self):
        """Watchers begin anew behind it: what is told meanwhile reaches nobody."""
        self.faults.append(time.monotonic())
        self.server.kill()
        self.server.wait()
        for run in self.watchers:
            run.kill()
            self.settle_watcher(run)
        self.start_server()
        self.watchers = [self.new_watcher() for _ in range(WATCHERS)]
        self.joined_late.update(self.watchers)
        self.faults.append(time.monotonic())

    @staticmethod
    def stall(pid):
        """Stops a watcher for 20 seconds: the hub must count what it misses."""
        subprocess.Popen(["sh", "-c", f"kill -STOP {pid}; sleep 20; kill -CONT {pid}"],
                         stderr=subprocess.DEVNULL)

    def run(self, seconds):
        warm, end = time.monotonic() + WARM_UP_S, time.monotonic() + WARM_UP_S + seconds
        due = {victim: time.monotonic() + every for victim, every in KILL_EVERY_S.items()}
        self.sizes = []
        while time.monotonic() < end:
            if time.monotonic() > warm and not self.sizes:
                self.sizes.append(self.server_size())
            self.settle_raw()
            for place, run in enumerate(self.clients):
                if run.process.poll() is not None:
                    self.settle_client(run)
                    self.clients[place] = self.new_client()
            for victim, at in due.items():
                if time.monotonic() >= at:
                    due[victim] += self.dice.expovariate(1 / KILL_EVERY_S[victim])
                    self.strike(victim)
            if self.server.poll() is not None:
                sys.exit(f"soak: the server ended by itself: {self.server.returncode}")
            time.sleep(0.02)
        self.end()

    def end(self):
        end = time.monotonic() + AFTERMATH_S
        for run in self.clients:
            try:
                run.process.wait(max(0, end - time.monotonic()))
            except subprocess.TimeoutExpired:
                run.kill()
            self.settle_client(run)
        self.modem.kill()
        time.sleep(2)
        self.sizes.append(self.server_size())
        for run in self.watchers:
            run.kill()
            self.settle_watcher(run)
        self.settle_notes()
        self.count["made"] = sum(struct.unpack(f"{self.life}q", LEDGER.read_bytes()))
        self.count["told nobody"] = self.count["made"] - self.count["told of"]

    def balance(self):
        """Prints the accounts; true when nothing is missing."""
        for title, kinds in (
                ("commands", ("sent", "answered", "nobody there", "refused", "refused by the modem", "timed out", "torn",
                              "killed under way", "raw", "raw: no room", "raw: no server", "lost", "misdelivered",
                              "run after its client's end", "run twice", "swallowed as text")),
                ("reports", ("made", "told nobody", "delivered", "counted as lost",
                             "lost or misordered")),
                ("kills", [kind for kind in self.count if kind.startswith("kills")])):
            print(f"{title}: " + ", ".join(f"{self.count[kind]} {kind.removeprefix('kills: ')}"
                                           for kind in kinds))
        for when, (rss, files) in zip(("start", "end"), self.sizes):
            print(f"server at {when}: RSS {rss} KiB, {files} open files")
        print(*self.oddities[:100], sep="\n")
        return not self.oddities

def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=1)
    parser.add_argument("--seed", type=int, default=int.from_bytes(os.urandom(4), "little"))
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}, {arguments.minutes:g} minutes", flush=True)
    soak = Soak(arguments.seed)
    soak.run(arguments.minutes * 60)
    sys.exit(0 if soak.balance() else 1)

if __name__ == "__main__":
    main()
