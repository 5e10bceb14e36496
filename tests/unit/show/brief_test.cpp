// The table of tracks, to the letter.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "show/view.h"
#include "tests/unit/show/output.h"

namespace ot::test {
namespace {

constexpr const char* heading =
    "Track                            Object                                    Parameter"
    "        Value                \n"
    "-----------------------------------------------------------"
    "---------------------------------------------\n";

class show_brief : public testing::Test {
 protected:
  show_brief() {
    record_.TrackeName.assign("t");
    record_.TrackState = true;
  }

  void is(track_type type) {
    record_.Type = type;
    record_.TrackTypeInfo.discriminant =
        static_cast<std::uint32_t>(is_list_type(type) ? track_type::none : type);
  }

  // The line of the record.
  std::string line() const {
    const std::string text = printed([this] { ot_display_track_info_brief(&record_); });
    EXPECT_EQ(text.substr(0, std::string(heading).size()), heading);
    return text.substr(std::string(heading).size());
  }

  // A line with these columns, each filled up to its width.
  static std::string columns(std::string name, std::string object, std::string parameter,
                             std::string value) {
    name.resize(33, ' ');
    object.resize(42, ' ');
    parameter.resize(17, ' ');
    value.resize(5, ' ');
    return name + object + parameter + value + "\n";
  }

  track_info_brief__ record_;
};

TEST_F(show_brief, the_heading_stands_also_over_nothing) {
  EXPECT_EQ(printed([] { ot_display_track_info_brief(nullptr); }), heading);
}

TEST_F(show_brief, a_line_to_the_letter) {
  is(track_type::interface);
  record_.TrackTypeInfo.InterfaceTracks.InterfaceName.assign("eth0");
  EXPECT_EQ(line(),
            "t                                interface eth0                            "
            "line protocol    Up   \n");
}

TEST_F(show_brief, an_interface) {
  is(track_type::interface);
  record_.TrackTypeInfo.InterfaceTracks.InterfaceName.assign("eth0");
  EXPECT_EQ(line(), columns("t", "interface eth0", "line protocol", "Up"));
  record_.TrackTypeInfo.InterfaceTracks.InterfaceName.assign(std::string(40, 'i'));
  EXPECT_EQ(line(), columns("t", "interface " + std::string(31, 'i'), "line protocol", "Up"));
}

TEST_F(show_brief, a_route) {
  is(track_type::route);
  EXPECT_EQ(line(), columns("t", "", "reachability", "Up"));
  route_track_info__& route = record_.TrackTypeInfo.RouteTracks;
  route.Prefix = inet_addr("10.1.0.0");
  route.PrefixLength = inet_addr("255.255.128.0");
  route.VRF.assign("default");
  EXPECT_EQ(line(), columns("t", "ip route 10.1.0.0/17 vrf default", "reachability", "Up"));
  route.Prefix = inet_addr("198.199.200.201");
  route.VRF.assign("a-very-long-name");
  EXPECT_EQ(line(), columns("t", "ip route 198.199.200.201/17 vrf a-very-lo", "reachability", "Up"))
      << "cut to 32 characters";
}

TEST_F(show_brief, lists) {
  record_.TrackState = false;
  is(track_type::boolean_and);
  EXPECT_EQ(line(), columns("t", "list", "boolean and", "Down"));
  is(track_type::boolean_or);
  EXPECT_EQ(line(), columns("t", "list", "boolean or", "Down"));
  is(track_type::threshold_weight);
  EXPECT_EQ(line(), columns("t", "list", "threshold weight", "Down"));
  is(track_type::threshold_percentage);
  EXPECT_EQ(line(), columns("t", "list", "threshold percen", "Down"));
}

TEST_F(show_brief, probes_and_bfd_sessions) {
  is(track_type::probe);
  record_.TrackTypeInfo.QmonTracks = {7, 12, 0};
  EXPECT_EQ(line(), columns("t", "QMON Operation 7 ", "reachability", "Up"));
  is(track_type::bfd);
  EXPECT_EQ(line(), columns("t", "BFD Session", "reachability", "Up"));
}

TEST_F(show_brief, tracks_without_a_type_that_is_known) {
  for (const std::uint32_t type : {0U, 6U, 10U, 77U}) {
    is(static_cast<track_type>(type));
    EXPECT_EQ(line(), columns("t", "No Track Type Configured ", "---", "Up")) << type;
  }
}

TEST_F(show_brief, one_line_a_record) {
  is(track_type::bfd);
  track_info_brief__ second = record_;
  second.TrackeName.assign(std::string(32, 'n'));
  second.TrackState = false;
  record_.next = &second;
  EXPECT_EQ(line(), columns("t", "BFD Session", "reachability", "Up") +
                        columns(std::string(32, 'n'), "BFD Session", "reachability", "Down"));
}

}  // namespace
}  // namespace ot::test
