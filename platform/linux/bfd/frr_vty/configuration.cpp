// Reading and writing FRR's configuration. Only the indentation tells its nodes apart:
//
//   bfd
//    profile fast
//     receive-interval 50
//    exit
//    peer 10.0.0.2 local-address 10.0.0.1 interface e0
//     profile object-tracking-0123abcd
//    exit
#include "platform/linux/bfd/frr_vty/configuration.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>

#include "platform/linux/bfd/frr_vty/words.h"

namespace ot::bfd::vty {
namespace {

constexpr std::string_view name_letters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.:@+=%~,#";

std::string address_text(std::uint32_t address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

std::string_view next_line(std::string_view* text) noexcept {
  const std::size_t end = std::min(text->find('\n'), text->size());
  const std::string_view line = text->substr(0, end);
  *text = text->substr(std::min(end + 1, text->size()));
  return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

std::string_view next_word(std::string_view* line) noexcept {
  const std::size_t begin = std::min(line->find_first_not_of(' '), line->size());
  const std::size_t end = std::min(line->find(' ', begin), line->size());
  const std::string_view word = line->substr(begin, end - begin);
  *line = line->substr(end);
  return word;
}

// The words behind "peer"; none for a session of another sort than ours.
std::optional<configured_peer> read_peer(std::string_view words) {
  configured_peer peer;
  peer.key.destination = address_of(next_word(&words));
  bool ours = peer.key.destination != 0;
  for (std::string_view word = next_word(&words); !word.empty(); word = next_word(&words)) {
    if (word == "multihop") {
      ours = false;
    } else if (word == "local-address") {
      peer.local = address_of(next_word(&words));
    } else if (word == "interface") {
      const std::string_view name = next_word(&words);
      ours = ours && name.size() < interface_name::capacity;
      peer.key.interface.assign(name);
    } else {
      next_word(&words);  // a VRF, and what later releases have
    }
  }
  return ours ? std::optional{peer} : std::nullopt;
}

std::vector<std::string> in_bfd(std::vector<std::string> commands) {
  std::vector<std::string> block{"configure terminal", "bfd"};
  std::move(commands.begin(), commands.end(), std::back_inserter(block));
  block.emplace_back("end");
  return block;
}

std::string peer_text(const session_key& key) {
  return "peer " + address_text(key.destination) + " interface " + key.interface.c_str();
}

// With the address, which it must have from the first time on: bfdd would take any of the
// interface's, and refuse to delete a peer whose address has changed.
std::string enter_text(const session_key& key, std::uint32_t local) {
  return peer_text(key) + " local-address " + address_text(local);
}

}  // namespace

peer_mark::peer_mark(std::uint32_t instance) {
  char text[32];
  std::snprintf(text, sizeof text, "object-tracking-%08x", instance);
  name_ = text;
  log_name_ = name_ + "-d";
}

running_configuration read_configuration(std::string_view text) {
  running_configuration read;
  bool in_section = false;
  configured_peer* peer = nullptr;  // whose lines these are
  while (!text.empty()) {
    const std::string_view line = next_line(&text);
    const std::size_t depth = std::min(line.find_first_not_of(' '), line.size());
    std::string_view words = line;
    const std::string_view first = next_word(&words);
    if (depth == 0) {
      in_section = line == "bfd";
      read.logs_sessions = read.logs_sessions || line == "debug bfd peer";
    }
    if (depth <= 1) {
      peer = nullptr;
    }
    if (in_section && depth == 1 && first == "peer") {
      if (const std::optional<configured_peer> found = read_peer(words)) {
        peer = &read.peers.emplace_back(*found);
      }
    } else if (peer != nullptr && first == "profile") {
      peer->profile.assign(next_word(&words));
    }
  }
  return read;
}

bool writable_name(const interface_name& name) noexcept {
  return !name.empty() && name.view().find_first_not_of(name_letters) == std::string_view::npos;
}

std::vector<std::string> make_commands(const session_config& session, std::uint32_t local,
                                       const std::string& mark) {
  const std::string interval = std::to_string(session.interval);
  return in_bfd({enter_text(session.key, local), "profile " + mark, "receive-interval " + interval,
                 "transmit-interval " + interval,
                 "detect-multiplier " + std::to_string(session.multiplier), "no shutdown", "exit"});
}

std::vector<std::string> withdraw_commands(const session_key& key, std::uint32_t local) {
  std::vector<std::string> commands;
  if (local != 0) {
    commands = {enter_text(key, local), "exit"};
  }
  commands.push_back("no " + peer_text(key));
  return in_bfd(std::move(commands));
}

}  // namespace ot::bfd::vty
