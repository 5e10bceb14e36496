// Which engine is to run the sessions. One speaker of BFD is all that a router can have, since two
// take each other's packets: so FRR's bfdd where it runs, and our own engine elsewhere.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ot::bfd {

enum class engine_kind { own, frr_control, frr_vty };

struct engine_choice {
  engine_kind kind = engine_kind::own;
  std::string path;  // of FRR's socket

  friend bool operator==(const engine_choice&, const engine_choice&) = default;
};

// The operator's word: OT_BFD_ENGINE is "auto", "own" or "frr", or not set, which leaves it to what
// runs. So does another word, which `ret_unknown` gets; it is empty else.
enum class engine_wish { automatic, own, frr };
engine_wish wished_engine(std::string_view* ret_unknown) noexcept;

// Where bfdd's sockets are, in the order in which they are to be tried: its control socket, which
// it has before FRR 10.2, and its vty socket. OT_BFDD_SOCKET, taken as it is, stands for all; with
// the ending ".vty" it is a vty socket. Throws bad_alloc.
std::vector<engine_choice> frr_sockets();

// The first of `sockets` on which somebody listens.
std::optional<engine_choice> listening(const std::vector<engine_choice>& sockets) noexcept;

// What is to be decided by.
struct engine_situation {
  engine_wish wish = engine_wish::automatic;
  std::optional<engine_choice> present;    // the engine there is
  std::optional<engine_choice> frr;        // bfdd, where it listens
  std::optional<std::uint64_t> away_usec;  // so long has the present engine not run; none: it runs
};

// A bfdd that ended is given this long to come back: its guard restarts it after five seconds, and
// each change of the speaker costs every session an outage.
inline constexpr std::uint64_t frr_return_usec = 8'000'000;

engine_choice choose_engine(const engine_situation& now);

}  // namespace ot::bfd
