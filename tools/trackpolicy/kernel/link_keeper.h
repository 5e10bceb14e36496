// Which interfaces policies want down, and which of those we have set down ourselves: only these
// are set up again. Knows no sockets.
//
// What is set down is remembered before it happens, and forgotten after it is up again, so that
// whoever comes after a crash knows it. By name and index: an interface that has come back under
// its name is another one, which nobody has set down, and one with a new name is still the same.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/trackpolicy/foundations.h"
#include "tools/trackpolicy/kernel/links.h"
#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kernel/refusals.h"

namespace ot::trackpolicy {

using held_links = std::map<std::string, std::uint32_t>;  // those that we have set down: the index

// Who changes interfaces, remembers, and hears of trouble.
class link_kernel : public listener {
 public:
  [[nodiscard]] virtual std::uint64_t now_us() const = 0;
  // 0 or an errno value. The table of interfaces changes later, with the kernel's event.
  virtual int set_up(std::uint32_t index, bool up) = 0;
  // Empty, or why it cannot be remembered.
  virtual std::string remember(const held_links& held) = 0;
};

// Why a track would never be up again with the interface down; empty: it might.
std::string reason_against(const std::string& track, const std::string& interface,
                           const link_table& links, const foundations& tracks);

class link_keeper {
 public:
  // So long one waits with doing again what somebody has undone.
  static constexpr std::uint64_t again_us = 1'000'000;

  // What an earlier trackpolicy has remembered.
  void recall(held_links held) { held_ = std::move(held); }
  [[nodiscard]] const held_links& held() const noexcept { return held_; }

  void set(const std::string& owner, const std::string& track, const std::string& interface,
           wish up);
  void forget(const std::string& owner) { rows_.erase(owner); }
  [[nodiscard]] outcome status(const std::string& owner, const link_table& links) const;
  [[nodiscard]] bool has_owners() const noexcept { return !rows_.empty(); }

  // Compares all and acts on differences. When to come again; UINT64_MAX: nothing is left.
  std::uint64_t settle(const link_table& links, const foundations& tracks, link_kernel& kernel);

 private:
  struct row {
    std::string track;
    std::string interface;
    wish up = wish::keep;
    refusals refused;
    std::uint64_t changes = 0;
  };
  using rows = std::map<std::string, row>;  // by owner
  struct act {
    bool up = false;
    std::uint64_t when_us = 0;
    std::string refusal;  // why it did not succeed
  };

  void follow_names(const link_table& links, link_kernel& kernel);
  std::map<std::string, wish> wishes(const link_table& links, const foundations& tracks,
                                     link_kernel& kernel);
  std::uint64_t bring(const std::string& interface, const link_table& links, wish up,
                      link_kernel& kernel);
  std::uint64_t change(const link_fact& link, bool up, link_kernel& kernel);
  std::string set_down(const link_fact& link, link_kernel& kernel);
  std::string set_up(const link_fact& link, link_kernel& kernel);
  void refuse(const std::string& interface, const std::string& text, link_kernel& kernel);

  rows rows_;
  held_links held_;
  std::map<std::string, act> acts_;  // the latest of each interface
};

}  // namespace ot::trackpolicy
