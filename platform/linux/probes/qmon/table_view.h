// A reader's view of the probe statistics table: opens it, notices when its writer has gone or has
// made a new one, and finds operations in it. It takes no lock and trusts nothing but the size that
// it has checked once.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "platform/linux/probes/qmon/table_layout.h"

namespace ot {

using statistics = published_cell<statistics_words>::words;
using description = published_cell<description_words>::words;

class table_view {
 public:
  table_view() noexcept = default;
  ~table_view() { close(); }
  table_view(const table_view&) = delete;
  table_view& operator=(const table_view&) = delete;

  // Maps the table at `path` for reading. 0 or an errno value: ENOENT there is none, EPROTO it is
  // none of ours or of another version. What was open before is closed only on success.
  int open(const std::string& path) noexcept;
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return header_ != nullptr; }

  // Whether the writer is alive. `now_ms` is CLOCK_MONOTONIC.
  [[nodiscard]] bool live(std::uint64_t now_ms) const noexcept;

  // Whether another table than this one stands at `path`.
  [[nodiscard]] bool replaced(const std::string& path) const noexcept;

  // Copies what the operation last published, whole; whether the writer is alive is not asked.
  // False when it is not running.
  [[nodiscard]] bool look_up(std::uint32_t op_id, statistics* ret) const noexcept;

  // The slots one by one, for those who list them: false for a slot without an operation.
  [[nodiscard]] std::uint32_t slots() const noexcept { return slots_; }
  [[nodiscard]] bool slot(std::uint32_t index, statistics* ret,
                          description* ret_about) const noexcept;
  [[nodiscard]] std::uint32_t writer_pid() const noexcept { return header_->writer_pid; }

 private:
  [[nodiscard]] const statistics_cell& cell(std::uint32_t index) const noexcept;

  const table_header* header_ = nullptr;
  std::size_t size_ = 0;
  std::uint32_t slots_ = 0;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace ot
