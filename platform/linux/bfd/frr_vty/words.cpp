// FRR's words for states and diagnostics.
#include "platform/linux/bfd/frr_vty/words.h"

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>

namespace ot::bfd::vty {
namespace {

struct state_row {
  std::string_view word;
  std::uint8_t state;
};

// "shutdown" in the lists is "admin-down" in the log.
constexpr state_row states[] = {
    {"up", bfd_state_up},
    {"init", bfd_state_init},
    {"down", bfd_state_down},
    {"shutdown", bfd_state_admin_down},
    {"admin-down", bfd_state_admin_down},
    {"adm-down", bfd_state_admin_down},
};

// By their numbers in the protocol.
constexpr std::string_view logged_diagnostics[] = {
    "ok",
    "control-expired",
    "echo-failed",
    "neighbor-down",
    "forwarding-reset",
    "path-down",
    "concatenated-path-down",
    "administratively-down",
    "reverse-concat-path-down",
};
static_assert(std::size(bfd_diagnostic_texts) == std::size(logged_diagnostics));

template <std::size_t N>
std::uint8_t place_of(std::string_view word, const std::string_view (&words)[N]) noexcept {
  const auto* found = std::find(std::begin(words), std::end(words), word);
  return found == std::end(words) ? 0 : static_cast<std::uint8_t>(found - std::begin(words));
}

}  // namespace

bool state_of(std::string_view word, std::uint8_t* ret) noexcept {
  const auto* row = std::find_if(std::begin(states), std::end(states),
                                 [word](const state_row& each) { return each.word == word; });
  if (row == std::end(states)) {
    return false;
  }
  *ret = row->state;
  return true;
}

std::uint8_t diagnostic_of(std::string_view words) noexcept {
  return place_of(words, bfd_diagnostic_texts);  // "ok" for none
}

std::uint8_t logged_diagnostic_of(std::string_view word) noexcept {
  return place_of(word, logged_diagnostics);
}

std::uint32_t address_of(std::string_view text) noexcept {
  const fixed_text<INET_ADDRSTRLEN + 1> terminated{text};  // a longer one stays too long
  in_addr address{};
  return inet_pton(AF_INET, terminated.c_str(), &address) == 1 ? address.s_addr : 0;
}

}  // namespace ot::bfd::vty
