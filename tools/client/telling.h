// What a follower has told of the tracks and has still to tell. It is given all states now and
// then, and events in between; a state that is known already is told once. An event leaves the
// service before the state is stored, so the latest event of a track is never older than states
// that are asked for after it came.
//
// What comes before the first states waits, and is taken in behind them.
//
// That a track is deleted is no event, and a new one has none before its first state: only states
// tell. Events go on while states are asked for, and of a track that has one these states tell
// nothing: they may be older.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/event_subscriber.h"
#include "tools/client/object_tracking.h"

namespace ot::client {

using track_states = std::map<std::string, std::uint32_t, std::less<>>;

class telling {
 public:
  // Of the tracks of these names, or of all.
  explicit telling(std::vector<std::string> names);
  [[nodiscard]] const std::vector<std::string>& names() const noexcept { return names_; }

  // All states: the first ones of a service that is met, or met again, after which it is synced
  // until it is lost; or those of now, of which what is not there any more is told to be deleted.
  void take_states(const track_states& present);
  [[nodiscard]] bool synced() const noexcept { return synced_; }
  void lose();
  // An event. `asked`: states are asked for, and may be older.
  void take_event(const evdl_track_event& event, bool asked);

  // Whether something came of which only states tell; they are asked for now.
  [[nodiscard]] bool wants_states() const noexcept { return wants_; }
  void ask() noexcept;

  [[nodiscard]] bool empty() const noexcept { return queue_.empty(); }
  // The next to be handed over; null when there is none. Valid until the next call.
  const otrack_event* next() noexcept;

 private:
  struct told {
    std::uint32_t kind = 0;
    std::uint32_t state = OTRACK_UNKNOWN;
    std::uint32_t previous = OTRACK_UNKNOWN;
    std::int64_t time = 0;
    std::string track;
  };

  void begin_with(const track_states& present);
  void compare_with(const track_states& present);
  void forget_all_but(const track_states& present);
  [[nodiscard]] bool follows(const std::string& track) const;
  void tell(std::uint32_t kind);
  void tell_state(const std::string& track, std::uint32_t state);

  std::vector<std::string> names_;  // sorted; none: every track
  bool met_ = false;                // the service, once at least
  bool synced_ = false;
  bool wants_ = false;
  std::vector<evdl_track_event> early_;       // before the first states
  std::set<std::string, std::less<>> fresh_;  // had an event since states were asked for
  track_states known_;
  std::deque<told> queue_;
  told present_;  // the one that was handed over last
  otrack_event event_{};
};

// Keeps `there` those tracks of which events tell that they are in `state`.
void note_track(const otrack_event& event, std::uint32_t state, std::set<std::string>& there);

}  // namespace ot::client
