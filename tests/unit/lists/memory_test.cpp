// Lists without memory: every allocation of every change fails once.
#include "platform/memory/alloc_faults.h"

#include "config/delays.h"
#include "config/lifecycle.h"
#include "lists/boolean_list.h"
#include "lists/threshold_list.h"
#include "platform/status.h"
#include "sources/interface/track.h"
#include "sources/probe/track.h"
#include "sources/route/track.h"
#include "state/list_evaluation.h"
#include "state/track_record.h"
#include "tests/support/ip_address.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

class list_memory : public list_fixture {
 protected:
  // Undoes what a run made, the loss of the whole table included.
  static void forget(const char* name) {
    if (tracks_table.buckets == nullptr) {
      ASSERT_EQ(tracks_table_create(), 0);
    }
    ASSERT_EQ(object_tracking_track_delete(name), 0);
    field::advance(std::chrono::seconds(1));
    field::take_messages();
    ledger_control_take_notifications();
  }

  // Fails each allocation of `create`, which makes the track "l".
  template <typename Create>
  static void check_creation(Create&& create) {
    forget("l");
    int status = 0;
    const std::int64_t before = count_live_allocations().count;
    const std::uint64_t failed =
        for_each_failing_allocation([&] { status = create(); },
                                    [&](std::uint64_t k, bool hit) {
                                      EXPECT_EQ(status, hit ? no_memory : status_ok) << k;
                                      EXPECT_EQ(hash_db_get_track_item("l") != nullptr, !hit) << k;
                                      forget("l");
                                      EXPECT_EQ(count_live_allocations().count, before) << k;
                                    });
    EXPECT_GE(failed, 3U) << "the timer's context, its leaf, the table's entry at least";
  }
};

TEST_F(list_memory, a_new_boolean_list_is_made_whole_or_not_at_all) {
  check_creation(
      [] { return object_tracking_type_bool_create("l", track_type::boolean_or, "a", 1); });
}

TEST_F(list_memory, a_new_threshold_list_is_made_whole_or_not_at_all) {
  check_creation([] { return ot_thld_create_track("l", track_type::threshold_weight, "a", 9); });
  check_creation(
      [] { return ot_thld_create_track("l", track_type::threshold_weight, nullptr, 0); });
}

TEST_F(list_memory, a_new_track_without_memory_costs_every_track) {
  ASSERT_EQ(object_tracking_set_create_track_delay("other", 0, 0, true), 0);
  std::uint64_t dropped = 0;
  for_each_failing_allocation(
      [] { object_tracking_type_bool_create("l", track_type::boolean_and, "a", 0); },
      [&](std::uint64_t, bool) {
        dropped += tracks_table.buckets == nullptr ? 1 : 0;
        forget("l");
        ASSERT_EQ(object_tracking_set_create_track_delay("other", 0, 0, true), 0);
      });
  EXPECT_EQ(dropped, 1U) << "only when the table itself has no room";
}

TEST_F(list_memory, a_member_that_finds_no_room_is_not_added) {
  list("l", 3, {{"a"}});
  list("w", 7, {{"a", 4}});
  alloc_faults faults{0, alloc_fault_mode::onward};
  EXPECT_EQ(object_tracking_type_bool_create("l", track_type::boolean_and, "b", 0), no_memory);
  EXPECT_EQ(ot_thld_create_track("w", track_type::threshold_weight, "b", 5), no_memory);
  EXPECT_EQ(track("l").object.list.members->next, nullptr);
  EXPECT_EQ(track("w").object.list.members->next, nullptr);
}

