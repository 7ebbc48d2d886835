// SPDX-License-Identifier: Apache-2.0

// One descriptor for all that a request under way waits for: answer, server's death, time.
#pragma once

#include "client/mdxclient.h"

/// Brings the descriptor in line with the exchange; does nothing when nobody has asked for it.
void watch_update(mdx_client_t* client);

/// To be called before the link to the server is closed: a forked child may have it open too, and
/// then it would be watched for ever.
void watch_forget_server(mdx_client_t* client);

void watch_close(mdx_client_t* client);
