# SPDX-License-Identifier: Apache-2.0
"""libmdxclient as ctypes sees it: its structs and functions, as mdxclient.h and mdxsms.h declare them.

A test has a C compiler compare all of this with the headers, for 64 and 32 bits.
"""

from __future__ import annotations

import ctypes
import functools
import re
from ctypes import (POINTER, Structure, c_char, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint8, c_uint32,
                    c_uint64, c_void_p, sizeof)
from typing import Any

from .errors import NoLibrary

NAME = "libmdxclient.so.0"


class Sized(Structure):
    """Structs begin with their size, so that the library may know more fields, or fewer, than this file."""

    def __init__(self, **values: Any) -> None:
        super().__init__(sizeof(type(self)), **values)


class Options(Sized):
    _fields_ = [
        ("size", c_uint32), ("timeout_s", c_int32), ("deadline_ms", c_int32), ("match", c_char_p),
        ("multi_line", c_int32), ("transparent", c_int32), ("wait_s", c_int32),
    ]


class Result(Sized):
    _fields_ = [
        ("size", c_uint32), ("ret_val", c_int32), ("text", c_void_p), ("length", c_uint32),
        ("timeout_left_s", c_int32), ("refused", c_int32), ("truncated", c_int32),
    ]


class Packet(Sized):
    _fields_ = [
        ("size", c_uint32), ("type", c_uint32), ("kind", c_uint32), ("to", c_char * 16), ("lost", c_uint32),
        ("module", c_uint32), ("a", c_int32), ("b", c_int32), ("length", c_uint32), ("payload", c_void_p),
        ("remembered", c_uint32), ("age_s", c_uint32),
    ]


class SubscribeOptions(Sized):
    _fields_ = [("size", c_uint32), ("module", c_uint32), ("service", c_char_p), ("last", c_int32)]


class Field(Sized):
    _fields_ = [
        ("size", c_uint32), ("kind", c_uint32), ("name", c_char_p), ("unit", c_char_p), ("number", c_int64),
        ("unsigned_number", c_uint64), ("data", c_void_p), ("length", c_uint32),
    ]


class SmsOptions(Sized):
    _fields_ = [("size", c_uint32), ("reference", c_uint32), ("flash", c_int32), ("report", c_int32)]


class SmsPart(Sized):
    _fields_ = [
        ("size", c_uint32), ("alphabet", c_uint32), ("parts", c_uint32), ("tpdu_length", c_uint32),
        ("head", c_char * 16), ("pdu", c_char * 356),
    ]


class Sms(Sized):
    _fields_ = [
        ("size", c_uint32), ("type", c_uint32), ("alphabet", c_uint32), ("units_length", c_uint32),
        ("units", c_uint8 * 160), ("text_length", c_uint32), ("text", c_char * 512), ("number", c_char * 48),
        ("service_centre", c_char * 24), ("message_class", c_int32), ("time_s", c_int64),
        ("time_zone_min", c_int32), ("time_known", c_int32), ("protocol", c_uint32), ("coding", c_uint32),
        ("reference", c_uint32), ("parts", c_uint32), ("part", c_uint32), ("language_locking", c_uint32),
        ("language_single", c_uint32), ("has_ports", c_uint32), ("destination_port", c_uint32),
        ("source_port", c_uint32), ("report_wanted", c_int32), ("message_reference", c_uint32),
        ("status", c_uint32), ("discharged_s", c_int64), ("discharged_zone_min", c_int32),
        ("discharged_known", c_int32),
    ]


class SmsStored(Sized):
    _fields_ = [
        ("size", c_uint32), ("index", c_int32), ("state", c_int32), ("tpdu_length", c_uint32),
        ("pdu", c_void_p), ("pdu_length", c_uint32),
    ]


STRUCTS = {
    "mdx_options_t": Options, "mdx_result_t": Result, "mdx_packet_t": Packet,
    "mdx_subscribe_options_t": SubscribeOptions, "mdx_field_t": Field, "mdx_sms_options_t": SmsOptions,
    "mdx_sms_part_t": SmsPart, "mdx_sms_t": Sms, "mdx_sms_stored_t": SmsStored,
}

