// External command: success is exit status 0; the round-trip time is how long it took. Its
// three standard descriptors lead nowhere.
#include "tools/qmond/kinds/command.h"

#include <sys/wait.h>

#include <array>
#include <csignal>
#include <string>
#include <system_error>
#include <vector>

#include "tools/children/groups.h"
#include "tools/children/spawn.h"
#include "tools/qmond/kinds/host.h"

namespace ot::qmond {
namespace {

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
    children::signal_group(pid, SIGKILL);
  }
}

int command_slots::start(const operation& what, command_ended call, pid_t* ret) {
  pid_t pid = 0;
  const std::vector<std::string> environment{"QMON_OPERATION=" + std::to_string(what.id)};
  if (const int error = children::spawn({.argv = what.argv, .environment = environment}, &pid);
      error != 0) {
    return error;
  }
  try {
    children_[pid] = {
        .source = loop_source::child(
            loop_, pid, [this, pid](std::uint32_t status) { ended(pid, status == 0); }),
        .call = std::move(call)};
  } catch (const std::system_error& error) {
    children::signal_group(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return error.code().value();
  }
  *ret = pid;
  return 0;
}

void command_slots::kill(pid_t command) noexcept {
  if (const auto found = children_.find(command); found != children_.end()) {
    found->second.call = nullptr;
    children::signal_group(command, SIGKILL);
  }
}

// The leader is not reaped yet, so its number still stands for its group and nobody else's.
void command_slots::ended(pid_t command, bool success) {
  children::signal_group(command, SIGKILL);
  const auto found = children_.find(command);
  const command_ended call = std::move(found->second.call);
  children_.erase(found);
  if (call) {
    call(success);
  }
}

}  // namespace ot::qmond
