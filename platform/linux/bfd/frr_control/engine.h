// The client of the BFD engine (FRR's bfdd), which runs the sessions; we only ask for them.
//
// Threads. The calls of platform/bfd_client.h (client.cpp) come from any thread. Each checks its
// request, numbers it, puts it in a locked queue and posts a task to the loop that the client was
// bound on, which the service runs on its thread "ot_bfd". Everything below, and every callback,
// runs on that loop and nothing there waits for the engine.
//
// The way of a request: client.cpp -> engine_client::create or remove -> session_table, which knows
// what is wanted and how far the engine has followed -> engine_job -> a message of protocol.h ->
// engine_connection. At most 64 requests are unanswered at a time. The answer comes back the same
// way: its id finds the session, and the client gets its acknowledgement.
//
// The way of a state: a notification of the engine -> session_table finds the session by its label
// -> `state_changed`, on the loop, only when it differs from the last one reported.
//
// Ownership. The session table is the engine_client's and is the truth: sessions belong to the
// engine, survive our connection and are lost with its process, so every connection begins by
// asking for everything again and removing what an earlier run of ours has left. The socket is
// looked for, reached and watched in socket.h; when it is away, each session that was up is
// reported down, and attempts go on with growing delays.
//
// The engine is trusted with nothing: a message that cannot be right, or an answer that does not
// come in time, ends the connection. Sessions of other clients are followed where they are in the
// way of ours, never changed or removed.
#pragma once

#include <cstdint>
#include <map>

#include "platform/bfd_client.h"
#include "platform/linux/bfd/frr_control/connection.h"
#include "platform/linux/bfd/frr_control/session_table.h"
#include "platform/linux/bfd/socket.h"
#include "platform/linux/bfd/timer.h"

namespace ot::bfd {

class engine_client final : private engine_connection::owner {
 public:
  engine_client(const bfdc_bind_record& client, const session_labels& labels)
      : client_(client), sessions_(labels) {}
  // Gives up what the engine holds for us, without waiting for its answers.
  ~engine_client();
  engine_client(const engine_client&) = delete;
  engine_client& operator=(const engine_client&) = delete;

  // Connects in the background. 0 or a status code.
  int start() noexcept;

  void create(const session_key& key, const session_config& config,
              const request_origin& creation) noexcept;
  void remove(const session_key& key, const request_origin& removal) noexcept;

 private:
  static void attempt(void* self) noexcept;
  static void appeared(void* self) noexcept;
  static void retry_refused(void* self) noexcept;

  bool received(const frame_view& frame) override;
  void writable() noexcept override;
  void ended(connection_end why) noexcept override;

  bool connect();
  void reconnect_later() noexcept;
  bool send(std::uint8_t type, const std::string& payload, std::uint32_t number);
  bool send_jobs();
  void send_what_waits() noexcept;
  bool take_response(const frame_view& frame);
  void subscribed();
  void session_answered(std::uint32_t number, bool accepted);
  void acknowledge(wanted_session& session, int error);
  void report_request(std::uint32_t event, const session_key& key, const request_origin& asked,
                      int error);
  void report_state(const session_key& key, bool up);

  bfdc_bind_record client_;
  session_table sessions_;
  engine_connection connection_{*this};
  socket_watch watch_{appeared, this};
  loop_timer reconnect_{attempt, this};
  loop_timer retry_{retry_refused, this};
  std::uint64_t retry_usec_ = 0;
  std::size_t failed_attempts_ = 0;  // in a row
  bool connected_ = false;           // the engine has taken the subscription
  std::uint16_t last_id_ = 0;
  // Requests that the engine has not answered: its id for them, and the number of the session asked
  // for (0: something else).
  std::map<std::uint16_t, std::uint32_t> unanswered_;
  std::optional<engine_job> postponed_;  // the socket was full
};

}  // namespace ot::bfd
