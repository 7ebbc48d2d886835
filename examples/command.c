/* SPDX-License-Identifier: Apache-2.0 */

/* Sends one command and prints the answer: command AT+CSQ
 *
 * Exit code: 0 when the modem said OK, 1 when it said anything else, 2 when there is no answer. */
#include <mdxclient.h>
#include <stdio.h>

int main(int argc, char** argv) {
  mdx_client_t* client = NULL;
  mdx_options_t options = MDX_OPTIONS_INIT;
  mdx_result_t result = MDX_RESULT_INIT;
  int error;

  if (argc != 2) {
    fprintf(stderr, "usage: command AT-COMMAND\n");
    return 2;
  }
  options.timeout_s = 5;
  options.transparent = 1; /* every line of the answer, each with its CR LF */
  error = mdx_open(&client);
  if (error == MDX_OK) error = mdx_send(client, argv[1], &options, &result);
  if (error != MDX_OK) {
    const int mistake = mdx_check(argv[1], NULL, &options, NULL);
    fprintf(stderr, "%s\n", mistake ? mdx_mistake_text(mistake) : mdx_strerror(error));
    mdx_close(client);
    return 2;
  }
  fwrite(result.text, 1, result.length, stdout);
  fprintf(stderr, "%s\n", mdx_result_name(result.ret_val));
  mdx_close(client);
  return result.ret_val == MDX_RESULT_OK ? 0 : 1;
}
