// The child processes of external commands: never more than a fixed number, each in a process group
// of its own that is killed as a whole.
#pragma once

#include <sys/types.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <map>

#include "tools/daemon/loop.h"
#include "tools/qmond/config.h"

namespace ot::qmond {

using command_ended = std::function<void(bool success)>;

class command_slots {
 public:
  static constexpr std::size_t children_max = 32;

  // Blocks SIGCHLD, as the loop wants it for its children.
  explicit command_slots(sd_event* loop);
  ~command_slots();
  command_slots(const command_slots&) = delete;
  command_slots& operator=(const command_slots&) = delete;

  [[nodiscard]] bool full() const noexcept { return children_.size() >= children_max; }

  // Starts the operation's command and calls `call` from the loop when it has ended. 0 or an errno
  // value. `ret` names it to kill().
  int start(const operation& what, command_ended call, pid_t* ret);

  // Kills the command with all that it has started, and forgets the call. Its slot is free again
  // when it is gone. Does nothing for one that has ended.
  void kill(pid_t command) noexcept;

 private:
  struct child {
    loop_source source;
    command_ended call;
  };

  void ended(pid_t command, bool success);

  sd_event* loop_;
  std::map<pid_t, child> children_;
};

}  // namespace ot::qmond
