# SPDX-License-Identifier: Apache-2.0
"""How the answer to a command is collected where the program leaves that open.

Plain collection runs lines together, and gives a line that bears a report's name to the receivers of
reports. So all answers are collected transparently, in lines, but those that look like reports: these
are claimed by a match string. An answer in free words may hold a report's name anywhere: it is both,
and gets the line ends back that it loses so.
"""

from __future__ import annotations

import re
from typing import List, NamedTuple, Optional, Tuple

from .errors import BadRequest
from ._library import library

_LIKE_REPORT, _FREE_WORDS = 1, 2
_MATCH_MAX = 63
# A match string of fewer characters would claim too much.
_MATCH_MIN = 4
_MESSAGES = ("+CMGS", "+CMGW", "^HCMGS", "^HCMGW")
_OK = 2
_NUMBERED = (3, 4)


class Collection(NamedTuple):
    match: Optional[str] = None
    multi_line: bool = False
    transparent: bool = False
    in_lines: bool = False  #: the text is shown without the result line
    prefixes: Tuple[str, ...] = ()  #: that lines of the answer begin with, such as "+CSQ:"


class _Part(NamedTuple):
    """One of the commands between the semicolons of a line."""

    name: str  #: such as "+CREG"; empty for a basic command
    rest: str  #: "?", "=?", "=VALUES", or nothing

    def answers_like_a_report(self) -> bool:
        if self.kind() != _LIKE_REPORT:
            return False
        # A setting has no answer, and meanwhile the reports of its name are the receivers'. But
        # AT+CCWA=1,2 asks whether call waiting is on.
        asks_network = self.name == "+CCWA" and re.match(r"=[^,]*,2", self.rest) is not None
        return not self.rest.startswith("=") or self.rest == "=?" or asks_network

    def kind(self) -> int:
        return int(library().mdx_answer_kind(self.name.encode()))


_SEARCH = _Part("+COPS", "=?")


def _part_of(text: str) -> _Part:
    # Basic commands may stand in front of it; but dialling takes all signs.
    found = None if text.startswith("D") else re.search(r"([+^$%*#]\w*)(.*)", text, re.ASCII | re.DOTALL)
    return _Part(found[1], found[2]) if found else _Part("", "")


def _parts_of(command: str) -> List[_Part]:
    """Without the AT in front, and without blanks, which modems skip."""
    body = "".join(re.findall(r'"[^"]*"?|[^" ]', command.upper()[2:]))
    return [_part_of(part) for part in re.findall(r'(?:"[^"]*"?|[^";])+', body)]


def _common_end(names: List[str]) -> str:
    """The longest end that all names have in common, such as "REG:" of +CREG and +CGREG."""
    end = names[0] + ":"
    while not all((name + ":").endswith(end) for name in names):
        end = end[1:]
    return end if _MATCH_MIN <= len(end) <= _MATCH_MAX else ""


def collection_for(command: str, timeout_given: bool) -> Collection:
    """The way that gives every line of the answer, each by itself.

    timeout_given: it binds the server too, which gives a transparent search for networks a time of its own
    """
    parts = _parts_of(command)
    prefixes = tuple(part.name + ":" for part in parts if part.name)
    like_reports = [part.name for part in parts if part.answers_like_a_report()]
    if like_reports and not any(part.name.startswith(_MESSAGES) for part in parts):
        match = _common_end(like_reports)
        if not match:
            raise BadRequest("the command asks for several things whose answers look like reports: send them "
                             "one by one, or give a match of your own")
        return Collection(match, multi_line=True, in_lines=True, prefixes=prefixes)
    if len(parts) == 1 and parts[0].kind() == _FREE_WORDS:
        bound = timeout_given and parts[0] == _SEARCH
        return Collection(prefixes[0], multi_line=bound, transparent=not bound, in_lines=True, prefixes=prefixes)
    return Collection(transparent=True, in_lines=True)


def _split_at_prefixes(text: str, prefixes: Tuple[str, ...]) -> str:
    for prefix in prefixes:
        text = re.sub(r"(?<=[^\n])" + re.escape(prefix), "\r\n" + prefix, text)
    return text


def _without_result(text: str, result: int) -> str:
    """A transparent text ends with the result line; one with a number is all of the text then."""
    before, _, last = text.rstrip("\r\n").rpartition("\r\n")
    return last if result in _NUMBERED else before


def text_in_lines(text: str, result: int, result_name: str, collection: Collection) -> str:
    """The text as it is shown: each line by itself, and the result line off."""
    if collection.transparent and collection.match and result >= _OK:
        at = text.rfind(result_name)
        if at > 0 and text[at - 1] != "\n":
            text = text[:at] + "\r\n" + text[at:]
    if collection.match:
        text = _split_at_prefixes(text, collection.prefixes)
    if collection.transparent and result >= _OK and text.endswith("\r\n"):
        text = _without_result(text, result)
    return text.rstrip("\r\n")
