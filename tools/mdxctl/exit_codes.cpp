// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/exit_codes.h"

exit_code_t exit_code_of_error(int error) {
  switch (error) {
    case MDX_OK:
      return EXIT_OK;
    case MDX_ERR_ARGUMENT:
      return EXIT_USAGE;
    case MDX_ERR_TIMEOUT:
    case MDX_ERR_BUSY:
      return EXIT_NO_ANSWER;
    case MDX_ERR_NO_SERVER:
    case MDX_ERR_SERVER_GONE:
      return EXIT_NO_SERVER;
    default:
      return EXIT_REFUSED;
  }
}

exit_code_t exit_code_of_result(const mdx_result_t& result) {
  switch (result.ret_val) {
    case MDX_RESULT_OK:
    case MDX_RESULT_CONNECT:
      return EXIT_OK;
    case MDX_RESULT_NONE:
    case MDX_RESULT_NO_VERDICT:
      return EXIT_NO_ANSWER;
    default:
      return result.refused != 0 ? EXIT_REFUSED : EXIT_MODEM_ERROR;
  }
}
