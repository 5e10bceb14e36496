// The queue of log lines: one static run of bytes, filled from the front and emptied as a whole, so
// a burst such as 1,500 tracks going down at once costs the handler only the formatting.
#include "platform/linux/log/queue.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "platform/linux/log/formatted_length.h"
#include "platform/linux/log/sink.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

struct line_header {
  const errmsg_record* record;
  std::uint32_t severity;
  std::uint32_t length;
};

constexpr std::size_t room = 160'000;
constexpr std::size_t longest_line = sizeof(line_header) + log_text_limit + 1;

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
    log_sink_write(header.record, header.severity, {lines + at + sizeof header, header.length});
    at += sizeof header + header.length;
  }
  used = 0;
}

}  // namespace

void log_queue_line(const errmsg_record* record, std::uint32_t severity, const char* format,
                    std::va_list arguments) noexcept {
  const std::lock_guard guard(lock);
  if (used + longest_line > room) {
    write_all();
  }
  char* text = lines + used + sizeof(line_header);
  std::size_t length = formatted_length(std::vsnprintf(text, log_text_limit + 1, format, arguments),
                                        log_text_limit + 1);
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

}  // namespace ot
