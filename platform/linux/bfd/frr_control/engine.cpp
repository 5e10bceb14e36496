// Keeping the engine's sessions the ones that are wanted. Sessions belong to the engine: they
// survive our connection, and are lost with its process. So every connection begins with the
// subscription, whose answer makes it count, and by which the engine names all its sessions; those
// of earlier runs of ours are removed, and those of the session table asked for.
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

// Between attempts to get a refused session.
constexpr std::uint64_t first_retry_usec = 200'000;
constexpr std::uint64_t longest_retry_usec = 30'000'000;

constexpr std::uint32_t connection_down = 0;
constexpr std::uint32_t connection_up = 1;
constexpr std::uint32_t session_up = 0;
constexpr std::uint32_t session_down = 1;

bfd_address address_of(const session_key& key) noexcept {
  bfd_address address{bfd_family_ipv4, {}};
  std::copy_n(reinterpret_cast<const std::uint8_t*>(&key.destination), sizeof key.destination,
              address.bytes);
  return address;
}

}  // namespace

engine_client::~engine_client() {
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

int engine_client::start() noexcept {
  for (const auto attach : {connection_.attach(client_.manager), reconnect_.attach(client_.manager),
                            retry_.attach(client_.manager)}) {
    if (attach != status_ok) {
      return attach;
    }
  }
  attempt(this);
  return status_ok;
}

// --- The connection ------------------------------------------------------------------------------

void engine_client::attempt(void* self) noexcept {
  auto* engine = static_cast<engine_client*>(self);
  bool open = false;
  try {
    open = engine->connect();
  } catch (const std::bad_alloc&) {
    open = false;
  }
  if (!open) {
    engine->connection_.close();
    engine->reconnect_later();
  }
}

bool engine_client::connect() {
  const std::vector<std::string> paths = engine_paths();
  watch_.look_for(client_.manager, paths);
  const bool open = std::any_of(paths.begin(), paths.end(),
                                [this](const std::string& path) { return connection_.open(path); });
  return open && send(message_subscribe, subscribe_payload(), 0);
}

void engine_client::reconnect_later() noexcept {
  unanswered_.clear();
  postponed_.reset();
  reconnect_.start(delays_usec[failed_attempts_]);
  failed_attempts_ = std::min(failed_attempts_ + 1, std::size(delays_usec) - 1);
}

void engine_client::appeared(void* self) noexcept {
  auto* engine = static_cast<engine_client*>(self);
  if (!engine->connection_.is_open()) {
    engine->failed_attempts_ = 0;
    engine->reconnect_.stop();
    attempt(engine);
  }
}

void engine_client::ended(connection_end why) noexcept {
  const bool was_connected = std::exchange(connected_, false);
  if (was_connected && why == connection_end::closed) {
    failed_attempts_ = 0;
  }
  retry_.stop();
  reconnect_later();
  if (!was_connected) {
    return;
  }
  const bfdc_connection_status status{connection_down};
  client_.connection(&status);
  sessions_.engine_lost([this](const session_key& key) { report_state(key, false); });
}

// --- Out -----------------------------------------------------------------------------------------

// False when the connection is broken.
bool engine_client::send(std::uint8_t type, const std::string& payload, std::uint32_t number) {
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

bool engine_client::send_jobs() {
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

void engine_client::send_what_waits() noexcept {
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

void engine_client::writable() noexcept {
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

bool engine_client::received(const frame_view& frame) {
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
    report_state(changed->key, changed->up);
  }
  return send_jobs();
}

bool engine_client::take_response(const frame_view& frame) {
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

void engine_client::subscribed() {
  connected_ = true;
  retry_usec_ = first_retry_usec;
  sessions_.engine_back();
  const bfdc_connection_status status{connection_up};
  client_.connection(&status);
}

void engine_client::session_answered(std::uint32_t number, bool accepted) {
  bool lost_up = false;
  wanted_session* session = sessions_.answered(number, accepted, &lost_up);
  if (session == nullptr) {
    return;
  }
  if (lost_up) {
    report_state(session->key, false);
  }
  if (session->progress == wanted_session::step::held) {
    acknowledge(*session, status_ok);
    return;
  }
  if (session->of_another) {
    acknowledge(*session, EADDRINUSE);
  }
  if (!retry_.running()) {
    retry_.start(retry_usec_);
    retry_usec_ = std::min(retry_usec_ * 2, longest_retry_usec);
  }
}

void engine_client::retry_refused(void* self) noexcept {
  auto* engine = static_cast<engine_client*>(self);
  try {
    engine->sessions_.retry_refused();
  } catch (const std::bad_alloc&) {
    engine->retry_.start(longest_retry_usec);
  }
  engine->send_what_waits();
}

// --- The client ----------------------------------------------------------------------------------

void engine_client::create(const session_key& key, const session_config& config,
                           const request_origin& creation) noexcept {
  try {
    bool replaced_up = false;
    wanted_session& session = sessions_.want(key, config, &replaced_up);
    if (replaced_up) {
      report_state(key, false);
    }
    session.unanswered.push_back(creation);
    if (session.progress == wanted_session::step::held) {
      acknowledge(session, status_ok);
    }
  } catch (const std::bad_alloc&) {
    report_request(bfdc_request_created, key, creation, no_memory);
  }
  send_what_waits();
}

void engine_client::remove(const session_key& key, const request_origin& removal) noexcept {
  int status = status_ok;
  try {
    sessions_.remove(key);
  } catch (const std::bad_alloc&) {
    status = no_memory;
  }
  // Not left to the engine: the session table sees to it that the engine follows.
  report_request(bfdc_request_unconfigured, key, removal, status);
  send_what_waits();
}

void engine_client::acknowledge(wanted_session& session, int error) {
  const session_key key = session.key;
  const std::vector<request_origin> unanswered = std::exchange(session.unanswered, {});
  for (const request_origin& creation : unanswered) {
    report_request(bfdc_request_created, key, creation, error);
  }
  if (!unanswered.empty() && session.up) {
    report_state(key, true);  // the acknowledgement stands for down
  }
}

void engine_client::report_request(std::uint32_t event, const session_key& key,
                                   const request_origin& asked, int error) {
  const bfdc_request_result result{error,           event,          key.ifhandle,
                                   address_of(key), asked.sequence, asked.context};
  client_.request_done(&result);
}

void engine_client::report_state(const session_key& key, bool up) {
  const bfdc_event event{bfdc_event_session_state, key.ifhandle, address_of(key),
                         up ? session_up : session_down};
  client_.state_changed(&event);
}

}  // namespace ot::bfd
