// Reading and deleting published states, and the ledger's library that both need.
#include "state/ledger_state.h"

#include <chrono>

#include "oper/outlets/notifications.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto not_a_state = static_cast<track_state>(99);

class ledger_state : public running_service {
 protected:
  static void store(std::uint32_t item) {
    ledger_control_put("/oper/gl/object-tracking/t", ledger_kind::u32, bytes_of_numbers({item}));
  }
  std::vector<std::string> notified() {
    field::advance(std::chrono::milliseconds{100});
    return take_notifications();
  }
};

struct reader_row {
  const char* name;
  int (*read)(const char* name, track_state* ret_state) noexcept;
};
const reader_row readers[] = {
    {"object_tracking_ledger_get_prb_track_state", object_tracking_ledger_get_prb_track_state},
    {"ot_ledger_get_track_state", ot_ledger_get_track_state},
};

TEST_F(ledger_state, items_map_to_states) {
  for (const auto& [item, state] : {std::pair{1U, track_state::up},
                                    {2U, track_state::down},
                                    {0U, track_state::unknown},
                                    {3U, track_state::unknown},
                                    {0xffffffffU, track_state::unknown}}) {
    store(item);
    for (const reader_row& reader : readers) {
      track_state read = not_a_state;
      EXPECT_EQ(reader.read("t", &read), 0) << reader.name;
      EXPECT_EQ(read, state) << reader.name << item;
    }
  }
}

TEST_F(ledger_state, a_read_is_traced_in_the_readers_name) {
  store(2);
  for (const reader_row& reader : readers) {
    const std::string who = std::string{"("} + reader.name + ")";
    trace();
    track_state read = not_a_state;
    reader.read("t", &read);
    EXPECT_THAT(field::take_traces(),
                ElementsAre("Entering " + who + " : ", who + ": ledger bind was succesful",
                            who + ": ledger get was succesful", who + ": state = 2"));
  }
}

TEST_F(ledger_state, an_absent_item_is_unknown_and_reported) {
  for (const reader_row& reader : readers) {
    const std::string who = std::string{"("} + reader.name + ")";
    trace();
    track_state read = not_a_state;
    EXPECT_EQ(reader.read("t", &read), ledger_no_data);
    EXPECT_EQ(read, track_state::unknown);
    EXPECT_THAT(field::take_traces(),
                ElementsAre("Entering " + who + " : ", who + ": ledger bind was succesful",
                            who + ": track t probably not configured yet state=Unknown"));
  }
}

TEST_F(ledger_state, a_bind_that_fails_is_unknown_and_reported) {
  store(1);
  for (const reader_row& reader : readers) {
    const std::string who = std::string{"("} + reader.name + ")";
    trace();
    ledger_control_fail_next(ledger_operation::bind, ledger_unreachable);
    track_state read = not_a_state;
    EXPECT_EQ(reader.read("t", &read), ledger_unreachable);
    EXPECT_EQ(read, track_state::unknown);
    EXPECT_THAT(field::take_traces(),
                ElementsAre("Entering " + who + " : ", who + ": ledger bind failed",
                            who + ": track t probably not configured yet state=Unknown"));
  }
}

TEST_F(ledger_state, without_the_library_nothing_is_bound) {
  store(1);
  ledger_control_library(false);
  ledger_control_fail_next(ledger_operation::bind, ledger_unreachable);
  for (const reader_row& reader : readers) {
    track_state read = not_a_state;
    trace();
    EXPECT_EQ(static_cast<std::uint32_t>(reader.read("t", &read)), 0x8081c200U) << reader.name;
    EXPECT_EQ(read, track_state::unknown);
    const std::string who = std::string{"("} + reader.name + ")";
    EXPECT_THAT(field::take_traces(),
                ElementsAre("Entering " + who + " : ",
                            who + ": track t probably not configured yet state=Unknown"));
  }
  EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), ledger_library_missing);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_THAT(notified(), IsEmpty());
  ledger_conn* other = nullptr;
  EXPECT_EQ(ledger_bind("/", &other), ledger_unreachable);  // the failure is still unused
}

TEST_F(ledger_state, the_library_may_come_later_and_is_remembered_then) {
  store(1);
  ledger_control_library(false);
  track_state read = not_a_state;
  EXPECT_EQ(ot_ledger_get_track_state("t", &read), ledger_library_missing);
  ledger_control_library(true);
  EXPECT_EQ(ot_ledger_get_track_state("t", &read), 0);
  EXPECT_EQ(read, track_state::up);
  ledger_control_library(false);
  EXPECT_EQ(ot_ledger_get_track_state("t", &read), 0);
  EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), 0);
}

TEST_F(ledger_state, a_delete_takes_the_item_and_notifies) {
  store(1);
  EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), 0);
  EXPECT_FALSE(published("t").has_value());
  EXPECT_THAT(notified(), ElementsAre("t delete 0"));
}

TEST_F(ledger_state, a_delete_of_nothing_is_success_traced_and_notified) {
  trace();
  EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), 0);
  EXPECT_THAT(field::take_traces(),
              testing::Contains("(object_tracking_delete_item_from_ledger) :  "
                                "LEDGER_OPER_OT_CLIENT del of t failed - No data"));
  EXPECT_THAT(notified(), ElementsAre("t delete 0"));
}

TEST_F(ledger_state, a_delete_that_fails_is_returned_and_still_notified) {
  store(1);
  ledger_control_fail_next(ledger_operation::erase, ledger_storage_failure);
  EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), ledger_storage_failure);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_THAT(notified(), ElementsAre("t delete 0"));
}

TEST_F(ledger_state, a_delete_that_cannot_bind_deletes_and_notifies_nothing) {
  store(1);
  ledger_control_fail_next(ledger_operation::bind, ledger_unreachable);
  EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), ledger_unreachable);
  EXPECT_EQ(published("t"), 1U);
  EXPECT_THAT(notified(), IsEmpty());
}

TEST_F(ledger_state, the_processes_own_connection_is_bound_once_started) {
  EXPECT_STREQ(published_states_path, "/oper/gl/object-tracking/");
  EXPECT_TRUE(is_bound_ot_ha_ledger);
  EXPECT_NE(ot_ha_ledger, nullptr);
  EXPECT_EQ(ledger_write_track_state("t", track_state::up), 0);
  EXPECT_EQ(published("t"), 1U);
  ot_ha_ledger_unbind();
  EXPECT_FALSE(is_bound_ot_ha_ledger);
  EXPECT_EQ(ot_ha_ledger, nullptr);
}

TEST_F(ledger_state, what_binds_for_one_operation_unbinds_after_it) {
  for (const int failure : {0, ledger_storage_failure}) {
    store(1);
    track_state read = not_a_state;
    const std::int64_t before = count_live_allocations().count;
    for (const reader_row& reader : readers) {
      if (failure != 0) ledger_control_fail_next(ledger_operation::get, failure);
      EXPECT_EQ(reader.read("t", &read), failure);
    }
    EXPECT_EQ(count_live_allocations().count, before);
    ledger_control_fail_next(ledger_operation::erase, ledger_storage_failure);
    EXPECT_EQ(object_tracking_delete_item_from_ledger("t"), ledger_storage_failure);
    ot_notifications_drop();
    EXPECT_EQ(count_live_allocations().count, before);
  }
}

}  // namespace
}  // namespace ot::test
