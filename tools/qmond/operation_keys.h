// What can be said of an operation in the configuration file, and what is wrong with what is said.
#pragma once

#include <toml++/toml.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tools/qmond/config.h"

namespace ot::qmond {

// The problems found so far.
class problem_list {
 public:
  void add(const toml::source_region& place, std::string text);
  [[nodiscard]] std::size_t count() const noexcept { return found_.size(); }
  // By place in the file.
  [[nodiscard]] std::vector<problem> sorted() const;

 private:
  std::vector<problem> found_;
};

// The keys of [defaults]: those that operations of several kinds have.
void read_common_keys(const toml::table& table, operation* ret, problem_list& problems);

// An [[operation]]; `ret` comes with the defaults. Reports every problem that can be seen, also
// where the kind is none: then whatever any kind has is read. False when it has no usable id.
bool read_operation(const toml::table& table, operation* ret, problem_list& problems);

}  // namespace ot::qmond
