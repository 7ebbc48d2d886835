/* SPDX-License-Identifier: Apache-2.0 */

/* libmdxclient: AT commands and reports for other processes, over the server of this machine.
 *
 * A handle sends one command at a time and waits for its answer, or leaves the waiting to the
 * caller's event loop; a subscription yields what the server tells the device. Usable from C (C99
 * on) and C++. No call raises a signal, prints, or starts a thread.
 */
#ifndef MDXCLIENT_H
#define MDXCLIENT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define MDX_API __attribute__((visibility("default")))
#else
#define MDX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** What a call returns. mdx_strerror says what to do about each. */
typedef enum mdx_error {
  MDX_OK = 0,
  MDX_ERR_ARGUMENT = -1,    /**< something in the request can never be served; nothing was sent */
  MDX_ERR_NO_SERVER = -2,   /**< no server runs on this machine */
  MDX_ERR_SERVER_GONE = -3, /**< it died while it had the request; a command may have been run */
  MDX_ERR_TIMEOUT = -4,     /**< the deadline passed; the command may still be running */
  MDX_ERR_BUSY = -5,        /**< the deadline passed, the request was not taken and is not run */
  MDX_ERR_ACCESS = -6,      /**< this user may not use the server */
  MDX_ERR_THREAD = -7,      /**< a thread has one handle, and a handle one thread */
  MDX_ERR_SYSTEM = -8,      /**< a call of the system failed; errno tells which way */
  MDX_ERR_PENDING = -9,     /**< the handle has a request under way */
  MDX_ERR_TAKEN = -10,      /**< another user keeps this thread's place at the server */
  MDX_ERR_REFUSED = -11,    /**< the hub has no place for this subscription, or gave it away */
  MDX_ERR_NAMESPACE = -12   /**< the server runs in another PID namespace than this program */
} mdx_error_t;

/** How the exchange with the modem ended: `ret_val` of a result. */
typedef enum mdx_verdict {
  MDX_RESULT_NONE = -1, /**< the modem did not answer within the time-out */
  /** A PDU exchange that broke off without a result, or whose OK came without the message's
   * reference: nobody knows whether the message was sent. */
  MDX_RESULT_NO_VERDICT = 0,
  MDX_RESULT_OK = 2,
  MDX_RESULT_CME_ERROR = 3, /**< the text is the error line with its number */
  MDX_RESULT_CMS_ERROR = 4, /**< the same */
  MDX_RESULT_ERROR = 5,
  MDX_RESULT_NO_CARRIER = 6,
  MDX_RESULT_NO_ANSWER = 7,
  MDX_RESULT_NOT_SUPPORTED = 8, /**< see `refused` of the result */
  MDX_RESULT_TOO_MANY_PARAMETERS = 9,
  MDX_RESULT_ATE0 = 10,
  MDX_RESULT_CONNECT = 11,
  MDX_RESULT_NO_DIALTONE = 12,
  MDX_RESULT_BUSY = 13
} mdx_verdict_t;

/** Longest command that reaches the modem whole, in bytes, without line end. */
#define MDX_COMMAND_MAX 638
/** Longest match string, in bytes. */
#define MDX_MATCH_MAX 63

/** How a command is run. Start from MDX_OPTIONS_INIT: a program goes on working when later
 * libraries add fields. */
typedef struct mdx_options {
  uint32_t size; /**< sizeof(mdx_options_t) of the caller */
  /** Seconds that the modem gets; not negative. */
  int32_t timeout_s;
  /** The call returns within so many milliseconds; 0: what the time-out allows, plus a second. */
  int32_t deadline_ms;
  /** A line with this text is part of the answer, even if it looks like a report; may be NULL. */
  const char* match;
  /** 1: CR LF behind each line with `match`, and no text unless the result is OK. */
  int32_t multi_line;
  /** 1: every line with CR LF, the result line included; never with multi_line. */
  int32_t transparent;
  /** Seconds that the request may wait for its turn, while the modem works for others; the modem
   * then has all of timeout_s. 0: both together have what deadline_ms says. */
  int32_t wait_s;
} mdx_options_t;

