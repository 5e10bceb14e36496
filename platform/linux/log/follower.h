// One sink's progress through the queue of lines: what it has got, what it has missed, and how the
// loop learns that it takes more. Under the queue's lock.
#pragma once

#include <systemd/sd-event.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/log/sinks.h"

namespace ot {

// How a line lies in the queue: this, then its text, then its fields.
struct log_line_header {
  const errmsg_record* record;
  std::uint32_t severity;
  std::uint32_t length;
  std::uint32_t fields_length = 0;
};

class log_follower {
 public:
  void follow(log_sink& sink) noexcept { sink_ = &sink; }

  // Writes what the sink takes of the queue. True when it has everything.
  bool write(std::string_view queue) noexcept;
  // Gives up what the sink has not got; it will be told how much that was.
  void drop_rest(std::string_view queue) noexcept;
  // The queue is empty again.
  void rewind() noexcept { at_ = 0; }

  // Has the loop woken when a full sink takes more, or no longer. On the loop's thread.
  void wake(sd_event* loop) noexcept;
  void sleep() noexcept { wake_ = sd_event_source_disable_unref(wake_); }

  [[nodiscard]] bool behind(std::string_view queue) const noexcept { return at_ < queue.size(); }
  [[nodiscard]] int awaited() const noexcept { return sink_->awaited(); }
  // All lines that the sink has missed so far.
  [[nodiscard]] std::uint64_t missed() const noexcept { return missed_; }

 private:
  bool report_dropped() noexcept;
  void miss() noexcept {
    ++dropped_;
    ++missed_;
  }

  log_sink* sink_ = nullptr;
  std::size_t at_ = 0;           // its next line
  std::size_t begun_ = 0;        // bytes of it that went out
  unsigned long dropped_ = 0;    // lines that it has missed and does not know of
  unsigned long reporting_ = 0;  // lines that the report under way tells of
  std::uint64_t missed_ = 0;
  sd_event_source* wake_ = nullptr;
};

}  // namespace ot
