// Encodings of item values: a number is its four bytes in host order, a text its characters.
#include "tools/trackctl/config_items.h"

#include <span>

namespace ot::trackctl {

item_value u32_value(std::uint32_t number) {
  const auto bytes = std::as_bytes(std::span{&number, 1});
  return {ledger_kind::u32, {bytes.begin(), bytes.end()}};
}

item_value text_value(std::string_view text) {
  const auto bytes = std::as_bytes(std::span{text});
  return {ledger_kind::text, {bytes.begin(), bytes.end()}};
}

std::string track_path(std::string_view track) {
  return std::string(tracks_root).append(track).append("/");
}

}  // namespace ot::trackctl
