// What probes come to: the return code of each; of an operation's results the return code that is
// published, which changes only after as many equal results in a row as the operation asks for; and
// the history that is shown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/probes/qmon/table_view.h"

namespace ot::qmond {

// The numbers are those of the statistics table; qmon_retCodeToStr has their texts.
enum class return_code : std::uint32_t {
  none = 0,  // no result yet
  ok = 1,
  no_answer = 2,
  unreachable = 3,
  refused = 4,
  name_not_resolved = 5,
  bad_answer = 6,
  cannot_run = 7,
};

// The return code of a connection or a packet that failed with that errno value.
return_code code_of_errno(int error) noexcept;

class outcome {
 public:
  // Before the first result the return code is `none`, and the counts hold for it as well.
  outcome(std::uint32_t rise, std::uint32_t fall) noexcept : rise_(rise), fall_(fall) {}

  // A result; its round-trip time counts only for a success. `now_s` is the wall clock.
  void record(return_code code, std::uint64_t round_trip_us, std::uint32_t now_s) noexcept;

  // As the table's words; the op id and the use are not among them.
  [[nodiscard]] const statistics& words() const noexcept { return words_; }

 private:
  void set_code(return_code code, std::uint32_t now_s) noexcept;
  void remember(std::uint32_t bits) noexcept;

  std::uint32_t rise_;
  std::uint32_t fall_;
  std::uint32_t successes_in_a_row_ = 0;
  std::uint32_t failures_in_a_row_ = 0;
  statistics words_{};
};

// The history's four bits of a success with that round-trip time.
std::uint32_t round_trip_level(std::uint64_t round_trip_us) noexcept;

inline constexpr std::size_t history_shown = 20;

// The four bits of each, the oldest first, at most `history_shown`; see table_layout.h.
std::vector<std::uint32_t> history_levels(const statistics& result);

// One column a result: the higher the slower, and an x or a dot below for a failure.
std::string history_bar(const statistics& result, bool utf8);

}  // namespace ot::qmond
