// The table's operations: adding, finding, deleting, counting and destroying, for both key kinds.
#include "core/hash_db.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/memory/alloc_faults.h"
#include "platform/status.h"

namespace ot {
namespace {

struct payload {
  std::uint32_t number = 0;
  char mark = 0;
};

class hash_db_numbers : public testing::Test {
 protected:
  hash_db table;
  void SetUp() override { ASSERT_EQ(hash_db_create_int(table, 5, sizeof(payload)), 0); }
  void TearDown() override { hash_db_destroy(table); }

  int add(std::uint32_t key, char mark = 'x') {
    const payload data{key, mark};
    return hash_db_add_new_item(table, &key, &data);
  }
  payload* find(std::uint32_t key) { return hash_db_find_data<payload>(table, &key); }
};

class hash_db_texts : public testing::Test {
 protected:
  hash_db table;
  void SetUp() override { create(16); }
  void TearDown() override { hash_db_destroy(table); }

  void create(std::uint32_t buckets, std::uint16_t key_size = 40) {
    hash_db_destroy(table);
    ASSERT_EQ(hash_db_create_str(table, buckets, key_size, sizeof(payload)), 0);
  }
  int add(const std::string& key, std::uint32_t number = 0) {
    const payload data{number, 't'};
    return hash_db_add_new_item(table, key.c_str(), &data);
  }
  payload* find(const std::string& key) { return hash_db_find_data<payload>(table, key.c_str()); }
};

TEST_F(hash_db_numbers, an_entry_is_a_link_word_the_key_and_the_data) {
  EXPECT_EQ(table.key_size, 4);
  EXPECT_EQ(table.data_size, sizeof(payload));
  EXPECT_EQ(table.entry_size, 4 + sizeof(payload) + 8);
  EXPECT_EQ(table.bucket_count, 5U);
  ASSERT_EQ(add(11, 'a'), 0);
  const std::uint32_t key = 11;
  hash_db_entry* entry = hash_db_find(table, &key);
  ASSERT_NE(entry, nullptr);
  const auto* bytes = reinterpret_cast<const std::byte*>(entry);
  EXPECT_EQ(hash_db_key(*entry), bytes + 8);
  EXPECT_EQ(hash_db_data(table, *entry), bytes + 12);
}

TEST_F(hash_db_numbers, finds_what_was_added_and_nothing_else) {
  ASSERT_EQ(add(3, 'a'), 0);
  ASSERT_EQ(add(8, 'b'), 0);  // the same bucket
  ASSERT_NE(find(3), nullptr);
  EXPECT_EQ(find(3)->mark, 'a');
  ASSERT_NE(find(8), nullptr);
  EXPECT_EQ(find(8)->mark, 'b');
  EXPECT_EQ(find(13), nullptr);
}

TEST_F(hash_db_numbers, the_record_is_copied) {
  const std::uint32_t key = 4;
  payload mine{1, 'm'};
  ASSERT_EQ(hash_db_add_new_item(table, &key, &mine), 0);
  mine.number = 2;
  EXPECT_EQ(find(4)->number, 1U);
  EXPECT_NE(find(4), &mine);
}

TEST_F(hash_db_numbers, a_key_that_is_there_is_refused_and_nothing_changes) {
  ASSERT_EQ(add(9, 'a'), 0);
  EXPECT_EQ(add(9, 'b'), duplicate_key);
  EXPECT_EQ(duplicate_key, 76);
  EXPECT_EQ(find(9)->mark, 'a');
  EXPECT_EQ(hash_db_count(table), 1U);
}

TEST_F(hash_db_numbers, deletes_from_head_middle_and_tail_of_a_bucket) {
  for (const std::uint32_t key : {0U, 5U, 10U, 15U}) {
    ASSERT_EQ(add(key), 0);
  }
  for (const std::uint32_t key : {5U, 0U, 15U}) {
    EXPECT_EQ(hash_db_delete(table, &key), 0);
    EXPECT_EQ(find(key), nullptr);
  }
  EXPECT_NE(find(10), nullptr);
  EXPECT_EQ(hash_db_count(table), 1U);
  ASSERT_EQ(add(20), 0);  // the tail is the one that is left
  EXPECT_NE(find(20), nullptr);
}

TEST_F(hash_db_numbers, deleting_an_absent_key_is_22) {
  const std::uint32_t key = 1;
  EXPECT_EQ(hash_db_delete(table, &key), 22);
}

TEST_F(hash_db_numbers, counts_over_all_buckets) {
  EXPECT_EQ(hash_db_count(table), 0U);
  for (std::uint32_t key = 0; key < 23; ++key) {
    ASSERT_EQ(add(key), 0);
  }
  EXPECT_EQ(hash_db_count(table), 23U);
}

TEST_F(hash_db_texts, names_that_differ_in_case_are_two_records_in_different_buckets) {
  create(2039);
  ASSERT_EQ(add("track1", 1), 0);
  EXPECT_EQ(find("TRACK1"), nullptr);
  ASSERT_EQ(add("TRACK1", 2), 0);
  EXPECT_EQ(hash_db_count(table), 2U);
  EXPECT_EQ(find("track1")->number, 1U);
  EXPECT_EQ(find("TRACK1")->number, 2U);
}

TEST_F(hash_db_texts, names_that_differ_in_case_are_one_key_in_the_same_bucket) {
  create(16);  // one letter and its capital share a bucket of 16
  ASSERT_EQ(add("a", 1), 0);
  ASSERT_NE(find("A"), nullptr);
  EXPECT_EQ(find("A")->number, 1U);
  EXPECT_EQ(add("A", 2), duplicate_key);
  const std::string key = "A";
  EXPECT_EQ(hash_db_delete(table, key.c_str()), 0);
  EXPECT_EQ(find("a"), nullptr);
}

TEST_F(hash_db_texts, compares_39_characters_of_a_40_byte_key) {
  create(1);
  const std::string same(39, 'n');
  ASSERT_EQ(add(same + "x", 1), 0);
  EXPECT_EQ(add(same + "y", 2), duplicate_key);
  EXPECT_EQ(add(same, 3), duplicate_key);
  EXPECT_EQ(find(same + "zzz")->number, 1U);
  std::string differs_in_the_last(39, 'n');
  differs_in_the_last.back() = 'm';
  ASSERT_EQ(add(differs_in_the_last, 4), 0);
}

TEST_F(hash_db_texts, stores_a_long_key_cut_and_terminated) {
  create(1);
  ASSERT_EQ(add(std::string(60, 'q')), 0);
  hash_db_entry* entry = hash_db_first(table);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(std::string{static_cast<const char*>(hash_db_key(*entry))}, std::string(39, 'q'));
}

TEST_F(hash_db_texts, an_empty_name_is_a_key_like_any_other) {
  ASSERT_EQ(add("", 7), 0);
  ASSERT_NE(find(""), nullptr);
  EXPECT_EQ(find("")->number, 7U);
  EXPECT_EQ(add(""), duplicate_key);
  EXPECT_EQ(table.buckets[0].count, 1U);
}

TEST_F(hash_db_texts, without_room_for_a_key_all_keys_are_one) {
  create(5, 0);
  ASSERT_EQ(add("one", 1), 0);
  EXPECT_EQ(add("two", 2), duplicate_key);
  EXPECT_EQ(find("three")->number, 1U);
}

TEST(hash_db, a_table_without_data_keeps_keys_only) {
  hash_db table;
  ASSERT_EQ(hash_db_create_str(table, 3, 8, 0), 0);
  EXPECT_EQ(hash_db_add_new_item(table, "key", nullptr), 0);
  EXPECT_NE(hash_db_find(table, "key"), nullptr);
  hash_db_destroy(table);
}

TEST(hash_db, an_uncreated_table_has_nothing_and_takes_nothing) {
  hash_db table;
  EXPECT_EQ(hash_db_count(table), 0U);
  EXPECT_EQ(hash_db_find(table, "key"), nullptr);
  EXPECT_EQ(hash_db_find_set_cursor(table, "key"), nullptr);
  EXPECT_EQ(hash_db_first(table), nullptr);
  EXPECT_EQ(hash_db_next(table), nullptr);
  EXPECT_EQ(hash_db_delete(table, "key"), 22);
  EXPECT_EQ(hash_db_add_new_item(table, "key", "data"), 12);
  hash_db_delete_current(table);
  hash_db_destroy(table);
  EXPECT_EQ(table.buckets, nullptr);
}

TEST(hash_db, a_table_with_no_buckets_counts_nothing) {
  hash_db table;
  ASSERT_EQ(hash_db_create_int(table, 0, 4), 0);
  EXPECT_EQ(hash_db_count(table), 0U);
  hash_db_destroy(table);
}

TEST_F(hash_db_texts, destroying_frees_all_and_leaves_the_table_uncreated) {
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(add("t" + std::to_string(i)), 0);
  }
  hash_db_destroy(table);
  EXPECT_EQ(table.buckets, nullptr);
  EXPECT_EQ(hash_db_count(table), 0U);
  EXPECT_EQ(find("t1"), nullptr);
  create(4);
  EXPECT_EQ(add("t1"), 0);
}

TEST(hash_db, gives_everything_back) {
  const live_allocations before = count_live_allocations();
  hash_db table;
  ASSERT_EQ(hash_db_create_int(table, 3, 4), 0);
  for (std::uint32_t key = 0; key < 20; ++key) {
    ASSERT_EQ(hash_db_add_new_item(table, &key, &key), 0);
  }
  EXPECT_EQ(count_live_allocations().count, before.count + 21);  // the array, and a block an entry
  const std::uint32_t key = 4;
  ASSERT_EQ(hash_db_delete(table, &key), 0);
  EXPECT_EQ(count_live_allocations().count, before.count + 20);
  hash_db_destroy(table);
  EXPECT_EQ(count_live_allocations().count, before.count);
}

}  // namespace
}  // namespace ot
