# SPDX-License-Identifier: Apache-2.0
"""A request to the server, and what the modem answered."""

from __future__ import annotations

import csv
import ctypes
import enum
import re
from dataclasses import dataclass
from typing import Generator, List, Optional, Tuple, TypeVar

from ._collection import Collection, collection_for, text_in_lines
from .errors import BadRequest, ModemError, Refused, TimedOut
from ._library import Options, Result as ResultStruct, library, text_of, word

DEFAULT_TIMEOUT_S = 10
SEND_TIMEOUT_S = 60


class Result(enum.IntEnum):
    """How the exchange with the modem ended."""

    NO_ANSWER_IN_TIME = -1
    NO_VERDICT = 0  #: of a message, of which nobody knows whether it was sent
    OK = 2
    CME_ERROR = 3
    CMS_ERROR = 4
    ERROR = 5
    NO_CARRIER = 6
    NO_ANSWER = 7
    NOT_SUPPORTED = 8
    TOO_MANY_PARAMETERS = 9
    ATE0 = 10
    CONNECT = 11
    NO_DIALTONE = 12
    BUSY = 13


@dataclass(frozen=True)
class Answer:
    """What the modem said."""

    text: str  #: without the result line; of an error with a number that line, "+CME ERROR: 10"
    result: Result
    seconds: float  #: that it took, waiting for the server included
    truncated: bool  #: it was longer than the 1499 bytes that an answer has room for
    raw: bytes  #: the text as the server handed it over

    @property
    def lines(self) -> Tuple[str, ...]:
        """The lines of the text that are not empty."""
        return tuple(line for line in re.split(r"[\r\n]+", self.text) if line)

    @property
    def ok(self) -> bool:
        return self.result in (Result.OK, Result.CONNECT)

    @property
    def number(self) -> Optional[int]:
        """The number of +CME ERROR or +CMS ERROR."""
        if self.result not in (Result.CME_ERROR, Result.CMS_ERROR):
            return None
        found = re.search(r"\+CM[ES] ERROR: *(\d+)", self.text)
        return int(found[1]) if found else None

    def values(self, name: str) -> List[str]:
        """What stands behind a name in the first line that begins with it, quotes off; empty without such a line.

        >>> Answer('+COPS: 0,0,"Example, Mobile",7', Result.OK, 0.1, False, b"").values("+COPS")
        ['0', '0', 'Example, Mobile', '7']
        """
        for line in self.lines:
            if line.startswith(name + ":"):
                return [value.strip() for value in next(csv.reader([line[len(name) + 1:]], skipinitialspace=True), [])]
        return []

    def check(self) -> Answer:
        """Returns the answer itself; raises ModemError unless the modem said OK or CONNECT."""
        if self.ok:
            return self
        raise ModemError(self._sentence(), self, self.number)

    def _sentence(self) -> str:
        if self.result == Result.NO_VERDICT:
            return "nobody knows whether the message was sent: ask its receiver, or look for a delivery report"
        name = word(library().mdx_result_name(self.result))
        if self.number is None:
            return f"the modem said {name}"
        meaning = library().mdx_sms_error_text(self.number) if self.result == Result.CMS_ERROR else None
        return f"the modem said {name}: {self.number}" + (f", {word(meaning)}" if meaning else "")


class Request:
    """One command, message or stored report, ready to be sent."""

    def __init__(self, command: Optional[str], options: Options, collection: Collection,
                 pdu: Optional[str] = None) -> None:
        self.command = None if command is None else _bytes_of(command, "the command")
        self.pdu = None if pdu is None else _bytes_of(pdu, "the PDU")
        self.options = options
        self._collection = collection

    def mistake(self) -> BadRequest:
        """What is wrong with a request that the library refuses."""
        position = ctypes.c_uint32()
        found = library().mdx_check(self.command, self.pdu, ctypes.byref(self.options), ctypes.byref(position))
        sentence = word(library().mdx_mistake_text(found))
        error = BadRequest(sentence.replace("mdx_send_pdu", "Modem.send_pdu, or a text with Modem.sms.send"))
        error.position = position.value
        return error

    def answer_of(self, result: ResultStruct, seconds: float) -> Answer:
        """@raises TimedOut, Refused when it is no answer of the modem's"""
        raw = ctypes.string_at(result.text, result.length)
        text, name = text_of(raw), word(library().mdx_result_name(result.ret_val))
        if self._collection.in_lines and not result.refused:
            text = text_in_lines(text, result.ret_val, name, self._collection)
        answer = Answer(text, Result(result.ret_val), seconds, bool(result.truncated), raw)
        if result.refused:
            raise Refused("the server could not write to the modem, or refused the request: check that the modem "
                          "is there with: mdxctl status")
        if answer.result == Result.NO_ANSWER_IN_TIME:
            late = TimedOut(word(library().mdx_strerror(TimedOut.code)))
            late.answer = answer
            raise late
        return answer


def _bytes_of(text: str, what: str) -> bytes:
    if not isinstance(text, str):
        raise TypeError(f"{what} is text: give a str, not {type(text).__name__}")
    if "\0" not in text:
        return text.encode()
    error = BadRequest(f"{what} holds a NUL, behind which nothing would be sent")
    error.position = len(text[:text.index("\0")].encode())
    raise error


T = TypeVar("T")
#: What needs several exchanges: yields requests, is sent their answers, returns what came of it. So it is
#: written once, and driven by Modem and AsyncModem.
Plan = Generator[Request, Answer, T]


def _options(timeout: int, wait: int, deadline: Optional[float]) -> Options:
    for name, value in (("timeout", timeout), ("wait", wait)):
        if not isinstance(value, int):
            raise BadRequest(f"{name} is in whole seconds, as the server counts them: give an int, not {value!r}")
        if value < 0:
            raise BadRequest(f"{name} is negative: {value}")
    milliseconds = 0 if deadline is None else max(1, round(deadline * 1000))
    return Options(timeout_s=timeout, wait_s=wait, deadline_ms=milliseconds)


def command_request(command: str, timeout: Optional[int] = None, *, wait: int = 0,
                    deadline: Optional[float] = None, match: Optional[str] = None, multi_line: bool = False,
                    transparent: bool = False) -> Request:
    options = _options(DEFAULT_TIMEOUT_S if timeout is None else timeout, wait, deadline)
    _bytes_of(command, "the command")
    own = match is not None or multi_line or transparent
    collection = Collection(match, multi_line, transparent) if own else collection_for(command, timeout is not None)
    options.match = None if collection.match is None else _bytes_of(collection.match, "the match")
    options.multi_line = collection.multi_line
    options.transparent = collection.transparent
    return Request(command, options, collection)


def pdu_request(head: str, pdu: str, timeout: int, *, wait: int = 0, deadline: Optional[float] = None) -> Request:
    return Request(head, _options(timeout, wait, deadline), Collection(), pdu)


def stored_report_request(deadline: Optional[float]) -> Request:
    return Request(None, _options(DEFAULT_TIMEOUT_S, 0, deadline), Collection())
