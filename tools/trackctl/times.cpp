// What is printed can be typed again: text_time and json_time are read by parse_since.
#include "tools/trackctl/times.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string_view>

#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

using std::chrono::seconds;

struct local_time {
  std::tm calendar{};
  int fraction = 0;  // milliseconds
};

local_time to_local(moment when) {
  const auto whole = std::chrono::floor<seconds>(when);
  const std::time_t time = std::chrono::system_clock::to_time_t(whole);
  local_time result;
  (void)localtime_r(&time, &result.calendar);
  result.fraction =
      static_cast<int>(std::chrono::duration_cast<milliseconds>(when - whole).count());
  return result;
}

std::string format_time(const local_time& time, const char* format) {
  std::array<char, 64> buffer{};
  return {buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &time.calendar)};
}

std::string with_fraction(const local_time& time, const char* format) {
  std::array<char, 16> fraction{};
  (void)std::snprintf(fraction.data(), fraction.size(), ".%03d", time.fraction);
  return format_time(time, format) + fraction.data();
}

struct unit {
  char letter;
  std::uint32_t seconds;
};
constexpr std::array units{unit{'d', 86400}, unit{'h', 3600}, unit{'m', 60}, unit{'s', 1}};

constexpr std::uint64_t longest_ago = 3'153'600'000;  // a hundred years

// Takes a whole number off the front.
std::optional<std::uint64_t> take_number(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || number > 0xffffffff) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// Numbers with their units, the greater unit first; one without a unit is seconds and the last.
std::optional<std::uint64_t> seconds_of(std::string_view text) {
  std::uint64_t sum = 0;
  const unit* next = units.data();
  do {
    const auto number = take_number(text);
    if (!number) {
      return std::nullopt;
    }
    const char letter = text.empty() ? 's' : text.front();
    const unit* const found =
        std::find_if(next, units.data() + units.size(),
                     [letter](const unit& each) { return each.letter == letter; });
    if (found == units.data() + units.size()) {
      return std::nullopt;
    }
    sum += *number * found->seconds;
    next = found + 1;
    text.remove_prefix(text.empty() ? 0 : 1);
  } while (!text.empty());
  return sum;
}

// What stands behind a time's minutes or seconds: nothing, "Z", or "+01:00".
std::optional<moment> with_offset(std::tm calendar, int fraction, std::string_view offset) {
  int hours = 0;
  int minutes = 0;
  const bool utc = offset == "Z" || offset == "z";
  const bool given = offset.size() == 6 && (offset[0] == '+' || offset[0] == '-') &&
                     std::sscanf(offset.data() + 1, "%2d:%2d", &hours, &minutes) == 2;
  if (!utc && !given && !offset.empty()) {
    return std::nullopt;
  }
  const std::tm typed = calendar;
  calendar.tm_isdst = -1;
  const std::time_t time = offset.empty() ? std::mktime(&calendar) : timegm(&calendar);
  if (calendar.tm_mday != typed.tm_mday || calendar.tm_mon != typed.tm_mon) {
    return std::nullopt;  // such as February 30
  }
  const int ahead = (hours * 60 + minutes) * (given && offset[0] == '-' ? -60 : 60);
  return std::chrono::system_clock::from_time_t(time) - seconds(ahead) + milliseconds(fraction);
}

std::optional<moment> calendar_time(const std::string& text) {
  std::tm calendar{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%d", &calendar);
  if (rest == nullptr) {
    return std::nullopt;
  }
  // Times are counted in nanoseconds, which reach no further.
  if (calendar.tm_year < 1970 - 1900 || calendar.tm_year > 2261 - 1900) {
    return std::nullopt;
  }
  int fraction = 0;
  if (*rest == 'T' || *rest == 't' || *rest == ' ') {
    const char* const minutes = strptime(rest + 1, "%H:%M", &calendar);
    if (minutes == nullptr) {
      return std::nullopt;
    }
    const char* const whole = strptime(minutes, ":%S", &calendar);
    rest = whole != nullptr ? whole : minutes;
  }
  if (*rest == '.') {
    double part = 0;
    const auto [end, error] = std::from_chars(rest, text.c_str() + text.size(), part);
    if (error != std::errc{}) {
      return std::nullopt;
    }
    fraction = static_cast<int>(std::lround(part * 1000));
    rest = end;
  }
  return with_offset(calendar, fraction, rest);
}

}  // namespace

moment from_epoch(milliseconds since_epoch) {
  return moment(since_epoch);
}

std::string text_time(moment when) {
  return with_fraction(to_local(when), "%Y-%m-%d %H:%M:%S");
}

std::string json_time(moment when) {
  const local_time time = to_local(when);
  std::string zone = format_time(time, "%z");
  zone.insert(3, ":");  // "+0130" as "+01:30"
  return with_fraction(time, "%Y-%m-%dT%H:%M:%S") + zone;
}

moment parse_json_time(const std::string& text) {
  return calendar_time(text).value_or(moment{});
}

std::string duration_text(milliseconds duration) {
  const std::int64_t ms = std::max<std::int64_t>(duration.count(), 0);
  const std::int64_t whole = ms / 1000;
  std::array<char, 48> text{};
  if (ms > 0 && ms < 1000) {
    (void)std::snprintf(text.data(), text.size(), "%dms", static_cast<int>(ms));
  } else if (whole < 60) {
    const int tenths = static_cast<int>(ms % 1000 / 100);
    (void)std::snprintf(text.data(), text.size(), tenths == 0 ? "%ds" : "%d.%ds",
                        static_cast<int>(whole), tenths);
  } else {
    // The two greatest units.
    const unit* const found =
        std::find_if(units.data(), units.data() + units.size() - 2,
                     [whole](const unit& each) { return whole >= each.seconds; });
    const unit& lesser = *(found + 1);
    (void)std::snprintf(text.data(), text.size(), "%lld%c%02lld%c",
                        static_cast<long long>(whole / found->seconds), found->letter,
                        static_cast<long long>(whole % found->seconds / lesser.seconds),
                        lesser.letter);
  }
  return text.data();
}

std::uint32_t parse_seconds(const std::string& what, const std::string& text,
                            const seconds_range& range) {
  const auto number = seconds_of(text);
  if (!number || *number < range.least || *number > range.most) {
    throw failure(exit_usage, what + " \"" + text + "\" is not a whole number of seconds from " +
                                  std::to_string(range.least) + " to " +
                                  std::to_string(range.most) + ", such as 5, 5s, 2m or 1h30m");
  }
  return static_cast<std::uint32_t>(*number);
}

moment parse_since(const std::string& what, const std::string& text, moment now) {
  if (const auto back = seconds_of(text)) {
    return now - seconds(std::min(*back, longest_ago));
  }
  if (const auto time = calendar_time(text)) {
    return *time;
  }
  throw failure(exit_usage, what + " \"" + text +
                                "\" is no time; give how long ago, such as 30m or 1h30m, or a time "
                                "such as \"2026-11-22 12:30\" or 2026-11-22T12:30:00.000Z");
}

}  // namespace ot::trackctl
