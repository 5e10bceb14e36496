// Which policy rules may hide a table from a look-up, as read from the kernel.
#include "platform/linux/routes/policy_rules.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/linux/netlink/socket.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::testing {
namespace {

// Those of "local", "main" and "vrfs".
std::string hidden() {
  netlink_socket requests;
  hidden_tables now;
  EXPECT_EQ(requests.open_requests(), 0);
  EXPECT_EQ(policy_rules_read(requests, &now), 0);
  return std::string{now.local ? "local " : ""} + (now.main ? "main " : "") +
         (now.vrfs ? "vrfs" : "");
}

struct rule_case {
  const char* rule;
  const char* hidden;  // with a rule for VRFs in place
};

// The first rule for VRFs has the preference 1000, that for the main table 32766.
constexpr rule_case cases[] = {
    {"pref 100 lookup 100", "main vrfs"},
    {"pref 2000 lookup 100", "main "},
    {"pref 32767 lookup 100", ""},
    {"pref 100 to 192.0.2.0/24 lookup 100", "main vrfs"},
    {"pref 100 oif lo lookup 100", "main vrfs"},
    {"pref 100 iif lo lookup 100", "main vrfs"},
    {"pref 100 not fwmark 7 lookup 100", "main vrfs"},
    {"pref 100 not from 10.0.0.0/8 lookup 100", "main vrfs"},
    {"pref 100 unreachable", "main vrfs"},
    {"pref 2000 blackhole", "main "},
    {"pref 100 ipproto tcp lookup 100", "main vrfs"},
    {"pref 100 lookup main suppress_prefixlength 0", "main vrfs"},
    {"pref 100 lookup main", "vrfs"},
    {"pref 100 lookup local", ""},
    // None of these is for a packet from nowhere, without a mark.
    {"pref 100 from 10.0.0.0/8 lookup 100", ""},
    {"pref 100 from 10.0.0.0/8 unreachable", ""},
    {"pref 100 iif eth9 lookup 100", ""},
    {"pref 100 fwmark 7 lookup 100", ""},
    {"pref 100 fwmark 0x10/0xf0 lookup 100", ""},
    {"pref 100 tos 0x10 lookup 100", ""},
};

TEST(policy_rules, tell_what_may_be_hidden) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    EXPECT_EQ(hidden(), "vrfs") << "no rule for VRFs";
    ip("rule add pref 1000 l3mdev");
    EXPECT_EQ(hidden(), "");
    for (const rule_case& tried : cases) {
      ip(std::string{"rule add "} + tried.rule);
      EXPECT_EQ(hidden(), tried.hidden) << tried.rule;
      ip(std::string{"rule del "} + tried.rule);
    }
    ip("rule del pref 32766");
    EXPECT_EQ(hidden(), "main ") << "no rule for the main table";
    ip("rule add pref 32766 lookup main");
    ip("rule add pref 32765 lookup local");
    ip("rule del pref 0");
    EXPECT_EQ(hidden(), "") << "the local table just before the main one";
    ip("rule add pref 100 lookup main");
    EXPECT_EQ(hidden(), "local vrfs");
    ip("rule del pref 100");
    ip("rule del pref 32765");
    EXPECT_EQ(hidden(), "local ") << "no rule for the local table";
  });
}

}  // namespace
}  // namespace ot::testing
