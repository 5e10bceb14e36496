// The JSON of tracks: a stable set of members, filled by the track's type.
#include "tools/trackctl/track.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/tools/zone.h"
#include "tools/trackctl/json_text.h"

namespace ot::trackctl {
namespace {

using json = nlohmann::ordered_json;

track_info__ record_of(std::string_view name, track_type type) {
  track_info__ record{};
  record.TrackeName.assign(name);
  record.Type = type;
  return record;
}

TEST(track_json, interface_track_in_full) {
  track_info__ record = record_of("uplink", track_type::interface);
  record.TrackState = true;
  record.StateChangeCounter = 3;
  record.SecondsLastChange = 1795258380;
  record.TrackTypeInfo.InterfaceTracks.InterfaceName.assign("eth0");
  delayed_state_status__ delayed{4, false};
  record.Delayed = &delayed;
  interface_tracking_info__ service{};
  service.InterfaceName.assign("eth1");
  record.TrackingInteraces = &service;

  const test_zone zone("UTC");
  EXPECT_EQ(track_to_json(record, {.published = true, .delay_up = 0, .delay_down = 10}),
            json::parse(R"({"name": "uplink", "type": "interface", "state": "up", "changes": 3,
                            "last_change": "2026-11-21T10:53:00.000+00:00", "delay_up": 0, "delay_down": 10,
                            "pending": {"state": "down", "seconds": 4},
                            "object": {"interface": "eth0"}, "members": [], "limits": null,
                            "tracked_by": ["eth1"]})"));
}

TEST(track_json, is_text_whatever_the_name_is) {
  const track_info__ record = record_of("bad\xffname", track_type::interface);
  const json shown = track_to_json(record, {.published = false});
  EXPECT_NE(json_text(shown).find("\"name\": \"bad\xEF\xBF\xBDname\""), std::string::npos);
  EXPECT_NE(json_line(shown).find("\"name\":\"bad\xEF\xBF\xBDname\""), std::string::npos);
}

TEST(track_json, state_is_unknown_until_something_was_published) {
  const track_info__ record = record_of("t", track_type::interface);
  EXPECT_EQ(track_to_json(record, {.published = false})["state"], "unknown");
  EXPECT_TRUE(track_to_json(record, {.published = false})["last_change"].is_null());
  EXPECT_EQ(track_to_json(record, {.published = true})["state"], "down");
}

TEST(track_json, state_is_unknown_while_a_probe_has_no_result) {
  track_info__ record = record_of("t", track_type::probe);
  EXPECT_EQ(track_to_json(record, {.published = true})["state"], "unknown");
  record.TrackTypeInfo.QmonTracks.ReturnCode = 2;
  EXPECT_EQ(track_to_json(record, {.published = true})["state"], "down");
  record.TrackTypeInfo.QmonTracks.ReturnCode = 0;
  record.TrackState = true;  // the change waits for its delay
  EXPECT_EQ(track_to_json(record, {.published = true})["state"], "up");
}

TEST(track_json, route_has_dotted_prefix_and_mask) {
  track_info__ record = record_of("t", track_type::route);
  route_track_info__ route{};
  route.Prefix = htonl(0x0a010000);
  route.PrefixLength = htonl(0xffff0000);
  route.VRF.assign("default");
  record.TrackTypeInfo.RouteTracks = route;
  EXPECT_EQ(track_to_json(record, {})["object"],
            json::parse(R"({"prefix": "10.1.0.0", "mask": "255.255.0.0", "vrf": "default",
                            "next_hop": null})"));
  record.TrackTypeInfo.RouteTracks.NextHop.assign("eth0");
  EXPECT_EQ(track_to_json(record, {})["object"]["next_hop"], "eth0");
}

TEST(track_json, lists_have_members_in_order) {
  track_info__ record = record_of("both", track_type::boolean_and);
  bool_track_info__ second{nullptr, record_name("b"), false, true};
  bool_track_info__ first{&second, record_name("a"), true, false};
  record.BoolTracks = &first;
  const json shown = track_to_json(record, {});
  EXPECT_EQ(shown["type"], "and");
  EXPECT_TRUE(shown["object"].is_null());
  EXPECT_EQ(shown["members"], json::parse(R"([{"name": "a", "state": "up", "not": false},
                                              {"name": "b", "state": "down", "not": true}])"));
}

TEST(track_json, threshold_lists_have_weights_and_limits) {
  track_info__ record = record_of("sum", track_type::threshold_weight);
  threshold_track_info__ member{nullptr, record_name("a"), true, 30};
  std::uint32_t up = 50;
  std::uint32_t down = 20;
  record.ThresholdTracks = &member;
  record.ThresholdUp = &up;
  record.ThresholdDown = &down;
  const json shown = track_to_json(record, {});
  EXPECT_EQ(shown["type"], "weight");
  EXPECT_EQ(shown["members"], json::parse(R"([{"name": "a", "state": "up", "weight": 30}])"));
  EXPECT_EQ(shown["limits"], json::parse(R"({"up": 50, "down": 20})"));
}

TEST(track_json, members_that_are_not_configured_are_flagged) {
  track_info__ record = record_of("sum", track_type::threshold_percentage);
  threshold_track_info__ second{nullptr, record_name("gone"), false, 1};
  threshold_track_info__ first{&second, record_name("there"), false, 1};
  record.ThresholdTracks = &first;
  json shown = track_to_json(record, {});
  flag_missing_members(shown, [](std::string_view name) { return name == "there"; });
  EXPECT_EQ(shown["members"][0]["missing"], false);
  EXPECT_EQ(shown["members"][1]["missing"], true);
  json interface = track_to_json(record_of("t", track_type::interface), {});
  flag_missing_members(interface, [](std::string_view) { return false; });
  EXPECT_EQ(interface["members"], json::array());
}

TEST(track_json, every_type_has_its_word) {
  const std::map<track_type, std::string> words{
      {track_type::interface, "interface"},
      {track_type::route, "route"},
      {track_type::boolean_and, "and"},
      {track_type::boolean_or, "or"},
      {track_type::probe, "probe"},
      {track_type::none, "none"},
      {track_type::threshold_weight, "weight"},
      {track_type::threshold_percentage, "percentage"},
      {track_type::bfd, "bfd"},
  };
  for (const auto& [type, word] : words) {
    EXPECT_EQ(track_to_json(record_of("t", type), {})["type"], word);
  }
  EXPECT_EQ(track_to_json(record_of("t", static_cast<track_type>(99)), {})["type"], "none");
}

}  // namespace
}  // namespace ot::trackctl
