// SPDX-License-Identifier: Apache-2.0

// Buffers of which an idle server has touched little or nothing. A page that is written once stays
// the process's own: so server/variables.ld puts these behind all other variables, and next to each
// other what is touched of them.
#pragma once

/// Touched in rare cases only.
#define MDX_SELDOM_TOUCHED gnu::section(".bss.mdx_seldom_touched")
/// Touched from its end, as far as it is filled.
#define MDX_FILLED_DOWN gnu::section(".bss.mdx_filled_down")
/// Touched from its beginning, as far as it is filled.
#define MDX_FILLED_UP gnu::section(".bss.mdx_filled_up")
