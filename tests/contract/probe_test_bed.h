// What the probe service's contract tests need of the platform they run on.
#pragma once

#include <cstdint>
#include <memory>

namespace ot::contract {

// A router with the probe service's package installed; the service is not running and never was.
class probe_test_bed {
 public:
  virtual ~probe_test_bed() = default;
  // The service starts, with a table of its own and no operations, and ends.
  virtual void start() = 0;
  virtual void end() = 0;
  // An operation runs and has this result; it runs no more.
  virtual void result(std::uint32_t op_id, std::uint32_t code, std::uint32_t milliseconds) = 0;
  virtual void stop(std::uint32_t op_id) = 0;
};

std::unique_ptr<probe_test_bed> make_probe_test_bed();

}  // namespace ot::contract
