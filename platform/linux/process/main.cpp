// The process framework: the C entry point of the executable and the frame in which the service
// runs, in the manner of a service manager's children: in the foreground, stopped by a signal,
// reporting when it is ready and that it is alive. Without arguments the executable is the service;
// "show" belongs to the service's own front-end; the rest is answered here.
//
// The order matters: the ledger is opened first, because it is what refuses a second instance, and
// the log's flush is hooked in last, so that events leave before the log is written.
#include <malloc.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/err_string.h"
#include "platform/event_manager.h"
#include "platform/ledger.h"
#include "platform/ledger/server/server.h"
#include "platform/ledger_status.h"
#include "platform/linux/events/server.h"
#include "platform/linux/give_memory_back.h"
#include "platform/linux/log/queue.h"
#include "platform/linux/loop/listener.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/process/boot.h"
#include "platform/linux/short_slices.h"
#include "platform/linux/standard_descriptors.h"
#include "platform/messages.h"
#include "platform/process.h"
#include "platform/service.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr const char* usage =
    "usage: object_tracking                                      run the service\n"
    "       object_tracking show track NAME|all-tracks [all]     show tracks\n"
    "       object_tracking --restore                            put the last good configuration\n"
    "                                                            back; the service must not run\n"
    "       object_tracking --help | --version\n";

constexpr int usage_error = 2;
constexpr std::uint32_t a_restart = 2;  // the least start count of one

constexpr errmsg_record process_log{"OT", "SERVICES", "PROCESS", "%s", 4, 4, {0, 0, 0}, nullptr};

constexpr int stop_signals[] = {SIGTERM, SIGINT};

bool stop_asked = false;

int on_stop_signal(sd_event_source* /*source*/, const signalfd_siginfo* /*info*/,
                   void* /*context*/) {
  stop_asked = true;
  return 0;
}

// Before any thread is started, so that all of them inherit the mask.
void set_signals_up() noexcept {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGHUP, SIG_IGN);
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int number : stop_signals) {
    sigaddset(&blocked, number);
  }
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
}

// The manager with what the service manager needs of it: stop signals and the watchdog.
int create_manager(evm** ret) noexcept {
  int status = evm_create(ret);
  if (status != status_ok) {
    return status;
  }
  sd_event* loop = evm_sd_event(*ret);
  for (const int number : stop_signals) {
    const int r = sd_event_add_signal(loop, nullptr, number, on_stop_signal, nullptr);
    status = r < 0 && status == status_ok ? -r : status;
  }
  const int r = sd_event_set_watchdog(loop, 1);  // only where the service manager asks for it
  return r < 0 && status == status_ok ? -r : status;
}

int refuse(const char* what, const char* why) {
  std::fprintf(stderr, "object_tracking: %s: %s\n", what, why);
  return 1;
}

// Runs handlers until the stop is asked for. 0 or the code of the wait that failed.
int run_loop(evm* manager) {
  while (!stop_asked) {
    const int status = evm_block(manager);
    if (status == status_ok) {
      evm_dispatch(manager);
    } else if (status != EINTR) {
      return status;
    }
  }
  return status_ok;
}

// The states stay as published: nobody hears of what the service lets go at its end.
[[noreturn]] void end_service(evm* manager, int loop_status) {
  sd_notify(0, "STOPPING=1");
  evm_flush(manager);
  event_publisher_close();
  ot_stop();
  ledger_server_close();
  if (loop_status != status_ok) {
    refuse("the event loop failed", err_string(loop_status));
  }
  process_exit(loop_status == status_ok ? 0 : 1);
}

// A count that cannot be kept (a full disk) is taken for a restart: published states are taken
// over, if there are any.
std::uint32_t next_start_count() {
  std::uint32_t count = a_restart;
  std::string error;
  if (start_count_next(&count, error) != 0) {
    const std::string text = "the start count is not kept: " + error;
    errmsg_log(&process_log, process_log.severity, text.c_str());
  }
  return count;
}

// The show front-end is silent about failures. Whether the service can be asked at all is said
// here, and the front-end does not wait for one that hangs.
int show(int argc, char** argv) {
  ledger_conn* connection = nullptr;
  const int status =
      argc > 2 && ledger_library_readable() ? ledger_bind("/", &connection) : status_ok;
  if (status == ledger_no_answer || status == ledger_busy) {
    std::fprintf(stderr, "object_tracking: %s\n", err_string(status));
    return 0;
  }
  ledger_unbind(connection);
  return ot::main(argc, argv);
}

int restore() {
  umask(0027);
  char text[1024] = "";
  if (ledger_server_restore(text, sizeof text) != status_ok) {
    return refuse("nothing is restored", text);
  }
  std::printf("object_tracking: %s\n", text);
  return 0;
}

// Lets large pieces of memory go back when they are freed. By default the first large one that is
// freed makes all later ones stay: a change of the whole configuration would be kept three times.
void limit_freed_memory() noexcept {
  constexpr int large = 128 << 10;
  mallopt(M_MMAP_THRESHOLD, large);
  mallopt(M_TRIM_THRESHOLD, large);
}

// Runs the service in the foreground until it is stopped (SIGTERM, SIGINT). Returns 1 when it
// cannot start; ends the process otherwise.
int run_service() {
  umask(0027);
  limit_freed_memory();
  set_signals_up();
  evm* manager = nullptr;
  if (const int status = create_manager(&manager); status != status_ok) {
    return refuse("no event loop", err_string(status));
  }
  raise_descriptor_limit();
  ask_for_short_slices(100);
  char error[1024] = "";
  if (ledger_server_open(manager, error, sizeof error) != status_ok) {
    process_exit(refuse("cannot start", error));
  }
  if (ot_start(manager, next_start_count()) != status_ok) {
    ledger_server_close();
    process_exit(1);  // the step that failed is in the log
  }
  if (const int status = log_queue_attach(manager); status != status_ok) {
    return refuse("no log", err_string(status));
  }
  ledger_server_serve();
  give_memory_back();  // reading the configuration took much
  evm_restart_turns(manager);
  sd_notify(0, "READY=1");
  end_service(manager, run_loop(manager));
}

}  // namespace
}  // namespace ot

int main(int argc, char** argv) {
  ot::reserve_standard_descriptors();
  if (argc == 1) {
    return ot::run_service();
  }
  const std::string_view command = argv[1];
  if (command == "show") {
    return ot::show(argc, argv);
  }
  if (argc == 2 && command == "--restore") {
    return ot::restore();
  }
  if (argc == 2 && command == "--help") {
    std::fputs(ot::usage, stdout);
    return 0;
  }
  if (argc == 2 && command == "--version") {
    std::puts("object_tracking " OT_VERSION);
    return 0;
  }
  std::fputs(ot::usage, stderr);
  return ot::usage_error;
}
