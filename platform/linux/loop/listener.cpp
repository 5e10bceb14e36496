// The listening socket. A connection that cannot be accepted stays readable for the loop, which is
// why every failure of accept needs an answer here.
#include "platform/linux/loop/listener.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/linux/process/directories.h"
#include "platform/linux/unix_address.h"

namespace ot {
namespace {

constexpr std::uint64_t pause_us = 1'000'000;
constexpr rlim_t descriptors_wanted = 8192;

unique_fd new_reserve() noexcept {
  return unique_fd{::open("/dev/null", O_RDONLY | O_CLOEXEC)};
}

bool out_of_descriptors(int error) noexcept {
  return error == EMFILE || error == ENFILE;
}

bool is_trusted(int socket) noexcept {
  ucred peer{};
  socklen_t length = sizeof peer;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
         (peer.uid == 0 || peer.uid == geteuid());
}

int failed(const std::string& path, int error, std::string& ret_error) {
  ret_error = place_error(path, error);
  return error;
}

// What stands at the path is of an instance that crashed: the lock says that it is gone.
int clear_path(const std::string& path, std::string& ret_error) {
  if (::unlink(path.c_str()) == 0 || errno == ENOENT) {
    return 0;
  }
  const int error = failed(path, errno, ret_error);
  struct stat state {};
  if (lstat(path.c_str(), &state) == 0 && S_ISDIR(state.st_mode)) {
    ret_error = path + ": it is a directory, where the service makes its socket; move it away";
  }
  return error;
}

}  // namespace

unix_listener::~unix_listener() {
  sd_event_source_disable_unref(accepting_);
  sd_event_source_disable_unref(pause_);
}

void unix_listener::unlink_path() const noexcept {
  if (socket_.valid()) {
    ::unlink(path_.c_str());
  }
}

// Nobody gets at a socket of the wrong mode, since it takes no connections before it listens.
int unix_listener::bind_at(const std::string& path, int type, std::string& ret_error) {
  sockaddr_un address;
  if (!unix_address(path, &address)) {
    return failed(path, ENAMETOOLONG, ret_error);
  }
  if (const int error = clear_path(path, ret_error); error != 0) {
    return error;
  }
  socket_ = unique_fd{socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  if (!socket_.valid() ||
      bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return failed(path, errno, ret_error);
  }
  if (const int error = share_with_group(path, 0660); error != 0) {
    return failed(path, error, ret_error);
  }
  return listen(socket_.get(), SOMAXCONN) == 0 ? 0 : failed(path, errno, ret_error);
}

int unix_listener::open(sd_event* loop, const std::string& path, int type, std::string& ret_error) {
  if (const int error = bind_at(path, type, ret_error); error != 0) {
    return error;
  }
  path_ = path;
  reserve_ = new_reserve();
  int r = sd_event_add_io(loop, &accepting_, socket_.get(), EPOLLIN, on_connection, this);
  if (r >= 0) {
    r = sd_event_source_set_enabled(accepting_, SD_EVENT_OFF);
  }
  if (r >= 0) {
    r = sd_event_add_time_relative(loop, &pause_, CLOCK_MONOTONIC, pause_us, 1000, on_pause_over,
                                   this);
  }
  if (r >= 0) {
    r = sd_event_source_set_enabled(pause_, SD_EVENT_OFF);
  }
  return r < 0 ? failed(path, -r, ret_error) : 0;
}

void unix_listener::serve() noexcept {
  sd_event_source_set_enabled(accepting_, SD_EVENT_ON);
}

int unix_listener::on_connection(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                                 void* listener) noexcept {
  static_cast<unix_listener*>(listener)->accept_one();
  return 0;
}

int unix_listener::on_pause_over(sd_event_source* /*source*/, std::uint64_t /*now*/,
                                 void* listener) noexcept {
  static_cast<unix_listener*>(listener)->serve();
  return 0;
}

void unix_listener::pause() noexcept {
  sd_event_source_set_enabled(accepting_, SD_EVENT_OFF);
  sd_event_source_set_time_relative(pause_, pause_us);
  sd_event_source_set_enabled(pause_, SD_EVENT_ONESHOT);
}

// Accepts with the last descriptor, to see whose connection it is. 0 or an errno value.
int unix_listener::accept_with_reserve() noexcept {
  if (!reserve_.valid()) {
    reserve_ = new_reserve();
    return EMFILE;
  }
  reserve_.reset();
  unique_fd socket{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
  const int error = socket.valid() ? 0 : errno;
  if (error == 0 && is_trusted(socket.get()) && owner_.make_way(true)) {
    owner_.client_connected(std::move(socket), true);
  } else {
    socket.reset();
  }
  reserve_ = new_reserve();
  return error;
}

void unix_listener::accept_one() noexcept {
  unique_fd socket{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
  int error = socket.valid() ? 0 : errno;
  if (out_of_descriptors(error) && owner_.make_way(false)) {
    socket = unique_fd{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
    error = socket.valid() ? 0 : errno;
  }
  if (socket.valid()) {
    const bool trusted = is_trusted(socket.get());
    owner_.client_connected(std::move(socket), trusted);
    return;
  }
  if (out_of_descriptors(error)) {
    error = accept_with_reserve();
  }
  // The client may have gone already; anything else would come again at once.
  if (error != 0 && error != EAGAIN && error != ECONNABORTED && error != EINTR) {
    pause();
  }
}

void raise_descriptor_limit() noexcept {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < descriptors_wanted) {
    limit.rlim_cur = std::min(limit.rlim_max, descriptors_wanted);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

}  // namespace ot
