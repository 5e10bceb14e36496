// FRR's configuration, as far as it is ours to read and write: the peers in its section "bfd".
// Pure. Everything may throw bad_alloc.
//
// A peer of ours is marked by the profile that it names, "object-tracking-INSTANCE", which need not
// exist. With "-d" at its end it says, too, that bfdd logs its sessions because we told it to.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/bfd/engine.h"

namespace ot::bfd::vty {

using profile_name = fixed_text<65>;

class peer_mark {
 public:
  explicit peer_mark(std::uint32_t instance);

  [[nodiscard]] const std::string& name(bool our_log) const noexcept {
    return our_log ? log_name_ : name_;
  }
  [[nodiscard]] bool own(const profile_name& name) const noexcept {
    return name == std::string_view{name_} || our_log(name);
  }
  [[nodiscard]] bool our_log(const profile_name& name) const noexcept {
    return name == std::string_view{log_name_};
  }

 private:
  std::string name_;
  std::string log_name_;
};

// One hop, IPv4.
struct configured_peer {
  session_key key;          // without an interface: bound to none
  std::uint32_t local = 0;  // network byte order; 0: left to bfdd
  profile_name profile;
};

struct running_configuration {
  bool logs_sessions = false;  // "debug bfd peer"
  std::vector<configured_peer> peers;
};

running_configuration read_configuration(std::string_view text);

// A name that FRR's shell takes for one word, and nothing else.
bool writable_name(const interface_name& name) noexcept;

// Each is a whole block, from the enable node and back to it. If a command of it fails, the rest
// must not be sent but for the last one: in another node it would be about another peer.
//
// The peer with these values, made or changed.
std::vector<std::string> make_commands(const session_config& session, std::uint32_t local,
                                       const std::string& mark);
// Takes the peer away. It is entered with its address first, for one whose address has been changed
// meanwhile could not be taken away. `local`: 0 if it has none. The neighbor is not told: a session
// that is shut stays so for a routing protocol that has come to use it, and falls for it at best.
std::vector<std::string> withdraw_commands(const session_key& key, std::uint32_t local);

}  // namespace ot::bfd::vty
