// The ledger in its process: stores, engine and socket.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/event_manager.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/server/instance_lock.h"
#include "platform/ledger/server/lmdb_store.h"
#include "platform/ledger/server/peer.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class ledger_server : public ledger_environment, public ledger_peer_owner {
 public:
  ledger_server();
  ~ledger_server() override;

  // 0 or a status code with a text for the operator.
  int open(evm* manager, std::string& ret_error);
  void serve() noexcept;
  // Ends what a handler left to be done in one go.
  void flush() noexcept;

  [[nodiscard]] ledger_engine& engine() noexcept { return engine_; }

  void log(const std::string& line) override;
  int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) override;
  void peer_ended(ledger_peer& peer) noexcept override;

 private:
  static int on_connection(sd_event_source* source, int fd, std::uint32_t events,
                           void* userdata) noexcept;

  int open_places(std::string& ret_error);
  int open_store(lmdb_store& store, const lmdb_options& options, std::string& ret_error);
  int listen(evm* manager, std::string& ret_error);
  void accept_one(int listener) noexcept;
  void adjust_accepting() noexcept;

  instance_lock lock_;
  gid_t members_;
  lmdb_store configuration_;
  lmdb_store operational_;
  ledger_engine engine_;
  sd_event* event_ = nullptr;
  unique_fd listener_;
  std::string socket_path_;
  event_source accepting_;
  bool serving_ = false;
  std::vector<std::unique_ptr<ledger_peer>> peers_;
};

}  // namespace ot
