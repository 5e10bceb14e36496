// The reading process. It leaves its finding in memory that it shares with its parent; one that
// leaves none was ended by what it read: beyond the end of a file that was cut short, or where a
// damaged page sent it.
#include "platform/ledger/server/store_check.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "platform/ledger/server/store_reader.h"
#include "platform/linux/process/directories.h"

namespace ot {
namespace {

constexpr rlim_t longest_reading_s = 10;  // of processor time

struct finding {
  bool made;
  char fault[200];  // "" for none
};

// In the child. Nothing of it is to be seen: no core, no report, no endless reading.
[[noreturn]] void read_and_leave(const std::string& path, std::size_t map_bytes, bool ordered,
                                 finding& ret) {
  const rlimit no_core{0, 0};
  const rlimit time{longest_reading_s, longest_reading_s};
  setrlimit(RLIMIT_CORE, &no_core);
  setrlimit(RLIMIT_CPU, &time);
  const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
  for (const int number : {SIGBUS, SIGSEGV, SIGABRT}) {
    std::signal(number, SIG_DFL);
  }
  try {
    read_whole_store(path, map_bytes, ordered);
  } catch (const store_damage& found) {
    std::snprintf(ret.fault, sizeof ret.fault, "%s", found.text);
  }
  ret.made = true;
  _exit(0);
}

// What the child found; "" for nothing wrong, and when there is no memory for a child: what cannot
// be looked over is taken as it is.
std::string read_in_child(const std::string& path, std::size_t map_bytes, bool ordered) {
  void* const shared =
      mmap(nullptr, sizeof(finding), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) {
    return {};
  }
  auto& found = *static_cast<finding*>(shared);
  const pid_t child = fork();
  if (child == 0) {
    read_and_leave(path, map_bytes, ordered, found);
  }
  std::string fault;
  if (child > 0) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    fault = found.made ? found.fault : "it is damaged, or cut short";
  }
  munmap(shared, sizeof(finding));
  return fault;
}

}  // namespace

store_state check_store(const std::string& path, std::size_t map_bytes, bool ordered,
                        std::string& ret_fault) {
  std::string error;
  const unique_fd file = open_own_file(path, O_RDONLY, 0, error);
  struct stat state {};
  if (!file.valid() || fstat(file.get(), &state) != 0) {
    const int code = errno;
    ret_fault = error.substr(std::min(error.size(), path.size() + 2));
    return code == ENOENT  ? store_state::absent
           : code == EPERM ? store_state::faulty
                           : store_state::unreadable;
  }
  const auto bytes = static_cast<std::size_t>(state.st_size);
  ret_fault = bytes == 0 ? "it is empty" : read_in_child(path, std::max(map_bytes, bytes), ordered);
  return ret_fault.empty() ? store_state::good : store_state::faulty;
}

}  // namespace ot
