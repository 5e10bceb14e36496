// Following without a gap: the subscription comes first, then all states are asked for; the events
// that come before them wait, and are taken in behind them. A state that is known already is told
// once. An event leaves before the state is stored, so the latest event of a track is never older
// than what was read.
//
// That a track is deleted is no event, and a new one has none before its first state: all states
// are compared every few seconds. Events go on meanwhile, and of a track that has one the states
// tell nothing: they may be older. An epoll instance is the one descriptor of all that is waited
// for.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/client/client.h"
#include "tools/client/session.h"

struct otrack_follower {
 public:
  enum class begin { waits, at_once };

  // Throws.
  otrack_follower(otrack_client& client, std::vector<std::string> names, bool reconnects,
                  begin how);

  [[nodiscard]] int fd() const noexcept { return wait_.get(); }
  [[nodiscard]] otrack_client& client() const noexcept { return client_; }

  // Takes what has come into the queue. OTRACK_OK, or why nothing more comes.
  int take() noexcept;
  // The next of the queue; null when it is empty. Valid until the next call.
  const otrack_event* next() noexcept;

 private:
  using states = ot::client::session::states;

  struct told {
    std::uint32_t kind = 0;
    std::uint32_t state = OTRACK_UNKNOWN;
    std::uint32_t previous = OTRACK_UNKNOWN;
    std::int64_t time = 0;
    std::string track;
  };

  void wait_until_synced();
  void disconnect() noexcept;
  void advance();
  void take_event(const ot::evdl_track_event& event);
  void begin_with(const states& present);
  void compare_with(const states& present);
  void forget_all_but(const states& present);
  [[nodiscard]] std::uint64_t due_ms() const noexcept;
  void set_clock() noexcept;
  [[nodiscard]] bool follows(const std::string& track) const;
  void tell(std::uint32_t kind);
  void tell_state(const std::string& track, std::uint32_t state);

  otrack_client& client_;
  std::vector<std::string> names_;  // sorted; none: every track
  bool reconnects_;
  bool met_ = false;           // the service, once at least
  bool synced_ = false;        // with the present session
  bool ended_ = false;         // nothing more comes
  bool compares_ = false;      // as soon as nothing is asked for
  std::uint64_t next_ms_ = 0;  // when to compare, or to connect
  std::uint64_t set_ms_ = 0;   // what the clock is set to
  ot::unique_fd clock_;
  ot::unique_fd wait_;
  std::optional<ot::client::session> session_;
  std::vector<ot::evdl_track_event> early_;   // events from before the first states
  std::set<std::string, std::less<>> fresh_;  // told since all states were asked for
  states known_;
  std::deque<told> queue_;
  told present_;  // the one that was handed over last
  otrack_event event_{};
};
