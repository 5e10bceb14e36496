// Bulk notifications, handed to the handler as the interface manager would: what each combination
// of attributes makes of an entry and its tracks.
#include "sources/interface/client.h"

#include <deque>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "sources/interface/track.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// A notification under construction.
class bulk {
 public:
  explicit bulk(std::uint32_t code = ifc_bulk_code) : code_(code) {}

  bulk& exists(const char* name, std::uint32_t handle) { return item(name, handle, 1); }
  bulk& deleted(const char* name, std::uint32_t handle) { return item(name, handle, 0); }
  // Attributes of the last item.
  bulk& state(std::uint32_t value) { return attribute(1, &values_.emplace_back(value)); }
  bulk& redundancy(std::uint32_t value) { return attribute(66, &values_.emplace_back(value)); }
  bulk& attribute(std::uint16_t number, const std::uint32_t* value) {
    attributes_.back().push_back({number, value});
    items_.back().attributes = attributes_.back();
    return *this;
  }

  int deliver() {
    const ifc_bulk_notification message{code_, items_};
    return ot_ifm_handler(nullptr, &message);
  }

 private:
  bulk& item(const char* name, std::uint32_t handle, std::uint32_t exists) {
    attributes_.emplace_back();
    items_.push_back({handle, exists, name, {}});
    return *this;
  }

  std::uint32_t code_;
  std::vector<ifc_item> items_;
  std::deque<std::vector<ifc_attribute>> attributes_;
  std::deque<std::uint32_t> values_;
};

class ifm_notifications : public running_service {
 protected:
  static interface_entry* entry(const char* name = "Gi1") {
    return hash_db_get_interface_item(name);
  }
  // Track "t" on "Gi1", which exists with handle 5, is up and active.
  void tie_track_to_up_interface() {
    ASSERT_EQ(bulk{}.exists("Gi1", 5).state(3).redundancy(1).deliver(), 0);
    ASSERT_EQ(object_tracking_type_interface_create("Gi1", "t"), 0);
    ASSERT_EQ(track("t").state, track_state::up);
    forget_output();
  }
};

TEST_F(ifm_notifications, an_unknown_interface_gets_an_entry_that_nobody_follows) {
  EXPECT_EQ(bulk{}.exists("Gi1", 5).state(3).deliver(), 0);
  ASSERT_NE(entry(), nullptr);
  EXPECT_EQ(entry()->ifname, "Gi1");
  EXPECT_EQ(entry()->ifhandle, 5U);
  EXPECT_EQ(entry()->tracks, nullptr);
  EXPECT_EQ(entry()->reported_state, 3U);
  EXPECT_EQ(entry()->redundancy, 1U);
  EXPECT_EQ(entry()->effective_state, 3U);
}

TEST_F(ifm_notifications, redundancy_alone_of_an_unknown_interface_counts_as_down) {
  bulk{}.exists("Gi1", 5).redundancy(1).deliver();
  ASSERT_NE(entry(), nullptr);
  EXPECT_EQ(entry()->reported_state, 17U);
  EXPECT_EQ(entry()->effective_state, 2U);
}

TEST_F(ifm_notifications, up_needs_state_3_and_redundancy_not_0) {
  tie_track_to_up_interface();
  struct row {
    std::uint32_t state;
    std::uint32_t redundancy;
    bool up;
  };
  for (const row& r : {row{3, 0, false}, row{3, 1, true}, row{2, 1, false}, row{3, 7, true},
                       row{1, 1, false}, row{0, 1, false}, row{2, 0, false}, row{4, 1, false}}) {
    bulk{}.exists("Gi1", 5).state(r.state).redundancy(r.redundancy).deliver();
    EXPECT_EQ(entry()->effective_state, r.up ? 3U : 2U) << r.state << r.redundancy;
    EXPECT_EQ(track("t").state, r.up ? track_state::up : track_state::down);
  }
}

