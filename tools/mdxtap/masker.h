// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

#include "tools/mdxtap/line_mask.h"

namespace mdxtap {

/// Masks the two streams of a conversation, torn anywhere.
///
/// A line is masked when it has ended, so what was fed may come out later; it always comes out in
/// its order, byte for byte in the same number. What was fed to both in the order in which it
/// passed is understood best.
class Masker {
 public:
  explicit Masker(StandIn stand_in) : lines_(stand_in) {}

  /// Takes bytes; returns those that are ready, which may belong to what was fed before.
  std::string from_host(std::string_view bytes);
  std::string from_modem(std::string_view bytes);

  /// What is held back, masked without regard to what it means.
  std::string release_host();
  std::string release_modem();

  /// A data connection has ended without a word: the host let go of the line, or the modem went.
  void hung_up();

 private:
  struct Side {
    std::string line;  ///< as it came
    size_t shown = 0;  ///< bytes of it that are out already
    bool too_long = false;
  };

  bool take(Side& side, char c, bool ends, std::string& out, bool from_host);

  LineMask lines_;
  Side host_;
  Side modem_;
};

}  // namespace mdxtap
