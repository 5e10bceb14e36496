// The vty socket of bfdd: one command at a time, then its answer, and nothing that waits but
// converse(). Loop's thread.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/evm.h"
#include "platform/linux/bfd/frr_vty/answer.h"
#include "platform/linux/bfd/timer.h"
#include "platform/linux/unique_fd.h"

namespace ot::bfd::vty {

// Why a connection ended: bfdd closed it, was silent for too long, or talked nonsense.
enum class connection_end { closed, silent, nonsense };

class connection {
 public:
  // Whom the connection notifies. After `ended` it may be opened again.
  class owner {
   public:
    // `descriptor` came with the answer, if it is valid. False, or bad_alloc, for an answer that
    // cannot be right, which ends the connection.
    virtual bool answered(const answer_reader& answer, unique_fd descriptor) = 0;
    virtual void ended(connection_end why) noexcept = 0;

   protected:
    ~owner() = default;
  };

  explicit connection(owner& notified) noexcept : owner_(notified) {}
  ~connection() { close(); }
  connection(const connection&) = delete;
  connection& operator=(const connection&) = delete;

  // Once, before the first opening. 0 or a status code.
  int attach(evm* manager) noexcept;

  // False, with errno set, when nobody listens there.
  [[nodiscard]] bool open(const std::string& path) noexcept;
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return socket_.valid(); }
  // A command has not been answered yet.
  [[nodiscard]] bool busy() const noexcept { return busy_; }

  // Sends a command, when none is under way. An answer that is not there after so many
  // microseconds ends the connection. False when it is broken, and then closed without a word.
  [[nodiscard]] bool ask(std::string_view command, std::uint64_t patience_usec) noexcept;

  // For the end, when the loop does not run any more: sends a command and waits for its answer, or
  // only waits if one is under way. Null when it has not come in time; the connection is then
  // closed.
  const answer_reader* converse(std::string_view command, int patience_ms) noexcept;
  const answer_reader* await(int patience_ms) noexcept;

 private:
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);
  static void out_of_patience(void* self) noexcept;

  bool send(std::string_view command) noexcept;
  answer_reader::found read() noexcept;
  bool deliver() noexcept;
  void end(connection_end why) noexcept;

  owner& owner_;
  evm* manager_ = nullptr;
  unique_fd socket_;
  sd_event_source* io_ = nullptr;
  answer_reader reader_;
  unique_fd descriptor_;  // came with what was read last
  bool busy_ = false;
  bool closed_ = false;  // by the other side
  std::uint64_t patience_usec_ = 0;
  loop_timer patience_{out_of_patience, this};
};

}  // namespace ot::bfd::vty
