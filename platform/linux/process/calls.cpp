// The calls of platform/process.h on Linux. Waiting runs the loop, with a time limit; thread names
// are the kernel's: what `ps -L` and the journal show.
#include "platform/process.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/event_manager.h"
#include "platform/fixed_text.h"
#include "platform/linux/log/queue.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t longest_wait_us = 2'000'000;

int on_time_over(sd_event_source* /*source*/, std::uint64_t /*now*/, void* time_over) {
  *static_cast<bool*>(time_over) = true;
  return 0;
}

using kernel_name = fixed_text<16>;

// The name of the thread that the process was started with.
kernel_name process_name() noexcept {
  char text[kernel_name::capacity + 1] = "";
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/task/%d/comm", static_cast<int>(getpid()));
  if (FILE* file = std::fopen(path, "re")) {
    if (std::fgets(text, sizeof text, file) == nullptr) {
      text[0] = '\0';
    }
    std::fclose(file);
  }
  text[std::strcspn(text, "\n")] = '\0';
  return kernel_name{text};
}

}  // namespace

// No destructors: other threads may be running, and the stores need no closing.
void process_exit(int status) {
  log_queue_finish();
  std::fflush(nullptr);
  std::_Exit(status);
}

void process_wait(evm* manager, bool (*ready)()) noexcept {
  bool time_over = false;
  sd_event_source* limit = nullptr;
  if (evm_start_timer(manager, &limit, CLOCK_MONOTONIC, longest_wait_us, on_time_over, &time_over) <
      0) {
    return;
  }
  while (!ready() && !time_over) {
    const int status = evm_block(manager);
    if (status == status_ok) {
      evm_dispatch(manager);
    } else if (status != EINTR) {
      break;
    }
  }
  sd_event_source_disable_unref(limit);
}

void thread_name_set(const char* name) noexcept {
  const kernel_name wanted = *name == '\0' ? process_name() : kernel_name{name};
  pthread_setname_np(pthread_self(), wanted.c_str());
}

}  // namespace ot
