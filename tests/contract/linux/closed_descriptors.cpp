// Stands in for the C library's call in this program, the libraries it is linked with included.
#include "tests/contract/linux/closed_descriptors.h"

#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> failures{0};

}  // namespace

namespace ot::test {

int watches_on_closed_descriptors() noexcept {
  return failures;
}

}  // namespace ot::test

#if !defined(__SANITIZE_THREAD__)
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the library's are reserved
extern "C" int epoll_ctl(int loop, int operation, int fd, epoll_event* event) noexcept {
  const long result = syscall(SYS_epoll_ctl, loop, operation, fd, event);
  if (result != 0 && errno == EBADF) {
    ++failures;
  }
  return static_cast<int>(result);
}
#endif
