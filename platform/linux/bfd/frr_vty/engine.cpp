// The engine on bfdd's vty socket: its connection, and what its owner calls.
#include "platform/linux/bfd/frr_vty/engine.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <new>
#include <utility>

#include "platform/linux/bfd/frr_vty/farewell.h"
#include "platform/linux/bfd/instance.h"
#include "platform/linux/monotonic.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

// Before the next attempt to connect, by the failures before it: a bfdd that restarts is back in no
// time. One that is not there at all is watched for, so that trying is but a precaution.
constexpr std::uint64_t delays_usec[] = {100'000,    1'000'000,  2'000'000,  5'000'000,
                                         10'000'000, 30'000'000, 300'000'000};

// All tracks of the last run are configured again by then.
constexpr std::uint64_t tidy_after_ms = 3'000;
// FRR loads the user's peers into a bfdd that is already there to be asked; ours must not be in
// their place.
constexpr std::int64_t settling_ms = 2'000;

constexpr std::string_view unknown_name = "FRR, vty socket";

// For how long bfdd may still load its configuration, going by the age of its socket.
std::uint64_t settling_left_ms(const std::string& path) noexcept {
  struct stat socket {};
  timespec now{};
  if (stat(path.c_str(), &socket) != 0 || clock_gettime(CLOCK_REALTIME, &now) != 0) {
    return 0;
  }
  const std::int64_t age_ms = (now.tv_sec - socket.st_mtim.tv_sec) * 1000 +
                              (now.tv_nsec - socket.st_mtim.tv_nsec) / 1'000'000;
  return age_ms < 0 || age_ms >= settling_ms ? 0 : static_cast<std::uint64_t>(settling_ms - age_ms);
}

}  // namespace

vty_engine::vty_engine(engine::owner& reported, std::string path)
    : owner_(reported),
      path_(std::move(path)),
      sessions_(reported, vty::peer_mark{instance_number()}) {
  status_.name.assign(unknown_name);
  status_.reason.assign("not connected yet");
}

vty_engine::~vty_engine() {
  if (!status_.running) {
    return;
  }
  sessions_.give_up_all();
  try {
    if (vty::connection* bfdd = bfdd_.interrupt(vty::farewell_patience_ms); bfdd != nullptr) {
      vty::say_farewell(*bfdd, sessions_, our_log_);
    }
  } catch (const std::bad_alloc&) {
    return;  // the next run finds and removes what is left
  }
}

int vty_engine::start(evm* manager) noexcept {
  manager_ = manager;
  for (const int attached :
       {bfdd_.attach(manager), reconnect_.attach(manager), tick_.attach(manager),
        look_soon_.attach(manager), go_on_.attach(manager)}) {
    if (attached != status_ok) {
      return attached;
    }
  }
  tidy_from_ms_ = monotonic_ms() + tidy_after_ms;
  reconnect_.start(0);
  return status_ok;
}

// --- The connection ------------------------------------------------------------------------------

void vty_engine::attempt(void* self) noexcept {
  auto* engine = static_cast<vty_engine*>(self);
  try {
    engine->watch_.look_for(engine->manager_, {engine->path_});
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;  // the next attempt watches
  }
  if (!engine->bfdd_.open(engine->path_)) {
    char reason[decltype(status_.reason)::capacity];
    std::snprintf(reason, sizeof reason, "%s: %s", engine->path_.c_str(), std::strerror(errno));
    engine->reconnect_later(reason);
    return;
  }
  engine->settled_ms_ = monotonic_ms() + settling_left_ms(engine->path_);
  engine->ticks_ = 0;
  engine->due_ = 0;
  for (const question first : {question::enable, question::monitor, question::version,
                               question::configuration, question::sessions}) {
    engine->due(first);
  }
  engine->idle();
}

void vty_engine::appeared(void* self) noexcept {
  auto* engine = static_cast<vty_engine*>(self);
  if (!engine->bfdd_.is_open()) {
    engine->failed_attempts_ = 0;
    engine->reconnect_.stop();
    attempt(engine);
  }
}

void vty_engine::ended(vty::connection_end why) noexcept {
  switch (why) {
    case vty::connection_end::closed:
      failed_attempts_ = status_.running ? 0 : failed_attempts_;
      reconnect_later("bfdd has ended the connection");
      break;
    case vty::connection_end::silent:
      failed_attempts_ = 0;  // it has the next connection to answer on when it wakes
      reconnect_later("bfdd does not answer");
      break;
    case vty::connection_end::nonsense:
      reconnect_later("bfdd answers what it should not");
      break;
  }
}

void vty_engine::reconnect_later(std::string_view reason) noexcept {
  bfdd_.close();
  monitor_.close();
  tick_.stop();
  look_soon_.stop();
  go_on_.stop();
  log_on_ = our_log_ = log_refused_ = false;
  reconnect_.start(delays_usec[failed_attempts_]);
  failed_attempts_ = std::min(failed_attempts_ + 1, std::size(delays_usec) - 1);
  sessions_.lost();
  set_status(false, reason);
}

void vty_engine::set_status(bool running, std::string_view reason) noexcept {
  const bfdc_engine_status before = status_;
  status_.running = running;
  status_.reason.assign(reason);
  if (!(status_ == before)) {
    owner_.engine_changed();
  }
}

// --- The owner's calls ---------------------------------------------------------------------------

void vty_engine::add(const session_config& session) noexcept {
  try {
    sessions_.want(session);
    changed_ = true;  // its state may be known already
  } catch (const std::bad_alloc&) {
    bfdc_session_status status;
    status.problem.assign("out of memory");
    owner_.session_changed(session.key, status);
    return;
  }
  if (status_.running) {
    if (!tick_.running()) {
      tick_.start(tick_usec());
    }
    go_on_.start(0);
  }
}

void vty_engine::remove(const session_key& key) noexcept {
  sessions_.give_up(key);
  if (status_.running) {
    go_on_.start(0);
  }
}

}  // namespace ot::bfd
