// Where keys land: the two hashes, against results worked out by another program and against the
// same rule written once more in whole numbers without wrap-around.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "core/hash_db.h"

namespace ot {
namespace {

struct table {
  hash_db db;
  ~table() { hash_db_destroy(db); }
};

// The rule in plain arithmetic: every step is reduced to what 32 bits can hold.
std::uint32_t hash_by_the_rule(const std::string& text, std::int64_t buckets,
                               std::size_t key_size) {
  constexpr std::int64_t two_to_32 = std::int64_t{1} << 32;
  const auto reduced = [](std::int64_t number, std::int64_t modulus) {
    const std::int64_t rest = number % modulus;
    return rest < 0 ? rest + modulus : rest;
  };
  std::int64_t h = 0;
  for (std::size_t i = 0; i < text.size() && i < key_size; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const std::int64_t c = byte < 128 ? byte : byte - 256;
    h = reduced(h * 128 + c, two_to_32) % buckets;
    h = reduced(h * 65599 + c, two_to_32);
  }
  return static_cast<std::uint32_t>(h % buckets);
}

std::uint32_t bucket_of(const std::string& text, std::uint32_t buckets, std::uint16_t key_size) {
  table t;
  EXPECT_EQ(hash_db_create_str(t.db, buckets, key_size, 0), 0);
  return t.db.hash(t.db, text.c_str());
}

struct vector_row {
  const char* text;
  std::uint32_t buckets;
  std::uint16_t key_size;
  std::uint32_t bucket;
};

TEST(hash_db_hash, text_keys_land_where_the_rule_puts_them) {
  for (const vector_row& row : {
           vector_row{"a", 2039, 40, 1520},
           vector_row{"track1", 2039, 40, 1673},
           vector_row{"Track1", 2039, 40, 512},
           vector_row{"Gi0/0/0/1", 1021, 64, 354},
           vector_row{"10.0.0.0 255.0.0.0 default", 1021, 256, 593},
           vector_row{"abc", 16, 40, 0},
       }) {
    EXPECT_EQ(bucket_of(row.text, row.buckets, row.key_size), row.bucket) << row.text;
  }
}

TEST(hash_db_hash, characters_from_0x80_take_away) {
  for (const vector_row& row : {
           vector_row{"\xff", 2039, 40, 150},
           vector_row{"\xff", 4096, 40, 4032},
           vector_row{"\xe9t\xe9", 2039, 40, 351},
           vector_row{"\x80\x80", 7, 40, 2},
       }) {
    EXPECT_EQ(bucket_of(row.text, row.buckets, row.key_size), row.bucket) << row.buckets;
  }
}

TEST(hash_db_hash, wraps_at_32_bits_with_very_many_buckets) {
  // The bucket array itself would not fit: only the hash is asked.
  table t;
  ASSERT_EQ(hash_db_create_str(t.db, 1, 40, 0), 0);
  hash_db wide = t.db;
  wide.bucket_count = 0xfffffffb;
  EXPECT_EQ(wide.hash(wide, "zzzzzzzz"), 786095744U);
  wide.bucket_count = 1U << 31;
  EXPECT_EQ(wide.hash(wide, "\xff"), 2147418048U);
}

TEST(hash_db_hash, only_the_first_key_size_characters_count) {
  EXPECT_EQ(bucket_of("abcdef", 2039, 4), 49U);
  EXPECT_EQ(bucket_of("abcd", 2039, 4), 49U);
  EXPECT_EQ(bucket_of(std::string(40, 'A'), 2039, 40), 997U);
  EXPECT_EQ(bucket_of(std::string(45, 'A'), 2039, 40), 997U);
  EXPECT_EQ(bucket_of(std::string(39, 'A'), 2039, 40), 896U);
}

TEST(hash_db_hash, an_empty_text_is_in_the_first_bucket) {
  EXPECT_EQ(bucket_of("", 2039, 40), 0U);
}

TEST(hash_db_hash, agrees_with_the_rule_for_many_names_and_tables) {
  for (const std::uint32_t buckets : {1U, 7U, 16U, 1021U, 2039U, 65536U}) {
    table t;
    ASSERT_EQ(hash_db_create_str(t.db, buckets, 40, 0), 0);
    std::uint32_t noise = 12345;
    for (int i = 0; i < 2000; ++i) {
      std::string text = "t" + std::to_string(i);
      for (int extra = i % 45; extra > 0; --extra) {
        noise = noise * 1664525 + 1013904223;
        text += static_cast<char>(1 + (noise >> 24) % 255);
      }
      ASSERT_EQ(t.db.hash(t.db, text.c_str()), hash_by_the_rule(text, buckets, 40)) << text;
    }
  }
}

TEST(hash_db_hash, number_keys_are_taken_modulo_the_bucket_count) {
  table t;
  ASSERT_EQ(hash_db_create_int(t.db, 7, 0), 0);
  for (const auto& [key, bucket] : {std::pair{0U, 0U}, {6U, 6U}, {7U, 0U}, {0xffffffffU, 3U}}) {
    EXPECT_EQ(t.db.hash(t.db, &key), bucket) << key;
  }
}

}  // namespace
}  // namespace ot
