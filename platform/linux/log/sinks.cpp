// The sinks. The journal and the system log are spoken to directly, since their libraries wait for
// them. Standard error is shared with others, so it is not made non-blocking itself: a terminal or
// a pipe is opened once more.
//
// The journal takes a message's parts as fields of their own, so that an operator filters by
// OT_MESSAGE=TRACK_INFO; the system log and standard error take the line.
#include "platform/linux/log/sinks.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/linux/unix_address.h"

namespace ot {
namespace {

constexpr std::size_t longest_datagram = log_line_limit + log_fields_limit + 512;
constexpr std::size_t smallest_room = 512;  // of a pipe or terminal that poll calls writable

// Appends to a datagram that has room for all that is appended.
class datagram_text {
 public:
  explicit datagram_text(std::span<char> room) noexcept : room_(room) {}

  [[gnu::format(printf, 2, 3)]] void print(const char* format, ...) noexcept {
    std::va_list values;
    va_start(values, format);
    const int made = std::vsnprintf(room_.data() + used_, room_.size() - used_, format, values);
    va_end(values);
    used_ = made < 0 ? used_ : std::min(used_ + static_cast<std::size_t>(made), room_.size() - 1);
  }
  void bytes(std::string_view bytes) noexcept {
    used_ += bytes.copy(room_.data() + used_, room_.size() - used_);
  }
  [[nodiscard]] std::size_t used() const noexcept { return used_; }

 private:
  std::span<char> room_;
  std::size_t used_ = 0;
};

bool is_same(const struct stat& one, const struct stat& other) noexcept {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_mode == other.st_mode;
}

}  // namespace

std::string_view log_readable(const log_line& line, std::span<char> ret) noexcept {
  datagram_text text{ret};
  if (line.record != nullptr) {
    text.print("%s-%s-%u-%s: ", line.record->facility, line.record->group, line.severity,
               line.record->name);
  }
  text.bytes(line.text);
  return {ret.data(), text.used()};
}

// The journal's own protocol. The text may have several lines, so its length stands before it.
std::size_t log_for_journal(const log_line& line, std::span<char> ret) noexcept {
  char readable[log_line_limit];
  const std::string_view message = log_readable(line, readable);
  char length[8];
  for (unsigned i = 0; i < 8; ++i) {
    length[i] = static_cast<char>(std::uint64_t{message.size()} >> (8 * i) & 0xff);
  }
  datagram_text text{ret};
  text.print("MESSAGE\n");
  text.bytes({length, sizeof length});
  text.bytes(message);
  text.print("\nPRIORITY=%u\nSYSLOG_FACILITY=%d\nSYSLOG_IDENTIFIER=object_tracking\n",
             line.severity, LOG_DAEMON >> 3);
  if (const errmsg_record* record = line.record) {
    text.print("OT_FACILITY=%s\nOT_GROUP=%s\nOT_MESSAGE=%s\nOT_NUMBER=0x%08x\n", record->facility,
               record->group, record->name, record->number);
  }
  text.bytes(line.fields);
  return text.used();
}

std::size_t log_for_syslog(const log_line& line, std::span<char> ret) noexcept {
  char readable[log_line_limit];
  const std::string_view message = log_readable(line, readable);
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  char when[32] = "";
  if (localtime_r(&now, &local) != nullptr) {
    std::strftime(when, sizeof when, "%b %e %T", &local);
  }
  datagram_text text{ret};
  text.print("<%d>%s object_tracking: %.*s", LOG_DAEMON | static_cast<int>(line.severity & 7U),
             when, static_cast<int>(message.size()), message.data());
  return text.used();
}

// --- Datagrams -----------------------------------------------------------------------------------

bool log_datagrams::connect() noexcept {
  sockaddr_un address;
  socket_ = unique_fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  if (!socket_.valid() || !unix_address(path_, &address) ||
      ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    socket_.reset();
  }
  return socket_.valid();
}

// A reader that was started again has a new socket at the same path.
log_result log_datagrams::send_one(const log_line& line) noexcept {
  char datagram[longest_datagram];
  const std::size_t length = encode_(line, std::span<char>(datagram));
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!socket_.valid() && !connect()) {
      return log_result::lost;
    }
    if (send(socket_.get(), datagram, length, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
      return log_result::written;
    }
    if (errno == EAGAIN || errno == EINTR || errno == ENOBUFS) {
      return log_result::later;
    }
    socket_.reset();
  }
  return log_result::lost;
}

