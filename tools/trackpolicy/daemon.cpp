// The frame of trackpolicy. A configuration with errors is never taken in part: at the start it
// ends the process, at a reload the one in force stays.
#include "tools/trackpolicy/daemon.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <set>
#include <string>
#include <system_error>

#include "platform/common/root_path.h"
#include "platform/linux/give_memory_back.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/short_slices.h"
#include "tools/daemon/line_offers.h"
#include "tools/daemon/lines.h"
#include "tools/trackpolicy/config.h"
#include "tools/trackpolicy/engine.h"
#include "tools/trackpolicy/failure.h"
#include "tools/trackpolicy/follower.h"
#include "tools/trackpolicy/kinds/command_memory.h"
#include "tools/trackpolicy/status_socket.h"
#include "tools/trackpolicy/system.h"

namespace ot::trackpolicy {
namespace {

constexpr std::uint64_t accuracy_us = 5000;

struct loop_deleter {
  void operator()(sd_event* loop) const noexcept { sd_event_unref(loop); }
};
using loop_owner = std::unique_ptr<sd_event, loop_deleter>;

loop_owner new_loop() {
  sd_event* loop = nullptr;
  if (const int r = sd_event_new(&loop); r < 0) {
    throw std::system_error(-r, std::generic_category(), "no event loop");
  }
  return loop_owner(loop);
}

// Holds the instance's lock as long as it lives; a second one on the same prefix is refused.
unique_fd lock_instance() {
  const std::string folder = root_path(run_directory);
  std::string error;
  if (make_directory(folder, 0750, error) != 0) {
    throw failure(exit_failed, error);
  }
  unique_fd lock = open_own_file(folder + "/policy.lock", O_RDWR | O_CREAT, 0600, error);
  if (!lock.valid()) {
    throw failure(exit_failed, error);
  }
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    throw failure(exit_failed, "another trackpolicy runs below " + folder);
  }
  return lock;
}

bool usable(const configuration& config) {
  for (const std::string& problem : config.problems) {
    say(problem);
  }
  return config.problems.empty();
}

class daemon {
 public:
  explicit daemon(const std::vector<policy>& policies)
      : loop_(new_loop()), lines_(loop_.get()), host_(loop_.get()), engine_(host_) {
    host_.prepare(policies);
    forget_others(host_, policies);
    engine_.recall_flaps();
    engine_.apply(policies);
    watch_signals();
    due_ = loop_source::timer(loop_.get(), UINT64_MAX, accuracy_us, [this](std::uint32_t) {
      due_us_ = 0;
      engine_.run_due();
    });
    socket_ = std::make_unique<status_socket>(loop_.get(),
                                              [this] { return status_json(engine_.status()); });
    follower_ = std::make_unique<follower>();
    guard_tracks(policies);
    news_ = loop_source::descriptor(loop_.get(), follower_->fd(), EPOLLIN,
                                    [this](std::uint32_t) { take_news(); });
  }

  void run() {
    sd_event_set_watchdog(loop_.get(), 1);  // only where the service manager asks for it
    give_memory_back();
    sd_notify(0, "READY=1");
    while (!stopped_) {
      turn();
    }
    sd_notify(0, "STOPPING=1");
    news_ = {};
    if (!host_.end_all()) {
      while (!host_.idle()) {
        turn();
      }
    }
  }

 private:
  void watch_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    const auto stop = [this](std::uint32_t) { stopped_ = true; };
    terminate_ = loop_source::signal(loop_.get(), SIGTERM, stop);
    interrupt_ = loop_source::signal(loop_.get(), SIGINT, stop);
    hang_up_ = loop_source::signal(loop_.get(), SIGHUP, [this](std::uint32_t) { reload(); });
  }

  void turn() {
    const std::uint64_t next_us = stopped_ ? UINT64_MAX : engine_.next_due_us();
    if (next_us != due_us_) {
      due_.set_time(next_us);
      due_us_ = next_us;
    }
    if (const int r = sd_event_run(loop_.get(), UINT64_MAX); r < 0 && r != -EINTR) {
      throw std::system_error(-r, std::generic_category(), "event loop");
    }
    engine_.remember_flaps();
  }

  void take_news() {
    for (news& each : follower_->take()) {
      if (each.tracks) {
        host_.take_foundations(std::move(*each.tracks));
      }
      switch (each.kind) {
        case news::what::states:
          engine_.set_states(std::move(each.states), each.reason);
          break;
        case news::what::change:
          engine_.change(each.track, each.state);
          break;
        case news::what::gone:
          engine_.service_gone();
          break;
      }
    }
  }

  // What a track stands on is not set down because of it.
  void guard_tracks(const std::vector<policy>& policies) {
    std::set<std::string> guarded;
    for (const policy& each : policies) {
      if (each.kind == kind_id::link) {
        guarded.insert(each.track);
      }
    }
    follower_->guard(std::move(guarded));
  }

  void reload() {
    const std::string begun = "RELOADING=1\nMONOTONIC_USEC=" + std::to_string(monotonic_us());
    sd_notify(0, begun.c_str());
    const configuration config = read_policies(root_path(policies_folder));
    if (usable(config)) {
      host_.prepare(config.policies);
      engine_.apply(config.policies);
      guard_tracks(config.policies);
      say("trackpolicy: reloaded: " + std::to_string(engine_.size()) + " policies");
    } else {
      say("trackpolicy: not reloaded; the policies in force stay");
    }
    give_memory_back();
    sd_notify(0, "READY=1");
  }

  loop_owner loop_;
  const line_offers lines_;
  system_host host_;
  engine engine_;
  std::unique_ptr<status_socket> socket_;
  std::unique_ptr<follower> follower_;
  loop_source news_;
  loop_source due_;
  std::uint64_t due_us_ = UINT64_MAX;
  loop_source terminate_;
  loop_source interrupt_;
  loop_source hang_up_;
  bool stopped_ = false;
};

}  // namespace

int run_daemon() {
  umask(0022);
  ask_for_short_slices(500);  // commands begin soon after their event, on a busy router, too
  const configuration config = read_policies(root_path(policies_folder));
  if (!usable(config)) {
    finish_saying();
    throw failure(exit_failed, "the policies have errors; nothing was started");
  }
  const unique_fd lock = lock_instance();
  daemon runner(config.policies);
  runner.run();
  finish_saying();
  return exit_done;
}

}  // namespace ot::trackpolicy
