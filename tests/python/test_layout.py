# SPDX-License-Identifier: Apache-2.0
"""What ctypes believes is what a C compiler finds in the headers, for this machine and for 32-bit ARM.

    test_layout.py FOLDER_OF_THE_HEADERS

Sizes, offsets, signs, prototypes and numbers become a C source of assertions; compiling it is the test.
"""

import ctypes
import shutil
import subprocess
import sys

from mdxclient import _library, errors, sms
from mdxclient._answer import Result
from mdxclient._reports import Kind

ARM = "arm-linux-gnueabihf-gcc"
POINTERS = (ctypes.c_void_p, ctypes.c_char_p)
INTEGERS = {ctypes.c_int32: 1, ctypes.c_int64: 1, ctypes.c_uint32: 0, ctypes.c_uint64: 0}
NUMBERS = {
    "MDX_ERR_": {"ARGUMENT": errors.BadRequest, "NO_SERVER": errors.NoServer, "SERVER_GONE": errors.ServerGone,
                 "TIMEOUT": errors.TimedOut, "BUSY": errors.Busy, "ACCESS": errors.AccessDenied,
                 "THREAD": errors.WrongThread, "SYSTEM": errors.SystemFailure, "PENDING": errors.Pending,
                 "TAKEN": errors.NameTaken, "REFUSED": errors.HubFull, "NAMESPACE": errors.OtherNamespace},
    "MDX_RESULT_": {"NONE" if one == Result.NO_ANSWER_IN_TIME else one.name: one for one in Result},
    "MDX_KIND_": Kind.__members__,
    "MDX_SMS_": {"DELIVER": sms.Type.RECEIVED, "SUBMIT": sms.Type.OUTGOING, "STATUS_REPORT": sms.Type.STATUS_REPORT,
                 "GSM_7_BIT": sms.Alphabet.GSM_7_BIT, "8_BIT": sms.Alphabet.EIGHT_BIT, "UCS_2": sms.Alphabet.UCS_2,
                 **sms.Storage.__members__, **sms.Fate.__members__, "MISTAKE_NO_SUCH_PART": 8,
                 "MISTAKE_PDU_DIGITS": 9, "MISTAKE_PDU_LENGTH": 10, "MISTAKE_PDU_SHORT": 11},
    "MDX_": {"LINK_UP": 1, "FIELD_NUMBER": 1, "FIELD_UNSIGNED": 2, "FIELD_TEXT": 3, "REPORT_RSSI": 2,
             "ANSWER_LIKE_REPORT": 1, "ANSWER_FREE_WORDS": 2},
}


def size_of(kind, pointer):
    return pointer if kind in POINTERS else ctypes.sizeof(kind)


def layout(struct, pointer):
    """([(name, type, offset, size)], size of all) where pointers have so many bytes."""
    fields, end, widest = [], 0, 1
    for name, kind in struct._fields_:
        align = pointer if kind in POINTERS else ctypes.alignment(kind)
        start = -(-end // align) * align
        end, widest = start + size_of(kind, pointer), max(widest, align)
        fields.append((name, kind, start, end - start))
    return fields, -(-end // widest) * widest


def assertions(pointer):
    for name, struct in _library.STRUCTS.items():
        fields, size = layout(struct, pointer)
        yield f"sizeof({name}) == {size}"
        for field, kind, offset, width in fields:
            member = f"(({name}*)0)->{field}"
            yield f"offsetof({name}, {field}) == {offset}"
            yield f"sizeof({member}) == {width}"
            if kind in INTEGERS:
                yield f"((__typeof__({member}))-1 < 0) == {INTEGERS[kind]}"
    for prefix, members in NUMBERS.items():
        for name, number in members.items():
            yield f"{prefix}{name} == {getattr(number, 'code', number)}"


def compile_for(compiler, pointer):
    lines = ['#include "mdxclient.h"', '#include "mdxsms.h"', _library.PROTOTYPES]
    lines += [f'_Static_assert({one}, "");' for one in assertions(pointer)]
    subprocess.run((compiler, "-std=gnu11", "-fsyntax-only", "-I", sys.argv[1], "-x", "c", "-"),
                   input="\n".join(lines), text=True, check=True)
    return len(lines)


own = ctypes.sizeof(ctypes.c_void_p)
for struct in _library.STRUCTS.values():
    fields, size = layout(struct, own)
    assert size == ctypes.sizeof(struct), struct
    assert all(getattr(struct, name).offset == offset for name, _, offset, _ in fields), struct
print(compile_for("cc", own), "lines hold for this machine")
if shutil.which(ARM):
    print(compile_for(ARM, 4), "lines hold for 32-bit ARM")
