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
#include "platform/linux/bfd/frr_control/protocol.h"
#include "platform/linux/bfd/frr_control/session_labels.h"

namespace ot::bfd {

struct wanted_session {
  enum class step { wanted, asked, held, refused };

  session_config config;
  step progress = step::wanted;
  bool present = false;        // the engine said so
  unsigned refusals = 0;       // in a row
  bfdc_session_status status;  // of_another: refused because another client has it, and followed
};

// A request to be sent now; `number` is the session's, 0 for a removal.
struct engine_job {
  std::uint8_t type = 0;
  std::string payload;
  std::uint32_t number = 0;
};

class session_table {
 public:
  explicit session_table(const session_labels& labels) : labels_(labels) {}

  // The session of that key becomes the one asked for. The same configuration as before leaves it
  // as it is; another one replaces it: true.
  bool want(const session_config& config);
  void remove(const session_key& key);
  // Of a session that bfdd does not have, or not yet.
  [[nodiscard]] bfdc_session_status not_asked_yet() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return sessions_.empty(); }

  // The engine is there: everything is to be asked for.
  void engine_back();
  // The engine is away, as it is at first, and nothing is to be sent. `changed` gets each session.
  template <typename Function>
  void engine_lost(Function changed) noexcept {
    drop_jobs();
    for (auto& [number, session] : sessions_) {
      session.present = false;
      session.progress = wanted_session::step::wanted;
      session.status = not_asked_yet();
      changed(session);
    }
  }

  std::optional<engine_job> next_job();
  // What is still to be sent to an engine that will not be asked again.
  std::vector<engine_job> final_jobs();

  // The session whose creation was answered; null when it is wanted no more.
  wanted_session* answered(std::uint32_t number, bool accepted);
  // The session whose status has changed by the notification; null when there is none.
  wanted_session* notified(const engine_notification& notification);
  // A session of the engine has made room since the last call, which one that is refused may have
  // waited for.
  [[nodiscard]] bool room_made() noexcept { return std::exchange(room_made_, false); }

  // Refused sessions are asked for again.
  void retry_refused();

 private:
  void drop_jobs() noexcept;
  void forget(std::uint32_t number);
  void ask(std::uint32_t number, wanted_session& session);
  void remove_orphan(const session_label& label);
  wanted_session* with_label(const session_label& label);
  wanted_session* following(const engine_notification& notification);
  static void note_present(wanted_session& session) noexcept;
  void note_gone(wanted_session* session) noexcept;

  session_labels labels_;
  bool engine_here_ = false;
  bool room_made_ = false;
  bool states_wanted_ = false;  // the engine is to repeat those of all sessions
  std::uint32_t last_number_ = 0;
  std::map<std::uint32_t, wanted_session> sessions_;  // by number
  std::map<session_key, std::uint32_t> numbers_;
  std::deque<session_label> to_remove_;
  std::deque<std::uint32_t> to_ask_;
};

}  // namespace ot::bfd
