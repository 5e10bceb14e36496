// The log's queue: system messages and traces are formatted into one static run of bytes, filled
// from the front, so a burst such as 1,500 tracks going down at once costs the handler only the
// formatting. Each sink has its own place in the run, which is emptied when all have reached its
// end.
#include "platform/linux/log/queue.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <span>
#include <string_view>

#include "platform/linux/log/follower.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"
#include "platform/messages.h"
#include "platform/status.h"
#include "platform/trace.h"

namespace ot {
namespace {

constexpr std::size_t room = std::size_t{1} << 20;
constexpr std::size_t longest_line =
    sizeof(log_line_header) + log_text_limit + 1 + log_fields_limit;
constexpr int patience_ms = 200;
constexpr std::uint64_t longest_finish_us = 2'000'000;

struct followers {
  followers() noexcept {
    journal = access("/run/systemd/journal/socket", W_OK) == 0;
    const bool syslog = !journal && access("/dev/log", W_OK) == 0;
    if (journal || syslog) {
      list[count++].follow(journal ? to_journal : to_syslog);
    }
    if (isatty(STDERR_FILENO) == 1 || count == 0) {
      list[count++].follow(to_standard_error);
    }
  }

  log_datagrams to_journal{"/run/systemd/journal/socket", log_for_journal};
  log_datagrams to_syslog{"/dev/log", log_for_syslog};
  log_stream to_standard_error{STDERR_FILENO};
  log_follower list[2];
  std::size_t count = 0;
  bool journal = false;  // it alone takes fields
};

std::mutex lock;
char lines[room];  // untouched pages cost nothing
std::size_t used = 0;
evm* attached = nullptr;
thread_local bool on_loop_thread = false;

followers& known() noexcept {
  static followers found;
  return found;
}

std::span<log_follower> all() noexcept {
  return {known().list, known().count};
}

std::string_view queue() noexcept {
  return {lines, used};
}

// True when every sink has everything.
bool write_all() noexcept {
  bool done = true;
  for (log_follower& one : all()) {
    const bool finished = one.write(queue());
    done = done && finished;
    if (finished && on_loop_thread) {
      one.sleep();
    } else if (!finished && on_loop_thread && attached != nullptr) {
      one.wake(evm_sd_event(attached));
    }
  }
  return done;
}

void clear() noexcept {
  for (log_follower& one : all()) {
    one.drop_rest(queue());
    one.rewind();
  }
  used = 0;
}

void write() noexcept {
  if (write_all()) {
    clear();
  }
}

// Waits a little for the sinks that are behind. False when none of them takes anything.
bool wait_for_sinks() noexcept {
  pollfd states[2];
  nfds_t count = 0;
  for (const log_follower& one : all()) {
    if (one.behind(queue())) {
      states[count++] = {.fd = one.awaited(), .events = POLLOUT, .revents = 0};
    }
  }
  return poll(states, count, patience_ms) > 0;
}

void finish() noexcept {
  const std::uint64_t end = monotonic_us() + longest_finish_us;
  while (!write_all() && monotonic_us() < end && wait_for_sinks()) {
  }
  clear();
}

// The number of characters in a buffer of `size` bytes after snprintf returned `formatted`.
constexpr std::size_t formatted_length(int formatted, std::size_t size) noexcept {
  return formatted < 0 ? 0 : std::min(static_cast<std::size_t>(formatted), size - 1);
}

// Writes the fields as the journal takes them to `ret`, which has room for log_fields_limit
// characters; their length.
std::size_t write_fields(std::span<const errmsg_field> fields, char* ret) noexcept {
  std::size_t written = 0;
  for (const errmsg_field& field : fields) {
    const std::size_t name = std::strlen(field.name);
    const std::size_t value = std::strlen(field.value);
    if (written + name + value + 2 > log_fields_limit) {
      continue;
    }
    char* end = std::copy_n(field.name, name, ret + written);
    *end++ = '=';
    end = std::transform(field.value, field.value + value, end, [](unsigned char character) {
      return character < ' ' || character == 127 ? '?' : static_cast<char>(character);
    });
    *end++ = '\n';
    written = static_cast<std::size_t>(end - ret);
  }
  return written;
}

// Queues (or writes) one line; `record` is null for a trace. The arguments are those of `format`.
void add_line(const errmsg_record* record, std::uint32_t severity,
              std::span<const errmsg_field> fields, const char* format,
              std::va_list arguments) noexcept {
  const std::lock_guard guard(lock);
  if (used + longest_line > room) {
    write_all();
    clear();
  }
  char* text = lines + used + sizeof(log_line_header);
  std::size_t length = formatted_length(std::vsnprintf(text, log_text_limit + 1, format, arguments),
                                        log_text_limit + 1);
  while (length > 0 && text[length - 1] == '\n') {
    --length;
  }
  const std::size_t fields_length = known().journal ? write_fields(fields, text + length) : 0;
  const log_line_header header{record, severity, static_cast<std::uint32_t>(length),
                               static_cast<std::uint32_t>(fields_length)};
  std::memcpy(lines + used, &header, sizeof header);
  used += sizeof header + length + fields_length;
  if (attached == nullptr || !on_loop_thread) {
    write();
  }
}

}  // namespace

int log_queue_attach(evm* manager) noexcept {
  const int status = evm_add_flush(
      manager, evm_flush_stage::log, [](void*) { log_queue_flush(); }, nullptr);
  if (status == status_ok) {
    const std::lock_guard guard(lock);
    attached = manager;
    on_loop_thread = true;
  }
  return status;
}

void log_queue_detach() noexcept {
  const std::lock_guard guard(lock);
  finish();
  for (log_follower& one : all()) {
    one.sleep();
  }
  attached = nullptr;
}

void log_queue_flush() noexcept {
  const std::lock_guard guard(lock);
  if (used > 0) {
    write();
  }
}

void log_queue_finish() noexcept {
  const std::lock_guard guard(lock);
  finish();
}

std::uint64_t errmsg_dropped() noexcept {
  const std::lock_guard guard(lock);
  std::uint64_t missed = 0;
  for (const log_follower& one : all()) {
    missed += one.missed();
  }
  return missed;
}

// --- Messages and traces -------------------------------------------------------------------------

void errmsg_log(const errmsg_record* record, std::uint32_t severity, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, severity);
  add_line(record, severity, {}, record->format, arguments);
  va_end(arguments);
}

void errmsg_log_fields(const errmsg_record* record, std::uint32_t severity,
                       std::span<const errmsg_field> fields, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, fields);
  add_line(record, severity, fields, record->format, arguments);
  va_end(arguments);
}

void dbg_print(const dbg_flag& /*flag*/, std::uint32_t /*reserved1*/, std::uint32_t /*reserved2*/,
               const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  add_line(nullptr, LOG_DEBUG, {}, format, arguments);
  va_end(arguments);
}

}  // namespace ot
