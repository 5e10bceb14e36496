// A sink that was behind is told first how many lines it has missed, then gets the next ones.
#include "platform/linux/log/follower.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace ot {
namespace {

// A descriptor that is said to be writable and is not costs at most so much of the loop.
constexpr std::uint64_t wake_interval_us = 100'000;
constexpr unsigned wakes_an_interval = 200;

constexpr std::size_t lines_at_a_time = 32;

constexpr errmsg_record dropped_message{"OT", "SERVICES", "LOG_DROPPED", "%s",
                                        4,    2,          {0, 0, 0},     nullptr};

log_line line_at(std::string_view queue, std::size_t at) noexcept {
  log_line_header header;
  std::memcpy(&header, queue.data() + at, sizeof header);
  at += sizeof header;
  return {header.record, header.severity, queue.substr(at, header.length),
          queue.substr(at + header.length, header.fields_length)};
}

std::size_t end_of(const log_line& line, std::size_t at) noexcept {
  return at + sizeof(log_line_header) + line.text.size() + line.fields.size();
}

// The flush before the loop's next wait goes on writing.
int on_writable(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                void* /*context*/) {
  return 0;
}

}  // namespace

// False when the sink takes no more now.
bool log_follower::report_dropped() noexcept {
  if (reporting_ == 0) {
    reporting_ = std::exchange(dropped_, 0);
  }
  if (reporting_ == 0) {
    return true;
  }
  char text[96];
  const int length = std::snprintf(
      text, sizeof text, "%lu lines of the log were dropped: it was not read", reporting_);
  const log_line report{
      &dropped_message, dropped_message.severity, {text, static_cast<std::size_t>(length)}};
  std::size_t taken = 0;
  const log_result result = sink_->write({&report, 1}, taken, begun_);
  if (result == log_result::later) {
    return false;
  }
  dropped_ += result == log_result::lost ? reporting_ : 0;
  reporting_ = 0;
  begun_ = 0;
  return true;
}

bool log_follower::write(std::string_view queue) noexcept {
  while (at_ < queue.size()) {
    if (!report_dropped()) {
      return false;
    }
    log_line lines[lines_at_a_time];
    std::size_t count = 0;
    for (std::size_t at = at_; at < queue.size() && count < lines_at_a_time;) {
      lines[count] = line_at(queue, at);
      at = end_of(lines[count++], at);
    }
    std::size_t taken = 0;
    const log_result result = sink_->write({lines, count}, taken, begun_);
    for (std::size_t i = 0; i < taken; ++i) {
      at_ = end_of(lines[i], at_);
    }
    if (result == log_result::later) {
      return false;
    }
    if (result == log_result::lost) {
      miss();
      begun_ = 0;
      at_ = end_of(lines[taken], at_);
    }
  }
  return true;
}

void log_follower::drop_rest(std::string_view queue) noexcept {
  while (at_ < queue.size()) {
    miss();
    at_ = end_of(line_at(queue, at_), at_);
  }
  begun_ = reporting_ > 0 ? begun_ : 0;
}

void log_follower::wake(sd_event* loop) noexcept {
  if (wake_ == nullptr &&
      sd_event_add_io(loop, &wake_, awaited(), EPOLLOUT, on_writable, nullptr) >= 0) {
    sd_event_source_set_ratelimit(wake_, wake_interval_us, wakes_an_interval);
  }
}

}  // namespace ot
