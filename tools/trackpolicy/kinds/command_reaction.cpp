// The order of things: a state waits, is told (with further attempts when the command fails), and
// is remembered as told. A state that was told and has not changed since is never told again; one
// whose command was interrupted is.
#include "tools/trackpolicy/kinds/command_reaction.h"

#include <algorithm>
#include <utility>

#include "tools/trackpolicy/kinds/command_memory.h"

namespace ot::trackpolicy {

command_reaction::command_reaction(const policy& of, host& on) : policy_(of), host_(on) {
  const command_memory kept = recall_command(host_, policy_);
  finished_ = kept.told;
  begun_ = kept.begun;
}

void command_reaction::remember() {
  remember_command(host_, policy_, {.told = finished_, .begun = begun_});
}

void command_reaction::see(const situation& now) {
  if (!waiting_.empty()) {
    if (waiting_.back().state != now.state) {
      wait_for(now);
    }
  } else if (current_) {
    if (current_->what.state != now.state) {
      wait_for(now);
    }
  } else if (begun_ || finished_ != now.state) {
    wait_for(now);
  }
  go_on();
}

// What is being told already needs no waiting, unless each state is to be told.
void command_reaction::wait_for(const situation& now) {
  if (!policy_.every) {
    waiting_.clear();
    if (current_ && current_->what.state == now.state) {
      return;
    }
  }
  waiting_.push_back(now);
  if (waiting_.size() > waiting_max) {
    waiting_.pop_front();
    if (report_.dropped++ == 0) {
      host_.log(policy_, "more than " + std::to_string(waiting_max) +
                             " states wait for the command; the oldest are dropped");
    }
  }
}

// Also when the time is up of a command that runs.
void command_reaction::due() {
  set_due(never);
  if (current_ && current_->running != 0) {
    current_->late = host_.end(current_->running);
    return;
  }
  go_on();
}

void command_reaction::go_on() {
  while (step()) {
  }
}

// Whether there may be more to do at once.
bool command_reaction::step() {
  if (!current_) {
    if (waiting_.empty()) {
      return false;
    }
    current_ = telling{.what = waiting_.front()};
    waiting_.pop_front();
  }
  if (current_->running != 0) {
    return false;
  }
  if (give_way()) {
    return true;
  }
  const bool told = !begun_ && finished_ == current_->what.state;
  if (told || command_for(policy_, current_->what.state).empty()) {
    finish(true);
    return true;
  }
  if (current_->not_before_us > host_.now_us()) {
    set_due(current_->not_before_us);
    return false;
  }
  return start();
}

// A state whose command has not begun, or has failed, is no longer told when there is a later one.
bool command_reaction::give_way() {
  if (policy_.every || waiting_.empty()) {
    return false;
  }
  current_.reset();
  set_due(never);
  return true;
}

words command_reaction::environment() const {
  const situation& what = current_->what;
  return {"OT_TRACK=" + policy_.track,
          std::string("OT_STATE=") + word_of(what.state),
          std::string("OT_PREVIOUS=") + word_of(finished_),
          "OT_SINCE=" + (what.since == 0 ? std::string() : std::to_string(what.since)),
          std::string("OT_REASON=") + what.reason,
          "OT_POLICY=" + policy_.name};
}

bool command_reaction::start() {
  if (!host_.has_room(*this, policy_)) {
    return false;
  }
  // Before it runs: who dies then must not have forgotten that it began.
  begun_ = true;
  remember();
  ++current_->attempts;
  std::string error;
  current_->running = host_.start(
      policy_, command_for(policy_, current_->what.state), environment(),
      [this](const command_end& how) { ended(how); }, &error);
  if (current_->running == 0) {
    attempt_failed("cannot be run: " + error);
    return true;
  }
  set_due(host_.now_us() + std::uint64_t{policy_.timeout_ms} * 1000);
  return false;
}

void command_reaction::ended(const command_end& how) {
  set_due(never);
  current_->running = 0;
  if (how.success && !current_->late) {
    report_.problem.clear();
    finish(true);
  } else {
    attempt_failed(current_->late ? "took too long and was ended" : how.text);
  }
  go_on();
}

void command_reaction::attempt_failed(const std::string& text) {
  current_->late = false;
  report_.problem = "the command for " + std::string(word_of(current_->what.state)) + ": " + text;
  const bool again = current_->attempts <= policy_.retry;
  host_.log(policy_, report_.problem + (again ? "; it is run again" : ""));
  if (again) {
    current_->not_before_us = host_.now_us() + std::uint64_t{policy_.retry_delay_ms} * 1000;
  } else {
    finish(false);
  }
}

void command_reaction::finish(bool success) {
  report_.runs += current_->attempts > 0 ? 1 : 0;
  report_.failures += success ? 0 : 1;
  finished_ = current_->what.state;
  begun_ = false;
  current_.reset();
  remember();
}

void command_reaction::remove() {
  if (current_ && current_->running != 0) {
    host_.abandon(current_->running);
  }
  host_.forget(policy_.name);
}

report command_reaction::status() const {
  report made = report_;
  if (current_) {
    made.doing = std::string(current_->running != 0   ? "runs"
                             : current_->attempts > 0 ? "waits to run again"
                                                      : "waits for room to run") +
                 " for " + word_of(current_->what.state);
  } else {
    made.doing = begun_ ? "was interrupted" : std::string("has seen ") + word_of(finished_);
  }
  if (!waiting_.empty()) {
    made.doing += ", " + std::to_string(waiting_.size()) + " waiting";
  }
  return made;
}

}  // namespace ot::trackpolicy
