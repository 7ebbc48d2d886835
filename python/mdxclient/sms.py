# SPDX-License-Identifier: Apache-2.0
"""Text messages: from a text to what the modem takes, and from what it keeps to a text.

The modem is spoken to in PDU mode; one that was in text mode is put back there. What takes several
exchanges is a plan, which Messages and AsyncMessages drive.
"""

from __future__ import annotations

import ctypes
import enum
import re
import secrets
import warnings
from dataclasses import dataclass, field
from datetime import datetime, timedelta, timezone
from typing import Awaitable, List, Optional, Protocol, Tuple

from ._answer import SEND_TIMEOUT_S, Answer, Plan, Result, T, command_request, pdu_request
from .errors import BadMessage, Error, ModemError, NoMessage
from ._library import Sms, SmsOptions, SmsPart, SmsStored, library, text_of, word
from ._reports import Report

_FINE = 0
_NO_SUCH_PART = 8
_TORN = (9, 10, 11)
_TRIES_FOR_TORN = 3
_MOST_PLACES = 10000
_NO_SUCH_MESSAGE = 321
_NO_SUCH_ENTRY = (21, 22)
# The report that a record came from: +CMTI, +CDSI tell a place, +CMT, +CDS the message.
_STORED, _WHOLE = (0, 2), (1, 3)


class Type(enum.IntEnum):
    RECEIVED = 0
    OUTGOING = 1  #: sent, or to be sent
    STATUS_REPORT = 2  #: what became of one that was sent


class Alphabet(enum.IntEnum):
    GSM_7_BIT = 0
    EIGHT_BIT = 1  #: of which only a program knows the meaning: see `data`
    UCS_2 = 2


class Storage(enum.IntEnum):
    UNREAD = 0
    READ = 1
    UNSENT = 2
    SENT = 3


class Fate(enum.IntEnum):
    DELIVERED = 0
    TRYING = 1  #: not yet; the service centre goes on trying
    FAILED = 2


@dataclass(frozen=True)
class Part:
    """One part of a message to be sent, for Modem.send_pdu."""

    head: str  #: such as "AT+CMGS=22"
    pdu: str
    alphabet: Alphabet


@dataclass(frozen=True)
class Sent:
    """A message that the modem took, in all of its parts."""

    references: Tuple[int, ...]  #: of each part, as delivery reports name it


@dataclass(frozen=True)
class Delivery:
    """What a status report tells."""

    reference: int  #: one of Sent.references
    fate: Fate
    text: str  #: such as "the receiver is busy"
    time: Optional[datetime]


@dataclass(frozen=True)
class Message:
    """A message, its parts joined."""

    type: Type
    number: str  #: the sender's, or the receiver's of what was sent; may be a name
    text: str
    time: Optional[datetime]  #: when the service centre had it, with its zone
    state: Optional[Storage] = None  #: None: it stands in no memory
    indexes: Tuple[int, ...] = ()  #: its places in the memory, one for each part
    alphabet: Alphabet = Alphabet.GSM_7_BIT
    data: bytes = b""  #: of an eight-bit message
    flash: bool = False
    port: Optional[int] = None  #: that it is for, where it is for a program
    missing: Tuple[int, ...] = ()  #: parts that are not there, counted from 1
    delivery: Optional[Delivery] = None  #: of a status report
    error: str = ""  #: why it cannot be read; `pdu` has it as it came
    pdu: Tuple[str, ...] = ()
    _structs: Tuple[Sms, ...] = field(default=(), repr=False, compare=False)


def _bad(mistake: int, position: Optional[int] = None) -> BadMessage:
    error = BadMessage(word(library().mdx_sms_mistake_text(mistake)))
    error.position = position
    return error


