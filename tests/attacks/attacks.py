# SPDX-License-Identifier: Apache-2.0

"""A neighbour does its worst while the server is started over and over: does it serve, how soon, how well?

attacks.py [--starts N] [ATTACK…]

An attacker is a member of the server's group or an outsider, as processes that never pause, also
while the server is not there. Each start is tried by an honest member: it has to be served within
PATIENCE_S, and then some commands more, the slowest of which is told. Exits with 1 when one start was
never served; with all STARTS also when an honest command was refused or took longer than SLOW_S. With fewer, time is
only told: each has PATIENCE_OF_SHORT_RUNS_S. Runs as root of `scripts/box --users`.
"""

import argparse
import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).parent
sys.path.append(str(HERE.parent / "e2e"))
from device import Queues, record  # noqa: E402

STARTS = 60
SLOW_S = 1
PATIENCE_S, PATIENCE_OF_SHORT_RUNS_S = 5, 30
COMMANDS = 10
DIRECTORY = pathlib.Path("/run/mdxgate")
DEVICE = pathlib.Path("/dev/smd6")
KEYS = (0x4D445801, 0x4D445802)
IPC_PRIVATE, IPC_RMID, IPC_CREAT = 0, 0, 0o1000
GROUP = 64242
ROOT, HONEST, MEMBER, OUTSIDER = (0, 0), (64301, GROUP), (64302, GROUP), (64303, 64303)
AHEAD = 60
CLIENT = "/tmp/mdxctl"  # a copy, as others may not reach the build

# What the service manager leaves root for the start.
AS_A_SERVICE = ["setpriv", "--no-new-privs",
                "--bounding-set=-all,+setuid,+setgid,+chown,+fsetid,+dac_override"]

libc = ctypes.CDLL(None, use_errno=True)


def become(user, group):
    os.setgroups([])
    os.setgid(group)
    os.setuid(user)


def quietly(call, *arguments):
    with contextlib.suppress(OSError):
        call(*arguments)


def newest_task():
    return int(pathlib.Path("/proc/loadavg").read_text().split()[-1])


def names_of_coming_tasks():
    newest = newest_task()
    for task in range(newest + 1, newest + AHEAD):
        yield from (DIRECTORY / f"event.{task}", DIRECTORY / "tasks" / str(task))


# What an attacker repeats.

def take_keys():
    for key in KEYS:
        libc.msgget(key, IPC_CREAT | 0o666)


def take_all_queues():
    """As many as the system holds, for a second."""
    taken = []
    end = time.monotonic() + 1
    while time.monotonic() < end:
        queue = libc.msgget(IPC_PRIVATE, 0o600)
        if queue >= 0:
            taken.append(queue)
    for queue in taken:
        libc.msgctl(queue, IPC_RMID, None)
    time.sleep(1)


def full_directory(path):
    quietly(os.mkdir, path)
    quietly(os.mkdir, path / "in the way")


def take_names():
    for name in ("queue.2", "queue.2.new", "hub", "console", "lock", "tasks"):
        full_directory(DIRECTORY / name)


def touch_names():
    for name in ("queue.2", "queue.2.new", "hub", "console", "lock", "tasks"):
        quietly((DIRECTORY / name).touch)


def plant_directories():
    for path in names_of_coming_tasks():
        full_directory(path)
        full_directory(path.parent / f"refused.{path.name}")


def plant_fifos():
    for path in names_of_coming_tasks():
        quietly(os.mkfifo, path, 0o600)


def be_reachable():
    """A task of the group, whose FIFO a server that starts has taken away. Nothing is ever read from it."""
    fifo = DIRECTORY / "tasks" / str(os.getpid())
    if not fifo.exists():
        os.mkfifo(fifo, 0o620)
        os.open(fifo, os.O_RDWR | os.O_NONBLOCK)


def leave_answers():
    with contextlib.suppress(OSError):
        be_reachable()
        Queues().send(record(b"AT", os.getpid()))
    time.sleep(0.3)


