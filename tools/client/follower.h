// Following without a gap: a session with the service, the next one when it has come back, and what
// is told of what they bring. The subscription comes first, then all states are asked for; events
// that come before these wait, and are taken in behind them. All states are compared every few
// seconds.
//
// An epoll instance is the one descriptor of all that is waited for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/client/client.h"
#include "tools/client/session.h"
#include "tools/client/telling.h"

struct otrack_follower {
 public:
  enum class begin { waits, at_once };

  // Throws.
  otrack_follower(otrack_client& client, std::vector<std::string> names, bool reconnects,
                  begin how);

  [[nodiscard]] int fd() const noexcept { return wait_.get(); }
  [[nodiscard]] otrack_client& client() const noexcept { return client_; }

  // Takes what has come into the queue. OTRACK_OK, or why nothing more comes.
  int take() noexcept;
  // The next of the queue; null when it is empty. Valid until the next call.
  const otrack_event* next() noexcept;

 private:
  void wait_until_synced();
  void disconnect() noexcept;
  void advance();
  [[nodiscard]] std::uint64_t due_ms() const noexcept;
  void set_clock() noexcept;

  otrack_client& client_;
  ot::client::telling telling_;
  bool reconnects_;
  bool ended_ = false;         // nothing more comes
  std::uint64_t next_ms_ = 0;  // when to compare, or to connect
  std::uint64_t set_ms_ = 0;   // what the clock is set to
  ot::unique_fd clock_;
  ot::unique_fd wait_;
  std::optional<ot::client::session> session_;
};
