// The texts of probe return codes. The numbers are the probe service's own.
#include <array>
#include <cstdio>

#include "platform/probe_service.h"

namespace ot {

const char* qmon_retCodeToStr(std::uint32_t code) noexcept {
  constexpr std::array texts = {
      "No result yet",     "OK",         "No answer (timeout)", "Unreachable", "Refused",
      "Name not resolved", "Bad answer", "Cannot run",
  };
  if (code < texts.size()) {
    return texts[code];
  }
  thread_local char text[40];
  std::snprintf(text, sizeof text, "Unknown return code %u", code);
  return text;
}

}  // namespace ot
