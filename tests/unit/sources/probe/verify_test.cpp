// Which operations a track may be given, and how the others are refused.
#include "platform/component_status.h"
#include "sources/probe/track.h"
#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class probe_verify : public probe_service {
 protected:
  int verify(const ledger_change& change) {
    verdict = ledger_verdict{7, nullptr};
    return object_tracking_prb_verify(change, verdict);
  }
  void expect_accepted(const ledger_change& change) {
    EXPECT_EQ(verify(change), 0);
    EXPECT_EQ(verdict.accept, 1U);
    EXPECT_EQ(verdict.text, nullptr);
  }
  void expect_refused(const ledger_change& change, int code, const char* text) {
    EXPECT_EQ(verify(change), code);
    EXPECT_EQ(verdict.accept, 0U);
    EXPECT_STREQ(verdict.text.get(), text);
  }
  static unsigned loads(const char* library) { return field::probe_library_use(library).asked_for; }
  static int held(const char* library) { return field::probe_library_use(library).held; }

  ledger_verdict verdict;
};

TEST_F(probe_verify, loads_both_libraries_each_time_and_closes_them) {
  for (const std::uint32_t event : {1U, 2U, 3U}) {
    expect_accepted(probe_change(event, "t", {}, 7));
    EXPECT_EQ(loads(infrastructure), event);
    EXPECT_EQ(loads(component), event);
    EXPECT_EQ(held(infrastructure), 0);
    EXPECT_EQ(held(component), 0);
  }
}

TEST_F(probe_verify, refuses_while_either_library_is_missing_and_closes_what_it_opened) {
  field::probe_library_missing(component);
  expect_refused(probe_change(1, "t", {}, 7), status_code(0xa64c8600),
                 "The probe package is not available");
  EXPECT_EQ(loads(infrastructure), 1U);
  EXPECT_EQ(held(infrastructure), 0);
  field::probe_package_installed();
  field::probe_library_missing(infrastructure);
  expect_refused(probe_change(2, "t", 6, 7), status_code(0xa64c8600),
                 "The probe package is not available");
  EXPECT_EQ(held(component), 0);
  field::probe_package_installed();
  expect_accepted(probe_change(1, "t", {}, 7));
}

TEST_F(probe_verify, a_delete_needs_no_package) {
  field::probe_package_removed();
  expect_accepted(probe_change(4, "t", 7, {}));
  expect_accepted(probe_change(6, "t", 7, 8));
  EXPECT_EQ(loads(infrastructure), 0U);
}

TEST_F(probe_verify, a_second_track_on_an_operation_is_refused) {
  ASSERT_EQ(set_op("a", 7), 0);
  trace();
  expect_refused(probe_change(1, "b", {}, 7), status_code(0xa64c8800),
                 "The probe operation is already tracked");
  EXPECT_THAT(
      field::take_messages(),
      ElementsAre("OT-SERVICES-7-LEDGER_FAIL: Configuration Error: : The probe operation is "
                  "already tracked"));
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (object_tracking_prb_verify) : ",
                          "Entering (hash_db_get_track_item) : ",
                          "Entering (hash_db_get_prb_item) : ", " Multiple tracker case "));
  EXPECT_EQ(held(component), 1);  // the poll's
}

TEST_F(probe_verify, the_operations_number_stands_for_the_type_in_the_type_check) {
  ASSERT_EQ(set_op("t", 7), 0);
  forget_output();
  expect_refused(probe_change(2, "t", 7, 8), track_type_conflict,
                 "The track already has another type");
  EXPECT_THAT(field::take_messages(), IsEmpty());
  // Even the operation it has; a track's type number alone passes.
  expect_refused(probe_change(2, "t", 7, 7), track_type_conflict,
                 "The track already has another type");
  expect_accepted(probe_change(2, "t", 7, 5));
  // No type is asked for when nothing is created or set.
  expect_accepted(probe_change(0, "t", 7, 8));
}

TEST_F(probe_verify, operation_5_is_refused_to_its_own_track_as_followed_already) {
  ASSERT_EQ(set_op("t", 5), 0);
  expect_refused(probe_change(2, "t", 5, 5), probe_operation_taken,
                 "The probe operation is already tracked");
}

TEST_F(probe_verify, a_track_of_another_type_is_refused_unless_the_numbers_are_alike) {
  field::interface_added("eth0");
  ASSERT_EQ(commit(interface_track("t", "eth0")), 0);
  expect_refused(probe_change(1, "t", {}, 7), track_type_conflict,
                 "The track already has another type");
  expect_accepted(probe_change(1, "t", {}, 1));
}

TEST_F(probe_verify, looks_for_the_package_then_at_the_type_and_then_at_the_operation) {
  ASSERT_EQ(set_op("a", 7), 0);
  field::interface_added("eth0");
  ASSERT_EQ(commit(interface_track("t", "eth0")), 0);
  forget_output();
  expect_refused(probe_change(1, "t", {}, 7), track_type_conflict,
                 "The track already has another type");
  EXPECT_THAT(field::take_messages(), IsEmpty()) << "only a taken operation is reported";
  stop();  // lets the libraries go, which a poll holds
  field::probe_package_removed();
  ASSERT_EQ(start(2), 0);
  forget_output();
  expect_refused(probe_change(1, "t", {}, 7), probe_package_missing,
                 "The probe package is not available");
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

TEST_F(probe_verify, a_track_with_delays_only_takes_any_operation) {
  ASSERT_EQ(commit({set_number(track_path("t", "delay_up"), 5)}), 0);
  expect_accepted(probe_change(1, "t", {}, 7));
}

TEST_F(probe_verify, without_a_track_name_is_22_and_no_verdict) {
  ledger_change nameless;
  for (const std::uint32_t event : {1U, 4U}) {
    nameless.event = event;
    EXPECT_EQ(verify(nameless), invalid_argument);
    EXPECT_EQ(verdict.accept, 7U);
    EXPECT_EQ(object_tracking_type_prb_verify(nameless, verdict), invalid_argument);
    EXPECT_EQ(verdict.accept, 7U);
  }
}

TEST_F(probe_verify, the_type_node_accepts_everything) {
  field::probe_package_removed();
  trace();
  verdict.accept = 0;
  EXPECT_EQ(object_tracking_type_prb_verify(probe_change(2, "t", {}, 7), verdict), 0);
  EXPECT_EQ(verdict.accept, 1U);
  EXPECT_EQ(object_tracking_type_prb_verify(probe_change(1, "t", {}, 8), verdict), 0);
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre("Entering (object_tracking_type_prb_verify) : ", "track_name = t, op_id = 7",
                  "(object_tracking_type_prb_verify) : ledger track type = PRB",
                  "Entering (object_tracking_type_prb_verify) : ", "track_name = t, op_id = 8"));
}

TEST_F(probe_verify, a_refused_commit_says_where_and_why) {
  field::probe_package_removed();
  EXPECT_EQ(set_op("t", 7), probe_package_missing);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_EQ(refusals[0].path, op_item("t"));
  EXPECT_EQ(refusals[0].text, "The probe package is not available");
  EXPECT_EQ(hash_db_get_track_item("t"), nullptr);
}

}  // namespace
}  // namespace ot::test
