// What stands against a thing that a policy asked for. It is said once, however often it is tried.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace ot::trackpolicy {

class listener {
 public:
  virtual ~listener() = default;
  virtual void tell(const std::string& owner, const std::string& text) = 0;
};

struct refusals {
  std::string problem;  // empty: none
  std::string told;     // the one that was told last
  std::uint64_t count = 0;
  // It was as asked for. When it goes and is refused then, its way is often going, too, and the
  // track's event on its way: that is not told before it is refused once more.
  bool was_there = false;

  void refuse(const std::string& owner, const std::string& text, listener& to) {
    problem = text;
    if (!std::exchange(was_there, false) && std::exchange(told, text) != text) {
      ++count;
      to.tell(owner, text);
    }
  }
};

}  // namespace ot::trackpolicy
