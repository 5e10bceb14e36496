// How long after the kernel's own message a change reaches a subscriber. Runs in the service's
// network namespace. What is changed:
//
//   link INTERFACE PEER            the carrier of INTERFACE, through its veth PEER
//   route ADDRESS/LENGTH INTERFACE a route through INTERFACE, which is there at first
//
// For the lines it prints see change_runner.h.
#include <net/if.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "bench/e2e/change_runner.h"
#include "bench/e2e/link_netlink.h"
#include "bench/e2e/route_netlink.h"

namespace ot::bench {
namespace {

struct repetitions {
  unsigned events;
  unsigned rounds;
  std::chrono::milliseconds gap;
};

void measure_link(const char* interface, const char* peer, const repetitions& how) {
  link_listener listener(if_nametoindex(interface));
  link_switch carrier(if_nametoindex(peer));
  measure_changes(
      {[&](bool up) { carrier.set(up); }, listener.fd(), [&] { return listener.receive(); }},
      how.events, how.rounds, how.gap);
}

void measure_route(const char* prefix, const char* interface, const repetitions& how) {
  route_listener listener(prefix);
  route_switch route(prefix, if_nametoindex(interface));
  measure_changes(
      {[&](bool up) { route.set(up); }, listener.fd(), [&] { return listener.receive(); }},
      how.events, how.rounds, how.gap);
}

struct kind {
  std::string_view word;
  void (*measure)(const char* first, const char* second, const repetitions& how);
};

constexpr kind kinds[] = {{"link", measure_link}, {"route", measure_route}};

}  // namespace
}  // namespace ot::bench

int main(int argc, char** argv) {
  const auto number = [argv](int index) {
    return static_cast<unsigned>(std::strtoul(argv[index], nullptr, 10));
  };
  for (const ot::bench::kind& kind : ot::bench::kinds) {
    if (argc != 7 || kind.word != argv[1]) continue;
    try {
      kind.measure(argv[2], argv[3], {number(4), number(5), std::chrono::milliseconds(number(6))});
      return 0;
    } catch (const std::exception& error) {
      std::fprintf(stderr, "change_latency: %s\n", error.what());
      return 1;
    }
  }
  std::fputs(
      "usage: change_latency link INTERFACE PEER EVENTS ROUNDS GAP_MS\n"
      "       change_latency route ADDRESS/LENGTH INTERFACE EVENTS ROUNDS GAP_MS\n",
      stderr);
  return 2;
}