#define MDX_OPTIONS_INIT \
  { sizeof(mdx_options_t), 10, 0, NULL, 0, 0, 0 }

/** What makes a request one that can never be served. */
typedef enum mdx_mistake {
  MDX_MISTAKE_NONE = 0,
  MDX_MISTAKE_OPTIONS = 1,
  MDX_MISTAKE_MATCH_TOO_LONG = 2,
  MDX_MISTAKE_MATCH_CONTROL = 3,   /**< a control character (0 to 31, 127) in the match string */
  MDX_MISTAKE_NOT_AT = 4,          /**< also a command that is NULL */
  MDX_MISTAKE_CONTROL = 5,         /**< a control character in the command, or in the head */
  MDX_MISTAKE_TOO_LONG = 6,        /**< the command, or head and PDU together */
  MDX_MISTAKE_NEEDS_PDU = 7,       /**< the modem would wait for a message: mdx_send_pdu */
  MDX_MISTAKE_UNKNOWN_PROMPT = 8,  /**< it would, and the server cannot give it one */
  MDX_MISTAKE_NOT_TRANSPARENT = 9, /**< asks about a message command, and is not transparent */
  MDX_MISTAKE_NO_MESSAGE = 10,     /**< the head does not end in a command that takes a message */
  MDX_MISTAKE_PDU = 11             /**< no pairs of hexadecimal digits */
} mdx_mistake_t;

/** The answer. Start from MDX_RESULT_INIT. */
typedef struct mdx_result {
  uint32_t size;          /**< sizeof(mdx_result_t) of the caller */
  int32_t ret_val;        /**< mdx_verdict_t */
  const char* text;       /**< response text, NUL-terminated; valid until the handle is next used */
  uint32_t length;        /**< bytes of it, without the NUL */
  int32_t timeout_left_s; /**< what was left of timeout_s, by the server's count */
  /** 1: ret_val 8 is the server's own word: it refused the request or could not write to the modem;
   * or the modem answered a PDU with COMMAND NOT SUPPORT and no text. */
  int32_t refused;
  /** 1: the modem's answer was longer than the 1499 bytes that an answer has room for, and text is
   * missing. Without match, multi_line and transparent the server does not tell. */
  int32_t truncated;
} mdx_result_t;

#define MDX_RESULT_INIT \
  { sizeof(mdx_result_t), MDX_RESULT_NONE, "", 0, 0, 0, 0 }

/** One client of the server: a thread's. It is used and closed by the thread that opened it. */
typedef struct mdx_client mdx_client_t;

/** Finds the server and makes the calling thread one of its clients.
 *
 * Where another user's file bears the thread's name at the server, or somebody has removed the
 * server's own, this waits until the server has put it right, 2 seconds at most.
 * @param client  set to the handle on success, to NULL otherwise; a thread has one at most
 * @return MDX_OK, MDX_ERR_NO_SERVER, MDX_ERR_ACCESS, MDX_ERR_TAKEN, MDX_ERR_NAMESPACE,
 * MDX_ERR_THREAD, MDX_ERR_ARGUMENT, MDX_ERR_SYSTEM
 */
MDX_API int mdx_open(mdx_client_t** client);

/** Ends a handle; NULL is allowed. In a forked child, or another thread, it releases memory and
 * descriptors but leaves the owner's place at the server alone. */
MDX_API void mdx_close(mdx_client_t* client);

/** Sends one command and waits for its answer.
 *
 * After MDX_ERR_SERVER_GONE the handle stays good: the next call looks for the server again. A
 * request that nobody took by the deadline is withdrawn and not run later.
 * @param command  starts with AT in either case; MDX_COMMAND_MAX bytes at most, CR and LF at its
 * end not counted, and no other control characters. One that makes the modem wait for a message
 * (+CMGS, +CMGW, ^HCMGS, ^HCMGW) goes through mdx_send_pdu; a query about one (AT+CMGS=?) has to be
 * transparent.
 * @param options  NULL for the defaults
 * @param result   filled when MDX_OK is returned; its ret_val tells what the modem said
 */
