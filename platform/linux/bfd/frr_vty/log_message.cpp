// Reading the live log. A datagram is a header in the machine's byte order and the text; of the
// header only those fields are looked at that are the same in all of FRR's releases.
//
//   [SEY1D-NT8EQ] state-change: [mhop:no peer:10.0.0.2 local:10.0.0.1 vrf:default ifname:e0] up ->
//   down reason:control-expired
#include "platform/linux/bfd/frr_vty/log_message.h"

#include <algorithm>
#include <cstring>

#include "platform/linux/bfd/frr_vty/words.h"

namespace ot::bfd::vty {
namespace {

constexpr std::size_t header_length_at = 12;
constexpr std::size_t lost_at = 32;
constexpr std::size_t text_length_at = 44;

std::uint32_t number_at(std::string_view datagram, std::size_t place) noexcept {
  std::uint32_t number = 0;
  std::memcpy(&number, datagram.data() + place, sizeof number);
  return number;
}

// FRR 10.4 has the second one.
constexpr std::string_view heads[] = {"state-change: [", "Session-Change: ["};

// The text behind the head; empty when it has none. What stands before it is a unique id.
std::string_view behind_head(std::string_view text) noexcept {
  if (text.starts_with('[')) {
    const std::size_t end = text.find("] ");
    text = end == std::string_view::npos ? text : text.substr(end + 2);
  }
  for (const std::string_view head : heads) {
    if (text.starts_with(head)) {
      return text.substr(head.size());
    }
  }
  return {};
}

// Cuts the first word off.
std::string_view next_word(std::string_view* text) noexcept {
  const std::size_t end = std::min(text->find(' '), text->size());
  const std::string_view word = text->substr(0, end);
  *text = text->substr(std::min(end + 1, text->size()));
  return word;
}

// "key:value" to its value; empty when the key is another.
std::string_view value_of(std::string_view word, std::string_view key) noexcept {
  const bool same = word.size() > key.size() && word.starts_with(key) && word[key.size()] == ':';
  return same ? word.substr(key.size() + 1) : std::string_view{};
}

// False when it is no session of one hop over IPv4.
bool read_key(std::string_view words, session_key* ret) noexcept {
  bool one_hop = false;
  while (!words.empty()) {
    const std::string_view word = next_word(&words);
    one_hop = one_hop || value_of(word, "mhop") == "no";
    if (const std::string_view peer = value_of(word, "peer"); !peer.empty()) {
      ret->destination = address_of(peer);
    } else if (const std::string_view name = value_of(word, "ifname"); !name.empty()) {
      if (name.size() >= interface_name::capacity) {
        return false;
      }
      ret->interface.assign(name);
    }
  }
  return one_hop && ret->destination != 0;
}

}  // namespace

bool read_log_message(std::string_view datagram, log_message* ret) noexcept {
  if (datagram.size() < text_length_at + sizeof(std::uint32_t)) {
    return false;
  }
  const std::size_t begin = number_at(datagram, header_length_at);
  if (begin < text_length_at + sizeof(std::uint32_t) || begin > datagram.size()) {
    return false;
  }
  ret->lost = number_at(datagram, lost_at);
  ret->text = datagram.substr(begin, number_at(datagram, text_length_at));
  return true;
}

bool read_session_move(std::string_view text, session_move* ret) noexcept {
  const std::string_view rest = behind_head(text);
  const std::size_t key_end = rest.rfind("] ");  // a name may hold the bracket, no blank
  session_move read;
  if (key_end == std::string_view::npos || !read_key(rest.substr(0, key_end), &read.key)) {
    return false;
  }
  std::string_view words = rest.substr(key_end + 2);
  next_word(&words);  // the state before
  if (next_word(&words) != "->" || !state_of(next_word(&words), &read.state)) {
    return false;
  }
  read.diagnostic = logged_diagnostic_of(value_of(next_word(&words), "reason"));
  *ret = read;
  return true;
}

}  // namespace ot::bfd::vty
