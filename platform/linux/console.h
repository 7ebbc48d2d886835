// SPDX-License-Identifier: Apache-2.0

// The debug console, beyond what mdx_platform.h says. All of it is for the thread that serves it.
#pragma once

/// What to wait for: a client, or the line of the one that is here. -1 where there is no console.
int console_fd();

/// How long the client's line may still take, -1 for ever.
int console_wait_ms();

/// To be called after each wait. Runs the line that has come, and answers it.
/// @param has_something  whether there is something to read at console_fd, or its end
void console_look(bool has_something);

/// Makes the console's socket again, should somebody have removed it.
/// @return whether it is there
bool console_restore();
