// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <random>
#include <string_view>
#include <vector>

namespace mdxsim {

/// How a modem's deliveries are torn into reads. A real one may hand over an answer at once or in
/// USB packets and UART bytes; whoever reads must get the same answer.
class Cutter {
 public:
  /// `how` is "whole", "byte", "random" or "random:SEED" (a decimal number; without one a seed is
  /// drawn). Throws std::invalid_argument on anything else.
  explicit Cutter(std::string_view how);

  /// The pieces in order: together `delivery`, none empty. They point into `delivery`.
  std::vector<std::string_view> cut(std::string_view delivery);

  /// Repeats a random run; meaningless for the other cuts.
  [[nodiscard]] unsigned seed() const { return seed_; }
  [[nodiscard]] bool is_random() const { return kind_ == Kind::kRandom; }

 private:
  enum class Kind { kWhole, kByte, kRandom };

  size_t next_length(size_t left);

  Kind kind_ = Kind::kWhole;
  unsigned seed_ = 0;
  std::mt19937 random_;
};

}  // namespace mdxsim
