// Who hears of links that lose and regain their carriers, each on a thread of its own that waits
// for one thing: a bare netlink socket, the service's events in process, or lines of text that
// another program writes. All run at normal priority, as their users run them.
//
// A reader notes when each of its followers was first heard of as up or down in the present change;
// follower K is named "tK" with three digits.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/event_subscriber.h"
#include "platform/linux/unique_fd.h"

namespace ot::bench {

using peer_clock = std::chrono::steady_clock;

class peer_reader {
 public:
  // `followers`: how many it hears of.
  peer_reader(std::string name, std::size_t followers)
      : name_(std::move(name)), heard_(followers) {}
  virtual ~peer_reader() = default;
  peer_reader(const peer_reader&) = delete;
  peer_reader& operator=(const peer_reader&) = delete;

  // Waits for what comes, for as long as the process lives.
  void start();

  // From here on it waits to hear that all are `up`, or down.
  void expect(bool up);
  // Waits until all were heard of, at most until `end`.
  void await(peer_clock::time_point end);
  // When each was heard of; the epoch for one that was not.
  std::vector<peer_clock::time_point> heard();

  [[nodiscard]] const std::string& name() const noexcept { return name_; }

 protected:
  // Waits until something can be read, and reads it; notes what it hears with note().
  virtual void read() = 0;
  void note(std::size_t follower, bool up, peer_clock::time_point when);

 private:
  std::string name_;
  std::thread thread_;
  std::mutex lock_;
  std::condition_variable complete_;
  bool up_ = false;
  std::size_t count_ = 0;
  std::vector<peer_clock::time_point> heard_;
};

// The links with these indexes, in the order of their followers.
std::unique_ptr<peer_reader> make_listener(std::vector<unsigned> links);

// The service's events, for which the environment names the instance.
std::unique_ptr<peer_reader> make_subscriber(std::size_t followers);

// Lines that hold a follower's name and one of these words: "up", "BACKUP" and "MASTER" for up,
// "down" and "FAULT" for down. `path`: a FIFO.
std::unique_ptr<peer_reader> make_line_reader(const std::string& name, const std::string& path,
                                              std::size_t followers);

}  // namespace ot::bench
