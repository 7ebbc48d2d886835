// SPDX-License-Identifier: Apache-2.0

// The words for errors and result codes.

#include "client/mdxclient.h"

const char* mdx_version(void) { return MDXGATE_VERSION; }

const char* mdx_strerror(int error) {
  switch (error) {
    case MDX_OK:
      return "the request was served";
    case MDX_ERR_ARGUMENT:
      return "the request can never be served: mdx_check tells what is wrong with it";
    case MDX_ERR_NO_SERVER:
      return "no server is running: start it with \"systemctl start mdxgate\", or run mdxgate";
    case MDX_ERR_SERVER_GONE:
      return "the server died while it had the request, which may have been run: check its effect, "
             "then try again";
    case MDX_ERR_TIMEOUT:
      return "no answer came in time: allow a longer time-out, or check the modem";
    case MDX_ERR_BUSY:
      return "the server did not get to the request in time, and it was not run: try again, or "
             "allow a longer deadline";
    case MDX_ERR_ACCESS:
      return "permission denied: join the group with \"usermod -aG mdxgate USER\", and log in "
             "again";
    case MDX_ERR_THREAD:
      return "a handle belongs to one thread and a thread has one: open one in each thread, and "
             "again after a fork";
    case MDX_ERR_PENDING:
      return "a request is under way: call mdx_finish when the descriptor is readable, or "
             "mdx_cancel";
    case MDX_ERR_TAKEN:
      return "another user keeps this task's name in /var/run/mdxgate/tasks taken: try again, and "
             "if "
             "that does not help, have root look whose it is";
    case MDX_ERR_REFUSED:
      return "the server's hub has no place for this receiver, since others of the same user have "
             "too many: end some, or have root look at them with \"mdxctl console platform "
             "receivers\"";
    case MDX_ERR_NAMESPACE:
      return "the server runs in another PID namespace, where this task's id may be another's: run "
             "this program in the server's (for a container: --pid=host), or the server in this "
             "one";
    case MDX_ERR_SYSTEM:
      return "a call of the system failed: errno tells why";
    default:
      return "unknown error: it is no value of mdx_error_t";
  }
}

const char* mdx_mistake_text(int mistake) {
  switch (mistake) {
    case MDX_MISTAKE_NONE:
      return "nothing is wrong with the request";
    case MDX_MISTAKE_OPTIONS:
      return "the options are wrong: start from MDX_OPTIONS_INIT, no time is negative, and "
             "transparent goes neither with multi_line nor with a PDU";
    case MDX_MISTAKE_MATCH_TOO_LONG:
      return "the match string is too long: 63 bytes are the most";
    case MDX_MISTAKE_MATCH_CONTROL:
      return "the match string holds a control character, which no line of an answer does";
    case MDX_MISTAKE_NOT_AT:
      return "the command does not begin with AT";
    case MDX_MISTAKE_CONTROL:
      return "the command holds a control character, at which the modem would end or change it: "
             "send each command by itself, and such characters of a text in hexadecimal";
    case MDX_MISTAKE_TOO_LONG:
      return "the command is too long: 638 bytes are the most, 636 with a PDU";
    case MDX_MISTAKE_NEEDS_PDU:
      return "the modem would wait for a message behind this command: send it with mdx_send_pdu";
    case MDX_MISTAKE_UNKNOWN_PROMPT:
      return "the modem would wait for a PDU behind this command, and the server cannot give it "
             "one: use AT+CNMA without a length; AT+CMGC cannot be used here";
    case MDX_MISTAKE_NOT_TRANSPARENT:
      return "the server would wait for a PDU behind this command: set transparent to ask the "
             "modem about a message command";
    case MDX_MISTAKE_NO_MESSAGE:
      return "the head does not end in a command that sends or stores a message: +CMGS, +CMGW, "
             "^HCMGS or ^HCMGW with its value";
    case MDX_MISTAKE_PDU:
      return "the PDU is not made of pairs of hexadecimal digits";
    default:
      return "unknown mistake: it is no value of mdx_mistake_t";
  }
}

const char* mdx_result_name(int32_t ret_val) {
  switch (ret_val) {
    // clang-format off
    case MDX_RESULT_NONE:                return "no answer";
    case MDX_RESULT_NO_VERDICT:          return "no result";
    case MDX_RESULT_OK:                  return "OK";
    case MDX_RESULT_CME_ERROR:           return "+CME ERROR";
    case MDX_RESULT_CMS_ERROR:           return "+CMS ERROR";
    case MDX_RESULT_ERROR:               return "ERROR";
    case MDX_RESULT_NO_CARRIER:          return "NO CARRIER";
    case MDX_RESULT_NO_ANSWER:           return "NO ANSWER";
    case MDX_RESULT_NOT_SUPPORTED:       return "COMMAND NOT SUPPORT";
    case MDX_RESULT_TOO_MANY_PARAMETERS: return "TOO MANY PARAMETERS";
    case MDX_RESULT_ATE0:                return "ATE0";
    case MDX_RESULT_CONNECT:             return "CONNECT";
    case MDX_RESULT_NO_DIALTONE:         return "NO DIALTONE";
    case MDX_RESULT_BUSY:                return "BUSY";
    default:                             return "unknown result";
      // clang-format on
  }
}
