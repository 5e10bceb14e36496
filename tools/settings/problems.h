// What is wrong with a configuration file, and where. Every error is reported, and not only the
// first.
#pragma once

#include <toml++/toml.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ot::settings {

struct problem {
  std::uint32_t line = 0;  // 1 is the first; 0 the file as a whole
  std::uint32_t column = 0;
  std::string text;
};

// "FILE:LINE:COLUMN: text".
std::string problem_text(const std::string& path, const problem& what);

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

}  // namespace ot::settings
