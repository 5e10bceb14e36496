// System messages and traces, kept as lines for the test to read.
#include "platform/messages.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/world.h"
#include "platform/trace.h"

namespace ot {
namespace {

constexpr std::size_t longest_text = 1000;

struct lines {
  std::mutex mutex;
  std::vector<std::string> all;

  void add(std::string line) {
    const std::scoped_lock lock{mutex};
    all.push_back(std::move(line));
  }
  std::vector<std::string> take() {
    const std::scoped_lock lock{mutex};
    return std::exchange(all, {});
  }
};

struct field_lines : lines {};
struct message_lines : lines {
  std::atomic<std::uint64_t> dropped = 0;
};
struct trace_lines : lines {
  std::function<void(const std::string&)> watch;
};

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, std::va_list arguments) {
  char buffer[longest_text + 1];
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  std::string text{buffer};
  while (text.ends_with('\n')) {
    text.pop_back();
  }
  return text;
}

void add_message(const errmsg_record* record, std::uint32_t severity, std::va_list arguments) {
  world_part<message_lines>().add(std::string{record->facility} + '-' + record->group + '-' +
                                  std::to_string(severity) + '-' + record->name + ": " +
                                  formatted(record->format, arguments));
}

}  // namespace

void errmsg_log(const errmsg_record* record, std::uint32_t severity, ...) noexcept {
  alloc_faults_paused pause;
  std::va_list arguments;
  va_start(arguments, severity);
  add_message(record, severity, arguments);
  va_end(arguments);
}

void errmsg_log_fields(const errmsg_record* record, std::uint32_t severity,
                       std::span<const errmsg_field> fields, ...) noexcept {
  alloc_faults_paused pause;
  std::va_list arguments;
  va_start(arguments, fields);
  add_message(record, severity, arguments);
  va_end(arguments);
  std::string line;
  for (const errmsg_field& field : fields) {
    line += (line.empty() ? "" : " ") + std::string{field.name} + '=' + field.value;
  }
  world_part<field_lines>().add(std::move(line));
}

std::uint64_t errmsg_dropped() noexcept {
  return world_part<message_lines>().dropped;
}

void dbg_print(const dbg_flag& /*flag*/, std::uint32_t /*reserved1*/, std::uint32_t /*reserved2*/,
               const char* format, ...) noexcept {
  alloc_faults_paused pause;
  std::va_list arguments;
  va_start(arguments, format);
  std::string line = formatted(format, arguments);
  va_end(arguments);
  trace_lines& traces = world_part<trace_lines>();
  if (traces.watch != nullptr) {
    traces.watch(line);
  }
  traces.add(std::move(line));
}

namespace field {

std::vector<std::string> take_messages() {
  world_part<field_lines>().take();
  return world_part<message_lines>().take();
}

std::vector<std::string> take_message_fields() {
  return world_part<field_lines>().take();
}

void messages_dropped(std::uint64_t count) {
  world_part<message_lines>().dropped += count;
}

std::vector<std::string> take_traces() {
  return world_part<trace_lines>().take();
}

void watch_traces(std::function<void(const std::string& line)> watch) {
  world_part<trace_lines>().watch = std::move(watch);
}

}  // namespace field
}  // namespace ot