def connect(subscribes):
    hub = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    hub.connect(str(DIRECTORY / "hub"))
    if subscribes:
        hub.send(struct.pack("=II12sIIiiI", 0, 0, b"*", 0, 0, 0, 0, 0))
    hub.setblocking(False)
    return hub


def hold_places(count, subscribes, read_every_s):
    """As long as a server lets them; those that subscribe read a little, so their buffers stay nearly full."""
    hubs = []
    with contextlib.suppress(OSError):
        hubs += [connect(subscribes) for _ in range(count)]
    end = time.monotonic() + 3
    while time.monotonic() < end:
        for hub in hubs:
            quietly(hub.recv, 100)
        time.sleep(read_every_s)


def hold_all_places():
    hold_places(140, False, 1)


def receive_slowly():
    hold_places(126, True, 0.02)


def remove_the_servers_fifo():
    for fifo in DIRECTORY.glob("event.*"):
        quietly(fifo.unlink)
    time.sleep(0.02)


# What is there before each start.

def nothing():
    pass


def no_queues():
    for key in KEYS:
        libc.msgctl(libc.msgget(key, 0), IPC_RMID, None)


def directory_of_the_first_layout():
    """As a server made it whose group could make names in it, with a member's names in it."""
    remove_directory()
    os.mkdir(DIRECTORY)
    os.chown(DIRECTORY, 0, GROUP)
    os.chmod(DIRECTORY, 0o3770)
    time.sleep(0.02)


def remove_directory():
    """In one step: attackers are at work in it."""
    if DIRECTORY.exists():
        shutil.rmtree(DIRECTORY.rename(f"/run/{time.monotonic_ns()}"), ignore_errors=True)


def lock_before_the_first_start():
    directory_of_the_first_layout()
    (DIRECTORY / "lock").touch()
    os.chown(DIRECTORY / "lock", *MEMBER)


def directory_made_by_root():
    remove_directory()
    os.mkdir(DIRECTORY, 0o755)


def device_that_flaps():
    """/dev/ptmx stands there for a moment, and then nothing, over and over; a second later the modem stays."""
    modem = os.readlink(DEVICE)
    if os.fork() != 0:
        return
    for target in ("/dev/ptmx", None, modem) * 7:
        DEVICE.unlink(missing_ok=True)
        if target:
            DEVICE.symlink_to(target)
        time.sleep(0.05)
    os._exit(0)


STUCK, PLACES = "standard output is stuck", "member: all places at the hub"


# clang-format has no say here, but a table is read like a table.
ATTACKS = {
    "nobody":                         (nothing, []),
    "outsider: keys of the queues":   (nothing, [(OUTSIDER, take_keys)] * 3),
    "outsider: all queues":           (no_queues, [(OUTSIDER, take_all_queues)]),
    "outsider: names":                (nothing, [(OUTSIDER, take_names), (OUTSIDER, plant_fifos)]),
    "member: keys of the queues":     (nothing, [(MEMBER, take_keys)] * 3),
    "member: full directories":       (nothing, [(MEMBER, take_names)]),
    "member: files":                  (nothing, [(MEMBER, touch_names)]),
    "member: tasks' names, dirs":     (nothing, [(MEMBER, plant_directories)]),
    "member: tasks' names, FIFOs":    (nothing, [(MEMBER, plant_fifos)]),
    "first layout: full directories": (directory_of_the_first_layout, [(MEMBER, take_names)]),
    "first layout: files":            (directory_of_the_first_layout, [(MEMBER, touch_names)]),
    "first layout: tasks' names":     (directory_of_the_first_layout, [(MEMBER, plant_directories)]),
    "first layout: lock planted":     (lock_before_the_first_start, []),
    "directory made by root":         (directory_made_by_root, []),
    "member: unread answers":         (nothing, [(MEMBER, leave_answers)] * 10),
    PLACES:                           (nothing, [(MEMBER, hold_all_places)]),
    "member: slow receivers":         (nothing, [(MEMBER, receive_slowly)]),
    "root: the server's FIFO":        (nothing, [(ROOT, remove_the_servers_fifo)]),
    "device that flaps":              (device_that_flaps, []),
    STUCK:                            (nothing, []),
}


