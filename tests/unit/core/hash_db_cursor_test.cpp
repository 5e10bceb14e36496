// Walking a table: the order, and what each operation does to the one cursor a table has.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "core/hash_db.h"

namespace ot {
namespace {

class hash_db_cursor : public testing::Test {
 protected:
  hash_db table;
  void SetUp() override { ASSERT_EQ(hash_db_create_int(table, 4, sizeof(std::uint32_t)), 0); }
  void TearDown() override { hash_db_destroy(table); }

  void add(std::initializer_list<std::uint32_t> keys) {
    for (const std::uint32_t key : keys) {
      ASSERT_EQ(hash_db_add_new_item(table, &key, &key), 0);
    }
  }
  std::uint32_t number(const hash_db_entry* entry) {
    return *static_cast<const std::uint32_t*>(hash_db_key(*entry));
  }
  std::vector<std::uint32_t> walk() {
    std::vector<std::uint32_t> keys;
    for (hash_db_entry* entry = hash_db_first(table); entry != nullptr;
         entry = hash_db_next(table)) {
      keys.push_back(number(entry));
    }
    return keys;
  }
};

TEST_F(hash_db_cursor, walks_in_bucket_order_and_in_the_order_added_within_a_bucket) {
  add({7, 2, 3, 6, 0, 10, 4});
  EXPECT_EQ(walk(), (std::vector<std::uint32_t>{0, 4, 2, 6, 10, 7, 3}));
}

TEST_F(hash_db_cursor, skips_empty_buckets_also_the_first_ones) {
  add({3});
  EXPECT_EQ(walk(), (std::vector<std::uint32_t>{3}));
}

TEST_F(hash_db_cursor, of_an_empty_table_is_null_at_once) {
  EXPECT_EQ(hash_db_first(table), nullptr);
  EXPECT_EQ(table.cursor_entry, nullptr);
}

TEST_F(hash_db_cursor, is_clear_at_the_end_so_the_next_step_starts_again) {
  add({1, 2});
  ASSERT_NE(hash_db_first(table), nullptr);
  ASSERT_NE(hash_db_next(table), nullptr);
  EXPECT_EQ(hash_db_next(table), nullptr);
  EXPECT_EQ(table.cursor_entry, nullptr);
  hash_db_entry* again = hash_db_next(table);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(number(again), 1U);
}

TEST_F(hash_db_cursor, stands_on_the_entry_found_and_goes_on_from_there) {
  add({0, 1, 5, 2});
  const std::uint32_t key = 1;
  hash_db_entry* found = hash_db_find_set_cursor(table, &key);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(table.cursor_bucket, 1U);
  EXPECT_EQ(table.cursor_entry, found);
  EXPECT_EQ(number(hash_db_next(table)), 5U);
  EXPECT_EQ(number(hash_db_next(table)), 2U);
}

TEST_F(hash_db_cursor, stands_on_the_bucket_searched_with_no_entry_when_nothing_is_found) {
  add({0, 1});
  const std::uint32_t present = 0;
  ASSERT_NE(hash_db_find_set_cursor(table, &present), nullptr);
  const std::uint32_t absent = 7;
  EXPECT_EQ(hash_db_find_set_cursor(table, &absent), nullptr);
  EXPECT_EQ(table.cursor_bucket, 3U);
  EXPECT_EQ(table.cursor_entry, nullptr);
}

TEST_F(hash_db_cursor, is_left_alone_by_find_and_add) {
  add({0, 1, 2});
  hash_db_entry* first = hash_db_first(table);
  const std::uint32_t key = 2;
  ASSERT_NE(hash_db_find(table, &key), nullptr);
  add({9});
  EXPECT_EQ(table.cursor_entry, first);
  EXPECT_EQ(table.cursor_bucket, 0U);
}

TEST_F(hash_db_cursor, deleting_while_walking_starts_the_walk_again) {
  add({0, 4, 1, 2});
  std::vector<std::uint32_t> visited;
  for (hash_db_entry* entry = hash_db_first(table); entry != nullptr; entry = hash_db_next(table)) {
    visited.push_back(number(entry));
    if (number(entry) == 1) {
      hash_db_delete_current(table);
      EXPECT_EQ(table.cursor_entry, nullptr);
    }
  }
  EXPECT_EQ(visited, (std::vector<std::uint32_t>{0, 4, 1, 0, 4, 2}));
  EXPECT_EQ(walk(), (std::vector<std::uint32_t>{0, 4, 2}));
}

TEST_F(hash_db_cursor, without_an_entry_nothing_is_deleted) {
  add({0, 1});
  ASSERT_NE(hash_db_first(table), nullptr);
  hash_db_delete_current(table);
  hash_db_delete_current(table);
  EXPECT_EQ(walk(), (std::vector<std::uint32_t>{1}));
}

TEST_F(hash_db_cursor, is_clear_after_deleting_one_of_several_in_a_bucket) {
  add({0, 1, 5, 9});
  for (const std::uint32_t key : {5U, 1U}) {  // with others before and behind it
    ASSERT_NE(hash_db_find_set_cursor(table, &key), nullptr);
    hash_db_delete_current(table);
    EXPECT_EQ(table.cursor_entry, nullptr) << key;
    EXPECT_EQ(number(hash_db_next(table)), 0U) << key;
  }
  EXPECT_EQ(walk(), (std::vector<std::uint32_t>{0, 9}));
}

TEST_F(hash_db_cursor, deleting_by_key_clears_it) {
  add({0, 1, 2});
  ASSERT_NE(hash_db_first(table), nullptr);
  const std::uint32_t key = 2;
  ASSERT_EQ(hash_db_delete(table, &key), 0);
  EXPECT_EQ(table.cursor_entry, nullptr);
  EXPECT_EQ(number(hash_db_next(table)), 0U);
}

TEST_F(hash_db_cursor, is_clear_after_destroying) {
  add({0, 1});
  ASSERT_NE(hash_db_first(table), nullptr);
  hash_db_destroy(table);
  EXPECT_EQ(table.cursor_entry, nullptr);
  EXPECT_EQ(table.cursor_bucket, 0U);
}

}  // namespace
}  // namespace ot
