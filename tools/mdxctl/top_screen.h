// SPDX-License-Identifier: Apache-2.0

// The terminal as `mdxctl top` fills it.
#pragma once

#include "tools/mdxctl/top_model.h"

/// Whether this machine knows how to draw on the terminal, by what TERM says.
bool terminal_is_known();

/// One at a time. Takes the whole terminal, and gives it back as it was, also when an exception
/// passes.
class top_screen_t {
 public:
  top_screen_t();
  ~top_screen_t();
  top_screen_t(const top_screen_t&) = delete;
  top_screen_t& operator=(const top_screen_t&) = delete;

  void draw(const top_model_t& model, double now);

  /// The next key, or -1 when none waits.
  int key();
  /// The terminal has another size now.
  void resize();
  /// Gives the terminal back until the next draw.
  void rest();
};
