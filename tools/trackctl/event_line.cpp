// Writes events as lines. The time is the moment at which trackctl received the event; the event
// itself carries none.
#include "tools/trackctl/event_line.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace ot::trackctl {
namespace {

struct local_time {
  std::tm calendar{};
  int milliseconds = 0;
};

local_time to_local(std::chrono::system_clock::time_point when) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(when);
  const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
  local_time result;
  (void)localtime_r(&whole, &result.calendar);
  result.milliseconds = static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(when - seconds).count());
  return result;
}

std::string format_time(const local_time& time, const char* format) {
  std::array<char, 64> buffer{};
  return {buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &time.calendar)};
}

std::string format_milliseconds(const local_time& time) {
  std::array<char, 16> buffer{};
  (void)std::snprintf(buffer.data(), buffer.size(), ".%03d", time.milliseconds);
  return buffer.data();
}

// "+0130" as "+01:30".
std::string format_zone(const local_time& time) {
  std::string zone = format_time(time, "%z");
  return zone.insert(3, ":");
}

}  // namespace

const char* event_state_word(std::uint32_t state) noexcept {
  constexpr std::array words{"unknown", "up", "down"};
  return state < words.size() ? words[state] : words[0];
}

std::string event_text_line(const evdl_track_event& event,
                            std::chrono::system_clock::time_point when) {
  const local_time time = to_local(when);
  return format_time(time, "%Y-%m-%d %H:%M:%S") + format_milliseconds(time) + " " + event.track +
         " " + event_state_word(event.state);
}

std::string event_json_line(const evdl_track_event& event,
                            std::chrono::system_clock::time_point when) {
  const local_time time = to_local(when);
  const nlohmann::ordered_json line{{"time", format_time(time, "%Y-%m-%dT%H:%M:%S") +
                                                 format_milliseconds(time) + format_zone(time)},
                                    {"track", event.track},
                                    {"state", event_state_word(event.state)}};
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace ot::trackctl
