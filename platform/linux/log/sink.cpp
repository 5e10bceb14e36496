// The sinks of the log. The journal takes the message's parts as fields of their own, so that an
// operator filters by OT_MESSAGE=TRACK_INFO; the system log takes the line. Standard error gets it
// too when it is a terminal or when neither of the two exists (a test, a container).
#include "platform/linux/log/sink.h"

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <span>

#include "platform/linux/log/formatted_length.h"

#define SD_JOURNAL_SUPPRESS_LOCATION  // the location would be this file's
#include <systemd/sd-journal.h>

namespace ot {
namespace {

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
  // Nobody is left to tell when standard error itself fails.
  [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, parts, std::size(parts));
}

}  // namespace

void log_sink_write(const errmsg_record* record, std::uint32_t severity,
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

}  // namespace ot
