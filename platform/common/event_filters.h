// Who wants which event: the subscribers' filters, kept sorted by track name, so that publishing
// costs a search however many there are. The publisher's match function has the final say.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "platform/event_publisher.h"

namespace ot {

// How many subscribers there can be. The last ones are kept for root.
inline constexpr unsigned event_subscriber_limit = 1024;
inline constexpr unsigned event_subscribers_for_all = 1000;
// Filters of all subscribers together.
inline constexpr std::size_t event_filters_total = 262'144;

// A set of subscribers, which are numbered from 0.
class event_subscribers {
 public:
  event_subscribers() noexcept = default;
  event_subscribers(std::initializer_list<unsigned> numbers) noexcept {
    for (const unsigned number : numbers) {
      add(number);
    }
  }

  void add(unsigned number) noexcept { words_[number / 64] |= bit(number); }
  void remove(unsigned number) noexcept { words_[number / 64] &= ~bit(number); }
  [[nodiscard]] bool contains(unsigned number) const noexcept {
    return (words_[number / 64] & bit(number)) != 0;
  }
  event_subscribers& operator|=(const event_subscribers& other) noexcept {
    for (std::size_t word = 0; word < words_.size(); ++word) {
      words_[word] |= other.words_[word];
    }
    return *this;
  }
  event_subscribers& operator-=(const event_subscribers& other) noexcept {
    for (std::size_t word = 0; word < words_.size(); ++word) {
      words_[word] &= ~other.words_[word];
    }
    return *this;
  }
  bool operator==(const event_subscribers&) const noexcept = default;

  // Calls `visit(number)` for each, in ascending order. The set must not change meanwhile.
  template <typename Visit>
  void for_each(Visit visit) const {
    for (unsigned word = 0; word < words_.size(); ++word) {
      for (std::uint64_t left = words_[word]; left != 0; left &= left - 1) {
        visit(word * 64 + static_cast<unsigned>(std::countr_zero(left)));
      }
    }
  }

 private:
  static constexpr std::uint64_t bit(unsigned number) noexcept {
    return std::uint64_t{1} << (number % 64);
  }

  std::array<std::uint64_t, event_subscriber_limit / 64> words_{};
};

class event_filters {
 public:
  // Enters subscriber `number`, which has no filters yet. Without filters it wants everything. 0,
  // 12, or EUSERS when all subscribers have too many filters already (nothing entered).
  int add(unsigned number, std::span<const evdl_track_record> filters) noexcept;
  void remove(unsigned number) noexcept;

  // Those who want `event`, each once.
  [[nodiscard]] event_subscribers wanted_by(const evdl_track_record& event,
                                            evdl_match_func match) const noexcept;

 private:
  struct filter {
    evdl_track_record record;
    unsigned subscriber;
  };

  static std::string_view name_of(const filter& one) noexcept;

  std::vector<filter> filters_;  // by name
  event_subscribers everything_;
};

}  // namespace ot
