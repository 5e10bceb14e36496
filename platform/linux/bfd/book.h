// The sessions wanted of the BFD engine and how far it has followed: what is to be sent next, and
// what its answers and notifications mean for whom. No socket, no clock. Any function may throw
// bad_alloc.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/bfd_client.h"
#include "platform/linux/bfd/labels.h"
#include "platform/linux/bfd/messages.h"

namespace ot {

// What the client names a session by.
struct bfd_session_key {
  std::uint32_t ifhandle = 0;
  std::uint32_t destination = 0;  // network byte order

  friend auto operator<=>(const bfd_session_key&, const bfd_session_key&) = default;
};

// A creation that is to be acknowledged.
struct bfd_creation {
  const void* context = nullptr;
  std::uint32_t sequence = 0;
};

struct bfd_session {
  enum class step { wanted, asked, held, refused };

  bfd_session_key key;
  bfd_session_config config;
  step progress = step::wanted;
  bool present = false;  // the engine said so
  bool up = false;
  unsigned refusals = 0;    // in a row
  bool of_another = false;  // refused because another client has it: that one is followed
  std::vector<bfd_creation> unanswered;
};

// A request to be sent now; `number` is the session's, 0 for a removal.
struct bfd_job {
  std::uint8_t type = 0;
  std::string payload;
  std::uint32_t number = 0;
};

class bfd_book {
 public:
  explicit bfd_book(const bfd_labels& labels) : labels_(labels) {}

  // The session of that key becomes the one asked for. The same configuration as before leaves it
  // as it is; another one replaces it. The session, which lives until it is removed or replaced;
  // `ret_replaced_up`: the one before was up and is gone.
  bfd_session& want(const bfd_session_key& key, const bfd_session_config& config,
                    bool* ret_replaced_up);
  void remove(const bfd_session_key& key);

  // The engine is there: everything is to be asked for.
  void engine_back();
  // The engine is away, as it is at first, and nothing is to be sent. `told` gets the key of each
  // session that was up.
  template <typename Told>
  void engine_lost(Told told) noexcept {
    drop_jobs();
    for (auto& [number, session] : sessions_) {
      session.present = false;
      session.of_another = false;
      session.progress = bfd_session::step::wanted;
      if (std::exchange(session.up, false)) {
        told(session.key);
      }
    }
  }

  std::optional<bfd_job> next_job();
  // What an engine that will not be asked again is still to be told.
  std::vector<bfd_job> farewell();

  // The session whose creation was answered; null when it is wanted no more. `ret_lost_up`: it
  // followed another client's session, which was up and has made room for it.
  bfd_session* answered(std::uint32_t number, bool accepted, bool* ret_lost_up);
  // The session whose state has changed by the notification; null when there is none.
  bfd_session* notified(const bfd_notification& notification);

  // Refused sessions are asked for again.
  void retry_refused();

 private:
  void drop_jobs() noexcept;
  void forget(std::uint32_t number);
  void ask(std::uint32_t number, bfd_session& session);
  void remove_orphan(const bfd_label& label);
  bfd_session* with_label(const bfd_label& label);
  bfd_session* following(const bfd_notification& notification);
  static bfd_session* note_state(bfd_session* session, bool up) noexcept;
  static void note_present(bfd_session& session) noexcept;
  void note_gone(bfd_session* session);

  bfd_labels labels_;
  bool engine_here_ = false;
  bool states_wanted_ = false;  // the engine is to repeat those of all sessions
  std::uint32_t last_number_ = 0;
  std::map<std::uint32_t, bfd_session> sessions_;  // by number
  std::map<bfd_session_key, std::uint32_t> numbers_;
  std::deque<bfd_label> to_remove_;
  std::deque<std::uint32_t> to_ask_;
};

}  // namespace ot
