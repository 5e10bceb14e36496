// The conversation with bfdd: a question and its answer, or the block of commands that is one
// change of its configuration, one after the other. Loop's thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/bfd/frr_vty/connection.h"
#include "platform/linux/bfd/frr_vty/session_table.h"

namespace ot::bfd::vty {

class conversation final : private connection::owner {
 public:
  // Whom the conversation notifies; what may be answered by false or bad_alloc then ends, since
  // the answer cannot be right or cannot be kept.
  class owner {
   public:
    virtual bool answered(const answer_reader& answer, unique_fd descriptor) = 0;
    virtual void change_done(const change& what, const change_outcome& outcome) = 0;
    // bfdd may be asked the next. Also at the end of the functions above.
    virtual void idle() noexcept = 0;
    virtual void ended(connection_end why) noexcept = 0;

   protected:
    ~owner() = default;
  };

  explicit conversation(owner& notified) noexcept : owner_(notified) {}

  // As those of connection.
  int attach(evm* manager) noexcept { return connection_.attach(manager); }
  [[nodiscard]] bool open(const std::string& path) noexcept;
  void close() noexcept { connection_.close(); }
  [[nodiscard]] bool is_open() const noexcept { return connection_.is_open(); }
  [[nodiscard]] bool busy() const noexcept { return connection_.busy(); }

  // Both when not busy; what is broken is ended, and reported as closed.
  void ask(std::string_view command, std::uint64_t patience_usec) noexcept;
  void apply(change what) noexcept;

  // For the end, when the loop does not run any more: waits for the answer of what is under way,
  // and leaves a block, which then counts as failed. The connection, or null when bfdd did not
  // answer in time. Throws bad_alloc.
  connection* interrupt(int patience_ms);

 private:
  bool answered(const answer_reader& answer, unique_fd descriptor) override;
  void ended(connection_end why) noexcept override;
  bool command_answered(const answer_reader& answer);
  void send(std::string_view command, std::uint64_t patience_usec) noexcept;

  owner& owner_;
  connection connection_{*this};
  std::optional<change> change_;  // under way
  std::size_t place_ = 0;         // of the command in it
  std::optional<std::size_t> failed_;
  std::string failure_;
};

}  // namespace ot::bfd::vty