// The old member goes before the new one comes.
TEST_F(list_memory, a_changed_member_that_finds_no_room_is_lost) {
  list("l", 3, {{"a"}, {"b"}});
  ledger_value old_value;
  ledger_value new_value;
  ASSERT_EQ(ledger_value_assign(old_value, ledger_kind::u32, bytes_of_numbers({0})), 0);
  ASSERT_EQ(ledger_value_assign(new_value, ledger_kind::u32, bytes_of_numbers({1})), 0);
  const ledger_path_field fields[] = {{"l", 0}, {"0x3", 3}, {"a", 0}};
  {
    const alloc_faults faults{0};
    EXPECT_EQ(
        object_tracking_type_bool_object_apply({ledger_event_set, fields, &old_value, &new_value}),
        no_memory);
  }
  EXPECT_EQ(members("l"), "b=0");
  EXPECT_FALSE(calculation_requested()) << "a failed change requests nothing";
}

TEST_F(list_memory, removing_needs_none) {
  list("l", 3, {{"a"}});
  list("w", 7, {{"l", 2}});
  std::uint64_t count = 0;
  {
    const alloc_faults faults{0, alloc_fault_mode::onward};
    delete_track_bool_object("l", "a");
    ot_thld_del_obj_from_track("w", "l");
    count = faults.count();
  }
  EXPECT_EQ(count, 0U);
}

// What it would put down to be faster is left out.
TEST_F(list_memory, calculating_does_without) {
  object("a", true);
  list("l", 3, {{"m"}});
  list("m", 4, {{"n"}});
  limits("n", 7, "0x5", 1);
  list("n", 7, {{"a", 2}});
  ASSERT_EQ(state("l"), track_state::up);
  for (std::uint64_t k = 0; k < 8; ++k) {
    track("a").source_state = k % 2 == 0 ? track_state::down : track_state::up;
    const alloc_faults faults{k, alloc_fault_mode::onward};
    object_tracking_calc_tracks_state_after_timer_expired();
    const alloc_faults_paused pause;
    for (const char* name : {"l", "m", "n"}) {
      EXPECT_EQ(source(name), track("a").source_state) << name << ' ' << k;
    }
  }
}

// One commit may name a track twice; what it was first must not leak.
TEST_F(list_memory, a_track_that_stops_being_a_list_gives_its_members_up) {
  forget("l");
  const std::int64_t before = count_live_allocations().count;
  ASSERT_EQ(object_tracking_type_bool_create("l", track_type::boolean_and, "a", 0), 0);
  const std::int64_t with_member = count_live_allocations().count;
  ASSERT_EQ(ot_thld_create_track("l", track_type::interface, nullptr, 0), 0);
  EXPECT_EQ(track("l").type, track_type::interface);
  EXPECT_EQ(track("l").object.interface.name.c_str()[0], '\0');
  EXPECT_EQ(count_live_allocations().count, with_member - 1);
  forget("l");
  EXPECT_EQ(count_live_allocations().count, before);
}

TEST_F(list_memory, a_track_that_stops_being_a_threshold_list_gives_its_members_up) {
  forget("l");
  ASSERT_EQ(ot_thld_create_track("l", track_type::threshold_weight, "a", 4), 0);
  const std::int64_t with_member = count_live_allocations().count;
  ASSERT_EQ(ot_thld_create_track("l", track_type::interface, nullptr, 0), 0);
  EXPECT_EQ(count_live_allocations().count, with_member - 1);
}

// Every way on which a list ends or becomes something else. An item of another type may have been
// committed together with the members, and be taken away later.
struct way_out {
  const char* name;
  int (*take)();
};
const way_out ways_out[] = {
    {"deletion", [] { return object_tracking_track_delete("l"); }},
    {"removal of the members by name",
     [] { return object_tracking_delete_track_bool_objects_by_name("l"); }},
    {"an interface", [] { return object_tracking_type_interface_create("Gi1", "l"); }},
    {"a route",
     [] {
       return object_tracking_type_route_create("l", nullptr, ip("10.1.0.0"), ip("255.255.0.0"),
                                                true);
     }},
    {"an operation", [] { return object_tracking_type_prb_create("l", 7); }},
    {"the end of an interface", [] { return delete_track_from_interface_entry("Gi1", "l"); }},
    {"the end of a route", [] { return object_tracking_type_route_delete("l"); }},
    {"the end of an operation", [] { return object_tracking_type_prb_delete("l"); }},
    {"a type that is no list",
     [] { return ot_thld_create_track("l", track_type::interface, nullptr, 0); }},
    {"the loss of the table",
     [] {
       drop_all_tracks();
       return status_ok;
     }},
};
constexpr track_type list_types[] = {track_type::boolean_and, track_type::boolean_or,
                                     track_type::threshold_weight,
                                     track_type::threshold_percentage};

