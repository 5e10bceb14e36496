// The socket to the BFD engine: whole messages in, whole messages out, and nothing that waits.
// Loop's thread.
#pragma once

#include <systemd/sd-event.h>

#include <optional>
#include <string>

#include "platform/evm.h"
#include "platform/linux/bfd/frr_control/protocol.h"
#include "platform/linux/bfd/timer.h"
#include "platform/linux/unique_fd.h"

namespace ot::bfd {

// Why a connection ended.
enum class connection_end { closed, broken };

class engine_connection {
 public:
  // Whom the connection notifies. `received` answers false for a message that cannot be right, and
  // may throw bad_alloc; either breaks the connection. After `ended` it may be opened again.
  class owner {
   public:
    virtual bool received(const frame_view& frame) = 0;
    virtual void writable() noexcept = 0;
    virtual void ended(connection_end why) noexcept = 0;

   protected:
    ~owner() = default;
  };

  explicit engine_connection(owner& notified) noexcept : owner_(notified) {}
  ~engine_connection() { close(); }
  engine_connection(const engine_connection&) = delete;
  engine_connection& operator=(const engine_connection&) = delete;

  // Once, before the first opening. 0 or a status code.
  int attach(evm* manager) noexcept;

  // False when nobody listens there. Throws bad_alloc.
  [[nodiscard]] bool open(const std::string& path);
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return socket_.valid(); }

  enum class sent { whole, later, broken };
  // Sends a request, all of it or nothing; `later`: `writable` will come. Its answer is waited for,
  // for a limited time.
  sent send(const std::string& message) noexcept;
  // An answer has come.
  void answered() noexcept;
  // Ends the connection as broken; not from inside `received`, which answers false instead.
  void give_up() noexcept { end(connection_end::broken); }

 private:
  static int on_io(sd_event_source* source, int fd, std::uint32_t events, void* self);
  static void out_of_patience(void* self) noexcept;

  bool read() noexcept;
  bool deliver();
  void watch_patience(bool progress) noexcept;
  void end(connection_end why) noexcept;

  owner& owner_;
  evm* manager_ = nullptr;
  unique_fd socket_;
  sd_event_source* io_ = nullptr;
  std::optional<frame_reader> reader_;
  unsigned awaited_ = 0;  // answers
  loop_timer patience_{out_of_patience, this};
};

}  // namespace ot::bfd
