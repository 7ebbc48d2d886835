// One descriptor for all that a request under way waits for: answer, server's death, time.
#pragma once

#include "client/mdxclient.h"

/// Brings the descriptor in line with the exchange; does nothing when nobody has asked for it.
void watch_update(mdx_client_t* client);

void watch_close(mdx_client_t* client);
