# SPDX-License-Identifier: Apache-2.0
"""The modem, for programs that wait for its answers."""

from __future__ import annotations

import select
import types
from typing import Optional, Type

from ._answer import SEND_TIMEOUT_S, Answer, Plan, Request, T, command_request, pdu_request, stored_report_request
from ._handle import Handle
from .sms import Messages


def _exchange(handle: Handle, request: Request) -> Answer:
    try:
        handle.begin(request)
        poller = select.poll()
        poller.register(handle.fileno(), select.POLLIN)
        while True:
            poller.poll()
            answer = handle.finish()
            if answer is not None:
                return answer
    except BaseException:
        handle.cancel(request)
        raise


class _Runner:
    """Drives plans. Of the modem it knows the handle alone, so that a modem nobody has any more is closed at once."""

    def __init__(self, handle: Handle) -> None:
        self._handle = handle

    def __call__(self, plan: Plan[T]) -> T:
        try:
            request = next(plan)
            while True:
                try:
                    answer = _exchange(self._handle, request)
                except BaseException as error:
                    request = plan.throw(error)
                else:
                    request = plan.send(answer)
        except StopIteration as stop:
            value: T = stop.value
            return value


class Modem:
    """A client of the server; of the thread that opened it, and only one of that thread's.

    A second thread opens a Modem of its own, and so does a forked child. Ctrl-C, or whatever else a signal
    handler raises, ends the waiting and takes a command back that the modem is not at yet.
    """

    def __init__(self) -> None:
        self._handle = Handle()
        #: The modem's text messages.
        self.sms = Messages(_Runner(self._handle))

    def __enter__(self) -> Modem:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[types.TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        """Leaves the server; calling it twice is allowed."""
        self._handle.close()

    def send(self, command: str, timeout: Optional[int] = None, *, wait: int = 0,
             deadline: Optional[float] = None, match: Optional[str] = None, multi_line: bool = False,
             transparent: bool = False) -> Answer:
        """Sends one command and waits for the answer, which also an ERROR is: see Answer.check.

        timeout: whole seconds that the modem gets; 10 without it, and a search for networks 240
        wait: whole seconds that the command may wait for its turn, while the modem works for others; it
            then has all of timeout. 0: both together have timeout and a second more
        deadline: seconds by which this returns, whatever the other two say
        match, multi_line, transparent: how the answer is collected, as mdxclient(3) has it. Without any of
            them all lines arrive, each by itself
        """
        request = command_request(command, timeout, wait=wait, deadline=deadline, match=match,
                                  multi_line=multi_line, transparent=transparent)
        return _exchange(self._handle, request)

    def send_pdu(self, head: str, pdu: str, timeout: int = SEND_TIMEOUT_S, *, wait: int = 0,
                 deadline: Optional[float] = None) -> Answer:
        """Sends or stores a message in PDU mode: the command line, such as AT+CMGS=22, and the PDU.

        The timeout counts twice, for the prompt and for the answer. For texts there is `sms`.
        """
        return _exchange(self._handle, pdu_request(head, pdu, timeout, wait=wait, deadline=deadline))

    def last_rssi(self, deadline: Optional[float] = None) -> str:
        """The last ^RSSI report, "^RSSI: 0" until the first has come; the modem is not asked."""
        return _exchange(self._handle, stored_report_request(deadline)).text
