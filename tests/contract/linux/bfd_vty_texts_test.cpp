// What bfdd's shell prints, as FRR 8.4 and 10.3 have printed it, and what is written to it.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/bfd/frr_vty/addresses.h"
#include "platform/linux/bfd/frr_vty/configuration.h"
#include "platform/linux/bfd/frr_vty/listing.h"
#include "platform/linux/bfd/frr_vty/log_message.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::bfd::vty {
namespace {

constexpr const char* configuration = R"(
Current configuration:
!
frr version 10.3
frr defaults traditional
hostname router
! "log file /run/frr/bfdd.log debugging" enabled by "--log" startup option
!
debug bfd peer
!
bfd
 profile object-tracking-00000001
  receive-interval 70
 exit
 !
 peer 10.0.0.2 local-address 10.0.0.1 interface e0
  profile object-tracking-00000001-d
  detect-multiplier 5
 exit
 !
 peer 10.0.0.3 interface e1
  profile fast
  shutdown
 exit
 !
 peer 10.0.0.4
 exit
 !
 peer 10.0.0.5 local-address 10.0.0.1 vrf RED interface red0
 exit
 !
 peer 10.9.0.2 multihop local-address 10.9.0.1
  profile object-tracking-00000001
 exit
 !
 peer fe80::2 local-address fe80::1 interface e0
  profile object-tracking-00000001
 exit
 !
 peer 10.0.0.6 interface a-name-that-is-too-long
 exit
 !
exit
!
router bgp 1
 peer 10.0.0.9 interface e9
exit
end
)";

std::uint32_t address(const char* text) {
  in_addr read{};
  EXPECT_EQ(inet_pton(AF_INET, text, &read), 1) << text;
  return read.s_addr;
}

session_key key(const char* interface, const char* destination) {
  return {interface_name{interface}, address(destination)};
}

TEST(bfd_vty_texts, the_configuration_tells_the_peers_of_one_hop_and_whose_they_are) {
  const running_configuration read = read_configuration(configuration);
  EXPECT_TRUE(read.logs_sessions);
  ASSERT_EQ(read.peers.size(), 4U);
  EXPECT_EQ(read.peers[0].key, key("e0", "10.0.0.2"));
  EXPECT_EQ(read.peers[0].local, address("10.0.0.1"));
  EXPECT_EQ(read.peers[0].profile, "object-tracking-00000001-d");
  EXPECT_EQ(read.peers[1].key, key("e1", "10.0.0.3"));
  EXPECT_EQ(read.peers[1].local, 0U);
  EXPECT_EQ(read.peers[1].profile, "fast");
  EXPECT_EQ(read.peers[2].key, key("", "10.0.0.4"));
  EXPECT_TRUE(read.peers[2].profile.empty());
  EXPECT_EQ(read.peers[3].key, key("red0", "10.0.0.5"));
}

TEST(bfd_vty_texts, a_mark_is_one_instances_own) {
  const peer_mark mark{1};
  EXPECT_TRUE(mark.own(profile_name{"object-tracking-00000001"}));
  EXPECT_TRUE(mark.own(profile_name{"object-tracking-00000001-d"}));
  EXPECT_TRUE(mark.our_log(profile_name{"object-tracking-00000001-d"}));
  EXPECT_FALSE(mark.our_log(profile_name{"object-tracking-00000001"}));
  for (const char* other : {"", "fast", "object-tracking", "object-tracking-00000002",
                            "object-tracking-00000001-", "object-tracking-000000011"}) {
    EXPECT_FALSE(mark.own(profile_name{other})) << other;
  }
}

TEST(bfd_vty_texts, a_session_is_written_as_one_block) {
  const session_config session{key("e0", "10.0.0.2"), 0, 50, 3};
  EXPECT_EQ(make_commands(session, address("10.0.0.1"), "mark"),
            (std::vector<std::string>{"configure terminal", "bfd",
                                      "peer 10.0.0.2 interface e0 local-address 10.0.0.1",
                                      "profile mark", "receive-interval 50", "transmit-interval 50",
                                      "detect-multiplier 3", "no shutdown", "exit", "end"}));
  EXPECT_EQ(withdraw_commands(session.key, address("10.0.0.1")),
            (std::vector<std::string>{"configure terminal", "bfd",
                                      "peer 10.0.0.2 interface e0 local-address 10.0.0.1", "exit",
                                      "no peer 10.0.0.2 interface e0", "end"}));
  EXPECT_EQ(withdraw_commands(session.key, 0),
            (std::vector<std::string>{"configure terminal", "bfd", "no peer 10.0.0.2 interface e0",
                                      "end"}));
}

