// sd-event behind owners. The function to call is shared with the call that is in progress, so that
// a callback may end its own source. The source itself ends at once: one that outlived its
// descriptor would take the watch from whoever gets the descriptor's number next, and would itself
// stay watched, though freed, while another process holds what the descriptor stood for.
#include "tools/daemon/loop.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <system_error>

namespace ot {
namespace {

// Memory may be what is lacking, and who reads may be stuck.
void say_last(const char* what) noexcept {
  pollfd reader{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  if (poll(&reader, 1, 0) == 1) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what);
  }
}

}  // namespace

struct loop_source::state : std::enable_shared_from_this<state> {
  explicit state(callback to_call) : call(std::move(to_call)) {}
  ~state() = default;
  state(const state&) = delete;
  state& operator=(const state&) = delete;

  // Nothing may be thrown through the C library's loop. What is not handled where it happens, such
  // as no memory, ends the process; the service manager starts it anew.
  static int run(void* context, std::uint32_t events) {
    try {
      const std::shared_ptr<state> kept = static_cast<state*>(context)->shared_from_this();
      kept->call(events);
    } catch (const std::exception& error) {
      say_last(error.what());
      std::abort();
    }
    return 0;
  }

  sd_event_source* source = nullptr;
  const callback call;
};

loop_source& loop_source::operator=(loop_source&& other) noexcept {
  if (this != &other) {
    end();
    state_ = std::move(other.state_);
  }
  return *this;
}

void loop_source::end() noexcept {
  if (state_ != nullptr) {
    state_->source = sd_event_source_disable_unref(state_->source);
    state_.reset();
  }
}

loop_source loop_source::added(std::shared_ptr<state> made, int result) {
  if (result < 0) {
    throw std::system_error(-result, std::generic_category(), "event loop");
  }
  return loop_source(std::move(made));
}

loop_source loop_source::descriptor(sd_event* loop, int fd, std::uint32_t events, callback call) {
  const auto made = std::make_shared<state>(std::move(call));
  return added(made, sd_event_add_io(
                         loop, &made->source, fd, events,
                         [](sd_event_source*, int, std::uint32_t came, void* context) {
                           return state::run(context, came);
                         },
                         made.get()));
}

loop_source loop_source::timer(sd_event* loop, std::uint64_t time_us, std::uint64_t accuracy_us,
                               callback call) {
  const auto made = std::make_shared<state>(std::move(call));
  return added(made, sd_event_add_time(
                         loop, &made->source, CLOCK_MONOTONIC, time_us, accuracy_us,
                         [](sd_event_source*, std::uint64_t, void* context) {
                           return state::run(context, 0);
                         },
                         made.get()));
}

loop_source loop_source::signal(sd_event* loop, int number, callback call) {
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, number);
  sigprocmask(SIG_BLOCK, &one, nullptr);
  const auto made = std::make_shared<state>(std::move(call));
  return added(made, sd_event_add_signal(
                         loop, &made->source, number,
                         [](sd_event_source*, const signalfd_siginfo*, void* context) {
                           return state::run(context, 0);
                         },
                         made.get()));
}

loop_source loop_source::child(sd_event* loop, pid_t pid, callback call) {
  const auto made = std::make_shared<state>(std::move(call));
  return added(made, sd_event_add_child(
                         loop, &made->source, pid, WEXITED,
                         [](sd_event_source*, const siginfo_t* info, void* context) {
                           const bool good = info->si_code == CLD_EXITED && info->si_status == 0;
                           return state::run(context, good ? 0 : 1);
                         },
                         made.get()));
}

void loop_source::make_urgent() noexcept {
  sd_event_source_set_priority(state_->source, SD_EVENT_PRIORITY_IMPORTANT);
}

void loop_source::set_events(std::uint32_t events) noexcept {
  sd_event_source_set_io_events(state_->source, events);
}

void loop_source::set_time(std::uint64_t time_us) noexcept {
  sd_event_source_set_time(state_->source, time_us);
  sd_event_source_set_enabled(state_->source, SD_EVENT_ONESHOT);
}

}  // namespace ot
