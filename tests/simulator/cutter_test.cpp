#include "tools/mdxsim/cutter.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace mdxsim {
namespace {

constexpr std::string_view kDelivery = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";

std::string joined(const std::vector<std::string_view>& pieces) {
  std::string all;
  for (const auto piece : pieces) all += piece;
  return all;
}

TEST(Cutter, RefusesWhatIsNoCut) {
  for (const auto* how : {"", "bytes", "random:", "random:-1", "random:1x", "random:4294967296"}) {
    EXPECT_THROW(Cutter{how}, std::invalid_argument) << how;
  }
}

TEST(Cutter, PiecesAreTheDelivery) {
  for (const auto* how : {"whole", "byte", "random:0", "random:4294967295", "random"}) {
    Cutter cutter(how);
    for (int turn = 0; turn < 50; ++turn) {
      const auto pieces = cutter.cut(kDelivery);
      ASSERT_EQ(joined(pieces), kDelivery) << how << " seed " << cutter.seed();
      for (const auto piece : pieces) ASSERT_FALSE(piece.empty()) << how;
    }
  }
}

TEST(Cutter, EachKindCutsInItsWay) {
  EXPECT_EQ(Cutter("whole").cut(kDelivery).size(), 1U);
  EXPECT_EQ(Cutter("byte").cut(kDelivery).size(), kDelivery.size());
  EXPECT_EQ(Cutter("random:9").cut(kDelivery), Cutter("random:9").cut(kDelivery));
}

}  // namespace
}  // namespace mdxsim
