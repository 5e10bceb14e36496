// Where log lines go: the journal with structured fields, else the system log, and standard error
// where somebody reads it.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/messages.h"

namespace ot {

// Writes one line; `record` is null for a trace. The caller serialises the calls.
void log_sink_write(const errmsg_record* record, std::uint32_t severity,
                    std::string_view text) noexcept;

}  // namespace ot