TEST_F(ifm_notifications, redundancy_alone_uses_the_stored_state) {
  tie_track_to_up_interface();
  bulk{}.exists("Gi1", 5).redundancy(0).deliver();
  EXPECT_EQ(entry()->redundancy, 0U);
  EXPECT_EQ(entry()->reported_state, 3U);
  EXPECT_EQ(track("t").state, track_state::down);
  bulk{}.exists("Gi1", 5).redundancy(1).deliver();
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(ifm_notifications, state_alone_uses_the_stored_redundancy) {
  tie_track_to_up_interface();
  bulk{}.exists("Gi1", 5).redundancy(0).deliver();
  bulk{}.exists("Gi1", 5).state(2).deliver();
  bulk{}.exists("Gi1", 5).state(3).deliver();
  EXPECT_EQ(entry()->redundancy, 0U);
  EXPECT_EQ(entry()->reported_state, 3U);
  EXPECT_EQ(entry()->effective_state, 2U);
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(ifm_notifications, attributes_without_value_change_nothing_that_is_stored) {
  tie_track_to_up_interface();
  bulk{}.exists("Gi1", 5).attribute(1, nullptr).attribute(66, nullptr).deliver();
  EXPECT_EQ(entry()->reported_state, 3U);
  EXPECT_EQ(entry()->redundancy, 1U);
  EXPECT_EQ(entry()->effective_state, 3U);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  // It still counts as a change: an unknown interface gets its entry.
  bulk{}.exists("Gi2", 6).attribute(66, nullptr).deliver();
  EXPECT_NE(entry("Gi2"), nullptr);
}

TEST_F(ifm_notifications, other_attributes_and_items_without_any_are_ignored) {
  const std::uint32_t value = 3;
  EXPECT_EQ(bulk{}.exists("Gi1", 5).attribute(2, &value).exists("Gi2", 6).deliver(), 0);
  EXPECT_EQ(hash_db_count(interfaces_table), 0U);
}

TEST_F(ifm_notifications, a_message_of_another_code_changes_nothing) {
  trace();
  for (const std::uint32_t code : {0U, 19U, 21U}) {
    EXPECT_EQ(bulk{code}.exists("Gi1", 5).state(3).deliver(), 0);
  }
  EXPECT_EQ(hash_db_count(interfaces_table), 0U);
  EXPECT_THAT(
      field::take_traces(),
      ElementsAre("(ot_ifm_handler) Notified of a set of bulk notifications: cnt:1 code=0",
                  "(ot_ifm_handler) Notified of a set of bulk notifications: cnt:1 code=19",
                  "(ot_ifm_handler) Notified of a set of bulk notifications: cnt:1 code=21"));
}

TEST_F(ifm_notifications, a_known_entry_keeps_its_handle) {
  tie_track_to_up_interface();
  bulk{}.exists("Gi1", 99).state(2).deliver();
  EXPECT_EQ(entry()->ifhandle, 5U);
  EXPECT_EQ(track("t").state, track_state::down);
}

TEST_F(ifm_notifications, an_entry_made_by_a_track_keeps_having_no_handle) {
  ASSERT_EQ(object_tracking_type_interface_create("Gi1", "t"), 0);
  bulk{}.exists("Gi1", 5).state(3).redundancy(1).deliver();
  EXPECT_EQ(entry()->ifhandle, 0U);
  EXPECT_EQ(track("t").state, track_state::up);
}

TEST_F(ifm_notifications, a_deleted_interface_sends_its_tracks_down_and_loses_its_handle) {
  tie_track_to_up_interface();
  trace();
  bulk{}.deleted("Gi1", 5).attribute(1, nullptr).deliver();
  EXPECT_EQ(track("t").state, track_state::down);
  ASSERT_NE(entry(), nullptr);
  EXPECT_EQ(entry()->ifhandle, 0U);
  EXPECT_EQ(entry()->effective_state, 2U);
  EXPECT_THAT(field::take_traces(), contains_in_order(text_lines{
                                        "(ot_ifm_handler) Rx IFM attr 1 for Gi1 (5) delete ",
                                        "(ot_intf_delete) Delete Interface Gi1",
                                        "Entering (object_tracking_change_interface_state) : "}));
}

TEST_F(ifm_notifications, a_deleted_interface_that_nobody_follows_loses_its_entry) {
  bulk{}.exists("Gi1", 5).state(3).deliver();
  trace();
  bulk{}.deleted("Gi1", 5).attribute(1, nullptr).deliver();
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_intf_delete) :No tracks for interface Gi1 - delete interface from hash "
                       "and cleanup"));
  EXPECT_EQ(entry(), nullptr);
}

