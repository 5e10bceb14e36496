// The thread that follows the service: it reads all states, then its events, and when the service
// goes away it waits for it to come back and reads all states again. A track that is deleted has no
// event, so all states are compared again now and then. What it finds out waits in a queue for the
// main thread.
#pragma once

#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/trackpolicy/engine.h"
#include "tools/trackpolicy/foundations.h"

namespace ot::trackpolicy {

struct news {
  enum class what : std::uint8_t { states, change, gone } kind = what::gone;
  known_states states{};    // all of them
  const char* reason = "";  // of `states`
  std::string track{};      // of a change
  known_state state{};
  std::optional<foundations> tracks{};  // what they stand on; none: as before
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

  // Tracks that do not go down without it being said, with that, what they stand on now. All are
  // looked at soon: some of them may be new.
  void guard(std::set<std::string> tracks);

 private:
  void run();
  void follow();
  [[nodiscard]] bool stopped_within(int milliseconds) const;
  void take_changes(std::vector<news> changes);
  void post(news what);

  unique_fd wake_;
  unique_fd stop_;
  unique_fd look_again_;
  std::mutex lock_;
  std::deque<news> queue_;
  std::set<std::string> guarded_;
  bool met_ = false;        // the service, once at least
  bool connected_ = false;  // as the main thread knows
  std::thread thread_;
};

}  // namespace ot::trackpolicy
