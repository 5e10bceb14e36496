// Labels of the sessions we ask the engine for: "ot-INSTANCE-RUN-NUMBER" in hexadecimal. Sessions
// outlive the process that asked for them; by its label a session is known as this instance's own,
// and as one of this run or of an earlier one.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/linux/bfd/frr_control/protocol.h"

namespace ot::bfd {

class session_labels {
 public:
  // `instance`: the same for every run of one instance, and only for those; `run`: another for
  // every run.
  session_labels(std::uint32_t instance, std::uint32_t run) noexcept
      : instance_(instance), run_(run) {}

  [[nodiscard]] session_label label(std::uint32_t number) const noexcept;
  // Whether the label is one of this instance's, of whichever run.
  [[nodiscard]] bool own(const session_label& label) const noexcept;
  // The number in a label of this run.
  [[nodiscard]] std::optional<std::uint32_t> number(const session_label& label) const noexcept;

 private:
  std::uint32_t instance_;
  std::uint32_t run_;
};

// The labels of this process: the instance is known by its root directory. Throws bad_alloc.
session_labels this_process_labels();

}  // namespace ot::bfd
