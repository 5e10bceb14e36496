// What the engine asks bfdd, and in which order; answers.cpp has what that leads to.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

#include "platform/linux/bfd/frr_vty/engine.h"
#include "platform/linux/monotonic.h"

namespace ot::bfd {
namespace {

// With the log, the looks each second are a safety net; without it they are all there is.
constexpr std::uint64_t tick_usec_logged = 1'000'000;
constexpr std::uint64_t tick_usec_unlogged = 100'000;
constexpr unsigned ticks_between_configurations = 10;

// Sooner than five seconds with the tick before it.
constexpr std::uint64_t patience_usec = 3'500'000;
// A bfdd that is stuck answers when it wakes. Until then nothing runs and nothing is missed.
constexpr std::uint64_t first_patience_usec = 60'000'000;

}  // namespace

struct vty_engine::question_row {
  std::string_view command;
  std::uint64_t patience;
  bool (*took)(vty_engine& engine, const vty::answer_reader& answer);

  template <bool (vty_engine::*Took)(const vty::answer_reader& answer)>
  static bool by(vty_engine& engine, const vty::answer_reader& answer) {
    return (engine.*Took)(answer);
  }
};

// In the order of `question`. The last one may be its opposite.
const vty_engine::question_row vty_engine::questions[] = {
    {"enable", first_patience_usec, question_row::by<&vty_engine::took_enable>},
    {"terminal monitor", patience_usec, question_row::by<&vty_engine::took_monitor>},
    {"show version", patience_usec, question_row::by<&vty_engine::took_version>},
    {"show running-config", patience_usec, question_row::by<&vty_engine::took_configuration>},
    {"show bfd peers json", patience_usec, question_row::by<&vty_engine::took_sessions>},
    {"show bfd peers counters json", patience_usec, question_row::by<&vty_engine::took_counters>},
    {"debug bfd peer", patience_usec, question_row::by<&vty_engine::took_log>},
};

void vty_engine::ask(question what) noexcept {
  const question_row& row = questions[static_cast<std::size_t>(what)];
  due_ &= ~(1U << static_cast<unsigned>(what));
  asked_ = what;
  if (what == question::sessions) {
    moves_before_ = sessions_.moves();
    changed_ = false;
  }
  bfdd_.ask(what == question::log && log_on_ ? "no debug bfd peer" : row.command, row.patience);
}

void vty_engine::idle() noexcept {
  if (!bfdd_.is_open() || bfdd_.busy()) {
    return;
  }
  try {
    choose_next();
  } catch (const std::bad_alloc&) {
    look_soon_.start(tick_usec_logged);
  }
}

void vty_engine::choose_next() {
  for (std::size_t each = 0; each < std::size(questions); ++each) {
    if (is_due(static_cast<question>(each))) {
      ask(static_cast<question>(each));
      return;
    }
  }
  if (!status_.running || choose_log()) {
    return;
  }
  const std::uint64_t now = monotonic_ms();
  bool look = false;
  if (now >= settled_ms_) {
    if (auto change = sessions_.next({now, now >= tidy_from_ms_, our_log_, addresses_}, &look)) {
      bfdd_.apply(std::move(*change));
      return;
    }
  }
  if (look || changed_) {
    if (look) {
      look_at_addresses(&addresses_);
      due(question::configuration);
    }
    due(question::sessions);
    choose_next();
  }
}

// Sessions are logged for as long as some are wanted.
bool vty_engine::choose_log() noexcept {
  const bool wanted = sessions_.any_wanted();
  const bool over = our_log_ && !wanted && sessions_.empty();
  if (log_refused_ || !(log_on_ ? over : wanted)) {
    return false;
  }
  ask(question::log);
  return true;
}

std::uint64_t vty_engine::tick_usec() const noexcept {
  return monitor_.is_open() && log_on_ ? tick_usec_logged : tick_usec_unlogged;
}

void vty_engine::tick(void* self) noexcept {
  auto* engine = static_cast<vty_engine*>(self);
  if (engine->sessions_.empty() || !engine->status_.running) {
    return;
  }
  engine->tick_.start(engine->tick_usec());
  engine->due(question::sessions);
  engine->due(question::counters);
  if (++engine->ticks_ % ticks_between_configurations == 0) {
    engine->failed_attempts_ = 0;
    engine->due(question::configuration);
    if (!engine->monitor_.is_open()) {
      engine->due(question::monitor);
    }
  }
  try {
    look_at_addresses(&engine->addresses_);
  } catch (const std::bad_alloc&) {
    engine->ticks_ = 0;  // those of before will do
  }
  engine->idle();
}

void vty_engine::look_soon(void* self) noexcept {
  auto* engine = static_cast<vty_engine*>(self);
  engine->due(question::sessions);
  engine->idle();
}

void vty_engine::go_on(void* self) noexcept {
  static_cast<vty_engine*>(self)->idle();
}

bool vty_engine::answered(const vty::answer_reader& answer, unique_fd descriptor) {
  descriptor_ = std::move(descriptor);
  const bool right = questions[static_cast<std::size_t>(asked_)].took(*this, answer);
  descriptor_.reset();
  return right;
}

}  // namespace ot::bfd
