// The sinks of the log. The journal takes the message's parts as fields of their own, so that an
// operator filters by OT_MESSAGE=TRACK_INFO; the system log takes the line. Standard error gets it
// too when it is a terminal or when neither of the two exists (a test, a container).
#include "platform/linux/log_sink.h"

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "platform/linux/formatted_length.h"

#define SD_JOURNAL_SUPPRESS_LOCATION  // the location would be this file's
#include <systemd/sd-journal.h>

namespace ot {
namespace {

constexpr std::size_t line_limit = 1200;  // the longest text and the prefix before it

struct sinks {
  bool journal = access("/run/systemd/journal/socket", W_OK) == 0;
  bool syslog = !journal && access("/dev/log", W_OK) == 0;
  bool standard_error = isatty(STDERR_FILENO) == 1 || (!journal && !syslog);
};

// A "NAME=value" field for the journal in a buffer of its own.
template <std::size_t N>
struct field {
  char bytes[N];
  std::size_t length = 0;

  [[gnu::format(printf, 2, 3)]] explicit field(const char* format, ...) noexcept {
    std::va_list values;
    va_start(values, format);
    length = formatted_length(std::vsnprintf(bytes, N, format, values), N);
    va_end(values);
  }
  [[nodiscard]] iovec io() noexcept { return {bytes, length}; }
};

void write_journal(const errmsg_record* record, std::uint32_t severity,
                   std::string_view line) noexcept {
  field<line_limit> message("MESSAGE=%.*s", static_cast<int>(line.size()), line.data());
  field<16> priority("PRIORITY=%u", severity);
  field<24> facility("SYSLOG_FACILITY=%d", LOG_DAEMON >> 3);
  field<48> identifier("SYSLOG_IDENTIFIER=object_tracking");
  if (record == nullptr) {
    const iovec fields[] = {message.io(), priority.io(), facility.io(), identifier.io()};
    sd_journal_sendv(fields, std::size(fields));
    return;
  }
  field<32> component("OT_FACILITY=%s", record->facility);
  field<32> group("OT_GROUP=%s", record->group);
  field<64> name("OT_MESSAGE=%s", record->name);
  field<32> number("OT_NUMBER=0x%08x", record->number);
  const iovec fields[] = {message.io(),   priority.io(), facility.io(), identifier.io(),
                          component.io(), group.io(),    name.io(),     number.io()};
  sd_journal_sendv(fields, std::size(fields));
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
