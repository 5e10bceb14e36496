// Decoding bytes that nobody encoded. The property behind every case: decoding either fails, leaves
// the record zeroed and keeps nothing, or gives a record that encodes to exactly those bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/brec.h"
#include "platform/memory/alloc_faults.h"
#include "tests/unit/platform/records/samples.h"

namespace ot {
namespace {

using samples::encoded;
using samples::tree__;
using samples::tree_brec;
using byte_vector = std::vector<std::byte>;

class brec_hostile : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(samples::register_samples(), 0);
    good_ = encoded(tree_brec, samples::full_tree(3, 2).get());
    ASSERT_FALSE(good_.empty());
  }
  void TearDown() override { brec_forget_all(); }

  // Checks the property; returns the result of the decoding.
  static int decode(const byte_vector& bytes) {
    const live_allocations before = count_live_allocations();
    tree__ record;
    std::memset(static_cast<void*>(&record), 0, sizeof record);  // its padding too
    const int status = brec_decode(tree_brec, bytes, &record);
    if (status == 0) {
      EXPECT_EQ(encoded(tree_brec, &record), bytes);
      brec_release(tree_brec, &record);
    }
    static const std::byte zero[sizeof record] = {};
    EXPECT_EQ(std::memcmp(static_cast<const void*>(&record), zero, sizeof record), 0);
    EXPECT_EQ(count_live_allocations().count, before.count);
    return status;
  }

  byte_vector good_;
};

TEST_F(brec_hostile, every_truncation_is_refused) {
  for (std::size_t length = 0; length < good_.size(); ++length) {
    const byte_vector cut(good_.begin(), good_.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_NE(decode(cut), 0) << length << " bytes";
  }
}

TEST_F(brec_hostile, a_trailing_byte_is_refused) {
  byte_vector longer = good_;
  longer.push_back(std::byte{0});
  EXPECT_EQ(decode(longer), record_malformed);
}

TEST_F(brec_hostile, other_types_and_versions_are_unknown) {
  const samples::leaf__ leaf;
  EXPECT_EQ(decode(encoded(samples::leaf_brec, &leaf)), record_unknown_type);
  byte_vector newer = good_;
  newer[3] = std::byte{2};  // the type's version
  EXPECT_EQ(decode(newer), record_unknown_type);
  byte_vector other_fields = good_;
  other_fields[5 + std::strlen("tree__")] ^= std::byte{1};  // the fingerprint
  EXPECT_EQ(decode(other_fields), record_unknown_type);
  byte_vector other_form = good_;
  other_form[2] = std::byte{2};
  EXPECT_EQ(decode(other_form), record_malformed);
  EXPECT_EQ(decode({}), record_malformed);
}

TEST_F(brec_hostile, values_out_of_range_are_refused) {
  samples::leaf__ leaf;
  leaf.name.assign("ab");
  leaf.big = 5;
  const byte_vector bytes = encoded(samples::leaf_brec, &leaf);
  // From the end: big, flag, 'b', 'a', length of the name, number of elements.
  const auto with = [&](std::size_t from_end, std::initializer_list<unsigned> values) {
    byte_vector changed = bytes;
    const auto at = changed.end() - static_cast<std::ptrdiff_t>(from_end);
    const auto rest = changed.erase(at);
    std::vector<std::byte> inserted;
    for (const unsigned value : values) inserted.push_back(static_cast<std::byte>(value));
    changed.insert(rest, inserted.begin(), inserted.end());
    samples::leaf__ record;
    const int status = brec_decode(samples::leaf_brec, changed, &record);
    if (status == 0) brec_release(samples::leaf_brec, &record);
    return status;
  };
  EXPECT_EQ(with(1, {6}), 0) << "the method of this test";
  EXPECT_EQ(with(1, {0x85, 0x00}), record_malformed) << "a superfluous byte";
  EXPECT_EQ(with(1, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x01}), 0);
  EXPECT_EQ(with(1, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02}), record_malformed)
      << "over 64 bits";
  EXPECT_EQ(with(2, {2}), record_malformed) << "a boolean of 2";
  EXPECT_EQ(with(3, {0}), record_malformed) << "a zero byte in a text";
  EXPECT_EQ(with(5, {5}), record_malformed) << "a text longer than its field";
  EXPECT_EQ(with(6, {0}), record_malformed) << "no element";
  EXPECT_EQ(with(6, {2}), record_malformed) << "an element too many";
}

