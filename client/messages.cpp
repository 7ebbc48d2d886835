// SPDX-License-Identifier: Apache-2.0

// The words for errors and result codes.

#include "client/mdxclient.h"

const char* mdx_version(void) { return MDXGATE_VERSION; }

const char* mdx_strerror(int error) {
  switch (error) {
    case MDX_OK:
      return "the request was served";
    case MDX_ERR_ARGUMENT:
      return "the request can never be served: check that the command starts with AT, that "
             "command, "
             "match string and PDU are not too long, and that a message goes with its PDU";
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
    case MDX_ERR_SYSTEM:
      return "a call of the system failed: errno tells why";
    default:
      return "unknown error: it is no value of mdx_error_t";
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
