// SPDX-License-Identifier: Apache-2.0

// What a report line says, by name: the field parser, the call records, and the small text services
// that every reader of a line needs.
//
// The parser's table of prefixes lives in platform/fields/, the records' layouts in wire/. All
// functions may be called from any thread; none keeps a pointer to what it was given.
#pragma once

#include <cstddef>
#include <cstdint>

/// One named value of a report line. Names and values are NUL-terminated and live until
/// free_at_cmd.
struct at_field_t {
  const char* AtFieldName;   ///< the name of the prefix's table, never null
  const char* AtFieldValue;  ///< the text as sent, quotes and blanks around it removed; never null
  uintptr_t reserved;        ///< 0
  at_field_t* next;          ///< null in the last node
};

/// Finds `prefix` in `text` and turns the parameters behind its colon into a chain of fields.
///
/// `text` may hold anything in front of the prefix. The prefix counts only as a whole name in front
/// of a colon, blanks before the colon allowed. The parameters end with the line; a PDU on the line
/// behind +CMT, +CDS or +CBM is the field `pdu`, and a +CUSD text may hold line ends. A parameter
/// that is empty between its commas is a node with an empty value, a parameter the line does not
/// reach has no node.
/// @param chain   set to null by the caller; the chain on success, which may stay null
/// @param prefix  the report's name with its plus sign or caret, such as "^SIMST"
/// @param text    NUL-terminated
/// @param group   the parser's command group: 0 unsolicited report, 15 answer to a query
/// @param kind    what `text` is: 3 a report line, 0 collected response text
///                Both only describe the caller: no field depends on them.
/// @return 0 on success; -1 when a pointer is null, no such prefix is known, `text` does not hold
///         it, or memory is short: `*chain` is untouched and nothing is to be released then
int at_cmd_parse(at_field_t** chain, const char* prefix, const char* text, int group, int kind);

/// Releases a chain that at_cmd_parse made. Null is allowed.
void free_at_cmd(at_field_t* chain);

/// Call records: each parser reads one report line into the fixed record whose layout stands in
/// wire/call_records.h.
/// @param text    the whole line, NUL-terminated
/// @param record  room for the record's size, which the comment gives in bytes
/// @return 0 when the whole record is written; -1 when a pointer is null, the line lacks the prefix
///         or the value without which the record would say nothing: the record is untouched then
int MdxOrigParse(const char* text, void* record);         // ^ORIG           4
int MdxConfParse(const char* text, void* record);         // ^CONF           4
int MdxConnParse(const char* text, void* record);         // ^CONN           4
int MdxCendParse(const char* text, void* record);         // ^CEND          12
int MdxClipParse(const char* text, void* record);         // +CLIP          36
int MdxCcwaParse(const char* text, void* record);         // +CCWA          36
int MdxCcwaImsParse(const char* text, void* record);      // ^CCWA          36
int MdxXlemaParse(const char* text, void* record);        // ^XLEMA         56
int MdxCallStateParse(const char* text, void* record);    // ^CCALLSTATE     5
int at_cschaninfo_parse(const char* text, void* record);  // ^CSCHANNELINFO  4

/// 0 when both texts are equal or both null; anything else when they differ or one is null.
int safe_strcmp(const char* a, const char* b);

/// The decimal number at the start of `text`, blanks and a sign before it allowed. Null and text
/// without leading digits are 0; what does not fit 32 bits is the nearest value that does.
int32_t safe_atoi(const char* text);

/// The hexadecimal number at the start of `text`, either case, no "0x". Stops at the first other
/// character. Null is 0; of more than 16 digits the low 64 bits count.
uint64_t hex_str_to_uinteger(const char* text);

/// 0 when the first `n` characters of both texts match but for the case of ASCII letters.
int At_strncasecmp(const char* a, const char* b, size_t n);

/// Length of a NUL-terminated text; 0 for null.
uint32_t MDX_strlen_s(const char* text);

/// Copies at most `count` characters of `src`, cut at `size` - 1, and terminates.
/// @return 0, or EINVAL for a null pointer or a `size` of 0: nothing is written then
int MDX_strncpy_s(char* dst, size_t size, const char* src, size_t count);

/// Formats into `dst`, cut at `count` and at `size` - 1 characters, and terminates.
/// @param file, line  where the call stands
/// @return number of characters written, without the NUL; -1 for a null pointer, a `size` of 0 or a
///         format that can't be printed
int new_snprintf_s(const char* file, int line, char* dst, size_t size, size_t count,
                   const char* format, ...) __attribute__((format(printf, 6, 7)));
