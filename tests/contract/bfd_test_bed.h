// What the BFD client's contract tests need of the platform they run on: an engine, and peers that
// answer it.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/evm.h"

namespace ot::contract {

inline constexpr const char* bed_interface = "v1";

// The engine is installed, but does not run. It may use the client's loop.
class bfd_test_bed {
 public:
  virtual ~bfd_test_bed() = default;
  // The handle of `bed_interface`.
  [[nodiscard]] virtual std::uint32_t handle() const = 0;
  // The engine starts without sessions, and ends.
  virtual void start() = 0;
  virtual void end() = 0;
  // The peer of that address answers from now on, whoever asks; it falls silent.
  virtual void answer(const char* address) = 0;
  virtual void fall_silent(const char* address) = 0;
  // How many sessions the engine has.
  virtual std::size_t sessions() = 0;
};

std::unique_ptr<bfd_test_bed> make_bfd_test_bed(evm* manager);

}  // namespace ot::contract
