// The file: magic, version, time, checksum of what follows; the items in the order of their
// changes; for each the place of its owner's first item. Numbers are little-endian.
#include "platform/ledger/server/configuration_copy.h"

#include <cerrno>
#include <ctime>
#include <new>

#include "platform/common/root_path.h"
#include "platform/ledger/item.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"
#include "platform/linux/give_memory_back.h"
#include "platform/linux/process/directories.h"
#include "platform/messages.h"

namespace ot {
namespace {

constexpr std::uint32_t magic = 0x6763746f;  // "otcg"
constexpr std::uint32_t version = 1;
constexpr std::size_t head_bytes = 24;
constexpr std::size_t longest_file = std::size_t{64} << 20;
constexpr std::uint64_t settle_us = 5'000'000;
constexpr std::uint64_t retry_us = 60'000'000;

constexpr errmsg_record copy_log{"OT", "SERVICES", "LEDGER", "%s", 4, 1, {0, 0, 0}, nullptr};

// FNV-1a: found is what happens to disks, not what somebody does on purpose.
std::uint64_t checksum(std::span<const std::byte> bytes) noexcept {
  std::uint64_t sum = 0xcbf29ce484222325;
  for (const std::byte byte : bytes) {
    sum = (sum ^ static_cast<std::uint64_t>(byte)) * 0x100000001b3;
  }
  return sum;
}

void put_u64(ledger_writer& writer, std::uint64_t number) {
  writer.u32(static_cast<std::uint32_t>(number));
  writer.u32(static_cast<std::uint32_t>(number >> 32));
}

std::uint64_t take_u64(ledger_reader& reader) noexcept {
  const std::uint64_t low = reader.u32();
  return low | std::uint64_t{reader.u32()} << 32;
}

std::string encode(const configuration_copy& copy) {
  ledger_writer items;
  ledger_put_stored(items, copy.items);
  for (const ledger_stored& item : copy.items) {
    put_u64(items, item.first);
  }
  ledger_writer file;
  file.u32(magic);
  file.u32(version);
  put_u64(file, static_cast<std::uint64_t>(copy.made));
  put_u64(file, checksum(items.data()));
  file.append(items);
  return {reinterpret_cast<const char*>(file.data().data()), file.data().size()};
}

bool decode(std::span<const std::byte> file, configuration_copy& ret) {
  ledger_reader reader{file};
  const bool known = reader.u32() == magic && reader.u32() == version;
  ret.made = static_cast<std::int64_t>(take_u64(reader));
  const std::uint64_t sum = take_u64(reader);
  if (!known || !reader.ok() || checksum(file.subspan(head_bytes)) != sum) {
    return false;
  }
  if (ledger_take_stored(reader, ret.items) != status_ok) {
    return false;
  }
  for (ledger_stored& item : ret.items) {
    item.first = take_u64(reader);
    item.sequence = static_cast<std::uint64_t>(&item - ret.items.data()) + 1;
  }
  return reader.finished();
}

// Whether both have the same items; the time of their making does not count.
bool is_same(std::string_view one, std::string_view other) noexcept {
  constexpr std::size_t time_at = 8;
  constexpr std::size_t time_end = 16;
  return one.size() >= head_bytes && one.substr(0, time_at) == other.substr(0, time_at) &&
         one.substr(time_end) == other.substr(time_end);
}

}  // namespace

std::string configuration_path() {
  return root_path("/var/lib/object_tracking/configuration.mdb");
}

std::string configuration_copy_path() {
  return root_path("/var/lib/object_tracking/configuration.copy");
}

std::string configuration_copy::name() const {
  const auto seconds = static_cast<std::time_t>(made);
  std::tm local{};
  char when[32] = "?";
  if (localtime_r(&seconds, &local) != nullptr) {
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
  }
  return std::string("the copy of ") + when + " (" + std::to_string(items.size()) + " items)";
}

int read_configuration_copy(const std::string& path, configuration_copy& ret,
                            std::string& ret_error) {
  std::string content;
  if (const int error = read_own_file(path, longest_file, content, ret_error); error != 0) {
    return error;
  }
  configuration_copy copy;
  if (!decode(std::as_bytes(std::span(content)), copy)) {
    ret_error = path + ": the copy is damaged";
    return EBADMSG;
  }
  ret = std::move(copy);
  return 0;
}

int write_configuration_copy(const std::string& path, const configuration_copy& copy,
                             std::string& ret_error) {
  const std::string content = encode(copy);
  std::string present;
  if (read_own_file(path, longest_file, present, ret_error) == 0 && is_same(present, content)) {
    return 0;
  }
  return replace_own_file(path, content, 0600, true, ret_error);
}

// --- Keeping it up to date -----------------------------------------------------------------------

configuration_keeper::~configuration_keeper() {
  if (worker_.joinable()) {
    worker_.join();
  }
  sd_event_source_disable_unref(due_);
}

int configuration_keeper::start(sd_event* loop) noexcept {
  try {
    path_ = configuration_copy_path();
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
  const int r =
      sd_event_add_time_relative(loop, &due_, CLOCK_MONOTONIC, settle_us, settle_us, on_due, this);
  waiting_ = r >= 0;
  return r < 0 ? -r : 0;
}

void configuration_keeper::due_in(std::uint64_t usec) noexcept {
  waiting_ = sd_event_source_set_time_relative(due_, usec) >= 0 &&
             sd_event_source_set_enabled(due_, SD_EVENT_ONESHOT) >= 0;
}

// What failed is tried again with the first handler after a minute.
void configuration_keeper::look() noexcept {
  if (due_ != nullptr && !waiting_ && !busy_ && (failed_ || store_.last_write() != written_)) {
    due_in(failed_ ? retry_us : settle_us);
  }
}

int configuration_keeper::on_due(sd_event_source* /*source*/, std::uint64_t /*now*/,
                                 void* keeper) noexcept {
  static_cast<configuration_keeper*>(keeper)->begin();
  return 0;
}

void configuration_keeper::begin() noexcept {
  waiting_ = false;
  try {
    if (worker_.joinable()) {
      worker_.join();
    }
    written_ = store_.last_write();
    busy_ = true;
    worker_ = std::thread{[this] {
      write();
      // The copy took as much as the configuration, and so did the changes before.
      store_.unmap_pages();
      give_memory_back();
      busy_ = false;
    }};
  } catch (const std::system_error&) {
    busy_ = false;
    failed_ = true;
  }
}

// What fails is said once.
void configuration_keeper::write() noexcept {
  try {
    std::string error = "the store cannot be read";
    configuration_copy copy{.made = std::time(nullptr), .items = {}};
    if (store_.snapshot(copy.items) == status_ok &&
        write_configuration_copy(path_, copy, error) == 0) {
      failed_ = false;
      return;
    }
    if (!failed_) {
      const std::string text = "no copy of the configuration is kept: " + error;
      errmsg_log(&copy_log, copy_log.severity, text.c_str());
    }
  } catch (const std::bad_alloc&) {
    // Tried again like any other failure.
  }
  failed_ = true;
}

void configuration_keeper::finish() noexcept {
  if (worker_.joinable()) {
    worker_.join();
  }
  if (due_ != nullptr && (waiting_ || failed_ || store_.last_write() != written_)) {
    write();
  }
  due_ = sd_event_source_disable_unref(due_);
}

}  // namespace ot
