// The detailed view of a track of each type, to the letter.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "platform/probe_service.h"
#include "show/view.h"
#include "tests/unit/show/output.h"

namespace ot::test {
namespace {

constexpr const char* change_line = "\t2 changes, last change 22:13:20 UTC Tue Nov 14 2023\n";

class show_detail : public testing::Test {
 protected:
  show_detail() {
    record_.TrackeName.assign("t");
    record_.TrackState = true;
    record_.StateChangeCounter = 2;
    record_.SecondsLastChange = 1'700'000'000;
  }

  void is(track_type type) {
    record_.Type = type;
    record_.TrackTypeInfo = {};
    record_.TrackTypeInfo.discriminant =
        static_cast<std::uint32_t>(is_list_type(type) ? track_type::none : type);
  }

  std::string shown() const {
    return printed([this] { ot_display_track_info(&record_); });
  }

  track_info__ record_;
};

TEST_F(show_detail, an_interface) {
  is(track_type::interface);
  record_.TrackTypeInfo.InterfaceTracks.InterfaceName.assign("eth0");
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface eth0 line-protocol\n"
                                 "\tLine protocol is UP \n") +
                         change_line);
  record_.TrackState = false;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface eth0 line-protocol\n"
                                 "\tLine protocol is DOWN \n") +
                         change_line);
}

TEST_F(show_detail, the_change_line_counts) {
  is(track_type::interface);
  const auto counted = [this](std::uint32_t count) {
    record_.StateChangeCounter = count;
    const std::string text = shown();
    return text.substr(text.find("\n\t", text.find("UP")) + 1);
  };
  EXPECT_EQ(counted(0), "\t0 changes, last change 22:13:20 UTC Tue Nov 14 2023\n");
  EXPECT_EQ(counted(1), "\t1 change, last change 22:13:20 UTC Tue Nov 14 2023\n");
  EXPECT_EQ(counted(2), "\t2 changes, last change 22:13:20 UTC Tue Nov 14 2023\n");
}

TEST_F(show_detail, a_time_that_is_none_has_no_change_line) {
  is(track_type::interface);
  record_.SecondsLastChange = ~std::uint64_t{0} >> 1;
  EXPECT_EQ(shown(),
            "\nTrack t \n"
            "\tInterface  line-protocol\n"
            "\tLine protocol is UP \n");
}

TEST_F(show_detail, a_running_delay_ends_the_line_of_the_state) {
  is(track_type::interface);
  delayed_state_status__ delayed{17, false};
  record_.Delayed = &delayed;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface  line-protocol\n"
                                 "\tLine protocol is UP , delayed Down (17 secs remaining)\n") +
                         change_line);
  delayed = {1, true};
  record_.TrackState = false;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface  line-protocol\n"
                                 "\tLine protocol is DOWN , delayed Up (1 secs remaining)\n") +
                         change_line);
}

TEST_F(show_detail, a_route) {
  is(track_type::route);
  route_track_info__& route = record_.TrackTypeInfo.RouteTracks;
  route.Prefix = inet_addr("10.1.0.0");
  route.PrefixLength = inet_addr("255.255.0.0");
  route.VRF.assign("blue");
  route.NextHop.assign("eth1");
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tIp route 10.1.0.0 255.255.0.0 reachability ip vrf blue\n"
                                 "\tReachability is UP \n"
                                 "\tFirst Hop interface eth1\n") +
                         change_line);
  record_.TrackState = false;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tIp route 10.1.0.0 255.255.0.0 reachability ip vrf blue\n"
                                 "\tReachability is DOWN \n") +
                         change_line);
}

TEST_F(show_detail, a_route_without_an_address_has_no_lines) {
  is(track_type::route);
  EXPECT_EQ(shown(), "\nTrack t \n");
}

TEST_F(show_detail, boolean_lists) {
  bool_track_info__ second;
  second.ObjectName.assign("b");
  second.TrackState = true;
  bool_track_info__ first;
  first.ObjectName.assign("a");
  first.WithNot = true;
  first.next = &second;
  record_.BoolTracks = &first;
  is(track_type::boolean_and);
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tList boolean and is UP \n") +
                         change_line +
                         "\t\tobject a not DOWN\n"
                         "\t\tobject b UP\n");
  is(track_type::boolean_or);
  record_.TrackState = false;
  first.TrackState = true;
  second.TrackState = false;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tList boolean or is DOWN \n") +
                         change_line +
                         "\t\tobject a not UP\n"
                         "\t\tobject b DOWN\n");
}

