// Child processes. Their output is read as long as the command runs, in portions, so that a
// talkative one holds nobody up, and printed by lines behind the policy's name; what a command
// leaves behind in its group ends with it.
#include "tools/trackpolicy/system.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>

#include "platform/linux/monotonic.h"
#include "tools/daemon/lines.h"

namespace ot::trackpolicy {
namespace {

constexpr std::uint64_t kill_after_us = 2'000'000;
constexpr std::uint64_t accuracy_us = 10'000;
constexpr std::size_t line_max = log_line_max - 40;  // with the policy's name before it

children::identity identity_of(const passwd& user) {
  int count = 64;
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  while (getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count) < 0) {
    groups.resize(static_cast<std::size_t>(count));
  }
  groups.resize(static_cast<std::size_t>(count));
  return {.user = user.pw_uid, .group = user.pw_gid, .groups = std::move(groups)};
}

// How a child that is still to be reaped has ended.
command_end end_of(pid_t command) {
  siginfo_t info{};
  (void)waitid(P_PID, static_cast<id_t>(command), &info, WEXITED | WNOWAIT);
  const bool exited = info.si_code == CLD_EXITED;
  return {.success = exited && info.si_status == 0,
          .text = (exited ? "exit status " : "signal ") + std::to_string(info.si_status)};
}

// 0 or an errno value. What the command prints comes out of `ret_output`.
int spawn_with_output(children::spawn_request what, unique_fd* ret_output, pid_t* ret) {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return errno;
  }
  unique_fd read_end(ends[0]);
  const unique_fd write_end(ends[1]);
  fcntl(read_end.get(), F_SETFL, O_NONBLOCK);
  what.output = write_end.get();
  const int error = children::spawn(what, ret);
  *ret_output = std::move(read_end);
  return error;
}

}  // namespace

system_host::~system_host() {
  for (const auto& [command, one] : children_) {
    children::signal_group(command, SIGKILL);
  }
}

void system_host::prepare(const std::vector<policy>& policies) {
  users_.clear();
  for (const policy& each : policies) {
    if (each.user.empty() || users_.contains(each.user)) {
      continue;
    }
    if (const passwd* const found = getpwnam(each.user.c_str()); found != nullptr) {
      users_.emplace(each.user, identity_of(*found));
    }
  }
}

bool system_host::end_all() {
  waiting_.clear();
  for (auto& [command, one] : children_) {
    one.ended = nullptr;
    end(command);
  }
  return children_.empty();
}

std::uint64_t system_host::now_us() const {
  return monotonic_us();
}

void system_host::log(const policy& of, const std::string& text) {
  say(of.name + ": " + text);
}

bool system_host::has_room(reaction& who, const policy& of) {
  stop_waiting(of.name);
  const bool room = is_free(shell_of(of));
  if (!room) {
    waiting_.push_back({.policy_name = of.name, .shell = shell_of(of), .who = &who});
  }
  return room;
}

pid_t system_host::start(const policy& of, const words& argv, const words& environment,
                         std::function<void(const command_end&)> ended, std::string* ret_error) {
  const auto user = users_.find(of.user);
  if (!of.run_as_root && user == users_.end()) {
    *ret_error = "there is no user \"" + of.user + '"';
    return 0;
  }
  // Whoever is that user already needs no right to become it.
  const bool other = !of.run_as_root && user->second.user != geteuid();
  const unique_fd record = memory_for_more(of);
  unique_fd output;
  pid_t command = 0;
  const int error = spawn_with_output({.argv = argv,
                                       .environment = environment,
                                       .user = other ? &user->second : nullptr,
                                       .record = record.get()},
                                      &output, &command);
  if (error != 0) {
    *ret_error = std::generic_category().message(error);
    return 0;
  }
  child& made = children_[command];
  made.policy_name = of.name;
  made.shell = shell_of(of);
  made.ended = std::move(ended);
  made.output = std::move(output);
  try {
    watch(command, made);
  } catch (const std::system_error& wrong) {  // nobody would see its end
    children::signal_group(command, SIGKILL);
    (void)waitpid(command, nullptr, 0);
    children_.erase(command);
    *ret_error = wrong.code().message();
    return 0;
  }
  return command;
}

void system_host::watch(pid_t command, child& one) {
  one.end_source =
      loop_source::child(loop_, command, [this, command](std::uint32_t) { this->ended(command); });
  one.output_source =
      loop_source::descriptor(loop_, one.output.get(), EPOLLIN, [this, &one](std::uint32_t) {
        if (!read_output(one)) {
          one.output_source = {};
        }
      });
}

// One portion. False at its end, or when there is nothing at the moment.
bool system_host::read_output(child& one) {
  std::array<char, 4096> part;
  const ssize_t size = read(one.output.get(), part.data(), part.size());
  if (size <= 0) {
    return size < 0 && (errno == EINTR || errno == EAGAIN);
  }
  for (const char c : std::string_view(part.data(), static_cast<std::size_t>(size))) {
    if (c == '\n' || one.line.size() >= line_max) {
      say(one.policy_name + ": " + one.line);
      one.line.clear();
    }
    if (c != '\n') {
      one.line += static_cast<unsigned char>(c) < ' ' && c != '\t' ? '?' : c;
    }
  }
  return true;
}

bool system_host::end(pid_t command) {
  const auto found = children_.find(command);
  siginfo_t exited{};
  (void)waitid(P_PID, static_cast<id_t>(command), &exited, WEXITED | WNOWAIT | WNOHANG);
  if (found == children_.end() || exited.si_pid == command) {
    return false;
  }
  children::signal_group(command, SIGTERM);
  found->second.kill_timer =
      loop_source::timer(loop_, monotonic_us() + kill_after_us, accuracy_us,
                         [command](std::uint32_t) { children::signal_group(command, SIGKILL); });
  return true;
}

void system_host::abandon(pid_t command) {
  if (const auto found = children_.find(command); found != children_.end()) {
    found->second.ended = nullptr;
    (void)end(command);
  }
}

// Not reaped yet: the group is still the command's own.
void system_host::ended(pid_t command) {
  const command_end how = end_of(command);
  children::signal_group(command, SIGKILL);
  child one = std::move(children_.at(command));
  one.output_source = {};
  // What the pipe holds; a process that has left the group may go on writing.
  for (int part = 0; part < 16 && read_output(one); ++part) {
  }
  if (!one.line.empty()) {
    say(one.policy_name + ": " + one.line);
  }
  children_.erase(command);
  if (one.ended) {
    one.ended(how);
  }
  offer_room();
}

void system_host::stop_waiting(const std::string& policy_name) {
  std::erase_if(waiting_, [&](const waiting& each) { return each.policy_name == policy_name; });
}

bool system_host::is_free(const words& shell) const {
  return children_.size() < commands_max &&
         (shell.empty() || std::none_of(children_.begin(), children_.end(), [&](const auto& each) {
            return each.second.shell == shell;
          }));
}

void system_host::offer_room() {
  for (;;) {
    const auto next = std::find_if(waiting_.begin(), waiting_.end(),
                                   [this](const waiting& each) { return is_free(each.shell); });
    if (next == waiting_.end()) {
      return;
    }
    reaction* const who = next->who;
    waiting_.erase(next);
    who->due();
  }
}

}  // namespace ot::trackpolicy
