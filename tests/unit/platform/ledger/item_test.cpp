// Which paths the ledger takes, and the packed tuples that values are made of.
#include "platform/ledger/item.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "platform/path_tuple.h"
#include "platform/status.h"

namespace ot {
namespace {

TEST(ledger_path, an_item_path_is_absolute_without_empty_elements) {
  EXPECT_TRUE(ledger_item_path_valid("/cfg/gl/object_tracking/track/up link/a"));
  for (const char* bad : {"", "/", "cfg/x", "/cfg/", "/cfg//x", "/cfg/x\n", "/cfg/\x7f"}) {
    EXPECT_FALSE(ledger_item_path_valid(bad)) << bad;
  }
}

TEST(ledger_path, length_is_bounded) {
  std::string path = "/" + std::string(ledger_path_max - 1, 'x');
  EXPECT_TRUE(ledger_item_path_valid(path));
  path += 'x';
  EXPECT_FALSE(ledger_item_path_valid(path));
}

TEST(ledger_path, a_base_path_ends_in_a_slash) {
  EXPECT_TRUE(ledger_base_path_valid("/"));
  EXPECT_TRUE(ledger_base_path_valid("/oper/gl/object-tracking/"));
  for (const char* bad : {"", "/oper", "//", "/oper//", "oper/"}) {
    EXPECT_FALSE(ledger_base_path_valid(bad)) << bad;
  }
}

TEST(ledger_path, elements_come_one_by_one) {
  std::string_view path = "track/x/a";
  EXPECT_EQ(ledger_next_element(path), "track");
  EXPECT_EQ(ledger_next_element(path), "x");
  EXPECT_EQ(ledger_next_element(path), "a");
  EXPECT_TRUE(path.empty());
}

TEST(path_tuple, numbers_keep_their_bytes) {
  std::array<std::byte, 8> buffer{};
  std::size_t length = 0;
  ASSERT_EQ(path_tuple_pack(buffer, &length, "%N%N", 0x0a000001U, 0xffffff00U), 0);
  EXPECT_EQ(length, 8U);
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  ASSERT_EQ(path_tuple_unpack(buffer, "%N%N", &address, &mask), 0);
  EXPECT_EQ(address, 0x0a000001U);
  EXPECT_EQ(mask, 0xffffff00U);
}

TEST(path_tuple, what_does_not_fit_is_refused_untouched) {
  std::array<std::byte, 4> buffer{};
  std::size_t length = 77;
  std::uint32_t number = 5;
  EXPECT_EQ(path_tuple_pack(buffer, &length, "%N%N", 1U, 2U), invalid_argument);
  EXPECT_EQ(path_tuple_pack(buffer, &length, "%d", 1U), invalid_argument);
  EXPECT_EQ(length, 77U);
  EXPECT_EQ(path_tuple_unpack(buffer, "%N%N", &number, &number), invalid_argument);
  EXPECT_EQ(path_tuple_unpack(buffer, "%N%", &number), invalid_argument);
  EXPECT_EQ(path_tuple_unpack(buffer, nullptr), invalid_argument);
  EXPECT_EQ(number, 5U);
}

}  // namespace
}  // namespace ot
