// How a followed event is written: one line, as text or as JSON.
#pragma once

#include <chrono>
#include <string>

#include "platform/event_subscriber.h"

namespace ot::trackctl {

// "up", "down", or "unknown" for anything else.
const char* event_state_word(std::uint32_t state) noexcept;

// "2026-11-21 10:53:00.123 uplink down", without a newline; local time.
std::string event_text_line(const evdl_track_event& event,
                            std::chrono::system_clock::time_point when);

// {"time":"2026-11-21T10:53:00.123+01:00","track":"uplink","state":"down"}, without a newline.
std::string event_json_line(const evdl_track_event& event,
                            std::chrono::system_clock::time_point when);

}  // namespace ot::trackctl
