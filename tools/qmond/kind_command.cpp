// External command: success is exit status 0. The round-trip time is how long it took.
#include "tools/qmond/probe_host.h"

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

}  // namespace

started start_command(probe_host& host, const operation& what, const address& /*where*/,
                      probe_done done) {
  if (host.commands.full()) {
    return {.running = nullptr, .code = return_code::none};
  }
  auto made = std::make_unique<command_probe>(host.commands);
  if (made->start(what, std::move(done)) != 0) {
    return {.running = nullptr, .code = return_code::cannot_run};
  }
  return {.running = std::move(made), .code = return_code::none};
}

}  // namespace ot::qmond