TEST_F(list_memory, members_are_freed_on_every_way_out_of_every_list) {
  field::interface_added("Gi1");
  field::run_pending();
  const auto run = [](track_type type, const way_out& way) {
    for (const char* member : {"a", "b", "c"}) {
      const bool threshold =
          type == track_type::threshold_weight || type == track_type::threshold_percentage;
      ASSERT_EQ(threshold ? ot_thld_create_track("l", type, member, 1)
                          : object_tracking_type_bool_create("l", type, member, 0),
                0);
    }
    field::advance(std::chrono::seconds(1));
    EXPECT_EQ(way.take(), 0) << way.name;
    forget("l");
  };
  for (const way_out& way : ways_out) {
    run(track_type::boolean_and, way);  // what is made once and kept
    const std::int64_t before = count_live_allocations().count;
    for (const track_type type : list_types) {
      run(type, way);
      EXPECT_EQ(count_live_allocations().count, before)
          << way.name << " of type " << static_cast<int>(type);
    }
  }
}

TEST_F(list_memory, a_list_that_loses_the_item_of_another_type_has_neither_type_nor_members) {
  field::interface_added("Gi1");
  for (const way_out& way : {ways_out[5], ways_out[6], ways_out[7]}) {
    ASSERT_EQ(object_tracking_type_bool_create("l", track_type::boolean_and, "a", 0), 0);
    ASSERT_EQ(way.take(), 0) << way.name;
    EXPECT_EQ(track("l").type, track_type::none) << way.name;
    EXPECT_EQ(track("l").object.list.members, nullptr) << way.name;
    forget("l");
  }
}

TEST_F(list_memory, a_commit_may_take_the_first_of_two_types_away) {
  field::interface_added("eth0");
  const std::string item = track_path("l", "type/interface/0x1/info/interface");
  apply({set_text(item, "eth0"), set_number(member_item("l", 3, "a"), 0)});
  ASSERT_EQ(members("l"), "a=0");
  apply({remove_item(item)});
  EXPECT_EQ(track("l").type, track_type::none);
  EXPECT_EQ(hash_db_get_interface_item("eth0")->tracks, nullptr);
  apply({set_number(member_item("l", 3, "b"), 1)});
  EXPECT_EQ(members("l"), "b=1");
}

TEST_F(list_memory, a_list_keeps_its_members_as_another_kind_of_list) {
  list("l", 7, {{"a", 4}});
  ASSERT_EQ(ot_thld_create_track("l", track_type::threshold_percentage, "b", 4), 0);
  EXPECT_EQ(members("l"), "b=1 a=4");
}

TEST_F(list_memory, a_commit_may_make_a_track_a_list_and_then_an_interface_track) {
  field::interface_added("eth0");
  apply({set_number(member_item("l", 3, "a"), 0),
         set_text(track_path("l", "type/interface/0x1/info/interface"), "eth0")});
  EXPECT_EQ(track("l").type, track_type::interface);
  EXPECT_STREQ(track("l").object.interface.name.c_str(), "eth0");
  EXPECT_EQ(state("l"), track_state::up);
}

TEST_F(list_memory, a_commit_may_make_a_track_an_interface_track_and_then_a_list) {
  field::interface_added("eth0");
  apply({set_text(track_path("l", "type/interface/0x1/info/interface"), "eth0"),
         set_number(member_item("l", 3, "a"), 0)});
  EXPECT_EQ(track("l").type, track_type::boolean_and);
  EXPECT_EQ(members("l"), "a=0");
}

}  // namespace
}  // namespace ot::test
