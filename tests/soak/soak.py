# SPDX-License-Identifier: Apache-2.0
"""Server, modem, 20 clients and 5 watchers for as long as asked, with kills at random; then the balance.

  scripts/box python3 tests/soak/soak.py [--minutes N] [--seed N]

Nobody may get another's answer, no command and no report may disappear without a word. What goes down
with a killed client or an unplugged device is told apart from what is lost.
"""

import argparse
import collections
import json
import os
import pathlib
import random
import struct
import subprocess
import sys
import time

from modem import NUMBERS_A_LIFE

HERE = pathlib.Path(__file__).parent
LEDGER = pathlib.Path("/tmp/ledger")
CLIENTS, WATCHERS = 20, 5
TIMEOUT_S = 10
# A command that the device took with it waits for its time-out, and the others wait behind it.
AFTERMATH_S = TIMEOUT_S + 3
WARM_UP_S = 20
KILL_EVERY_S = {"client": 0.7, "watcher": 7, "modem": 40, "stalled watcher": 60}

class Run:
    """A client with a batch of commands, or a watcher."""

    def __init__(self, *command, given=""):
        self.path = pathlib.Path(f"/tmp/run.{id(self)}.{time.monotonic_ns()}")
        stdin = subprocess.DEVNULL
        if given:
            self.path.write_text(given)
            stdin = open(self.path)
        out = open(f"{self.path}.out", "w")
        self.began, self.killed = time.monotonic(), False
        self.process = subprocess.Popen(command, stdin=stdin, stdout=out, stderr=subprocess.DEVNULL)
        out.close()
        if given:
            stdin.close()

    def kill(self):
        self.killed = True
        self.process.kill()
        self.process.wait()

    def lines(self):
        """The objects it wrote; a kill may have cut the last."""
        text = pathlib.Path(f"{self.path}.out").read_text()
        for path in (self.path, f"{self.path}.out"):
            pathlib.Path(path).unlink(missing_ok=True)
        return [json.loads(line) for line in text.split("\n")[:-1]]

class Soak:
    def __init__(self, seed):
        self.dice = random.Random(seed)
        self.start = time.monotonic()
        self.count = collections.Counter()
        self.oddities = []
        self.faults = []  # when the device was away
        self.life = 0
        self.modem = None
        self.batch = 0
        self.server = subprocess.Popen(["mdxgate"], stdin=subprocess.DEVNULL)
        self.wait_for(lambda: os.path.exists("/var/run/mdxgate/hub"))
        self.watchers = [self.new_watcher() for _ in range(WATCHERS)]
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

    def start_modem(self):
        self.modem = subprocess.Popen([sys.executable, "-B", HERE / "modem.py", str(self.life),
                                       str(self.dice.getrandbits(32)), LEDGER])
        self.life += 1
        self.wait_for(lambda: os.path.exists("/dev/smd6"))

    def new_watcher(self):
        return Run("mdxctl", "watch", "--json", "--follow", "--module", "55")

    def new_client(self):
        self.batch += 1
        commands = [f"AT+TAG={self.batch}.{n}" for n in range(self.dice.randint(1, 40))]
        run = Run("mdxctl", "at", "--json", "--timeout", str(TIMEOUT_S), "-",
                  given="".join(command + "\n" for command in commands))
        run.commands = commands
        return run

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
        for command, answer in zip(run.commands, answers):
            began, ended = ended, ended + answer["seconds"]
            what = f"{began - self.start:.1f} to {ended - self.start:.1f} s: {answer}"
            tag = "+TAG: " + command.partition("=")[2]
            text = (answer.get("text") or "").strip()
            if text.endswith(tag) and text != tag and self.is_excused(began, ended):
                self.count["torn"] += 1  # a hang-up may take a piece out of its echo
            elif answer["result"] and text not in (tag, ""):
                self.oddity("misdelivered", what)
            elif answer["result"] and answer["result"]["number"] == 2 and answer["text"]:
                self.count["answered"] += 1
            elif self.is_excused(began, ended):
                self.count["refused" if "error" in answer else "timed out"] += 1
            else:
                self.oddity("lost", what)
        if run.killed:
            self.count["killed under way"] += len(answers) < len(run.commands)
        elif len(answers) != len(run.commands):
            self.oddity("lost", f"{run.commands[-1]}: only {len(answers)} came back")

    def settle_watcher(self, run):
        """Within a life of the modem numbers go up by one, but for those counted as lost."""
        before = None
        for packet in run.lines():
            number, lost = packet["fields"]["value"], packet["lost"]
            begins_anew = before is None or number // NUMBERS_A_LIFE != before // NUMBERS_A_LIFE
            # Only the first watcher, which nobody kills, was there when a life began.
            missed = number % NUMBERS_A_LIFE if begins_anew else number - before - 1
            wrong = lost < missed if begins_anew else lost != missed
            if wrong and not (begins_anew and run is not self.watchers[0]):
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
        if victim != "client":
            print(f"{time.monotonic() - self.start:.1f} s: {victim}", file=sys.stderr)
        if victim == "client":
            self.dice.choice(self.clients).kill()
        elif victim == "watcher":
            place = self.dice.randrange(1, WATCHERS)
            self.watchers[place].kill()
            self.settle_watcher(self.watchers[place])
            self.watchers[place] = self.new_watcher()
        elif victim == "stalled watcher":
            self.stall(self.dice.choice(self.watchers[1:]).process.pid)
        else:
            self.faults.append(time.monotonic())
            self.modem.kill()
            self.modem.wait()
            os.unlink("/dev/smd6")
            time.sleep(self.dice.choice((0, self.dice.random())))
            self.start_modem()

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
        for run in self.clients:
            run.process.wait(len(run.commands) * 2 * TIMEOUT_S)
            self.settle_client(run)
        self.modem.kill()
        time.sleep(2)
        self.sizes.append(self.server_size())
        for run in self.watchers:
            run.kill()
            self.settle_watcher(run)
        self.count["made"] = sum(struct.unpack(f"{self.life}q", LEDGER.read_bytes()))
        self.count["gone with the modem"] = self.count["made"] - self.count["told of"]

    def balance(self):
        """Prints the accounts; true when nothing is missing."""
        for title, kinds in (
                ("commands", ("sent", "answered", "refused", "timed out", "torn",
                              "killed under way", "lost", "misdelivered")),
                ("reports", ("made", "gone with the modem", "delivered", "counted as lost",
                             "lost or misordered")),
                ("kills", [kind for kind in self.count if kind.startswith("kills")])):
            print(f"{title}: " + ", ".join(f"{self.count[kind]} {kind.removeprefix('kills: ')}"
                                           for kind in kinds))
        for when, (rss, files) in zip(("start", "end"), self.sizes):
            print(f"server at {when}: RSS {rss} KiB, {files} open files")
        print(*self.oddities[:20], sep="\n")
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
