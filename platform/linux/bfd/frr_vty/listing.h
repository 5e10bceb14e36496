// The sessions of bfdd and their counters, as it lists them in JSON. Pure. bfdd is trusted with
// nothing: what has not the shape of a list is refused as a whole.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/linux/bfd/engine.h"

namespace ot::bfd::vty {

// A session of one hop over IPv4, whoever has made it.
struct listed_session {
  session_key key;             // without an interface: bound to none
  bool dynamic = false;        // of a routing protocol alone; FRR 8.4 does not tell
  bfdc_session_status status;  // its counters apart
};

struct listed_counters {
  session_key key;
  std::uint64_t packets_in = 0;
  std::uint64_t packets_out = 0;
  std::uint32_t ups = 0;
  std::uint32_t downs = 0;
};

// Sessions of other sorts are left out. False, and `ret` unchanged, for what is no such list.
// Throw bad_alloc.
bool read_sessions(std::string_view text, std::vector<listed_session>* ret);
bool read_counters(std::string_view text, std::vector<listed_counters>* ret);

}  // namespace ot::bfd::vty