def encode(number: str, text: str, *, flash: bool = False, report: bool = False,
           reference: Optional[int] = None) -> List[Part]:
    """The parts of a message; nothing is sent.

    flash: shown at once and not kept
    report: the network shall tell what became of it
    reference: joins the parts at their receiver, 0 to 65535; without one it is drawn

    >>> [part.head for part in encode("+4915112345678", "Hello world")]
    ['AT+CMGS=24']
    """
    for what, given in (("number", number), ("text", text)):
        if not isinstance(given, str):
            raise TypeError(f"the {what} of a message is a str, not {type(given).__name__}")
    if "\0" in number:
        raise _bad(3, number.index("\0"))  # C would see the digits in front of it alone
    options = SmsOptions(flash=flash, report=report,
                         reference=0x100 + secrets.randbelow(0xFF00) if reference is None else reference)
    data = text.encode()
    parts: List[Part] = []
    while True:
        part, position = SmsPart(), ctypes.c_uint32()
        mistake = library().mdx_sms_encode(number.encode(), data, len(data), ctypes.byref(options), len(parts),
                                           ctypes.byref(part), ctypes.byref(position))
        if mistake == _NO_SUCH_PART:
            return parts
        if mistake != _FINE:
            raise _bad(mistake, position.value)
        parts.append(Part(word(part.head), word(part.pdu), Alphabet(part.alphabet)))


def _time_of(seconds: int, zone: int, known: int) -> Optional[datetime]:
    return datetime.fromtimestamp(seconds, timezone(timedelta(minutes=zone))) if known else None


def _joined_text(structs: Tuple[Sms, ...]) -> str:
    pointers = (ctypes.POINTER(Sms) * len(structs))(*[ctypes.pointer(one) for one in structs])
    length = library().mdx_sms_join(pointers, len(structs), None, 0)
    room = ctypes.create_string_buffer(length + 1)
    library().mdx_sms_join(pointers, len(structs), room, length + 1)
    return text_of(room.raw[:length])


def _message_of(structs: Tuple[Sms, ...], **stored: object) -> Message:
    """@param structs  parts of one message, in their order"""
    first = structs[0]
    delivery = None
    if first.type == Type.STATUS_REPORT:
        delivery = Delivery(first.message_reference, Fate(library().mdx_sms_fate(ctypes.byref(first))),
                            word(library().mdx_sms_status_text(first.status)),
                            _time_of(first.discharged_s, first.discharged_zone_min, first.discharged_known))
    there = {one.part for one in structs}
    eight_bit = first.alphabet == Alphabet.EIGHT_BIT
    return Message(
        type=Type(first.type), number=text_of(first.number), text=_joined_text(structs),
        time=_time_of(first.time_s, first.time_zone_min, first.time_known), alphabet=Alphabet(first.alphabet),
        data=b"".join(bytes(one.units[:one.units_length]) for one in structs) if eight_bit else b"",
        flash=first.message_class == 0, port=first.destination_port if first.has_ports else None,
        missing=tuple(part for part in range(1, first.parts + 1) if part not in there), delivery=delivery,
        _structs=structs, **stored)  # type: ignore[arg-type]


def decode(pdu: str, tpdu_length: int = 0) -> Message:
    """A message as the modem shows it, a PDU in hexadecimal digits.

    tpdu_length: octets without the service centre's address, as the modem told in front of it, if it did

    >>> decode("07913366003051F5040B913366634081F900005180719120348004D4F29C0E").text
    'Test'
    """
    digits, sms = pdu.encode(), Sms()
    mistake = library().mdx_sms_decode(digits, len(digits), tpdu_length, ctypes.byref(sms))
    if mistake != _FINE:
        raise _bad(mistake)
    return _message_of((sms,), pdu=(pdu,))


def _key(message: Message) -> Tuple[object, ...]:
    one = message._structs[0]
    return message.type, message.number, message.alphabet, one.parts, one.reference


def join(messages: List[Message]) -> List[Message]:
    """Parts of long messages become one, in the place of the part that is first in the list."""
    joined: List[List[Message]] = []
    for message in messages:
        part = message._structs[0].part if message._structs and message._structs[0].parts > 1 else None
        home = next((group for group in joined if part is not None and group[0].missing
                     and _key(group[0]) == _key(message)
                     and all(other._structs[0].part != part for other in group)), None)
        if home is None:
            joined.append([message])
        else:
            home.append(message)
    return [_whole(group) for group in joined]


def _whole(group: List[Message]) -> Message:
    if len(group) == 1:
        return group[0]
    group = sorted(group, key=lambda message: int(message._structs[0].part))
    states = [message.state for message in group if message.state is not None]
    return _message_of(tuple(message._structs[0] for message in group), state=min(states) if states else None,
                       indexes=tuple(index for message in group for index in message.indexes),
                       pdu=tuple(pdu for message in group for pdu in message.pdu))


# Plans


def _get(command: str) -> Plan[Answer]:
    answer = yield command_request(command)
    return answer.check()


