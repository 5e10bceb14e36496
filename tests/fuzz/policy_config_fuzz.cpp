// Feeds arbitrary bytes to the reader of trackpolicy's files. Whatever it says of them, each
// problem has a text, policies that it takes have what they need, and what they would do can be
// said.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/trackpolicy/config.h"
#include "tools/trackpolicy/kinds/kinds.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ot::trackpolicy;
  const configuration config = parse_policies("f", {reinterpret_cast<const char*>(data), size});
  for (const std::string& what : config.problems) {
    if (what.empty()) std::abort();
  }
  for (const policy& each : config.policies) {
    if (each.name.empty() || each.track.empty()) std::abort();
    for (const track_state state : {track_state::unknown, track_state::up, track_state::down}) {
      if (kind_of(each.kind).describe(each, state).empty()) std::abort();
    }
  }
  return 0;
}
