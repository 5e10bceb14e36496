// The book of sessions. Removals go before creations, so that a session that replaces another finds
// its place free; a creation that is refused all the same waits for an orphan of an earlier run
// to be gone, or for its next turn.
#include "platform/linux/bfd/book.h"

#include <utility>

#include "platform/linux/bfd/frame.h"

namespace ot {
namespace {

// More orphans than a service can have left; those beyond wait for the next connection.
constexpr std::size_t orphan_limit = 4096;

}  // namespace

void bfd_book::ask(std::uint32_t number, bfd_session& session) {
  session.progress = bfd_session::step::wanted;
  if (engine_here_) {
    to_ask_.push_back(number);
  }
}

bfd_session& bfd_book::want(const bfd_session_key& key, const bfd_session_config& config,
                            bool* ret_replaced_up) {
  *ret_replaced_up = false;
  std::vector<bfd_creation> unanswered;
  if (const auto known = numbers_.find(key); known != numbers_.end()) {
    bfd_session& present = sessions_.at(known->second);
    if (present.config == config) {
      return present;
    }
    *ret_replaced_up = present.up;
    unanswered = std::move(present.unanswered);
    forget(known->second);
  }
  const std::uint32_t number = ++last_number_;
  bfd_session& session = sessions_[number];
  session.key = key;
  session.config = config;
  session.unanswered = std::move(unanswered);
  numbers_[key] = number;
  ask(number, session);
  return session;
}

void bfd_book::remove(const bfd_session_key& key) {
  if (const auto known = numbers_.find(key); known != numbers_.end()) {
    forget(known->second);
  }
}

void bfd_book::forget(std::uint32_t number) {
  const auto found = sessions_.find(number);
  const bfd_session& session = found->second;
  if (session.progress == bfd_session::step::asked || session.progress == bfd_session::step::held) {
    to_remove_.push_back(labels_.label(number));
  }
  numbers_.erase(session.key);
  sessions_.erase(found);
}

void bfd_book::drop_jobs() noexcept {
  engine_here_ = false;
  states_wanted_ = false;
  to_remove_.clear();
  to_ask_.clear();
}

void bfd_book::engine_back() {
  engine_here_ = true;
  for (auto& [number, session] : sessions_) {
    session.refusals = 0;
    ask(number, session);
  }
}

std::optional<bfd_job> bfd_book::next_job() {
  if (!to_remove_.empty()) {
    bfd_job job{bfd_type_remove, bfd_remove_payload(to_remove_.front()), 0};
    to_remove_.pop_front();
    return job;
  }
  while (!to_ask_.empty()) {
    const std::uint32_t number = to_ask_.front();
    to_ask_.pop_front();
    const auto found = sessions_.find(number);
    if (found != sessions_.end() && found->second.progress == bfd_session::step::wanted) {
      found->second.progress = bfd_session::step::asked;
      return bfd_job{bfd_type_add, bfd_add_payload(found->second.config, labels_.label(number)),
                     number};
    }
  }
  if (std::exchange(states_wanted_, false)) {
    return bfd_job{bfd_type_subscribe, bfd_subscribe_payload(), 0};
  }
  return std::nullopt;
}

std::vector<bfd_job> bfd_book::farewell() {
  while (!sessions_.empty()) {
    forget(sessions_.begin()->first);
  }
  std::vector<bfd_job> jobs;
  while (std::optional<bfd_job> job = next_job()) {
    jobs.push_back(std::move(*job));
  }
  return jobs;
}

bfd_session* bfd_book::answered(std::uint32_t number, bool accepted, bool* ret_lost_up) {
  *ret_lost_up = false;
  const auto found = sessions_.find(number);
  if (found == sessions_.end() || found->second.progress != bfd_session::step::asked) {
    return nullptr;
  }
  bfd_session& session = found->second;
  // A session that outlived a connection cannot be created again.
  const bool held = accepted || session.present;
  session.progress = held ? bfd_session::step::held : bfd_session::step::refused;
  session.refusals = held ? 0 : session.refusals + 1;
  if (held && session.of_another) {
    *ret_lost_up = std::exchange(session.up, false);
  }
  // At first an orphan may be in the way, which is being removed.
  session.of_another = session.refusals > 1;
  states_wanted_ = states_wanted_ || session.refusals == 2;
  return &session;
}

bfd_session* bfd_book::with_label(const bfd_label& label) {
  const std::optional<std::uint32_t> number = labels_.number(label);
  const auto found = number ? sessions_.find(*number) : sessions_.end();
  return found == sessions_.end() ? nullptr : &found->second;
}

void bfd_book::remove_orphan(const bfd_label& label) {
  if (to_remove_.size() < orphan_limit) {
    to_remove_.push_back(label);
  }
}

void bfd_book::note_present(bfd_session& session) noexcept {
  session.present = true;
  if (session.progress == bfd_session::step::refused) {
    session.progress = bfd_session::step::held;
  }
}

// Somebody took the session away, or an orphan that was in the way of another is gone.
void bfd_book::note_gone(bfd_session* session) {
  if (session != nullptr) {
    session->present = false;
    if (session->progress == bfd_session::step::held) {
      session->progress = bfd_session::step::refused;
    }
  }
  retry_refused();
}

// The session that follows the one of another client; that may be bound to no interface.
bfd_session* bfd_book::following(const bfd_notification& notification) {
  for (auto& [number, session] : sessions_) {
    if (session.of_another && session.key.destination == notification.destination &&
        (notification.interface.empty() || notification.interface == session.config.interface)) {
      return &session;
    }
  }
  return nullptr;
}

// The session if that changes it.
bfd_session* bfd_book::note_state(bfd_session* session, bool up) noexcept {
  if (session == nullptr || session->up == up) {
    return nullptr;
  }
  session->up = up;
  return session;
}

bfd_session* bfd_book::notified(const bfd_notification& notification) {
  const bool own = labels_.own(notification.label);
  bfd_session* session = own ? with_label(notification.label) : following(notification);
  switch (notification.operation) {
    case bfd_operation::session_present:
      if (own && session == nullptr) {
        remove_orphan(notification.label);
      } else if (own) {
        note_present(*session);
      }
      break;
    case bfd_operation::session_gone:
      if (own || session != nullptr) {
        note_gone(session);
      }
      return note_state(session, false);
    case bfd_operation::session_state:
      return note_state(session, notification.up);
    case bfd_operation::other:
      break;
  }
  return nullptr;
}

void bfd_book::retry_refused() {
  for (auto& [number, session] : sessions_) {
    if (session.progress == bfd_session::step::refused) {
      ask(number, session);
    }
  }
}

}  // namespace ot
