// The frame of the probe service: starts with what needs privileges, drops them, and then turns the
// loop. A configuration with errors is never taken in part: at the start it ends the service, at a
// reload the one in force stays.
#include <fcntl.h>
#include <linux/capability.h>
#include <malloc.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <optional>
#include <system_error>

#include "platform/common/root_path.h"
#include "platform/linux/give_memory_back.h"
#include "platform/linux/process/directories.h"
#include "tools/daemon/line_offers.h"
#include "tools/daemon/lines.h"
#include "tools/qmond/config.h"
#include "tools/qmond/engine.h"
#include "tools/qmond/kinds/host.h"
#include "tools/qmond/qmond.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {
namespace {

constexpr const char* run_folder = "/run/qmond";
constexpr std::uint64_t heartbeat_us = 1000000;
// After a start and a reload, until operations have been probed a few times.
constexpr int beats_until_rest = 10;
// Operations that are due within this time are started together, which saves wake-ups.
constexpr std::uint64_t accuracy_us = 20000;

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

// Drops every capability, for this process and all that it starts, for good. After the ICMP sockets
// are open nothing needs one any more; without new privileges not even a program with the
// set-user-id bit, or any program of a root without capabilities, brings them back.
void drop_privileges() {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      syscall(SYS_capset, &header, none.data()) != 0) {
    fail(errno, "privileges cannot be dropped");
  }
}

struct loop_deleter {
  void operator()(sd_event* loop) const noexcept { sd_event_unref(loop); }
};

std::unique_ptr<sd_event, loop_deleter> new_loop() {
  sd_event* loop = nullptr;
  if (const int r = sd_event_new(&loop); r < 0) {
    fail(-r, "no event loop");
  }
  return std::unique_ptr<sd_event, loop_deleter>(loop);
}

// Holds the instance's lock as long as it lives; a second one on the same prefix is refused.
unique_fd lock_instance() {
  const std::string folder = root_path(run_folder);
  std::string error;
  if (make_directory(folder, 0750, error) != 0) {
    throw failure(exit_failed, error);
  }
  unique_fd lock = open_own_file(folder + "/lock", O_RDWR | O_CREAT, 0600, error);
  if (!lock.valid()) {
    throw failure(exit_failed, error);
  }
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    throw failure(exit_failed, "another qmond runs below " + folder);
  }
  return lock;
}

// Prints what forbids to run the configuration; whether nothing does. Root's commands could do all
// that commands must not be able to do.
bool usable(const std::string& path, const configuration& config, const daemon_options& options) {
  bool good = config.problems.empty();
  for (const problem& what : config.problems) {
    say(problem_text(path, what));
  }
  if (geteuid() != 0 || options.commands_as_root) {
    return good;
  }
  for (const operation& each : config.operations) {
    if (each.kind == kind_id::command) {
      say(path + ": operation " + std::to_string(each.id) +
          " would run its command as root; run qmond as a user of its own, as its unit does, or "
          "with --commands-as-root");
      good = false;
    }
  }
  return good;
}

// Reading the file takes several times the memory of what is read. That goes back before the
// operations are made, which would otherwise lie scattered in it.
configuration read_alone(const std::string& path) {
  configuration read = read_config(path);
  malloc_trim(0);
  return read;
}

class daemon {
 public:
  daemon(std::string config_file, const configuration& config, const daemon_options& options)
      : config_file_(std::move(config_file)),
        options_(options),
        loop_(new_loop()),
        lines_(loop_.get()),
        host_(loop_.get()),
        engine_(
            root_path(statistics_path),
            {.start = [this](const operation& what,
                             probe_done done) { return start_probe(host_, what, std::move(done)); },
             .now_us = monotonic_us,
             .wall_clock = [] { return static_cast<std::uint32_t>(std::time(nullptr)); }}) {
    close_on_exec();
    drop_privileges();
    engine_.apply(config.operations);
    share_table();
  }

  void run() {
    watch_signals();
    watch_times();
    sd_event_set_watchdog(loop_.get(), 1);  // only where the service manager asks for it
    malloc_trim(0);
    sd_notify(0, "READY=1");
    while (!stopped_) {
      set_due();
      if (const int r = sd_event_run(loop_.get(), UINT64_MAX); r < 0 && r != -EINTR) {
        fail(-r, "event loop");
      }
    }
    sd_notify(0, "STOPPING=1");
  }

