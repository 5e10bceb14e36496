// The connection to the BFD engine. An engine that is stuck (no answer, or a message that does not
// come to its end) is left after some seconds, like one that talks nonsense: who opened the
// connection decides when to try again.
#include "platform/linux/bfd/frr_control/connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "platform/linux/bfd/socket.h"
#include "platform/linux/loop/sd_event.h"

namespace ot::bfd {
namespace {

// With the heartbeat's pace, a bfdd that is stuck is found out within five seconds.
constexpr std::uint64_t patience_usec = 2'500'000;

}  // namespace

int engine_connection::attach(evm* manager) noexcept {
  manager_ = manager;
  return patience_.attach(manager);
}

bool engine_connection::open(const std::string& path) {
  unique_fd fresh = engine_connect(path);
  if (!fresh.valid()) {
    return false;
  }
  reader_.emplace();
  const int r = sd_event_add_io(evm_sd_event(manager_), &io_, fresh.get(), EPOLLIN, on_io, this);
  if (r < 0) {
    reader_.reset();
    return false;
  }
  socket_ = std::move(fresh);
  awaited_ = 0;
  return true;
}

void engine_connection::close() noexcept {
  io_ = sd_event_source_disable_unref(io_);
  socket_.reset();
  reader_.reset();
  patience_.stop();
}

void engine_connection::end(connection_end why) noexcept {
  close();
  owner_.ended(why);
}

engine_connection::sent engine_connection::send(const std::string& message) noexcept {
  // A message this short is one piece to the kernel: it is taken as a whole or refused.
  const ssize_t length =
      ::send(socket_.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
    sd_event_source_set_io_events(io_, EPOLLIN | EPOLLOUT);
    return sent::later;
  }
  if (length != static_cast<ssize_t>(message.size())) {
    return sent::broken;
  }
  ++awaited_;
  watch_patience(false);
  return sent::whole;
}

void engine_connection::answered() noexcept {
  --awaited_;
  watch_patience(true);
}

// Waiting that makes progress starts anew; other messages are none when an answer is awaited.
void engine_connection::watch_patience(bool progress) noexcept {
  if (awaited_ == 0 && !reader_->partial()) {
    patience_.stop();
  } else if (progress || !patience_.running()) {
    patience_.start(patience_usec);
  }
}

void engine_connection::out_of_patience(void* self) noexcept {
  auto* connection = static_cast<engine_connection*>(self);
  if (connection->patience_.overlooked()) {
    connection->patience_.start(patience_usec);
  } else {
    connection->end(connection_end::broken);
  }
}

int engine_connection::on_io(sd_event_source* /*source*/, int /*fd*/, std::uint32_t events,
                             void* self) {
  auto* connection = static_cast<engine_connection*>(self);
  if ((events & EPOLLOUT) != 0) {
    sd_event_source_set_io_events(connection->io_, EPOLLIN);
    connection->owner_.writable();
  }
  const bool readable = (events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0;
  if (readable && connection->is_open() && !connection->read()) {
    connection->end(connection_end::broken);
  }
  return 0;
}

// Reads once and hands over what is complete. False for a stream that cannot be right.
bool engine_connection::read() noexcept {
  const std::span<char> room = reader_->room();
  const ssize_t length = recv(socket_.get(), room.data(), room.size(), MSG_DONTWAIT);
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
    return true;
  }
  if (length <= 0) {
    end(connection_end::closed);
    return true;
  }
  reader_->received(static_cast<std::size_t>(length));
  try {
    return deliver();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool engine_connection::deliver() {
  frame_view frame;
  bool complete = false;
  frame_reader::found found = reader_->next(&frame);
  while (found == frame_reader::found::frame) {
    complete = true;
    if (!owner_.received(frame)) {
      return false;
    }
    found = reader_->next(&frame);
  }
  watch_patience(complete && awaited_ == 0);
  return found == frame_reader::found::nothing;
}

}  // namespace ot::bfd
