#include "platform/linux/bfd/board.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <new>

namespace ot::bfd {
namespace {

struct board {
  std::mutex lock;
  bfdc_engine_status engine;
  std::map<client_key, bfdc_session_status> sessions;
};

board& the_board() noexcept {
  static board told;
  return told;
}

}  // namespace

// Since when: kept by what is the same as before but for the words.
void board_engine(const bfdc_engine_status& status) noexcept {
  board& told = the_board();
  const std::lock_guard guard(told.lock);
  const bool same = told.engine.since != 0 && told.engine.running == status.running &&
                    told.engine.name == status.name;
  const std::int64_t since = same ? told.engine.since : std::int64_t{std::time(nullptr)};
  told.engine = status;
  told.engine.since = since;
}

void board_session(const client_key& key, const bfdc_session_status& status) noexcept {
  board& told = the_board();
  const std::lock_guard guard(told.lock);
  try {
    told.sessions[key] = status;
  } catch (const std::bad_alloc&) {
    return;
  }
}

void board_remove(const client_key& key) noexcept {
  board& told = the_board();
  const std::lock_guard guard(told.lock);
  told.sessions.erase(key);
}

void board_clear() noexcept {
  board& told = the_board();
  const std::lock_guard guard(told.lock);
  told.engine = {};
  told.sessions.clear();
}

}  // namespace ot::bfd

namespace ot {

bfdc_engine_status bfdc_engine() noexcept {
  bfd::board& told = bfd::the_board();
  const std::lock_guard guard(told.lock);
  return told.engine;
}

std::uint32_t bfdc_sessions_not_run() noexcept {
  bfd::board& told = bfd::the_board();
  const std::lock_guard guard(told.lock);
  return static_cast<std::uint32_t>(
      std::count_if(told.sessions.begin(), told.sessions.end(),
                    [](const auto& session) { return !session.second.problem.empty(); }));
}

bool bfdc_session(std::uint32_t ifhandle, const bfd_address& destination,
                  bfdc_session_status* ret) noexcept {
  bfd::client_key key{ifhandle, 0};
  std::memcpy(&key.destination, destination.bytes, sizeof key.destination);
  bfd::board& told = bfd::the_board();
  const std::lock_guard guard(told.lock);
  const auto found = told.sessions.find(key);
  if (found == told.sessions.end()) {
    return false;
  }
  *ret = found->second;
  return true;
}

}  // namespace ot
