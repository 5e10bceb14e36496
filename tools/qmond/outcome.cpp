// Rise and fall counts. While an operation fails, the published failure is the latest one; it is
// the step between success and failure that the counts damp.
#include "tools/qmond/outcome.h"

#include <array>

namespace ot::qmond {

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

}  // namespace ot::qmond
