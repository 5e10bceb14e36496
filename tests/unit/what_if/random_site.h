// Random configurations of interface tracks and lists, and what happens to them, for properties of
// what-if. All of it by chance from one seed.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "platform/ledger_commit.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {

class random_site {
 public:
  explicit random_site(std::uint64_t seed) : chance_(seed) {}

  // From 0 to one less than `count`.
  std::uint32_t below(std::uint32_t count) { return static_cast<std::uint32_t>(chance_() % count); }

  // The items of a few tracks on interfaces and of a few lists, of which some contain each other or
  // members that are not there.
  std::vector<ledger_proposal> make_configuration();
  // The items of a track of that name, of any of these kinds.
  std::vector<ledger_proposal> make_track(const std::string& name);
  std::vector<ledger_proposal> make_list(const std::string& name);

  // An interface goes up or down; it is made when it is not there.
  void flap();
  void bring(const std::string& interface, bool up);

  // Up to a few seconds, in whole milliseconds; never so few that lists are not computed.
  std::uint32_t pause_ms() { return 25 + below(3000); }

  [[nodiscard]] const std::vector<std::string>& follower_names() const { return followers_; }
  [[nodiscard]] static std::string interface_of(const std::string& follower) {
    return "eth" + follower.substr(1);
  }

 private:
  std::string member_name();
  void add_delays(const std::string& name, std::vector<ledger_proposal>& items);

  std::mt19937_64 chance_;
  std::vector<std::string> followers_;   // tracks on interfaces, "f0" on "eth0"
  std::vector<std::string> interfaces_;  // that are there
};

}  // namespace ot::test
