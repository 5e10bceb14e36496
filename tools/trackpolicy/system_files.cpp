// What is remembered, and the files of policies. All of it is replaced as a whole.
#include <fcntl.h>

#include <csignal>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/common/root_path.h"
#include "platform/linux/process/directories.h"
#include "tools/daemon/lines.h"
#include "tools/trackpolicy/failure.h"
#include "tools/trackpolicy/system.h"

namespace ot::trackpolicy {
namespace {

constexpr std::size_t content_max = 4096;
constexpr std::size_t flaps_max = std::size_t{4} << 20;
constexpr std::string_view in_progress = ".new";  // what a file is called until it is whole
constexpr char apart = '~';                       // no policy's name has it

// A policy may have a name that another one's file has for a moment.
std::string memory_path(const std::string& policy_name) {
  return root_path(memory_folder) + '/' + policy_name +
         (policy_name.ends_with(in_progress) ? std::string(1, apart) : "");
}

// What is no policy's begins with a dot.
std::string flaps_path() {
  return root_path(memory_folder) + "/.flaps";
}

}  // namespace

system_host::system_host(sd_event* loop)
    : loop_(loop),
      network_(
          loop, root_path(memory_folder),
          [](const std::string& owner, const std::string& text) { say(owner + ": " + text); }) {
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
    // What was told before would be taken for the latest.
    (void)unlink(memory_path(policy_name).c_str());
    say(policy_name + ": what it was told cannot be remembered: " + error);
  }
}

void system_host::forget(const std::string& policy_name) {
  stop_waiting(policy_name);
  (void)unlink(memory_path(policy_name).c_str());
}

std::vector<std::string> system_host::remembered() {
  std::vector<std::string> names;
  std::error_code wrong;
  for (const auto& each : std::filesystem::directory_iterator(root_path(memory_folder), wrong)) {
    std::string name = each.path().filename();
    if (!name.starts_with('.') && !name.ends_with(in_progress)) {
      if (name.ends_with(apart)) {
        name.pop_back();
      }
      names.push_back(std::move(name));
    }
  }
  return names;
}

std::string system_host::recall_flaps() {
  std::string text;
  std::string error;
  return read_own_file(flaps_path(), flaps_max, text, error) == 0 ? text : std::string();
}

void system_host::remember_flaps(const std::string& text) {
  std::string error;
  if (replace_own_file(flaps_path(), text, 0600, false, error) != 0) {
    say("trackpolicy: the penalties cannot be remembered: " + error);
  }
}

unique_fd system_host::memory_for_more(const policy& of) const {
  return unique_fd(
      open(memory_path(of.name).c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC));
}

void system_host::end_leftover(std::string_view who) {
  const children::process_identity leader = children::identity_in(who);
  if (children::group_is_left(leader, "OT_POLICY=")) {
    children::signal_group(leader.number, SIGKILL);
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
