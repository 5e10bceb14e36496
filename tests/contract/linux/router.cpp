// Routes and VRFs of the kernel, in the namespace of the test.
#include "tests/contract/router.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include "tests/contract/linux/event_sockets.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::contract {
namespace {

using testing::ip;
using testing::ip_can;

std::string in_table(std::uint32_t table) {
  return " table " + std::to_string(table);
}

}  // namespace

void add_route(const std::string& prefix, const std::string& interface, std::uint32_t table) {
  ip("route replace " + prefix + " dev " + interface + in_table(table));
}

void remove_route(const std::string& prefix, std::uint32_t table) {
  ip("route del " + prefix + in_table(table));
}

void add_address(const std::string& address, const std::string& interface) {
  ip("address add " + address + " dev " + interface);
}

std::string vrfs_unavailable() {
  if (!ip_can("link add probe0 type vrf table 999")) {
    return "this kernel has no VRF devices";
  }
  ip("link del probe0");
  return {};
}

void make_vrf(const std::string& name, std::uint32_t table) {
  ip("link add " + name + " type vrf table " + std::to_string(table));
  ip("link set " + name + " up");
}

void remove_vrf(const std::string& name) {
  ip("link del " + name);
}

// The flood, in which the rest is lost, comes first.
void change_unannounced(const std::function<void()>& change) {
  ASSERT_GE(shrink_event_sockets(RTMGRP_LINK), 1);
  const unsigned long before = dropped_messages();
  for (int i = 0; i < 20; ++i) {
    ip("link set lo up");
    ip("link set lo down");
  }
  change();
  ASSERT_GT(dropped_messages(), before);
}

void lose_fib_messages() {
  ASSERT_EQ(shrink_event_sockets(RTMGRP_IPV4_ROUTE), 1);
  const unsigned long before = dropped_messages();
  for (int i = 0; i < 20; ++i) {
    ip("route add unreachable default table 77");  // it concerns everybody
    ip("route del unreachable default table 77");
  }
  ASSERT_GT(dropped_messages(), before);
}

}  // namespace ot::contract