log_result log_datagrams::write(std::span<const log_line> lines, std::size_t& ret_taken,
                                std::size_t& /*begun*/) noexcept {
  for (ret_taken = 0; ret_taken < lines.size(); ++ret_taken) {
    if (const log_result result = send_one(lines[ret_taken]); result != log_result::written) {
      return result;
    }
  }
  return log_result::written;
}

// --- Streams -------------------------------------------------------------------------------------

void log_stream::look() noexcept {
  struct stat now {};
  if (fstat(descriptor_, &now) != 0 || is_same(now, seen_)) {
    return;
  }
  seen_ = now;
  own_.reset();
  torn_ = false;
  if (S_ISCHR(now.st_mode) || S_ISFIFO(now.st_mode)) {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor_);
    own_ = unique_fd{open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
  }
}

int log_stream::awaited() const noexcept {
  return own_.valid() ? own_.get() : descriptor_;
}

// As write(2), but never waits.
ssize_t log_stream::send_some(std::string_view bytes) noexcept {
  if (own_.valid()) {
    return ::write(own_.get(), bytes.data(), bytes.size());
  }
  if (S_ISSOCK(seen_.st_mode)) {
    return send(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  if (S_ISREG(seen_.st_mode)) {
    return ::write(descriptor_, bytes.data(), bytes.size());
  }
  pollfd state{.fd = descriptor_, .events = POLLOUT, .revents = 0};
  if (poll(&state, 1, 0) != 1 || (state.revents & POLLOUT) == 0) {
    errno = (state.revents & (POLLERR | POLLNVAL)) != 0 ? EPIPE : EAGAIN;
    return -1;
  }
  return ::write(descriptor_, bytes.data(), std::min(bytes.size(), smallest_room));
}

// Lines one behind the other, as many as there is room for, and where each of them ends.
struct log_stream::run {
  explicit run(std::span<const log_line> lines, bool apart) noexcept {
    if (apart) {
      bytes[length++] = '\n';  // after a line of which the rest was dropped
    }
    while (count < lines.size() && count < ends.size() &&
           length + log_line_limit + 1 <= bytes.size()) {
      length += log_readable(lines[count], std::span(bytes).subspan(length, log_line_limit)).size();
      bytes[length++] = '\n';
      ends[count++] = length;
    }
  }

  std::array<char, PIPE_BUF> bytes;
  std::size_t length = 0;
  std::array<std::size_t, 64> ends;
  std::size_t count = 0;
};

log_result log_stream::send_run(const run& lines, std::size_t& ret_taken,
                                std::size_t& begun) noexcept {
  std::size_t out = begun;
  log_result result = log_result::written;
  while (out < lines.length && result == log_result::written) {
    const ssize_t sent = send_some({lines.bytes.data() + out, lines.length - out});
    if (sent > 0) {
      out += static_cast<std::size_t>(sent);
    } else if (sent == 0 || errno != EINTR) {
      result = sent == 0 || errno == EAGAIN ? log_result::later : log_result::lost;
    }
  }
  const auto* const end = lines.ends.data() + lines.count;
  const auto* const next = std::upper_bound(lines.ends.data(), end, out);
  const auto whole = static_cast<std::size_t>(next - lines.ends.data());
  begun = whole == 0 ? out : out - lines.ends[whole - 1];
  torn_ = begun > 0 || (whole == 0 && torn_);
  apart_ = apart_ && whole == 0;
  ret_taken += whole;
  return result;
}

log_result log_stream::write(std::span<const log_line> lines, std::size_t& ret_taken,
                             std::size_t& begun) noexcept {
  look();
  log_result result = log_result::written;
  for (ret_taken = 0; ret_taken < lines.size() && result == log_result::written;) {
    apart_ = begun == 0 ? torn_ : apart_;
    result = send_run(run{lines.subspan(ret_taken), apart_}, ret_taken, begun);
  }
  return result;
}

}  // namespace ot