def _put_back(command: str) -> Plan[None]:
    """Whatever else went wrong or well is not hidden by this."""
    try:
        yield from _get(command)
    except Error as error:
        warnings.warn(f"the modem could not be put back with {command}, do it by hand: {error}", RuntimeWarning,
                      stacklevel=2)


def _in_pdu_mode(plan: Plan[T]) -> Plan[T]:
    mode = yield command_request("AT+CMGF?")
    in_text_mode = mode.values("+CMGF")[:1] == ["1"]
    if in_text_mode:
        yield from _get("AT+CMGF=0")
    try:
        return (yield from plan)
    finally:
        if in_text_mode:
            yield from _put_back("AT+CMGF=1")


def _send(parts: List[Part], timeout: int) -> Plan[Sent]:
    references: List[int] = []
    try:
        for part in parts:
            answer = yield pdu_request(part.head, part.pdu, timeout)
            answer.check()
            references.append(int(library().mdx_sms_sent_reference(answer.raw, len(answer.raw))))
    except Error as error:
        error.parts_sent = len(references)
        raise
    return Sent(tuple(references))


def _stored_in(answer: Answer) -> Optional[SmsStored]:
    stored = SmsStored()
    if library().mdx_sms_stored_at(answer.raw, len(answer.raw), 0, ctypes.byref(stored)) != _FINE:
        return None
    if stored.state not in tuple(Storage):
        raise ModemError("somebody put the modem into text mode meanwhile: try again", answer)
    return stored


def _may_be_empty(answer: Answer) -> bool:
    """Most modems say +CMS ERROR: 321 of an empty place, some ERROR or +CME ERROR: 21 or 22."""
    if answer.result == Result.CME_ERROR:
        return answer.number in _NO_SUCH_ENTRY
    return answer.number == _NO_SUCH_MESSAGE or answer.result == Result.ERROR


def _read_place(index: int) -> Plan[Optional[Message]]:
    """None when there is no message."""
    for left in reversed(range(_TRIES_FOR_TORN)):
        answer = yield command_request(f"AT+CMGR={index}", transparent=True)
        if not answer.ok:
            if _may_be_empty(answer):
                return None
            answer.check()
        stored = _stored_in(answer)
        if stored is None or (stored.pdu_length == 0 and stored.tpdu_length == 0):
            return None
        pdu = ctypes.string_at(stored.pdu, stored.pdu_length) if stored.pdu_length else b""
        sms = Sms()
        mistake = library().mdx_sms_decode(pdu, len(pdu), stored.tpdu_length, ctypes.byref(sms))
        where = {"state": Storage(stored.state), "indexes": (index,), "pdu": (text_of(pdu),)}
        if mistake == _FINE:
            return _message_of((sms,), **where)
        if mistake not in _TORN or left == 0:
            return Message(Type.RECEIVED, "", "", None, error=word(library().mdx_sms_mistake_text(mistake)),
                           **where)  # type: ignore[arg-type]
    return None


def _read(index: int) -> Plan[Message]:
    message = yield from _read_place(index)
    if message is None:
        raise NoMessage(f"there is no message {index}")
    return message


def _listed(answer: Answer) -> List[int]:
    """The numbers in "+CMGD: (1,2,5-7),(0-4)" up to the first closing bracket."""
    found = re.search(r"\+CMGD: *\(([^)]*)\)", answer.text)
    places: List[int] = []
    for item in found[1].split(",") if found else []:
        numbers = re.fullmatch(r" *(\d{1,9})(?:-(\d{1,9}))? *", item)
        if numbers:
            first, last = int(numbers[1]), int(numbers[2] or numbers[1])
            places.extend(range(first, min(last, first + _MOST_PLACES) + 1))
    return places


def _places(used: Optional[int], total: Optional[int]) -> Plan[List[int]]:
    """Where messages may stand: many modems answer AT+CMGD=? with a list, others with a range, or one number."""
    listed = _listed((yield command_request("AT+CMGD=?")))
    if listed and len(listed) >= (used or 1):
        return listed
    if total is None:
        raise ModemError("the modem tells neither with AT+CPMS? nor with AT+CMGD=? where messages are: read them by "
                         "their numbers")
    return list(range(min(total, _MOST_PLACES) + 1))


