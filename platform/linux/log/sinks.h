// Where lines of the log go: the journal, the system log, standard error. None of them is ever
// waited for: a sink that takes no more says so, and the queue (queue.h) keeps the line. One thread
// at a time; the queue's lock sees to that.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/linux/unique_fd.h"
#include "platform/messages.h"

namespace ot {

inline constexpr std::size_t log_text_limit = 1000;  // of one line; longer ones are cut
inline constexpr std::size_t log_line_limit = 1200;  // the longest text and the prefix before it
inline constexpr std::size_t log_fields_limit = 192;

struct log_line {
  const errmsg_record* record = nullptr;  // null for a trace
  std::uint32_t severity = 0;
  std::string_view text = {};
  std::string_view fields = {};  // as the journal takes them: "NAME=value\n" each
};

enum class log_result {
  written,
  later,  // the sink is full; offer the line again, with the same `begun`
  lost    // nobody is there to take it
};

class log_sink {
 public:
  virtual ~log_sink() = default;

  // Takes the lines in their order, at least one; `ret_taken` is how many went out whole. The
  // result is that of the line after these; `written`: all went out. `begun` is the sink's: how
  // much it has of the first line, and then of the one after those taken. It is 0 at a line's first
  // offer.
  virtual log_result write(std::span<const log_line> lines, std::size_t& ret_taken,
                           std::size_t& begun) noexcept = 0;

  // The descriptor that becomes writable when a full sink takes more; -1 for none.
  [[nodiscard]] virtual int awaited() const noexcept = 0;
};

// A socket that takes one datagram a line: the journal's or the system log's.
class log_datagrams : public log_sink {
 public:
  // Writes the line as its reader wants it into `ret` and returns the length.
  using encode_fn = std::size_t (*)(const log_line& line, std::span<char> ret) noexcept;

  log_datagrams(const char* path, encode_fn encode) noexcept : path_(path), encode_(encode) {}

  log_result write(std::span<const log_line> lines, std::size_t& ret_taken,
                   std::size_t& begun) noexcept override;
  [[nodiscard]] int awaited() const noexcept override { return socket_.get(); }

 private:
  bool connect() noexcept;
  log_result send_one(const log_line& line) noexcept;

  const char* path_;
  encode_fn encode_;
  unique_fd socket_;
};

std::size_t log_for_journal(const log_line& line, std::span<char> ret) noexcept;
std::size_t log_for_syslog(const log_line& line, std::span<char> ret) noexcept;

// A stream, whatever it is: a terminal, a pipe, a socket, a file. What the descriptor stands for
// may be exchanged at any time. Lines go out many at a time, as many as a pipe takes unmixed with
// others': a system call for each would cost more than all else that a change of a track takes.
class log_stream : public log_sink {
 public:
  explicit log_stream(int descriptor) noexcept : descriptor_(descriptor) {}

  log_result write(std::span<const log_line> lines, std::size_t& ret_taken,
                   std::size_t& begun) noexcept override;
  [[nodiscard]] int awaited() const noexcept override;

 private:
  struct run;

  void look() noexcept;
  log_result send_run(const run& lines, std::size_t& ret_taken, std::size_t& begun) noexcept;
  ssize_t send_some(std::string_view bytes) noexcept;

  int descriptor_;
  struct stat seen_ {};  // what the descriptor stood for when it was looked at
  unique_fd own_;        // the same terminal or pipe, but one that never waits
  bool torn_ = false;    // a line was begun that was not ended
  bool apart_ = false;   // the line under way begins with a newline, after a torn one
};

// The line as people read it: with the message's prefix, cut to the limit. `ret` has room for
// log_line_limit characters.
std::string_view log_readable(const log_line& line, std::span<char> ret) noexcept;

}  // namespace ot
