// Policies that the kernel carries out, as far as they are the same.
#include "tools/trackpolicy/kinds/keeping.h"

#include <cstddef>

namespace ot::trackpolicy {
namespace {

constexpr std::size_t name_max = 15;

}  // namespace

void keeping_reaction::see(const situation& now) {
  known_ = true;
  state_ = now.state;
  ask();
}

void keeping_reaction::change(const policy& to) {
  policy_ = to;
  ask();
}

report report_of(const outcome& now) {
  report made;
  made.problem = now.problem;
  made.runs = now.changes;
  made.failures = now.refusals;
  return made;
}

std::string interface_value(const toml::node& node) {
  std::string name = settings::text_value(node);
  if (name.size() > name_max || name.find_first_of(" \t\n/") != std::string::npos) {
    throw settings::value_error("must be the name of an interface, of at most 15 characters");
  }
  return name;
}

}  // namespace ot::trackpolicy
