// The misbehaving client, on a plain socket.
#include "tests/contract/linux/raw_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "platform/linux/unix_address.h"

namespace ot::test {
namespace {

class deadline {
 public:
  explicit deadline(int timeout_ms)
      : end_(std::chrono::steady_clock::now() + std::chrono::milliseconds{timeout_ms}) {}
  // Waits for the socket; false when the time is over.
  [[nodiscard]] bool wait(int fd, short events) const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end_ - std::chrono::steady_clock::now());
    pollfd state{.fd = fd, .events = events, .revents = 0};
    return left.count() > 0 && poll(&state, 1, static_cast<int>(left.count())) > 0;
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

}  // namespace

raw_client::raw_client(const std::string& socket_path)
    : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  if (!unix_address(socket_path, &address) ||
      connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(std::exchange(fd_, -1));
  }
}

raw_client::raw_client(raw_client&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

raw_client::~raw_client() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

bool raw_client::authenticate() {
  using namespace std::string_view_literals;
  send("\0AUTH EXTERNAL\r\nDATA\r\n"sv);
  if (!hears_within(5000)) {
    return false;
  }
  send("BEGIN\r\n");
  return true;
}

std::size_t raw_client::send(std::string_view bytes, int timeout_ms) {
  const deadline end{timeout_ms};
  std::size_t sent = 0;
  while (sent < bytes.size() && end.wait(fd_, POLLOUT)) {
    const ssize_t count =
        ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN) {
      break;
    }
    sent += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  return sent;
}

bool raw_client::ended_within(int timeout_ms) {
  const deadline end{timeout_ms};
  std::array<char, 4096> bytes{};
  while (end.wait(fd_, POLLIN)) {
    const ssize_t count = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && errno != EAGAIN)) {
      return true;
    }
  }
  return false;
}

bool raw_client::hears_within(int timeout_ms) {
  char byte = 0;
  return deadline{timeout_ms}.wait(fd_, POLLIN) && recv(fd_, &byte, 1, MSG_DONTWAIT) == 1;
}

std::string raw_message_head(std::uint32_t body) {
  std::string head{'l', 1, 0, 1};  // little endian, a call, no flags, version 1
  for (const std::uint32_t number : {body, 1U, 0U}) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
      head.push_back(static_cast<char>(number >> shift));
    }
  }
  return head;
}

}  // namespace ot::test
