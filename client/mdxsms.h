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

/** What a message is. */
typedef enum mdx_sms_type {
  MDX_SMS_DELIVER = 0,      /**< received */
  MDX_SMS_SUBMIT = 1,       /**< sent, or to be sent */
  MDX_SMS_STATUS_REPORT = 2 /**< what became of one that was sent */
} mdx_sms_type_t;

/** A message, or one part of it. Start from MDX_SMS_INIT. */
typedef struct mdx_sms {
  uint32_t size;         /**< sizeof(mdx_sms_t) of the caller */
  uint32_t type;         /**< mdx_sms_type_t */
  uint32_t alphabet;     /**< mdx_sms_alphabet_t, of the units */
  uint32_t units_length; /**< how many there are */
  /** As they came, without header: septets one a byte, or octets. */
  uint8_t units[MDX_SMS_UNITS_MAX];
  uint32_t text_length; /**< bytes of the text, without the NUL */
  /** UTF-8; may hold zero bytes and any control character. Empty for MDX_SMS_8_BIT. */
  char text[512];
  /** Sender, or receiver of what was sent: "+4915112345678", or a name in UTF-8. */
  char number[48];
  char service_centre[24]; /**< empty: none is told */
  int32_t message_class;   /**< 0 shown at once and not kept, 1 to 3; -1: none */
  /** When the service centre had it: seconds since 1970-01-01 00:00 UTC. */
  int64_t time_s;
  int32_t time_zone_min; /**< what local time was ahead of UTC, in minutes */
  int32_t time_known;    /**< 0: MDX_SMS_SUBMIT has none, or it is one that no calendar has */
  uint32_t protocol;     /**< protocol identifier, as it came */
  uint32_t coding;       /**< data coding scheme, as it came */
  /** Several messages of one sender with this reference are one. */
  uint32_t reference;
  uint32_t parts;            /**< of the whole message; 0: it is no part of one */
  uint32_t part;             /**< from 1 on */
  uint32_t language_locking; /**< number of the national language in place of the alphabet, or 0 */
  uint32_t language_single;  /**< the same for what stands behind an escape */
  uint32_t has_ports;        /**< 1: for a program, with the next two */
  uint32_t destination_port;
  uint32_t source_port;
  int32_t report_wanted; /**< 1: its sender wanted to know what became of it */
  /** Given by the modem when it sent the message: of MDX_SMS_STATUS_REPORT. */
  uint32_t message_reference;
  uint32_t status; /**< TP-Status, of MDX_SMS_STATUS_REPORT: mdx_sms_fate tells what it means */
  /** When that came to be, of MDX_SMS_STATUS_REPORT, as the time above. */
  int64_t discharged_s;
  int32_t discharged_zone_min;
  int32_t discharged_known;
} mdx_sms_t;

/* clang-format off */
#define MDX_SMS_INIT \
  { sizeof(mdx_sms_t), 0, 0, 0, {0}, 0, "", "", "", -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, \
    0, 0, 0, 0 }
/* clang-format on */

/** Takes a PDU apart: an SMS-DELIVER, SMS-SUBMIT or SMS-STATUS-REPORT.
 *
 * Octets behind its end are passed over. What a newer standard may have added is, too.
 * @param pdu     `length` hexadecimal digits, as the modem shows them
 * @param tpdu_length  octets without the service centre's address, as the modem told in front of
 *                     the PDU; one that shows no service centre is known by it. 0: not known
 * @param sms     filled when MDX_SMS_FINE is returned
 * @return mdx_sms_mistake_t
 */
MDX_API int mdx_sms_decode(const char* pdu, uint32_t length, uint32_t tpdu_length, mdx_sms_t* sms);

/** Joins the texts of parts in the order given. What was torn between two parts is whole again.
 *
 * @param parts  `count` of them, of one alphabet
 * @param text   gets UTF-8 and a NUL, as much as fits into `room` bytes; may be NULL when room is 0
 * @return bytes of the whole text, without the NUL
 */
MDX_API size_t mdx_sms_join(const mdx_sms_t* const* parts, uint32_t count, char* text, size_t room);

/** What a status report says. */
typedef enum mdx_sms_fate {
  MDX_SMS_DELIVERED = 0, /**< the receiver has it, or the service centre put it where it should */
  MDX_SMS_TRYING = 1,    /**< not yet; the service centre goes on trying */
  MDX_SMS_FAILED = 2     /**< it never will be */
} mdx_sms_fate_t;

/** What a status report says. @return mdx_sms_fate_t */
MDX_API int mdx_sms_fate(const mdx_sms_t* report);

/** The status of a report in words, such as "the receiver is busy". Never NULL. */
MDX_API const char* mdx_sms_status_text(uint32_t status);