TEST_F(ifm_notifications, a_deleted_interface_without_entry_is_no_matter) {
  EXPECT_EQ(bulk{}.deleted("Gi1", 5).attribute(1, nullptr).deliver(), 0);
  EXPECT_EQ(entry(), nullptr);
}

TEST_F(ifm_notifications, the_redundancy_of_a_deleted_interface_becomes_1) {
  tie_track_to_up_interface();
  bulk{}.exists("Gi1", 5).redundancy(0).deliver();
  bulk{}.deleted("Gi1", 5).redundancy(0).deliver();
  EXPECT_EQ(entry()->redundancy, 1U);
  EXPECT_EQ(track("t").state, track_state::up);  // the line state is still the stored one
}

TEST_F(ifm_notifications, one_message_carries_many_interfaces) {
  bulk{}.exists("Gi1", 5).state(3).exists("Gi2", 6).exists("Gi3", 7).state(2).deliver();
  EXPECT_EQ(entry("Gi1")->effective_state, 3U);
  EXPECT_EQ(entry("Gi2"), nullptr);
  EXPECT_EQ(entry("Gi3")->effective_state, 2U);
}

TEST_F(ifm_notifications, an_unchanged_effective_state_is_not_pushed) {
  tie_track_to_up_interface();
  track("t").source_state = track_state::down;  // would be seen by a push
  bulk{}.exists("Gi1", 5).state(3).redundancy(1).deliver();
  EXPECT_EQ(track("t").source_state, track_state::down);
}

TEST_F(ifm_notifications, a_new_interface_is_traced) {
  trace();
  bulk{}.exists("Gi1", 26).state(3).deliver();
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_ifm_handler) Notified of a set of bulk notifications: cnt:1 code=20",
                  "(ot_ifm_handler) Rx IFM attr 1 for Gi1 (26) exists ",
                  "(ot_intf_state) interface Gi1(1a) not found - creating",
                  "(ot_intf_create) Create Interface Gi1(26)",
                  ("(ot_intf_state) Interface Gi1(1a) new state IFM_STATE_UP/2, old state "
                   "IFM_STATE_UNKNOWN/1"),
                  "Entering (object_tracking_change_interface_state) : ",
              }));
}

TEST_F(ifm_notifications, without_memory_an_interface_is_skipped_and_the_next_handled) {
  trace();
  bulk message;
  message.exists("Gi1", 5).state(3).exists("Gi2", 6).state(3);
  {
    alloc_faults faults{0};
    EXPECT_EQ(message.deliver(), 0);
    EXPECT_TRUE(faults.hit());
  }
  EXPECT_THAT(field::take_traces(),
              contains_in_order(text_lines{
                  "(ot_intf_create) : hash_db_add_new_item failed - no memory to add item - "
                  "Cannot allocate memory",
                  "(ot_intf_state) Create Fail interface Gi1(5) new state IFM_STATE_UP, "
                  "redundancy 2"}));
  EXPECT_EQ(entry("Gi1"), nullptr);
  ASSERT_NE(entry("Gi2"), nullptr);
  EXPECT_EQ(entry("Gi2")->effective_state, 3U);
}

}  // namespace
}  // namespace ot::test
