// SPDX-License-Identifier: Apache-2.0

// The debug console, beyond what mdx_platform.h says.
#pragma once

/// Makes the console's socket again, should somebody have removed it. Any thread but the console's.
/// @return whether it is there
bool console_restore();
