// SPDX-License-Identifier: Apache-2.0

// Tears deliveries into pieces that the host gets as separate reads.
//
// Random pieces are short ones mostly: the interesting cuts (between a CR and its LF, inside a
// result, in front of a prompt) are a byte or two away from a delivery's ends.
#include "tools/mdxsim/cutter.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string>

namespace mdxsim {
namespace {

constexpr std::string_view kSeedPrefix = "random:";
constexpr size_t kLongestRandomPiece = 12;

unsigned parse_seed(std::string_view digits) {
  unsigned seed = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seed);
  if (error != std::errc() || end != digits.data() + digits.size()) {
    throw std::invalid_argument("the seed of a random cut is a number from 0 to 4294967295, not '" +
                                std::string(digits) + "'");
  }
  return seed;
}

}  // namespace

Cutter::Cutter(std::string_view how) {
  if (how == "whole") return;
  if (how == "byte") {
    kind_ = Kind::kByte;
    return;
  }
  if (how == "random") {
    seed_ = std::random_device{}();
  } else if (how.starts_with(kSeedPrefix)) {
    seed_ = parse_seed(how.substr(kSeedPrefix.size()));
  } else {
    throw std::invalid_argument("a cut is whole, byte, random or random:SEED, not '" +
                                std::string(how) + "'");
  }
  kind_ = Kind::kRandom;
  random_.seed(seed_);
}

std::vector<std::string_view> Cutter::cut(std::string_view delivery) {
  std::vector<std::string_view> pieces;
  while (!delivery.empty()) {
    const size_t length = next_length(delivery.size());
    pieces.push_back(delivery.substr(0, length));
    delivery.remove_prefix(length);
  }
  return pieces;
}

size_t Cutter::next_length(size_t left) {
  if (kind_ == Kind::kWhole) return left;
  if (kind_ == Kind::kByte) return 1;
  // Not std::uniform_int_distribution: a seed is to mean the same cuts with every standard library.
  return std::min<size_t>(left, 1 + random_() % kLongestRandomPiece);
}

}  // namespace mdxsim
