// Following without a gap: the subscription comes first, then all states are read, then the events
// that have come meanwhile are taken in; a state that is known already is told once. An event
// leaves before the state is stored, so the latest event of a track is never older than what was
// read.
//
// That a track is deleted is no event, and a new one has none before its first state: all states
// are compared every few seconds. An epoll instance is the one descriptor of all that is waited
// for.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/client/client.h"
#include "tools/trackctl/events.h"

struct otrack_follower {
 public:
  // Throws.
  otrack_follower(otrack_client& client, std::vector<std::string> names, bool reconnects);

  [[nodiscard]] int fd() const noexcept { return wait_.get(); }
  [[nodiscard]] otrack_client& client() const noexcept { return client_; }

  // Takes what has come into the queue. OTRACK_OK, or why nothing more comes.
  int take() noexcept;
  // The next of the queue; null when it is empty. Valid until the next call.
  const otrack_event* next() noexcept;

 private:
  using states = std::map<std::string, std::uint32_t, std::less<>>;

  struct told {
    std::uint32_t kind = 0;
    std::uint32_t state = OTRACK_UNKNOWN;
    std::uint32_t previous = OTRACK_UNKNOWN;
    std::int64_t time = 0;
    std::string track;
  };

  void connect();
  void disconnect() noexcept;
  void take_events(bool compares);
  states read_states();
  void take_over(const states& present);
  void wake_after(std::uint64_t milliseconds) noexcept;
  void set_clock() noexcept;
  [[nodiscard]] bool follows(const std::string& track) const;
  void tell(std::uint32_t kind);
  void tell_state(const std::string& track, std::uint32_t state);

  otrack_client& client_;
  std::vector<std::string> names_;  // sorted; none: every track
  bool reconnects_;
  bool met_ = false;          // the service, once at least
  bool ended_ = false;        // nothing more comes
  std::uint64_t due_ms_ = 0;  // when to compare, or to try again
  std::uint64_t set_ms_ = 0;  // what the clock is set to
  ot::unique_fd clock_;
  ot::unique_fd wait_;
  std::optional<ot::trackctl::event_subscription> events_;
  states known_;
  std::deque<told> queue_;
  told present_;  // the one that was handed over last
  otrack_event event_{};
};
