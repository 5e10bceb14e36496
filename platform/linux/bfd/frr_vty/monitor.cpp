// The live log: a socket of datagrams, each a message. It delivers all that bfdd logs, so that few
// of its messages may be about sessions.
#include "platform/linux/bfd/frr_vty/monitor.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/linux/loop/sd_event.h"

namespace ot::bfd::vty {
namespace {

constexpr unsigned at_once = 64;  // messages; the loop has others to serve

bool is_datagram_socket(int fd) noexcept {
  int type = 0;
  socklen_t size = sizeof type;
  return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

}  // namespace

bool monitor::open(evm* manager, unique_fd descriptor) noexcept {
  close();
  if (!is_datagram_socket(descriptor.get()) ||
      sd_event_add_io(evm_sd_event(manager), &readable_, descriptor.get(), EPOLLIN, on_readable,
                      this) < 0) {
    return false;
  }
  log_ = std::move(descriptor);
  return true;
}

void monitor::close() noexcept {
  readable_ = sd_event_source_disable_unref(readable_);
  log_.reset();
}

int monitor::on_readable(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                         void* self) {
  static_cast<monitor*>(self)->drain();
  return 0;
}

void monitor::drain() noexcept {
  char bytes[8192];
  for (unsigned count = 0; is_open() && count < at_once; ++count) {
    const ssize_t length = recv(log_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
      return;
    }
    log_message message;
    if (length <= 0 || !read_log_message({bytes, static_cast<std::size_t>(length)}, &message)) {
      close();
      owner_.log_lost();
      return;
    }
    session_move move;
    if (read_session_move(message.text, &move)) {
      owner_.session_moved(move);
    }
    if (message.lost > 0) {
      owner_.log_lost();
    }
  }
}

}  // namespace ot::bfd::vty
