#include "tools/trackctl/columns.h"

#include <gtest/gtest.h>

namespace ot::trackctl {
namespace {

TEST(columns, a_letter_of_several_bytes_takes_one) {
  EXPECT_EQ(columns_of(""), 0U);
  EXPECT_EQ(columns_of("uplink"), 6U);
  EXPECT_EQ(columns_of("über"), 4U);
  EXPECT_EQ(padded("über", 6), "über  ");
  EXPECT_EQ(right_aligned("→", 3), "  →");
  EXPECT_EQ(table_cell("ö", 2), "ö   ");
}

TEST(columns, what_is_too_long_stays_whole) {
  EXPECT_EQ(padded("uplink", 3), "uplink");
  EXPECT_EQ(right_aligned("uplink", 3), "uplink");
}

}  // namespace
}  // namespace ot::trackctl
