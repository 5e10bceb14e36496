// Encoding and decoding: what goes in comes out, to the byte, and what cannot be encoded is
// refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "platform/brec.h"
#include "platform/memory/alloc_faults.h"
#include "platform/status.h"
#include "tests/unit/platform/records/samples.h"

namespace ot {
namespace {

using samples::encoded;
using samples::leaf__;
using samples::owned_record;
using samples::tree__;
using samples::tree_brec;

class brec_codec : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(samples::register_samples(), 0); }
  void TearDown() override { brec_forget_all(); }
};

bool all_zero(const void* record, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(record);
  return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

TEST_F(brec_codec, every_kind_of_field_comes_back) {
  const auto tree = samples::full_tree(3, 1);
  tree->child->chosen.discriminant = 5;
  tree->child->chosen.text.assign("orange");
  const auto bytes = encoded(tree_brec, tree.get());
  ASSERT_FALSE(bytes.empty());

  const owned_record<tree__> copy(tree_brec);
  ASSERT_EQ(brec_decode(tree_brec, bytes, copy.get()), 0);
  EXPECT_EQ(copy->colour, 4000000000U);
  EXPECT_EQ(copy->tag.view(), "tag");
  EXPECT_FALSE(copy->pair.first);
  EXPECT_EQ(copy->pair.second, 300U);
  ASSERT_EQ(copy->chosen.discriminant, 6U);
  EXPECT_EQ(*copy->chosen.number, 77U);
  ASSERT_NE(copy->leaves, nullptr);
  EXPECT_EQ(copy->leaves->big, 2U);
  EXPECT_EQ(copy->leaves->next->name.view(), "leaf");
  EXPECT_TRUE(copy->leaves->next->flag);
  EXPECT_EQ(copy->leaves->next->next->next, nullptr);
  EXPECT_EQ(*copy->count, 0U);
  EXPECT_EQ(copy->note->view(), "notes");
  EXPECT_TRUE(*copy->flag);
  EXPECT_EQ(*copy->big, ~std::uint64_t{0});
  EXPECT_TRUE(copy->inner->first);
  EXPECT_EQ(copy->other->pair.second, 9U);
  ASSERT_NE(copy->child, nullptr);
  EXPECT_EQ(copy->child->chosen.text.view(), "orange");
  EXPECT_EQ(copy->child->leaves, nullptr);
  EXPECT_EQ(copy->child->child, nullptr);
  EXPECT_EQ(encoded(tree_brec, copy.get()), bytes);
}

TEST_F(brec_codec, the_bytes_are_fixed) {
  leaf__ second{nullptr, fixed_text<5>("b"), false, 0};
  const leaf__ first{&second, fixed_text<5>("ab"), true, 300};
  const auto bytes = encoded(samples::leaf_brec, &first);
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  using std::string_view_literals::operator""sv;
  ASSERT_EQ(text.size(), 30U);
  EXPECT_EQ(text.substr(0, 11), "BR\x01\x01\x06leaf__"sv);
  EXPECT_EQ(text.substr(19),
            "\x02\x02"
            "ab\x01\xac\x02\x01"
            "b\x00\x00"sv);
}

TEST_F(brec_codec, bytes_behind_a_text_do_not_matter) {
  leaf__ clean;
  clean.name.assign("x");
  leaf__ dirty = clean;
  std::memcpy(reinterpret_cast<char*>(&dirty.name) + 2, "zz", 2);
  EXPECT_EQ(encoded(samples::leaf_brec, &clean), encoded(samples::leaf_brec, &dirty));
}

TEST_F(brec_codec, refuses_what_no_record_holds) {
  const auto refusal = [](const brec_descriptor& type, const void* record) {
    std::byte* bytes = nullptr;
    std::size_t length = 99;
    const int status = brec_encode(type, record, &bytes, &length);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, 99U);
    return status;
  };
  leaf__ leaf;
  std::memset(static_cast<void*>(&leaf.name), 'x', sizeof leaf.name);
  EXPECT_EQ(refusal(samples::leaf_brec, &leaf), record_malformed) << "unterminated text";
  leaf = {};
  std::memset(&leaf.flag, 2, 1);
  EXPECT_EQ(refusal(samples::leaf_brec, &leaf), record_malformed) << "neither true nor false";
  leaf = {};
  leaf.next = &leaf;
  EXPECT_EQ(refusal(samples::leaf_brec, &leaf), record_malformed) << "a ring";
  tree__ tree;
  tree.child = &tree;
  EXPECT_EQ(refusal(tree_brec, &tree), record_malformed) << "its own child";
  EXPECT_EQ(refusal(tree_brec, nullptr), invalid_argument);
  constexpr brec_descriptor unknown = {1, "tree__", "samples", {}, 4, "$1={a}D;", "$1=D;"};
  EXPECT_EQ(refusal(unknown, &tree), record_unknown_type);
}

