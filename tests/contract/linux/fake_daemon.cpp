// The socket of the tests' daemons.
#include "tests/contract/linux/fake_daemon.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/loop/sd_event.h"
#include "platform/linux/unix_address.h"

namespace ot::testing {

fake_daemon::fake_daemon(evm* manager, std::string path)
    : manager_(manager), path_(std::move(path)) {}

void fake_daemon::listen() {
  unlink(path_.c_str());
  sockaddr_un address;
  ASSERT_TRUE(unix_address(path_, &address));
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  ASSERT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener_, 5), 0);
  ASSERT_GE(sd_event_add_io(evm_sd_event(manager_), &accept_, listener_, EPOLLIN, on_connect, this),
            0);
}

void fake_daemon::die() {
  hang_up();
  accept_ = sd_event_source_disable_unref(accept_);
  if (listener_ >= 0) {
    close(listener_);
  }
  listener_ = -1;
}

void fake_daemon::hang_up() {
  stop_reading();
  if (peer_ >= 0) {
    close(peer_);
  }
  peer_ = -1;
  unread_.clear();
}

void fake_daemon::stop_reading() {
  readable_ = sd_event_source_disable_unref(readable_);
}

void fake_daemon::read_again() {
  EXPECT_GE(sd_event_add_io(evm_sd_event(manager_), &readable_, peer_, EPOLLIN, on_readable, this),
            0);
}

void fake_daemon::say(std::string_view bytes) {
  if (peer_ >= 0) {
    send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
}

int fake_daemon::on_connect(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                            void* self) {
  auto* daemon = static_cast<fake_daemon*>(self);
  daemon->hang_up();
  daemon->peer_ = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  EXPECT_GE(daemon->peer_, 0);
  ++daemon->connections_;
  daemon->read_again();
  return 0;
}

int fake_daemon::on_readable(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                             void* self) {
  static_cast<fake_daemon*>(self)->read();
  return 0;
}

void fake_daemon::read() {
  char bytes[65536];
  const ssize_t length = recv(peer_, bytes, sizeof bytes, MSG_DONTWAIT);
  if (length <= 0) {
    if (length == 0 || errno != EAGAIN) {
      hang_up();
    }
    return;
  }
  unread_.append(bytes, static_cast<std::size_t>(length));
  take(unread_);
}

}  // namespace ot::testing
