// The connection to bfdd. A command is short and finds the socket's buffer empty, since the one
// before was answered: it is taken as a whole, or the connection is broken. Descriptors may come
// with any byte of the stream, so that none is read without taking them.
#include "platform/linux/bfd/frr_vty/connection.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "platform/linux/bfd/socket.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"

namespace ot::bfd::vty {
namespace {

constexpr std::size_t portion = std::size_t{64} * 1024;
constexpr std::size_t command_limit = 1024;  // bfdd's own is 4094

// Takes what came along; the last one counts.
void take_descriptors(msghdr& message, unique_fd* ret) noexcept {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
      continue;
    }
    for (std::size_t at = CMSG_LEN(0); at + sizeof(int) <= part->cmsg_len; at += sizeof(int)) {
      int fd = -1;
      std::memcpy(&fd, reinterpret_cast<const char*>(part) + at, sizeof fd);
      *ret = unique_fd{fd};
    }
  }
}

}  // namespace

int connection::attach(evm* manager) noexcept {
  manager_ = manager;
  return patience_.attach(manager);
}

bool connection::open(const std::string& path) noexcept {
  unique_fd fresh = engine_connect(path);
  if (!fresh.valid()) {
    return false;
  }
  const int r =
      sd_event_add_io(evm_sd_event(manager_), &io_, fresh.get(), EPOLLIN, on_readable, this);
  if (r < 0) {
    errno = -r;
    return false;
  }
  socket_ = std::move(fresh);
  closed_ = false;
  return true;
}

void connection::close() noexcept {
  io_ = sd_event_source_disable_unref(io_);
  socket_.reset();
  descriptor_.reset();
  reader_ = {};
  patience_.stop();
  busy_ = false;
}

void connection::end(connection_end why) noexcept {
  close();
  owner_.ended(why);
}

void connection::out_of_patience(void* self) noexcept {
  auto* vty = static_cast<connection*>(self);
  if (vty->patience_.overlooked()) {
    vty->patience_.start(vty->patience_usec_);
  } else {
    vty->end(connection_end::silent);
  }
}

bool connection::send(std::string_view command) noexcept {
  char bytes[command_limit];
  if (command.size() >= sizeof bytes) {
    return false;
  }
  std::memcpy(bytes, command.data(), command.size());
  bytes[command.size()] = '\0';
  const auto length = static_cast<ssize_t>(command.size() + 1);
  busy_ = ::send(socket_.get(), bytes, static_cast<std::size_t>(length),
                 MSG_DONTWAIT | MSG_NOSIGNAL) == length;
  return busy_;
}

bool connection::ask(std::string_view command, std::uint64_t patience_usec) noexcept {
  if (!send(command)) {
    close();
    return false;
  }
  patience_usec_ = patience_usec;
  patience_.start(patience_usec);
  return true;
}

int connection::on_readable(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                            void* self) {
  auto* vty = static_cast<connection*>(self);
  switch (vty->read()) {
    case answer_reader::found::nothing:
      break;
    case answer_reader::found::answer:
      if (!vty->deliver()) {
        vty->end(connection_end::nonsense);
      }
      break;
    case answer_reader::found::broken:
      vty->end(vty->closed_ ? connection_end::closed : connection_end::nonsense);
      break;
  }
  return 0;
}

// Reads once. Broken, too, for the stream's end and for bytes that nobody has asked for.
answer_reader::found connection::read() noexcept {
  char bytes[portion];
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  iovec room{bytes, sizeof bytes};
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t length = recvmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
    return answer_reader::found::nothing;
  }
  if (length >= 0) {
    take_descriptors(message, &descriptor_);
  }
  closed_ = length <= 0;
  if (closed_ || !busy_) {
    return answer_reader::found::broken;
  }
  try {
    return reader_.take({bytes, static_cast<std::size_t>(length)});
  } catch (const std::bad_alloc&) {
    return answer_reader::found::broken;
  }
}

// The owner looks at the answer in the reader's memory, and may ask the next.
bool connection::deliver() noexcept {
  const answer_reader answer = std::exchange(reader_, {});
  busy_ = false;
  patience_.stop();
  try {
    return owner_.answered(answer, std::exchange(descriptor_, {}));
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// --- Waiting -------------------------------------------------------------------------------------

const answer_reader* connection::converse(std::string_view command, int patience_ms) noexcept {
  reader_ = {};
  if (!is_open() || !send(command)) {
    close();
    return nullptr;
  }
  return await(patience_ms);
}

const answer_reader* connection::await(int patience_ms) noexcept {
  const std::uint64_t end = monotonic_us() + static_cast<std::uint64_t>(patience_ms) * 1000;
  answer_reader::found found = answer_reader::found::nothing;
  while (is_open() && found == answer_reader::found::nothing) {
    const std::uint64_t now = monotonic_us();
    pollfd readable{socket_.get(), POLLIN, 0};
    const int wait_ms = now < end ? static_cast<int>((end - now + 999) / 1000) : 0;
    const int ready = poll(&readable, 1, wait_ms);
    if (ready == 0 || (ready < 0 && errno != EINTR)) {
      break;
    }
    found = ready < 0 ? found : read();
  }
  busy_ = false;
  if (found == answer_reader::found::answer) {
    return &reader_;
  }
  close();
  return nullptr;
}

}  // namespace ot::bfd::vty
