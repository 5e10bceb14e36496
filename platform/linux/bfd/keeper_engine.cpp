// The keeper's choice of the engine: where bfdd is looked for and when, what happens when another
// engine is to run the sessions, and how the operator hears of it.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>
#include <utility>

#include "platform/linux/bfd/frr_control/engine.h"
#include "platform/linux/bfd/frr_vty/engine.h"
#include "platform/linux/bfd/keeper.h"
#include "platform/linux/bfd/own/engine.h"
#include "platform/linux/monotonic.h"
#include "platform/messages.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

// A socket has its name before anybody listens on it: so the looks after something has appeared.
constexpr std::uint64_t looks_usec[] = {50'000, 200'000, 1'000'000, 4'000'000};

constexpr std::uint64_t vty_alone_usec = 1'000'000;

constexpr errmsg_record bfd_log{"OT", "SERVICES", "BFD", "%s", 5, 5, {0, 0, 0}, nullptr};

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
  std::optional<engine_choice> found = listening(sockets);
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

void session_keeper::hear_operator() noexcept {
  std::string_view unknown;
  wish_ = wished_engine(&unknown);
  if (unknown.empty()) {
    return;
  }
  constexpr std::size_t shown = 64;
  char text[256];
  std::snprintf(text, sizeof text,
                "OT_BFD_ENGINE is \"%.*s\": it must be auto, own or frr; auto is taken",
                static_cast<int>(std::min(unknown.size(), shown)), unknown.data());
  errmsg_log(&bfd_log, bfd_log.severity, text);
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
  log_engine();
  if (status.running) {
    away_since_.reset();
  } else if (!away_since_) {
    away_since_ = monotonic_us();
    looks_ = 0;
    look_.start(looks_usec[0]);
  }
}

// Who speaks BFD here, and why; when it changes, and only where there is something to say.
void session_keeper::log_engine() noexcept {
  const bfdc_engine_status status = bfdc_engine();
  if (sessions_.empty() || (status.running == logged_.running && status.name == logged_.name &&
                            status.reason == logged_.reason)) {
    return;
  }
  logged_ = status;
  char text[256];
  std::snprintf(text, sizeof text, "BFD sessions are %s by %s: %s",
                status.running ? "run" : "not run", status.name.c_str(), status.reason.c_str());
  errmsg_log(&bfd_log, bfd_log.severity, text);
}

}  // namespace ot::bfd