/** Where a stored message stands, in the numbers of AT+CMGL in PDU mode. */
typedef enum mdx_sms_state {
  /** Not told, or the modem is in text mode. Where it told one that there is not, the PDU and its
   * length are there all the same. */
  MDX_SMS_STATE_NONE = -1,
  MDX_SMS_UNREAD = 0,
  MDX_SMS_READ = 1,
  MDX_SMS_UNSENT = 2,
  MDX_SMS_SENT = 3
} mdx_sms_state_t;

/** A message as the modem shows it. Start from MDX_SMS_STORED_INIT. */
typedef struct mdx_sms_stored {
  uint32_t size;        /**< sizeof(mdx_sms_stored_t) of the caller */
  int32_t index;        /**< its number; -1 in an answer to AT+CMGR, which does not repeat it */
  int32_t state;        /**< mdx_sms_state_t */
  uint32_t tpdu_length; /**< as mdx_sms_decode takes it */
  const char* pdu;      /**< hexadecimal digits inside the answer; no NUL behind */
  uint32_t pdu_length;  /**< 0: an empty place, or text mode */
} mdx_sms_stored_t;

#define MDX_SMS_STORED_INIT \
  { sizeof(mdx_sms_stored_t), -1, MDX_SMS_STATE_NONE, 0, NULL, 0 }

/** Finds a message in the answer to AT+CMGR or AT+CMGL, fetched transparently.
 *
 * @param answer  `length` bytes: lines with CR LF, such as "+CMGR: 1,,26" and behind it the PDU
 * @param index   from 0 on
 * @return MDX_OK; MDX_ERR_ARGUMENT when there are not so many, so that a loop ends
 */
MDX_API int mdx_sms_stored_at(const char* answer, uint32_t length, uint32_t index,
                              mdx_sms_stored_t* stored);

/** The number in "+CMS ERROR: 310", wherever in an answer it stands; -1 without one. */
MDX_API int32_t mdx_sms_error_number(const char* answer, uint32_t length);

/** That number in words, such as "no SIM is inserted". NULL for one that no standard has. */
MDX_API const char* mdx_sms_error_text(int32_t number);

/** The number in "+CMGS: 12", wherever in an answer it stands; -1 without one. */
MDX_API int32_t mdx_sms_sent_reference(const char* answer, uint32_t length);

/** How far a message went. Start from MDX_SMS_SENT_INIT. */
typedef struct mdx_sms_sent_parts {
  uint32_t size;     /**< sizeof(mdx_sms_sent_parts_t) of the caller */
  uint32_t parts;    /**< of the message */
  uint32_t sent;     /**< those that the modem confirmed */
  int32_t mistake;   /**< mdx_sms_mistake_t, when MDX_ERR_ARGUMENT is returned */
  int32_t reference; /**< message reference of the last one that was sent, -1 without one */
} mdx_sms_sent_parts_t;

#define MDX_SMS_SENT_INIT \
  { sizeof(mdx_sms_sent_parts_t), 0, 0, 0, -1 }

/** Sends a message in as many parts as it takes, each as mdx_send_pdu does; the first that fails
 * ends it. The modem has to be in PDU mode.
 *
 * @param number, text, length, sms_options  as mdx_sms_encode
 * @param options  as mdx_send_pdu; NULL: 60 seconds for each part
 * @param sent     tells how far it went, whatever is returned; may be NULL
 * @param result   of the last part that was tried, filled when MDX_OK is returned
 */
MDX_API int mdx_sms_send(mdx_client_t* client, const char* number, const char* text,
                         uint32_t length, const mdx_sms_options_t* sms_options,
                         const mdx_options_t* options, mdx_sms_sent_parts_t* sent,
                         mdx_result_t* result);

/** Reads a stored message. The modem has to be in PDU mode; it marks a received one as read.
 *
 * @param index   its number
 * @param options  as mdx_send, but for the way the answer is collected
 * @param stored  its index, state and PDU, which is valid until the handle is next used
 * @param sms     the message
 * @param result  filled when MDX_OK is returned, in which case its ret_val has to be MDX_RESULT_OK
 *                and `stored` has to hold a PDU for there to be a message
 * @param mistake  mdx_sms_mistake_t, what is wrong with the PDU; may be NULL
 */
MDX_API int mdx_sms_read(mdx_client_t* client, uint32_t index, const mdx_options_t* options,
                         mdx_sms_stored_t* stored, mdx_sms_t* sms, mdx_result_t* result,
                         int* mistake);

/** What is wrong: one sentence. Never NULL. */
MDX_API const char* mdx_sms_mistake_text(int mistake);

#ifdef __cplusplus
}
#endif

#endif