MDX_API int mdx_send(mdx_client_t* client, const char* command, const mdx_options_t* options,
                     mdx_result_t* result);

/** Sends or stores a message in PDU mode: command line, the modem's prompt, PDU.
 *
 * The time-out counts twice, once for the prompt and once for the answer. An OK counts
 * only behind the message's reference (+CMGS: 12), unless the match drops that.
 * @param head  the command line, such as AT+CMGS=22; sent in capitals and without blanks
 * @param pdu   hexadecimal digits, an even number; with the head 636 bytes at most
 * @param options  as mdx_send; `transparent` must be 0. A NULL match stands for the head's own
 * prefix, so that the line with the message reference becomes the text; "" drops that line.
 */
MDX_API int mdx_send_pdu(mdx_client_t* client, const char* head, const char* pdu,
                         const mdx_options_t* options, mdx_result_t* result);

/** The latest ^RSSI report; "^RSSI: 0" until the first one has come. */
#define MDX_REPORT_RSSI 2

/** Fetches a stored report; the modem is not asked. An unknown report comes back with ret_val 0.
 * Only the deadline of the options counts. */
MDX_API int mdx_get_report(mdx_client_t* client, int32_t report, const mdx_options_t* options,
                           mdx_result_t* result);

/** A descriptor for an event loop, the handle's own; -1 with errno on failure. It polls readable
 * when mdx_finish has something to do, the deadline included, and never without a request under
 * way, so a loop needs neither a time-out nor a timer of its own. Only to be polled. */
MDX_API int mdx_client_fd(mdx_client_t* client);

/** Sends a command, as mdx_send, but does not wait for its answer: that is fetched with mdx_finish.
 *
 * A handle has one request under way. Until it is finished or cancelled every other call that sends
 * returns MDX_ERR_PENDING.
 * @return MDX_OK when the request is under way; else nothing was sent
 */
MDX_API int mdx_begin(mdx_client_t* client, const char* command, const mdx_options_t* options);

/** The same for a message in PDU mode, as mdx_send_pdu. */
MDX_API int mdx_begin_pdu(mdx_client_t* client, const char* head, const char* pdu,
                          const mdx_options_t* options);

/** The same for a stored report, as mdx_get_report. */
MDX_API int mdx_begin_report(mdx_client_t* client, int32_t report, const mdx_options_t* options);

/** Fetches the answer to what was begun. Does not wait; may be called at any time.
 *
 * @return MDX_ERR_PENDING when it is not there yet; else the request is over, with what mdx_send
 *         would have returned. MDX_ERR_ARGUMENT when none is under way.
 */
MDX_API int mdx_finish(mdx_client_t* client, mdx_result_t* result);

/** Gives up what was begun.
 *
 * @return MDX_OK when the command was not and will not be run; MDX_ERR_TIMEOUT when it may have
 * been or may still be running, and its answer is lost; MDX_ERR_ARGUMENT when none is under way
 */
MDX_API int mdx_cancel(mdx_client_t* client);

/** Tells why a request would come back with MDX_ERR_ARGUMENT. Needs no handle and sends nothing.
 *
 * @param command  as mdx_send, or the head of mdx_send_pdu
 * @param pdu      NULL for mdx_send and mdx_begin
 * @param position  set to the offset of the byte that is wrong, in the match string, command or PDU
 *                  that the mistake names, where it is one byte; may be NULL
 * @return mdx_mistake_t
 */
MDX_API int mdx_check(const char* command, const char* pdu, const mdx_options_t* options,
                      uint32_t* position);

/** What is wrong, and what to do instead: one sentence. Never NULL. */
MDX_API const char* mdx_mistake_text(int mistake);

/** What the lines of an answer look like to the server. */
typedef enum mdx_answer_lines {
  MDX_ANSWER_PLAIN = 0,
  /** Reports have the same name: the lines go to the receivers of these and not into the answer,
   * unless a match string claims them. */
  MDX_ANSWER_LIKE_REPORT = 1,
  /** They hold names that people gave, which may read like a report: the same, now and then. */
  MDX_ANSWER_FREE_WORDS = 2
} mdx_answer_lines_t;

