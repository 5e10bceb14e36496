// Names have no spaces.
#include "tools/trackpolicy/flap_records.h"

#include <sstream>

namespace ot::trackpolicy {

std::string text_of(const flap_records& all) {
  std::ostringstream text;
  for (const auto& [names, one] : all) {
    text << names.first << ' ' << names.second << ' ' << one.penalty << ' ' << one.flapped_us << ' '
         << one.suppressed_until_us << '\n';
  }
  return text.str();
}

flap_records read_flaps(const std::string& text) {
  flap_records all;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream parts(line);
    std::pair<std::string, std::string> names;
    flap_record one;
    if (parts >> names.first >> names.second >> one.penalty >> one.flapped_us >>
        one.suppressed_until_us) {
      all[names] = one;
    }
  }
  return all;
}

}  // namespace ot::trackpolicy
