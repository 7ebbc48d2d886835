// SPDX-License-Identifier: Apache-2.0

// Names that the server takes for reports stand in a table of mdxctl's own, too.

#include <gtest/gtest.h>

#include "server/at_match.h"
#include "tools/words/collection.h"

namespace {

TEST(ReportNames, MdxctlKnowsAllOfTheServers) {
  for (const at_report_row_t* row = at_report_table; row->literal != nullptr; ++row) {
    EXPECT_TRUE(may_be_report(row->literal)) << row->literal;
  }
}

}  // namespace
