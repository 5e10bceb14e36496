// The stream that the service's log uses, with a queue before it.
#include "tools/trackpolicy/log.h"

#include <poll.h>
#include <unistd.h>

#include <deque>
#include <mutex>
#include <utility>

#include "platform/linux/log/sinks.h"

namespace ot::trackpolicy {
namespace {

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
  }

  bool rest() {
    const std::lock_guard held(lock_);
    write();
    return waiting_.empty();
  }

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
        waiting_.push_back("trackpolicy: " + std::to_string(std::exchange(dropped_, 0)) +
                           " lines were dropped here: nobody was reading");
      }
    }
  }

  std::mutex lock_;
  log_stream stream_{STDERR_FILENO};
  std::deque<std::string> waiting_;
  std::size_t begun_ = 0;  // bytes of the first one that are out
  std::size_t dropped_ = 0;
};

line_queue& lines() {
  static line_queue all;
  return all;
}

}  // namespace

void say(const std::string& line) {
  lines().add(line);
}

bool say_rest() {
  return lines().rest();
}

void finish_saying() {
  constexpr int patience_ms = 50;
  for (int attempt = 0; attempt < 20 && !say_rest(); ++attempt) {
    pollfd reader{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    (void)poll(&reader, 1, patience_ms);
  }
}

}  // namespace ot::trackpolicy
