# SPDX-License-Identifier: Apache-2.0
"""What can go wrong, a class for each, with the library's own sentence on what to do about it."""

from __future__ import annotations

import ctypes
import os
from typing import TYPE_CHECKING, Dict, Optional, Tuple, Type

if TYPE_CHECKING:
    from ._answer import Answer


class Error(Exception):
    """All errors of this package."""

    code: int = 0  #: as mdxclient.h numbers it; 0 for what only this package tells
    parts_sent: Optional[int] = None  #: of a text message that failed: parts that went out before


class NoLibrary(Error, ImportError):
    """libmdxclient is not installed, or too old."""


class BadRequest(Error, ValueError):
    """Something in the request can never be served; nothing was sent."""

    code = -1
    position: Optional[int] = None  #: of the byte that is wrong, in the command, PDU, match or text


class NoServer(Error, ConnectionError):
    """No server runs on this machine."""

    code = -2


class ServerGone(Error, ConnectionError):
    """The server died while it had the request, or a subscription; a command may have been run."""

    code = -3


class TimedOut(Error, TimeoutError):
    """No answer came in time; the command may still be running."""

    code = -4
    answer: Optional[Answer] = None  #: what the modem had said by then, if the server told it


class Busy(Error, TimeoutError):
    """The server did not get to the request in time: it is not run."""

    code = -5


class AccessDenied(Error, PermissionError):
    """This user may not use the server."""

    code = -6


class WrongThread(Error, RuntimeError):
    """A modem is used by the thread that opened it, and a thread opens one."""

    code = -7


class SystemFailure(Error, OSError):
    """A call of the system failed; `errno` tells which way."""

    code = -8


class Pending(Error, RuntimeError):
    """The modem has a request under way."""

    code = -9


class NameTaken(Error):
    """Another user keeps this thread's place at the server."""

    code = -10


class HubFull(Error):
    """The hub has no place for this receiver, or gave it away."""

    code = -11


class OtherNamespace(Error):
    """The server runs in another PID namespace than this program."""

    code = -12


class Refused(Error):
    """The server could not write to the modem, or refused the request."""


class Closed(Error, ValueError):
    """The modem, or the stream of reports, was closed before."""


class ModemError(Error):
    """The modem answered something else than OK; the exception of `Answer.check`."""

    def __init__(self, message: str, answer: Optional[Answer] = None, number: Optional[int] = None) -> None:
        super().__init__(message)
        self.answer = answer  #: all that the modem said
        self.number = number  #: of +CME ERROR or +CMS ERROR


class NoMessage(Error, LookupError):
    """The modem has no message of that number."""


class BadMessage(Error, ValueError):
    """What is no number, text or PDU of a text message."""

    position: Optional[int] = None


_CLASSES: Tuple[Type[Error], ...] = (NoServer, ServerGone, TimedOut, Busy, AccessDenied, WrongThread, Pending, NameTaken, HubFull,
            OtherNamespace, BadRequest)
_BY_CODE: Dict[int, Type[Error]] = {error.code: error for error in _CLASSES}


def error_of(code: int) -> Error:
    """The exception for what a call of the library returned."""
    from ._library import library, word

    sentence = word(library().mdx_strerror(code))
    if code in _BY_CODE:
        return _BY_CODE[code](sentence)
    number = ctypes.get_errno()
    failure = SystemFailure(number, f"{sentence}: {os.strerror(number)}")
    failure.code = code
    return failure