// The count is held against the bytes that are left before anything is allocated.
TEST_F(brec_hostile, a_huge_count_allocates_nothing) {
  samples::leaf__ leaf;
  byte_vector bytes = encoded(samples::leaf_brec, &leaf);
  const std::byte count[] = {std::byte{0xff}, std::byte{0xff}, std::byte{0x7f}};
  bytes.erase(bytes.end() - 4);
  bytes.insert(bytes.end() - 3, std::begin(count), std::end(count));
  alloc_faults faults(0, alloc_fault_mode::onward);
  EXPECT_EQ(brec_decode(samples::leaf_brec, bytes, &leaf), record_malformed);
  EXPECT_EQ(faults.count(), 0U);
}

TEST_F(brec_hostile, nesting_without_end_is_refused) {
  // An empty tree is fixed bytes and ends in its absent child; hang one below the other.
  const tree__ empty;
  const byte_vector one = encoded(tree_brec, &empty);
  const std::size_t heading = 5 + std::strlen("tree__") + 8;
  const byte_vector contents(one.begin() + static_cast<std::ptrdiff_t>(heading), one.end() - 1);
  const auto nested = [&](unsigned children) {
    byte_vector bytes(one.begin(), one.begin() + static_cast<std::ptrdiff_t>(heading));
    for (unsigned index = 0; index < children + 1; ++index) {
      bytes.insert(bytes.end(), contents.begin() + (index == 0 ? 0 : 1), contents.end());
      bytes.push_back(index < children ? std::byte{1} : std::byte{0});
    }
    return decode(bytes);
  };
  EXPECT_EQ(nested(0), 0);
  EXPECT_EQ(nested(16), 0);
  EXPECT_EQ(nested(17), record_malformed);
  EXPECT_EQ(nested(5000), record_malformed);
}

TEST_F(brec_hostile, every_change_of_one_byte_keeps_the_property) {
  std::size_t accepted = 0;
  for (std::size_t at = 0; at < good_.size(); ++at) {
    for (const unsigned value : {0U, 1U, 2U, 0x7fU, 0x80U, 0xffU}) {
      byte_vector changed = good_;
      changed[at] = static_cast<std::byte>(value);
      if (decode(changed) == 0) ++accepted;
    }
  }
  EXPECT_GT(accepted, good_.size() / 4) << "the property was not tried on accepted bytes";
}

TEST_F(brec_hostile, random_mutations_keep_the_property) {
  std::mt19937 random(20240611);
  const auto below = [&](std::size_t most) {
    return static_cast<std::ptrdiff_t>(random() % static_cast<unsigned>(most));
  };
  std::size_t accepted = 0;
  constexpr unsigned rounds = 20000;
  for (unsigned round = 0; round < rounds; ++round) {
    byte_vector bytes = good_;
    for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
      const auto at = bytes.begin() + below(bytes.size());
      switch (random() % 4) {
        case 0:
          bytes.erase(at);
          break;
        case 1:
          bytes.insert(at, static_cast<std::byte>(random()));
          break;
        case 2:
          std::swap(*at, bytes[static_cast<std::size_t>(below(bytes.size()))]);
          break;
        default:
          *at = static_cast<std::byte>(random());
      }
    }
    if (decode(bytes) == 0) ++accepted;
  }
  EXPECT_GT(accepted, 0U);
  EXPECT_LT(accepted, rounds);
}

}  // namespace
}  // namespace ot
