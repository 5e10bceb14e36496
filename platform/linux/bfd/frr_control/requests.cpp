// What bfdd is asked and what it answers. Every connection begins with the subscription, whose
// answer makes it count, and by which bfdd names all its sessions; those of earlier runs of ours
// are removed, and those of the session table asked for.
#include <algorithm>
#include <new>
#include <utility>

#include "platform/linux/bfd/frr_control/engine.h"

namespace ot::bfd {
namespace {

constexpr std::size_t window = 64;  // requests that may be unanswered

// Between attempts to get a refused session.
constexpr std::uint64_t first_retry_usec = 200'000;
constexpr std::uint64_t longest_retry_usec = 30'000'000;

// With sessions wanted, bfdd is asked for a sign of life this often.
constexpr std::uint64_t heartbeat_usec = 2'000'000;

}  // namespace

// --- Out -----------------------------------------------------------------------------------------

// False when the connection is broken.
bool control_engine::send(std::uint8_t type, const std::string& payload, std::uint32_t number) {
  do {
    ++last_id_;  // 0 is for notifications
  } while (last_id_ == 0 || unanswered_.count(last_id_) != 0);
  switch (connection_.send(frame_bytes(type, last_id_, payload))) {
    case engine_connection::sent::whole:
      unanswered_[last_id_] = number;
      return true;
    case engine_connection::sent::later:
      postponed_ = engine_job{type, payload, number};
      return true;
    default:
      return false;
  }
}

bool control_engine::send_jobs() {
  if (!connected_) {
    return true;
  }
  while (!postponed_ && unanswered_.size() < window) {
    const std::optional<engine_job> job = sessions_.next_job();
    if (!job) {
      return true;
    }
    if (!send(job->type, job->payload, job->number)) {
      return false;
    }
  }
  return true;
}

void control_engine::send_what_waits() noexcept {
  bool sent = false;
  try {
    sent = send_jobs();
  } catch (const std::bad_alloc&) {
    sent = false;
  }
  if (!sent && connection_.is_open()) {
    connection_.give_up();
  }
}

void control_engine::writable() noexcept {
  const std::optional<engine_job> job = std::exchange(postponed_, std::nullopt);
  bool sent = false;
  try {
    sent = !job || send(job->type, job->payload, job->number);
  } catch (const std::bad_alloc&) {
    sent = false;
  }
  if (sent) {
    send_what_waits();
  } else {
    connection_.give_up();
  }
}

// --- In ------------------------------------------------------------------------------------------

bool control_engine::received(const frame_view& frame) {
  if (frame.type == message_response) {
    return take_response(frame) && send_jobs();
  }
  engine_notification notification;
  if (!read_notification(frame.payload, &notification)) {
    return false;
  }
  if (!connected_) {
    return true;
  }
  if (const wanted_session* changed = sessions_.notified(notification)) {
    report(*changed);
  }
  if (sessions_.room_made()) {
    retry_.start(first_retry_usec);  // not at once, should the room be taken again and again
  }
  return send_jobs();
}

bool control_engine::take_response(const frame_view& frame) {
  bool accepted = false;
  const auto asked = unanswered_.find(frame.id);
  if (asked == unanswered_.end() || !read_response(frame.payload, &accepted)) {
    return false;
  }
  const std::uint32_t number = asked->second;
  unanswered_.erase(asked);
  connection_.answered();
  if (number != 0) {
    session_answered(number, accepted);
    return true;
  }
  if (!connected_) {
    if (!accepted) {
      return false;
    }
    subscribed();
  }
  return true;  // a session that could not be removed is not there, or is not ours alone
}

void control_engine::subscribed() {
  connected_ = true;
  retry_usec_ = first_retry_usec;
  sessions_.engine_back();
  watch_life();
  owner_.engine_changed();
}

void control_engine::session_answered(std::uint32_t number, bool accepted) {
  const wanted_session* session = sessions_.answered(number, accepted);
  if (session == nullptr) {
    return;
  }
  report(*session);
  if (session->progress == wanted_session::step::refused && !retry_.running()) {
    retry_.start(retry_usec_);
    retry_usec_ = std::min(retry_usec_ * 2, longest_retry_usec);
  }
}

void control_engine::watch_life() noexcept {
  if (connected_ && !heartbeat_.running()) {
    heartbeat_.start(heartbeat_usec);
  }
}

void control_engine::show_life(void* self) noexcept {
  auto* engine = static_cast<control_engine*>(self);
  if (engine->sessions_.empty()) {
    return;
  }
  engine->heartbeat_.start(heartbeat_usec);
  if (!engine->unanswered_.empty()) {
    return;  // an answer is waited for already
  }
  bool sent = false;
  try {
    sent = engine->send(message_add, heartbeat_payload(), 0);
  } catch (const std::bad_alloc&) {
    sent = true;  // the next one will do
  }
  if (!sent) {
    engine->connection_.give_up();
  }
}

void control_engine::retry_refused(void* self) noexcept {
  auto* engine = static_cast<control_engine*>(self);
  try {
    engine->sessions_.retry_refused();
  } catch (const std::bad_alloc&) {
    engine->retry_.start(longest_retry_usec);
  }
  engine->send_what_waits();
}

}  // namespace ot::bfd
