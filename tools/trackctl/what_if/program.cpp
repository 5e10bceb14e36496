// One socket carries the question there and the answer back: a program that ends early is an error
// of the write then, and no signal.
#include "tools/trackctl/what_if/program.h"

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/linux/unique_fd.h"
#include "tools/trackctl/command.h"
#include "tools/what_if/wire.h"

namespace ot::trackctl {
namespace {

constexpr const char* program = "trackctl-what-if";

// Among the package's private programs, or beside trackctl, where it was built.
std::string find_program() {
  std::error_code fault;
  const auto folder = std::filesystem::read_symlink("/proc/self/exe", fault).parent_path();
  const auto installed = folder.parent_path() / "libexec" / "object_tracking" / program;
  for (const auto& path : {installed, folder / program}) {
    if (access(path.c_str(), X_OK) == 0) {
      return path.string();
    }
  }
  throw failure(exit_refused, "the program that computes this is not there: " + installed.string() +
                                  "; install object_tracking anew");
}

[[noreturn]] void fail(const std::string& what, int error) {
  throw failure(exit_refused, what + ": " + std::strerror(error));
}

// The child, waited for in any case.
class child_process {
 public:
  // Its standard input and output are `socket`.
  child_process(const std::string& path, int socket) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, socket, STDOUT_FILENO);
    std::string name = program;
    std::array<char*, 2> arguments{name.data(), nullptr};
    const int error =
        posix_spawn(&pid_, path.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      pid_ = -1;
      fail("starting " + path, error);
    }
  }
  ~child_process() { wait(); }
  child_process(const child_process&) = delete;
  child_process& operator=(const child_process&) = delete;

  // Its status as waitpid gives it.
  int wait() noexcept {
    while (pid_ > 0 && waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status_;
  }

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

// False when the other end is gone.
bool send_all(int socket, const std::vector<std::uint8_t>& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno != EINTR) {
      return false;
    }
    sent += count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  return shutdown(socket, SHUT_WR) == 0;
}

std::string receive_all(int socket) {
  std::string bytes;
  std::array<char, 65536> part{};
  for (;;) {
    const ssize_t count = recv(socket, part.data(), part.size(), 0);
    if (count > 0) {
      bytes.append(part.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return bytes;
    }
  }
}

}  // namespace

what_if::answer ask_what_if(const what_if::question& asked) {
  const std::string path = find_program();
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    fail("opening a socket", errno);
  }
  const unique_fd ours(ends[0]);
  unique_fd theirs(ends[1]);
  child_process child(path, theirs.get());
  theirs.reset();
  const bool sent = send_all(ours.get(), what_if::encode(asked));
  const std::string answer = receive_all(ours.get());
  const int status = child.wait();
  if (!sent || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw failure(exit_refused,
                  path + " has failed" +
                      (WIFSIGNALED(status) ? std::string(": ") + strsignal(WTERMSIG(status))
                                           : std::string()));
  }
  return what_if::decode_answer(answer);
}

}  // namespace ot::trackctl