def _list() -> Plan[List[Message]]:
    """One by one: AT+CMGL would show all in one answer, of which 1499 bytes arrive."""
    memory = (yield command_request("AT+CPMS?")).values("+CPMS")
    numbers = [int(value) if value.isdigit() else None for value in memory[1:3]] + [None, None]
    used, total = numbers[:2]
    messages: List[Message] = []
    for place in [] if used == 0 else (yield from _places(used, total)):
        if used is not None and len(messages) >= used:
            break
        message = yield from _read_place(place)
        if message is not None:
            messages.append(message)
    return join(messages)


def _in_memory(name: str, plan: Plan[T]) -> Plan[T]:
    before = (yield command_request("AT+CPMS?")).values("+CPMS")[:1]
    if not name or before == [name]:
        return (yield from plan)
    yield from _get(f'AT+CPMS="{name}"')
    try:
        return (yield from plan)
    finally:
        if before:
            yield from _put_back(f'AT+CPMS="{before[0]}"')


def _acknowledge() -> Plan[None]:
    """A message that was handed over wants that where the modem is set so, else the network sends it again."""
    if (yield command_request("AT+CSMS?")).values("+CSMS")[:1] == ["1"]:
        yield command_request("AT+CNMA")


def _of_report(report: Report) -> Plan[Optional[Message]]:
    told = report.fields.get("id") if report.name == "EVT_AT_SMS_NEW" else None
    if told in _STORED:
        index, memory = report.fields["index"], str(report.fields["mem"])
        if not isinstance(index, int) or index < 0:
            raise NoMessage("a message came, and the modem had no place for it: delete some")
        return (yield from _in_pdu_mode(_in_memory(memory, _read(index))))
    if told in _WHOLE:
        length = report.fields["length"]
        digits = re.match(r"[0-9A-Fa-f]*", str(report.fields["pdu"]))
        message = decode(digits[0] if digits else "", length if isinstance(length, int) else 0)
        yield from _acknowledge()
        return message
    return None


class _Runner(Protocol):
    def __call__(self, plan: Plan[T]) -> T: ...


class _AsyncRunner(Protocol):
    def __call__(self, plan: Plan[T]) -> Awaitable[T]: ...


class Messages:
    """The text messages of a Modem: `modem.sms`."""

    def __init__(self, run: _Runner) -> None:
        self._run = run

    def send(self, number: str, text: str, *, flash: bool = False, report: bool = False,
             timeout: int = SEND_TIMEOUT_S) -> Sent:
        """Sends a text in as many parts as it takes. Of one that fails `parts_sent` of the error tells how far it
        went: these cannot be taken back.

        flash: shown at once and not kept
        report: the network shall tell what became of it: see Message.delivery
        timeout: whole seconds that the modem has for each part
        """
        return self._run(_in_pdu_mode(_send(encode(number, text, flash=flash, report=report), timeout)))

    def read(self, index: int) -> Message:
        """The message of that number; the modem marks a received one as read. NoMessage when there is none."""
        return self._run(_in_pdu_mode(_read(index)))

    def list(self) -> List[Message]:
        """All messages of the modem's memory, parts joined; the modem marks the received ones as read."""
        return self._run(_in_pdu_mode(_list()))

    def delete(self, *indexes: int) -> None:
        """Deletes messages, such as Message.indexes names them."""
        for index in indexes:
            self._run(_get(f"AT+CMGD={index}"))

    def of_report(self, report: Report) -> Optional[Message]:
        """The message that an EVT_AT_SMS_NEW tells of, read from the memory where it is there; None of others."""
        return self._run(_of_report(report))


class AsyncMessages:
    """The text messages of an AsyncModem: `modem.sms`. As Messages."""

    def __init__(self, run: _AsyncRunner) -> None:
        self._run = run

    async def send(self, number: str, text: str, *, flash: bool = False, report: bool = False,
                   timeout: int = SEND_TIMEOUT_S) -> Sent:
        return await self._run(_in_pdu_mode(_send(encode(number, text, flash=flash, report=report), timeout)))

    async def read(self, index: int) -> Message:
        return await self._run(_in_pdu_mode(_read(index)))

    async def list(self) -> List[Message]:
        return await self._run(_in_pdu_mode(_list()))

    async def delete(self, *indexes: int) -> None:
        for index in indexes:
            await self._run(_get(f"AT+CMGD={index}"))

    async def of_report(self, report: Report) -> Optional[Message]:
        return await self._run(_of_report(report))
