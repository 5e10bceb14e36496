// The controls of the in-memory ledger, and its way with allocation faults.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/err_string.h"
#include "platform/ledger_provider.h"
#include "platform/ledger_status.h"
#include "platform/ledger_subscriber.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/ledger_controls.h"
#include "platform/process.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/sample_tree.h"

namespace ot::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class memory_ledger : public ::testing::Test {
 protected:
  void SetUp() override {
    ledger_control_reset();
    ASSERT_EQ(ledger_bind("/oper/gl/x/", &conn_), 0);
  }
  void TearDown() override { ledger_unbind(conn_); }

  int put(std::uint32_t number) {
    return ledger_item_set(conn_, "t", ledger_kind::u32, bytes_of_numbers({number}));
  }
  ledger_conn* conn_ = nullptr;
  ledger_value value_;
};

TEST_F(memory_ledger, a_failure_is_given_once) {
  ledger_control_fail_next(ledger_operation::set, ledger_storage_failure);
  EXPECT_EQ(put(1), ledger_storage_failure);
  EXPECT_EQ(ledger_control_peek("/oper/gl/x/t", value_), ledger_no_data);
  EXPECT_EQ(put(1), 0);
  EXPECT_EQ(ledger_control_peek("/oper/gl/x/t", value_), 0);
  ledger_control_fail_next(ledger_operation::bind, ledger_unreachable);
  ledger_conn* other = nullptr;
  EXPECT_EQ(ledger_bind("/oper/", &other), ledger_unreachable);
  EXPECT_EQ(other, nullptr);
}

TEST_F(memory_ledger, the_library_file_can_be_missing) {
  EXPECT_TRUE(ledger_library_readable());
  ledger_control_library(false);
  EXPECT_FALSE(ledger_library_readable());
}

TEST_F(memory_ledger, notifications_are_collected_and_followed) {
  ledger_subscription* follower = nullptr;
  ASSERT_EQ(ledger_subscribe("/oper/gl/", &follower), 0);
  char name[] = "t";
  std::uint32_t up = 1;
  const ledger_dpv_notification entry{.path = name,
                                      .kind = ledger_notification_set,
                                      .valid = 1,
                                      .new_value = &up,
                                      .new_value_length = 4,
                                      .sequence = 1};
  ASSERT_EQ(ledger_dpv_generate_notifications(conn_, &entry, 1), 0);
  const auto batches = ledger_control_take_notifications();
  ASSERT_EQ(batches.size(), 1U);
  ASSERT_EQ(batches[0].size(), 1U);
  EXPECT_EQ(batches[0][0].path, "/oper/gl/x/t");
  EXPECT_EQ(batches[0][0].value, 1U);
  std::vector<std::string> seen;
  ledger_subscription_wait(follower, 0,
                           [&seen](const ledger_notice& notice) { seen.push_back(notice.path); });
  EXPECT_THAT(seen, ElementsAre("x/t"));
  ledger_unsubscribe(follower);
  ledger_control_fail_next(ledger_operation::notify, ledger_provider_failure);
  EXPECT_EQ(ledger_dpv_generate_notifications(conn_, &entry, 1), ledger_provider_failure);
  EXPECT_THAT(ledger_control_take_notifications(), IsEmpty());
}

TEST_F(memory_ledger, the_ledgers_own_allocations_do_not_count) {
  alloc_faults faults{0};
  std::byte number[4] = {};
  EXPECT_EQ(ledger_item_set(conn_, "t", ledger_kind::u32, number), 0);
  EXPECT_EQ(faults.count(), 0U);
}

TEST_F(memory_ledger, those_of_verify_and_apply_do) {
  ASSERT_EQ(register_sample_tree(), 0);
  const ledger_proposal change = set_number("/cfg/gl/sample/thing/x/a", 1);
  sample().while_verifying = [] {
    const std::vector<int> used(10, 1);
    return used[0];
  };
  std::uint64_t counted = 0;
  {
    alloc_faults faults{1'000'000};
    ASSERT_EQ(ledger_commit(ledger_get_default_conn(), {&change, 1}, nullptr), 0);
    counted = faults.count();
  }
  EXPECT_GT(counted, 0U);
}

