// Reading the probe statistics table. The file is made by a process of fewer rights than its
// readers: nothing in it may hurt a reader, keep it busy, or make it believe what nobody published.
#include "platform/linux/probes/qmon/table_view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "platform/linux/monotonic.h"

namespace ot {
namespace {

// How often cells are read for one question. A working writer makes a reader try again once in a
// very long while; only one that does nothing but publish makes it try some times.
constexpr int reads_max = 1024;

template <typename T>
bool read_at(const unique_fd& file, std::size_t offset, T* ret) noexcept {
  ssize_t length = -1;
  do {
    length = pread(file.get(), ret, sizeof *ret, static_cast<off_t>(offset));
  } while (length < 0 && errno == EINTR);
  return length == static_cast<ssize_t>(sizeof *ret);
}

// Whether the header is one that we know.
bool known(const table_header& header) noexcept {
  return header.magic == table_magic && header.version == table_version &&
         std::has_single_bit(header.slots) && header.slots <= slots_max;
}

}  // namespace

int table_view::open(const std::string& path) noexcept {
  unique_fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0) {
    return errno;
  }
  table_header header;
  if (!S_ISREG(status.st_mode) || !read_at(file, 0, &header) || !known(header) ||
      table_size(header.slots) > static_cast<std::size_t>(status.st_size)) {
    return EPROTO;
  }
  file_ = std::move(file);
  slots_ = header.slots;
  salt_ = header.salt;
  return 0;
}

// The heartbeat is read before the clock, so that it is never newer.
bool table_view::live() const noexcept {
  table_header header;
  if (!file_.valid() || !read_at(file_, 0, &header)) {
    return false;
  }
  return known(header) && header.slots == slots_ && header.salt == salt_ &&
         header.state == table_open && heartbeat_counts(header.heartbeat_ms, monotonic_ms());
}

// A cell that does not agree with its check value was copied while it was published, and has
// changed when it is read again; one that has not is damaged.
template <typename Cell>
bool table_view::read_cell(std::size_t offset, int& reads_left,
                           typename Cell::words* ret) const noexcept {
  Cell before;
  for (bool again = false; reads_left > 0; again = true) {
    Cell cell;
    --reads_left;
    if (!read_at(file_, offset, &cell)) {
      return false;
    }
    if (cell.read(ret)) {
      return true;
    }
    if (again && std::memcmp(&cell, &before, sizeof cell) == 0) {
      return false;
    }
    before = cell;
  }
  return false;
}

// Behind a damaged cell the search goes on: nobody can tell whether it was free.
bool table_view::look_up(std::uint32_t op_id, statistics* ret) const noexcept {
  const std::uint32_t home = home_slot(op_id, salt_, slots_);
  int reads_left = reads_max;
  for (std::uint32_t i = 0; i < std::min(slots_, search_max); ++i) {
    const std::size_t slot = (home + i) & (slots_ - 1);
    statistics found;
    if (!read_cell<statistics_cell>(statistics_offset(slot), reads_left, &found)) {
      continue;
    }
    const auto use = static_cast<slot_use>(found[word_use]);
    if (use == slot_use::running && found[word_op_id] == op_id) {
      *ret = found;
      return true;
    }
    if (use == slot_use::free) {
      return false;
    }
  }
  return false;
}

bool table_view::slot(std::uint32_t index, statistics* ret, description* ret_about) const noexcept {
  int reads_left = reads_max;
  statistics found;
  const bool running =
      index < slots_ && read_cell<statistics_cell>(statistics_offset(index), reads_left, &found) &&
      static_cast<slot_use>(found[word_use]) == slot_use::running &&
      read_cell<description_cell>(description_offset(slots_, index), reads_left, ret_about);
  if (running) {
    *ret = found;
  }
  return running;
}

}  // namespace ot
