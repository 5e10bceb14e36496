// Our own BFD engine: asynchronous mode over a single hop of IPv4 (RFC 5880, RFC 5881), without
// authentication, echo and demand.
//
// What a session is, sends and means is the speaker's (platform/common/bfd/), which knows no
// socket; this is its way to the kernel. Packets come and go by packet_socket.h, and the links and
// addresses of this namespace are followed (links.h): a session whose interface goes, loses its
// carrier or its address is down at once, and comes back by itself. Without sessions the engine
// opens nothing.
//
// The thread may be late on a busy machine. So a deadline is judged only after what has arrived by
// then was read.
//
// Somebody else may speak BFD here (port_owners.h). Two speakers take each other's packets, so
// whoever opens the port beside us gets it: the sessions are down until he leaves.
//
// What sessions that are up have agreed on is kept in /run (saved_sessions.h), for a start after a
// crash: such a session goes on, and is reported up as soon as the neighbor was heard.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "platform/common/bfd/speaker.h"
#include "platform/linux/bfd/engine.h"
#include "platform/linux/bfd/own/links.h"
#include "platform/linux/bfd/own/packet_socket.h"
#include "platform/linux/bfd/own/port_owners.h"
#include "platform/linux/bfd/own/saved_sessions.h"
#include "platform/linux/bfd/timer.h"

namespace ot::bfd {

class own_engine final : public engine, private speaker::owner {
 public:
  explicit own_engine(engine::owner& reported);
  ~own_engine() override;

  int start(evm* manager) noexcept override;
  void add(const session_config& session) noexcept override;
  void remove(const session_key& key) noexcept override;
  [[nodiscard]] bfdc_engine_status status() const noexcept override;

 private:
  using problem_text = decltype(bfdc_session_status::problem);

  struct held_session {
    session_config config;
    spoken_session* spoken = nullptr;
    problem_text problem;
    std::uint32_t slot = 0;
    bool unconfirmed = false;  // goes on after another process, and was not heard yet
  };

  static void due(void* self) noexcept;
  static void tick(void* self) noexcept;
  static void links_changed(void* self) noexcept;
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);

  void send(const neighbor_path& path, const control_packet& packet) noexcept override;
  void changed(spoken_session& session) noexcept override;

  void open() noexcept;
  void close() noexcept;
  void look_at_port() noexcept;
  void stand_down(const std::string& why) noexcept;
  void receive() noexcept;
  void serve(std::uint64_t now) noexcept;
  void wake_for_packets(bool wake) noexcept;
  void add_new(const session_config& session);
  void begin(held_session& session);
  const agreed_session* left_of(const session_config& config, const neighbor_path& path) noexcept;
  [[nodiscard]] std::optional<neighbor_path> way_of(const held_session& session,
                                                    std::string_view* ret_problem) const noexcept;
  void find_path(held_session& session);
  void find_paths() noexcept;
  void report(held_session& session) noexcept;
  [[nodiscard]] bfdc_session_status status_of(const held_session& session) const noexcept;

  engine::owner& owner_;
  evm* manager_ = nullptr;
  std::mt19937 random_;
  speaker speaker_;
  packet_socket socket_;
  port_owners port_owners_;
  sd_event_source* readable_ = nullptr;
  local_links links_{links_changed, this};
  loop_timer due_{due, this};
  loop_timer tick_{tick, this};
  std::map<session_key, held_session> sessions_;
  saved_sessions saved_;
  std::vector<saved_session> left_;  // by an earlier process
  std::uint64_t left_until_ = 0;
  std::uint64_t stamped_ = 0;
  bool wakes_ = true;       // when a packet comes
  bool open_ = false;       // links and timers, and the port unless it is another's
  std::string stood_down_;  // why the port is not ours; empty: it is
};

}  // namespace ot::bfd
