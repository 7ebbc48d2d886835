// SPDX-License-Identifier: Apache-2.0

// The library has a table of its own of what the server takes for reports; mdxctl asks it.

#include <gtest/gtest.h>

#include "server/at_match.h"
#include "tools/words/collection.h"

namespace {

TEST(ReportNames, TheLibraryKnowsAllOfTheServers) {
  for (const at_report_row_t* row = at_report_table; row->literal != nullptr; ++row) {
    EXPECT_TRUE(may_be_report(row->literal)) << row->literal;
  }
}

}  // namespace