struct strict__ {
  std::uint32_t discriminant;
  std::uint32_t value;
};

TEST_F(brec_codec, a_union_without_default_takes_only_its_codes) {
  static constexpr brec_descriptor strict_brec = {
      1, "strict__", "samples", {}, sizeof(strict__), "$1=?(<d,e>,3:{value}D);", "$1=?(,3:D);"};
  ASSERT_EQ(brec_register_start(), 0);
  ASSERT_EQ(brec_register(strict_brec), 0);
  ASSERT_EQ(brec_register_end(), 0);
  strict__ record{3, 8};
  auto bytes = encoded(strict_brec, &record);
  strict__ copy{};
  ASSERT_EQ(brec_decode(strict_brec, bytes, &copy), 0);
  EXPECT_EQ(copy.value, 8U);
  bytes[bytes.size() - 2] = std::byte{4};
  copy = {};
  EXPECT_EQ(brec_decode(strict_brec, bytes, &copy), record_malformed);
  EXPECT_TRUE(all_zero(&copy, sizeof copy));
  record.discriminant = 4;
  int status = 0;
  encoded(strict_brec, &record, &status);
  EXPECT_EQ(status, record_malformed);
}

TEST_F(brec_codec, nests_as_deep_as_it_reads) {
  const auto deepest = samples::full_tree(0, 16);
  const auto bytes = encoded(tree_brec, deepest.get());
  const owned_record<tree__> copy(tree_brec);
  EXPECT_EQ(brec_decode(tree_brec, bytes, copy.get()), 0);
  int status = 0;
  encoded(tree_brec, samples::full_tree(0, 17).get(), &status);
  EXPECT_EQ(status, record_malformed);
}

TEST_F(brec_codec, long_sequences_come_back) {
  const auto tree = samples::full_tree(5000, 0);
  const auto bytes = encoded(tree_brec, tree.get());
  const owned_record<tree__> copy(tree_brec);
  ASSERT_EQ(brec_decode(tree_brec, bytes, copy.get()), 0);
  std::uint64_t expected = 5000;
  for (const leaf__* leaf = copy->leaves; leaf != nullptr; leaf = leaf->next) {
    ASSERT_EQ(leaf->big, --expected);
  }
  EXPECT_EQ(expected, 0U);
}

TEST_F(brec_codec, out_of_memory_while_encoding) {
  const auto tree = samples::full_tree(1000, 2);
  std::byte* bytes = nullptr;
  std::size_t length = 0;
  int status = 0;
  const live_allocations before = count_live_allocations();
  const auto runs = for_each_failing_allocation(
      [&] { status = brec_encode(tree_brec, tree.get(), &bytes, &length); },
      [&](std::uint64_t k, bool hit) {
        EXPECT_EQ(status, hit ? no_memory : 0) << "allocation " << k;
        EXPECT_EQ(bytes == nullptr, hit);
        if (hit) {
          EXPECT_EQ(count_live_allocations().count, before.count);
        }
      });
  EXPECT_GT(runs, 1U);
  delete[] bytes;
}

TEST_F(brec_codec, out_of_memory_while_decoding_keeps_nothing) {
  const auto bytes = encoded(tree_brec, samples::full_tree(4, 2).get());
  tree__ copy;
  int status = 0;
  const live_allocations before = count_live_allocations();
  const auto runs =
      for_each_failing_allocation([&] { status = brec_decode(tree_brec, bytes, &copy); },
                                  [&](std::uint64_t k, bool hit) {
                                    EXPECT_EQ(status, hit ? no_memory : 0) << "allocation " << k;
                                    if (hit) {
                                      EXPECT_EQ(count_live_allocations().count, before.count);
                                      EXPECT_TRUE(all_zero(&copy, sizeof copy));
                                    }
                                  });
  EXPECT_EQ(runs, 13U);  // 4 leaves, 7 fields, 2 children
  brec_release(tree_brec, &copy);
  EXPECT_EQ(count_live_allocations().count, before.count);
  EXPECT_TRUE(all_zero(&copy, sizeof copy));
}

}  // namespace
}  // namespace ot
