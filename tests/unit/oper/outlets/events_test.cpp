// The event outlet: what is registered, who matches, how subscriptions are copied, what leaves.
#include "oper/outlets/events.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ot_ep_track_event record(std::string_view name, std::uint32_t state, bool any_state = false) {
  return {static_cast<std::uint32_t>(name.size()), any_state ? 1U : 0U, fixed_text<32>{name},
          state};
}

TEST(track_events, the_kind_is_described_for_the_platform) {
  EXPECT_EQ(ot_ep_ev_info.type, 372u);
  EXPECT_EQ(ot_ep_ev_info.name, "event_register_track");
  EXPECT_EQ(ot_ep_ev_info.subscription_size, 48);
  EXPECT_EQ(ot_ep_ev_info.match, ot_ep_match);
  EXPECT_EQ(ot_ep_ev_info.copy_subscriptions, ot_ep_copy_subscriptions);
  EXPECT_EQ(ot_ep_ev_info.reserved1, nullptr);
  EXPECT_EQ(ot_ep_ev_info.reserved2, nullptr);
  EXPECT_EQ(sizeof(ot_ep_track_event), 44u);
  EXPECT_EQ(sizeof(ot_ep_published_event), 36u);
}

// --- Matching ------------------------------------------------------------------------------------

TEST(track_events, a_subscription_matches_its_name_and_state) {
  struct row {
    ot_ep_track_event subscription;
    ot_ep_track_event event;
    int result;
  };
  ot_ep_track_event other_length = record("wan", 1, true);
  other_length.name_length = 4;
  for (const row& each : {
           row{record("wan", 1), record("wan", 1), 1},
           row{record("wan", 1), record("wan", 2), 0},
           row{record("wan", 0), record("wan", 0), 1},
           row{record("wan", 1, true), record("wan", 2), 1},
           row{record("wan", 1, true), record("lan", 1), 0},
           row{record("Wan", 1, true), record("wan", 1), 0},
           row{record("wan", 1, true), record("wan1", 1), 0},
           row{record("wan1", 1, true), record("wan", 1), 0},
           row{other_length, record("wan", 1), 0},
           // Only the subscription's flag counts.
           row{record("wan", 1), record("wan", 2, true), 0},
       }) {
    EXPECT_EQ(ot_ep_match(&each.subscription, &each.event), each.result)
        << each.subscription.name.c_str() << " " << each.subscription.state << " against "
        << each.event.name.c_str() << " " << each.event.state;
  }
}

// --- Copying subscriptions -----------------------------------------------------------------------

struct update {
  std::uint32_t count = 0;
  const void* entries = nullptr;
  int calls = 0;
};
update last_update;

class subscription_copies : public service_fixture {
 protected:
  void SetUp() override {
    last_update = {};
    ot_ep_register(manager, [](std::uint32_t count, const void* entries) {
      last_update = {count, entries, last_update.calls + 1};
    });
  }
  static std::string name_of(const ot_ep_subscription& entry) {
    return {entry.name, strnlen(entry.name, sizeof entry.name)};
  }

  std::uint32_t name_size_ = 0;
  std::uint32_t state_size_ = 0;
};

TEST_F(subscription_copies, names_come_from_texts_at_steps_of_the_stride) {
  std::array<char, 3 * 40> texts{};
  std::strcpy(&texts[0], "a");
  std::strcpy(&texts[40], "second");
  std::strcpy(&texts[80], "the-third");
  std::array<ot_ep_subscription, 3> entries;
  std::memset(entries.data(), 0xff, sizeof entries);
  EXPECT_EQ(
      ot_ep_copy_subscriptions(3, texts.data(), 40, &name_size_, &state_size_, 0, entries.data()),
      0);
  EXPECT_EQ(name_of(entries[0]), "a");
  EXPECT_EQ(name_of(entries[1]), "second");
  EXPECT_EQ(name_of(entries[2]), "the-third");
  EXPECT_EQ(name_size_, 32u);
  EXPECT_EQ(state_size_, 16u);
}

TEST_F(subscription_copies, names_come_from_event_records_whatever_the_stride) {
  const ot_ep_track_event events[] = {record("x", 1), record("yy", 2, true)};
  std::array<ot_ep_subscription, 2> entries;
  EXPECT_EQ(ot_ep_copy_subscriptions(2, events, 1, &name_size_, &state_size_, 1, entries.data()),
            0);
  EXPECT_EQ(name_of(entries[0]), "x");
  EXPECT_EQ(name_of(entries[1]), "yy");
}

