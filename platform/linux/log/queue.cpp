// The log: system messages and traces are formatted into one static run of bytes, filled from the
// front and emptied as a whole, so a burst such as 1,500 tracks going down at once costs the
// handler only the formatting.
//
// The journal takes a message's parts as fields of their own, so that an operator filters by
// OT_MESSAGE=TRACK_INFO; the system log takes the line. Standard error gets it too when it is a
// terminal or when neither of the two exists (a test, a container).
#include "platform/linux/log/queue.h"

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>
#include <span>

#include "platform/linux/loop/sd_event.h"
#include "platform/messages.h"
#include "platform/status.h"
#include "platform/trace.h"

#define SD_JOURNAL_SUPPRESS_LOCATION  // the location would be this file's
#include <systemd/sd-journal.h>

namespace ot {
namespace {

// The number of characters in a buffer of `size` bytes after snprintf returned `formatted`.
constexpr std::size_t formatted_length(int formatted, std::size_t size) noexcept {
  return formatted < 0 ? 0 : std::min(static_cast<std::size_t>(formatted), size - 1);
}

// --- Sinks ---------------------------------------------------------------------------------------

constexpr std::size_t text_limit = 1000;  // of one line; longer ones are cut
constexpr std::size_t line_limit = 1200;  // the longest text and the prefix before it

constexpr std::string_view identifier = "SYSLOG_IDENTIFIER=object_tracking";

struct sinks {
  bool journal = access("/run/systemd/journal/socket", W_OK) == 0;
  bool syslog = !journal && access("/dev/log", W_OK) == 0;
  bool standard_error = isatty(STDERR_FILENO) == 1 || (!journal && !syslog);
};

// Prints a "NAME=value" field for the journal into `buffer`.
[[gnu::format(printf, 2, 3)]] iovec field(std::span<char> buffer, const char* format,
                                          ...) noexcept {
  std::va_list values;
  va_start(values, format);
  const int formatted = std::vsnprintf(buffer.data(), buffer.size(), format, values);
  va_end(values);
  return {buffer.data(), formatted_length(formatted, buffer.size())};
}

void write_journal(const errmsg_record* record, std::uint32_t severity,
                   std::string_view line) noexcept {
  char message[line_limit];
  char short_fields[6][64];
  iovec fields[8] = {
      field(message, "MESSAGE=%.*s", static_cast<int>(line.size()), line.data()),
      field(short_fields[0], "PRIORITY=%u", severity),
      field(short_fields[1], "SYSLOG_FACILITY=%d", LOG_DAEMON >> 3),
      iovec{const_cast<char*>(identifier.data()), identifier.size()},
  };
  int count = 4;
  if (record != nullptr) {
    fields[count++] = field(short_fields[2], "OT_FACILITY=%s", record->facility);
    fields[count++] = field(short_fields[3], "OT_GROUP=%s", record->group);
    fields[count++] = field(short_fields[4], "OT_MESSAGE=%s", record->name);
    fields[count++] = field(short_fields[5], "OT_NUMBER=0x%08x", record->number);
  }
  sd_journal_sendv(fields, count);
}

void write_standard_error(std::string_view line) noexcept {
  char newline = '\n';
  const iovec parts[] = {{const_cast<char*>(line.data()), line.size()}, {&newline, 1}};
  // There is nowhere left to report to when standard error itself fails.
  [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, parts, std::size(parts));
}

// Writes one line; `record` is null for a trace. The caller serialises the calls.
void write_line(const errmsg_record* record, std::uint32_t severity,
                std::string_view text) noexcept {
  static const sinks to;
  char buffer[line_limit];
  std::string_view line = text;
  if (record != nullptr) {
    const int length =
        std::snprintf(buffer, sizeof buffer, "%s-%s-%u-%s: %.*s", record->facility, record->group,
                      severity, record->name, static_cast<int>(text.size()), text.data());
    line = {buffer, formatted_length(length, sizeof buffer)};
  }
  if (to.journal) {
    write_journal(record, severity, line);
  } else if (to.syslog) {
    syslog(LOG_DAEMON | static_cast<int>(severity & LOG_PRIMASK), "%.*s",
           static_cast<int>(line.size()), line.data());
  }
  if (to.standard_error) {
    write_standard_error(line);
  }
}

// --- The queue -----------------------------------------------------------------------------------

struct line_header {
  const errmsg_record* record;
  std::uint32_t severity;
  std::uint32_t length;
};

constexpr std::size_t room = 160'000;
constexpr std::size_t longest_line = sizeof(line_header) + text_limit + 1;

std::mutex lock;
alignas(line_header) char lines[room];  // untouched pages cost nothing
std::size_t used = 0;
bool attached = false;
thread_local bool on_loop_thread = false;

void write_all() noexcept {
  std::size_t at = 0;
  while (at < used) {
    line_header header;
    std::memcpy(&header, lines + at, sizeof header);
    write_line(header.record, header.severity, {lines + at + sizeof header, header.length});
    at += sizeof header + header.length;
  }
  used = 0;
}

// Queues (or writes) one line; `record` is null for a trace. The arguments are those of `format`.
void add_line(const errmsg_record* record, std::uint32_t severity, const char* format,
              std::va_list arguments) noexcept {
  const std::lock_guard guard(lock);
  if (used + longest_line > room) {
    write_all();
  }
  char* text = lines + used + sizeof(line_header);
  std::size_t length =
      formatted_length(std::vsnprintf(text, text_limit + 1, format, arguments), text_limit + 1);
  while (length > 0 && text[length - 1] == '\n') {
    --length;
  }
  const line_header header{record, severity, static_cast<std::uint32_t>(length)};
  std::memcpy(lines + used, &header, sizeof header);
  used += sizeof header + length;
  if (!attached || !on_loop_thread) {
    write_all();
  }
}

}  // namespace

int log_queue_attach(evm* manager) noexcept {
  const int status = evm_add_flush(
      manager, [](void*) { log_queue_flush(); }, nullptr);
  if (status == status_ok) {
    const std::lock_guard guard(lock);
    attached = true;
    on_loop_thread = true;
  }
  return status;
}

void log_queue_detach() noexcept {
  const std::lock_guard guard(lock);
  attached = false;
  write_all();
}

void log_queue_flush() noexcept {
  const std::lock_guard guard(lock);
  write_all();
}

// --- Messages and traces -------------------------------------------------------------------------

void errmsg_log(const errmsg_record* record, std::uint32_t severity, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, severity);
  add_line(record, severity, record->format, arguments);
  va_end(arguments);
}

void dbg_print(const dbg_flag& /*flag*/, std::uint32_t /*reserved1*/, std::uint32_t /*reserved2*/,
               const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  add_line(nullptr, LOG_DEBUG, format, arguments);
  va_end(arguments);
}

}  // namespace ot
