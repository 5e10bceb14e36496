// The sessions that the client wants, whichever engine runs them; and the engine, which is chosen
// anew when one comes or goes. Loop's thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "platform/bfd_client.h"
#include "platform/linux/bfd/board.h"
#include "platform/linux/bfd/choice.h"
#include "platform/linux/bfd/engine.h"
#include "platform/linux/bfd/socket.h"
#include "platform/linux/bfd/timer.h"

namespace ot::bfd {

// What the acknowledgement of a request carries back to the client.
struct request_origin {
  const void* context = nullptr;
  std::uint32_t sequence = 0;
};

class session_keeper final : private engine::owner {
 public:
  explicit session_keeper(const bfdc_bind_record& client) noexcept : client_(client) {}
  // Withdraws the sessions from the engine.
  ~session_keeper();
  session_keeper(const session_keeper&) = delete;
  session_keeper& operator=(const session_keeper&) = delete;

  // Chooses an engine and starts it. 0 or a status code.
  int start() noexcept;

  // Both are acknowledged at once: that a session is wanted, or not any more, is for nobody to
  // refuse. One that is up already is reported up after that.
  void create(const client_key& key, const session_config& config,
              const request_origin& creation) noexcept;
  void remove(const client_key& key, const request_origin& removal) noexcept;

 private:
  struct wanted {
    session_config config;
    bfdc_session_status status;
    std::vector<client_key> keys;  // the client's names for it: never none
  };

  static void look(void* self) noexcept;
  static void appeared(void* self) noexcept;

  void session_changed(const session_key& key, const bfdc_session_status& now) noexcept override;
  void engine_changed() noexcept override;

  void look_around();
  std::optional<engine_choice> look_for_frr(const std::vector<engine_choice>& sockets);
  void use(const engine_choice& choice);
  void log_engine() noexcept;
  void hear_operator() noexcept;
  wanted& enter(const client_key& key, const session_config& config);
  void drop(const client_key& key) noexcept;
  void take_status(wanted& session, const bfdc_session_status& now) noexcept;
  void report_request(std::uint32_t event, const client_key& key, const request_origin& asked,
                      int error) noexcept;
  void report_state(const client_key& key, bool up) noexcept;

  bfdc_bind_record client_;
  std::map<session_key, wanted> sessions_;
  std::map<client_key, session_key> names_;
  engine_wish wish_ = engine_wish::automatic;
  std::optional<engine_choice> choice_;
  std::optional<std::uint64_t> away_since_;  // the engine does not run
  socket_watch watch_{appeared, this};
  loop_timer look_{look, this};
  std::size_t looks_ = 0;                         // since something appeared
  std::optional<std::uint64_t> vty_alone_since_;  // of bfdd's sockets
  bfdc_engine_status logged_;
  std::unique_ptr<engine> engine_;
};

}  // namespace ot::bfd
