// Following published events, and how each is written: one line, as text or as JSON.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/event_subscriber.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl {

// "up", "down", or "unknown" for anything else.
const char* event_state_word(std::uint32_t state) noexcept;

// "2026-11-21 10:53:00.123 uplink down", without a newline; local time.
std::string event_text_line(const evdl_track_event& event, moment when);

// {"time":"2026-11-21T10:53:00.123+01:00","track":"uplink","state":"down"}, without a newline.
std::string event_json_line(const evdl_track_event& event, moment when);

// The filter for all changes of a track. Throws for a name that events do not carry.
evdl_filter filter_for(const std::string& track);

// A subscription that ends with its owner. Its calls throw; when the service goes away with
// exit_no_service.
class event_subscription {
 public:
  enum class begin { waits, at_once };

  // At once: it does not wait for the service's answer, and nothing is received before `answered`.
  explicit event_subscription(const std::vector<evdl_filter>& filters, begin how = begin::waits);
  ~event_subscription();
  event_subscription(const event_subscription&) = delete;
  event_subscription& operator=(const event_subscription&) = delete;

  // Waits at most so many milliseconds (-1: for ever) and hands over what has come.
  void receive(int timeout_ms, const std::function<void(const evdl_track_event&)>& on_event) const;
  // Whether the service has answered by now.
  [[nodiscard]] bool answered() const;
  // Readable when an event waits, or the answer.
  [[nodiscard]] int descriptor() const noexcept;

 private:
  evdl_subscriber* subscriber_ = nullptr;
};

}  // namespace ot::trackctl
