/* SPDX-License-Identifier: Apache-2.0 */

/* Text messages, for programs that use libmdxclient: from a text to what the modem takes, and from
 * what it shows to a text.
 *
 * The modem is spoken to in PDU mode (AT+CMGF=0). 3GPP TS 23.040 lays out the PDU, 23.038 the
 * alphabets, 27.005 the commands and their answers. Nothing here allocates, waits (but for
 * mdx_sms_send and mdx_sms_read) or needs a handle (but for the same two).
 */
#ifndef MDXSMS_H
#define MDXSMS_H

#include "mdxclient.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Longest PDU, in octets: the service centre's address and a TPDU of 164. */
#define MDX_SMS_PDU_MAX 176
/** Most units in one part: septets. 140 octets, or 70 words of UCS-2, are the same room. */
#define MDX_SMS_UNITS_MAX 160
/** Most parts of one message. */
#define MDX_SMS_PARTS_MAX 255

/** What the units of a text are. */
typedef enum mdx_sms_alphabet {
  MDX_SMS_GSM_7_BIT = 0, /**< septets of the default alphabet or a national one */
  MDX_SMS_8_BIT = 1,     /**< octets of which only a program knows the meaning */
  MDX_SMS_UCS_2 = 2      /**< octets in pairs: UTF-16, the high octet first */
} mdx_sms_alphabet_t;

/** What is wrong with a number, a text or a PDU. */
typedef enum mdx_sms_mistake {
  MDX_SMS_FINE = 0,
  MDX_SMS_MISTAKE_OPTIONS = 1,
  MDX_SMS_MISTAKE_NO_NUMBER = 2,       /**< it has no digits, or is NULL */
  MDX_SMS_MISTAKE_NUMBER = 3,          /**< a character that is not dialled */
  MDX_SMS_MISTAKE_NUMBER_TOO_LONG = 4, /**< more than 20 digits; the position tells how many */
  MDX_SMS_MISTAKE_NO_TEXT = 5,         /**< NULL, with a length other than 0 */
  MDX_SMS_MISTAKE_NOT_UTF_8 = 6,
  MDX_SMS_MISTAKE_TOO_MANY_PARTS = 7, /**< the position tells how many it would take */
  MDX_SMS_MISTAKE_NO_SUCH_PART = 8,   /**< the last one is behind, so a loop ends */
  MDX_SMS_MISTAKE_PDU_DIGITS = 9,     /**< no pairs of hexadecimal digits */
  MDX_SMS_MISTAKE_PDU_LENGTH = 10,    /**< not as long as the modem said, or more than a PDU is */
  MDX_SMS_MISTAKE_PDU_SHORT = 11,     /**< it ends inside a field */
  MDX_SMS_MISTAKE_PDU_TYPE = 12,      /**< of no message that a modem shows */
  MDX_SMS_MISTAKE_PDU_ADDRESS = 13,   /**< an address longer than there are */
  MDX_SMS_MISTAKE_PDU_TEXT = 14       /**< text or its header is longer than there is room */
} mdx_sms_mistake_t;

/** How a text is sent. Start from MDX_SMS_OPTIONS_INIT. */
typedef struct mdx_sms_options {
  uint32_t size; /**< sizeof(mdx_sms_options_t) of the caller */
  /** Joins the parts of one message at its receiver: another one for each message. 0 to 65535;
   * above 255 it takes one octet more of each part. */
  uint32_t reference;
  int32_t flash;  /**< 1: shown at once and not kept (class 0) */
  int32_t report; /**< 1: the network shall tell what became of it */
} mdx_sms_options_t;

#define MDX_SMS_OPTIONS_INIT \
  { sizeof(mdx_sms_options_t), 0, 0, 0 }

/** One part of a message to be sent. Start from MDX_SMS_PART_INIT. */
typedef struct mdx_sms_part {
  uint32_t size;        /**< sizeof(mdx_sms_part_t) of the caller */
  uint32_t alphabet;    /**< mdx_sms_alphabet_t */
  uint32_t parts;       /**< of the message, at least 1 */
  uint32_t tpdu_length; /**< octets without the service centre's address, as AT+CMGS counts them */
  char head[16];        /**< the command line, such as "AT+CMGS=22" */
  /** Hexadecimal digits, NUL behind. The service centre is the SIM's own. */
  char pdu[2 * MDX_SMS_PDU_MAX + 4];
} mdx_sms_part_t;

#define MDX_SMS_PART_INIT \
  { sizeof(mdx_sms_part_t), 0, 0, 0, "", "" }

/** Makes one part of a message: an SMS-SUBMIT TPDU.
 *
 * The text goes out in the GSM 7-bit default alphabet and its extension table where these have all
 * of its characters, in UCS-2 otherwise. It is cut where no character is torn.
 * @param number   digits, * and #; a + in front for an international number; blanks, hyphens, dots
 *                 and slashes between them are passed over
 * @param text     UTF-8, `length` bytes; an empty one makes one part
 * @param options  NULL for the defaults
 * @param index    of the part, from 0 on
 * @param part     filled when MDX_SMS_FINE is returned
 * @param position  set to the offset of the byte that is wrong, or as the mistake says; may be NULL
 * @return mdx_sms_mistake_t
 */
MDX_API int mdx_sms_encode(const char* number, const char* text, uint32_t length,
                           const mdx_sms_options_t* options, uint32_t index, mdx_sms_part_t* part,
                           uint32_t* position);

/** What is wrong: one sentence. Never NULL. */
MDX_API const char* mdx_sms_mistake_text(int mistake);

#ifdef __cplusplus
}
#endif

#endif
