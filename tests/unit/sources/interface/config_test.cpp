// The configuration item that makes a track follow an interface.
#include "sources/interface/track.h"

#include "platform/component_status.h"
#include "platform/ledger_status.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "sources/interface/table.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string item = track_path("t", "type/interface/0x1/info/interface");

class interface_config : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    field::interface_added("Gi1");
    field::interface_added("Gi2", false);
    field::run_pending();
  }
  int set(std::string_view interface) { return commit({set_text(item, interface)}); }
  static bool followed(const char* interface) {
    const interface_entry* entry = hash_db_get_interface_item(interface);
    return entry != nullptr && entry->tracks != nullptr;
  }
};

TEST_F(interface_config, a_create_ties_the_track_and_remembers_its_type) {
  trace();
  ASSERT_EQ(set("Gi1"), 0);
  EXPECT_EQ(track("t").state, track_state::up);
  EXPECT_EQ(track("t").configured_type, 1U);
  EXPECT_TRUE(followed("Gi1"));
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "Entering (object_tracking_type_interface_verify) : ",
                  "Entering (object_tracking_type_interface_apply) : ",
                  "(object_tracking_type_interface_apply) :track = t, interface = Gi1",
                  "(object_tracking_type_interface_apply) :LEDGER_EVENT_CREATE",
              }));
}

TEST_F(interface_config, a_set_to_another_interface_unties_and_ties) {
  ASSERT_EQ(set("Gi1"), 0);
  forget_output();
  trace();
  ASSERT_EQ(set("Gi2"), 0);
  EXPECT_FALSE(followed("Gi1"));
  EXPECT_TRUE(followed("Gi2"));
  EXPECT_EQ(track("t").object.interface.name, "Gi2");
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-6-TRACK_INFO: track t state Unknown",
                          "OT-SERVICES-6-TRACK_INFO: track t state Track_Down"));
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(object_tracking_type_interface_apply) :track = t, interface = Gi2",
                  "(object_tracking_type_interface_apply) :LEDGER_EVENT_SET",
                  "Entering (delete_track_from_interface_entry) : ",
                  "Entering (object_tracking_type_interface_create) : ",
              }));
}

TEST_F(interface_config, a_set_to_the_same_interface_does_nothing) {
  ASSERT_EQ(set("Gi1"), 0);
  const std::uint32_t publications = track("t").state_change_counter;
  trace();
  ASSERT_EQ(set("Gi1"), 0);
  EXPECT_EQ(track("t").state_change_counter, publications);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_interface_apply) config not changed, do nothing"));
}

TEST_F(interface_config, a_set_whose_untie_fails_keeps_the_old_interface) {
  ASSERT_EQ(set("Gi1"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  EXPECT_EQ(set("Gi2"), ledger_full);
  EXPECT_TRUE(followed("Gi1"));
  EXPECT_FALSE(followed("Gi2"));
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_interface_apply) : delete_track_from_interface_entry "
                       "failed - The ledger is full"));
}

TEST_F(interface_config, a_set_without_a_new_value_leaves_the_track_untied) {
  ASSERT_EQ(set("Gi1"), 0);
  const ledger_path_field name{"t", 0};
  ledger_value old_value;
  ASSERT_EQ(ledger_value_assign(old_value, ledger_kind::text, bytes_of("Gi1")), 0);
  ledger_change change;
  change.event = ledger_event_set;
  change.fields = {&name, 1};
  change.old_value = &old_value;
  EXPECT_EQ(object_tracking_type_interface_apply(change), 0);
  EXPECT_FALSE(followed("Gi1"));
  EXPECT_EQ(track("t").type, track_type::none);
}

TEST_F(interface_config, a_set_without_an_old_value_only_ties) {
  const ledger_path_field name{"t", 0};
  ledger_value new_value;
  ASSERT_EQ(ledger_value_assign(new_value, ledger_kind::text, bytes_of("Gi1")), 0);
  ledger_change change;
  change.event = ledger_event_set;
  change.fields = {&name, 1};
  change.new_value = &new_value;
  EXPECT_EQ(object_tracking_type_interface_apply(change), 0);
  EXPECT_TRUE(followed("Gi1"));
}

