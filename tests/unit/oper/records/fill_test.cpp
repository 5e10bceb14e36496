// What a record says of a track of each type.
#include "oper/records/build.h"

#include <arpa/inet.h>

#include "oper/records/tracking_interfaces.h"
#include "tests/unit/oper/records/tracks.h"

namespace ot::test {
namespace {

using testing::Contains;

class record_fill : public record_tracks {
 protected:
  static owned_record<track_info__> filled(const ot_track& track) {
    owned_record<track_info__> record(track_info___brec);
    EXPECT_EQ(ot_fill_track_info(track, *record), 0);
    return record;
  }
  static owned_record<track_info_brief__> filled_brief(const ot_track& track) {
    owned_record<track_info_brief__> record(track_info_brief___brec);
    EXPECT_EQ(ot_fill_track_info_brief(track, *record), 0);
    return record;
  }
};

TEST_F(record_fill, every_record_has_name_state_and_changes) {
  ot_track& made = add_interface("uplink", "eth0", track_state::down);
  made.state_change_counter = 7;
  auto record = filled(made);
  EXPECT_EQ(record->TrackeName.view(), "uplink");
  EXPECT_EQ(record->Type, track_type::interface);
  EXPECT_FALSE(record->TrackState);
  EXPECT_EQ(record->StateChangeCounter, 7U);
  EXPECT_EQ(record->SecondsLastChange, 1'700'000'000U);
  EXPECT_EQ(record->Delayed, nullptr);
  EXPECT_EQ(record->TrackingInteraces, nullptr);
  made.state = track_state::up;
  EXPECT_TRUE(filled(made)->TrackState);
  EXPECT_TRUE(filled_brief(made)->TrackState);
  made.state = track_state::unknown;
  EXPECT_FALSE(filled(made)->TrackState);
}

TEST_F(record_fill, the_published_state_is_reported_and_not_the_source_state) {
  ot_track& made = add_interface("uplink", "eth0", track_state::down);
  made.source_state = track_state::up;
  EXPECT_FALSE(filled(made)->TrackState);
}

TEST_F(record_fill, names_of_up_to_32_characters_fit) {
  const std::string longest(32, 'n');
  EXPECT_EQ(filled(add(longest, track_type::none))->TrackeName.view(), longest);
  EXPECT_EQ(filled(add(longest + "1234567", track_type::none))->TrackeName.view(), longest);
}

TEST_F(record_fill, an_interface_gives_at_most_63_characters) {
  const std::string name(70, 'i');
  const auto record = filled(add_interface("t", name));
  EXPECT_EQ(record->TrackTypeInfo.discriminant, 1U);
  EXPECT_EQ(record->TrackTypeInfo.InterfaceTracks.InterfaceName.view(), name.substr(0, 63));
}

TEST_F(record_fill, a_route_reports_its_mask_as_length) {
  ot_track& made = add("r", track_type::route);
  made.object.route.prefix = inet_addr("10.1.0.0");
  made.object.route.mask = inet_addr("255.255.0.0");
  made.object.route.vrf.assign("blue");
  for (const auto& info : {filled(made)->TrackTypeInfo, filled_brief(made)->TrackTypeInfo}) {
    EXPECT_EQ(info.discriminant, 2U);
    EXPECT_EQ(info.RouteTracks.Prefix, inet_addr("10.1.0.0"));
    EXPECT_EQ(info.RouteTracks.PrefixLength, inet_addr("255.255.0.0"));
    EXPECT_EQ(info.RouteTracks.VRF.view(), "blue");
  }
}

TEST_F(record_fill, a_route_has_a_next_hop_while_its_object_is_up_whatever_is_published) {
  field::route_added("10.1.0.0", 16, "eth4");
  ot_track& made = add("r", track_type::route);
  made.object.route.prefix = inet_addr("10.1.0.0");
  made.object.route.mask = inet_addr("255.255.0.0");
  made.object.route.vrf.assign("default");
  const auto next_hops = [&] {
    return lines{std::string{filled(made)->TrackTypeInfo.RouteTracks.NextHop.view()},
                 std::string{filled_brief(made)->TrackTypeInfo.RouteTracks.NextHop.view()}};
  };
  made.state = track_state::down;
  EXPECT_EQ(next_hops(), lines(2, "eth4"));
  made.state = track_state::up;
  made.source_state = track_state::down;
  EXPECT_EQ(next_hops(), lines(2, ""));
  made.source_state = track_state::unknown;
  EXPECT_EQ(next_hops(), lines(2, ""));
}

TEST_F(record_fill, a_next_hop_that_cannot_be_looked_up_is_empty_and_traced) {
  field::route_added("10.1.0.0", 16, "eth4");
  ot_track& made = add("r", track_type::route);
  made.object.route.prefix = inet_addr("10.1.0.0");
  made.object.route.mask = inet_addr("255.255.0.0");
  made.object.route.vrf.assign("default");
  field::fail_next("rtclient_lookup", 5);
  trace();
  EXPECT_EQ(filled(made)->TrackTypeInfo.RouteTracks.NextHop.view(), "");
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_fill_track_info) : ot_fec_lookup for ip 10.1.0.0 vrf default failed - "
                       "Input/output error"));
}

