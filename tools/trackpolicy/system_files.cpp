// What is remembered, and the files of policies. All of it is replaced as a whole.
#include <csignal>
#include <filesystem>
#include <set>

#include "platform/common/root_path.h"
#include "platform/linux/process/directories.h"
#include "tools/trackpolicy/failure.h"
#include "tools/trackpolicy/system.h"

namespace ot::trackpolicy {
namespace {

constexpr std::size_t content_max = 4096;

std::string memory_path(const std::string& policy_name) {
  return root_path(memory_folder) + '/' + policy_name;
}

}  // namespace

system_host::system_host(sd_event* loop)
    : loop_(loop),
      network_(loop, root_path(memory_folder),
               [this](const std::string& owner, const std::string& text) { print(owner, text); }) {
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &ended, nullptr);
  std::string error;
  if (make_directory(root_path(memory_folder), 0700, error) != 0) {
    throw failure(exit_failed, error);
  }
}

std::string system_host::recall(const std::string& policy_name) {
  std::string text;
  std::string error;
  return read_own_file(memory_path(policy_name), content_max, text, error) == 0 ? text
                                                                                : std::string();
}

void system_host::remember(const std::string& policy_name, const std::string& text) {
  std::string error;
  if (replace_own_file(memory_path(policy_name), text, 0600, false, error) != 0) {
    print(policy_name, "what it was told cannot be remembered: " + error);
  }
}

void system_host::forget(const std::string& policy_name) {
  stop_waiting(policy_name);
  (void)unlink(memory_path(policy_name).c_str());
}

void system_host::end_leftover(pid_t leader, std::uint64_t ticks) {
  if (leader > 1 && ticks != 0 && children::start_ticks(leader) == ticks) {
    children::signal_group(leader, SIGKILL);
  }
}

bool system_host::file_has(const std::string& path, const std::string& content) {
  std::string text;
  std::string error;
  return read_own_file(root_path(path), content_max, text, error) == 0 && text == content;
}

std::string system_host::write_file(const std::string& path, const std::string& content) {
  std::string error;
  return replace_own_file(root_path(path), content, 0644, false, error) == 0 ? std::string()
                                                                             : error;
}

}  // namespace ot::trackpolicy
