// A follower's talk with one service, from its beginning to its end. It never waits: whatever it
// has asked for is taken when it has come, and a service that has not answered for some seconds is
// given up. The subscription comes first, then all states are asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ledger_fetch.h"
#include "tools/client/telling.h"
#include "tools/trackctl/events.h"

namespace ot::client {

// Has the epoll instance be readable when the descriptor is. Throws.
void watch(int wait, int fd);

class session {
 public:
  // For the tracks of these names, or all. Its descriptors are added to `wait`, an epoll instance,
  // and leave it when they are closed. Throws.
  session(int wait, const std::vector<std::string>& names);

  // Asks for all states anew; those that were asked for and have not come are not taken any more.
  void ask_for_states();
  [[nodiscard]] bool asks() const noexcept { return asks_; }

  // All states, once they are there. Throws when the service is gone or does not answer.
  std::optional<track_states> take_states();
  // Hands over the events that have come, which may be of other tracks too. Throws when the service
  // is gone.
  void take_events(const std::function<void(const evdl_track_event&)>& on_event) const;

  // When to go on although nothing has come.
  [[nodiscard]] std::uint64_t due_ms() const noexcept;

 private:
  struct ending {
    void operator()(ledger_fetch* fetch) const noexcept { ledger_fetch_end(fetch); }
  };

  void fetch();
  void put_off() noexcept;
  void check_patience(const char* what) const;

  int wait_;
  trackctl::event_subscription events_;
  std::unique_ptr<ledger_fetch, ending> fetch_;
  bool subscribed_ = false;
  bool asks_ = true;
  std::uint64_t limit_ms_;      // when the service is given up
  std::uint64_t again_ms_ = 0;  // when to ask again, where it took no connection
};

}  // namespace ot::client