TEST_F(show_detail, threshold_lists) {
  threshold_track_info__ member;
  member.ObjectName.assign("a");
  member.Weight = 30;
  record_.ThresholdTracks = &member;
  is(track_type::threshold_weight);
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tList threshold weight is UP \n") +
                         change_line + "\t\tobject a DOWN\n");
  is(track_type::threshold_percentage);
  record_.TrackState = false;
  member.TrackState = true;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tList threshold percentage is DOWN \n") +
                         change_line + "\t\tobject a UP\n");
}

TEST_F(show_detail, a_probe_shows_its_return_code) {
  is(track_type::probe);
  prb_track_info__& probe = record_.TrackTypeInfo.QmonTracks;
  probe = {7, 12, 1};
  record_.TrackState = false;  // does not matter here
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tProbe Monitor 7 reachability \n"
                                 "\tReachability is UP \n") +
                         change_line +
                         "\tLatest operation return code: OK \n"
                         "\tLatest RTT (millisecs) : 12 \n");
  probe = {7, 0, 2};
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tProbe Monitor 7 reachability \n"
                                 "\tReachability is DOWN \n") +
                         change_line +
                         "\tLatest operation return code: No answer (timeout) \n"
                         "\tLatest RTT (millisecs) : 0 \n");
}

TEST_F(show_detail, a_probe_with_another_code_has_no_line_of_reachability) {
  is(track_type::probe);
  record_.TrackTypeInfo.QmonTracks = {7, 0, 4};
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tProbe Monitor 7 reachability \n") +
                         change_line +
                         "\tLatest operation return code: Refused \n"
                         "\tLatest RTT (millisecs) : 0 \n");
}

TEST_F(show_detail, a_probe_that_is_not_running_says_no_more) {
  is(track_type::probe);
  record_.TrackTypeInfo.QmonTracks = {7, 0, 0};
  interface_tracking_info__ interface;
  record_.TrackingInteraces = &interface;
  EXPECT_EQ(shown(),
            "\nTrack t \n"
            "\tProbe Monitor 7 reachability \n"
            "\tqmon operation not in progress \n");
}

TEST_F(show_detail, a_bfd_session) {
  is(track_type::bfd);
  record_.TrackTypeInfo.BFDTracks.InterfaceName.assign("eth7");
  record_.TrackTypeInfo.BFDTracks.DestinationAddress = inet_addr("192.0.2.9");
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface eth7 Destination Address 192.0.2.9\n"
                                 "\tBFD Reachability is UP \n") +
                         change_line);
  record_.TrackState = false;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface eth7 Destination Address 192.0.2.9\n"
                                 "\tBFD Reachability is DOWN \n") +
                         change_line);
}

TEST_F(show_detail, a_track_without_type_is_its_name) {
  is(track_type::none);
  EXPECT_EQ(shown(), "\nTrack t \n");
  record_.Type = static_cast<track_type>(77);
  EXPECT_EQ(shown(), "\nTrack t \n");
}

// Bytes of one member are never read as another's.
TEST_F(show_detail, a_record_whose_union_holds_another_type_is_its_name) {
  is(track_type::route);
  record_.TrackTypeInfo.RouteTracks.Prefix = 1;
  record_.Type = track_type::bfd;
  EXPECT_EQ(shown(), "\nTrack t \n");
}

TEST_F(show_detail, the_interfaces_that_follow_come_last) {
  is(track_type::interface);
  interface_tracking_info__ second;
  second.InterfaceName.assign("eth9");
  interface_tracking_info__ first;
  first.InterfaceName.assign("eth8");
  first.next = &second;
  record_.TrackingInteraces = &first;
  EXPECT_EQ(shown(), std::string("\nTrack t \n"
                                 "\tInterface  line-protocol\n"
                                 "\tLine protocol is UP \n") +
                         change_line +
                         "\tTracked by:\n"
                         "\t\teth8\n"
                         "\t\teth9\n");
}

TEST_F(show_detail, a_chain_is_shown_in_order) {
  is(track_type::none);
  track_info__ second = record_;
  second.TrackeName.assign("u");
  record_.next = &second;
  EXPECT_EQ(shown(), "\nTrack t \n\nTrack u \n");
  EXPECT_EQ(printed([] { ot_display_track_info(nullptr); }), "");
}

TEST(probe_codes, have_texts) {
  const char* texts[] = {"No result yet", "OK",         "No answer (timeout)",
                         "Unreachable",   "Refused",    "Name not resolved",
                         "Bad answer",    "Cannot run", "Unknown return code 8"};
  for (std::uint32_t code = 0; code < std::size(texts); ++code) {
    EXPECT_STREQ(qmon_retCodeToStr(code), texts[code]);
  }
  EXPECT_STREQ(qmon_retCodeToStr(4294967295U), "Unknown return code 4294967295");
}

}  // namespace
}  // namespace ot::test
