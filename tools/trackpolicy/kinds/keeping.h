// What the kinds share that have the kernel keep something: a route, an interface.
#pragma once

#include <string>

#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {

// Asks for what follows from the state, whenever that or the policy changes; the constructor of
// what is derived from it asks first. Nothing of it has a time.
class keeping_reaction : public reaction {
 public:
  keeping_reaction(const policy& of, host& on) : policy_(of), host_(on) {}

  void see(const situation& now) override;
  void due() override {}
  void change(const policy& to) override;

 protected:
  virtual void ask() = 0;
  [[nodiscard]] network& net() const { return host_.net(); }
  [[nodiscard]] const policy& of() const noexcept { return policy_; }
  [[nodiscard]] track_state state() const noexcept { return state_; }
  [[nodiscard]] bool known() const noexcept { return known_; }  // whether there was a state yet

 private:
  policy policy_;
  host& host_;
  bool known_ = false;
  track_state state_ = track_state::unknown;
};

// How it stands, but for what it is doing.
report report_of(const outcome& now);

// The name of an interface, or of a VRF.
std::string interface_value(const toml::node& node);

}  // namespace ot::trackpolicy
