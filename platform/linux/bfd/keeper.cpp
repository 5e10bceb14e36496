#include "platform/linux/bfd/keeper.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>
#include <new>
#include <utility>

#include "platform/linux/bfd/frr_control/engine.h"
#include "platform/linux/bfd/frr_vty/engine.h"
#include "platform/linux/bfd/own/engine.h"
#include "platform/linux/monotonic.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr std::uint32_t session_up = 0;
constexpr std::uint32_t session_down = 1;

// A socket has its name before anybody listens on it: so the looks after something has appeared.
constexpr std::uint64_t looks_usec[] = {50'000, 200'000, 1'000'000, 4'000'000};

constexpr std::uint64_t vty_alone_usec = 1'000'000;

bool is_up(const bfdc_session_status& status) noexcept {
  return status.state == bfd_state_up;
}

bfd_address address_of(const client_key& key) noexcept {
  bfd_address address{bfd_family_ipv4, {}};
  std::memcpy(address.bytes, &key.destination, sizeof key.destination);
  return address;
}

std::unique_ptr<engine> make_engine(engine::owner& owner, const engine_choice& choice) {
  switch (choice.kind) {
    case engine_kind::frr_control:
      return std::make_unique<control_engine>(owner, choice.path, this_process_labels());
    case engine_kind::frr_vty:
      return std::make_unique<vty_engine>(owner, choice.path);
    case engine_kind::own:
      break;
  }
  return std::make_unique<own_engine>(owner);
}

}  // namespace

session_keeper::~session_keeper() {
  engine_.reset();
  board_clear();
}

int session_keeper::start() noexcept {
  wish_ = wished_engine();
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

// --- The engine ----------------------------------------------------------------------------------

void session_keeper::look(void* self) noexcept {
  auto* keeper = static_cast<session_keeper*>(self);
  try {
    keeper->look_around();
  } catch (const std::bad_alloc&) {
    keeper->look_.start(looks_usec[std::size(looks_usec) - 1]);
  }
}

void session_keeper::appeared(void* self) noexcept {
  auto* keeper = static_cast<session_keeper*>(self);
  keeper->looks_ = 0;
  look(keeper);
}

// While bfdd runs, or may come back, its engine's own attempts tell whether it is there. One that
// listens and does not answer has the port, and is waited for.
std::optional<engine_choice> session_keeper::look_for_frr(
    const std::vector<engine_choice>& sockets) {
  const std::uint64_t now = monotonic_us();
  const bool is_frr = choice_ && choice_->kind != engine_kind::own;
  if (is_frr && (!away_since_ || now - *away_since_ < frr_return_usec)) {
    return choice_;
  }
  const std::optional<engine_choice> found = listening(sockets);
  if (!found || found->kind != engine_kind::frr_vty) {
    vty_alone_since_.reset();
    return found;
  }
  // A bfdd that is just starting may have its vty socket before its control socket.
  vty_alone_since_ = vty_alone_since_.value_or(now);
  return choice_ && now - *vty_alone_since_ < vty_alone_usec ? std::nullopt : found;
}

void session_keeper::look_around() {
  const std::vector<engine_choice> sockets = frr_sockets();
  engine_situation now{wish_, choice_, std::nullopt, std::nullopt};
  if (wish_ != engine_wish::own) {
    std::vector<std::string> paths;
    std::transform(sockets.begin(), sockets.end(), std::back_inserter(paths),
                   [](const engine_choice& socket) { return socket.path; });
    watch_.look_for(client_.manager, paths);
    now.frr = look_for_frr(sockets);
  }
  if (away_since_) {
    now.away_usec = monotonic_us() - *away_since_;
  }
  const engine_choice chosen = choose_engine(now);
  if (chosen != choice_) {
    use(chosen);
  }
  if (looks_ < std::size(looks_usec)) {
    look_.start(looks_usec[looks_++]);
  } else if (away_since_ && choice_->kind != engine_kind::own) {
    const std::uint64_t away = now.away_usec.value_or(0);
    look_.start(away < frr_return_usec ? frr_return_usec - away : frr_return_usec);
  }
}

// The old engine withdraws its sessions before the new one begins.
void session_keeper::use(const engine_choice& choice) {
  std::unique_ptr<engine> next = make_engine(*this, choice);
  engine_.reset();
  bfdc_session_status nobody;
  nobody.problem.assign("no engine runs it yet");
  for (auto& [key, session] : sessions_) {
    take_status(session, nobody);
  }
  choice_.reset();
  engine_ = std::move(next);
  if (engine_->start(client_.manager) != status_ok) {
    throw std::bad_alloc();  // of what is left to fail, memory is the one that passes
  }
  choice_ = choice;
  for (const auto& [key, session] : sessions_) {
    engine_->add(session.config);
  }
  engine_changed();
}

void session_keeper::engine_changed() noexcept {
  bfdc_engine_status status = engine_->status();
  if (status.running && choice_ && choice_->kind == engine_kind::own) {
    status.reason.assign(wish_ == engine_wish::own ? "chosen by OT_BFD_ENGINE"
                                                   : "no bfdd of FRR runs here");
  }
  board_engine(status);
  if (status.running) {
    away_since_.reset();
  } else if (!away_since_) {
    away_since_ = monotonic_us();
    looks_ = 0;
    look_.start(looks_usec[0]);
  }
}

// --- The sessions --------------------------------------------------------------------------------

session_keeper::wanted& session_keeper::enter(const client_key& key, const session_config& config) {
  if (const auto named = names_.find(key);
      named != names_.end() && !(named->second == config.key)) {
    drop(key);  // the same interface by number, and another by name
  }
  wanted& session = sessions_[config.key];
  if (std::find(session.keys.begin(), session.keys.end(), key) == session.keys.end()) {
    session.keys.push_back(key);
    names_[key] = config.key;
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
