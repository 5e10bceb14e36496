// The thread that follows the service: it reads all states, then its events, and when the service
// goes away it waits for it to come back and reads all states again. A track that is deleted has no
// event, so all states are compared again now and then. What it finds out waits in a queue for the
// main thread.
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "platform/linux/unique_fd.h"
#include "tools/trackpolicy/engine.h"

namespace ot::trackpolicy {

struct news {
  enum class what : std::uint8_t { states, change, gone } kind = what::gone;
  known_states states{};    // all of them
  const char* reason = "";  // of `states`
  std::string track{};      // of a change
  known_state state{};
};

class follower {
 public:
  // Signals must be blocked already. Throws std::system_error.
  follower();
  ~follower();
  follower(const follower&) = delete;
  follower& operator=(const follower&) = delete;

  // Readable when there is news.
  [[nodiscard]] int fd() const noexcept { return wake_.get(); }
  std::deque<news> take();

 private:
  void run();
  void follow();
  [[nodiscard]] bool stopped_within(int milliseconds) const;
  void post(news what);

  unique_fd wake_;
  unique_fd stop_;
  std::mutex lock_;
  std::deque<news> queue_;
  bool met_ = false;        // the service, once at least
  bool connected_ = false;  // as the main thread knows
  std::thread thread_;
};

}  // namespace ot::trackpolicy
