// vfork and exec by hand, since posix_spawn cannot change the user. Between the two the child uses
// system calls only: it shares our memory, and a lock that another thread holds never opens there.
// What fails is told through a pipe that a successful exec closes.
#include "tools/children/spawn.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "platform/linux/unique_fd.h"

namespace ot::children {
namespace {

constexpr const char* search_path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
constexpr int report_number = 3;  // where the child has the pipe

// All that the child needs, made before it is.
struct child_setup {
  std::vector<char*> argv;
  std::vector<char*> environment;
  const identity* user;
  int nowhere;
  int output;
  int record;
  int report;
  pid_t parent;
};

int become_user(const identity& user) noexcept {
  if (syscall(SYS_setgroups, user.groups.size(), user.groups.data()) != 0 ||
      syscall(SYS_setresgid, user.group, user.group, user.group) != 0 ||
      syscall(SYS_setresuid, user.user, user.user, user.user) != 0) {
    return errno;
  }
  return 0;
}

void forget_handlers() noexcept {
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) {
    (void)sigaction(number, &usual, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void write_record(int record) noexcept {
  std::array<char, 1024> line;
  const int stat = open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
  const ssize_t size = read(stat, line.data(), line.size());
  if (size > 0) {
    (void)!write(record, line.data(), static_cast<std::size_t>(size));
  }
}

[[noreturn]] void run_child(const child_setup& setup) noexcept {
  setpgid(0, 0);
  if (setup.record >= 0) {
    write_record(setup.record);
  }
  dup2(setup.nowhere, 0);
  dup2(setup.output, 1);
  dup2(setup.output, 2);
  if (setup.report != report_number) {
    dup3(setup.report, report_number, O_CLOEXEC);
  }
  // What whoever started us left open is not for commands either.
  syscall(SYS_close_range, report_number + 1, ~0U, 0);
  forget_handlers();
  int error = setup.user == nullptr ? 0 : become_user(*setup.user);
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // a change of the user would take it back
  if (error == 0 && getppid() != setup.parent) {
    error = ESRCH;  // it has died already
  }
  if (error == 0) {
    execve(setup.argv.front(), setup.argv.data(), setup.environment.data());
    error = errno;
  }
  (void)!write(report_number, &error, sizeof error);
  _exit(127);
}

// Signals wait until the child has none of our handlers any more.
[[gnu::noinline]] pid_t fork_child(const child_setup& setup) noexcept {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t made = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
  if (made == 0) {
    run_child(setup);  // NOLINT(clang-analyzer-unix.Vfork): it makes system calls only
  }
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return made;
}

char* as_word(const std::string& text) noexcept {
  return const_cast<char*>(text.c_str());
}

}  // namespace

int spawn(const spawn_request& what, pid_t* ret) {
  const unique_fd nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
  std::array<int, 2> ends{-1, -1};
  if (!nowhere.valid() || pipe2(ends.data(), O_CLOEXEC) != 0) {
    return errno;
  }
  const unique_fd read_end(ends[0]);
  unique_fd write_end(ends[1]);
  child_setup setup{.argv = {},
                    .environment = {const_cast<char*>(search_path)},
                    .user = what.user,
                    .nowhere = nowhere.get(),
                    .output = what.output < 0 ? nowhere.get() : what.output,
                    .record = what.record,
                    .report = write_end.get(),
                    .parent = getpid()};
  for (const std::string& word : what.argv) {
    setup.argv.push_back(as_word(word));
  }
  for (const std::string& variable : what.environment) {
    setup.environment.push_back(as_word(variable));
  }
  setup.argv.push_back(nullptr);
  setup.environment.push_back(nullptr);
  const pid_t made = fork_child(setup);
  if (made < 0) {
    return errno;
  }
  write_end.reset();
  int error = 0;
  if (read(read_end.get(), &error, sizeof error) == sizeof error) {
    (void)waitpid(made, nullptr, 0);
    return error;
  }
  *ret = made;
  return 0;
}

}  // namespace ot::children
