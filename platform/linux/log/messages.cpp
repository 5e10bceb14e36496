// System messages and traces, formatted into the log queue.
#include "platform/messages.h"

#include <cstdarg>

#include "platform/linux/log/queue.h"
#include "platform/trace.h"

namespace ot {
namespace {

constexpr std::uint32_t trace_severity = 7;  // debug

}  // namespace

void errmsg_log(const errmsg_record* record, std::uint32_t severity, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, severity);
  log_queue_line(record, severity, record->format, arguments);
  va_end(arguments);
}

void dbg_print(const dbg_flag& /*flag*/, std::uint32_t /*reserved1*/, std::uint32_t /*reserved2*/,
               const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  log_queue_line(nullptr, trace_severity, format, arguments);
  va_end(arguments);
}

}  // namespace ot
