// FRR's bfdd as the engine, by its vty socket (bfdd since 8.4; since 10.2 it has no other).
//
// The socket takes one command, answers it (answer.h, connection.h), and takes the next. The
// conversation (conversation.h) is made of questions and of blocks of commands, each the change of
// one session, from "configure terminal" to "end" and with nothing else between, since every
// command is done at once and one that fails leaves the shell in another node.
//
// The way of a request: add or remove -> session_table, which knows what is wanted and what is
// there -> a change, written by configuration.h -> the conversation. Before a session is made both
// lists are looked at: the running configuration, where ours are marked by the profile they name,
// and the sessions. What is there and not ours belongs to the user or to a routing protocol, is
// followed, and is never changed: not even a change that is taken back would leave it as it was.
//
// The way of a state: bfdd logs it, since we ask it to ("debug bfd peer"), and its live log
// (monitor.h) has it here in no time -> session_table -> the owner. The sessions' list is looked at
// after that for what the log does not tell, and each second for what it has lost; an answer that
// is late finds a bfdd that is stuck. Nobody waits when no session is wanted.
//
// Our peers are ordinary configuration, so they survive a crash of ours and are found again by
// their mark; those that are wanted go on as they are, the others go after some seconds. A clean
// end (farewell.h) takes ours away. They go with bfdd, or when somebody loads a configuration
// without them: then they are made again.
//
// bfdd is trusted with nothing: an answer that cannot be right ends the connection. While it is
// away each session is down, and attempts go on with growing delays. Loop's thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/bfd/engine.h"
#include "platform/linux/bfd/frr_vty/addresses.h"
#include "platform/linux/bfd/frr_vty/conversation.h"
#include "platform/linux/bfd/frr_vty/monitor.h"
#include "platform/linux/bfd/frr_vty/session_table.h"
#include "platform/linux/bfd/socket.h"
#include "platform/linux/bfd/timer.h"

namespace ot::bfd {

class vty_engine final : public engine,
                         private vty::conversation::owner,
                         private vty::monitor::owner {
 public:
  // `path`: of bfdd.vty. Throws bad_alloc.
  vty_engine(engine::owner& reported, std::string path);
  ~vty_engine() override;

  int start(evm* manager) noexcept override;
  void add(const session_config& session) noexcept override;
  void remove(const session_key& key) noexcept override;
  [[nodiscard]] bfdc_engine_status status() const noexcept override { return status_; }

 private:
  // In the order in which they are asked when more than one is due.
  enum class question { enable, monitor, version, configuration, sessions, counters, log };
  struct question_row;
  static const question_row questions[];

  static void attempt(void* self) noexcept;
  static void appeared(void* self) noexcept;
  static void tick(void* self) noexcept;
  static void look_soon(void* self) noexcept;
  static void go_on(void* self) noexcept;

  bool answered(const vty::answer_reader& answer, unique_fd descriptor) override;
  void change_done(const vty::change& what, const vty::change_outcome& outcome) override;
  void idle() noexcept override;
  void ended(vty::connection_end why) noexcept override;
  void session_moved(const vty::session_move& move) noexcept override;
  void log_lost() noexcept override;

  // What the answers are for. False for one that cannot be right.
  bool took_enable(const vty::answer_reader& answer);
  bool took_monitor(const vty::answer_reader& answer);
  bool took_version(const vty::answer_reader& answer);
  bool took_configuration(const vty::answer_reader& answer);
  bool took_sessions(const vty::answer_reader& answer);
  bool took_counters(const vty::answer_reader& answer);
  bool took_log(const vty::answer_reader& answer);

  void reconnect_later(std::string_view reason) noexcept;
  void set_status(bool running, std::string_view reason) noexcept;
  void due(question what) noexcept { due_ |= 1U << static_cast<unsigned>(what); }
  [[nodiscard]] bool is_due(question what) const noexcept {
    return (due_ & 1U << static_cast<unsigned>(what)) != 0;
  }
  void ask(question what) noexcept;
  void choose_next();
  bool choose_log() noexcept;
  [[nodiscard]] std::uint64_t tick_usec() const noexcept;

  engine::owner& owner_;
  std::string path_;
  evm* manager_ = nullptr;
  bfdc_engine_status status_;
  vty::session_table sessions_;
  std::vector<vty::interface_address> addresses_;
  vty::conversation bfdd_{*this};
  vty::monitor monitor_{*this};
  socket_watch watch_{appeared, this};
  loop_timer reconnect_{attempt, this};
  loop_timer tick_{tick, this};
  loop_timer look_soon_{look_soon, this};
  loop_timer go_on_{go_on, this};
  std::size_t failed_attempts_ = 0;  // in a row
  unsigned ticks_ = 0;               // of this connection
  std::uint64_t tidy_from_ms_ = 0;
  std::uint64_t settled_ms_ = 0;  // bfdd has read its own configuration by then

  unsigned due_ = 0;                   // questions, a bit each
  question asked_ = question::enable;  // last
  unique_fd descriptor_;               // came with the answer to it
  std::uint64_t moves_before_ = 0;     // the list of sessions was asked for
  bool configuration_looked_ = false;  // at, since a list of sessions was
  bool changed_ = false;               // something, since then
  bool log_on_ = false;                // bfdd logs sessions,
  bool our_log_ = false;               // because we told it to
  bool log_refused_ = false;           // to be told
};

}  // namespace ot::bfd
