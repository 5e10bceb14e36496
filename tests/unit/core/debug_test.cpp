// The trace flags, the catalogue of system messages, and what is said when they cannot be set up.
#include "core/debug.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ledger.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "tests/support/ledger_proposals.h"
#include "tests/unit/odd_answers.h"

namespace ot {
namespace {

class debug_flags : public testing::Test {
 protected:
  void SetUp() override {
    field::reset();
    ledger_control_reset();
  }
  void TearDown() override {
    for (dbg_flag& flag : ot_debug) {
      flag.enabled = 0;
    }
  }
  static void switch_flag(const char* path, std::uint32_t value) {
    ASSERT_EQ(ledger_item_set(ledger_get_default_conn(), path, ledger_kind::u32,
                              test::bytes_of_numbers({value})),
              0);
  }
};

TEST_F(debug_flags, are_detail_error_and_notification_and_off) {
  ASSERT_EQ(ot_debug_init(nullptr), 0);
  const std::vector<std::string> names = {"detail", "error", "notification"};
  for (std::uint32_t i = 0; i < ot_debug_count; ++i) {
    EXPECT_EQ(ot_debug[i].name, names[i]);
    EXPECT_EQ(ot_debug[i].index, i);
    EXPECT_EQ(ot_debug[i].level, 7U);
    EXPECT_EQ(ot_debug[i].enabled, 0U);
  }
  EXPECT_EQ(ot_debug_count, 3);
  EXPECT_TRUE(field::take_messages().empty());
}

TEST_F(debug_flags, follow_their_items_below_debug_track) {
  ASSERT_EQ(ot_debug_init(nullptr), 0);
  const char* paths[] = {"debug/track/detail", "debug/track/error", "debug/track/notification"};
  for (unsigned i = 0; i < ot_debug_count; ++i) {
    switch_flag(paths[i], 1);
    for (unsigned other = 0; other < ot_debug_count; ++other) {
      EXPECT_EQ(ot_debug_on(static_cast<ot_debug_index>(other)), other == i);
    }
    switch_flag(paths[i], 0);
    EXPECT_FALSE(ot_debug_on(static_cast<ot_debug_index>(i)));
  }
}

TEST_F(debug_flags, take_over_what_is_stored) {
  switch_flag("debug/track/error", 1);
  ASSERT_EQ(ot_debug_init(nullptr), 0);
  EXPECT_FALSE(ot_debug_on(ot_debug_detail));
  EXPECT_TRUE(ot_debug_on(ot_debug_error));
}

TEST_F(debug_flags, a_failing_registration_is_reported_and_1) {
  field::fail_next("dbg_register", 5);
  EXPECT_EQ(ot_debug_init(nullptr), 1);
  EXPECT_EQ(field::take_messages(),
            std::vector<std::string>{"OT-SERVICES-3-INIT_FAIL: debug_register failed"});
}

TEST_F(debug_flags, are_initialised_in_this_order_at_level_7) {
  const test::with_odd_answers odd({.note_flags = true});
  ASSERT_EQ(ot_debug_init(nullptr), 0);
  EXPECT_EQ(test::take_flags_initialised(),
            (std::vector<std::string>{"7 detail 1", "7 error 1", "7 notification 1"}));
}

TEST_F(debug_flags, the_first_that_cannot_be_initialised_is_reported_and_1) {
  std::size_t tried = 0;
  for (const char* name : {"detail", "error", "notification"}) {
    const test::with_odd_answers odd({.note_flags = true, .failing_flag = name});
    EXPECT_EQ(ot_debug_init(nullptr), 1) << name;
    EXPECT_EQ(test::take_flags_initialised().size(), ++tried) << "the rest is not tried";
    EXPECT_EQ(field::take_messages(),
              std::vector<std::string>{"OT-SERVICES-3-INIT_FAIL: debug_init_event failed"});
  }
}

TEST_F(debug_flags, nothing_is_evaluated_for_a_flag_that_is_off) {
  ASSERT_EQ(ot_debug_init(nullptr), 0);
  int evaluated = 0;
  OT_TRACE_DETAIL("%d", ++evaluated);
  OT_TRACE_ERROR("%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  ot_debug[ot_debug_error].enabled = 1;
  OT_TRACE_DETAIL("%d", ++evaluated);
  OT_TRACE_ERROR("value %d", ++evaluated);
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(field::take_traces(), std::vector<std::string>{"value 1"});
}

struct catalogue_row {
  const errmsg_record& record;
  const char* name;
  const char* format;
  std::uint32_t severity;
  std::uint32_t number;
};

const catalogue_row catalogue[] = {
    {kor_msg_rec_ot_init_fail, "INIT_FAIL", "%s", 3, 0x11eb0000},
    {kor_msg_rec_ot_ledger_fail, "LEDGER_FAIL", "%s : %s", 7, 0x11eb0001},
    {kor_msg_rec_ot_track_info, "TRACK_INFO", "%s", 6, 0x11eb0002},
    {kor_msg_rec_ot_unknown_bfd_event, "UNKNOWN_BFD_EVENT", "%s : %u", 4, 0x11eb0003},
};

TEST(message_catalogue, has_these_names_formats_severities_and_numbers) {
  for (const catalogue_row& row : catalogue) {
    EXPECT_STREQ(row.record.facility, "OT");
    EXPECT_STREQ(row.record.group, "SERVICES");
    EXPECT_STREQ(row.record.name, row.name);
    EXPECT_STREQ(row.record.format, row.format) << row.name;
    EXPECT_EQ(row.record.severity, row.severity) << row.name;
    EXPECT_EQ(row.record.number, row.number) << row.name;
  }
}

TEST(message_catalogue, only_ledger_fail_lets_repeats_be_held_back) {
  for (const catalogue_row& row : catalogue) {
    const bool limited = &row.record == &kor_msg_rec_ot_ledger_fail;
    for (const std::uint32_t word : row.record.limit_words) {
      EXPECT_EQ(word, limited ? 1U : 0U) << row.name;
    }
    EXPECT_EQ(row.record.limit_state != nullptr, limited) << row.name;
  }
}

TEST(message_catalogue, opens_every_message_with_facility_group_severity_and_name) {
  field::reset();
  errmsg_log(&kor_msg_rec_ot_unknown_bfd_event, 4, "event", 99U);
  EXPECT_EQ(field::take_messages(),
            std::vector<std::string>{"OT-SERVICES-4-UNKNOWN_BFD_EVENT: event : 99"});
}

}  // namespace
}  // namespace ot