TEST_F(memory_ledger, a_full_store_still_deletes) {
  ASSERT_EQ(register_sample_tree(), 0);
  const std::string first = "/cfg/gl/sample/thing/x/a";
  std::vector<ledger_refusal> refusals;
  const auto commit = [&refusals](ledger_proposal change) {
    return ledger_commit(ledger_get_default_conn(), {&change, 1}, &refusals);
  };
  ASSERT_EQ(commit(set_number(first, 1)), 0);
  ledger_control_capacity(1);
  EXPECT_EQ(commit(set_number("/cfg/gl/sample/thing/y/a", 1)), ledger_full);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_THAT(refusals[0].text, HasSubstr("deletes are"));
  EXPECT_EQ(commit(set_number(first, 2)), 0);
  EXPECT_EQ(commit(remove_item(first)), 0);
}

TEST_F(memory_ledger, a_failed_store_applies_nothing) {
  ASSERT_EQ(register_sample_tree(), 0);
  const ledger_proposal change = set_number("/cfg/gl/sample/thing/x/a", 1);
  std::vector<ledger_refusal> refusals;
  ledger_control_fail_next_store(ledger_storage_failure);
  EXPECT_EQ(ledger_commit(ledger_get_default_conn(), {&change, 1}, &refusals),
            ledger_storage_failure);
  EXPECT_THAT(sample().applied, IsEmpty());
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_FALSE(refusals[0].applied);
}

TEST_F(memory_ledger, apply_and_replay_failures_are_logged) {
  ASSERT_EQ(register_sample_tree(), 0);
  sample().fail_apply["x"] = no_memory;
  const ledger_proposal change = set_number("/cfg/gl/sample/thing/x/a", 1);
  EXPECT_EQ(ledger_commit(ledger_get_default_conn(), {&change, 1}, nullptr), no_memory);
  EXPECT_EQ(ledger_config_replay(sample_root), 1);
  EXPECT_THAT(ledger_control_take_log(),
              ElementsAre(HasSubstr("applying /cfg/gl/sample/thing/x/a failed"),
                          HasSubstr("replaying /cfg/gl/sample/thing/x/a failed")));
}

// As a hostile or damaged store may have them.
TEST_F(memory_ledger, what_is_wrong_with_a_stored_item_concerns_no_other) {
  ASSERT_EQ(register_sample_tree(), 0);
  const std::string thing = "/cfg/gl/sample/thing/";
  const std::string long_name = thing + std::string(40, 'n') + "/a";
  const auto number = bytes_of_numbers({1});
  const auto pair = bytes_of_numbers({1, 2});
  ledger_control_put(long_name, ledger_kind::u32, number);
  ledger_control_put(thing + "x/elsewhere", ledger_kind::u32, number);
  ledger_control_put(thing + "x/text", ledger_kind::u32, number);
  ledger_control_put(thing + "x/a", ledger_kind::u32, pair);
  ledger_control_put(thing + "x/kind/0x1/pair", ledger_kind::tuple, number);
  ledger_control_put(thing + "x/kind/0x0/pair", ledger_kind::tuple, pair);
  ledger_control_put(thing + "new\nline/b", ledger_kind::tuple, pair);
  ledger_control_put(thing + "y/a", ledger_kind::u32, number);
  EXPECT_EQ(ledger_config_replay(sample_root), 7);
  EXPECT_THAT(sample().applied, ElementsAre("1 y ->1"));
  const std::string unknown = std::string{" failed: "} + err_string(ledger_unknown_path);
  const std::string refused = std::string{" failed: "} + err_string(invalid_argument);
  const std::string wrong = std::string{" failed: "} + err_string(ledger_wrong_kind);
  EXPECT_THAT(
      ledger_control_take_log(),
      UnorderedElementsAre(
          "replaying " + long_name + refused +
              " (a name in it has 40 characters, at most 39 are taken)",
          "replaying " + thing + "x/elsewhere" + unknown,
          "replaying " + thing + "x/text" + wrong + " (it is a text)",
          "replaying " + thing + "x/a" + wrong + " (the number is not of 4 bytes)",
          "replaying " + thing + "x/kind/0x1/pair" + wrong + " (the tuple has 1 numbers, not 2)",
          "replaying " + thing + "x/kind/0x0/pair" + refused + " (the number 0x0 is less than 1)",
          "replaying " + thing + "new?line/b" + unknown));
}

}  // namespace
}  // namespace ot::test