TEST_F(record_fill, a_probe_has_a_response_time_only_after_success) {
  struct row {
    std::uint32_t operation, code, time, reported_operation, reported_code, reported_time;
  };
  ot_track& made = add("p", track_type::probe);
  for (const row& wanted : {row{7, 1, 12, 7, 1, 12}, row{7, 2, 12, 7, 2, 0}, row{7, 0, 12, 7, 0, 0},
                            row{0, 1, 12, 0, 0, 0}}) {
    made.object.probe = {wanted.operation, wanted.time, wanted.code};
    const auto record = filled(made);
    const prb_track_info__& probe = record->TrackTypeInfo.QmonTracks;
    EXPECT_EQ(record->TrackTypeInfo.discriminant, 5U);
    EXPECT_EQ(probe.QmonOpId, wanted.reported_operation);
    EXPECT_EQ(probe.ReturnCode, wanted.reported_code);
    EXPECT_EQ(probe.RTT, wanted.reported_time);
  }
}

TEST_F(record_fill, a_bfd_session_reports_its_settings) {
  ot_track& made = add("b", track_type::bfd);
  made.object.bfd.destination = inet_addr("192.0.2.9");
  made.object.bfd.rate = 300;
  made.object.bfd.debounce_count = 3;
  made.object.bfd.interface.assign("eth7");
  const auto record = filled_brief(made);
  const bfdprb_track_info__& bfd = record->TrackTypeInfo.BFDTracks;
  EXPECT_EQ(record->TrackTypeInfo.discriminant, 9U);
  EXPECT_EQ(bfd.InterfaceName.view(), "eth7");
  EXPECT_EQ(bfd.DestinationAddress, inet_addr("192.0.2.9"));
  EXPECT_EQ(bfd.Rate, 300U);
  EXPECT_EQ(bfd.DebounceCount, 3U);
}

TEST_F(record_fill, boolean_members_stand_in_their_order) {
  add_interface("up", "eth0", track_state::up);
  add_interface("down", "eth1", track_state::down);
  for (const track_type type : {track_type::boolean_and, track_type::boolean_or}) {
    const std::string name = type == track_type::boolean_and ? "and" : "or";
    const auto record = filled(add_list(name, type, {{"down", 1}, {"absent", 0}, {"up", 0}}));
    EXPECT_EQ(record->Type, type);
    EXPECT_EQ(record->TrackTypeInfo.discriminant, 6U);
    const bool_track_info__* member = record->BoolTracks;
    ASSERT_NE(member, nullptr);
    EXPECT_EQ(member->ObjectName.view(), "down");
    EXPECT_FALSE(member->TrackState);
    EXPECT_TRUE(member->WithNot);
    member = member->next;
    EXPECT_EQ(member->ObjectName.view(), "absent");
    EXPECT_FALSE(member->TrackState);
    EXPECT_FALSE(member->WithNot);
    member = member->next;
    EXPECT_EQ(member->ObjectName.view(), "up");
    EXPECT_TRUE(member->TrackState);
    EXPECT_EQ(member->next, nullptr);
    EXPECT_EQ(record->ThresholdTracks, nullptr);
    EXPECT_EQ(record->ThresholdUp, nullptr);
  }
}

TEST_F(record_fill, any_flag_but_0_is_a_not) {
  const auto record =
      filled(add_list("l", track_type::boolean_or, {{"a", 0}, {"b", 1}, {"c", 0x80000000U}}));
  const bool_track_info__* member = record->BoolTracks;
  EXPECT_FALSE(member->WithNot);
  EXPECT_TRUE(member->next->WithNot);
  EXPECT_TRUE(member->next->next->WithNot);
}

TEST_F(record_fill, a_member_stands_with_its_published_state) {
  add_interface("held", "eth0", track_state::up).source_state = track_state::down;
  const auto boolean = filled(add_list("or", track_type::boolean_or, {{"held", 0}}));
  EXPECT_TRUE(boolean->BoolTracks->TrackState);
  const auto threshold = filled(add_list("sum", track_type::threshold_weight, {{"held", 1}}));
  EXPECT_TRUE(threshold->ThresholdTracks->TrackState);
}

TEST_F(record_fill, a_member_whose_change_to_up_is_held_back_is_not_up_yet) {
  add_interface("held", "eth0", track_state::down).source_state = track_state::up;
  const auto boolean = filled(add_list("or", track_type::boolean_or, {{"held", 0}}));
  EXPECT_FALSE(boolean->BoolTracks->TrackState);
  const auto threshold = filled(add_list("sum", track_type::threshold_weight, {{"held", 1}}));
  EXPECT_FALSE(threshold->ThresholdTracks->TrackState);
}

