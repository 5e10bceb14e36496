// The stream that the service's log uses, with a queue before it and an event that tells the loop
// of lines that wait.
#include "tools/daemon/lines.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <mutex>

#include "platform/linux/log/sinks.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/unique_fd.h"

namespace ot {
namespace {

constexpr std::uint64_t finish_within_us = 1'000'000;
constexpr int finish_again_ms = 10;

class line_queue {
 public:
  void add(const std::string& line) {
    const std::lock_guard held(lock_);
    write();
    if (waiting_.size() >= log_lines_max) {
      ++dropped_;
      return;
    }
    waiting_.push_back(line.substr(0, log_line_max));
    write();
    if (!waiting_.empty()) {
      (void)eventfd_write(kept_.get(), 1);
    }
  }

  bool offer() {
    const std::lock_guard held(lock_);
    eventfd_t count = 0;
    (void)eventfd_read(kept_.get(), &count);
    write();
    return waiting_.empty();
  }

  int kept() const noexcept { return kept_.get(); }

 private:
  void write() {
    while (!waiting_.empty()) {
      const log_line line{.text = waiting_.front()};
      std::size_t taken = 0;
      if (stream_.write({&line, 1}, taken, begun_) == log_result::later) {
        return;
      }
      waiting_.pop_front();
      begun_ = 0;
      if (waiting_.empty() && dropped_ != 0) {
        waiting_.push_back(program_invocation_short_name + (": " + std::to_string(dropped_)) +
                           " lines were dropped here: nobody was reading");
        dropped_ = 0;
      }
    }
  }

  std::mutex lock_;
  log_stream stream_{STDERR_FILENO};
  std::deque<std::string> waiting_;
  std::size_t begun_ = 0;  // bytes of the first one that are out
  std::size_t dropped_ = 0;
  const unique_fd kept_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

line_queue& lines() {
  static line_queue all;
  return all;
}

}  // namespace

void say(const std::string& line) {
  lines().add(line);
}

// A full pipe says when it takes more, a terminal that somebody else writes to does not.
void finish_saying() {
  const std::uint64_t end_us = monotonic_us() + finish_within_us;
  while (!lines().offer() && monotonic_us() < end_us) {
    (void)poll(nullptr, 0, finish_again_ms);
  }
}

bool offer_lines() {
  return lines().offer();
}

int kept_lines_fd() {
  return lines().kept();
}

}  // namespace ot
