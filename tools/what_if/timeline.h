// What becomes of the published states from some moment on.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "tools/what_if/question.h"

namespace ot::what_if {

class timeline {
 public:
  // Time counts from now, and from the states that the tracks have now.
  void begin();
  // Adds what has changed since the last look, as of now.
  void look(answer& ret);

 private:
  using states = std::map<std::string, std::string, std::less<>>;
  static states states_now();

  std::uint64_t began_ns_ = 0;
  states known_;
};

}  // namespace ot::what_if