TEST_F(record_fill, threshold_lists_report_limits_and_weights) {
  add_interface("up", "eth0");
  for (const track_type type : {track_type::threshold_weight, track_type::threshold_percentage}) {
    const std::string name = type == track_type::threshold_weight ? "weight" : "percentage";
    ot_track& made = add_list(name, type, {{"up", 30}, {"absent", 1}});
    made.threshold_up = 50;
    const auto record = filled(made);
    EXPECT_EQ(record->TrackTypeInfo.discriminant, 6U);
    EXPECT_EQ(*record->ThresholdUp, 50U);
    EXPECT_EQ(*record->ThresholdDown, 0U);
    const threshold_track_info__* member = record->ThresholdTracks;
    ASSERT_NE(member, nullptr);
    EXPECT_TRUE(member->TrackState);
    EXPECT_EQ(member->Weight, 30U);
    EXPECT_EQ(member->next->ObjectName.view(), "absent");
    EXPECT_FALSE(member->next->TrackState);
    EXPECT_EQ(record->BoolTracks, nullptr);
  }
}

TEST_F(record_fill, a_brief_record_of_a_list_has_no_member_of_the_union) {
  const auto record = filled_brief(add_list("l", track_type::boolean_or, {{"m", 0}}));
  EXPECT_EQ(record->Type, track_type::boolean_or);
  EXPECT_EQ(record->TrackTypeInfo.discriminant, 6U);
}

TEST_F(record_fill, a_track_without_type_is_of_type_6) {
  const auto record = filled(add("new", track_type::none));
  EXPECT_EQ(record->Type, track_type::none);
  EXPECT_EQ(record->TrackTypeInfo.discriminant, 6U);
}

TEST_F(record_fill, a_running_delay_is_reported_when_it_will_change_what_is_seen) {
  using enum track_state;
  struct row {
    track_state published, waiting;
    bool reported;
  };
  for (const row& wanted :
       {row{up, down, true}, row{down, up, true}, row{unknown, up, true}, row{up, unknown, true},
        row{down, unknown, true}, row{unknown, down, false}, row{up, up, false},
        row{down, down, false}, row{unknown, unknown, false}}) {
    ot_track made = add("t", track_type::interface, wanted.published);
    start_delay(made, 30, wanted.waiting);
    field::advance(std::chrono::milliseconds(9500));
    const auto record = filled(made);
    ASSERT_EQ(record->Delayed != nullptr, wanted.reported)
        << static_cast<int>(wanted.published) << static_cast<int>(wanted.waiting);
    if (wanted.reported) {
      EXPECT_EQ(record->Delayed->TimeRemaining, 21U);
      EXPECT_EQ(record->Delayed->TrackState, wanted.waiting == up);
    }
    stop_ot_timer(made.delay_timer);
    EXPECT_EQ(filled(made)->Delayed, nullptr);
    release_track_timers(track("t"));
    hash_db_delete(tracks_table, "t");
  }
}

TEST_F(record_fill, out_of_memory_leaves_nothing_behind) {
  add_interface("up", "eth0");
  ASSERT_EQ(commit({follows("eth0", "service-a", "list"), follows("eth1", "service-a", "list")}),
            0);
  for (const track_type type : {track_type::boolean_and, track_type::threshold_weight}) {
    ot_track& made = add_list(type == track_type::boolean_and ? "list" : "list2", type,
                              {{"up", 1}, {"absent", 1}}, track_state::down);
    made.name.assign("list");
    start_delay(made, 10, track_state::up);
    int result = 0;
    auto* record = brec_alloc<track_info__>();
    forget_tracking_interfaces();
    const live_allocations before = count_live_allocations();
    const auto runs = for_each_failing_allocation(
        [&] { result = ot_fill_track_info(made, *record); },
        [&](std::uint64_t k, bool) {
          if (result == 0) {
            // No memory for the index: the interfaces were found by walking.
            EXPECT_NE(record->TrackingInteraces->next, nullptr);
            EXPECT_NE(record->Delayed, nullptr);
          } else {
            EXPECT_EQ(result, no_memory);
          }
          brec_release(track_info___brec, record);
          forget_tracking_interfaces();
          EXPECT_EQ(count_live_allocations().count, before.count) << "allocation " << k;
        });
    EXPECT_GE(runs, 5U);
    EXPECT_EQ(result, 0);
    brec_free(track_info___brec, record);
  }
}

TEST_F(record_fill, failures_are_traced) {
  const ot_track& made = add_list("l", track_type::threshold_weight, {{"m", 1}});
  ASSERT_EQ(commit({follows("eth0", "service-a", "l")}), 0);
  lines traced;
  trace();
  track_info__ record;
  for_each_failing_allocation([&] { ot_fill_track_info(made, record); },
                              [&](std::uint64_t, bool) {
                                brec_release(track_info___brec, &record);
                                const lines some = field::take_traces();
                                traced.insert(traced.end(), some.begin(), some.end());
                              });
  EXPECT_THAT(traced,
              Contains("(ot_fill_track_info) : Failed to alloc memory for bool_track_info"));
  EXPECT_THAT(traced, Contains("(ot_fill_intf_tracking_info) : malloc failed"));
}

}  // namespace
}  // namespace ot::test
