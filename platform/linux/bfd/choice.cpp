#include "platform/linux/bfd/choice.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "platform/common/root_path.h"
#include "platform/linux/bfd/socket.h"

namespace ot::bfd {

engine_wish wished_engine(std::string_view* ret_unknown) noexcept {
  struct row {
    std::string_view word;
    engine_wish wish;
  };
  constexpr row rows[] = {{"", engine_wish::automatic},
                          {"auto", engine_wish::automatic},
                          {"own", engine_wish::own},
                          {"frr", engine_wish::frr}};
  const char* text = secure_getenv("OT_BFD_ENGINE");
  const std::string_view word = text == nullptr ? "" : text;
  const auto* found = std::find_if(std::begin(rows), std::end(rows),
                                   [&](const row& each) { return each.word == word; });
  const bool known = found != std::end(rows);
  *ret_unknown = known ? std::string_view{} : word;
  return known ? found->wish : engine_wish::automatic;
}

std::vector<engine_choice> frr_sockets() {
  const char* chosen = secure_getenv("OT_BFDD_SOCKET");
  if (chosen != nullptr && *chosen != '\0') {
    const bool vty = std::string_view{chosen}.ends_with(".vty");
    return {{vty ? engine_kind::frr_vty : engine_kind::frr_control, chosen}};
  }
  return {{engine_kind::frr_control, root_path("/run/frr/bfdd.sock")},
          {engine_kind::frr_control, root_path("/var/run/frr/bfdd.sock")},
          {engine_kind::frr_vty, root_path("/run/frr/bfdd.vty")},
          {engine_kind::frr_vty, root_path("/var/run/frr/bfdd.vty")}};
}

// A socket whose queue of connections is full is one that somebody listens on, if not now.
std::optional<engine_choice> listening(const std::vector<engine_choice>& sockets) noexcept {
  const auto found = std::find_if(sockets.begin(), sockets.end(), [](const engine_choice& socket) {
    return engine_connect(socket.path).valid() || errno == EAGAIN;
  });
  return found == sockets.end() ? std::nullopt : std::optional{*found};
}

engine_choice choose_engine(const engine_situation& now) {
  if (now.wish == engine_wish::own) {
    return {};
  }
  if (now.frr) {
    return *now.frr;
  }
  const bool is_frr = now.present && now.present->kind != engine_kind::own;
  if (is_frr && (now.wish == engine_wish::frr || now.away_usec.value_or(0) < frr_return_usec)) {
    return *now.present;
  }
  return now.wish == engine_wish::frr ? frr_sockets().front() : engine_choice{};
}

}  // namespace ot::bfd
