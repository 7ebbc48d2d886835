# SPDX-License-Identifier: Apache-2.0
"""The modem and its reports for asyncio, without threads: the library's descriptors are in the loop."""

from __future__ import annotations

import asyncio
import time
import types
from typing import Any, AsyncIterator, Optional, Type

from ._answer import SEND_TIMEOUT_S, Answer, Plan, Request, T, command_request, pdu_request, stored_report_request
from .errors import Busy, Closed, Pending, TimedOut, error_of
from ._handle import Handle
from ._library import Options
from ._reports import Report, Reports
from .sms import AsyncMessages


async def _readable(descriptor: int) -> None:
    loop = asyncio.get_running_loop()
    ready: asyncio.Future[None] = loop.create_future()

    def tell() -> None:
        if not ready.done():
            ready.set_result(None)

    loop.add_reader(descriptor, tell)
    try:
        await ready
    finally:
        loop.remove_reader(descriptor)


async def _take_turn(turn: asyncio.Lock, options: Options) -> None:
    """Waits as long as the options allow, and leaves in them what is left.

    @raises Busy
    """
    limits_s = [options.wait_s, options.deadline_ms / 1000]
    limit_s = min(filter(None, limits_s), default=None)
    began = time.monotonic()
    acquired: asyncio.Future[Any] = asyncio.ensure_future(turn.acquire())
    try:
        await asyncio.wait({acquired}, timeout=limit_s)
    except BaseException:
        _decline(turn, acquired)
        raise
    if not acquired.done():
        _decline(turn, acquired)
        raise error_of(Busy.code)
    waited_s = time.monotonic() - began
    if options.wait_s:
        options.wait_s = max(1, round(options.wait_s - waited_s))
    if options.deadline_ms:
        options.deadline_ms = max(1, round(options.deadline_ms - 1000 * waited_s))


def _decline(turn: asyncio.Lock, acquired: asyncio.Future[Any]) -> None:
    if not acquired.done():
        acquired.cancel()
    elif not acquired.cancelled():
        turn.release()


class AsyncModem:
    """A client of the server for the tasks of one event loop: `async with AsyncModem() as modem`.

    The server serves one command after the other, and so does this: tasks that share it take turns. A task
    that is cancelled takes its command back where the modem is not at it yet.
    """

    def __init__(self) -> None:
        self._handle: Optional[Handle] = None
        self._turn: Optional[asyncio.Lock] = None
        #: The modem's text messages.
        self.sms = AsyncMessages(self._run)

    async def __aenter__(self) -> AsyncModem:
        self._turn = asyncio.Lock()
        self._handle = Handle()
        return self

    async def __aexit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                        trace: Optional[types.TracebackType]) -> None:
        if self._handle is not None:
            self._handle.close()

    async def send(self, command: str, timeout: Optional[int] = None, *, wait: int = 0,
                   deadline: Optional[float] = None, match: Optional[str] = None, multi_line: bool = False,
                   transparent: bool = False) -> Answer:
        """As Modem.send. While other tasks of this program have the modem the command waits for them, too:
        as long as `wait` says, and without `wait` as long as it takes."""
        request = command_request(command, timeout, wait=wait, deadline=deadline, match=match,
                                  multi_line=multi_line, transparent=transparent)
        return await self._run(_one(request), request)

    async def send_pdu(self, head: str, pdu: str, timeout: int = SEND_TIMEOUT_S, *, wait: int = 0,
                       deadline: Optional[float] = None) -> Answer:
        """As Modem.send_pdu."""
        request = pdu_request(head, pdu, timeout, wait=wait, deadline=deadline)
        return await self._run(_one(request), request)

    async def last_rssi(self, deadline: Optional[float] = None) -> str:
        """As Modem.last_rssi."""
        request = stored_report_request(deadline)
        return (await self._run(_one(request), request)).text

    async def _exchange(self, handle: Handle, request: Request) -> Answer:
        try:
            handle.begin(request)
            while True:
                await _readable(handle.fileno())
                answer = handle.finish()
                if answer is not None:
                    return answer
        except BaseException:
            handle.cancel(request)
            raise

    async def _run(self, plan: Plan[T], request: Optional[Request] = None) -> T:
        if self._handle is None or self._turn is None:
            raise Closed("the modem is not open: async with AsyncModem() as modem")
        await _take_turn(self._turn, request.options if request else Options())
        try:
            return await self._drive(self._handle, plan)
        finally:
            self._turn.release()

    async def _drive(self, handle: Handle, plan: Plan[T]) -> T:
        try:
            request = next(plan)
            while True:
                try:
                    answer = await self._exchange(handle, request)
                except BaseException as error:
                    request = plan.throw(error)
                else:
                    request = plan.send(answer)
        except StopIteration as stop:
            value: T = stop.value
            return value


def _one(request: Request) -> Plan[Answer]:
    return (yield request)


class AsyncReports:
    """What the server tells the device, for `async for`; as Reports."""

    def __init__(self, service: str = "*", *, module: Optional[int] = None, last: bool = False) -> None:
        self._reports = Reports(service, module=module, last=last)
        self._waits = False

    async def __aenter__(self) -> AsyncReports:
        return self

    async def __aexit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                        trace: Optional[types.TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        self._reports.close()

    def __aiter__(self) -> AsyncIterator[Report]:
        return self

    async def __anext__(self) -> Report:
        if self._waits:
            raise Pending("another task waits for these reports: give each task its own")
        self._waits = True
        try:
            while True:
                report = self._reports.take()
                if report is not None:
                    return report
                await _readable(self._reports.fileno())
        finally:
            self._waits = False

    async def get(self, timeout: Optional[float] = None) -> Report:
        """As Reports.get."""
        try:
            return await asyncio.wait_for(self.__anext__(), timeout)
        except asyncio.TimeoutError:
            raise TimedOut(f"no report came within {timeout} s") from None
