// Times from a change of the kernel's to the message of a bare listener and to the events of a
// subscriber.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace ot::bench {

// What is changed, and the bare listener to it.
struct changed_object {
  // Makes the change; the kernel has taken note for its listeners when this returns.
  std::function<void(bool up)> set;
  int listener_fd = -1;
  // Reads what has come; whether the object is up by the last message about it, nothing when there
  // was none.
  std::function<std::optional<bool>()> receive;
};

// Takes the object down and up `rounds` times, `gap` apart, and prints one line a change: "up" or
// "down", then nanoseconds since the request was made: the listener's message, the first and the
// last of the events of `events` tracks. Runs at real-time priority. Throws when a change does not
// come through.
void measure_changes(const changed_object& object, unsigned events, unsigned rounds,
                     std::chrono::milliseconds gap);

}  // namespace ot::bench
