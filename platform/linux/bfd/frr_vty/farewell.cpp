// The clean end: the same blocks of commands as ever, one answer after the other.
#include "platform/linux/bfd/frr_vty/farewell.h"

#include <string>
#include <vector>

#include "platform/linux/monotonic.h"

namespace ot::bfd::vty {
namespace {

constexpr std::uint64_t longest_ms = 2000;

// After a command that failed only the last one of the block is sent.
void apply(connection& bfdd, const std::vector<std::string>& commands) noexcept {
  bool failed = false;
  for (std::size_t place = 0; place < commands.size(); ++place) {
    if (failed && place + 1 < commands.size()) {
      continue;
    }
    const answer_reader* answer = bfdd.converse(commands[place], farewell_patience_ms);
    if (answer == nullptr) {
      return;
    }
    failed = failed || !answer->succeeded();
  }
}

}  // namespace

void say_farewell(connection& bfdd, const session_table& sessions, bool our_log) {
  const std::uint64_t end_ms = monotonic_ms() + longest_ms;
  if (our_log) {
    apply(bfdd, {"no debug bfd peer"});
  }
  for (const change& each : sessions.final_changes()) {
    if (!bfdd.is_open() || monotonic_ms() >= end_ms) {
      return;
    }
    apply(bfdd, each.commands);
  }
}

}  // namespace ot::bfd::vty
