// What is measured of BFD sessions.
#pragma once

#include <string_view>

#include "sources/bfd/session_record.h"
#include "tools/trackctl/metrics/text.h"

namespace ot::trackctl {

void measure_bfd_session(std::string_view track, const bfd_session_info__& session,
                         metrics_text& into);
// Of all BFD tracks, as the service has them. Throws.
void measure_bfd_sessions(metrics_text& into);

// "admin-down", "down", "init", "up", by the protocol's number.
const char* bfd_state_word(std::uint32_t state) noexcept;

}  // namespace ot::trackctl
