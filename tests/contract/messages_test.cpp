// System messages: their form, their order, and what is cut.
#include "platform/messages.h"

#include <string>
#include <vector>

#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

class messages_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    if (const std::string reason = messages_unavailable(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
  }
};

constexpr errmsg_record info{"OT", "SERVICES", "TRACK_INFO", "%s",
                             6,    0x11eb0002, {0, 0, 0},    nullptr};
constexpr errmsg_record event{"OT", "SERVICES", "UNKNOWN_BFD_EVENT", "%s : %u",
                              4,    0x11eb0003, {0, 0, 0},           nullptr};

using texts = std::vector<std::string>;

TEST_F(messages_contract, a_message_has_facility_group_severity_and_name_before_its_text) {
  const auto lines = logged(manager(), [] { errmsg_log(&info, 6, "track x state Track_Up"); });
  EXPECT_EQ(lines, (texts{"OT-SERVICES-6-TRACK_INFO: track x state Track_Up"}));
}

TEST_F(messages_contract, the_severity_is_the_calls_and_the_arguments_are_the_formats) {
  const auto lines = logged(manager(), [] { errmsg_log(&event, 3, "Unsupported event", 4U); });
  EXPECT_EQ(lines, (texts{"OT-SERVICES-3-UNKNOWN_BFD_EVENT: Unsupported event : 4"}));
}

TEST_F(messages_contract, messages_leave_in_the_order_of_the_calls) {
  constexpr int count = 500;
  texts expected;
  for (int i = 0; i < count; ++i) {
    expected.push_back("OT-SERVICES-6-TRACK_INFO: line " + std::to_string(i));
  }
  const auto lines = logged(manager(), [] {
    for (int i = 0; i < count; ++i) {
      errmsg_log(&info, 6, ("line " + std::to_string(i)).c_str());
    }
  });
  EXPECT_EQ(lines, expected);
}

TEST_F(messages_contract, a_long_text_is_cut) {
  const std::string longer(3000, 'x');
  const auto lines = logged(manager(), [&] { errmsg_log(&info, 6, longer.c_str()); });
  EXPECT_EQ(lines, (texts{"OT-SERVICES-6-TRACK_INFO: " + std::string(1000, 'x')}));
}

TEST_F(messages_contract, newlines_at_the_end_are_not_part_of_the_line) {
  const auto lines = logged(manager(), [] { errmsg_log(&info, 6, "bind failed\n"); });
  EXPECT_EQ(lines, (texts{"OT-SERVICES-6-TRACK_INFO: bind failed"}));
}

}  // namespace
}  // namespace ot::contract
