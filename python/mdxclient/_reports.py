# SPDX-License-Identifier: Apache-2.0
"""What the modem reports by itself, as the server tells it to the device."""

from __future__ import annotations

import ctypes
import enum
import select
import threading
import time
import types
import warnings
from dataclasses import dataclass, field
from typing import Dict, Iterator, Mapping, Optional, Tuple, Type, Union

from .errors import BadRequest, Closed, ServerGone, TimedOut, error_of
from ._library import Field, Packet, SubscribeOptions, library, text_of, word

_OK = 0
_TIMEOUT = TimedOut.code
_LINK, _LINK_UP = "link", 1
_NUMBER, _UNSIGNED, _TEXT = 1, 2, 3
# What is remembered is told at once; a busy machine may take its time.
_STATE_PATIENCE_S = 10.0

Value = Union[int, str, bytes]


class Kind(enum.IntEnum):
    SERVICE = 1  #: a message to the service `to`
    NOTIFICATION = 2  #: an event of `module`
    VOICE = 3  #: a call report


@dataclass(frozen=True)
class Report:
    """One thing that the device is told."""

    name: str  #: such as "EVT_AT_HCSQ"; empty where the library does not know it
    fields: Mapping[str, Value]  #: in the order of the wire
    age: Optional[int]  #: None for news; whole seconds for what was told before the subscription
    lost: int  #: reports missed right before this one, since the program was too slow
    kind: Kind
    type: int
    to: str  #: the service's name
    module: int
    module_name: str
    units: Mapping[str, str] = field(repr=False)  #: of those fields that have one: {"tx_rate": "B/s"}

    @property
    def link(self) -> Optional[bool]:
        """News of the modem itself: True, it is there; False, it is gone; None, about something else."""
        return self.type == _LINK_UP if self.to == _LINK and self.kind == Kind.SERVICE else None


def _fields_of(packet: Packet) -> Tuple[Dict[str, Value], Dict[str, str]]:
    values: Dict[str, Value] = {}
    units: Dict[str, str] = {}
    entry = Field()
    index = 0
    while library().mdx_packet_field(ctypes.byref(packet), index, ctypes.byref(entry)) == _OK:
        name = word(entry.name)
        if entry.kind == _NUMBER:
            values[name] = entry.number
        elif entry.kind == _UNSIGNED:
            values[name] = entry.unsigned_number
        else:
            data = ctypes.string_at(entry.data, entry.length) if entry.length else b""
            values[name] = text_of(data) if entry.kind == _TEXT else data
        if entry.unit:
            units[name] = word(entry.unit)
        index += 1
    return values, units


def _report_of(packet: Packet) -> Report:
    values, units = _fields_of(packet)
    return Report(
        name=word(library().mdx_packet_name(ctypes.byref(packet))), fields=values,
        age=packet.age_s if packet.remembered else None, lost=packet.lost, kind=Kind(packet.kind),
        type=packet.type, to=text_of(packet.to), module=packet.module,
        module_name=word(library().mdx_module_name(packet.module)), units=units)


class Reports:
    """A subscription: an endless iterator of Report, which ends with ServerGone or HubFull.

    service: a service's name, "*" for everything, or "" with a module
    module: a notification module's number; only its notifications come
    last: first comes the last report of each kind of state that was told before (signal, registration, SIM,
        data connection and so on), each with its `age`; that of the modem's link is the last of them

    Any thread may use it, one at a time.
    """

    def __init__(self, service: str = "*", *, module: Optional[int] = None, last: bool = False) -> None:
        self._subscription: Optional[int] = None
        self._lock = threading.Lock()
        options = SubscribeOptions(module=module or 0, last=last,
                                   service=b"" if module is not None else service.encode())
        subscription = ctypes.c_void_p()
        error = library().mdx_subscribe_with(ctypes.byref(subscription), ctypes.byref(options))
        if error == BadRequest.code:
            raise BadRequest(f"no service has the name {service!r}: 11 bytes are the most")
        if error != _OK:
            raise error_of(error)
        self._subscription = subscription.value

    def __enter__(self) -> Reports:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[types.TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        """Ends the subscription; calling it twice is allowed."""
        with self._lock:
            subscription, self._subscription = self._subscription, None
            if subscription is not None:
                library().mdx_unsubscribe(subscription)

    def __del__(self) -> None:
        if getattr(self, "_subscription", None) is not None:
            warnings.warn("reports were not closed: use them in a with block", ResourceWarning, stacklevel=2)
            self.close()

    def _own(self) -> int:
        if self._subscription is None:
            raise Closed("these reports were closed, or their with block has ended: subscribe again")
        return self._subscription

    def fileno(self) -> int:
        """Readable when a report waits, or the server is lost."""
        return int(library().mdx_subscription_fd(self._own()))

    def take(self) -> Optional[Report]:
        """The next report if one waits, else None."""
        with self._lock:
            packet = Packet()
            error = library().mdx_next_packet(self._own(), 0, ctypes.byref(packet))
            if error == _OK:
                return _report_of(packet)
        if error == _TIMEOUT:
            return None
        raise error_of(error)

    def get(self, timeout: Optional[float] = None) -> Report:
        """The next report; TimedOut when none came within so many seconds. None waits for good."""
        deadline = None if timeout is None else time.monotonic() + timeout
        poller = select.poll()
        poller.register(self.fileno(), select.POLLIN)
        while True:
            report = self.take()
            if report is not None:
                return report
            left = None if deadline is None else deadline - time.monotonic()
            if left is not None and left <= 0:
                raise TimedOut(f"no report came within {timeout} s")
            poller.poll(None if left is None else 1000 * left)

    def __iter__(self) -> Iterator[Report]:
        return self

    def __next__(self) -> Report:
        return self.get()


class State(Dict[str, Report]):
    """What the modem told last of each kind of state, by name, and whether it is there."""

    def __init__(self, told: Mapping[str, Report], link: Report) -> None:
        super().__init__(told)
        self.link = link  #: its `link` tells whether the modem is there, its `age` since when

    def __repr__(self) -> str:
        return f"State({super().__repr__()}, link={self.link!r})"

    def is_current(self, name: str) -> bool:
        """Whether it was told, and by the modem that is there now: not before it went away."""
        since, age = self.link.age, self[name].age if name in self else None
        return bool(self.link.link) and since is not None and age is not None and age <= since


def state() -> State:
    """Asks the server, not the modem."""
    told: Dict[str, Report] = {}
    with Reports(last=True) as reports:
        while True:
            report = reports.get(_STATE_PATIENCE_S)
            if report.age is None:
                raise ServerGone("the server told no state: is it older than this package?")
            if report.link is not None:
                return State(told, report)
            told[report.name] = report
