// The life of the engine and of its connection to bfdd: begun again and again until bfdd is there,
// and whenever it is lost. What is said on it: requests.cpp.
#include "platform/linux/bfd/frr_control/engine.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "platform/linux/bfd/socket.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

// Before the next attempt to connect, by the failures before it: an engine that restarts is back in
// no time. One that is not there at all is watched for, so that trying is but a precaution.
constexpr std::uint64_t delays_usec[] = {100'000,    1'000'000,  2'000'000,  5'000'000,
                                         10'000'000, 30'000'000, 300'000'000};

constexpr std::size_t longest_for_listening = 2;

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

// --- The owner's calls ---------------------------------------------------------------------------

void control_engine::add(const session_config& session) noexcept {
  try {
    if (sessions_.want(session)) {
      owner_.session_changed(session.key, sessions_.not_asked_yet());
    }
  } catch (const std::bad_alloc&) {
    bfdc_session_status status;
    status.problem.assign("out of memory");
    owner_.session_changed(session.key, status);
  }
  watch_life();
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