TEST(bfd_vty_texts, the_list_of_sessions_is_read) {
  std::vector<listed_session> sessions;
  ASSERT_TRUE(read_sessions(R"([
    {"multihop":false,"peer":"10.13.0.2","local":"10.13.0.1","vrf":"default","interface":"va",
     "id":3090109967,"remote-id":2983849549,"passive-mode":false,"status":"up","uptime":120,
     "diagnostic":"neighbor signaled session down","remote-diagnostic":"ok","type":"configured",
     "receive-interval":50,"transmit-interval":50,"echo-receive-interval":50,
     "echo-transmit-interval":0,"detect-multiplier":3,"remote-receive-interval":300,
     "remote-transmit-interval":20,"remote-echo-receive-interval":50,"remote-detect-multiplier":5,
     "rtt-min":0,"rtt-avg":0,"rtt-max":0},
    {"multihop":true,"peer":"10.13.0.3","status":"up"},
    {"multihop":false,"peer":"fe80::1","interface":"va","status":"up"},
    {"multihop":false,"peer":"10.13.0.4","status":"shutdown","type":"dynamic",
     "remote-diagnostic":"administratively down","receive-interval":300}])",
                            &sessions));
  ASSERT_EQ(sessions.size(), 2U);
  EXPECT_EQ(sessions[0].key, key("va", "10.13.0.2"));
  EXPECT_FALSE(sessions[0].dynamic);
  EXPECT_EQ(sessions[0].status.state, bfd_state_up);
  EXPECT_EQ(sessions[0].status.diagnostic, 3);
  EXPECT_EQ(sessions[0].status.transmit_interval, 300'000U);
  EXPECT_EQ(sessions[0].status.receive_interval, 50'000U);
  EXPECT_EQ(sessions[0].status.detection_time, 250'000U);
  EXPECT_EQ(sessions[1].key, key("", "10.13.0.4"));
  EXPECT_TRUE(sessions[1].dynamic);
  EXPECT_EQ(sessions[1].status.state, bfd_state_admin_down);
  EXPECT_EQ(sessions[1].status.remote_diagnostic, 7);
  EXPECT_EQ(sessions[1].status.receive_interval, 0U);
}

TEST(bfd_vty_texts, intervals_beyond_measure_are_the_longest_there_are) {
  std::vector<listed_session> sessions;
  ASSERT_TRUE(read_sessions(R"([{"multihop":false,"peer":"10.0.0.1","status":"up",
    "receive-interval":18446744073709551615,"remote-detect-multiplier":18446744073709551615}])",
                            &sessions));
  EXPECT_EQ(sessions.at(0).status.receive_interval, 4'294'967'000U);
  EXPECT_EQ(sessions.at(0).status.detection_time, 4'294'967'000U);
}

TEST(bfd_vty_texts, a_line_of_the_log_is_read_with_and_without_its_unique_id) {
  const std::string line =
      "state-change: [mhop:no peer:10.13.0.2 local:10.13.0.1 vrf:default ifname:v]a] up -> down "
      "reason:echo-failed";
  for (const std::string& text : {line, "[SEY1D-NT8EQ] " + line}) {
    session_move move;
    ASSERT_TRUE(read_session_move(text, &move)) << text;
    EXPECT_EQ(move.key, key("v]a", "10.13.0.2"));
    EXPECT_EQ(move.state, bfd_state_down);
    EXPECT_EQ(move.diagnostic, 2);
  }
}

// --- Addresses -----------------------------------------------------------------------------------

const interface_address addresses[] = {
    {interface_name{"e0"}, address("10.1.0.1"), address("255.255.255.0"), 0},
    {interface_name{"e0"}, address("10.0.0.1"), address("255.255.255.0"), 0},
    {interface_name{"e0"}, address("10.0.0.7"), address("255.255.255.0"), 0},
    {interface_name{"p0"}, address("10.5.0.1"), address("255.255.255.255"), address("10.6.0.1")},
    {interface_name{"p0"}, address("10.5.0.2"), address("255.255.255.255"), address("10.6.0.2")},
};

struct choice {
  const char* interface;
  const char* destination;
  const char* present;
  const char* chosen;
};

const choice choices[] = {
    {"e0", "10.0.0.2", "0.0.0.0", "10.0.0.1"},   // in the same subnet
    {"e0", "10.0.0.2", "10.0.0.7", "10.0.0.7"},  // as good as another
    {"e0", "10.0.0.2", "10.0.0.9", "10.0.0.1"},  // not there any more
    {"e0", "10.0.0.2", "10.1.0.1", "10.0.0.1"},  // there, but of another subnet
    {"e0", "10.9.0.2", "0.0.0.0", "10.1.0.1"},   // in none
    {"e0", "10.9.0.2", "10.0.0.1", "10.0.0.1"},
    {"p0", "10.6.0.2", "0.0.0.0", "10.5.0.2"},  // of a link between two
    {"e9", "10.0.0.2", "0.0.0.0", "0.0.0.0"},
    {"e9", "10.0.0.2", "10.0.0.1", "10.0.0.1"},  // the interface is away
};

TEST(bfd_vty_addresses, a_session_speaks_from_its_neighbors_subnet_and_keeps_to_it) {
  for (const choice& row : choices) {
    const session_config session{key(row.interface, row.destination), 0, 50, 3};
    EXPECT_EQ(choose_address(addresses, session, address(row.present)), address(row.chosen))
        << row.interface << " " << row.destination << " " << row.present;
  }
  const session_config given{key("e0", "10.0.0.2"), address("10.7.0.1"), 50, 3};
  EXPECT_EQ(choose_address(addresses, given, address("10.0.0.1")), address("10.7.0.1"));
}

TEST(bfd_vty_addresses, those_of_the_kernel_are_found_by_their_interface_whatever_their_label) {
  if (const std::string reason = testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  std::vector<interface_address> found;
  testing::in_namespace([&] {
    testing::ip("link add e0 type veth peer name e1");
    testing::ip("addr add 10.0.0.1/24 dev e0 label e0:one");
    testing::ip("addr add 10.5.0.9/32 dev e1");
    testing::ip("addr add 10.5.0.1 peer 10.6.0.1 dev e1");
    look_at_addresses(&found);
  });
  EXPECT_EQ(found.size(), 3U);
  EXPECT_EQ(choose_address(found, {key("e0", "10.0.0.2"), 0, 50, 3}, 0), address("10.0.0.1"));
  EXPECT_EQ(choose_address(found, {key("e1", "10.6.0.1"), 0, 50, 3}, 0), address("10.5.0.1"));
}

}  // namespace
}  // namespace ot::bfd::vty
