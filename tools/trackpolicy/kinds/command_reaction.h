// A command policy at work. One command of a policy runs at a time; meanwhile the latest state
// waits, or each one where the policy says so. What the command has been told last is remembered.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "tools/trackpolicy/reaction.h"

namespace ot::trackpolicy {

class command_reaction : public reaction {
 public:
  static constexpr std::size_t waiting_max = 64;

  // Ends a command that an earlier trackpolicy was running; it counts as one that nobody has run.
  command_reaction(const policy& of, host& on);

  void see(const situation& now) override;
  void due() override;
  void change(const policy& to) override { policy_ = to; }
  void remove() override;
  [[nodiscard]] report status() const override;

 private:
  // The state that is being told.
  struct telling {
    situation what;
    std::uint32_t attempts = 0;
    pid_t running = 0;
    bool late = false;
    std::uint64_t not_before_us = 0;
  };

  void remember();
  void wait_for(const situation& now);
  void go_on();
  bool step();
  bool give_way();
  bool start();
  [[nodiscard]] words environment() const;
  void ended(const command_end& how);
  void attempt_failed(const std::string& text);
  void finish(bool success);

  policy policy_;
  host& host_;
  track_state finished_ = track_state::unknown;  // what was told last, or needed no telling
  bool begun_ = false;  // a command began after that, and its end is not known
  std::optional<telling> current_;
  std::deque<situation> waiting_;
  report report_;
};

}  // namespace ot::trackpolicy
