// SPDX-License-Identifier: Apache-2.0

// Large buffers of which an idle server has touched little or nothing. They stand behind all other
// variables, so that those share few pages: a page that is written once stays the process's own.
#pragma once

/// Touched from its beginning, as far as it is filled.
#define MDX_SELDOM_FULL gnu::section(".bss.y_seldom_full")
/// Touched in rare cases only.
#define MDX_SELDOM_TOUCHED gnu::section(".bss.z_seldom_touched")
