// qmon_: the network-probe service, an optional package. Its two libraries are found by the loader;
// its results stand in a shared-memory table that is read without asking anybody. Calls come from
// one thread, but where said otherwise.
#pragma once

#include <cstdint>

namespace ot {

// Loads one of the package's libraries ("libqmon_infra.dll") with all its symbols bound and open to
// others. Null when it is not there. What was loaded n times stays until it was unloaded n times.
[[nodiscard]] void* qmon_library_load(const char* name) noexcept;
void qmon_library_unload(void* library) noexcept;

// Opens the statistics table for reading, where none is open that the service fills. 0, or a status
// code when the libraries are not loaded, the service does not run or its table is not one we can
// read.
int qmon_ot_shm_client_init() noexcept;

// The open table, or null while none is open or the service does not fill it: it has ended, or has
// put another in its place that is to be opened first. Valid until the next open.
void* qmon_ot_shm_get_stat_tbl() noexcept;

// One operation's latest result, as the service published it in one piece.
struct qmon_stat_entry {
  std::uint32_t op_id = 0;
  std::uint32_t return_code = 0;    // 0 no result yet, 1 success, else a failure
  std::uint32_t response_time = 0;  // round-trip time, milliseconds
};

// Copies the operation's entry to `ret`. False, and `ret` as it was, when the table is null or the
// operation, or the service itself, is not running.
[[nodiscard]] bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* table,
                                        qmon_stat_entry* ret) noexcept;

// The text of a probe's return code: 0 no result yet, 1 success, others the ways to fail. The text
// of an unknown code names the number and stays valid until the same thread's next call. Any
// thread.
const char* qmon_retCodeToStr(std::uint32_t code) noexcept;

}  // namespace ot
