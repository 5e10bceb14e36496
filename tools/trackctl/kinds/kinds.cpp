// The list of all kinds.
#include "tools/trackctl/kinds/kinds.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace ot::trackctl {
namespace {

constexpr std::array<std::reference_wrapper<const track_kind>, 8> kinds{
    interface_kind, route_kind, probe_kind,  bfd_kind,
    and_kind,       or_kind,    weight_kind, percentage_kind};

template <typename Matches>
const track_kind* find(Matches matches) noexcept {
  const auto* const found = std::find_if(kinds.begin(), kinds.end(), matches);
  return found == kinds.end() ? nullptr : &found->get();
}

}  // namespace

std::span<const std::reference_wrapper<const track_kind>> track_kinds() noexcept {
  return kinds;
}

const track_kind* find_track_kind(std::string_view word) noexcept {
  return find([word](const track_kind& kind) { return kind.word == word; });
}

const track_kind* find_track_kind(track_type type) noexcept {
  return find([type](const track_kind& kind) { return kind.type == type; });
}

std::string item_text(const track_items& items, std::string_view path) {
  const auto item = items.find(path);
  if (item == items.end() || item->second.kind != ledger_kind::text) {
    return {};
  }
  const auto& bytes = item->second.bytes;
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::uint32_t item_number(const track_items& items, std::string_view path) {
  const auto item = items.find(path);
  std::uint32_t number = 0;
  if (item != items.end() && item->second.bytes.size() == sizeof number) {
    std::memcpy(&number, item->second.bytes.data(), sizeof number);
  }
  return number;
}

std::pair<std::uint32_t, std::uint32_t> item_addresses(const track_items& items,
                                                       std::string_view path) {
  const auto item = items.find(path);
  std::uint32_t addresses[2] = {0, 0};
  if (item != items.end() && item->second.kind == ledger_kind::tuple) {
    const auto& bytes = item->second.bytes;
    std::memcpy(addresses, bytes.data(), std::min(bytes.size(), sizeof addresses));
  }
  return {addresses[0], addresses[1]};
}

}  // namespace ot::trackctl
