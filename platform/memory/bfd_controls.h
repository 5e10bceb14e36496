// A test's controls of the in-memory BFD service, in the field's words. As with controls.h,
// everything takes effect through the loops, and only the test's thread may call these. After a
// reset there is no BFD service.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bfd_status.h"

namespace ot::field {

// The engine starts, or starts again; it goes, and its sessions with it. The client is connected
// all the same.
void bfd_engine_back();
void bfd_engine_away();

// What is told of the engine and of a wanted session, but for what follows from the other controls.
void bfd_engine_is(const bfdc_engine_status& status);
void bfd_session_is(std::string_view interface, const char* address,
                    const bfdc_session_status& status);

// Clients, the bound one and those that bind from now on, are connected; or they are not, which no
// platform of ours does to them.
void bfd_client_connects(bool connected);

// The peer behind an interface begins to answer, or falls silent: its session follows. `interface`
// must exist; the address is dotted text.
void bfd_peer_answers(std::string_view interface, const char* address);
void bfd_peer_silent(std::string_view interface, const char* address);

// The engine refuses the next creation: its acknowledgement carries `error`.
void bfd_refuses_next(int error);

// The engine notifies the client of something of its own accord.
void bfd_says_result(const bfdc_request_result& result);
void bfd_says_event(const bfdc_event& event);
void bfd_says_status(std::uint32_t status);

// What the client asks for at present, in the order of handle and address.
struct bfd_wanted_session {
  std::uint32_t ifhandle = 0;
  std::string address;
  std::uint32_t rate = 0;
  std::uint32_t debounce_count = 0;

  friend bool operator==(const bfd_wanted_session&, const bfd_wanted_session&) = default;
};
std::vector<bfd_wanted_session> bfd_wanted_sessions();

// Requests of either kind since the reset, and successful binds.
std::size_t bfd_requests();
std::size_t bfd_binds();
// What the last successful bind named.
std::string bfd_client_name();

}  // namespace ot::field
