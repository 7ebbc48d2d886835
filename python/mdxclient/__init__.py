# SPDX-License-Identifier: Apache-2.0
"""AT commands, reports and text messages of a cellular modem, over the mdxgate server of this machine.

>>> with Modem() as modem:
...     answer = modem.send("AT+CSQ").check()
>>> answer.text
'+CSQ: ...'
>>> answer.result.name, answer.ok
('OK', True)

A command that the modem refuses has an answer, too; `check` raises what it says:

>>> with Modem() as modem:
...     modem.send("AT+NOSUCH").check()
Traceback (most recent call last):
mdxclient.errors.ModemError: the modem said ...

What the modem reports by itself, as it comes, and what it told last of its state, without asking it:

>>> with reports() as stream:
...     stream.get().name
'...'
>>> state().link.link
True
"""

from . import errors, sms
from ._aio import AsyncModem, AsyncReports
from ._answer import Answer, Result
from ._library import library_version
from ._modem import Modem
from ._reports import Kind, Report, Reports, State, state
from ._version import VERSION as __version__
from .errors import (AccessDenied, BadMessage, BadRequest, Busy, Closed, Error, HubFull, ModemError, NameTaken,
                     NoLibrary, NoMessage, NoServer, OtherNamespace, Pending, Refused, ServerGone, SystemFailure,
                     TimedOut, WrongThread)

reports = Reports
async_reports = AsyncReports

__all__ = [
    "AccessDenied", "Answer", "AsyncModem", "AsyncReports", "BadMessage", "BadRequest", "Busy", "Closed", "Error",
    "HubFull", "Kind", "Modem", "ModemError", "NameTaken", "NoLibrary", "NoMessage", "NoServer", "OtherNamespace",
    "Pending", "Refused", "Report", "Reports", "Result", "ServerGone", "State", "SystemFailure", "TimedOut",
    "WrongThread", "__version__", "async_reports", "errors", "library_version", "reports", "sms", "state",
]
