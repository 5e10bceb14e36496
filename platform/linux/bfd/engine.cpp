// Keeping the engine's sessions the ones that are wanted. Sessions belong to the engine: they
// survive our connection, and are lost with its process. So every connection begins with the
// subscription, whose answer makes it count, and by which the engine names all its sessions; those
// of earlier runs of ours are removed, and those of the book asked for.
#include "platform/linux/bfd/engine.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

#include "platform/linux/bfd/engine_socket.h"
#include "platform/status.h"

namespace ot {
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

}  // namespace

bfd_engine::~bfd_engine() {
  if (!connected_) {
    return;
  }
  try {
    for (const bfd_job& job : book_.farewell()) {
      if (!send(job.type, job.payload, job.number) || postponed_) {
        return;
      }
    }
  } catch (const std::bad_alloc&) {
    return;  // the next run finds and removes what is left
  }
}

int bfd_engine::start() noexcept {
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

void bfd_engine::attempt(void* self) noexcept {
  auto* engine = static_cast<bfd_engine*>(self);
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

bool bfd_engine::connect() {
  const std::vector<std::string> paths = bfd_engine_paths();
  watch_.look_for(client_.manager, paths);
  const bool open = std::any_of(paths.begin(), paths.end(),
                                [this](const std::string& path) { return connection_.open(path); });
  return open && send(bfd_type_subscribe, bfd_subscribe_payload(), 0);
}

void bfd_engine::reconnect_later() noexcept {
  unanswered_.clear();
  postponed_.reset();
  reconnect_.start(delays_usec[failed_attempts_]);
  failed_attempts_ = std::min(failed_attempts_ + 1, std::size(delays_usec) - 1);
}

void bfd_engine::appeared(void* self) noexcept {
  auto* engine = static_cast<bfd_engine*>(self);
  if (!engine->connection_.is_open()) {
    engine->failed_attempts_ = 0;
    engine->reconnect_.stop();
    attempt(engine);
  }
}

void bfd_engine::ended(bfd_end why) noexcept {
  const bool was_connected = std::exchange(connected_, false);
  if (was_connected && why == bfd_end::closed) {
    failed_attempts_ = 0;
  }
  retry_.stop();
  reconnect_later();
  if (!was_connected) {
    return;
  }
  const bfdc_connection_status status{connection_down};
  client_.connection(&status);
  book_.engine_lost([this](const bfd_session_key& key) { tell_state(key, false); });
}

// --- Out -----------------------------------------------------------------------------------------

// False when the connection is broken.
bool bfd_engine::send(std::uint8_t type, const std::string& payload, std::uint32_t number) {
  do {
    ++last_id_;  // 0 is for notifications
  } while (last_id_ == 0 || unanswered_.count(last_id_) != 0);
  switch (connection_.send(bfd_frame_bytes(type, last_id_, payload))) {
    case bfd_connection::sent::whole:
      unanswered_[last_id_] = number;
      return true;
    case bfd_connection::sent::later:
      postponed_ = bfd_job{type, payload, number};
      return true;
    default:
      return false;
  }
}

bool bfd_engine::send_jobs() {
  if (!connected_) {
    return true;
  }
  while (!postponed_ && unanswered_.size() < window) {
    const std::optional<bfd_job> job = book_.next_job();
    if (!job) {
      return true;
    }
    if (!send(job->type, job->payload, job->number)) {
      return false;
    }
  }
  return true;
}

void bfd_engine::send_what_waits() noexcept {
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

void bfd_engine::writable() noexcept {
  const std::optional<bfd_job> job = std::exchange(postponed_, std::nullopt);
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

bool bfd_engine::received(const bfd_frame& frame) {
  if (frame.type == bfd_type_response) {
    return take_response(frame) && send_jobs();
  }
  bfd_notification notification;
  if (!bfd_read_notification(frame.payload, &notification)) {
    return false;
  }
  if (!connected_) {
    return true;
  }
  if (const bfd_session* changed = book_.notified(notification)) {
    tell_state(changed->key, changed->up);
  }
  return send_jobs();
}

bool bfd_engine::take_response(const bfd_frame& frame) {
  bool accepted = false;
  const auto asked = unanswered_.find(frame.id);
  if (asked == unanswered_.end() || !bfd_read_response(frame.payload, &accepted)) {
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

void bfd_engine::subscribed() {
  connected_ = true;
  retry_usec_ = first_retry_usec;
  book_.engine_back();
  const bfdc_connection_status status{connection_up};
  client_.connection(&status);
}

void bfd_engine::session_answered(std::uint32_t number, bool accepted) {
  bool lost_up = false;
  bfd_session* session = book_.answered(number, accepted, &lost_up);
  if (session == nullptr) {
    return;
  }
  if (lost_up) {
    tell_state(session->key, false);
  }
  if (session->progress == bfd_session::step::held) {
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

void bfd_engine::retry_refused(void* self) noexcept {
  auto* engine = static_cast<bfd_engine*>(self);
  try {
    engine->book_.retry_refused();
  } catch (const std::bad_alloc&) {
    engine->retry_.start(longest_retry_usec);
  }
  engine->send_what_waits();
}

// --- The client ----------------------------------------------------------------------------------

void bfd_engine::create(const bfd_session_key& key, const bfd_session_config& config,
                        const bfd_creation& creation) noexcept {
  try {
    bool replaced_up = false;
    bfd_session& session = book_.want(key, config, &replaced_up);
    if (replaced_up) {
      tell_state(key, false);
    }
    session.unanswered.push_back(creation);
    if (session.progress == bfd_session::step::held) {
      acknowledge(session, status_ok);
    }
  } catch (const std::bad_alloc&) {
    tell_request(bfdc_request_created, key, creation, no_memory);
  }
  send_what_waits();
}

void bfd_engine::remove(const bfd_session_key& key, const bfd_creation& removal) noexcept {
  int status = status_ok;
  try {
    book_.remove(key);
  } catch (const std::bad_alloc&) {
    status = no_memory;
  }
  // Not left to the engine: the book sees to it that the engine follows.
  tell_request(bfdc_request_unconfigured, key, removal, status);
  send_what_waits();
}

void bfd_engine::acknowledge(bfd_session& session, int error) {
  const bfd_session_key key = session.key;
  const std::vector<bfd_creation> unanswered = std::exchange(session.unanswered, {});
  for (const bfd_creation& creation : unanswered) {
    tell_request(bfdc_request_created, key, creation, error);
  }
  if (!unanswered.empty() && session.up) {
    tell_state(key, true);  // the acknowledgement stands for down
  }
}

namespace {

bfd_address address_of(const bfd_session_key& key) noexcept {
  bfd_address address{bfd_family_ipv4, {}};
  std::copy_n(reinterpret_cast<const std::uint8_t*>(&key.destination), sizeof key.destination,
              address.bytes);
  return address;
}

}  // namespace

void bfd_engine::tell_request(std::uint32_t event, const bfd_session_key& key,
                              const bfd_creation& asked, int error) {
  const bfdc_request_result result{error,           event,          key.ifhandle,
                                   address_of(key), asked.sequence, asked.context};
  client_.request_done(&result);
}

void bfd_engine::tell_state(const bfd_session_key& key, bool up) {
  const bfdc_event event{bfdc_event_session_state, key.ifhandle, address_of(key),
                         up ? session_up : session_down};
  client_.state_changed(&event);
}

}  // namespace ot
