// Everything that a list stands on, by numbers, so that it can be computed many times: with some of
// the objects that its tracks follow in another state.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "tools/trackctl/explain/facts.h"

namespace ot::trackctl::explain {

class trial {
 public:
  // `list` is one of the tracks, which outlive this.
  trial(const site& tracks, const std::string& list);

  // Whether a list that it stands on contains itself through others: such lists are not computed.
  [[nodiscard]] bool cyclic() const noexcept { return cyclic_; }

  // What tracks follow, each by the first track that was found on it.
  [[nodiscard]] std::span<const std::string> objects() const noexcept { return objects_; }
  // The number of the object of a track; that of none when it has none that could change.
  [[nodiscard]] std::size_t object_of(const std::string& track) const;
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  // Whether not all tracks on the object are in that state now.
  [[nodiscard]] bool can_turn(std::size_t object, bool up) const;

  struct turn {
    std::size_t object;
    bool up;
  };
  // Whether the list is up once everything was computed with these.
  [[nodiscard]] bool is_up_with(std::span<const turn> turns);
  // How much that computes.
  [[nodiscard]] std::size_t cost() const noexcept { return cost_; }

 private:
  struct node {
    const track_facts* track;
    std::size_t object = none;
    std::vector<std::size_t> members;  // the numbers of nodes; none for a missing one
  };
  enum class progress { begun, done };

  std::size_t add(const std::string& name, const track_facts& track);
  void add_object(const std::string& name, node& of);

  const site& tracks_;
  std::vector<node> nodes_;  // members before their lists; the list itself is the last
  std::map<std::string, std::size_t, std::less<>> numbers_;
  std::map<std::string, std::size_t, std::less<>> by_words_;  // objects
  std::map<std::string, progress, std::less<>> progress_;
  std::vector<std::string> objects_;
  std::vector<char> up_;  // by node
  std::size_t cost_ = 1;
  bool cyclic_ = false;
};

}  // namespace ot::trackctl::explain
