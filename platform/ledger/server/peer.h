// One client of the ledger's socket.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <string>

#include "platform/ledger/client/bus.h"
#include "platform/ledger/engine/backlog.h"
#include "platform/ledger/server/commit_queue.h"
#include "platform/ledger/server/requests.h"
#include "platform/linux/loop/event_source.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class ledger_peer;

// Learns that a peer is over, and deletes it.
class ledger_peer_owner {
 public:
  virtual ~ledger_peer_owner() = default;
  virtual void peer_ended(ledger_peer& peer) noexcept = 0;
};

class ledger_peer : public ledger_commit_client {
 public:
  // `trusted`: of root or of the service's own user.
  ledger_peer(ledger_peer_owner& owner, ledger_engine& engine, ledger_commit_queue& commits,
              ledger_rights rights, bool trusted) noexcept
      : owner_(owner), engine_(engine), commits_(commits), rights_(rights), trusted_(trusted) {}
  ~ledger_peer() override { commits_.forget(*this); }
  ledger_peer(const ledger_peer&) = delete;
  ledger_peer& operator=(const ledger_peer&) = delete;

  // Starts the conversation on a connected socket. 0 or a negative errno; after -EMFILE, which
  // leaves the socket to the caller, it may be tried again.
  int start(sd_event* event, unique_fd& socket) noexcept;

  [[nodiscard]] bool trusted() const noexcept { return trusted_; }
  // Whether nothing is lost when it ends: it follows nothing and has nothing under way.
  [[nodiscard]] bool idle() const noexcept;
  // When it last said something, on the loop's clock.
  [[nodiscard]] std::uint64_t last_heard_us() const noexcept { return last_heard_us_; }

  // Queues the notices that this peer follows. They leave in a turn of its own: a thousand peers
  // are not one long turn.
  void notify(ledger_notice_batch& batch);

  void commit_done(int status, std::span<const ledger_refusal> refusals) noexcept override;

 private:
  static int on_io(sd_event_source* source, int fd, std::uint32_t events, void* userdata) noexcept;
  static int on_again(sd_event_source* source, void* userdata) noexcept;
  static int on_deadline(sd_event_source* source, std::uint64_t now, void* userdata) noexcept;
  static int on_message(sd_bus_message* message, void* userdata, sd_bus_error* error) noexcept;

  int attach(sd_event* event) noexcept;
  void run() noexcept;
  bool process() noexcept;
  [[nodiscard]] std::size_t message_max() const noexcept;
  void answer(sd_bus_message* message);
  void commit(sd_bus_message* message, std::span<const std::byte> body);
  void reply(sd_bus_message* message, const ledger_writer& answer) noexcept;
  int subscribe(std::span<const std::byte> body);
  void send_notices();
  void watch() noexcept;
  [[nodiscard]] std::uint64_t unsent() const noexcept;
  [[nodiscard]] bool waits_for_peer() const noexcept;
  [[nodiscard]] bool has_done_its_part() const noexcept;
  [[nodiscard]] std::uint64_t patience_us() const noexcept;

  ledger_peer_owner& owner_;
  ledger_engine& engine_;
  ledger_commit_queue& commits_;
  ledger_rights rights_;
  bool trusted_;
  std::uint64_t last_heard_us_ = 0;
  unique_fd watched_;  // the bus closes its own as soon as the peer has left
  bus_handle bus_;
  event_source io_;
  event_source again_;     // more than one turn's requests were there, or notices to send
  event_source deadline_;  // for what the peer has to do next
  message_handle commit_;  // the request for the commit that is under way
  std::string followed_;
  ledger_backlog backlog_;
  std::size_t unfinished_ = 0;  // bytes come in since the last whole message
  bool progress_ = false;       // since the deadline was set
  bool spoken_ = false;         // has sent a first message
  bool over_ = false;
};

}  // namespace ot
