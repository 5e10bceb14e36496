// What bfdd's answers, and the lines of its log, lead to.
#include <cstdio>
#include <utility>
#include <vector>

#include "platform/linux/bfd/frr_vty/engine.h"
#include "platform/linux/monotonic.h"

namespace ot::bfd {
namespace {

// After a session has moved. Many may move at once, and a list of all is work for bfdd.
constexpr std::uint64_t look_after_usec = 50'000;

}  // namespace

bool vty_engine::took_enable(const vty::answer_reader& answer) {
  return answer.succeeded();
}

// Without it the lists remain.
bool vty_engine::took_monitor(const vty::answer_reader& answer) {
  if (!answer.succeeded() || !descriptor_.valid()) {
    return true;
  }
  return monitor_.open(manager_, std::move(descriptor_));
}

// "FRRouting 10.3 (router) on Linux(6.12)."
bool vty_engine::took_version(const vty::answer_reader& answer) {
  constexpr std::string_view head = "FRRouting ";
  const std::size_t begin = answer.text().find(head);
  fixed_text<24> version;
  if (begin != std::string_view::npos) {
    const std::string_view rest = answer.text().substr(begin + head.size());
    version.assign(rest.substr(0, rest.find_first_of(" \r\n")));
  }
  if (!version.empty()) {
    char name[decltype(status_.name)::capacity];
    std::snprintf(name, sizeof name, "FRR %s, vty socket", version.c_str());
    status_.name.assign(name);
  }
  return true;
}

bool vty_engine::took_configuration(const vty::answer_reader& answer) {
  if (!answer.succeeded()) {
    return false;
  }
  const vty::running_configuration configuration = vty::read_configuration(answer.text());
  const bool our_log = sessions_.take_configuration(configuration);
  log_on_ = configuration.logs_sessions;
  our_log_ = log_on_ && (our_log_ || our_log);
  log_refused_ = false;
  configuration_looked_ = true;
  due(question::sessions);
  return true;
}

bool vty_engine::took_sessions(const vty::answer_reader& answer) {
  std::vector<vty::listed_session> listed;
  if (!answer.succeeded() || !vty::read_sessions(answer.text(), &listed)) {
    return false;
  }
  if (!status_.running) {
    look_at_addresses(&addresses_);
    set_status(true, "bfdd runs here");
    tick_.start(0);
  }
  sessions_.take_sessions(listed, moves_before_);
  if (std::exchange(configuration_looked_, false)) {
    sessions_.looked();
  }
  return true;
}

bool vty_engine::took_counters(const vty::answer_reader& answer) {
  std::vector<vty::listed_counters> listed;
  if (!answer.succeeded() || !vty::read_counters(answer.text(), &listed)) {
    return false;
  }
  sessions_.take_counters(listed);
  return true;
}

bool vty_engine::took_log(const vty::answer_reader& answer) {
  log_refused_ = !answer.succeeded();
  log_on_ = log_on_ != answer.succeeded();
  our_log_ = log_on_ && answer.succeeded();
  return true;
}

void vty_engine::change_done(const vty::change& what, const vty::change_outcome& outcome) {
  sessions_.done(what, outcome, monotonic_ms());
  changed_ = true;
}

void vty_engine::session_moved(const vty::session_move& move) noexcept {
  sessions_.moved(move);
  if (!look_soon_.running()) {
    look_soon_.start(look_after_usec);
  }
}

void vty_engine::log_lost() noexcept {
  if (!look_soon_.running()) {
    look_soon_.start(look_after_usec);
  }
}

}  // namespace ot::bfd
