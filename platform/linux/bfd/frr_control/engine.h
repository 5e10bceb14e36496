// FRR's bfdd as the engine, by its control socket (bfdd before 10.2).
//
// The way of a request: add or remove -> session_table, which knows what is wanted and how far bfdd
// has followed -> engine_job -> a message of protocol.h -> engine_connection. At most 64 requests
// are unanswered at a time; the answer's id finds the session. The way of a state: a notification
// -> session_table finds the session by its label -> the owner.
//
// Sessions belong to bfdd, survive our connection and are lost with its process, so every
// connection begins by asking for everything again and removing what an earlier run of ours has
// left. When bfdd is away, each session is reported down, and attempts go on with growing delays.
//
// bfdd is trusted with nothing: a message that cannot be right, or an answer that does not come in
// time, ends the connection; a harmless request now and then finds a bfdd that is stuck. Sessions
// of other clients are followed where they are in the way of ours, never changed or removed.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/linux/bfd/engine.h"
#include "platform/linux/bfd/frr_control/connection.h"
#include "platform/linux/bfd/frr_control/session_table.h"
#include "platform/linux/bfd/socket.h"
#include "platform/linux/bfd/timer.h"

namespace ot::bfd {

class control_engine final : public engine, private engine_connection::owner {
 public:
  // `path`: the socket's.
  control_engine(engine::owner& reported, std::string path, const session_labels& labels)
      : owner_(reported), path_(std::move(path)), sessions_(labels) {}
  ~control_engine() override;

  int start(evm* manager) noexcept override;
  void add(const session_config& session) noexcept override;
  void remove(const session_key& key) noexcept override;
  [[nodiscard]] bfdc_engine_status status() const noexcept override;

 private:
  static void attempt(void* self) noexcept;
  static void appeared(void* self) noexcept;
  static void retry_refused(void* self) noexcept;
  static void show_life(void* self) noexcept;

  bool received(const frame_view& frame) override;
  void writable() noexcept override;
  void ended(connection_end why) noexcept override;

  bool connect();
  void reconnect_later(bool listens) noexcept;
  bool send(std::uint8_t type, const std::string& payload, std::uint32_t number);
  bool send_jobs();
  void send_what_waits() noexcept;
  bool take_response(const frame_view& frame);
  void subscribed();
  void watch_life() noexcept;
  void session_answered(std::uint32_t number, bool accepted);
  void report(const wanted_session& session) {
    owner_.session_changed(session.config.key, session.status);
  }

  engine::owner& owner_;
  std::string path_;
  evm* manager_ = nullptr;
  session_table sessions_;
  engine_connection connection_{*this};
  socket_watch watch_{appeared, this};
  loop_timer reconnect_{attempt, this};
  loop_timer retry_{retry_refused, this};
  loop_timer heartbeat_{show_life, this};
  std::uint64_t retry_usec_ = 0;
  std::size_t failed_attempts_ = 0;  // in a row
  bool connected_ = false;           // bfdd has taken the subscription
  std::uint16_t last_id_ = 0;
  // Requests that bfdd has not answered: its id for them, and the number of the session asked for
  // (0: something else).
  std::map<std::uint16_t, std::uint32_t> unanswered_;
  std::optional<engine_job> postponed_;  // the socket was full
};

}  // namespace ot::bfd
