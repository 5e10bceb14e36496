// The common verifiers, called as the ledger calls them: codes, verdicts and texts.
#include "config/verifiers.h"
#include "lists/configuration.h"
#include "sources/route/track.h"

#include <cstring>
#include <string>
#include <vector>

#include "config/delays.h"
#include "core/debug.h"
#include "platform/component_status.h"
#include "platform/ipv4.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t untouched = 77;

// One call of a verifier and its answer.
struct answer {
  int code = 0;
  std::uint32_t accept = 0;
  std::string text;
};

answer ask(ledger_verify_fn verify, std::uint32_t event,
           const std::vector<ledger_path_field>& fields, const ledger_value* value = nullptr) {
  ledger_verdict verdict;
  verdict.accept = untouched;
  ledger_change change;
  change.event = event;
  change.fields = fields;
  change.new_value = value;
  const int code = verify(change, verdict);
  return {code, verdict.accept, verdict.text == nullptr ? "" : verdict.text.get()};
}

MATCHER(accepted, "") {
  return arg.code == 0 && arg.accept == 1 && arg.text.empty();
}
MATCHER(has_no_name, "") {
  return arg.code == 22 && arg.accept == untouched && arg.text.empty();
}
MATCHER_P2(refused, code, text, "") {
  return static_cast<std::uint32_t>(arg.code) == code && arg.accept == 0 && arg.text == text;
}

const auto type_conflict = refused(0xa64c8200U, "The track already has another type");

class verifiers : public running_service {
 protected:
  void fill_table(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      ASSERT_EQ(
          object_tracking_set_create_track_delay(("t" + std::to_string(i)).c_str(), 0, 0, true), 0);
    }
  }
};

TEST_F(verifiers, a_missing_name_is_22_and_leaves_the_verdict_alone) {
  const std::vector<ledger_path_field> two = {{"t", 0}, {"0x3", 3}};
  EXPECT_THAT(ask(object_tracking_track_verify, ledger_event_create, {}), has_no_name());
  EXPECT_THAT(ask(object_tracking_type_verify, ledger_event_create, {}), has_no_name());
  EXPECT_THAT(ask(object_tracking_type_interface_verify, ledger_event_create, {}), has_no_name());
  EXPECT_THAT(ask(object_tracking_verify_ip_mask_and_type, ledger_event_create, {}), has_no_name());
  EXPECT_THAT(ask(object_tracking_type_list_object_verify, ledger_event_create, two),
              has_no_name());
}

TEST_F(verifiers, the_default_accepts_everything) {
  for (const std::uint32_t event : {0U, 1U, 2U, 3U, 4U, 7U}) {
    EXPECT_THAT(ask(object_tracking_default_verify, event, {}), accepted());
  }
}

TEST_F(verifiers, up_to_1499_tracks_another_is_accepted) {
  fill_table(1499);
  EXPECT_THAT(ask(object_tracking_track_verify, ledger_event_create, {{"new", 0}}), accepted());
  EXPECT_THAT(ask(object_tracking_track_verify, ledger_event_set, {{"t1", 0}}), accepted());
}

TEST_F(verifiers, at_1500_tracks_create_and_set_are_refused_and_delete_is_not) {
  fill_table(1500);
  const auto full = refused(0xa64c8c00U, "Maximum number of tracks reached");
  for (const std::uint32_t event : {1U, 2U, 3U}) {
    EXPECT_THAT(ask(object_tracking_track_verify, event, {{"new", 0}}), full);
    EXPECT_THAT(ask(object_tracking_track_verify, event, {{"t1", 0}}), full);
  }
  EXPECT_THAT(ask(object_tracking_track_verify, ledger_event_delete, {{"t1", 0}}), accepted());
}

TEST_F(verifiers, the_count_is_traced_and_the_limit_on_the_error_flag) {
  fill_table(2);
  trace();
  ask(object_tracking_track_verify, ledger_event_set, {{"t1", 0}});
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (object_tracking_track_verify) : ", "Num current objs 2"));
  trace(false);
  fill_table(1500);
  ot_debug[ot_debug_error].enabled = 1;
  ask(object_tracking_track_verify, ledger_event_set, {{"t1", 0}});
  EXPECT_THAT(field::take_traces(), ElementsAre("Max Limit reached: current objs 1500"));
}

TEST_F(verifiers, a_track_accepts_only_its_own_type) {
  fill_table(2);
  track("t1").configured_type = 3;
  for (const auto verify : {object_tracking_type_verify, object_tracking_type_interface_verify}) {
    for (const std::uint32_t event : {1U, 2U, 3U}) {
      EXPECT_THAT(ask(verify, event, {{"t1", 0}, {"0x3", 3}}), accepted());
      EXPECT_THAT(ask(verify, event, {{"t1", 0}, {"0x4", 4}}), type_conflict);
      EXPECT_THAT(ask(verify, event, {{"t0", 0}, {"0x4", 4}}), accepted());  // only delays so far
      EXPECT_THAT(ask(verify, event, {{"none", 0}, {"0x4", 4}}), accepted());
    }
    for (const std::uint32_t event : {0U, 4U, 5U, 6U, 7U}) {  // anything but create and set
      EXPECT_THAT(ask(verify, event, {{"t1", 0}, {"0x4", 4}}), accepted()) << event;
    }
  }
}

