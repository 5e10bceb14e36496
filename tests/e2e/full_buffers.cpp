// A library to be loaded before a program. Where the kernel may say "not now", or take or give less
// than was asked for, it does so far more often than a kernel at rest: a terminal that somebody
// else writes to, a pipe or a socket whose reader is behind, a wait that ends for nothing. What no
// kernel does stays out: a socket whose reader has read everything takes what it is given.
//
// OT_FULL_BUFFERS is the seed. Each thread has its own numbers from it.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <random>

namespace {

constexpr unsigned of_a_terminal = 3;  // one in so many
constexpr unsigned of_a_buffer = 20;
constexpr unsigned of_a_wait = 100;
constexpr std::size_t whole_message = 512;  // a reader that has room for less gets it in one

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool one_in(unsigned many) {
  static std::atomic<unsigned> threads;
  static const char* const seed = std::getenv("OT_FULL_BUFFERS");
  thread_local std::minstd_rand numbers(
      static_cast<unsigned>(std::strtoul(seed == nullptr ? "1" : seed, nullptr, 10)) + ++threads);
  return numbers() % many == 0;
}

bool never_waits(int fd, int flags) {
  return (flags & MSG_DONTWAIT) != 0 || (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

int socket_number(int fd, int option) {
  int value = 0;
  socklen_t length = sizeof value;
  return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0 ? value : -1;
}

bool reader_is_behind(int fd) {
  int unread = 0;
  return ioctl(fd, SIOCOUTQ, &unread) == 0 && unread > 0;
}

// In how many writes one is refused; 0: none.
unsigned refusals_of(int fd) {
  struct stat what {};
  if (fstat(fd, &what) != 0) {
    return 0;
  }
  if (S_ISCHR(what.st_mode)) {
    return isatty(fd) == 1 ? of_a_terminal : 0;
  }
  if (S_ISSOCK(what.st_mode)) {
    const bool datagrams = socket_number(fd, SO_TYPE) == SOCK_DGRAM;
    const bool local = socket_number(fd, SO_DOMAIN) == AF_UNIX;
    return local && (datagrams || reader_is_behind(fd)) ? of_a_buffer : 0;
  }
  return S_ISFIFO(what.st_mode) ? of_a_buffer : 0;
}

bool refused(int fd, int flags) {
  const int before = errno;
  const unsigned many = never_waits(fd, flags) ? refusals_of(fd) : 0;
  errno = before;
  if (many != 0 && one_in(many)) {
    errno = EAGAIN;
    return true;
  }
  return false;
}

std::size_t half_of(std::size_t size, bool cut) {
  return cut && one_in(of_a_buffer) ? size / 2 : size;
}

bool is_stream(int fd, int flags) {
  const int before = errno;
  const bool is = never_waits(fd, flags) && socket_number(fd, SO_TYPE) == SOCK_STREAM;
  errno = before;
  return is;
}

std::size_t taken(int fd, std::size_t size, int flags) {
  return half_of(size, size > 1 && is_stream(fd, flags) && reader_is_behind(fd));
}

std::size_t given(int fd, std::size_t size, int flags) {
  return half_of(size, size >= whole_message && is_stream(fd, flags));
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* bytes, std::size_t size) {
  static auto* const real = next<ssize_t(int, const void*, std::size_t)>("write");
  return refused(fd, 0) ? -1 : real(fd, bytes, taken(fd, size, 0));
}

ssize_t writev(int fd, const iovec* parts, int count) {
  static auto* const real = next<ssize_t(int, const iovec*, int)>("writev");
  return refused(fd, 0) ? -1 : real(fd, parts, count);
}

ssize_t send(int fd, const void* bytes, std::size_t size, int flags) {
  static auto* const real = next<ssize_t(int, const void*, std::size_t, int)>("send");
  return refused(fd, flags) ? -1 : real(fd, bytes, taken(fd, size, flags), flags);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  static auto* const real = next<ssize_t(int, const msghdr*, int)>("sendmsg");
  return refused(fd, flags) ? -1 : real(fd, message, flags);
}

ssize_t read(int fd, void* bytes, std::size_t size) {
  static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
  return real(fd, bytes, given(fd, size, 0));
}

ssize_t recv(int fd, void* bytes, std::size_t size, int flags) {
  static auto* const real = next<ssize_t(int, void*, std::size_t, int)>("recv");
  return real(fd, bytes, given(fd, size, flags), flags);
}

int epoll_wait(int fd, epoll_event* events, int room, int milliseconds) {
  static auto* const real = next<int(int, epoll_event*, int, int)>("epoll_wait");
  if (one_in(of_a_wait)) {
    errno = EINTR;
    return -1;
  }
  return real(fd, events, room, milliseconds);
}

}  // extern "C"
