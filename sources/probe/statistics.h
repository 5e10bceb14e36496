// Reading the probe service's shared statistics. The service is an optional package, and may come
// and go while we run. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"

namespace ot {

struct qmon_stats {
  std::uint32_t latestReturnCode = 0;    // 1 success, 0 no result yet, else a failure
  std::uint32_t latestResponseTime = 0;  // milliseconds
};

// Read result when the package is not there.
inline constexpr int probe_package_not_available = 3;

// Both libraries of the package, loaded as long as this lives.
class probe_package {
 public:
  probe_package() noexcept;
  ~probe_package();
  probe_package(probe_package&& other) noexcept;
  probe_package(const probe_package&) = delete;
  probe_package& operator=(const probe_package&) = delete;
  probe_package& operator=(probe_package&&) = delete;

  [[nodiscard]] bool available() const noexcept { return component_ != nullptr; }

 private:
  void* infrastructure_ = nullptr;
  void* component_ = nullptr;
};

// Gives up the libraries that reading has kept loaded: the end of the service.
void release_probe_package() noexcept;

// Notes whether the statistics table can be read, and opens it where it can.
void look_for_probe_service() noexcept;

// Opens the statistics table for reading, where the package is there.
void track_prb_init() noexcept;

// Reads an operation's latest result; one that is not running has no result (both fields 0). 0, 3
// without the package (`stats` as it was), 22 for a null `stats`.
int shm_read_qmon_stats(std::int32_t op_id, qmon_stats* stats) noexcept;

// Success is up, no result unknown, everything else down.
track_state state_of_return_code(std::uint32_t code) noexcept;

}  // namespace ot
