// The session table. Removals go before creations, so that a session that replaces another finds
// its place free; a creation that is refused all the same waits for an orphan of an earlier run to
// be gone, or for its next turn. Every session gets a number of its own for each time it is asked
// for, so that a label never stands for two sessions, whatever the engine still has to say about
// the first.
#include "platform/linux/bfd/frr_control/session_table.h"

#include <utility>

namespace ot::bfd {
namespace {

constexpr const char* refused = "bfdd refuses it; it may be somebody else's session";

// A session that has gone is down, which is what its notification says without saying it.
void note_state(bfdc_session_status& status, const engine_notification& notification) noexcept {
  const bool was_up = status.state == bfd_state_up;
  const bool up = notification.state == bfd_state_up;
  status.ups += !was_up && up ? 1U : 0U;
  status.downs += was_up && !up ? 1U : 0U;
  status.state = notification.state;
  status.remote_state = up ? bfd_state_up : bfd_state_down;  // which bfdd does not tell otherwise
  status.diagnostic = notification.diagnostic;
  status.remote_diagnostic = notification.remote_diagnostic;
}

// More orphans than a service can have left; those beyond wait for the next connection.
constexpr std::size_t orphan_limit = 4096;

}  // namespace

bfdc_session_status session_table::not_asked_yet() const noexcept {
  bfdc_session_status status;
  status.problem.assign(engine_here_ ? "bfdd does not have it yet" : "bfdd does not answer");
  return status;
}

void session_table::ask(std::uint32_t number, wanted_session& session) {
  session.progress = wanted_session::step::wanted;
  if (engine_here_) {
    to_ask_.push_back(number);
  }
}

bool session_table::want(const session_config& config) {
  const auto known = numbers_.find(config.key);
  if (known != numbers_.end()) {
    if (sessions_.at(known->second).config == config) {
      return false;
    }
    forget(known->second);
  }
  const std::uint32_t number = ++last_number_;
  wanted_session& session = sessions_[number];
  session.config = config;
  session.status = not_asked_yet();
  numbers_[config.key] = number;
  ask(number, session);
  return true;
}

void session_table::remove(const session_key& key) {
  if (const auto known = numbers_.find(key); known != numbers_.end()) {
    forget(known->second);
  }
}

void session_table::forget(std::uint32_t number) {
  const auto found = sessions_.find(number);
  const wanted_session& session = found->second;
  if (session.progress == wanted_session::step::asked ||
      session.progress == wanted_session::step::held) {
    to_remove_.push_back(labels_.label(number));
  }
  numbers_.erase(session.config.key);
  sessions_.erase(found);
}

void session_table::drop_jobs() noexcept {
  engine_here_ = false;
  states_wanted_ = false;
  to_remove_.clear();
  to_ask_.clear();
}

void session_table::engine_back() {
  engine_here_ = true;
  for (auto& [number, session] : sessions_) {
    session.refusals = 0;
    ask(number, session);
  }
}

std::optional<engine_job> session_table::next_job() {
  if (!to_remove_.empty()) {
    engine_job job{message_remove, remove_payload(to_remove_.front()), 0};
    to_remove_.pop_front();
    return job;
  }
  while (!to_ask_.empty()) {
    const std::uint32_t number = to_ask_.front();
    to_ask_.pop_front();
    const auto found = sessions_.find(number);
    if (found != sessions_.end() && found->second.progress == wanted_session::step::wanted) {
      found->second.progress = wanted_session::step::asked;
      return engine_job{message_add, add_payload(found->second.config, labels_.label(number)),
                        number};
    }
  }
  if (std::exchange(states_wanted_, false)) {
    return engine_job{message_subscribe, subscribe_payload(), 0};
  }
  return std::nullopt;
}

std::vector<engine_job> session_table::final_jobs() {
  while (!sessions_.empty()) {
    forget(sessions_.begin()->first);
  }
  std::vector<engine_job> jobs;
  while (std::optional<engine_job> job = next_job()) {
    jobs.push_back(std::move(*job));
  }
  return jobs;
}

wanted_session* session_table::answered(std::uint32_t number, bool accepted) {
  const auto found = sessions_.find(number);
  if (found == sessions_.end() || found->second.progress != wanted_session::step::asked) {
    return nullptr;
  }
  wanted_session& session = found->second;
  // A session that outlived a connection cannot be created again.
  const bool held = accepted || session.present;
  session.progress = held ? wanted_session::step::held : wanted_session::step::refused;
  session.refusals = held ? 0 : session.refusals + 1;
  if (held && session.status.of_another) {
    session.status = {};  // it has made room for ours
  }
  // At first an orphan may be in the way, which is being removed.
  session.status.of_another = session.refusals > 1;
  session.status.problem.assign(held ? "" : refused);
  states_wanted_ = states_wanted_ || session.refusals == 2;
  return &session;
}

wanted_session* session_table::with_label(const session_label& label) {
  const std::optional<std::uint32_t> number = labels_.number(label);
  const auto found = number ? sessions_.find(*number) : sessions_.end();
  return found == sessions_.end() ? nullptr : &found->second;
}

void session_table::remove_orphan(const session_label& label) {
  if (to_remove_.size() < orphan_limit) {
    to_remove_.push_back(label);
  }
}

void session_table::note_present(wanted_session& session) noexcept {
  session.present = true;
  if (session.progress == wanted_session::step::refused) {
    session.progress = wanted_session::step::held;
  }
}

// Somebody took the session away, or an orphan that was in the way of another is gone.
void session_table::note_gone(wanted_session* session) noexcept {
  if (session != nullptr) {
    session->present = false;
    if (session->progress == wanted_session::step::held) {
      session->progress = wanted_session::step::refused;
    }
  }
  room_made_ = true;
}

// The session that follows the one of another client; that may be bound to no interface.
wanted_session* session_table::following(const engine_notification& notification) {
  const session_key& reported = notification.session;
  for (auto& [number, session] : sessions_) {
    const session_key& key = session.config.key;
    if (session.status.of_another && key.destination == reported.destination &&
        (reported.interface.empty() || reported.interface == key.interface)) {
      return &session;
    }
  }
  return nullptr;
}

wanted_session* session_table::notified(const engine_notification& notification) {
  const bool own = labels_.own(notification.label);
  wanted_session* session = own ? with_label(notification.label) : following(notification);
  const std::optional<bfdc_session_status> before =
      session == nullptr ? std::nullopt : std::optional{session->status};
  switch (notification.operation) {
    case operation_kind::session_present:
      if (own && session == nullptr) {
        remove_orphan(notification.label);
      } else if (own) {
        note_present(*session);
      }
      break;
    case operation_kind::session_gone:
      if (own || session != nullptr) {
        note_gone(session);
      }
      if (session != nullptr) {
        note_state(session->status, notification);
      }
      break;
    case operation_kind::session_state:
      if (session != nullptr) {
        note_state(session->status, notification);
      }
      break;
    case operation_kind::other:
      break;
  }
  return session != nullptr && session->status != before ? session : nullptr;
}

void session_table::retry_refused() {
  for (auto& [number, session] : sessions_) {
    if (session.progress == wanted_session::step::refused) {
      ask(number, session);
    }
  }
}

}  // namespace ot::bfd
