// What policies have the kernel keep for them: routes that are there or not, interfaces that are
// down or not.
//
//   network.h          what reactions ask of it
//   route.h, links.h   routes and interfaces as plain values
//   route_meaning.h    what names and refusals mean
//   refusals.h         what stands against that, said once
//   route_keeper.h     which routes of ours are to be there, and what must change for that
//   link_keeper.h      which interfaces are to be down, and which of them we have set down
//   messages.h         both as the kernel's messages
//   kernel_access.h    the sockets
//   netlink_network.h  what the kernel has and tells, and a turn of the keepers
//
// Reactions say what should be, at any time. Once a turn of the loop the keepers compare that with
// what is, and only the differences go to the kernel, in batches. What the kernel has is known from
// a dump and from its messages since then, our own changes among them; it is dumped anew after what
// the kernel does without a message. Policies may ask for the same thing: a route is there when one
// of them asks for it, an interface is down when one of them does.
#pragma once

#include <cstdint>
#include <string>

#include "tools/trackpolicy/kernel/route.h"

namespace ot::trackpolicy {

enum class wish : std::uint8_t {
  keep,  // whatever it is now
  yes,   // the route is there, the interface is up
  no,
};

// How what a policy asked for stands.
struct outcome {
  bool done = false;          // it is as asked
  std::string stands{};       // of an interface: how it is
  std::string problem{};      // why not, in words
  std::uint64_t changes = 0;  // that were made for this policy
  std::uint64_t refusals = 0;
};

class network {
 public:
  virtual ~network() = default;

  // `owner`: the policy's name. Takes the place of what it asked for before.
  virtual void keep_route(const std::string& owner, const route& what, wish wanted) = 0;
  // Nobody asks for it any more: it goes.
  virtual void forget_route(const std::string& owner) = 0;
  [[nodiscard]] virtual outcome route_outcome(const std::string& owner) const = 0;

  // `track`: whose state decides; an interface that it stands on is not set down.
  virtual void keep_link(const std::string& owner, const std::string& track,
                         const std::string& interface, wish up) = 0;
  // If it was set down by us, it is set up again.
  virtual void forget_link(const std::string& owner) = 0;
  [[nodiscard]] virtual outcome link_outcome(const std::string& owner) const = 0;
};

}  // namespace ot::trackpolicy
