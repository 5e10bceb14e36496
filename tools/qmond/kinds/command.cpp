// External command: success is exit status 0; the round-trip time is how long it took. There is no
// shell; the environment is small and always the same; a command gets no descriptor of ours but its
// three standard ones, which lead nowhere.
#include "tools/qmond/kinds/command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>
#include <vector>

#include "tools/qmond/kinds/host.h"

namespace ot::qmond {
namespace {

constexpr const char* search_path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

class spawn_settings {
 public:
  spawn_settings() noexcept {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setpgroup(&attributes_, 0);  // a group of its own
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    for (int fd = 0; fd < 3; ++fd) {
      posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", O_RDWR, 0);
    }
    // What whoever started us left open is not for commands either.
    posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
  }
  ~spawn_settings() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  spawn_settings(const spawn_settings&) = delete;
  spawn_settings& operator=(const spawn_settings&) = delete;

  int spawn(const operation& what, pid_t* ret) const {
    std::vector<char*> argv;
    for (const std::string& word : what.argv) {
      argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    std::string number = "QMON_OPERATION=" + std::to_string(what.id);
    char* const environment[] = {const_cast<char*>(search_path), number.data(), nullptr};
    return posix_spawn(ret, argv.front(), &actions_, &attributes_, argv.data(), environment);
  }

 private:
  posix_spawnattr_t attributes_{};
  posix_spawn_file_actions_t actions_{};
};

void kill_group(pid_t leader) noexcept {
  ::kill(-leader, SIGKILL);
}

class command_probe : public probe {
 public:
  explicit command_probe(command_slots& slots) noexcept : slots_(slots) {}
  ~command_probe() override { slots_.kill(pid_); }

  int start(const operation& what, probe_done done) {
    return slots_.start(
        what,
        [this, done = std::move(done)](bool success) {
          pid_ = 0;
          done(success ? return_code::ok : return_code::bad_answer);
        },
        &pid_);
  }

 private:
  command_slots& slots_;
  pid_t pid_ = 0;
};

started start(probe_host& host, const operation& what, const address& /*where*/, probe_done done) {
  if (host.commands.full()) {
    return {.running = nullptr, .code = return_code::none};
  }
  auto made = std::make_unique<command_probe>(host.commands);
  if (made->start(what, std::move(done)) != 0) {
    return {.running = nullptr, .code = return_code::cannot_run};
  }
  return {.running = std::move(made), .code = return_code::none};
}

std::string command_line(const std::vector<std::string>& argv) {
  std::string line;
  for (const std::string& word : argv) {
    line += line.empty() ? word : ' ' + word;
  }
  return line;
}

void take_command(const toml::node& node, operation& to) {
  to.argv = settings::argv_value(node);
  to.target = command_line(to.argv);
}

constexpr std::array own_keys{key_row{"command", take_command, key_required}};

}  // namespace

constinit const kind command_kind{
    .id = kind_id::command,
    .word = "command",
    .keys = own_keys,
    .target = nullptr,
    .start = start,
};

command_slots::command_slots(sd_event* loop) : loop_(loop) {
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &ended, nullptr);
}

command_slots::~command_slots() {
  for (const auto& [pid, one] : children_) {
    kill_group(pid);
  }
}

int command_slots::start(const operation& what, command_ended call, pid_t* ret) {
  static const spawn_settings settings;
  pid_t pid = 0;
  if (const int error = settings.spawn(what, &pid); error != 0) {
    return error;
  }
  try {
    children_[pid] = {
        .source = loop_source::child(
            loop_, pid, [this, pid](std::uint32_t status) { ended(pid, status == 0); }),
        .call = std::move(call)};
  } catch (const std::system_error& error) {
    kill_group(pid);
    waitpid(pid, nullptr, 0);
    return error.code().value();
  }
  *ret = pid;
  return 0;
}

void command_slots::kill(pid_t command) noexcept {
  if (const auto found = children_.find(command); found != children_.end()) {
    found->second.call = nullptr;
    kill_group(command);
  }
}

// The leader is not reaped yet, so its number still stands for its group and nobody else's.
void command_slots::ended(pid_t command, bool success) {
  kill_group(command);
  const auto found = children_.find(command);
  const command_ended call = std::move(found->second.call);
  children_.erase(found);
  if (call) {
    call(success);
  }
}

}  // namespace ot::qmond
