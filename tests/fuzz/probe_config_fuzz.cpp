// Feeds arbitrary bytes to the reader of qmond's configuration. Whatever it says of them, each
// problem has a text, and operations that it takes have an id.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/qmond/config.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto config = ot::qmond::parse_config({reinterpret_cast<const char*>(data), size});
  for (const ot::qmond::problem& what : config.problems) {
    if (what.text.empty()) std::abort();
  }
  for (const ot::qmond::operation& each : config.operations) {
    if (each.id == 0) std::abort();
  }
  return 0;
}
