// Reading the probe statistics table. The file is made by a process of fewer rights than its
// readers: nothing in it may lead a reader outside the mapping, and a table that is being replaced
// is never waited for.
#include "platform/linux/probes/qmon/table_view.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <bit>
#include <cerrno>

#include "platform/linux/unique_fd.h"

namespace ot {
namespace {

// The header's number of slots, when the header is one that we know and the file has room for it.
int check(const table_header& header, std::size_t file_size, std::uint32_t* ret_slots) noexcept {
  const std::uint32_t slots = header.slots;
  const bool ours = header.magic == table_magic && header.version == table_version &&
                    std::has_single_bit(slots) && slots <= slots_max &&
                    table_size(slots) <= file_size;
  if (ours) {
    *ret_slots = slots;
  }
  return ours ? 0 : EPROTO;
}

}  // namespace

int table_view::open(const std::string& path) noexcept {
  const unique_fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0) {
    return errno;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  if (!S_ISREG(status.st_mode) || size < sizeof(table_header)) {
    return EPROTO;
  }
  void* const mapping = mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
  if (mapping == MAP_FAILED) {
    return errno;
  }
  const auto* const header = static_cast<const table_header*>(mapping);
  std::uint32_t slots = 0;
  if (const int error = check(*header, size, &slots); error != 0) {
    munmap(mapping, size);
    return error;
  }
  close();
  header_ = header;
  size_ = size;
  slots_ = slots;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  return 0;
}

void table_view::close() noexcept {
  if (header_ != nullptr) {
    munmap(const_cast<table_header*>(header_), size_);
    header_ = nullptr;
    slots_ = 0;
  }
}

bool table_view::live(std::uint64_t now_ms) const noexcept {
  // The heartbeat may be newer than the reader's clock, which was read before it.
  return header_ != nullptr && header_->state.load(std::memory_order_acquire) == table_open &&
         now_ms < header_->heartbeat_ms.load(std::memory_order_acquire) + heartbeat_max_age_ms;
}

bool table_view::replaced(const std::string& path) const noexcept {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (status.st_ino != inode_ || status.st_dev != device_);
}

const statistics_cell& table_view::cell(std::uint32_t index) const noexcept {
  const auto* const base = reinterpret_cast<const std::byte*>(header_) + statistics_offset();
  return reinterpret_cast<const statistics_cell*>(base)[index];
}

bool table_view::look_up(std::uint32_t op_id, statistics* ret) const noexcept {
  for (std::uint32_t i = 0; i < slots_; ++i) {
    statistics found;
    if (!cell((op_id + i) & (slots_ - 1)).read(&found)) {
      return false;
    }
    const auto use = static_cast<slot_use>(found[word_use]);
    if (use == slot_use::free) {
      return false;
    }
    if (use == slot_use::running && found[word_op_id] == op_id) {
      *ret = found;
      return true;
    }
  }
  return false;
}

bool table_view::slot(std::uint32_t index, statistics* ret, description* ret_about) const noexcept {
  const auto* const base = reinterpret_cast<const std::byte*>(header_) + description_offset(slots_);
  statistics found;
  const bool running = cell(index).read(&found) &&
                       static_cast<slot_use>(found[word_use]) == slot_use::running &&
                       reinterpret_cast<const description_cell*>(base)[index].read(ret_about);
  if (running) {
    *ret = found;
  }
  return running;
}

}  // namespace ot
