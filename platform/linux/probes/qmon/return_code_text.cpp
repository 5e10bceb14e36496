// libqmon_infra_comp.dll: what the return codes mean, for whoever loads the package. The texts are
// the same that the service has built in.
#include <cstdint>

#include "platform/probe_service.h"

extern "C" {

// Never null; the text of an unknown code stays valid until the same thread's next call.
const char* qmon_retCodeToStr(std::uint32_t code) noexcept;
}

const char* qmon_retCodeToStr(std::uint32_t code) noexcept {
  return ot::qmon_retCodeToStr(code);
}
