#include "tools/trackctl/policy_list.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/common/root_path.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"
#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackpolicy/status_socket.h"

namespace ot::trackctl {

namespace {

constexpr timeval patience{.tv_sec = 5, .tv_usec = 0};
constexpr std::size_t text_max = std::size_t{64} << 20;

failure no_answer() {
  return {exit_refused,
          "trackpolicy does not answer; look at what it is doing: `systemctl status trackpolicy`"};
}

// One that is stopped takes no connection when many wait already: that has its bound, too.
unique_fd connect_to(const std::string& path) {
  sockaddr_un address{};
  unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!unix_address(path, &address)) {
    throw failure(exit_refused,
                  path + ": the path is too long for a socket; use a shorter OT_ROOT");
  }
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return socket;
  }
  if (errno == EAGAIN) {
    throw no_answer();
  }
  if (errno == ENOENT || errno == ECONNREFUSED) {
    throw failure(exit_no_service, "trackpolicy is not running: nobody answers at " + path +
                                       "; start it: `systemctl start trackpolicy`");
  }
  throw failure(exit_refused, path + ": " + std::generic_category().message(errno) +
                                  "; run it as root or as a member of the group object_tracking");
}

}  // namespace

std::string read_policy_list() {
  const unique_fd socket = connect_to(root_path(trackpolicy::status_socket_path));
  std::string text;
  std::array<char, 65536> part;
  ssize_t size = 0;
  while (text.size() < text_max && (size = read(socket.get(), part.data(), part.size())) > 0) {
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  if (size != 0 || !nlohmann::json::accept(text)) {
    throw no_answer();
  }
  return text;
}

}  // namespace ot::trackctl
