#include "platform/linux/netlink/watch.h"

#include <sys/epoll.h>

#include <cerrno>

#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

// A flood of events must not keep the loop from its other work.
constexpr int reads_of_one_turn = 16;

// So many turns in a row an urgent watch may have before others get theirs.
constexpr unsigned urgent_turns = 8;

}  // namespace

int netlink_watch::open(std::uint32_t groups) noexcept {
  close();
  return events_.open_events(groups);
}

int netlink_watch::follow(evm* manager, netlink_turn turn) noexcept {
  turn_ = turn;
  int r =
      sd_event_add_io(evm_sd_event(manager), &source_, events_.fd(), EPOLLIN, on_readable, this);
  if (r >= 0 && turn == netlink_turn::urgent) {
    r = sd_event_source_set_priority(source_, SD_EVENT_PRIORITY_IMPORTANT);
  }
  return r < 0 ? -r : status_ok;
}

int netlink_watch::on_readable(sd_event_source*, int, std::uint32_t, void* self) {
  auto& watch = *static_cast<netlink_watch*>(self);
  if (watch.turn_ == netlink_turn::urgent) {
    watch.take_turns();
  }
  watch.read();
  return 0;
}

// Among sources of the same priority the one that has waited longest comes first, so one turn as
// one of them lets all that wait have theirs.
void netlink_watch::take_turns() noexcept {
  std::uint64_t turn = 0;
  sd_event_get_iteration(sd_event_source_get_event(source_), &turn);
  turns_in_a_row_ = turn == last_turn_ + 1 ? turns_in_a_row_ + 1 : 0;
  last_turn_ = turn;
  const bool others_first = turns_in_a_row_ >= urgent_turns;
  sd_event_source_set_priority(
      source_, others_first ? SD_EVENT_PRIORITY_NORMAL : SD_EVENT_PRIORITY_IMPORTANT);
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
