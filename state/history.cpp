// An entry is what a reader needs and nothing else: it is written at every publication that changes
// a state, and read when an operator asks.

#include "state/history.h"

#include <algorithm>
#include <array>

#include "platform/clock.h"
#include "platform/ledger_config.h"

namespace ot {
namespace {

constinit std::array<state_change, history_size> ring{};  // untouched pages cost nothing
std::uint64_t noted = 0;
std::int64_t began_ms = 0;
change_cause scope = change_cause::object;

change_cause present_cause() noexcept {
  const ledger_change* const applied = ledger_change_under_way();
  if (scope != change_cause::object || applied == nullptr) {
    return scope;
  }
  return applied->replayed ? change_cause::restart : change_cause::configuration;
}

}  // namespace

void forget_history() noexcept {
  noted = 0;
  began_ms = clock_boottime_milliseconds();
}

void note_state_change(const track_name& track, track_state from, track_state to,
                       std::int64_t when_ms) noexcept {
  ring[noted % history_size] = {when_ms, track, static_cast<std::uint8_t>(from),
                                static_cast<std::uint8_t>(to), present_cause()};
  ++noted;
}

history_extent state_history() noexcept {
  return {noted - std::min<std::uint64_t>(noted, history_size) + 1, noted, began_ms};
}

const state_change& state_change_at(std::uint64_t number) noexcept {
  return ring[(number - 1) % history_size];
}

change_cause_scope::change_cause_scope(change_cause cause) noexcept : outer_(scope) {
  scope = cause;
}

change_cause_scope::~change_cause_scope() {
  scope = outer_;
}

}  // namespace ot
