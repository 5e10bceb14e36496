// Keeping bfdd's sessions the ones that are wanted. Every connection begins with the subscription,
// whose answer makes it count, and by which bfdd names all its sessions; those of earlier runs of
// ours are removed, and those of the session table asked for.
#include "platform/linux/bfd/frr_control/engine.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

#include "platform/linux/bfd/socket.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr std::size_t window = 64;  // requests that may be unanswered

// Before the next attempt to connect, by the failures before it: an engine that restarts is back in
// no time. One that is not there at all is watched for, so that trying is but a precaution.
constexpr std::uint64_t delays_usec[] = {100'000,    1'000'000,  2'000'000,  5'000'000,
                                         10'000'000, 30'000'000, 300'000'000};

constexpr std::size_t longest_for_listening = 2;

// Between attempts to get a refused session.
constexpr std::uint64_t first_retry_usec = 200'000;
constexpr std::uint64_t longest_retry_usec = 30'000'000;

// With sessions wanted, bfdd is asked for a sign of life this often.
constexpr std::uint64_t heartbeat_usec = 2'000'000;

}  // namespace

control_engine::~control_engine() {
  if (!connected_) {
    return;
  }
  try {
    for (const engine_job& job : sessions_.final_jobs()) {
      if (!send(job.type, job.payload, job.number) || postponed_) {
        return;
      }
    }
  } catch (const std::bad_alloc&) {
    return;  // the next run finds and removes what is left
  }
}

int control_engine::start(evm* manager) noexcept {
  manager_ = manager;
  for (const auto attach : {connection_.attach(manager), reconnect_.attach(manager),
                            retry_.attach(manager), heartbeat_.attach(manager)}) {
    if (attach != status_ok) {
      return attach;
    }
  }
  attempt(this);
  return status_ok;
}

// --- The connection ------------------------------------------------------------------------------

void control_engine::attempt(void* self) noexcept {
  auto* engine = static_cast<control_engine*>(self);
  bool open = false;
  try {
    open = engine->connect();
  } catch (const std::bad_alloc&) {
    open = false;
  }
  if (!open) {
    engine->connection_.close();
    engine->reconnect_later(false);
  }
}

bool control_engine::connect() {
  watch_.look_for(manager_, {path_});
  return connection_.open(path_) && send(message_subscribe, subscribe_payload(), 0);
}

void control_engine::reconnect_later(bool listens) noexcept {
  unanswered_.clear();
  postponed_.reset();
  reconnect_.start(delays_usec[failed_attempts_]);
  // A bfdd that listens and does not answer gives no sign when it does again.
  const std::size_t last = listens ? longest_for_listening : std::size(delays_usec) - 1;
  failed_attempts_ = std::min(failed_attempts_ + 1, last);
}

void control_engine::appeared(void* self) noexcept {
  auto* engine = static_cast<control_engine*>(self);
  if (!engine->connection_.is_open()) {
    engine->failed_attempts_ = 0;
    engine->reconnect_.stop();
    attempt(engine);
  }
}

void control_engine::ended(connection_end why) noexcept {
  const bool was_connected = std::exchange(connected_, false);
  if (was_connected && why == connection_end::closed) {
    failed_attempts_ = 0;
  }
  retry_.stop();
  heartbeat_.stop();
  reconnect_later(true);
  if (was_connected) {
    sessions_.engine_lost([this](const wanted_session& session) { report(session); });
    owner_.engine_changed();
  }
}

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
  heartbeat_.start(heartbeat_usec);
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

// --- The owner's calls ---------------------------------------------------------------------------

void control_engine::add(const session_config& session) noexcept {
  try {
    if (sessions_.want(session)) {
      owner_.session_changed(session.key, not_asked_yet());
    }
  } catch (const std::bad_alloc&) {
    bfdc_session_status status;
    status.problem.assign("out of memory");
    owner_.session_changed(session.key, status);
  }
  if (connected_ && !heartbeat_.running()) {
    heartbeat_.start(heartbeat_usec);
  }
  send_what_waits();
}

void control_engine::remove(const session_key& key) noexcept {
  try {
    sessions_.remove(key);
  } catch (const std::bad_alloc&) {
    connection_.give_up();  // what bfdd then has too many is removed after the next connection
  }
  send_what_waits();
}

bfdc_engine_status control_engine::status() const noexcept {
  bfdc_engine_status status;
  status.running = connected_;
  status.name.assign("FRR's bfdd, control socket");
  status.reason.assign(connected_ ? "bfdd runs here" : "bfdd does not answer");
  return status;
}

}  // namespace ot::bfd
