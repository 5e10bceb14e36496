// "set NAME probe OPERATION": its item, its range, and how an operation changes.
#include <gmock/gmock.h>

#include "tests/tools/stages.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/plan.h"

namespace ot::trackctl {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

const track_kind& kind() {
  return *find_track_kind("probe");
}

std::vector<config_item> items_of(const std::string& operation) {
  command_line app{"", "set"};
  const items_reader read_items = kind().define(app);
  parse_arguments(app, {operation});
  return read_items();
}

std::vector<commit> plan(const track_items& present, const std::string& operation,
                         const wanted_delays& delays = {}) {
  return stages_of(plan_set(
      "t", present, {kind().folder, items_of(operation), kind().recreate_on_change}, delays));
}

track_items following(std::uint32_t operation) {
  return {{"a", u32_value(1)}, {"type/prb/0x5/op_id", u32_value(operation)}};
}

TEST(probe_kind, gives_the_operation_as_its_only_item) {
  const auto items = items_of("7");
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].path, "type/prb/0x5/op_id");
  EXPECT_EQ(items[0].value, u32_value(7));
}

TEST(probe_kind, takes_operations_from_1_to_2147483647) {
  EXPECT_EQ(items_of("1")[0].value, u32_value(1));
  EXPECT_EQ(items_of("2147483647")[0].value, u32_value(2147483647));
}

TEST(probe_kind, refuses_others_with_what_was_given_and_the_range) {
  for (const char* const given :
       {"0", "-1", "2147483648", "99999999999999999999", "7x", "0x7", "1.5", "seven", ""}) {
    try {
      items_of(given);
      ADD_FAILURE() << "takes \"" << given << '"';
    } catch (const failure& reason) {
      EXPECT_EQ(reason.status, exit_usage) << given;
      EXPECT_EQ(std::string(reason.what()), "probe operation \"" + std::string(given) +
                                                "\" is not a whole number from 1 to 2147483647");
    }
  }
}

TEST(probe_kind, creates_in_one_commit) {
  const auto commits = plan({}, "7", {2, 0});
  ASSERT_EQ(commits.size(), 1U);
  EXPECT_THAT(
      commits[0],
      ElementsAre(
          Field(&ledger_proposal::path, "/cfg/gl/object_tracking/track/t/a"),
          Field(&ledger_proposal::path, "/cfg/gl/object_tracking/track/t/type/prb/0x5/op_id"),
          Field(&ledger_proposal::path, "/cfg/gl/object_tracking/track/t/delay_up")));
}

TEST(probe_kind, leaves_an_unchanged_operation_alone) {
  EXPECT_THAT(plan(following(7), "7"), IsEmpty());
}

TEST(probe_kind, changes_an_operation_by_deletion_and_creation) {
  const auto commits = plan(following(7), "8");
  ASSERT_EQ(commits.size(), 2U);
  EXPECT_THAT(commits[0], testing::Each(Field(&ledger_proposal::remove, true)));
  EXPECT_THAT(commits[1], testing::Each(Field(&ledger_proposal::remove, false)));
  EXPECT_EQ(commits[0].size(), 2U);
  EXPECT_EQ(commits[1].size(), 2U);
}

}  // namespace
}  // namespace ot::trackctl