/** How the answer to a command is best collected: with which match string, if any.
 *
 * @param name  of the command, in capitals, such as "+CREG"; each line of its answer begins with it
 * @return mdx_answer_lines_t
 */
MDX_API int mdx_answer_kind(const char* name);

/** The library's version, such as "1.2.3". Never NULL. */
MDX_API const char* mdx_version(void);

/** What became of a call: one sentence, which says what to do next. Never NULL. */
MDX_API const char* mdx_strerror(int error);

/** The result code's text as modems write it, such as "OK" or "NO CARRIER". Never NULL. */
MDX_API const char* mdx_result_name(int32_t ret_val);

/** A connection to the hub that yields packets. Usable by one thread at a time, any thread. */
typedef struct mdx_subscription mdx_subscription_t;

/** For mdx_subscribe: every packet. */
#define MDX_EVERYTHING "*"
/** For mdx_subscribe: the notifications of a module. */
#define MDX_BY_MODULE ""

typedef enum mdx_kind {
  MDX_KIND_SERVICE = 1,      /**< a message to the service `to` */
  MDX_KIND_NOTIFICATION = 2, /**< an event of `module`, with values `a` and `b` */
  MDX_KIND_VOICE = 3         /**< a call report; `a` is its type */
} mdx_kind_t;

/** One packet. Start from MDX_PACKET_INIT. */
typedef struct mdx_packet {
  uint32_t size;       /**< sizeof(mdx_packet_t) of the caller */
  uint32_t type;       /**< message type, event number, or 8907 for voice */
  uint32_t kind;       /**< mdx_kind_t */
  char to[16];         /**< service name, NUL-terminated */
  uint32_t lost;       /**< packets missed right before this one */
  uint32_t module;     /**< notification module */
  int32_t a;           /**< first value; for voice the report's type */
  int32_t b;           /**< second value */
  uint32_t length;     /**< payload bytes */
  const void* payload; /**< valid until the next call on the subscription; aligned for any type */
  /** 1: told before the subscription was made; only where its options ask for such packets. */
  uint32_t remembered;
  uint32_t age_s; /**< of a remembered packet: whole seconds since it was told; else 0 */
} mdx_packet_t;

#define MDX_PACKET_INIT \
  { sizeof(mdx_packet_t), 0, 0, "", 0, 0, 0, 0, 0, NULL, 0, 0 }

/** The service that hears of the modem's link, in order with what the modem says. */
#define MDX_SERVICE_LINK "link"

/** `type` of its messages, which carry nothing else. */
typedef enum mdx_link {
  MDX_LINK_UP = 1,  /**< the modem's device was opened, also for the first time */
  MDX_LINK_GONE = 2 /**< it went away, or was given up; what it told before may no longer be true */
} mdx_link_t;

/** Subscribes to what the server tells the device.
 *
 * Returns when the server has noted it: nothing that is told from then on is missed. That takes no
 * longer than a round trip, 10 seconds at most. (A server older than this library may have no word
 * for a subscription to one service or module: it is given a second for it once it has read that.)
 * @param service  a service's name (11 bytes at most), MDX_EVERYTHING, or MDX_BY_MODULE
 * @param module   the module for MDX_BY_MODULE, not looked at otherwise
 * @return MDX_OK, MDX_ERR_NO_SERVER, MDX_ERR_ACCESS, MDX_ERR_REFUSED, MDX_ERR_ARGUMENT,
 * MDX_ERR_SYSTEM; MDX_ERR_BUSY when the server did not take it within 10 seconds
 */
MDX_API int mdx_subscribe(mdx_subscription_t** subscription, const char* service, uint32_t module);

/** What a subscription yields. Start from MDX_SUBSCRIBE_OPTIONS_INIT. */
typedef struct mdx_subscribe_options {
  uint32_t size;       /**< sizeof(mdx_subscribe_options_t) of the caller */
  uint32_t module;     /**< as mdx_subscribe */
  const char* service; /**< as mdx_subscribe */
  /** 1: first comes the last packet of each kind of state (signal, registration, SIM, data
   * connection and so on), as far as one was told since the server's start: each with `remembered`.
   * That of MDX_SERVICE_LINK is always known, and the last of them. Nothing personal is among them:
   * no message, USSD text, number or call. */
  int32_t last;
} mdx_subscribe_options_t;

