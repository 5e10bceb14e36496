// What an operation's results come to: the return code that is published, which changes only after
// as many equal results in a row as the operation asks for, and the history that is shown.
#pragma once

#include <cstdint>

#include "platform/linux/probes/qmon/table_view.h"
#include "tools/qmond/operation.h"
#include "tools/qmond/return_code.h"

namespace ot::qmond {

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

}  // namespace ot::qmond
