/* A C program is a client like any other: it only needs the header and the library. */
#include <stdio.h>

#include "client/mdxclient.h"

int main(void) {
  mdx_client_t* client = NULL;
  mdx_options_t options = MDX_OPTIONS_INIT;
  mdx_result_t result = MDX_RESULT_INIT;
  mdx_packet_t packet = MDX_PACKET_INIT;
  int error = mdx_open(&client);
  if (error != MDX_ERR_NO_SERVER) return 1;
  printf("%s\n", mdx_strerror(error));
  if (mdx_send(client, "AT", &options, &result) != MDX_ERR_ARGUMENT) return 2;
  if (mdx_next_packet(NULL, 0, &packet) != MDX_ERR_ARGUMENT) return 3;
  mdx_close(client);
  return 0;
}
