// trackctl-watch: the live table, which `trackctl watch` runs. It waits for events, keys, signals
// and the next second at once: signals are let in only while it waits, so that none is overlooked.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>

#include "tools/trackctl/command.h"
#include "tools/trackctl/live_tracks.h"
#include "tools/trackctl_watch/screen.h"

namespace ot::trackctl {
namespace {

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

volatile sig_atomic_t ended_by = 0;

void note_end(int signal) {
  ended_by = signal;
}

// Blocks the signals that matter here; `ret_waiting`: the mask under which they come.
void catch_signals(sigset_t* ret_waiting) {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGWINCH);
  struct sigaction action {};
  action.sa_handler = note_end;
  for (const int signal : ending_signals) {
    sigaddset(&blocked, signal);
    sigaction(signal, &action, nullptr);
  }
  sigprocmask(SIG_BLOCK, &blocked, ret_waiting);
}

// Ends by the signal, as whoever sent it expects; the terminal has been given back.
[[noreturn]] void die_by(int signal) {
  ::signal(signal, SIG_DFL);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  ::raise(signal);
  sigprocmask(SIG_UNBLOCK, &one, nullptr);
  _exit(128 + signal);
}

// Milliseconds to the next second of the wall clock.
timespec until_next_second() {
  const auto now = std::chrono::system_clock::now();
  const auto next = std::chrono::floor<std::chrono::seconds>(now) + std::chrono::seconds(1);
  return {0, static_cast<long>(std::chrono::nanoseconds(next - now).count() % 1'000'000'000)};
}

std::size_t scrolled(key pressed, std::size_t first, std::size_t rows, std::size_t tracks) {
  const std::size_t last = tracks > rows ? tracks - rows : 0;
  const auto back = [first](std::size_t step) { return first - std::min(first, step); };
  switch (pressed) {
    case key::up:
      return back(1);
    case key::page_up:
      return back(rows);
    case key::down:
      return std::min(first + 1, last);
    case key::page_down:
      return std::min(first + rows, last);
    case key::home:
      return 0;
    case key::end:
      return last;
    default:
      return std::min(first, last);
  }
}

// Until somebody quits; the signal, or 0.
int watch(live_tracks& live, const sigset_t& waiting) {
  terminal_screen screen;
  std::size_t first = 0;
  for (;;) {
    live_screen size = screen.size();
    size.first = first = scrolled(key::none, first, live_rows(size), live.tracks().size());
    screen.draw(live_lines(live.tracks(), live.history(), std::chrono::system_clock::now(), size));
    pollfd states[] = {{STDIN_FILENO, POLLIN, 0}, {live.descriptor(), POLLIN, 0}};
    const timespec pause = until_next_second();
    (void)ppoll(states, 2, &pause, &waiting);
    if (ended_by != 0 || (states[0].revents & (POLLHUP | POLLERR)) != 0) {
      return ended_by != 0 ? ended_by : SIGHUP;
    }
    for (key pressed = screen.next_key(); pressed != key::none; pressed = screen.next_key()) {
      if (pressed == key::quit) {
        return 0;
      }
      first = scrolled(pressed, first, live_rows(screen.size()), live.tracks().size());
    }
    live.take_events();
    live.refresh();
  }
}

// Only whoever runs the program itself gives options; trackctl has looked at its own.
int run(const arguments& args) {
  if (args == arguments{"--version"}) {
    std::cout << "trackctl-watch " OT_VERSION "\n";
    return exit_done;
  }
  if (args == arguments{"--help"}) {
    std::cout << "usage: trackctl-watch [--] [NAME...]     as `trackctl watch`, which runs this\n"
                 "       trackctl-watch --help | --version\n";
    return exit_done;
  }
  const bool marked = !args.empty() && args.front() == "--";
  const arguments names(args.begin() + (marked ? 1 : 0), args.end());
  for (const std::string& name : names) {
    if (!marked && name.starts_with('-')) {
      throw failure(exit_usage, "watch: there is no option \"" + name +
                                    "\"; `trackctl-watch --help` tells more");
    }
  }
  sigset_t waiting;
  catch_signals(&waiting);
  live_tracks live(names);
  if (const int signal = watch(live, waiting); signal != 0) {
    die_by(signal);
  }
  return exit_done;
}

}  // namespace
}  // namespace ot::trackctl

int main(int argc, char** argv) {
  return ot::run_program("trackctl", argc, argv, ot::trackctl::run);
}