PROTOTYPES = """
int mdx_open(mdx_client_t** client);
void mdx_close(mdx_client_t* client);
int mdx_client_fd(mdx_client_t* client);
int mdx_begin(mdx_client_t* client, const char* command, const mdx_options_t* options);
int mdx_begin_pdu(mdx_client_t* client, const char* head, const char* pdu, const mdx_options_t* options);
int mdx_begin_report(mdx_client_t* client, int32_t report, const mdx_options_t* options);
int mdx_finish(mdx_client_t* client, mdx_result_t* result);
int mdx_cancel(mdx_client_t* client);
int mdx_check(const char* command, const char* pdu, const mdx_options_t* options, uint32_t* position);
int mdx_answer_kind(const char* name);
const char* mdx_mistake_text(int mistake);
const char* mdx_version(void);
const char* mdx_strerror(int error);
const char* mdx_result_name(int32_t ret_val);
int mdx_subscribe_with(mdx_subscription_t** subscription, const mdx_subscribe_options_t* options);
int mdx_subscription_fd(const mdx_subscription_t* subscription);
int mdx_next_packet(mdx_subscription_t* subscription, int32_t timeout_ms, mdx_packet_t* packet);
void mdx_unsubscribe(mdx_subscription_t* subscription);
const char* mdx_packet_name(const mdx_packet_t* packet);
const char* mdx_module_name(uint32_t module);
int mdx_packet_field(const mdx_packet_t* packet, uint32_t index, mdx_field_t* field);
int mdx_sms_encode(const char* number, const char* text, uint32_t length, const mdx_sms_options_t* options, uint32_t index, mdx_sms_part_t* part, uint32_t* position);
int mdx_sms_decode(const char* pdu, uint32_t length, uint32_t tpdu_length, mdx_sms_t* sms);
size_t mdx_sms_join(const mdx_sms_t* const* parts, uint32_t count, char* text, size_t room);
int mdx_sms_fate(const mdx_sms_t* report);
const char* mdx_sms_status_text(uint32_t status);
int mdx_sms_stored_at(const char* answer, uint32_t length, uint32_t index, mdx_sms_stored_t* stored);
int32_t mdx_sms_error_number(const char* answer, uint32_t length);
const char* mdx_sms_error_text(int32_t number);
int32_t mdx_sms_sent_reference(const char* answer, uint32_t length);
const char* mdx_sms_mistake_text(int mistake);
"""

_PLAIN_TYPES = {
    "void": None, "int": c_int, "int32_t": c_int32, "uint32_t": c_uint32, "size_t": c_size_t, "char*": c_char_p,
    "mdx_client_t*": c_void_p, "mdx_client_t**": POINTER(c_void_p),
    "mdx_subscription_t*": c_void_p, "mdx_subscription_t**": POINTER(c_void_p),
    "uint32_t*": POINTER(c_uint32), "mdx_sms_t**": POINTER(POINTER(Sms)),
}


def _type(text: str) -> Any:
    """The type of "const mdx_options_t*", with or without the name of an argument behind it."""
    bare = re.sub(r"\bconst\b|\s", "", re.sub(r"(?<=[\s*])\w+$", "", text.strip()))
    return POINTER(STRUCTS[bare[:-1]]) if bare[:-1] in STRUCTS else _PLAIN_TYPES[bare]


def _declare(loaded: ctypes.CDLL) -> None:
    for returns, name, arguments in re.findall(r"^(.*?)(\w+)\((.*)\);$", PROTOTYPES, re.M):
        function = getattr(loaded, name)
        function.restype = _type(returns)
        function.argtypes = [] if arguments == "void" else [_type(one) for one in arguments.split(",")]


@functools.lru_cache(maxsize=None)
def library() -> Any:
    """The shared library, which is looked for when it is first needed."""
    try:
        loaded = ctypes.CDLL(NAME, use_errno=True)
    except OSError as error:
        raise NoLibrary(f"{NAME} cannot be loaded ({error}): install mdxgate's client library (its package "
                        "libmdxclient0 has it), or name its directory in LD_LIBRARY_PATH") from error
    try:
        _declare(loaded)
    except AttributeError as error:
        raise NoLibrary(f"{NAME} is older than this package: {error}") from error
    return loaded


def library_version() -> str:
    """The version of libmdxclient.so.0 on this machine."""
    return word(library().mdx_version())


def text_of(data: bytes) -> str:
    """What came from the modem. Bytes that are no UTF-8 are shown as such (\\\\xe4), not dropped."""
    return data.decode("utf-8", "backslashreplace")


def word(data: bytes | None) -> str:
    """A text of the library's own."""
    return (data or b"").decode("ascii")
