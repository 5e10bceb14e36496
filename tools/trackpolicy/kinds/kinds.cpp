// The list of all kinds.
#include "tools/trackpolicy/kinds/kinds.h"

#include <algorithm>
#include <array>

namespace ot::trackpolicy {
namespace {

constexpr std::array<std::reference_wrapper<const kind>, 5> kinds{command_kind, file_kind,
                                                                  route_kind, link_kind, frr_kind};

}  // namespace

std::span<const std::reference_wrapper<const kind>> all_kinds() noexcept {
  return kinds;
}

const kind& kind_of(kind_id id) noexcept {
  return *std::find_if(kinds.begin(), kinds.end(), [id](const kind& row) { return row.id == id; });
}

const kind* find_kind(std::string_view word) noexcept {
  const auto* const found = std::find_if(kinds.begin(), kinds.end(),
                                         [word](const kind& row) { return row.word == word; });
  return found == kinds.end() ? nullptr : &found->get();
}

std::string kind_words() {
  std::string all;
  for (const kind& row : kinds) {
    all += all.empty() ? "" : ", ";
    all += row.word;
  }
  return all;
}

}  // namespace ot::trackpolicy
