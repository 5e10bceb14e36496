// The table of kinds.
#include "tools/qmond/kinds.h"

#include <array>

namespace ot::qmond {
namespace {

constexpr std::uint16_t dns_port = 53;

constexpr std::array kinds{
    kind{kind_id::icmp, "icmp",
         [](const std::string& text) { return host_port{.host = host_value(text), .port = 0}; },
         start_icmp},
    kind{kind_id::tcp, "tcp", [](const std::string& text) { return host_port_value(text, 0); },
         start_tcp},
    kind{kind_id::http, "http", [](const std::string& text) { return url_value(text); },
         start_http},
    kind{kind_id::dns, "dns",
         [](const std::string& text) { return host_port_value(text, dns_port); }, start_dns},
    kind{kind_id::command, "command", nullptr, start_command},
};

constexpr bool in_order() noexcept {
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    if (static_cast<std::size_t>(kinds[i].id) != i) {
      return false;
    }
  }
  return true;
}
static_assert(in_order());

}  // namespace

const kind& kind_of(kind_id id) noexcept {
  return kinds[static_cast<std::size_t>(id)];
}

const kind* find_kind(std::string_view word) noexcept {
  for (const kind& row : kinds) {
    if (row.word == word) {
      return &row;
    }
  }
  return nullptr;
}

std::string kind_words() {
  std::string words;
  for (const kind& row : kinds) {
    words += words.empty() ? "" : ", ";
    words += row.word;
  }
  return words;
}

}  // namespace ot::qmond
