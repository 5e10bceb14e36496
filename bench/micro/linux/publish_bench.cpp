// A publication on the real stores and sockets: everything that one handler causes when it
// publishes one state, and when it publishes the states of 1,500 tracks. What the loop sends,
// stores and logs after the handler is measured with it; messages go where the system has its log,
// or to /dev/null.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/event_manager.h"
#include "platform/ledger/server/server.h"
#include "platform/service.h"
#include "sources/interface/track.h"
#include "state/publication.h"

namespace ot {
namespace {

void require(bool done, const char* what) {
  if (!done) {
    std::printf("publish_bench: %s failed\n", what);
    std::exit(1);
  }
}

// An instance in this process, below a directory of its own.
class instance {
 public:
  instance() {
    require(mkdtemp(root_.data()) != nullptr, "mkdtemp");
    setenv("OT_ROOT", root_.c_str(), 1);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    require(dup2(null, STDERR_FILENO) >= 0, "dup2");
    close(null);
    char error[256];
    require(evm_create(&manager_) == 0, "evm_create");
    require(ledger_server_open(manager_, error, sizeof error) == 0, "ledger_server_open");
    require(ot_start(manager_, 0) == 0, "ot_start");
    ledger_server_serve();
  }
  ~instance() {
    ot_stop();
    ledger_server_close();
    evm_destroy(manager_);
    std::filesystem::remove_all(root_);
  }
  instance(const instance&) = delete;
  instance& operator=(const instance&) = delete;

  // Runs `task` as one handler, and what handlers before it have left to be done.
  void run(evm_task task, void* argument) {
    done_ = false;
    task_ = task;
    argument_ = argument;
    require(evm_post(manager_, run_task, this) == 0, "evm_post");
    while (!done_) {
      require(evm_block(manager_) == 0, "evm_block");
      evm_dispatch(manager_);
    }
  }

 private:
  static void run_task(void* argument) {
    auto* self = static_cast<instance*>(argument);
    self->task_(self->argument_);
    self->done_ = true;
  }

  std::string root_ = "/tmp/ot-bench-XXXXXX";
  evm* manager_ = nullptr;
  evm_task task_ = nullptr;
  void* argument_ = nullptr;
  bool done_ = false;
};

struct tracks {
  std::vector<std::string> names;
  track_state next = track_state::up;
};

void publish_all(void* argument) {
  auto* all = static_cast<tracks*>(argument);
  for (const std::string& name : all->names) {
    object_tracking_set_track_state_in_ledger_after_timer_expired(name.c_str(), all->next);
  }
  all->next = all->next == track_state::down ? track_state::up : track_state::down;
}

void publish_linux(benchmark::State& state) {
  instance service;
  tracks all;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    all.names.push_back("t" + std::to_string(i));
    require(object_tracking_type_interface_create("ot-nosuch0", all.names.back().c_str()) == 0,
            "interface_create");
  }
  for (auto _ : state) {
    service.run(publish_all, &all);
  }
  const auto count = static_cast<double>(state.iterations() * state.range(0));
  state.counters["per_publication"] =
      benchmark::Counter(count, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(publish_linux)->Arg(1)->Arg(1500);

}  // namespace
}  // namespace ot