TEST_F(subscription_copies, a_name_holds_32_characters) {
  const std::string name(45, 'n');
  ot_ep_subscription entry;
  ot_ep_copy_subscriptions(1, name.c_str(), 64, &name_size_, &state_size_, 0, &entry);
  EXPECT_EQ(name_of(entry), std::string(32, 'n'));
}

TEST_F(subscription_copies, the_update_callback_gets_the_entries) {
  const ot_ep_track_event events[] = {record("x", 1), record("y", 2)};
  std::array<ot_ep_subscription, 2> entries;
  ot_ep_copy_subscriptions(2, events, 44, &name_size_, &state_size_, 1, entries.data());
  EXPECT_EQ(last_update.calls, 1);
  EXPECT_EQ(last_update.count, 2u);
  EXPECT_EQ(last_update.entries, entries.data());
}

TEST_F(subscription_copies, without_a_destination_nothing_happens) {
  const ot_ep_track_event event = record("x", 1);
  name_size_ = 7;
  EXPECT_EQ(ot_ep_copy_subscriptions(1, &event, 44, &name_size_, &state_size_, 1, nullptr), 12);
  EXPECT_EQ(name_size_, 7u);
  EXPECT_EQ(last_update.calls, 0);
}

TEST_F(subscription_copies, a_subscriber_reaches_the_update_callback) {
  evdl_subscriber* subscriber = nullptr;
  const evdl_filter filters[] = {{"a", true, 0}, {"b", false, 2}};
  ASSERT_EQ(evdl_subscribe(filters, &subscriber), 0);
  EXPECT_EQ(last_update.calls, 1);
  EXPECT_EQ(last_update.count, 2u);
  evdl_unsubscribe(subscriber);
}

// --- Registering and publishing ------------------------------------------------------------------

class event_outlet : public service_fixture {
 protected:
  void SetUp() override { ot_ep_evd_handle = nullptr; }
};

TEST_F(event_outlet, publishing_before_registering_does_nothing) {
  const ot_ep_track_event event = record("t", 1);
  EXPECT_EQ(ot_ep_publish(&event, 1), 0);
  EXPECT_EQ(field::events_published(), 0u);
}

TEST_F(event_outlet, without_memory_nothing_is_registered_and_nothing_said) {
  trace();
  {
    alloc_faults faults{0};
    ot_ep_register(manager, nullptr);
    EXPECT_TRUE(faults.hit());
  }
  EXPECT_EQ(ot_ep_evd_handle, nullptr);
  EXPECT_THAT(field::take_messages(), IsEmpty());
  const ot_ep_track_event event = record("t", 1);
  EXPECT_EQ(ot_ep_publish(&event, 1), 0);
}

TEST_F(event_outlet, a_platform_that_refuses_leaves_it_unregistered) {
  field::fail_next("evdl_publisher_register", 5);
  ot_ep_register(manager, nullptr);
  EXPECT_EQ(ot_ep_evd_handle, nullptr);
}

TEST_F(event_outlet, the_registration_does_not_keep_its_memory) {
  ot_ep_register(manager, nullptr);
  const auto before = count_live_allocations().count;
  ot_ep_register(manager, nullptr);
  EXPECT_EQ(count_live_allocations().count, before);
}

TEST_F(event_outlet, a_batch_leaves_in_order_with_name_and_state) {
  ot_ep_register(manager, nullptr);
  take_events();
  const ot_ep_track_event events[] = {record("a", 1), record(std::string(31, 'b'), 2),
                                      record("a", 0)};
  EXPECT_EQ(ot_ep_publish(events, 3), 0);
  EXPECT_THAT(take_events(), ElementsAre("a 1", std::string(31, 'b') + " 2", "a 0"));
}

TEST_F(event_outlet, a_single_event_needs_no_memory_and_a_batch_without_is_12) {
  ot_ep_register(manager, nullptr);
  take_events();
  const ot_ep_track_event events[] = {record("a", 1), record("b", 2)};
  int one = -1;
  int two = -1;
  {
    alloc_faults faults{0, alloc_fault_mode::onward};
    one = ot_ep_publish(events, 1);
    two = ot_ep_publish(events, 2);
  }
  EXPECT_EQ(one, 0);
  EXPECT_EQ(two, 12);
  EXPECT_THAT(take_events(), ElementsAre("a 1"));
}

TEST_F(event_outlet, the_platforms_result_comes_back) {
  ot_ep_register(manager, nullptr);
  field::fail_next("evdl_event_publish", 32);
  const ot_ep_track_event event = record("t", 1);
  EXPECT_EQ(ot_ep_publish(&event, 1), 32);
}

}  // namespace
}  // namespace ot::test
