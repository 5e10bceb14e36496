// The writing end of the probe statistics table. All its pages are allocated when it is made, so
// that a full /run shows then and never as a fault in the middle of a publication or in a reader.
#include "tools/qmond/table_writer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
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

// The header of the table at `path`, if there is one of ours; else null.
table_header* map_old_header(const std::string& path) noexcept {
  const unique_fd file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      static_cast<std::size_t>(status.st_size) < sizeof(table_header)) {
    return nullptr;
  }
  void* const mapping = map_for_writing(file, sizeof(table_header));
  auto* const header = mapping == MAP_FAILED ? nullptr : static_cast<table_header*>(mapping);
  if (header != nullptr && (header->magic != table_magic || header->version != table_version)) {
    munmap(mapping, sizeof(table_header));
    return nullptr;
  }
  return header;
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

table_writer::table_writer(std::string path, std::uint32_t operations)
    : path_(std::move(path)), slots_(slots_for(operations)) {
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
}

void table_writer::install() {
  beat();
  header_->state.store(table_open, std::memory_order_release);
  table_header* const old = map_old_header(path_);
  const int error = std::rename(fresh_name(path_).c_str(), path_.c_str()) == 0 ? 0 : errno;
  if (old != nullptr) {
    // Only now: who finds the old table closed must find the new one in its place.
    if (error == 0) {
      old->state.store(table_closed, std::memory_order_release);
    }
    munmap(old, sizeof(table_header));
  }
  if (error != 0) {
    fail(error, path_);
  }
}

table_writer::~table_writer() {
  header_->state.store(table_closed, std::memory_order_release);
  munmap(header_, table_size(slots_));
}

slot_use table_writer::use_of(std::uint32_t slot) const noexcept {
  statistics words;
  return statistics_[slot].read(&words) ? static_cast<slot_use>(words[word_use]) : slot_use::free;
}

void table_writer::set_use(std::uint32_t slot, slot_use use, std::uint32_t op_id) noexcept {
  statistics words{};
  words[word_op_id] = op_id;
  words[word_use] = static_cast<std::uint32_t>(use);
  statistics_[slot].publish(words);
}

std::uint32_t table_writer::add(std::uint32_t op_id, const description& about) noexcept {
  std::uint32_t slot = op_id & (slots_ - 1);
  while (use_of(slot) == slot_use::running) {
    slot = (slot + 1) & (slots_ - 1);
  }
  descriptions_[slot].publish(about);  // before anybody finds the slot
  set_use(slot, slot_use::running, op_id);
  return slot;
}

void table_writer::remove(std::uint32_t slot) noexcept {
  const std::uint32_t mask = slots_ - 1;
  if (use_of((slot + 1) & mask) != slot_use::free) {
    set_use(slot, slot_use::vacated, 0);
    return;
  }
  // Nothing is searched beyond here: the slot is free again, and so are vacated ones before it.
  do {
    set_use(slot, slot_use::free, 0);
    slot = (slot - 1) & mask;
  } while (use_of(slot) == slot_use::vacated);
}

void table_writer::publish(std::uint32_t slot, statistics result) noexcept {
  statistics known;
  if (statistics_[slot].read(&known)) {
    result[word_op_id] = known[word_op_id];
    result[word_use] = known[word_use];
    statistics_[slot].publish(result);
  }
}

void table_writer::beat() noexcept {
  header_->heartbeat_ms.store(monotonic_ms(), std::memory_order_release);
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
