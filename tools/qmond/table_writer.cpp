// The writing end of the probe statistics table. All its pages are allocated when it is made, so
// that a full /run shows then and never as a fault in the middle of a publication or in a reader.
#include "tools/qmond/table_writer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/linux/monotonic.h"
#include "platform/linux/unique_fd.h"
#include "tools/qmond/kinds/kinds.h"

namespace ot::qmond {
namespace {

constexpr std::uint32_t slots_min = 64;

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

// Half of the slots stay free: searches are short, and an operation that comes back after a reload
// finds room without a new table.
std::uint32_t slots_for(std::uint32_t operations) {
  return std::min(slots_max, std::bit_ceil(std::max(slots_min, 2 * operations)));
}

void* map_for_writing(const unique_fd& file, std::size_t size) noexcept {
  return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
}

// The table at `path`, whoever left it there; invalid when there is none.
unique_fd open_old(const std::string& path) noexcept {
  return unique_fd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
}

// Lets its readers look for the one that has taken its place.
void close_old(const unique_fd& old) noexcept {
  struct stat status {};
  std::uint32_t magic = 0;
  if (old.valid() && fstat(old.get(), &status) == 0 && S_ISREG(status.st_mode) &&
      pread(old.get(), &magic, sizeof magic, offsetof(table_header, magic)) == sizeof magic &&
      magic == table_magic) {
    // Best effort: what is not marked grows old.
    (void)!pwrite(old.get(), &table_closed, sizeof table_closed, offsetof(table_header, state));
  }
}

std::string fresh_name(const std::string& path) {
  return path + ".new";
}

// A file of `size` bytes that all have their place in memory already.
unique_fd make_file(const std::string& name, std::size_t size) {
  unlink(name.c_str());  // of a writer that was killed
  unique_fd file(open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640));
  if (!file.valid()) {
    fail(errno, name);
  }
  if (const int error = posix_fallocate(file.get(), 0, static_cast<off_t>(size)); error != 0) {
    unlink(name.c_str());
    fail(error, name);
  }
  return file;
}

}  // namespace

table_writer::table_writer(std::string path, std::uint32_t operations, std::uint32_t salt)
    : path_(std::move(path)), slots_(slots_for(operations)), salt_(salt), held_(slots_) {
  const unique_fd file = make_file(fresh_name(path_), table_size(slots_));
  void* const mapping = map_for_writing(file, table_size(slots_));
  if (mapping == MAP_FAILED) {
    fail(errno, fresh_name(path_));
  }
  auto* const base = static_cast<std::byte*>(mapping);
  header_ = reinterpret_cast<table_header*>(base);
  statistics_ = reinterpret_cast<statistics_cell*>(base + statistics_offset());
  descriptions_ = reinterpret_cast<description_cell*>(base + description_offset(slots_));
  header_->magic = table_magic;
  header_->version = table_version;
  header_->slots = slots_;
  header_->writer_pid = static_cast<std::uint32_t>(getpid());
  header_->salt = salt_;
}

void table_writer::install() {
  beat();
  set_state(table_open);
  const unique_fd old = open_old(path_);
  if (std::rename(fresh_name(path_).c_str(), path_.c_str()) != 0) {
    fail(errno, path_);
  }
  // Only now: who finds the old table closed must find the new one in its place.
  close_old(old);
}

table_writer::~table_writer() {
  set_state(table_closed);
  munmap(header_, table_size(slots_));
}

void table_writer::set_state(std::uint32_t state) noexcept {
  std::atomic_ref(header_->state).store(state, std::memory_order_release);
}

void table_writer::set_use(std::uint32_t slot, slot_use use, std::uint32_t op_id) noexcept {
  held_[slot] = {op_id, use};
  publish(slot, {});
}

std::optional<std::uint32_t> table_writer::add(std::uint32_t op_id,
                                               const description& about) noexcept {
  const std::uint32_t home = home_slot(op_id, salt_, slots_);
  for (std::uint32_t i = 0; i < std::min(slots_, search_max); ++i) {
    const std::uint32_t slot = (home + i) & (slots_ - 1);
    if (held_[slot].use != slot_use::running) {
      descriptions_[slot].publish(about);  // before anybody finds the slot
      set_use(slot, slot_use::running, op_id);
      return slot;
    }
  }
  return std::nullopt;
}

void table_writer::remove(std::uint32_t slot) noexcept {
  const std::uint32_t mask = slots_ - 1;
  if (held_[(slot + 1) & mask].use != slot_use::free) {
    set_use(slot, slot_use::vacated, 0);
    return;
  }
  // Nothing is searched beyond here: the slot is free again, and so are vacated ones before it.
  do {
    set_use(slot, slot_use::free, 0);
    slot = (slot - 1) & mask;
  } while (held_[slot].use == slot_use::vacated);
}

void table_writer::publish(std::uint32_t slot, statistics result) noexcept {
  result[word_op_id] = held_[slot].op_id;
  result[word_use] = static_cast<std::uint32_t>(held_[slot].use);
  statistics_[slot].publish(result);
}

void table_writer::beat() noexcept {
  std::atomic_ref(header_->heartbeat_ms).store(monotonic_ms(), std::memory_order_release);
}

description describe(const std::string& text, std::uint32_t interval_ms, std::uint32_t timeout_ms) {
  description about{};
  about[word_interval_ms] = interval_ms;
  about[word_timeout_ms] = timeout_ms;
  std::memcpy(&about[word_text], text.data(), std::min(text.size(), description_text_size - 1));
  return about;
}

description describe(const operation& config) {
  return describe(std::string(kind_of(config.kind).word) + ' ' + config.target, config.interval_ms,
                  config.timeout_ms);
}

std::string description_text(const description& about) {
  const auto* const text = reinterpret_cast<const char*>(&about[word_text]);
  return {text, strnlen(text, description_text_size)};
}

}  // namespace ot::qmond
