// Reading and changing the configuration of one track through the ledger.
#pragma once

#include <string>

#include "platform/ledger.h"
#include "tools/trackctl/config_items.h"
#include "tools/trackctl/plan.h"

namespace ot::trackctl {

// A bound ledger connection, unbound at the end.
class ledger_connection {
 public:
  // Throws when the binding fails; `path` ends in '/'.
  explicit ledger_connection(const std::string& path);
  ~ledger_connection();
  ledger_connection(const ledger_connection&) = delete;
  ledger_connection& operator=(const ledger_connection&) = delete;

  [[nodiscard]] ledger_conn* get() const noexcept { return connection_; }

 private:
  ledger_conn* connection_ = nullptr;
};

// The items of `track`; empty when it is not configured.
track_items read_track(const std::string& track);

// The same, throwing when the track is not configured.
track_items read_existing_track(const std::string& track);

// Sends one commit. Throws with every refusal in the text; `what` says what was tried.
void send_commit(const std::string& what, const commit& changes);

}  // namespace ot::trackctl
