// A reader's view of the probe statistics table: opens it, notices when its writer has gone or has
// made a new one, and finds operations in it.
//
// Everything is copied by reads of the file, so that a file that shrinks is an error and never a
// signal. It takes no lock and trusts nothing: the header is checked each time, a cell carries its
// own check value, and a search has an end whatever the cells say.
#pragma once

#include <cstdint>
#include <string>

#include "platform/linux/probes/qmon/table_layout.h"
#include "platform/linux/unique_fd.h"

namespace ot {

using statistics = published_cell<statistics_words>::words;
using description = published_cell<description_words>::words;

class table_view {
 public:
  // Opens the table at `path` for reading. 0 or an errno value: ENOENT there is none, EPROTO it is
  // none of ours or of another version. What was open before is closed only on success.
  int open(const std::string& path) noexcept;
  [[nodiscard]] bool is_open() const noexcept { return file_.valid(); }

  // Whether this is still a table, and its writer alive and not the writer of a newer one.
  [[nodiscard]] bool live() const noexcept;

  // Copies what the operation last published, whole; whether the writer is alive is not asked.
  // False when it is not running, or when its part of the table is damaged.
  [[nodiscard]] bool look_up(std::uint32_t op_id, statistics* ret) const noexcept;

  // The slots one by one, for those who list them: false for a slot without an operation.
  [[nodiscard]] std::uint32_t slots() const noexcept { return slots_; }
  [[nodiscard]] bool slot(std::uint32_t index, statistics* ret,
                          description* ret_about) const noexcept;

 private:
  template <typename Cell>
  bool read_cell(std::size_t offset, int& reads_left, typename Cell::words* ret) const noexcept;

  unique_fd file_;
  std::uint32_t slots_ = 0;
  std::uint32_t salt_ = 0;
};

}  // namespace ot
