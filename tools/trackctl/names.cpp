// Each refusal says what was given, what is wrong with it and what would be right.
#include "tools/trackctl/names.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "platform/ipv4.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl {
namespace {

constexpr std::size_t longest_new_track_name = 31;
constexpr std::size_t longest_track_name = 39;
constexpr std::size_t longest_device_name = 15;  // VRFs are devices too
constexpr std::uint32_t longest_delay = 65535;
constexpr std::uint32_t longest_prefix = 32;

bool is_track_name_character(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 ||
         std::string_view{"_.:-"}.find(character) != std::string_view::npos;
}

[[noreturn]] void refuse(const std::string& text) {
  throw failure(exit_usage, text);
}

struct device_name {
  std::string what;
  std::string limit;  // what the longest length is for
  std::string advice;
  std::string without;  // what else could be done when the name is empty
};

// Words that commands and readers take for something else.
struct reserved_word {
  std::string_view word;
  const char* meaning;
};
constexpr reserved_word reserved_words[] = {
    {"not", "in a list it negates the member behind it"},
    {"all-tracks", "where tracks are shown it stands for all of them"},
    {"type-interface", "where tracks are shown it stands for those of a kind"},
    {"type-route", "where tracks are shown it stands for those of a kind"},
    {"type-prb", "where tracks are shown it stands for those of a kind"},
};

std::string quoted_track(std::string_view name) {
  return "track name \"" + std::string(name) + "\"";
}

void check_track_name_length(std::string_view name, std::size_t most) {
  if (name.empty()) {
    refuse("the track name is empty; give 1 to " + std::to_string(most) + " characters");
  }
  if (name.size() > most) {
    refuse(quoted_track(name) + " has " + std::to_string(name.size()) + " characters; at most " +
           std::to_string(most) + " are taken");
  }
}

void check_device_name(const device_name& kind, std::string_view name) {
  const std::string quoted = kind.what + " \"" + std::string(name) + "\"";
  if (name.empty()) {
    refuse("the " + kind.what + " is empty; " + kind.advice + kind.without);
  }
  if (name.size() > longest_device_name) {
    refuse(quoted + " has " + std::to_string(name.size()) + " characters; at most " +
           std::to_string(longest_device_name) + kind.limit);
  }
  if (std::any_of(name.begin(), name.end(), [](unsigned char character) {
        return character == '/' || std::isspace(character) != 0;
      })) {
    refuse(quoted + " has a '/' or a blank; " + kind.advice);
  }
  if (name == "." || name == ".." || name.find(':') != std::string_view::npos) {
    refuse(quoted + " is one that no interface can have; " + kind.advice);
  }
}

}  // namespace

void check_new_track_name(std::string_view name) {
  check_track_name_length(name, longest_new_track_name);
  if (!std::all_of(name.begin(), name.end(), is_track_name_character)) {
    refuse(quoted_track(name) + " has a character that no track name has; use A-Z a-z 0-9 _ . : -");
  }
  for (const reserved_word& reserved : reserved_words) {
    if (name == reserved.word) {
      refuse(quoted_track(name) + " is taken: " + reserved.meaning + "; use another one");
    }
  }
}

void check_track_name(std::string_view name) {
  check_track_name_length(name, longest_track_name);
  if (std::any_of(name.begin(), name.end(), [](unsigned char character) {
        return character == '/' || std::iscntrl(character) != 0;
      })) {
    refuse(quoted_track(name) + " has a '/' or a control character; no track has");
  }
}

void check_interface_name(std::string_view name) {
  check_device_name({"interface name", " are kept", "give one as `ip link` lists it", ""}, name);
}

void check_vrf_name(std::string_view name) {
  check_device_name({"VRF name", " can be, since a VRF is a Linux device",
                     "give one as `ip vrf` lists it", ", or leave --vrf out"},
                    name);
}

std::uint32_t parse_delay(const std::string& what, const std::string& text) {
  return parse_seconds(what, text, {.least = 0, .most = longest_delay});
}

std::uint32_t parse_number(const std::string& what, const std::string& text,
                           const number_range& range) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end || number < range.least || number > range.most) {
    refuse(what + " \"" + text + "\" is not a whole number" + range.unit + " from " +
           std::to_string(range.least) + " to " + std::to_string(range.most));
  }
  return number;
}

route_prefix parse_route_prefix(const std::string& text) {
  const auto slash = text.find('/');
  in_addr parsed{};
  if (slash == std::string::npos ||
      inet_pton(AF_INET, text.substr(0, slash).c_str(), &parsed) != 1) {
    refuse("route \"" + text + "\" is not an IPv4 prefix; give one such as 192.0.2.0/24");
  }
  const std::string length_text = text.substr(slash + 1);
  const bool all = length_text == "0";  // refused below, with its reason
  const std::uint32_t length =
      all ? 0 : parse_number("prefix length", length_text, {.least = 1, .most = longest_prefix});
  route_prefix prefix{parsed.s_addr, ipv4_prefixlen2mask(length)};
  const std::uint32_t network = prefix.address & prefix.mask;
  if (network == 0) {
    refuse("route \"" + text +
           "\" cannot be tracked: the FIB takes no registration for address 0.0.0.0; track a "
           "prefix behind it instead");
  }
  if (network != prefix.address) {
    refuse("route \"" + text + "\" has host bits set; the network is " + address_text(network) +
           "/" + length_text);
  }
  return prefix;
}

std::string address_text(std::uint32_t address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

}  // namespace ot::trackctl