TEST_F(interface_config, of_create_and_set_together_the_create_counts) {
  ASSERT_EQ(set("Gi1"), 0);
  const ledger_path_field name{"t", 0};
  ledger_value from;
  ledger_value to;
  ASSERT_EQ(ledger_value_assign(from, ledger_kind::text, bytes_of("Gi1")), 0);
  ASSERT_EQ(ledger_value_assign(to, ledger_kind::text, bytes_of("Gi2")), 0);
  EXPECT_EQ(object_tracking_type_interface_apply({3, {&name, 1}, &from, &to}), 0);
  EXPECT_TRUE(followed("Gi1")) << "a create unties nothing";
  EXPECT_TRUE(followed("Gi2"));
}

TEST_F(interface_config, a_delete_unties_and_keeps_the_configured_type) {
  ASSERT_EQ(set("Gi1"), 0);
  trace();
  EXPECT_EQ(commit({remove_item(item)}), 0);
  EXPECT_FALSE(followed("Gi1"));
  EXPECT_EQ(track("t").type, track_type::none);
  EXPECT_EQ(track("t").configured_type, 1U);
  EXPECT_EQ(published("t"), 2U);
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(object_tracking_type_interface_apply) :track = t, interface = Gi1",
                  "(object_tracking_type_interface_apply) :LEDGER_EVENT_DELETE",
              }));
  EXPECT_EQ(commit({set_number(track_path("t", "type/list/0x3/a"), 1)}), track_type_conflict);
}

TEST_F(interface_config, a_failed_delete_is_reported) {
  ASSERT_EQ(set("Gi1"), 0);
  ledger_control_fail_next(ledger_operation::set, ledger_full);
  trace();
  EXPECT_EQ(commit({remove_item(item)}), ledger_full);
  EXPECT_TRUE(followed("Gi1"));
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_interface_apply) : delete_track_from_interface_entry "
                       "failed - The ledger is full"));
}

TEST_F(interface_config, a_failed_create_is_reported) {
  field::interface_added("Gi3");  // not notified yet
  field::fail_next("ifc_state_query", 5);
  trace();
  EXPECT_EQ(set("Gi3"), 5);
  EXPECT_THAT(field::take_traces(),
              Contains("(object_tracking_type_interface_apply) : "
                       "object_tracking_type_interface_create failed - Input/output error"));
}

TEST_F(interface_config, without_a_track_name_is_22_and_without_an_event_nothing) {
  ledger_change change;
  change.event = ledger_event_create;
  EXPECT_EQ(object_tracking_type_interface_apply(change), 22);
  const ledger_path_field name{"t", 0};
  change.fields = {&name, 1};
  change.event = 0;
  EXPECT_EQ(object_tracking_type_interface_apply(change), 0);
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
}

TEST_F(interface_config, a_name_of_more_than_63_characters_is_refused) {
  EXPECT_EQ(set(std::string(64, 'x')), ledger_wrong_kind);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_THAT(refusals[0].text, HasSubstr("(the text has 64 characters, at most 63 are taken)"));
  EXPECT_EQ(hash_db_count(tracks_table), 0U);
  EXPECT_EQ(set(std::string(63, 'x')), 0);
}

TEST_F(interface_config, an_apply_cuts_a_name_at_63_characters) {
  const ledger_path_field fields[] = {{"t", 0}, {"0x1", 1}};
  ledger_value name;
  ASSERT_EQ(ledger_value_assign(name, ledger_kind::text, bytes_of(std::string(80, 'x'))), 0);
  EXPECT_EQ(object_tracking_type_interface_apply(
                {.event = ledger_event_create, .fields = fields, .new_value = &name}),
            0);
  EXPECT_EQ(track("t").object.interface.name.view(), std::string(63, 'x'));
  ledger_value same;
  ASSERT_EQ(ledger_value_assign(same, ledger_kind::text, bytes_of(std::string(70, 'x'))), 0);
  EXPECT_EQ(
      object_tracking_type_interface_apply(
          {.event = ledger_event_set, .fields = fields, .old_value = &name, .new_value = &same}),
      0);
  EXPECT_TRUE(followed(std::string(63, 'x').c_str()));
}

}  // namespace
}  // namespace ot::test