@contextlib.contextmanager
def attackers(roles):
    children = []
    for who, act in roles:
        child = os.fork()
        if child == 0:
            become(*who)
            while True:
                act()
        children.append(child)
    try:
        yield
    finally:
        for child in children:
            os.kill(child, signal.SIGKILL)
            os.waitpid(child, 0)


def ask(name):
    """One honest command. Returns (whether it was served, the seconds it took, what was said)."""
    command = ("state", "link") if name == PLACES else ("at", "--timeout", "2", "AT+CSQ")
    start = time.monotonic()
    client = subprocess.run([CLIENT, *command], user=HONEST[0],
                            group=HONEST[1], extra_groups=[], capture_output=True, text=True)
    return client.returncode == 0, time.monotonic() - start, client.stderr.strip()


def full_pipe():
    reads, writes = os.pipe()
    os.set_blocking(writes, False)
    quietly(os.write, writes, bytes(1 << 20))
    os.set_blocking(writes, True)
    return reads, writes


def one_start(name, prepare, patience_s):
    """Returns (seconds until it served or None, seconds of the slowest command, what was said)."""
    prepare()
    start = time.monotonic()
    ends = full_pipe() if name == STUCK else ()
    server = subprocess.Popen(AS_A_SERVICE + ["mdxgate"], stdout=ends[1] if ends else subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
    try:
        served, said = False, ""
        while not served and time.monotonic() - start < patience_s:
            served, _, said = ask(name)
            if not served:
                time.sleep(0.02)
        if not served:
            return None, None, f"exit code {server.poll()}; {said}"
        ready = time.monotonic() - start
        answers = [ask(name) for _ in range(COMMANDS)]
        refused = [said for fine, _, said in answers if not fine]
        return ready, max(seconds for _, seconds, _ in answers), refused[0] if refused else ""
    finally:
        server.kill()
        server.wait()
        for end in ends:
            os.close(end)


def attack(name, starts):
    prepare, roles = ATTACKS[name]
    remove_directory()
    patience_s = PATIENCE_S if starts >= STARTS else PATIENCE_OF_SHORT_RUNS_S
    with attackers(roles):
        results = [one_start(name, prepare, patience_s) for _ in range(starts)]
    ready = [seconds for seconds, _, _ in results if seconds is not None]
    slowest = [seconds for _, seconds, _ in results if seconds is not None]
    said = next((text for _, _, text in results if text), "")
    print(f"{name:32} {len(ready):4} of {starts:3} served, at the latest after "
          f"{max(ready, default=0):6.3f} s; slowest command {max(slowest, default=0):6.3f} s"
          f"{'  ' + repr(said) if said else ''}", flush=True)
    is_well_served = max(slowest, default=0) <= SLOW_S and not said
    return len(ready) == starts and (is_well_served or starts < STARTS)


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--starts", type=int, default=STARTS)
    parser.add_argument("attacks", nargs="*", metavar="ATTACK", help="names begin so; all if none")
    options = parser.parse_args()
    os.umask(0o022)
    shutil.copy(shutil.which("mdxctl"), CLIENT)
    modem = subprocess.Popen(["mdxsim", "--reports", "20"], stdout=subprocess.DEVNULL)
    while not os.path.islink("/dev/smd6"):
        time.sleep(0.01)
    # A user of its own opens the modem; there is no group for devices in this world.
    os.chmod(os.path.realpath("/dev/smd6"), 0o666)
    try:
        wanted = [name for name in ATTACKS
                  if not options.attacks or name.startswith(tuple(options.attacks))]
        served = [attack(name, options.starts) for name in wanted]
    finally:
        modem.kill()
        modem.wait()
    return 0 if all(served) else 1


if __name__ == "__main__":
    sys.exit(main())
