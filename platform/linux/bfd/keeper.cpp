#include "platform/linux/bfd/keeper.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr std::uint32_t session_up = 0;
constexpr std::uint32_t session_down = 1;

bool is_up(const bfdc_session_status& status) noexcept {
  return status.state == bfd_state_up;
}

bfd_address address_of(const client_key& key) noexcept {
  bfd_address address{bfd_family_ipv4, {}};
  std::memcpy(address.bytes, &key.destination, sizeof key.destination);
  return address;
}

}  // namespace

session_keeper::~session_keeper() {
  engine_.reset();
  board_clear();
}

int session_keeper::start() noexcept {
  hear_operator();
  const int status = look_.attach(client_.manager);
  if (status != status_ok) {
    return status;
  }
  try {
    look_around();
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  return status_ok;
}

// --- The sessions --------------------------------------------------------------------------------

session_keeper::wanted& session_keeper::enter(const client_key& key, const session_config& config) {
  if (const auto named = names_.find(key);
      named != names_.end() && !(named->second == config.key)) {
    drop(key);  // the same interface by number, and another by name
  }
  wanted& session = sessions_[config.key];
  if (std::find(session.keys.begin(), session.keys.end(), key) == session.keys.end()) {
    session.keys.reserve(session.keys.size() + 1);
    names_[key] = config.key;
    session.keys.push_back(key);  // a name that the session has and names_ has not would stay
  }
  return session;
}

void session_keeper::create(const client_key& key, const session_config& config,
                            const request_origin& creation) noexcept {
  wanted* session = nullptr;
  try {
    session = &enter(key, config);
  } catch (const std::bad_alloc&) {
    std::erase_if(sessions_, [](const auto& entry) { return entry.second.keys.empty(); });
    report_request(bfdc_request_created, key, creation, no_memory);
    return;
  }
  board_session(key, session->status);
  if (session->config != config) {
    session->config = config;
    engine_->add(config);
    log_engine();
  }
  report_request(bfdc_request_created, key, creation, status_ok);
  if (is_up(session->status)) {
    report_state(key, true);  // the acknowledgement stands for down
  }
}

void session_keeper::remove(const client_key& key, const request_origin& removal) noexcept {
  drop(key);
  report_request(bfdc_request_unconfigured, key, removal, status_ok);
}

void session_keeper::drop(const client_key& key) noexcept {
  const auto named = names_.find(key);
  if (named == names_.end()) {
    return;
  }
  const auto found = sessions_.find(named->second);
  names_.erase(named);
  board_remove(key);
  std::erase(found->second.keys, key);
  if (found->second.keys.empty()) {
    engine_->remove(found->first);
    sessions_.erase(found);
  }
}

void session_keeper::session_changed(const session_key& key,
                                     const bfdc_session_status& now) noexcept {
  if (const auto found = sessions_.find(key); found != sessions_.end()) {
    take_status(found->second, now);
  }
}

void session_keeper::take_status(wanted& session, const bfdc_session_status& now) noexcept {
  const bool was_up = is_up(std::exchange(session.status, now));
  for (const client_key& key : session.keys) {
    board_session(key, now);
    if (was_up != is_up(now)) {
      report_state(key, is_up(now));
    }
  }
}

void session_keeper::report_request(std::uint32_t event, const client_key& key,
                                    const request_origin& asked, int error) noexcept {
  const bfdc_request_result result{error,           event,          key.ifhandle,
                                   address_of(key), asked.sequence, asked.context};
  client_.request_done(&result);
}

void session_keeper::report_state(const client_key& key, bool up) noexcept {
  const bfdc_event event{bfdc_event_session_state, key.ifhandle, address_of(key),
                         up ? session_up : session_down};
  client_.state_changed(&event);
}

}  // namespace ot::bfd