 private:
  // Targets decide how busy descriptors are; what is due, the heartbeat and the operator wait for
  // none of them.
  void watch_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    const auto stop = [this](std::uint32_t) { stopped_ = true; };
    terminate_ = loop_source::signal(loop_.get(), SIGTERM, stop);
    interrupt_ = loop_source::signal(loop_.get(), SIGINT, stop);
    hang_up_ = loop_source::signal(loop_.get(), SIGHUP, [this](std::uint32_t) {
      reload();
      malloc_trim(0);
      beats_left_ = beats_until_rest;
    });
    for (loop_source* const each : {&terminate_, &interrupt_, &hang_up_}) {
      each->make_urgent();
    }
  }

  void watch_times() {
    due_ = loop_source::timer(loop_.get(), UINT64_MAX, accuracy_us,
                              [this](std::uint32_t) { run_due(); });
    beat_ = loop_source::timer(loop_.get(), 0, accuracy_us, [this](std::uint32_t) {
      engine_.beat();
      come_to_rest();
      beat_.set_time(monotonic_us() + heartbeat_us);
    });
    due_.make_urgent();
    beat_.make_urgent();
  }

  void come_to_rest() noexcept {
    if (beats_left_ > 0 && --beats_left_ == 0) {
      give_memory_back();
    }
  }

  // Where there is more to start than there is time, answers are still read for half of it.
  void run_due() {
    const std::uint64_t begun_us = monotonic_us();
    engine_.run_due();
    const std::uint64_t ended_us = monotonic_us();
    due_not_before_us_ = ended_us + (ended_us - begun_us);
    due_us_ = 0;
  }

  void set_due() {
    const std::uint64_t next_us =
        std::max(engine_.next_due_us().value_or(UINT64_MAX), due_not_before_us_);
    if (next_us != due_us_) {
      due_.set_time(next_us);
      due_us_ = next_us;
    }
  }

  // The service reads the table as a member of its group, if it is no root.
  static void share_table() {
    const std::string path = root_path(statistics_path);
    if (const int error = share_with_group(path, 0640); error != 0) {
      fail(error, path);
    }
  }

  void reload() {
    const std::string begun = "RELOADING=1\nMONOTONIC_USEC=" + std::to_string(monotonic_us());
    sd_notify(0, begun.c_str());
    host_.names.refresh();
    const configuration config = read_alone(config_file_);
    if (!usable(config_file_, config, options_)) {
      say("qmond: not reloaded; the configuration in force stays");
    } else {
      take_over(config);
    }
    sd_notify(0, "READY=1");
  }

  void take_over(const configuration& config) {
    try {
      const difference made = engine_.apply(config.operations);
      share_table();
      say("qmond: reloaded: " + std::to_string(made.added) + " operations added, " +
          std::to_string(made.changed) + " changed, " + std::to_string(made.removed) +
          " removed, " + std::to_string(made.kept) + " kept");
    } catch (const std::system_error& error) {
      say(std::string("qmond: not reloaded: ") + error.what());
    }
  }

  std::string config_file_;
  daemon_options options_;
  std::unique_ptr<sd_event, loop_deleter> loop_;
  const line_offers lines_;
  probe_host host_;
  engine engine_;
  loop_source due_;
  std::uint64_t due_us_ = 0;  // when it will call; 0: it has called
  std::uint64_t due_not_before_us_ = 0;
  loop_source beat_;
  int beats_left_ = beats_until_rest;
  loop_source terminate_;
  loop_source interrupt_;
  loop_source hang_up_;
  bool stopped_ = false;
};

}  // namespace

int run_daemon(const daemon_options& options) {
  umask(0027);
  const std::string path = root_path(config_path);
  std::optional<configuration> config = read_alone(path);
  if (!usable(path, *config, options)) {
    finish_saying();
    throw failure(exit_failed, "the configuration has errors; nothing was started");
  }
  const unique_fd lock = lock_instance();
  daemon service(path, *config, options);
  config.reset();  // the engine has it all
  service.run();
  finish_saying();
  return exit_done;
}

}  // namespace ot::qmond
