// Where `trackctl policy list` finds out how the policies stand: a socket that answers every
// connection with one JSON text and closes it. Who may operate tracks may connect; a reader that
// does not read holds nobody up.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/daemon/loop.h"
#include "tools/trackpolicy/engine.h"

namespace ot::trackpolicy {

inline constexpr const char* status_socket_path = "/run/object_tracking/policy.sock";

// A list of objects: policy, kind, track, state, doing, problem, runs, failures, dropped; penalty
// and suppressed_ms, null without damping; held and held_ms, null when no state waits.
std::string status_json(const std::vector<policy_status>& policies);

class status_socket {
 public:
  static constexpr std::size_t readers_max = 16;

  // `answer` makes the text. Throws failure when the socket cannot be made.
  status_socket(sd_event* loop, std::function<std::string()> answer);
  ~status_socket();
  status_socket(const status_socket&) = delete;
  status_socket& operator=(const status_socket&) = delete;

 private:
  struct reader {
    unique_fd socket;
    std::string text;
    std::size_t sent = 0;
    loop_source writable;
    loop_source deadline;
  };

  void accept_one();
  bool send_some(reader& to);

  sd_event* loop_;
  std::function<std::string()> answer_;
  unique_fd listener_;
  std::map<int, reader> readers_;  // by descriptor
  loop_source arrival_;
};

}  // namespace ot::trackpolicy
