# SPDX-License-Identifier: Apache-2.0
"""A client of the server, with one request at a time under way; nothing here waits.

The library's handle belongs to the thread that opened it. That is looked at before the handle is: another
thread, or a forked child, must not touch what its owner may be closing.
"""

from __future__ import annotations

import ctypes
import threading
import time
import warnings
from typing import Optional

from ._answer import Answer, Request
from .errors import BadRequest, Closed, Pending, WrongThread, error_of
from ._library import Result, library

_OK = 0
_RSSI_REPORT = 2


class Handle:
    def __init__(self) -> None:
        self._client: Optional[int] = None
        self._thread = threading.get_native_id()
        self._request: Optional[Request] = None
        self._began = 0.0
        client = ctypes.c_void_p()
        error = library().mdx_open(ctypes.byref(client))
        if error == WrongThread.code:
            raise WrongThread("this thread has a modem open already, a Modem or an AsyncModem: use that one, or close it")
        if error != _OK:
            raise error_of(error)
        self._client = client.value

    def _own(self) -> int:
        if self._client is None:
            raise Closed("the modem was closed, or its with block has ended: open it again")
        if self._thread != threading.get_native_id():
            raise error_of(WrongThread.code)
        return self._client

    def fileno(self) -> int:
        """Readable when `finish` has something to do, the deadline included."""
        descriptor = int(library().mdx_client_fd(self._own()))
        if descriptor < 0:
            raise error_of(-8)
        return descriptor

    def begin(self, request: Request) -> None:
        client, options = self._own(), ctypes.byref(request.options)
        if self._request is not None:  # a signal's handler, while the program waits
            raise error_of(Pending.code)
        # First of all, so that an interrupted one can be cancelled.
        self._request, self._began = request, time.monotonic()
        if request.command is None:
            error = library().mdx_begin_report(client, _RSSI_REPORT, options)
        elif request.pdu is None:
            error = library().mdx_begin(client, request.command, options)
        else:
            error = library().mdx_begin_pdu(client, request.command, request.pdu, options)
        if error == _OK:
            return
        failure = request.mistake() if error == BadRequest.code else error_of(error)
        self._request = None
        raise failure

    def finish(self) -> Optional[Answer]:
        """The answer to what was begun, None as long as it is not there."""
        client, request = self._own(), self._request
        result = Result()
        error = library().mdx_finish(client, ctypes.byref(result))
        if error == Pending.code:
            return None
        self._request = None
        if error != _OK or request is None:
            raise error_of(error)
        return request.answer_of(result, time.monotonic() - self._began)

    def cancel(self, request: Request) -> None:
        """Gives it up if it is under way: it is taken back where the modem is not at it yet."""
        if self._request is request:
            self._request = None
            library().mdx_cancel(self._own())

    def close(self) -> None:
        if self._client is None:
            return
        client = self._own()
        self._client = self._request = None
        library().mdx_close(client)

    def __del__(self) -> None:
        # Nobody else can have it any more, so any thread may release it.
        client, self._client = getattr(self, "_client", None), None
        if client is not None:
            warnings.warn("a modem was not closed: use it in a with block", ResourceWarning, stacklevel=2)
            library().mdx_close(client)
