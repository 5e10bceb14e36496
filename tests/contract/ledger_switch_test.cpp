// Items that switch a word: trace flags.
#include "platform/ledger/calls/call.h"

#include <gtest/gtest.h>

#include "platform/ledger.h"
#include "platform/ledger_status.h"
#include "tests/contract/ledger_fixture.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {
namespace {

class ledger_switch_contract : public ledger_contract {
 protected:
  int put(std::uint32_t number) {
    return ledger_item_set(ledger_get_default_conn(), "debug/track/detail", ledger_kind::u32,
                           bytes_of_numbers({number}));
  }
  static constexpr const char* path = "/debug/track/detail";
};

TEST_P(ledger_switch_contract, the_word_follows_its_item) {
  std::atomic<std::uint32_t> word{7};
  ASSERT_EQ(hosted([&] { return ledger_switch_register(path, &word); }), 0);
  EXPECT_EQ(word, 7U);
  ASSERT_EQ(put(1), 0);
  EXPECT_EQ(word, 1U);
  ASSERT_EQ(put(0), 0);
  EXPECT_EQ(word, 0U);
  ASSERT_EQ(put(3), 0);
  ASSERT_EQ(ledger_item_delete(ledger_get_default_conn(), "debug/track/detail"), 0);
  EXPECT_EQ(word, 0U);
}

TEST_P(ledger_switch_contract, a_stored_item_switches_at_once) {
  ASSERT_EQ(put(1), 0);
  bed_->restart();
  std::atomic<std::uint32_t> word{0};
  ASSERT_EQ(hosted([&] { return ledger_switch_register(path, &word); }), 0);
  EXPECT_EQ(word, 1U);
}

TEST_P(ledger_switch_contract, a_path_registered_again_switches_the_new_word_only) {
  std::atomic<std::uint32_t> old_word{7};
  ASSERT_EQ(hosted([&] { return ledger_switch_register(path, &old_word); }), 0);
  std::atomic<std::uint32_t> new_word{0};
  ASSERT_EQ(hosted([&] { return ledger_switch_register(path, &new_word); }), 0);
  ASSERT_EQ(put(1), 0);
  EXPECT_EQ(new_word, 1U);
  EXPECT_EQ(old_word, 7U);
}

TEST_P(ledger_switch_contract, only_numbers_switch) {
  std::atomic<std::uint32_t> word{0};
  ASSERT_EQ(hosted([&] { return ledger_switch_register(path, &word); }), 0);
  EXPECT_EQ(ledger_item_set(ledger_get_default_conn(), "debug/track/detail", ledger_kind::text,
                            bytes_of("on")),
            ledger_wrong_kind);
  EXPECT_EQ(word, 0U);
  EXPECT_EQ(hosted([&] { return ledger_switch_register("/oper/x", &word); }), ledger_unknown_path);
}

INSTANTIATE_TEST_SUITE_P(ways, ledger_switch_contract, ::testing::ValuesIn(ledger_test_bed_ways()),
                         ledger_way_name);

}  // namespace
}  // namespace ot::test
