// Return codes of errno values, rise and fall counts, and the history as a bar. While an operation
// fails, the published failure is the latest one; it is the step between success and failure that
// the counts damp. The bar's blocks grow by the round-trip time, in steps of about three.
#include "tools/qmond/outcome.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace ot::qmond {
namespace {

// What is not here has nothing to do with the target: the probe could not be made at all.
struct errno_row {
  int error;
  return_code code;
};

constexpr std::array errno_rows{
    errno_row{ETIMEDOUT, return_code::no_answer},
    errno_row{EHOSTUNREACH, return_code::unreachable},
    errno_row{ENETUNREACH, return_code::unreachable},
    errno_row{EHOSTDOWN, return_code::unreachable},
    errno_row{ENETDOWN, return_code::unreachable},
    errno_row{EACCES, return_code::unreachable},  // a prohibiting route or filter
    errno_row{EPERM, return_code::unreachable},
    errno_row{ENOPROTOOPT, return_code::unreachable},
    errno_row{EPROTO, return_code::unreachable},
    errno_row{ECONNREFUSED, return_code::refused},
    errno_row{ECONNRESET, return_code::refused},
};

}  // namespace

return_code code_of_errno(int error) noexcept {
  for (const errno_row& row : errno_rows) {
    if (row.error == error) {
      return row.code;
    }
  }
  return return_code::cannot_run;
}

std::uint32_t round_trip_level(std::uint64_t round_trip_us) noexcept {
  constexpr std::array<std::uint64_t, 7> limits_us{1000,   3000,   10000,  30000,
                                                   100000, 300000, 1000000};
  std::uint32_t level = 1;
  for (const std::uint64_t limit : limits_us) {
    level += round_trip_us > limit ? 1 : 0;
  }
  return level;
}

void outcome::remember(std::uint32_t bits) noexcept {
  for (std::size_t i = history_words - 1; i > 0; --i) {
    words_[word_history + i] = words_[word_history + i] << 4 | words_[word_history + i - 1] >> 28;
  }
  words_[word_history] = words_[word_history] << 4 | bits;
}

void outcome::set_code(return_code code, std::uint32_t now_s) noexcept {
  const auto number = static_cast<std::uint32_t>(code);
  if (words_[word_return_code] != number) {
    words_[word_return_code] = number;
    words_[word_changed_at] = now_s;
  }
}

void outcome::record(return_code code, std::uint64_t round_trip_us, std::uint32_t now_s) noexcept {
  ++words_[word_results];
  words_[word_last_code] = static_cast<std::uint32_t>(code);
  if (code == return_code::ok) {
    failures_in_a_row_ = 0;
    ++successes_in_a_row_;
    ++words_[word_successes];
    words_[word_response_time_us] = static_cast<std::uint32_t>(round_trip_us);
    words_[word_response_time] = static_cast<std::uint32_t>((round_trip_us + 500) / 1000);
    remember(round_trip_level(round_trip_us));
    if (successes_in_a_row_ >= rise_) {
      set_code(code, now_s);
    }
    return;
  }
  successes_in_a_row_ = 0;
  ++failures_in_a_row_;
  remember(history_failure);
  if (failures_in_a_row_ >= fall_) {
    set_code(code, now_s);
  }
}

std::vector<std::uint32_t> history_levels(const statistics& result) {
  std::vector<std::uint32_t> levels;
  for (std::size_t i = 0; i < history_shown; ++i) {
    const std::uint32_t bits = result[word_history + i / 8] >> (i % 8 * 4) & 0xf;
    if (bits == 0) {
      break;
    }
    levels.push_back(bits);
  }
  std::reverse(levels.begin(), levels.end());
  return levels;
}

std::string history_bar(const statistics& result, bool utf8) {
  constexpr std::array blocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::array digits{"1", "2", "3", "4", "5", "6", "7", "8"};
  std::string bar;
  for (const std::uint32_t level : history_levels(result)) {
    const bool failed = level > blocks.size();
    bar += failed ? (utf8 ? "×" : "x") : (utf8 ? blocks : digits)[level - 1];
  }
  return bar;
}

}  // namespace ot::qmond
