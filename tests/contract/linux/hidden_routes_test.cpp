// What is found of routes does not depend on how they are found: a policy rule that hides the table
// from every packet changes no answer.
#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/event_manager.h"
#include "platform/fib_client.h"
#include "platform/vrf_service.h"
#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::testing {
namespace {

struct route_case {
  const char* what;
  std::vector<const char*> made_by;
  const char* found;  // for 192.0.2.1: "LENGTH INTERFACE" or "none", " own" behind it
};

const route_case cases[] = {
    {"the longest match",
     {"route add 192.0.0.0/16 dev h0", "route add 192.0.2.0/24 dev h1"},
     "24 h1"},
    {"the lowest metric",
     {"route add 192.0.2.0/24 dev h1 metric 20", "route add 192.0.2.0/24 dev h0 metric 10"},
     "24 h0"},
    {"the lowest metric refuses",
     {"route add 192.0.2.0/24 dev h1 metric 20", "route add unreachable 192.0.2.0/24 metric 10"},
     "none"},
    {"another metric refuses",
     {"route add unreachable 192.0.2.0/24 metric 20", "route add 192.0.2.0/24 dev h1 metric 10"},
     "24 h1"},
    {"of a type of service alone", {"route add 192.0.2.0/24 tos 0x10 dev h1"}, "none"},
    {"of a type of service, and one for all",
     {"route add 192.0.2.0/24 tos 0x10 dev h1", "route add 192.0.0.0/16 dev h0"},
     "16 h0"},
    {"the last of two paths is dead",
     {"route add 192.0.2.0/24 nexthop dev h0 nexthop dev h1", "link set h1 down"},
     "24 h0"},
    {"the first of two paths is dead",
     {"route add 192.0.2.0/24 nexthop dev h1 nexthop dev h0", "link set h1 down"},
     "24 h1"},
    {"an address of our own", {"address add 192.0.2.1/24 dev h0"}, "24 h0 own"},
    {"a host route to an address of our own",
     {"address add 192.0.2.1/24 dev h0", "route add 192.0.2.1/32 dev h1"},
     "24 h0 own"},
};

constexpr std::uint32_t wanted_address = 0xc0000201;

// A client of the routes. One a thread.
class route_client {
 public:
  route_client() {
    told_ = &events_;
    EXPECT_EQ(evm_create(&manager_), 0);
    const rtclient_callbacks callbacks{[](const rtclient_notification*) { ++told_->changes; },
                                       [] {}, [] { told_->connected = true; }};
    EXPECT_EQ(rtclient_init({"hidden", 1, manager_, 3225}, callbacks, &client_), 0);
    EXPECT_TRUE(run_loop_until(manager_, [] { return told_->connected; }));
  }
  ~route_client() {
    rtclient_close(client_);
    evm_destroy(manager_);
  }
  route_client(const route_client&) = delete;
  route_client& operator=(const route_client&) = delete;

  std::string found() {
    rtclient_result* result = nullptr;
    EXPECT_EQ(rtclient_lookup(client_, fib_family_ipv4, vmap_c_tbl_id_ipv4_ucast_dflt(),
                              htonl(wanted_address), &result),
              0);
    std::string text = "none";
    if (result != nullptr && result->route_found) {
      text = std::to_string(result->prefix_length) + ' ' + std::string{result->first_hop.view()};
    }
    text += result != nullptr && result->own_address ? " own" : "";
    rtclient_lookup_free(result);
    return text;
  }

  // Watches the /24 of that address (host byte order); its first notification has come then.
  void watch(std::uint32_t address) {
    rtclient_registration request;
    request.table_id = vmap_c_tbl_id_ipv4_ucast_dflt();
    request.family = fib_family_ipv4;
    request.prefix = htonl(address & 0xffffff00);
    request.prefix_length = 24;
    const unsigned before = events_.changes;
    EXPECT_EQ(rtclient_bulk_reg_notif(client_, {&request, 1}), 0);
    EXPECT_TRUE(is_told_after(before));
  }
  [[nodiscard]] unsigned changes() const { return events_.changes; }
  bool is_told_after(unsigned before) {
    return run_loop_until(manager_, [before] { return told_->changes > before; });
  }

 private:
  struct events {
    bool connected = false;
    unsigned changes = 0;
  };
  static inline thread_local events* told_ = nullptr;
  events events_;
  evm* manager_ = nullptr;
  rtclient* client_ = nullptr;
};

// By one that knows nothing of earlier.
std::string found() {
  return route_client{}.found();
}

void make_links() {
  ip("link add h0 type veth peer name p0");
  ip("link add h1 type veth peer name p1");
  for (const char* const name : {"h0", "p0", "h1", "p1"}) {
    ip(std::string{"link set "} + name + " up");
  }
}

TEST(hidden_routes, are_found_like_others) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  for (const route_case& each : cases) {
    in_namespace([&each] {
      make_links();
      for (const char* const command : each.made_by) {
        ip(command);
      }
      EXPECT_EQ(found(), each.found) << each.what;
      ip("rule add pref 100 unreachable");
      EXPECT_EQ(found(), each.found) << each.what << ", hidden by a rule";
    });
  }
}

// The table was read for another prefix, and no message told of what changed in it since.
TEST(hidden_routes, are_found_as_they_are_now_where_nobody_watched) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    make_links();
    ip("rule add pref 100 unreachable");
    route_client client;
    client.watch(0x0a000001);
    EXPECT_EQ(client.found(), "none");
    ip("route add 192.0.2.0/24 dev h0");
    EXPECT_EQ(client.found(), "24 h0");
    ip("route replace 192.0.2.0/24 dev h1");
    client.watch(wanted_address);
    EXPECT_EQ(client.found(), "24 h1");
    const unsigned before = client.changes();
    ip("route del 192.0.2.0/24 dev h1");
    EXPECT_TRUE(client.is_told_after(before));
    EXPECT_EQ(client.found(), "none");
  });
}

}  // namespace
}  // namespace ot::testing
