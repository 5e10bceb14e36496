#include "platform/linux/netlink/watch.h"

#include <sys/epoll.h>

#include <cerrno>

#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

// A flood of events must not keep the loop from its other work.
constexpr int reads_of_one_turn = 16;

}  // namespace

int netlink_watch::open(std::uint32_t groups) noexcept {
  close();
  return events_.open_events(groups);
}

int netlink_watch::follow(evm* manager) noexcept {
  const int r =
      sd_event_add_io(evm_sd_event(manager), &source_, events_.fd(), EPOLLIN, on_readable, this);
  return r < 0 ? -r : status_ok;
}

int netlink_watch::on_readable(sd_event_source*, int, std::uint32_t, void* self) {
  static_cast<netlink_watch*>(self)->read();
  return 0;
}

void netlink_watch::read() {
  int status = status_ok;
  for (int reads = 0; status == status_ok && reads < reads_of_one_turn; ++reads) {
    if (handlers_.room != nullptr && !handlers_.room(context_)) {
      break;
    }
    status = events_.receive_events(handlers_.message, context_);
  }
  // What still waits was sent before the loss, and is older than what is read anew.
  if (status == ENOBUFS) {
    const int broken = events_.drain();
    status = broken == status_ok ? ENOBUFS : broken;
  }
  if (status != status_ok && status != EAGAIN && status != ENOBUFS) {
    close();
  }
  handlers_.taken(context_);
  if (status != status_ok && status != EAGAIN) {
    handlers_.lost(context_, status);
  }
}

}  // namespace ot
