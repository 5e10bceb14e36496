// Times and durations, as every command writes and reads them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace ot::trackctl {

using moment = std::chrono::system_clock::time_point;
using std::chrono::milliseconds;

moment from_epoch(milliseconds since_epoch);

// "2026-11-21 10:53:00.123", local time.
std::string text_time(moment when);

// "2026-11-21T10:53:00.123+01:00": RFC 3339, local time with its offset.
std::string json_time(moment when);

// What json_time gives, read again.
moment parse_json_time(const std::string& text);

// "0s", "340ms", "12.3s", "2m05s", "3h12m", "2d04h".
std::string duration_text(milliseconds duration);

struct seconds_range {
  std::uint32_t least = 0;
  std::uint32_t most = 0xffffffff;
};

// Whole seconds: "5", "5s", "2m", "1h30m", "1d". `what` names the value in the refusal. Throws
// failure(exit_usage) for anything else, and outside the range.
std::uint32_t parse_seconds(const std::string& what, const std::string& text,
                            const seconds_range& range);

// A duration before `now`, as above, or a time: RFC 3339, or local when it has no offset; what is
// left out behind the day is 0. Throws as above.
moment parse_since(const std::string& what, const std::string& text, moment now);

}  // namespace ot::trackctl