TEST_F(verifiers, a_list_may_not_name_itself_but_another_spelling_of_it) {
  const auto member = [](std::uint32_t event, const char* name) {
    return ask(object_tracking_type_list_object_verify, event,
               {{"list", 0}, {"0x3", 3}, {name, 0}});
  };
  const auto itself = refused(0xa64c8a00U, "A list cannot name itself as a member");
  for (const std::uint32_t event : {1U, 2U, 3U}) {
    EXPECT_THAT(member(event, "list"), itself);
    EXPECT_THAT(member(event, "List"), accepted());
    EXPECT_THAT(member(event, "list2"), accepted());
  }
  for (const std::uint32_t event : {0U, 4U, 5U, 6U, 7U}) {
    EXPECT_THAT(member(event, "list"), accepted()) << event;
  }
}

class address_verifier : public verifiers {
 protected:
  static answer ask_mask(std::uint32_t event, std::uint32_t mask_in_host_order) {
    const std::uint32_t mask = __builtin_bswap32(mask_in_host_order);
    ledger_value value;
    EXPECT_EQ(ledger_value_assign(value, ledger_kind::tuple, bytes_of_numbers({0x0a, mask})), 0);
    return ask(object_tracking_verify_ip_mask_and_type, event, {{"t", 0}, {"0x2", 2}}, &value);
  }
  void make_route_type_item() {
    ASSERT_EQ(commit({set_number(track_path("t", "type/route/0x2/a"), 1)}), 0);
  }
  static constexpr const char* mask_text = "The route mask is not contiguous";
};

TEST_F(address_verifier, a_created_address_needs_a_contiguous_mask_only) {
  for (const std::uint32_t mask : {0xffffff00U, 0xffffffffU, 0x80000000U, 0U}) {
    EXPECT_THAT(ask_mask(ledger_event_create, mask), accepted()) << mask;
  }
  EXPECT_THAT(field::take_messages(), IsEmpty());
  for (const std::uint32_t mask : {0xff00ff00U, 0x000000ffU, 0xfffffffdU, 1U}) {
    EXPECT_THAT(ask_mask(ledger_event_create, mask), refused(0xa64c8400U, mask_text)) << mask;
    EXPECT_THAT(field::take_messages(),
                ElementsAre("OT-SERVICES-7-LEDGER_FAIL: Configuration Error: : The route mask is "
                            "not contiguous"));
  }
}

TEST_F(address_verifier, a_set_address_needs_the_route_type_item_too) {
  trace();
  EXPECT_THAT(ask_mask(ledger_event_set, 0xffffff00U), type_conflict);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-7-LEDGER_FAIL: Configuration Error: : The track already has "
                          "another type"));
  EXPECT_THAT(field::take_traces(),
              ElementsAre("Entering (object_tracking_verify_ip_mask_and_type) : ",
                          "(object_tracking_verify_ip_mask_and_type) : ledger track type = ROUTE"));
  make_route_type_item();
  EXPECT_THAT(ask_mask(ledger_event_set, 0xffffff00U), accepted());
  EXPECT_THAT(ask_mask(ledger_event_set, 0xff00ff00U), refused(0xa64c8400U, mask_text));
}

TEST_F(address_verifier, a_set_is_asked_for_its_type_item_before_its_mask) {
  EXPECT_THAT(ask_mask(ledger_event_set, 0xff00ff00U), type_conflict);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-7-LEDGER_FAIL: Configuration Error: : The track already has "
                          "another type"));
}

TEST_F(address_verifier, a_read_that_fails_counts_as_no_type_item) {
  make_route_type_item();
  ledger_control_fail_next(ledger_operation::get, ledger_storage_failure);
  EXPECT_THAT(ask_mask(ledger_event_set, 0xffffff00U), type_conflict);
}

TEST_F(address_verifier, a_delete_is_accepted_and_a_value_that_is_no_pair_refused) {
  EXPECT_THAT(ask_mask(ledger_event_delete, 0xff00ff00U), accepted());
  const auto verify = object_tracking_verify_ip_mask_and_type;
  const std::vector<ledger_path_field> name = {{"t", 0}, {"0x2", 2}};
  EXPECT_THAT(ask(verify, ledger_event_create, name), refused(0xa64c8400U, mask_text));
  ledger_value single;
  ASSERT_EQ(ledger_value_assign(single, ledger_kind::tuple, bytes_of_numbers({1})), 0);
  EXPECT_THAT(ask(verify, ledger_event_create, name, &single), refused(0xa64c8400U, mask_text));
}

TEST_F(verifiers, a_refusal_reaches_the_client_with_path_code_and_text) {
  ASSERT_EQ(commit(interface_track("t", "Gi1")), 0);
  EXPECT_EQ(commit({set_number(track_path("t", "type/list/0x3/a"), 1)}), track_type_conflict);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_EQ(refusals[0].path, track_path("t", "type/list/0x3/a"));
  EXPECT_EQ(refusals[0].text, "The track already has another type");
  EXPECT_FALSE(refusals[0].applied);
}

TEST_F(verifiers, a_refusal_without_memory_for_its_text_is_still_one) {
  ledger_verdict verdict;
  alloc_faults faults{0};
  EXPECT_EQ(refuse(too_many_tracks, verdict), too_many_tracks);
  EXPECT_EQ(verdict.accept, 0U);
  EXPECT_EQ(verdict.text, nullptr);
}

TEST(refusal, carries_a_text_of_the_callers) {
  ledger_verdict verdict;
  EXPECT_EQ(refuse_with_text(5, "so it is", verdict), 5);
  EXPECT_EQ(verdict.accept, 0U);
  EXPECT_STREQ(verdict.text.get(), "so it is");
}

}  // namespace
}  // namespace ot::test