#define MDX_SUBSCRIBE_OPTIONS_INIT \
  { sizeof(mdx_subscribe_options_t), 0, MDX_EVERYTHING, 0 }

/** Subscribes as the options say; the modem is not asked. Else as mdx_subscribe.
 *
 * @param options  NULL for everything that is told from now on
 */
MDX_API int mdx_subscribe_with(mdx_subscription_t** subscription,
                               const mdx_subscribe_options_t* options);

/** A descriptor that polls readable when a packet waits or the server is lost. The subscription's
 * own. */
MDX_API int mdx_subscription_fd(const mdx_subscription_t* subscription);

/** Takes the next packet.
 *
 * @param timeout_ms  0 does not wait, a negative one waits for good
 * @return MDX_OK; MDX_ERR_TIMEOUT when none came; MDX_ERR_SERVER_GONE, MDX_ERR_REFUSED: no more
 *         will come, end the subscription and make a new one
 */
MDX_API int mdx_next_packet(mdx_subscription_t* subscription, int32_t timeout_ms,
                            mdx_packet_t* packet);

/** Ends a subscription; NULL is allowed. */
MDX_API void mdx_unsubscribe(mdx_subscription_t* subscription);

/** What a packet tells, such as "EVT_AT_HCSQ" or "VOICE_CLIP".
 *
 * @param packet  as mdx_next_packet filled it
 * @return a text that is never released; NULL for a packet that this library does not know
 */
MDX_API const char* mdx_packet_name(const mdx_packet_t* packet);

/** The names that mdx_packet_name gives, one after the other; some stand there more than once.
 *
 * @param index  from 0 on
 * @return a text that is never released; NULL behind the last
 */
MDX_API const char* mdx_known_packet(uint32_t index);

/** A notification module's name, such as "RUT_MDL_DEVICE"; NULL for one that is not known. */
MDX_API const char* mdx_module_name(uint32_t module);

typedef enum mdx_field_kind {
  MDX_FIELD_NUMBER = 1,   /**< `number` */
  MDX_FIELD_UNSIGNED = 2, /**< `unsigned_number`; counters need all 64 bits */
  MDX_FIELD_TEXT = 3,     /**< `length` bytes at `data`, as the modem sent them; no NUL behind */
  MDX_FIELD_BYTES = 4     /**< `length` bytes at `data` whose meaning is not known */
} mdx_field_kind_t;

/** One value of a packet. Start from MDX_FIELD_INIT. */
typedef struct mdx_field {
  uint32_t size;            /**< sizeof(mdx_field_t) of the caller */
  uint32_t kind;            /**< mdx_field_kind_t */
  const char* name;         /**< such as "tx_rate"; never released */
  const char* unit;         /**< such as "B/s"; "" for none, or one that only the modem knows */
  int64_t number;           /**< 0 but for MDX_FIELD_NUMBER */
  uint64_t unsigned_number; /**< 0 but for MDX_FIELD_UNSIGNED */
  const void* data;         /**< valid as long as the packet's payload */
  uint32_t length;          /**< bytes of it; a text may hold zero bytes, but none at its end */
} mdx_field_t;

#define MDX_FIELD_INIT \
  { sizeof(mdx_field_t), 0, NULL, NULL, 0, 0, NULL, 0 }

/** Reads one value of a packet by its name and kind.
 *
 * The fields come in the order of the wire: values of the header first, then the payload's. What is
 * always 0 is left out. A packet that is not known, or comes with a payload of another size than
 * this library knows, has one field: "payload", of kind MDX_FIELD_BYTES.
 * @param packet  as mdx_next_packet filled it
 * @param index   from 0 on
 * @return MDX_OK; MDX_ERR_ARGUMENT when the packet has no such field, so that a loop ends
 */
MDX_API int mdx_packet_field(const mdx_packet_t* packet, uint32_t index, mdx_field_t* field);

#ifdef __cplusplus
}
#endif

#endif
