// The ledger's clients: its socket, and a place for each connection. When every place is taken, the
// connection that has been idle longest gives way, root's last and to others only after some
// seconds; who follows data or has a request under way is not idle. Some places are root's alone,
// and a follower makes way for root, so nobody can shut root out.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/engine/engine.h"
#include "platform/ledger/server/peer.h"
#include "platform/linux/loop/listener.h"

namespace ot {

class ledger_clients : public ledger_peer_owner, public unix_listener_owner {
 public:
  ledger_clients(ledger_engine& engine, ledger_commit_queue& commits) noexcept
      : engine_(engine), commits_(commits) {}
  ~ledger_clients() override { listener_.unlink_path(); }

  // Makes the socket; connections wait until serve(). 0, or an errno value with a text for the
  // operator.
  int open(sd_event* loop, std::string& ret_error);
  void serve() noexcept { listener_.serve(); }

  // Queues the notices for those who follow them.
  void notify(std::string_view base, std::span<const ledger_dpv_notification> entries);

  void peer_ended(ledger_peer& peer) noexcept override;
  void client_connected(unique_fd socket, bool trusted) noexcept override;
  bool make_way(bool for_trusted) noexcept override;

 private:
  bool end_longest(bool trusted, bool idle, std::uint64_t silent_us) noexcept;

  ledger_engine& engine_;
  ledger_commit_queue& commits_;
  gid_t members_ = static_cast<gid_t>(-1);
  sd_event* loop_ = nullptr;
  unix_listener listener_{*this};
  std::vector<std::unique_ptr<ledger_peer>> peers_;
};

}  // namespace ot
