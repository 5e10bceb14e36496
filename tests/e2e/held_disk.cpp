// A library to be loaded before the service: a disk that takes its time. While the file that
// OT_HELD_DISK names is there, nothing of the configuration's store becomes durable; a file of that
// name with ".reached" behind it says that somebody waits for it.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr int longest_ms = 60'000;

bool is_store(int fd) {
  char name[4096];
  const ssize_t length =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), name, sizeof name);
  return length > 0 &&
         std::string_view{name, static_cast<std::size_t>(length)}.ends_with("/configuration.mdb");
}

}  // namespace

extern "C" int fdatasync(int fd) {
  static auto* const real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fdatasync"));
  const char* hold = std::getenv("OT_HELD_DISK");
  if (hold != nullptr && access(hold, F_OK) == 0 && is_store(fd)) {
    const std::string reached = std::string{hold} + ".reached";
    close(open(reached.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    for (int passed = 0; passed < longest_ms && access(hold, F_OK) == 0; ++passed) {
      usleep(1000);
    }
    unlink(reached.c_str());
  }
  return real(fd);
}
