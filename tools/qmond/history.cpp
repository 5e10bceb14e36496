// The history as a bar: its blocks grow by the round-trip time, in steps of about three.
#include "tools/qmond/history.h"

#include <algorithm>
#include <array>

namespace ot::qmond {

std::vector<std::uint32_t> history_levels(const statistics& result) {
  std::vector<std::uint32_t> levels;
  for (std::size_t i = 0; i < history_shown; ++i) {
    const std::uint32_t bits = result[word_history + i / 8] >> (i % 8 * 4) & 0xf;
    if (bits == 0) {
      break;
    }
    levels.push_back(bits);
  }
  std::reverse(levels.begin(), levels.end());
  return levels;
}

std::string history_bar(const statistics& result, bool utf8) {
  constexpr std::array blocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::array digits{"1", "2", "3", "4", "5", "6", "7", "8"};
  std::string bar;
  for (const std::uint32_t level : history_levels(result)) {
    const bool failed = level > blocks.size();
    bar += failed ? (utf8 ? "×" : "x") : (utf8 ? blocks : digits)[level - 1];
  }
  return bar;
}

}  // namespace ot::qmond
